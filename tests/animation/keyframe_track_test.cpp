#include "animation/animation_track.h"

#include <cmath>
#include <set>

#include "animation/animation_controller.h"
#include "scene/duplicate.h"
#include "tests/animation/keyframes.h"
#include "tests/support/counting_heap.h"

// --- Controllers ---

TEST(AnimationController, SettersRefuseWhatIsOutOfRangeAndChangeNothing) {
    const Held controller(qelAnimationController_create());
    EXPECT_EQ(qelAnimationController_setActiveInterval(controller, -7, 8), QEL_STATUS_OK);
    EXPECT_EQ(qelAnimationController_setActiveInterval(controller, 9, 8), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(controller->activeStart, -7);
    EXPECT_EQ(controller->activeEnd, 8);
    EXPECT_EQ(qelAnimationController_setWeight(controller, 2.5f), QEL_STATUS_OK);
    for (const float refused : {-1e-30f, -INFINITY, NAN})
        EXPECT_EQ(qelAnimationController_setWeight(controller, refused), QEL_STATUS_ILLEGAL_ARGUMENT) << refused;
    EXPECT_EQ(controller->weight, 2.5f);
    EXPECT_EQ(qelAnimationController_setWeight(controller, 0), QEL_STATUS_OK);
}

TEST(AnimationController, AChangeOfSpeedKeepsThePosition) {
    const Held controller(qelAnimationController_create());
    qelAnimationController_setPosition(controller, 100, 1000);
    qelAnimationController_setSpeed(controller, 0.5f, 1500);
    EXPECT_EQ(qelAnimationController_getPosition(controller, 1500), 600);
    EXPECT_EQ(qelAnimationController_getPosition(controller, 1600), 650);
    qelAnimationController_setSpeed(controller, -2, 1400);
    EXPECT_EQ(qelAnimationController_getPosition(controller, 1410), 530);
    qelAnimationController_setPosition(controller, 3, INT32_MIN);
    qelAnimationController_setSpeed(controller, 1, INT32_MAX);
    EXPECT_EQ(controller->referenceSequenceTime, 3 - 2 * 4294967295.0f) << "the difference takes 33 bits";
}

TEST(AnimationController, PositionsStayExactAtLargeTimes) {
    constexpr int32_t kChunk = 16776960, kMin = INT32_MIN, kMax = INT32_MAX;
    struct Case {
        const char* what;
        float sequenceTime, speed;
        int32_t reference, worldTime;
        double position;
    };
    for (const Case& c : {Case{"whole units from the first chunk on", 0.5f, 0.5f, 0, kChunk, 1 + 8388480},
                          Case{"halves go away from zero", -0.5f, 1.5f, 0, kChunk + 1, -1 + 25165440 + 2},
                          Case{"from the most negative to the most positive", 0, 1, kMin, kMax, 4294967295.0},
                          Case{"back from a later reference", 0, 1, kMax, kChunk, double(kChunk) - kMax},
                          Case{"early, far from the reference", 0, 1, kMax, kMin, -4294967295.0}}) {
        const Held controller(qelAnimationController_create());
        qelAnimationController_setPosition(controller, c.sequenceTime, c.reference);
        controller->speed = c.speed;
        EXPECT_EQ(qelAnimationController_getPosition(controller, c.worldTime), c.position) << c.what;
    }
}

// --- What a track accepts ---

TEST(AnimationTrack, AcceptsSequencesThatSuitTheProperty) {
    struct Case {
        int32_t property;
        std::set<int32_t> linear, quaternions;  // the counts of components that are taken
    };
    const std::set<int32_t> none, any = {1, 2, 3, 4, 5}, four = {4};
    Result result;
    for (const Case& c :
         {Case{22, none, none}, Case{23, any, four}, Case{25, any, four}, Case{255, none, none}, Case{256, {1}, none},
          Case{257, {3}, none}, Case{259, {2, 4}, none}, Case{266, any, four}, Case{268, four, four},
          Case{270, {1, 3}, none}, Case{275, {3}, none}, Case{276, {1}, none}, Case{277, none, none}})
        for (const int32_t interpolation : {176, 177, 178, 179, 180}) {
            const bool isOfQuaternions = interpolation == 177 || interpolation == 179;
            std::set<int32_t> taken;
            for (const int32_t count : isOfQuaternions ? four : any) {
                const Held sequence(qelKeyframeSequence_create(1, count, interpolation, &result));
                const Held track(qelAnimationTrack_create(sequence, c.property, &result));
                EXPECT_EQ(result, track.get() ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT);
                if (track.get()) taken.insert(count);
            }
            EXPECT_EQ(taken, isOfQuaternions ? c.quaternions : c.linear) << c.property << ", " << interpolation;
        }
    EXPECT_EQ(qelAnimationTrack_create(nullptr, 999, &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
}

// --- References ---

TEST(AnimationTrack, HoldsItsSequenceAndController) {
    using Objects = std::vector<Object3D*>;
    const Held sequence(makeConstant({1}));
    const Held first(qelAnimationController_create()), second(qelAnimationController_create());
    const Held track(makeTrack(sequence, AnimationProperty::Alpha, first));
    qelAnimationTrack_setController(track, first);
    EXPECT_EQ(first->refCount, 2) << "the same again";
    qelAnimationTrack_setController(track, second);
    EXPECT_EQ(first->refCount, 1);
    const Held copy(static_cast<AnimationTrack*>(qelObject3D_duplicate(track)));
    for (const AnimationTrack* each : {track.get(), copy.get()})  // shared, not copied
        EXPECT_EQ(referencesOf(each), (Objects{second, sequence}));
    EXPECT_EQ(sequence->refCount, 3);
    EXPECT_EQ(second->refCount, 3);
    qelAnimationTrack_setController(track, nullptr);
    EXPECT_EQ(second->refCount, 2);
    EXPECT_EQ(referencesOf(track), Objects{sequence});
}
