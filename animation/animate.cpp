#include "animation/animate.h"

#include <algorithm>
#include <cassert>
#include <cmath>

#include "animation/animate_apply.h"
#include "animation/animation_controller.h"
#include "animation/animation_track.h"
#include "animation/keyframe_sequence.h"
#include "scene/morphing_mesh.h"

// --- Time ---

// To the nearest whole unit, halves away from zero. Wider than 32 bits, so that a fast loop wraps around its duration
// and not before.
static int64_t roundTime(double time) {
    constexpr double kLimit = 0x1p61;  // two such times can be added
    if (time != time) return 0;
    return int64_t(std::clamp(std::round(time), -kLimit, kLimit));
}

// What has passed since the reference time, at the speed of the controller. Whole rounds of the loop are left out where
// a round takes at least one unit of world time: the product then stays small enough to be exact. Products with the
// speed are taken in double, as by the controller's getPosition.
static int64_t loopedTime(const AnimationController* controller, int64_t elapsed, int32_t duration) {
    const double speed = controller->speed;
    if (speed == 1) return elapsed;
    if (speed == 0) return 0;
    const double period = std::round(duration / speed);
    const double rest = period != 0 ? std::fmod(double(elapsed), period) : double(elapsed);
    return roundTime(rest * speed);
}

static int64_t sequenceTime(const AnimationTrack* track, int32_t worldTime) {
    const AnimationController* controller = track->controller;
    const KeyframeSequence* sequence = track->keyframeSequence;
    if (sequence->repeatMode == RepeatMode::Constant)
        return roundTime(qelAnimationController_getPosition(controller, worldTime));
    const int64_t elapsed = int64_t(worldTime) - controller->referenceWorldTime;
    return loopedTime(controller, elapsed, sequence->duration) + roundTime(controller->referenceSequenceTime);
}

// Whether the controller is active; lowers the validity to the time until it is.
static bool isActive(const AnimationController* controller, int32_t worldTime, int32_t* validity) {
    const int32_t start = controller->activeStart, end = controller->activeEnd;
    if (start == end || (start <= worldTime && worldTime < end)) return true;
    if (worldTime < start) *validity = int32_t(std::min<int64_t>(*validity, int64_t(start) - worldTime));
    return false;
}

// --- Accumulators ---

constexpr size_t kMatrixSize = 16;
constexpr size_t kDirectionSize = 4;
constexpr uint32_t kSummedProperties = uint32_t(AnimationProperty::Visibility) - uint32_t(AnimationProperty::Alpha) + 1;
constexpr uint32_t kProperties = kSummedProperties + 2;

// The blended samples of one object, on the stack. Only the values of properties that `sampled` has a bit for have been
// written.
struct Accumulators {
    explicit Accumulators(const Object3D* of) : object(of), sampled(0), morphWeights(nullptr) {}
    ~Accumulators() { qelFree(morphWeights); }
    Accumulators(const Accumulators&) = delete;
    Accumulators& operator=(const Accumulators&) = delete;
    const Object3D* object;
    uint32_t sampled;
    float values[kProperties][kMatrixSize];
    float* morphWeights;  // the sums, and room for one more sample behind them
};

static bool isSummed(AnimationProperty property) { return uint32_t(property) >= uint32_t(AnimationProperty::Alpha); }

static uint32_t indexOf(AnimationProperty property) {
    if (isSummed(property)) return uint32_t(property) - uint32_t(AnimationProperty::Alpha);
    return property == AnimationProperty::Matrix ? kSummedProperties : kSummedProperties + 1;
}

static bool isSampled(const Accumulators& accumulators, AnimationProperty property) {
    return accumulators.sampled >> indexOf(property) & 1;
}

static uint32_t morphTargetCount(const Object3D* object) {
    return uint32_t(static_cast<const MorphingMesh*>(object)->targetCount);
}

// The place of the values that the track contributes to: as many as the property takes, which need not be as many as
// the sequence has.
static std::span<float> valuesFor(Accumulators& accumulators, const AnimationTrack* track) {
    const AnimationProperty property = track->targetProperty;
    if (property == AnimationProperty::MorphWeights)
        return {accumulators.morphWeights, morphTargetCount(accumulators.object)};
    float* values = accumulators.values[indexOf(property)];
    if (property == AnimationProperty::Matrix) return {values, kMatrixSize};
    if (property == AnimationProperty::Direction) return {values, kDirectionSize};
    assert(track->keyframeSequence->componentCount <=
           int32_t(kMatrixSize));  // a track of a summed property takes at most 4
    return {values, size_t(track->keyframeSequence->componentCount)};
}

static bool ensureMorphWeights(Accumulators& accumulators) {
    if (!accumulators.morphWeights)
        accumulators.morphWeights =
            static_cast<float*>(qelAllocArray(morphTargetCount(accumulators.object), 2 * sizeof(float)));
    return accumulators.morphWeights != nullptr;
}

// --- Tracks ---

// Samples the track into `room`, at its controller's weight; what the sequence has no component for becomes 0.
static bool sampleTrack(const AnimationTrack* track, int32_t worldTime, std::span<float> room) {
    KeyframeSequence* sequence = track->keyframeSequence;
    const std::span<float> sample = room.first(std::min(room.size(), size_t(sequence->componentCount)));
    if (!qelKeyframeSequence_sample(sequence, sequenceTime(track, worldTime), sample)) return false;
    const float weight = track->controller->weight;
    if (weight != 1)
        for (float& value : sample) value *= weight;
    std::fill(room.begin() + ptrdiff_t(sample.size()), room.end(), 0.0f);
    return true;
}

// Adds the track's sample to the values of its property. Those of Matrix and Direction are not summed: the last track's
// stand as a whole, so that a direction of three components also takes back the angle of an earlier one of four.
static Result blendTrack(const AnimationTrack* track, int32_t worldTime, Accumulators& accumulators) {
    const AnimationProperty property = track->targetProperty;
    const bool isMorph = property == AnimationProperty::MorphWeights;
    if (isMorph && !ensureMorphWeights(accumulators)) return QEL_STATUS_OUT_OF_MEMORY;
    const std::span<float> values = valuesFor(accumulators, track);
    if (isSummed(property) && isSampled(accumulators, property)) {
        float few[kMatrixSize];
        const std::span<float> sample(isMorph ? values.data() + values.size() : few, values.size());
        if (!sampleTrack(track, worldTime, sample)) return QEL_STATUS_ILLEGAL_STATE;
        for (size_t i = 0; i < values.size(); ++i) values[i] += sample[i];
    } else {
        if (!sampleTrack(track, worldTime, values)) return QEL_STATUS_ILLEGAL_STATE;
        accumulators.sampled |= 1u << indexOf(property);
    }
    return QEL_STATUS_OK;
}

// --- Properties ---

static void applyOnce(Object3D* object, const AnimationTrack* track, Accumulators& accumulators) {
    if (!isSampled(accumulators, track->targetProperty)) return;
    accumulators.sampled &= ~(1u << indexOf(track->targetProperty));
    qelObject3D_applyProperty(object, track->targetProperty, valuesFor(accumulators, track));
}

// The direction, then the matrix, then the others in the order of their first tracks.
static void applyAll(Object3D* object, std::span<AnimationTrack* const> tracks, Accumulators& accumulators) {
    for (const AnimationProperty early : {AnimationProperty::Direction, AnimationProperty::Matrix})
        if (isSampled(accumulators, early))
            applyOnce(object, *std::ranges::find(tracks, early, &AnimationTrack::targetProperty), accumulators);
    for (const AnimationTrack* track : tracks) applyOnce(object, track, accumulators);
}

int32_t qelObject3D_animateCommon(Object3D* object, int32_t worldTime, Result* result) {
    *result = QEL_STATUS_OK;
    int32_t validity = kValidForever;
    Accumulators accumulators(object);
    const std::span<AnimationTrack* const> tracks(object->animationTracks, size_t(object->animationTrackCount));
    for (const AnimationTrack* track : tracks) {
        const AnimationController* controller = track->controller;
        if (!controller || controller->weight == 0 || !isActive(controller, worldTime, &validity)) continue;
        validity = 0;
        *result = blendTrack(track, worldTime, accumulators);
        if (*result != QEL_STATUS_OK) return 0;
    }
    if (accumulators.sampled) applyAll(object, tracks, accumulators);
    return validity;
}
