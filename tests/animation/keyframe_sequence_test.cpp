#include "animation/keyframe_sequence.h"

#include <array>
#include <cmath>
#include <random>

#include "frame/error_status.h"
#include "scene/duplicate.h"
#include "tests/animation/keyframe_reference.h"
#include "tests/support/counting_heap.h"

using enum Interpolation;
constexpr RepeatMode kConstant = RepeatMode::Constant, kLoop = RepeatMode::Loop;
constexpr int32_t kUnset = -1;

// The sample, or nothing from an invalid sequence.
static std::vector<float> sampleAt(KeyframeSequence* sequence, int64_t time) {
    std::vector<float> values(size_t(sequence->componentCount), NAN);
    if (!qelKeyframeSequence_sample(sequence, time, values)) return {};
    return values;
}

// --- Creation and setters ---

TEST(KeyframeSequence, CreationChecksCountsAndInterpolation) {
    constexpr Result kBad = QEL_STATUS_ILLEGAL_ARGUMENT, kMemory = QEL_STATUS_OUT_OF_MEMORY;
    using Row = std::array<int32_t, 4>;
    for (const auto& [keyframes, components, interpolation, expected] :
         {Row{1, 1, 176, QEL_STATUS_OK}, Row{2, 4, 177, QEL_STATUS_OK}, Row{0, 1, 176, kBad}, Row{1, 0, 176, kBad},
          Row{1, 1, 181, kBad}, Row{1, 3, 177, kBad}, Row{65536, 65536, 176, kMemory},
          Row{INT32_MAX, INT32_MAX, 178, kMemory}}) {
        SCOPED_TRACE(testing::Message() << keyframes << " of " << components << ": " << interpolation);
        CountingHeap heap;
        Result result = -1;
        KeyframeSequence* sequence = qelKeyframeSequence_create(keyframes, components, interpolation, &result);
        EXPECT_EQ(result, expected);
        EXPECT_EQ(sequence != nullptr, expected == QEL_STATUS_OK);
        EXPECT_EQ(qelStatus_get() == kMemory, expected == kMemory);
        EXPECT_LT(heap.peakBytes(), 2000000) << "a refused size must not be allocated in part";
        qelObject3D_unref(sequence);
        EXPECT_EQ(heap.liveBlocks(), 0);
    }
}

TEST(KeyframeSequence, SettersRefuseWhatIsOutOfRangeAndChangeNothing) {
    const Held sequence(makeSequence({Linear, kLoop, 100, {{0, {1}}, {50, {2}}}}));
    const float value = 9;
    Result result;
    float out = 0;
    for (const Result refusal :
         {qelKeyframeSequence_setKeyframe(sequence, 2, 0, nullptr),
          qelKeyframeSequence_setKeyframe(sequence, 0, -1, &value), qelKeyframeSequence_setRepeatMode(sequence, 191),
          qelKeyframeSequence_setRepeatMode(sequence, 194), qelKeyframeSequence_setDuration(sequence, 0),
          qelKeyframeSequence_setDuration(sequence, -5)})
        EXPECT_EQ(refusal, QEL_STATUS_ILLEGAL_ARGUMENT);
    for (const int32_t outside : {-1, 2}) {
        EXPECT_EQ(qelKeyframeSequence_setKeyframe(sequence, outside, 0, &value), QEL_STATUS_INDEX_OUT_OF_RANGE);
        EXPECT_EQ(qelKeyframeSequence_setValidRange(sequence, outside, 1), QEL_STATUS_INDEX_OUT_OF_RANGE);
        EXPECT_EQ(qelKeyframeSequence_setValidRange(sequence, 0, outside), QEL_STATUS_INDEX_OUT_OF_RANGE);
        qelKeyframeSequence_getKeyframe(sequence, outside, &out, &result);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
    }
    for (const int64_t time : {25, 125}) EXPECT_EQ(sampleAt(sequence, time), std::vector<float>{1.5f});
    EXPECT_EQ(qelKeyframeSequence_getKeyframe(sequence, 1, &out, &result), 50);
    EXPECT_EQ(out, 2);
    EXPECT_EQ(qelKeyframeSequence_getKeyframe(sequence, 1, nullptr, &result), 50);
    EXPECT_EQ(result, QEL_STATUS_OK);
}

TEST(KeyframeSequence, NormalisesTheQuaternionsOfSlerpAndSquadOnly) {
    struct Case {
        const char* what;
        std::vector<float> given, stored;
    };
    for (const Case& c : {Case{"longer", {0, 3, 0, 4}, {0, 0.6f, 0, 0.8f}},
                          Case{"whose squares leave the single floats", {2e30f, 0, 0, 0}, {1, 0, 0, 0}},
                          Case{"whose squares vanish in them", {0, 0, 1e-40f, 0}, {0, 0, 1, 0}},
                          Case{"zero", {0, 0, 0, 0}, {0, 0, 0, 1}}, Case{"infinite", {INFINITY, 0, 0, 0}, {0, 0, 0, 1}},
                          Case{"not a number", {0, NAN, 0, 1}, {0, 0, 0, 1}}})
        for (const Interpolation interpolation : {Slerp, Squad}) {
            const Held sequence(makeSequence({interpolation, kConstant, 1, {{0, c.given}}}));
            EXPECT_EQ(sampleAt(sequence, 0), c.stored) << c.what;
        }
    const Held linear(makeSequence({Linear, kConstant, 1, {{0, {0, 3, 0, 4}}}}));
    EXPECT_EQ(sampleAt(linear, 0), (std::vector<float>{0, 3, 0, 4}));
}

// --- Validity ---

TEST(KeyframeSequence, IsValidWhenTimesAreInOrderAndWithinTheDuration) {
    struct Case {
        const char* what;
        std::vector<int32_t> times;
        int32_t first, last, duration;
        bool isValid;
    };
    for (const Case& c : {
             Case{"equal times", {5, 5, 5}, 0, 2, 20, true},
             Case{"no duration", {0, 10, 20}, 0, 2, kUnset, false},
             Case{"last one behind the duration", {0, 10, 21}, 0, 2, 20, false},
             Case{"one behind the duration, outside the range", {0, 10, 21}, 0, 1, 20, true},
             Case{"decreasing into the range", {11, 10, 12}, 1, 2, 20, true},
             Case{"single keyframe among others out of order", {30, 10, 0}, 1, 1, 20, true},
             Case{"wrapped", {15, 20, 0, 5, 10}, 2, 1, 20, true},
             Case{"wrapped, decreasing at its start", {15, 20, 6, 5, 10}, 2, 1, 20, false},
             Case{"wrapped, keyframe 0 earlier than the last", {9, 20, 0, 5, 10}, 2, 1, 20, false},
             Case{"wrapped, decreasing behind keyframe 0", {15, 14, 0, 5, 10}, 2, 1, 20, false},
             Case{"wrapped, unordered between its ends", {15, 3, 2, 5, 10}, 3, 0, 20, true},
             Case{"wrapped, end behind the duration", {15, 21, 0, 5, 10}, 2, 1, 20, false},
         }) {
        for (const int32_t interpolation : {176, 178, 180}) {
            Result result;
            const Held sequence(qelKeyframeSequence_create(int32_t(c.times.size()), 1, interpolation, &result));
            const float value = 1;
            for (size_t k = 0; k < c.times.size(); ++k)
                qelKeyframeSequence_setKeyframe(sequence, int32_t(k), c.times[k], &value);
            qelKeyframeSequence_setValidRange(sequence, c.first, c.last);
            if (c.duration != kUnset) qelKeyframeSequence_setDuration(sequence, c.duration);
            EXPECT_EQ(!sampleAt(sequence, 0).empty(), c.isValid) << c.what;
            EXPECT_EQ(sequence->validity, c.isValid) << c.what;
        }
    }
}

TEST(KeyframeSequence, ChangesAreCheckedAtTheNextSample) {
    const Held sequence(makeSequence({Spline, kConstant, 100, {{0, {0}}, {50, {8}}, {100, {0}}}}));
    EXPECT_EQ(sampleAt(sequence, 25), std::vector<float>{4});
    const float value = 16;
    qelKeyframeSequence_setKeyframe(sequence, 2, 40, &value);
    EXPECT_TRUE(sampleAt(sequence, 25).empty()) << "out of order";
    qelKeyframeSequence_setKeyframe(sequence, 2, 100, &value);
    EXPECT_EQ(sampleAt(sequence, 25), std::vector<float>{3}) << "new tangent at 50: 8 in place of 0";
    qelKeyframeSequence_setDuration(sequence, 99);
    EXPECT_TRUE(sampleAt(sequence, 25).empty()) << "too short";
    qelKeyframeSequence_setValidRange(sequence, 0, 1);
    EXPECT_EQ(sampleAt(sequence, 25), std::vector<float>{4}) << "the end has no tangent";

    qelKeyframeSequence_setKeyframe(sequence, 2, 0, &value);
    EXPECT_EQ(sequence->validity, 1) << "outside the range";
    qelKeyframeSequence_setValidRange(sequence, 0, 2);
    qelKeyframeSequence_setDuration(sequence, 200);
    qelKeyframeSequence_setKeyframe(sequence, 2, 100, &value);
    const std::vector<float> ends = sampleAt(sequence, 25);
    qelKeyframeSequence_setRepeatMode(sequence, int32_t(kLoop));
    EXPECT_NE(sampleAt(sequence, 25), ends) << "the loop gives keyframe 0 a tangent";
}

TEST(KeyframeSequence, KeyframesOfAWrappedRangeAreCheckedWithTheNextRange) {
    const Held sequence(makeSequence({Linear, kConstant, 100, {{50, {5}}, {100, {10}}, {0, {0}}}, 2, 1}));
    EXPECT_EQ(sampleAt(sequence, 25), std::vector<float>{2.5f});
    const float value = 7;
    qelKeyframeSequence_setKeyframe(sequence, 0, 200, &value);
    for (const int64_t time : {-1, 0, 25, 100, 199, 200, 300}) EXPECT_FALSE(sampleAt(sequence, time).empty());
    qelKeyframeSequence_setValidRange(sequence, 2, 1);
    EXPECT_TRUE(sampleAt(sequence, 25).empty());
}

// --- Sampling ---

TEST(KeyframeSequence, SamplesAtAndAroundItsKeyframes) {
    const std::vector<Key> ramp = {{0, {0}}, {1000, {8}}};
    const std::vector<Key> steps = {{100, {1}}, {200, {2}}, {200, {3}}, {200, {4}}, {300, {5}}};
    const std::vector<Key> wrapped = {{700, {7}}, {900, {9}}, {50, {-1}}, {100, {1}}, {300, {3}}};
    struct Case {
        const char* what;
        SequencePlan plan;
        int64_t time;
        float value;
    };
    for (const Case& c : {
             Case{"long before", {Linear, kConstant, 1000, ramp}, INT64_MIN, 0},
             Case{"long behind", {Linear, kConstant, 1000, ramp}, INT64_MAX, 8},
             Case{"loop, last one at the duration is the first", {Linear, kLoop, 1000, ramp}, 1000, 0},
             Case{"step, the last of equal times", {Step, kConstant, 1000, steps}, 200, 4},
             Case{"behind equal times", {Linear, kConstant, 1000, steps}, 250, 4.5f},
             Case{"wrapped, before the range", {Linear, kConstant, 1000, wrapped, 3, 1}, 99, 1},
             Case{"longest times", {Linear, kConstant, INT32_MAX, {{0, {0}}, {INT32_MAX, {1}}}}, INT32_MAX / 2, 0.5f},
         }) {
        const Held sequence(makeSequence(c.plan));
        EXPECT_EQ(sampleAt(sequence, c.time), std::vector<float>{c.value}) << c.what;
    }
}

TEST(KeyframeSequence, SquadKeepsToTheQuaternionsAsGiven) {
    // Three even steps of 240 degrees about z, where the shortest path would go the other way.
    const auto turned = [](float degrees) {
        const float half = degrees * float(M_PI / 360);
        return std::vector<float>{0, 0, std::sin(half), std::cos(half)};
    };
    const Held sequence(makeSequence({Squad, kLoop, 30, {{0, turned(0)}, {10, turned(240)}, {20, turned(480)}}}));
    for (int32_t time = 0; time < 30; ++time)
        for (size_t c = 0; c < 4; ++c)
            EXPECT_NEAR(sampleAt(sequence, time)[c], turned(24.0f * float(time))[c], 2e-6) << c << " at " << time;
}

TEST(KeyframeSequence, SquadBetweenOppositesStaysFinite) {
    // One rotation, no way between its two quaternions; many of them are a little longer than 1.
    std::mt19937 random(3);
    std::uniform_real_distribution<float> real(-1, 1);
    for (int32_t round = 0; round < 200; ++round) {
        const float q[4] = {real(random), real(random), real(random), real(random)};
        const Held sequence(makeSequence({Squad, kConstant, 7, {{0, {q, q + 4}}, {7, {-q[0], -q[1], -q[2], -q[3]}}}}));
        for (const float value : sampleAt(sequence, 1 + round % 6)) EXPECT_TRUE(std::isfinite(value)) << round;
    }
}

TEST(KeyframeSequence, ALoopOfOneKeyframeKeepsItsValues) {
    for (const Interpolation interpolation : {Linear, Slerp, Spline, Squad, Step}) {
        const Held sequence(makeSequence({interpolation, kLoop, 100, {{30, {0.1f, 0.3f, 0.7f, INFINITY}}}}));
        for (int32_t time = 0; time < 100; ++time) EXPECT_EQ(sampleAt(sequence, time), sampleAt(sequence, 30)) << time;
    }
}

// --- Against the second calculation ---

struct RandomSequences {
    std::mt19937 random;
    int32_t whole(int32_t low, int32_t high) { return std::uniform_int_distribution(low, high)(random); }
    float real(float low, float high) { return std::uniform_real_distribution(low, high)(random); }

    SequencePlan make(Interpolation interpolation, RepeatMode mode, bool wraps) {
        const int32_t count = whole(wraps ? 2 : 1, 12);
        const int32_t first = whole(wraps ? 1 : 0, count - 1);
        const int32_t last = wraps ? whole(0, first - 1) : whole(first, count - 1);
        const bool isRotation = interpolation == Slerp || interpolation == Squad;
        const int32_t components = isRotation ? 4 : whole(1, 5);
        SequencePlan plan{interpolation, mode, 1, std::vector<Key>(size_t(count)), first, last};
        int32_t time = whole(0, 300);
        for (int32_t k = first;; k = (k + 1) % count) {
            plan.keys[size_t(k)].time = time;
            if (k == last) break;
            time += whole(0, 3) ? whole(1, 1000) : 0;
        }
        plan.duration = std::max(time + (whole(0, 2) ? whole(0, 700) : 0), 1);
        for (Key& key : plan.keys) {
            for (int32_t i = 0; i < components; ++i) key.values.push_back(isRotation ? real(-0.6f, 0.6f) : real(-8, 8));
            // Guides that point in nearly opposite ways blow every rounding up: all rotations stay on one side.
            if (isRotation) key.values[3] = interpolation == Slerp && whole(0, 1) ? -1.0f : 1.0f;
        }
        return plan;
    }
    int64_t timeFor(const SequencePlan& plan) {
        switch (whole(0, 3)) {
            case 0: return plan.keys[size_t(whole(0, int32_t(plan.keys.size()) - 1))].time + whole(-1, 1);
            case 1: return int64_t(whole(INT32_MIN, INT32_MAX)) * whole(1, 1000);
            default: return whole(-100, plan.duration + 100);
        }
    }
};

TEST(KeyframeSequence, SamplesAsTheFormulasSay) {
    RandomSequences sequences{std::mt19937(20)};
    for (int32_t round = 0; round < 3000 && !testing::Test::HasFailure(); ++round) {
        const auto interpolation = std::array{Linear, Slerp, Spline, Squad, Step}[size_t(round % 5)];
        const RepeatMode mode = round / 5 % 2 ? kLoop : kConstant;
        const bool wraps = round / 10 % 2;
        SCOPED_TRACE(testing::Message() << round << ": " << int32_t(interpolation) << " mode " << int32_t(mode));
        const SequencePlan plan = sequences.make(interpolation, mode, wraps);
        const Held sequence(makeSequence(plan));
        const KeyframeReference reference(plan);
        for (int32_t i = 0; i < 60; ++i) {
            const int64_t time = sequences.timeFor(plan);
            const std::vector<float> values = sampleAt(sequence, time);
            const Reals expected = reference.sample(time);
            ASSERT_EQ(values.size(), expected.size());
            // One rounding of values up to 40, and those of the stored tangents and quaternions.
            for (size_t c = 0; c < values.size(); ++c)
                EXPECT_NEAR(values[c], double(expected[c]), 4e-6) << "component " << c << " at " << time;
        }
    }
}

// --- Duplication ---

TEST(KeyframeSequence, DuplicateHasItsOwnKeyframes) {
    for (const Interpolation interpolation : {Linear, Spline, Squad}) {
        const SequencePlan plan{
            interpolation, kLoop, 90, {{70, {0, 0, 1, 1}}, {0, {0, 1, 0, 1}}, {40, {1, 0, 0, 1}}}, 1, 0};
        auto* sequence = makeSequence(plan);
        const std::vector<float> before = sampleAt(sequence, 20);
        const Held copy(static_cast<KeyframeSequence*>(qelObject3D_duplicate(sequence)));
        const float other[4] = {0, 0, 0, 1};
        qelKeyframeSequence_setKeyframe(sequence, 1, 5, other);
        qelObject3D_unref(sequence);
        EXPECT_EQ(copy->validity, 1) << "tangents come along";
        EXPECT_EQ(sampleAt(copy, 20), before);
        EXPECT_EQ(qelKeyframeSequence_setValidRange(copy, 1, 0), QEL_STATUS_OK);
        EXPECT_EQ(sampleAt(copy, 20), before) << "computed anew";
    }
}
