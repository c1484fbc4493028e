#include "animation/animate.h"

#include <cmath>

#include "scene/background.h"
#include "scene/group.h"
#include "scene/material.h"
#include "scene/morphing_mesh.h"
#include "scene/subtree.h"
#include "scene/transform.h"
#include "tests/animation/keyframes.h"
#include "tests/support/counting_heap.h"

using enum Interpolation;
constexpr RepeatMode kConstant = RepeatMode::Constant, kLoop = RepeatMode::Loop;

struct Animated {
    int32_t validity;
    Result result;
    bool operator==(const Animated&) const = default;
};

static Animated animate(Object3D* object, int32_t worldTime) {
    Result result = -1;
    const int32_t validity = object->animate(object, worldTime, &result);
    return {validity, result};
}

constexpr Animated kNothing = {kValidForever, QEL_STATUS_OK};
constexpr Animated kDone = {0, QEL_STATUS_OK};

// --- Time ---

TEST(Animate, MapsWorldTimeToSequenceTime) {
    constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;
    struct Case {
        const char* what;
        RepeatMode mode;
        int32_t duration;
        float sequenceTime, speed;
        int32_t reference, worldTime;
        float expected;  // sequence time
    };
    for (const Case& c : {Case{"from the reference", kConstant, 1000, 20, 1, 100, 300, 220},
                          Case{"fractions are rounded away from zero", kConstant, 1000, 0.25f, 0.25f, 0, 1, 1},
                          Case{"held at the ends", kConstant, 1000, 0, 1, kMin, kMax, 1000},
                          Case{"speed is not a number", kConstant, 1000, 5, NAN, 0, 100, 0},
                          Case{"loop, before the reference", kLoop, 1000, 0, 1, 100, 0, 900},
                          Case{"loop over 33 bits", kLoop, 1000, 0, 1, kMin, kMax, 4294967295 % 1000},
                          Case{"loop, halves away from zero", kLoop, 1000, 0, 0.5f, 0, 1, 1},
                          Case{"loop, backwards before the reference", kLoop, 1000, 0, -1, 0, -200, 200},
                          Case{"loop, rounds of half a unit count as one", kLoop, 1000, 7, 2000, 0, 123, 7},
                          Case{"loop, faster: no round to leave out", kLoop, 1000, 0, 2001, 0, 3, 3},
                          Case{"loop, faster, beyond 32 bits", kLoop, 1000, 0, 4001, 0, 2000000001, 1},
                          Case{"loop, slow over 33 bits", kLoop, 5000000, 0, 0x1p-10f, kMin, kMax, 4194304},
                          Case{"loop, infinitely fast", kLoop, 1000, 0, INFINITY, 0, 1, 952},
                          Case{"loop, speed is not a number", kLoop, 1000, 5, NAN, 0, 100, 5},
                          Case{"loop, reference is not a number", kLoop, 1000, NAN, 1, 0, 100, 100}}) {
        const Held controller(qelAnimationController_create());
        qelAnimationController_setPosition(controller, c.sequenceTime, c.reference);
        controller->speed = c.speed;
        // A ramp over the whole duration: the translation's x is the sequence time.
        const auto end = float(c.duration);
        const Held sequence(makeSequence({Linear, c.mode, c.duration, {{0, {0, 0, 0}}, {c.duration, {end, 0, 0}}}}));
        const Held track(makeTrack(sequence, AnimationProperty::Translation, controller));
        const Held group(qelGroup_create());
        EXPECT_EQ(qelObject3D_addAnimationTrack(group, track), QEL_STATUS_OK);
        EXPECT_EQ(animate(group, c.worldTime), kDone);
        EXPECT_EQ(group->translation[0], c.expected) << c.what;
    }
}

TEST(Animate, ActiveIntervalsDecideTheValidity) {
    constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;
    struct Case {
        const char* what;
        int32_t start, end, worldTime, validity;
    };
    for (const Case& c :
         {Case{"before", 100, 200, 50, 50}, Case{"at the end", 100, 200, 200, kValidForever},
          Case{"empty interval", 0, 0, -500, 0}, Case{"empty interval at the far end", kMax, kMax, kMin, 0},
          Case{"a wait beyond 31 bits", kMax - 1, kMax, kMin, kValidForever},
          Case{"the longest wait that counts", 0, kMax, -kMax + 1, kMax - 1}}) {
        const Held background(qelBackground_create());
        ASSERT_EQ(addConstantTrack(background, AnimationProperty::Alpha, {1}), QEL_STATUS_OK);
        AnimationController* controller = background->animationTracks[0]->controller;
        ASSERT_EQ(qelAnimationController_setActiveInterval(controller, c.start, c.end), QEL_STATUS_OK);
        EXPECT_EQ(animate(background, c.worldTime), (Animated{c.validity, QEL_STATUS_OK})) << c.what;
        EXPECT_EQ(background->color >> 24, c.validity == 0 ? 255u : 0u) << c.what;
    }
}

TEST(Animate, ValidityIsTheSmallestOfAllTracks) {
    const Held background(qelBackground_create());
    EXPECT_EQ(animate(background, 0), kNothing) << "no tracks";
    for (int32_t i = 0; i < 3; ++i) {
        ASSERT_EQ(addConstantTrack(background, AnimationProperty::Alpha, {1}), QEL_STATUS_OK);
        qelAnimationController_setActiveInterval(background->animationTracks[i]->controller, 300 - 100 * i, 1000);
    }
    EXPECT_EQ(animate(background, 0), (Animated{100, QEL_STATUS_OK}));
    EXPECT_EQ(animate(background, 150), kDone);
    background->animationTracks[2]->controller->weight = 0;
    EXPECT_EQ(animate(background, 150), (Animated{50, QEL_STATUS_OK})) << "a weight of 0 takes a track out";
    qelAnimationTrack_setController(background->animationTracks[1], nullptr);
    EXPECT_EQ(animate(background, 150), (Animated{150, QEL_STATUS_OK})) << "no controller";
    EXPECT_EQ(background->color >> 24, 255u);
}

// --- Blending ---

TEST(Animate, SumsWeightedSamplesOfEachProperty) {
    const Held material(qelMaterial_create());
    addConstantTrack(material, AnimationProperty::EmissiveColor, {1, 0, 0}, 0.5f);
    addConstantTrack(material, AnimationProperty::Shininess, {10}, 2);
    addConstantTrack(material, AnimationProperty::EmissiveColor, {0, 0, 1}, 0.5f);
    addConstantTrack(material, AnimationProperty::Shininess, {7}, 0);
    addConstantTrack(material, AnimationProperty::Shininess, {3});
    addConstantTrack(material, AnimationProperty::EmissiveColor, {0.25f, 3, -1}, 0);
    EXPECT_EQ(animate(material, 0), kDone);
    EXPECT_EQ(material->emissiveColor, 0x800080u) << "127.5 rounds up";
    EXPECT_EQ(material->shininess, 23);
    const Held background(qelBackground_create());
    addConstantTrack(background, AnimationProperty::Color, {3, -1, 0.5f});
    addConstantTrack(background, AnimationProperty::Color, {-2.5f, 2, 0.5f});
    EXPECT_EQ(animate(background, 0), kDone);
    EXPECT_EQ(background->color, 0x80FFFFu) << "the sum is clamped and not the samples";
}

TEST(Animate, TheLastActiveMatrixAndDirectionWin) {
    std::vector<float> first(16, 0.5f), second(16, 0.25f);
    const Held group(qelGroup_create());
    addConstantTrack(group, AnimationProperty::Matrix, first);
    addConstantTrack(group, AnimationProperty::Matrix, second, 2);
    addConstantTrack(group, AnimationProperty::Direction, {0, 1, 0, 90});
    addConstantTrack(group, AnimationProperty::Direction, {3, 0, 0}, 2);
    AnimationController* lastMatrix = group->animationTracks[1]->controller;
    AnimationController* lastDirection = group->animationTracks[3]->controller;
    const auto xAxis = [&] {
        return std::vector(group->orientationMatrix.elements, group->orientationMatrix.elements + 3);
    };

    EXPECT_EQ(animate(group, 0), kDone);
    EXPECT_TRUE(std::ranges::equal(group->composite.elements, first)) << "0.25 x 2";
    EXPECT_EQ(xAxis(), (std::vector<float>{0, 0, 1})) << "z onto x, without the angle of the track before";

    lastMatrix->weight = 1;
    EXPECT_EQ(animate(group, 0), kDone);
    EXPECT_TRUE(std::ranges::equal(group->composite.elements, second));

    lastMatrix->weight = lastDirection->weight = 0;
    EXPECT_EQ(animate(group, 0), kDone);
    EXPECT_TRUE(std::ranges::equal(group->composite.elements, first));
    EXPECT_NEAR(xAxis()[1], -1, 1e-6) << "z onto y, then a quarter turn";

    addConstantTrack(group, AnimationProperty::Orientation, {0, 0, 0, 1});
    EXPECT_EQ(animate(group, 0), kDone);
    EXPECT_TRUE(qelTransform_isIdentityExact(&group->orientationMatrix)) << "an orientation is written last";
}

TEST(Animate, EnginePropertiesTakeSequencesOfAnySize) {
    // What a sequence has too few components for is 0; what it has too many of is ignored.
    for (const size_t size : {1, 2, 5, 16, 17, 1000}) {
        const Held group(qelGroup_create());
        addConstantTrack(group, AnimationProperty::Matrix, std::vector<float>(size, 2));
        addConstantTrack(group, AnimationProperty::Direction, std::vector<float>(size, 2));
        EXPECT_EQ(animate(group, 0), kDone);
        for (size_t i = 0; i < 16; ++i) EXPECT_EQ(group->composite.elements[i], i < size ? 2 : 0) << size << " " << i;
    }
}

// --- Morph weights ---

static MorphingMesh* makeMorphingMesh(int32_t targetCount) {
    const Held buffer(makeBuffer<int8_t>({0, 0, 0, 1, 0, 0, 0, 1, 0}));
    const Held strip(makeTriangle());
    if (!buffer.get() || !strip.get()) return nullptr;
    const std::vector<VertexBuffer*> targets(size_t(targetCount), buffer.get());
    TriangleStripArray* strips[] = {strip};
    Result result;
    MorphingMesh* mesh = qelMorphingMesh_create(buffer, targets.data(), strips, nullptr, 1, targetCount, &result);
    if (mesh) mesh->weightsChanged = 0;
    return mesh;
}

TEST(Animate, MorphWeightsFitTheTargets) {
    using Weights = std::vector<float>;
    const std::pair<std::vector<Weights>, Weights> kCases[] = {{{{5}}, {5, 0, 0}},
                                                               {{{1, 2}, {10, 20}, {100, 200}}, {111, 222, 0}},
                                                               {{Weights(40, 1), Weights(40, 2)}, Weights(40, 3)}};
    for (const auto& [tracks, expected] : kCases) {
        const auto targetCount = int32_t(expected.size());
        const Held mesh(makeMorphingMesh(targetCount));
        std::fill_n(mesh->weights, targetCount, 77.0f);
        for (const Weights& values : tracks)
            ASSERT_EQ(addConstantTrack(mesh, AnimationProperty::MorphWeights, values), QEL_STATUS_OK);
        EXPECT_EQ(animate(mesh, 0), kDone);
        EXPECT_EQ(std::vector(mesh->weights, mesh->weights + targetCount), expected);
        EXPECT_EQ(mesh->weightsChanged, 1);
    }
}

// --- Failures ---

TEST(Animate, AnInvalidSequenceStopsTheObjectBeforeItIsWritten) {
    const Held material(qelMaterial_create());
    Result result;
    const Held invalid(qelKeyframeSequence_create(1, 1, int32_t(Step), &result));
    const Held controller(qelAnimationController_create());
    const Held track(makeTrack(invalid, AnimationProperty::Alpha, controller));
    addConstantTrack(material, AnimationProperty::Shininess, {10});
    ASSERT_EQ(qelObject3D_addAnimationTrack(material, track), QEL_STATUS_OK);
    EXPECT_EQ(animate(material, 0), (Animated{0, QEL_STATUS_ILLEGAL_STATE}));
    EXPECT_EQ(material->shininess, 0);
    controller->weight = 0;
    EXPECT_EQ(animate(material, 0), kDone) << "not sampled, not missed";
    EXPECT_EQ(material->shininess, 10);
    controller->weight = 1;
    qelAnimationController_setActiveInterval(controller, 5, 10);
    EXPECT_EQ(animate(material, 0), kDone);
    EXPECT_EQ(animate(material, 7), (Animated{0, QEL_STATUS_ILLEGAL_STATE}));
}

TEST(Animate, ASubtreeStopsAtTheFirstFailure) {
    const Held root(qelGroup_create()), before(qelGroup_create()), failing(qelGroup_create()),
        behind(qelGroup_create());
    for (Group* group : {before.get(), failing.get(), behind.get()}) {
        ASSERT_EQ(qelGroup_addChild(root, group), QEL_STATUS_OK);
        addConstantTrack(group, AnimationProperty::Scale, {3});
    }
    addConstantTrack(root, AnimationProperty::Translation, {1, 2, 3});
    qelAnimationController_setActiveInterval(root->animationTracks[0]->controller, 40, 50);
    qelAnimationController_setActiveInterval(before->animationTracks[0]->controller, 30, 50);
    failing->animationTracks[0]->keyframeSequence->keyframes[0].time = 2;
    failing->animationTracks[0]->keyframeSequence->validity = kValidityUnknown;
    Result result = -1;
    EXPECT_EQ(qelObject3D_animateSubtree(root, 10, &result), 20);
    EXPECT_EQ(result, QEL_STATUS_ILLEGAL_STATE);
    EXPECT_EQ(behind->scale[0], 1);
    EXPECT_EQ(qelObject3D_animateSubtree(behind, 10, &result), 0);
    EXPECT_EQ(result, QEL_STATUS_OK);
    EXPECT_EQ(behind->scale[2], 3);
}

TEST(Animate, OnlyMorphWeightsNeedMemory) {
    CountingHeap heap;
    const Held mesh(makeMorphingMesh(3));
    mesh->weights[0] = 7;
    for (const float scale : {2.0f, 3.0f}) addConstantTrack(mesh, AnimationProperty::Scale, {scale});
    addConstantTrack(mesh, AnimationProperty::Visibility, {0});
    heap.failAfter(0, FailMode::FromThenOn);
    EXPECT_EQ(animate(mesh, 0), kDone);
    EXPECT_EQ(heap.calls(), 0);

    heap.failAfter(kNeverFail);
    for (int32_t i = 0; i < 2; ++i) addConstantTrack(mesh, AnimationProperty::MorphWeights, {1, 1, 1});
    const int32_t blocks = heap.liveBlocks();
    mesh->scale[0] = 1;
    heap.failAfter(0);
    EXPECT_EQ(animate(mesh, 0), (Animated{0, QEL_STATUS_OUT_OF_MEMORY}));
    EXPECT_EQ(mesh->scale[0], 1) << "nothing is written";
    EXPECT_EQ(mesh->weights[0], 7);
    EXPECT_EQ(animate(mesh, 0), kDone);
    EXPECT_EQ(mesh->weights[0], 2);
    EXPECT_EQ(heap.liveBlocks(), blocks);
}
