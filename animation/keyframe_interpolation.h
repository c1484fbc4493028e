// How keyframe sequences find the keyframes around a time and interpolate between them. All of it expects a valid range
// whose times are in order.
#pragma once

#include "animation/keyframe_sequence.h"

Interpolator KeyframeInterpolator_of(Interpolation interpolation);

// Where the time falls in the valid range, before, behind and between its keyframes. The duration must be set.
KeyframeSegment KeyframeSegment_find(const KeyframeSequence* sequence, int64_t time);

// What keyframe k contributes to the curves on both its sides, componentCount floats each. Spline: the outgoing and the
// incoming tangent. Squad: the quaternion that guides the curve behind k, and the one that guides the curve before it.
struct KeyframeTangents {
    std::span<float> out, in;
};
KeyframeTangents KeyframeTangents_at(const KeyframeSequence* sequence, int32_t k);
// Computes them for the valid range; nothing for interpolations without.
void KeyframeTangents_compute(KeyframeSequence* sequence);
