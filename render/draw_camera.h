// How the parameter block of a queued object becomes camera and matrix.
#pragma once

#include "render/draw_list.h"

// Gives the context's camera the block's projection and makes it the current one, at the origin. A projection that the
// camera refuses leaves it as it was.
void K8DrawList_setCamera(K8Render* handle, const K8RenderParams& params);

// From an item's transform, in the frame with y down and z away from the viewer, to the matrix that is rendered with.
// scale is applied to the model first.
qelTransform K8DrawList_sceneMatrix(const K8Transform& transform, float scale);
