// Draws a queued figure: poses it, applies its parameters to its appearances, and renders its mesh.
#pragma once

#include "render/draw_list.h"

// False when the figure cannot be drawn; the caller stores the error status.
bool K8DrawList_drawFigure(K8Render* handle, const DrawItem* item);
