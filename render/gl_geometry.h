// The vertex arrays of a draw, and the draw itself.
#pragma once

#include "render/gl_state.h"

// Sends the model-view matrix and the arrays. OUT_OF_MEMORY when colours need a copy that cannot be had.
Result GLGeometry_sendArrays(GLBackend* backend, const SubmeshDraw& draw, uint32_t alphaScale);
// ILLEGAL_STATE, with nothing drawn, when an index lies beyond one of the arrays that were sent.
Result GLGeometry_draw(const SubmeshDraw& draw);

// Sends the view as model-view matrix and the arrays, and draws.
void GLGeometry_drawImmediate(const GLBackend* backend, const ImmediateDraw& draw);

// The arrays that are not positions, off.
void GLGeometry_disableAttributes();
