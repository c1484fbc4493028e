// Timed values and the way to interpolate between them.
#pragma once

#include "scene/object3d.h"

enum class Interpolation : int32_t { Linear = 176, Slerp = 177, Spline = 178, Squad = 179, Step = 180 };
enum class RepeatMode : int32_t { Constant = 192, Loop = 193 };

struct Keyframe {
    float* values;  // into the sequence's value block
    int32_t time;   // milliseconds by convention
};

// Samples at a sequence time; false only for an invalid sequence.
using Interpolator = bool (*)(KeyframeSequence* sequence, int32_t time, float* values);

constexpr uint8_t kValidityUnknown = 255;

struct KeyframeSequence : Object3D {
    int32_t validFirst, validLast;  // first may exceed last: the range wraps around the end
    RepeatMode repeatMode;
    Interpolation interpolation;
    int32_t keyframeCount;
    int32_t duration;  // -1: not set
    int32_t componentCount;
    Keyframe* keyframes;  // owned
    float* values;        // owned: keyframeCount x componentCount
    uint8_t validity;     // kValidityUnknown, 1 valid, 0 invalid
    float* tangents;      // owned: per keyframe the outgoing and the incoming tangent, or two quaternions; null where the interpolation has none
    Interpolator interpolator;
};

KeyframeSequence* qelKeyframeSequence_create(int32_t keyframeCount, int32_t componentCount, int32_t interpolation, Result* result);
Result qelKeyframeSequence_setKeyframe(KeyframeSequence* sequence, int32_t index, int32_t time, const float* values);
Result qelKeyframeSequence_setValidRange(KeyframeSequence* sequence, int32_t first, int32_t last);
Result qelKeyframeSequence_setRepeatMode(KeyframeSequence* sequence, int32_t mode);
Result qelKeyframeSequence_setDuration(KeyframeSequence* sequence, int32_t duration);
// The time of keyframe `index`; its values go to `out` when that is not null. INDEX_OUT_OF_RANGE as result for a bad index.
int32_t qelKeyframeSequence_getKeyframe(const KeyframeSequence* sequence, int32_t index, float* out, Result* result);
// Samples; false for a sequence without duration or with times out of order.
bool qelKeyframeSequence_sample(KeyframeSequence* sequence, int32_t time, float* values);
Object3D* qelKeyframeSequence_duplicate(const KeyframeSequence* sequence);
