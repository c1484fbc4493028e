// Writes animated values into the objects they are meant for.
#pragma once

#include <span>

#include "animation/animation_track.h"

// Clamps the blended values of one property to its range and writes them as the property's setter would, with the same
// marks of change. The property must suit the object's class. Matrix takes 16 values, Direction 4 (x, y, z and an angle
// in degrees about the new z axis), MorphWeights one per target, all others those of their sequences.
void qelObject3D_applyProperty(Object3D* object, AnimationProperty property, std::span<const float> values);
