// Short ways to make what an animation consists of. All of them give null when memory runs out.
#pragma once

#include <optional>
#include <vector>

#include "animation/animation_controller.h"
#include "animation/animation_track.h"
#include "animation/keyframe_sequence.h"
#include "tests/scene/held.h"

struct Key {
    int32_t time;
    std::vector<float> values;
};

struct SequencePlan {
    Interpolation interpolation;
    RepeatMode repeatMode;
    int32_t duration;
    std::vector<Key> keys;
    int32_t validFirst = 0;
    std::optional<int32_t> validLast = {};
};

inline KeyframeSequence* makeSequence(const SequencePlan& plan) {
    Result result;
    KeyframeSequence* sequence = qelKeyframeSequence_create(
        int32_t(plan.keys.size()), int32_t(plan.keys[0].values.size()), int32_t(plan.interpolation), &result);
    if (!sequence) return nullptr;
    for (size_t k = 0; k < plan.keys.size(); ++k)
        EXPECT_EQ(qelKeyframeSequence_setKeyframe(sequence, int32_t(k), plan.keys[k].time, plan.keys[k].values.data()),
                  QEL_STATUS_OK);
    const int32_t validLast = plan.validLast.value_or(int32_t(plan.keys.size()) - 1);
    EXPECT_EQ(qelKeyframeSequence_setValidRange(sequence, plan.validFirst, validLast), QEL_STATUS_OK);
    EXPECT_EQ(qelKeyframeSequence_setRepeatMode(sequence, int32_t(plan.repeatMode)), QEL_STATUS_OK);
    EXPECT_EQ(qelKeyframeSequence_setDuration(sequence, plan.duration), QEL_STATUS_OK);
    return sequence;
}

// The same values at any time.
inline KeyframeSequence* makeConstant(const std::vector<float>& values) {
    return makeSequence({Interpolation::Step, RepeatMode::Constant, 1, {{0, values}}});
}

inline AnimationTrack* makeTrack(KeyframeSequence* sequence, AnimationProperty property,
                                 AnimationController* controller) {
    if (!sequence || !controller) return nullptr;
    Result result;
    AnimationTrack* track = qelAnimationTrack_create(sequence, int32_t(property), &result);
    if (track) qelAnimationTrack_setController(track, controller);
    return track;
}

// A track that drives the property with the same values at any time, at that weight. The target holds it.
inline Result addConstantTrack(Object3D* target, AnimationProperty property, const std::vector<float>& values,
                               float weight = 1) {
    const Held sequence(makeConstant(values));
    const Held controller(qelAnimationController_create());
    if (controller.get()) controller->weight = weight;
    const Held track(makeTrack(sequence, property, controller));
    return track.get() ? qelObject3D_addAnimationTrack(target, track) : QEL_STATUS_OUT_OF_MEMORY;
}
