// Binds a keyframe sequence to one property of the object that carries the track.
#pragma once

#include "scene/object3d.h"

enum class AnimationProperty : int32_t {
    Matrix = 23,     // the engine's own, on groups: 16 values written into the composite
    Reserved = 24,   // accepted by tracks, suits no object
    Direction = 25,  // the engine's own, on groups: a direction that the z axis is turned to
    Alpha = 256,
    AmbientColor = 257,
    Color = 258,
    Crop = 259,
    Density = 260,
    DiffuseColor = 261,
    EmissiveColor = 262,
    FarDistance = 263,
    FieldOfView = 264,
    Intensity = 265,
    MorphWeights = 266,
    NearDistance = 267,
    Orientation = 268,
    Pickability = 269,
    Scale = 270,
    Shininess = 271,
    SpecularColor = 272,
    SpotAngle = 273,
    SpotExponent = 274,
    Translation = 275,
    Visibility = 276,
};

struct AnimationTrack : Object3D {
    KeyframeSequence* keyframeSequence;  // one reference, never null
    AnimationProperty targetProperty;
    AnimationController* controller;  // one reference, or null
};

AnimationTrack* qelAnimationTrack_create(KeyframeSequence* sequence, int32_t property, Result* result);
void qelAnimationTrack_setController(AnimationTrack* track, AnimationController* controller);
Object3D* qelAnimationTrack_duplicate(const AnimationTrack* track);
