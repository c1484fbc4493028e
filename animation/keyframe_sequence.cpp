#include "animation/keyframe_sequence.h"

#include <algorithm>
#include <cassert>

#include "animation/keyframe_interpolation.h"
#include "animation/quaternion.h"

static bool holdsQuaternions(Interpolation interpolation) {
    return interpolation == Interpolation::Slerp || interpolation == Interpolation::Squad;
}

static bool hasTangents(Interpolation interpolation) {
    return interpolation == Interpolation::Spline || interpolation == Interpolation::Squad;
}

static bool isKeyframe(const KeyframeSequence* sequence, int32_t index) {
    return index >= 0 && index < sequence->keyframeCount;
}

// --- Life ---

static void destroyKeyframeSequence(Object3D* object) {
    auto* sequence = static_cast<KeyframeSequence*>(object);
    qelFree(sequence->keyframes);
    qelFree(sequence->values);
    qelFree(sequence->tangents);
    qelObject3D_finalise(sequence);
    qelFree(sequence);
}

static bool areCreatable(int32_t keyframeCount, int32_t componentCount, int32_t interpolation) {
    if (keyframeCount < 1 || componentCount < 1) return false;
    if (interpolation < int32_t(Interpolation::Linear) || interpolation > int32_t(Interpolation::Step)) return false;
    return !holdsQuaternions(Interpolation(interpolation)) || componentCount == 4;
}

// The arrays of a sequence that has its counts and interpolation. False when memory runs out.
static bool allocateArrays(KeyframeSequence* sequence) {
    const auto keyframeCount = uint32_t(sequence->keyframeCount);
    // A size that does not fit stays too large for any allocation.
    const uint64_t exactValueBytes = uint64_t(sequence->componentCount) * sizeof(float);
    const auto valueBytes = uint32_t(std::min<uint64_t>(exactValueBytes, UINT32_MAX));
    sequence->keyframes = qelAllocArrayOf<Keyframe>(keyframeCount);
    if (!sequence->keyframes) return false;
    sequence->values = static_cast<float*>(qelAllocArray(keyframeCount, valueBytes));
    if (!sequence->values) return false;
    if (hasTangents(sequence->interpolation)) {
        sequence->tangents = static_cast<float*>(qelAllocArray(2 * keyframeCount, valueBytes));
        if (!sequence->tangents) return false;
    }
    for (uint32_t k = 0; k < keyframeCount; ++k)
        sequence->keyframes[k].values = sequence->values + size_t(sequence->componentCount) * k;
    return true;
}

KeyframeSequence* qelKeyframeSequence_create(int32_t keyframeCount, int32_t componentCount, int32_t interpolation,
                                             Result* result) {
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!areCreatable(keyframeCount, componentCount, interpolation)) return nullptr;
    *result = QEL_STATUS_OUT_OF_MEMORY;
    auto* sequence = qelObject3D_alloc<KeyframeSequence>(ClassId::KeyframeSequence);
    if (!sequence) return nullptr;
    qelObject3D_init(sequence);
    sequence->classId = ClassId::KeyframeSequence;
    sequence->find = qelObject3D_findCommon;
    sequence->getReferences = qelObject3D_getReferencesCommon;
    sequence->destroy = destroyKeyframeSequence;
    sequence->validLast = keyframeCount - 1;
    sequence->repeatMode = RepeatMode::Constant;
    sequence->interpolation = Interpolation(interpolation);
    sequence->keyframeCount = keyframeCount;
    sequence->duration = -1;
    sequence->componentCount = componentCount;
    sequence->validity = kValidityUnknown;
    sequence->interpolator = KeyframeInterpolator_of(sequence->interpolation);
    if (allocateArrays(sequence)) {
        *result = QEL_STATUS_OK;
        return sequence;
    }
    qelObject3D_unref(sequence);
    return nullptr;
}

Object3D* qelKeyframeSequence_duplicate(const KeyframeSequence* sequence) {
    KeyframeSequence* copy = qelObject3D_copy(sequence);
    if (!copy) return nullptr;
    copy->keyframes = nullptr;
    copy->values = copy->tangents = nullptr;
    if (!allocateArrays(copy)) {
        qelObject3D_unref(copy);
        return nullptr;
    }
    const size_t valueCount = size_t(sequence->keyframeCount) * size_t(sequence->componentCount);
    std::copy_n(sequence->values, valueCount, copy->values);
    if (sequence->tangents) std::copy_n(sequence->tangents, 2 * valueCount, copy->tangents);
    for (int32_t k = 0; k < sequence->keyframeCount; ++k) copy->keyframes[k].time = sequence->keyframes[k].time;
    return copy;
}

// --- Setters ---

Result qelKeyframeSequence_setKeyframe(KeyframeSequence* sequence, int32_t index, int32_t time, const float* values) {
    if (!values || time < 0) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!isKeyframe(sequence, index)) return QEL_STATUS_INDEX_OUT_OF_RANGE;
    Keyframe& keyframe = sequence->keyframes[index];
    keyframe.time = time;
    std::copy_n(values, sequence->componentCount, keyframe.values);
    if (holdsQuaternions(sequence->interpolation)) Quaternion_normalize(keyframe.values);
    if (sequence->validFirst <= index && index <= sequence->validLast) sequence->validity = kValidityUnknown;
    return QEL_STATUS_OK;
}

Result qelKeyframeSequence_setValidRange(KeyframeSequence* sequence, int32_t first, int32_t last) {
    if (!isKeyframe(sequence, first) || !isKeyframe(sequence, last)) return QEL_STATUS_INDEX_OUT_OF_RANGE;
    sequence->validFirst = first;
    sequence->validLast = last;
    sequence->validity = kValidityUnknown;
    return QEL_STATUS_OK;
}

Result qelKeyframeSequence_setRepeatMode(KeyframeSequence* sequence, int32_t mode) {
    if (mode != int32_t(RepeatMode::Constant) && mode != int32_t(RepeatMode::Loop)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    sequence->repeatMode = RepeatMode(mode);
    sequence->validity = kValidityUnknown;  // the mode decides the neighbours at the ends, and so the tangents
    return QEL_STATUS_OK;
}

Result qelKeyframeSequence_setDuration(KeyframeSequence* sequence, int32_t duration) {
    if (duration < 1) return QEL_STATUS_ILLEGAL_ARGUMENT;
    sequence->duration = duration;
    sequence->validity = kValidityUnknown;
    return QEL_STATUS_OK;
}

int32_t qelKeyframeSequence_getKeyframe(const KeyframeSequence* sequence, int32_t index, float* out, Result* result) {
    *result = isKeyframe(sequence, index) ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
    if (*result != QEL_STATUS_OK) return 0;
    const Keyframe& keyframe = sequence->keyframes[index];
    if (out) std::copy_n(keyframe.values, sequence->componentCount, out);
    return keyframe.time;
}

// --- Sampling ---

static bool timesAreInOrder(const KeyframeSequence* sequence) {
    for (int32_t k = sequence->validFirst; k != sequence->validLast;) {
        const int32_t next = k + 1 < sequence->keyframeCount ? k + 1 : 0;
        if (sequence->keyframes[next].time < sequence->keyframes[k].time) return false;
        k = next;
    }
    return true;
}

static bool isValid(KeyframeSequence* sequence) {
    if (sequence->validity == kValidityUnknown) {
        const bool fits = sequence->keyframes[sequence->validLast].time <= sequence->duration;  // never when unset
        sequence->validity = fits && timesAreInOrder(sequence);
        if (sequence->validity) KeyframeTangents_compute(sequence);
    }
    return sequence->validity != 0;
}

bool qelKeyframeSequence_sample(KeyframeSequence* sequence, int64_t time, std::span<float> values) {
    assert(values.size() <= size_t(sequence->componentCount));
    if (!isValid(sequence)) return false;
    const KeyframeSegment segment = KeyframeSegment_find(sequence, time);
    if (segment.fraction > 0)
        sequence->interpolator(sequence, segment, values);
    else
        std::copy_n(sequence->keyframes[segment.from].values, values.size(), values.begin());
    return true;
}
