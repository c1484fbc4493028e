// Applies an object's animation tracks.
#pragma once

#include "scene/object3d.h"

// The animate slot of classes that animate nothing but themselves: samples every active track at the world time, blends
// the samples of each property as a weighted sum and writes it. Returns for how many milliseconds the outcome stays
// valid; ILLEGAL_STATE and 0 for an invalid sequence.
int32_t qelObject3D_animateCommon(Object3D* object, int32_t worldTime, Result* result);
