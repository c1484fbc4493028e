// Timed values and the way to interpolate between them.
//
// Values, tangents and samples are stored as single floats. Everything computed between two of them is in double
// precision and rounded once.
#pragma once

#include <span>

#include "scene/object3d.h"

enum class Interpolation : int32_t { Linear = 176, Slerp = 177, Spline = 178, Squad = 179, Step = 180 };
enum class RepeatMode : int32_t { Constant = 192, Loop = 193 };

struct Keyframe {
    float* values;  // into the sequence's value block
    int32_t time;   // milliseconds by convention
};

// Where a sequence time falls: between two neighbouring keyframes, at a fraction in 0..1 of the way.
struct KeyframeSegment {
    int32_t from, to;
    double fraction;  // 0: the values of `from` as they are
};

// Computes as many components as `values` has, at most those of the sequence. Called for fractions above 0 only.
using Interpolator = void (*)(const KeyframeSequence* sequence, const KeyframeSegment& segment,
                              std::span<float> values);

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
    float* tangents;      // owned; null but for Spline and Squad, see KeyframeTangents_at
    Interpolator interpolator;
};

KeyframeSequence* qelKeyframeSequence_create(int32_t keyframeCount, int32_t componentCount, int32_t interpolation,
                                             Result* result);
// Quaternions of Slerp and Squad are normalised. Inside a range that wraps around, setValidRange has to follow for the
// change to be checked.
Result qelKeyframeSequence_setKeyframe(KeyframeSequence* sequence, int32_t index, int32_t time, const float* values);
Result qelKeyframeSequence_setValidRange(KeyframeSequence* sequence, int32_t first, int32_t last);
Result qelKeyframeSequence_setRepeatMode(KeyframeSequence* sequence, int32_t mode);
Result qelKeyframeSequence_setDuration(KeyframeSequence* sequence, int32_t duration);
// The time of keyframe `index`; its values go to `out` when that is not null. INDEX_OUT_OF_RANGE as result for a bad
// index.
int32_t qelKeyframeSequence_getKeyframe(const KeyframeSequence* sequence, int32_t index, float* out, Result* result);
// Samples the first components, as many as `values` has (at most componentCount). False for a sequence without duration
// or with times out of order; `values` is then as it was. Times are wider than 32 bits because world times may lie that
// far apart.
bool qelKeyframeSequence_sample(KeyframeSequence* sequence, int64_t time, std::span<float> values);
Object3D* qelKeyframeSequence_duplicate(const KeyframeSequence* sequence);
