// From the screen-oriented projection settings of a render state to scales and matrices.
#pragma once

#include "render/render_state.h"

// Depths from -kParallelDepth to kParallelDepth are inside a parallel projection.
constexpr int32_t kParallelDepth = 65536;

// An angle in 1/4096 of a turn.
float RenderState_radiansOf(int32_t angle);
// To be called when the surface changes: scales depend on its size.
void RenderState_updateScales(RenderState* state);
// Brings the camera's projection up to date.
const qelTransform& RenderState_projectionMatrix(RenderState* state);
