#include "animation/keyframe_interpolation.h"

#include <algorithm>

#include "animation/quaternion.h"

constexpr size_t kQuaternionSize = 4;

static const float* valuesAt(const KeyframeSequence* sequence, int32_t k) { return sequence->keyframes[k].values; }

static int64_t timeAt(const KeyframeSequence* sequence, int32_t k) { return sequence->keyframes[k].time; }

// --- The valid range ---

// What follows the last keyframe goes on at keyframe 0.
static int32_t afterFirst(const KeyframeSequence* sequence, int32_t steps) {
    const int32_t k = sequence->validFirst + steps;
    return k < sequence->keyframeCount ? k : k - sequence->keyframeCount;
}

static int32_t next(const KeyframeSequence* sequence, int32_t k) {
    const bool loops = sequence->repeatMode == RepeatMode::Loop;
    if (k == sequence->validLast) return loops ? sequence->validFirst : sequence->validLast;
    return k + 1 < sequence->keyframeCount ? k + 1 : 0;
}

static int32_t previous(const KeyframeSequence* sequence, int32_t k) {
    const bool loops = sequence->repeatMode == RepeatMode::Loop;
    if (k == sequence->validFirst) return loops ? sequence->validLast : sequence->validFirst;
    return k > 0 ? k - 1 : sequence->keyframeCount - 1;
}

// From keyframe k to its successor; behind the last valid one, to the first of the next round.
static int64_t lengthFrom(const KeyframeSequence* sequence, int32_t k) {
    if (k == sequence->validLast)
        return timeAt(sequence, sequence->validFirst) - timeAt(sequence, k) + sequence->duration;
    return timeAt(sequence, next(sequence, k)) - timeAt(sequence, k);
}

// --- Segments ---

// For a time outside first..last of a loop: from the last keyframe over the end of the duration to the first.
static KeyframeSegment segmentAroundTheEnd(const KeyframeSequence* sequence, int64_t time) {
    const int32_t first = sequence->validFirst, last = sequence->validLast;
    if (first == last) return {last, last, 0};
    const int64_t sinceLast = time - timeAt(sequence, last);
    const int64_t elapsed = sinceLast < 0 ? sinceLast + sequence->duration : sinceLast;
    return {last, first, double(elapsed) / double(lengthFrom(sequence, last))};
}

KeyframeSegment KeyframeSegment_find(const KeyframeSequence* sequence, int64_t time) {
    const int32_t first = sequence->validFirst, last = sequence->validLast;
    if (sequence->repeatMode == RepeatMode::Loop) {
        time %= sequence->duration;
        if (time < 0) time += sequence->duration;
        if (time == timeAt(sequence, last)) return {last, last, 0};
        if (time < timeAt(sequence, first) || time > timeAt(sequence, last)) return segmentAroundTheEnd(sequence, time);
    } else {
        if (time < timeAt(sequence, first)) return {first, first, 0};
        if (time >= timeAt(sequence, last)) return {last, last, 0};
    }

    // The keyframe `low` steps into the range is not behind the time, the one `high` steps into it is.
    int32_t low = 0, high = last - first + (first > last ? sequence->keyframeCount : 0);
    while (high - low > 1) {
        const int32_t middle = low + (high - low) / 2;
        (timeAt(sequence, afterFirst(sequence, middle)) <= time ? low : high) = middle;
    }
    const int32_t from = afterFirst(sequence, low), to = afterFirst(sequence, high);
    const int64_t start = timeAt(sequence, from);
    return {from, to, double(time - start) / double(timeAt(sequence, to) - start)};
}

// --- Tangents ---

KeyframeTangents KeyframeTangents_at(const KeyframeSequence* sequence, int32_t k) {
    const auto size = size_t(sequence->componentCount);
    float* out = sequence->tangents + 2 * size * size_t(k);
    return {{out, size}, {out + size, size}};
}

// Weigh the tangent at a keyframe by the lengths of its segments, so that uneven spacing causes no jump in speed.
struct TangentFactors {
    double out, in;
};

static TangentFactors tangentFactors(const KeyframeSequence* sequence, int32_t k) {
    const bool isEnd = k == sequence->validFirst || k == sequence->validLast;
    if (isEnd && sequence->repeatMode == RepeatMode::Constant) return {0, 0};
    const int64_t before = lengthFrom(sequence, previous(sequence, k)), behind = lengthFrom(sequence, k);
    const int64_t both = before + behind;
    if (both == 0) return {0, 0};  // three keyframes at one time: no curve passes here
    return {2.0 * double(behind) / double(both), 2.0 * double(before) / double(both)};
}

static void computeSplineTangents(KeyframeSequence* sequence, int32_t k) {
    const TangentFactors factors = tangentFactors(sequence, k);
    const KeyframeTangents tangents = KeyframeTangents_at(sequence, k);
    const float* before = valuesAt(sequence, previous(sequence, k));
    const float* behind = valuesAt(sequence, next(sequence, k));
    for (size_t i = 0; i < tangents.out.size(); ++i) {
        const double base = (double(behind[i]) - before[i]) * 0.5;
        tangents.out[i] = float(base * factors.out);
        tangents.in[i] = float(base * factors.in);
    }
}

static void store(const Quaternion& q, std::span<float> out) {
    const float all[kQuaternionSize] = {float(q.x), float(q.y), float(q.z), float(q.w)};
    std::copy_n(all, std::min(out.size(), kQuaternionSize), out.begin());
}

// q exp(turn / 2)
static Quaternion turnedByHalf(const Quaternion& q, const Quaternion& turn) {
    return Quaternion_multiply(q, Quaternion_exp(Quaternion_scale(0.5, turn)));
}

static void computeSquadQuaternions(KeyframeSequence* sequence, int32_t k) {
    const TangentFactors factors = tangentFactors(sequence, k);
    const KeyframeTangents tangents = KeyframeTangents_at(sequence, k);
    const Quaternion before = Quaternion_load(valuesAt(sequence, previous(sequence, k)));
    const Quaternion q = Quaternion_load(valuesAt(sequence, k));
    const Quaternion behind = Quaternion_load(valuesAt(sequence, next(sequence, k)));
    const Quaternion logBefore = Quaternion_log(Quaternion_multiply(Quaternion_conjugate(before), q));
    const Quaternion logBehind = Quaternion_log(Quaternion_multiply(Quaternion_conjugate(q), behind));
    const Quaternion tangent = Quaternion_scale(0.5, Quaternion_add(logBefore, logBehind));
    const Quaternion out = Quaternion_add(Quaternion_scale(factors.out, tangent), Quaternion_scale(-1, logBehind));
    const Quaternion in = Quaternion_add(logBefore, Quaternion_scale(-factors.in, tangent));
    store(turnedByHalf(q, out), tangents.out);
    store(turnedByHalf(q, in), tangents.in);
}

void KeyframeTangents_compute(KeyframeSequence* sequence) {
    if (!sequence->tangents) return;
    const bool isSpline = sequence->interpolation == Interpolation::Spline;
    const auto compute = isSpline ? computeSplineTangents : computeSquadQuaternions;
    int32_t k = sequence->validFirst;
    for (int32_t steps = 0; k != sequence->validLast; k = afterFirst(sequence, ++steps)) compute(sequence, k);
    compute(sequence, k);
}

// --- The interpolators ---

static void interpolateStep(const KeyframeSequence* sequence, const KeyframeSegment& segment, std::span<float> values) {
    std::copy_n(valuesAt(sequence, segment.from), values.size(), values.begin());
}

static void interpolateLinear(const KeyframeSequence* sequence, const KeyframeSegment& segment,
                              std::span<float> values) {
    const float* from = valuesAt(sequence, segment.from);
    const float* to = valuesAt(sequence, segment.to);
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = float(from[i] + segment.fraction * (double(to[i]) - from[i]));
}

static void interpolateSpline(const KeyframeSequence* sequence, const KeyframeSegment& segment,
                              std::span<float> values) {
    const float* from = valuesAt(sequence, segment.from);
    const float* to = valuesAt(sequence, segment.to);
    const std::span<float> tangentFrom = KeyframeTangents_at(sequence, segment.from).out;
    const std::span<float> tangentTo = KeyframeTangents_at(sequence, segment.to).in;
    const double s = segment.fraction, s2 = s * s, s3 = s2 * s;
    const double weightFrom = 2 * s3 - 3 * s2 + 1, weightTo = 3 * s2 - 2 * s3;
    const double weightTangentFrom = s3 - 2 * s2 + s, weightTangentTo = s3 - s2;
    for (size_t i = 0; i < values.size(); ++i)
        values[i] = float(weightFrom * from[i] + weightTo * to[i] + weightTangentFrom * tangentFrom[i] +
                          weightTangentTo * tangentTo[i]);
}

static void interpolateSlerp(const KeyframeSequence* sequence, const KeyframeSegment& segment,
                             std::span<float> values) {
    const Quaternion from = Quaternion_load(valuesAt(sequence, segment.from));
    const Quaternion to = Quaternion_load(valuesAt(sequence, segment.to));
    store(Quaternion_slerp(segment.fraction, from, to, SlerpPath::Shortest), values);
}

static void interpolateSquad(const KeyframeSequence* sequence, const KeyframeSegment& segment,
                             std::span<float> values) {
    const double s = segment.fraction;
    const Quaternion from = Quaternion_load(valuesAt(sequence, segment.from));
    const Quaternion to = Quaternion_load(valuesAt(sequence, segment.to));
    const Quaternion guideFrom = Quaternion_load(KeyframeTangents_at(sequence, segment.from).out.data());
    const Quaternion guideTo = Quaternion_load(KeyframeTangents_at(sequence, segment.to).in.data());
    const Quaternion onArc = Quaternion_slerp(s, from, to, SlerpPath::AsGiven);
    const Quaternion onGuide = Quaternion_slerp(s, guideFrom, guideTo, SlerpPath::AsGiven);
    store(Quaternion_slerp(2 * s * (1 - s), onArc, onGuide, SlerpPath::AsGiven), values);
}

Interpolator KeyframeInterpolator_of(Interpolation interpolation) {
    static constexpr Interpolator kInterpolators[] = {interpolateLinear, interpolateSlerp, interpolateSpline,
                                                      interpolateSquad, interpolateStep};
    return kInterpolators[int32_t(interpolation) - int32_t(Interpolation::Linear)];
}
