// Which of the lights of a Graphics3D light one draw.
#pragma once

#include "render/graphics3d.h"

// Fills the backend's eight slots for a node of this scope that stands at the model transform: the first eight lights
// that take part, farther ones giving way to nearer ones that come later in the list.
void qelLightSelection_choose(Graphics3D* graphics, int32_t scope, const qelTransform* modelTransform);
