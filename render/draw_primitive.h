// Draws a queued primitive: triangles and quadrilaterals as a mesh made for the draw, points, lines and sprites as
// commands for the render state, which draws them when it is flushed.
#pragma once

#include "render/draw_list.h"

// The plain primitive type of an item's handle; 0 for a primitive without loaded info.
uint32_t K8DrawList_primitiveType(const DrawItem* item);
// Points, lines and sprites wait for the second pass of a flush.
bool K8DrawList_isDeferred(const DrawItem* item);

// Both: false when the primitive cannot be drawn; the caller stores the error status.
bool K8DrawList_drawFaces(K8Render* handle, const DrawItem* item);
bool K8DrawList_queueCommands(K8Render* handle, const DrawItem* item);
