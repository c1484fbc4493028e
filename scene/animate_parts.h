// For the animate slots of classes that animate what they reference.
#pragma once

#include <algorithm>

#include "scene/object3d.h"

// Animates one part, which may be null or of a class without animation, and lowers the validity to the part's. False
// when the part failed: its code is then in `result`, and the whole stops.
inline bool animatePart(Object3D* part, int32_t worldTime, int32_t* validity, Result* result) {
    if (!part || !part->animate) return true;
    *validity = std::min(*validity, part->animate(part, worldTime, result));
    return *result == QEL_STATUS_OK;
}
