#include "scene/object3d.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "animation/animation_track.h"
#include "animation/keyframe_sequence.h"
#include "frame/error_status.h"
#include "scene/duplicate.h"
#include "scene/group.h"
#include "scene/material.h"
#include "tests/support/counting_heap.h"

// Tracks and targets on the stack: only their headers and what is read of them.
struct Target : Object3D {
    explicit Target(ClassId id) {
        qelObject3D_init(this);
        classId = id;
        find = qelObject3D_findCommon;
    }
    ~Target() { qelObject3D_finalise(this); }
};

struct TrackOnStack {
    explicit TrackOnStack(int32_t property = 270, int32_t componentCount = 3) : sequence{}, track{} {
        qelObject3D_init(&sequence);
        sequence.componentCount = componentCount;
        qelObject3D_init(&track);
        track.classId = ClassId::AnimationTrack;
        track.find = qelObject3D_findCommon;
        track.keyframeSequence = &sequence;
        track.targetProperty = AnimationProperty(property);
    }
    TrackOnStack(const TrackOnStack&) = delete;
    operator AnimationTrack*() { return &track; }
    KeyframeSequence sequence;
    AnimationTrack track;
};

static std::vector<AnimationTrack*> tracksOf(const Object3D* object) {
    return {object->animationTracks, object->animationTracks + object->animationTrackCount};
}

// --- Animation tracks ---

TEST(Object3D, AcceptsTracksThatSuitTheClass) {
    const std::set<int32_t> ofNodes = {256, 268, 269, 270, 275, 276}, nodes = {1, 6, 10, 13, 15, 16, 20, 21, 27};
    std::map<int32_t, std::set<int32_t>> properties = {{5, {256, 258, 259}},
                                                       {6, {263, 264, 267}},
                                                       {8, {258, 260, 263, 267}},
                                                       {10, {23, 25}},
                                                       {13, {258, 265, 273, 274}},
                                                       {14, {256, 257, 261, 262, 271, 272}},
                                                       {16, {266}},
                                                       {21, {259}},
                                                       {22, {258, 268, 270, 275}},
                                                       {26, {256, 258}}};
    for (const int32_t id : nodes) properties[id].insert(ofNodes.begin(), ofNodes.end());
    for (int32_t id = 0; id < 28; ++id) {
        if (id == 9 || id == 17 || id == 18 || id == 23) continue;  // no classes of objects in a file
        std::set<int32_t> accepted;
        for (int32_t property = 20; property < 280; ++property) {
            TrackOnStack track(property, 1);
            Target target{ClassId(id)};
            const Result result = qelObject3D_addAnimationTrack(&target, track);
            EXPECT_TRUE(result == QEL_STATUS_OK || result == QEL_STATUS_ILLEGAL_ARGUMENT) << result;
            if (result == QEL_STATUS_OK) accepted.insert(property);
        }
        EXPECT_EQ(accepted, properties[id]) << "class " << id;
    }
}

TEST(Object3D, RefusesTracksThatClash) {
    struct Case {
        const char* what;
        ClassId classId;
        int32_t property, components, otherProperty, otherComponents;
        bool agree;
    };
    using enum ClassId;
    for (const Case& c :
         {Case{"alike", Material, 257, 3, 257, 3, true}, Case{"another size", Material, 257, 3, 257, 4, false},
          Case{"another property", Material, 257, 3, 271, 1, true},
          Case{"directions are not summed", Group, 25, 3, 25, 4, true},
          Case{"matrices must agree", Group, 23, 16, 23, 12, false}}) {
        SCOPED_TRACE(c.what);
        TrackOnStack first(c.property, c.components), second(c.otherProperty, c.otherComponents);
        Target target(c.classId);
        EXPECT_EQ(qelObject3D_addAnimationTrack(&target, first), QEL_STATUS_OK);
        EXPECT_EQ(qelObject3D_addAnimationTrack(&target, second),
                  c.agree ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT);
        EXPECT_EQ(second.track.refCount, c.agree ? 2 : 1);
        EXPECT_EQ(qelObject3D_addAnimationTrack(&target, first), QEL_STATUS_ILLEGAL_ARGUMENT) << "the same track again";
        EXPECT_EQ(qelObject3D_addAnimationTrack(&target, nullptr), QEL_STATUS_NULL_POINTER);
        EXPECT_EQ(qelObject3D_removeAnimationTrack(&target, nullptr), QEL_STATUS_NULL_POINTER);
    }
}

TEST(Object3D, TrackListKeepsOrderAndReferences) {
    CountingHeap heap;
    TrackOnStack tracks[6], stranger;
    Target target(ClassId::Group);
    for (int32_t i = 0; i < 6; ++i) {
        if (i % 5 == 0) {
            heap.failAfter(0);
            EXPECT_EQ(qelObject3D_addAnimationTrack(&target, tracks[i]), QEL_STATUS_OUT_OF_MEMORY);
            EXPECT_EQ(target.animationTrackCount, i);
            EXPECT_EQ(tracks[i].track.refCount, 1);
        }
        ASSERT_EQ(qelObject3D_addAnimationTrack(&target, tracks[i]), QEL_STATUS_OK);
    }
    tracks[2].track.userId = tracks[1].track.userId = 7;
    EXPECT_EQ(target.find(&target, 7), static_cast<AnimationTrack*>(tracks[1]));
    Result result;
    for (const int32_t outside : {-1, 6, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(qelObject3D_getAnimationTrack(&target, outside, &result), nullptr);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
    }
    EXPECT_EQ(qelObject3D_removeAnimationTrack(&target, stranger), QEL_STATUS_OK);
    EXPECT_EQ(qelObject3D_removeAnimationTrack(&target, tracks[2]), QEL_STATUS_OK);
    EXPECT_EQ(tracksOf(&target), (std::vector<AnimationTrack*>{tracks[0], tracks[1], tracks[3], tracks[4], tracks[5]}));
    EXPECT_EQ(tracks[2].track.refCount, 1);
    qelObject3D_finalise(&target);
    for (const auto& track : tracks) EXPECT_EQ(track.track.refCount, 1);
}

// --- Life ---

static int32_t liveMarkers;

struct Marker : Object3D {
    Object3D* next;
};

// An object that refers to another one, as every link of a scene does.
static Object3D* markerBefore(Object3D* next) {
    auto* marker = qelObject3D_alloc<Marker>(ClassId::Object3D);
    qelObject3D_init(marker);
    marker->next = next;
    marker->destroy = [](Object3D* object) {
        qelObject3D_unref(static_cast<Marker*>(object)->next);
        qelObject3D_finalise(object);
        qelFree(object);
        --liveMarkers;
    };
    ++liveMarkers;
    return marker;
}

TEST(Object3D, LongChainsDieWithoutDeepRecursion) {
    Object3D* head = nullptr;
    for (int32_t i = 0; i < 1000000; ++i) head = markerBefore(head);
    qelObject3D_unref(qelObject3D_ref(head));
    EXPECT_EQ(liveMarkers, 1000000);
    qelObject3D_unref(head);
    EXPECT_EQ(liveMarkers, 0);
}

TEST(Object3D, ExchangeSurvivesTheSameObject) {
    Object3D* member = markerBefore(nullptr);
    qelObject3D_exchange(member, member);
    EXPECT_EQ(liveMarkers, 1);
    EXPECT_EQ(member->refCount, 1);
    qelObject3D_exchange(member, static_cast<Object3D*>(nullptr));
    EXPECT_EQ(liveMarkers, 0);
}

// --- Duplication ---

TEST(Object3D, DuplicateHasAHeaderOfItsOwn) {
    CountingHeap heap;
    TrackOnStack track(257, 3);
    Material* source = qelMaterial_create();
    source->userId = 42;
    source->stateChanged = 0;
    qelObject3D_addAnimationTrack(source, track);
    auto* parameters = qelAllocArrayOf<UserParameter>(2);
    parameters[0] = {100, 3, qelAllocArrayOf<uint8_t>(3)};
    std::ranges::copy(std::string("red"), parameters[0].data);
    parameters[1] = {101, 0, qelAllocArrayOf<uint8_t>(0)};
    qelObject3D_adoptUserParameters(source, parameters, 2);

    const int32_t blocks = heap.liveBlocks();
    constexpr int32_t kAllocations = 5;  // the object, its track list, the parameters and their data
    for (int32_t failAt = 0; failAt < kAllocations; ++failAt) {
        heap.failAfter(failAt);
        EXPECT_EQ(qelObject3D_duplicate(source), nullptr) << failAt;
        EXPECT_EQ(heap.liveBlocks(), blocks) << failAt;
        EXPECT_EQ(track.track.refCount, 2) << failAt;
    }
    heap.failAfter(kAllocations);
    auto* copy = static_cast<Material*>(qelObject3D_duplicate(source));
    ASSERT_NE(copy, nullptr);
    qelObject3D_unref(source);  // the copy's parameters and tracks must outlive it
    EXPECT_EQ(copy->refCount, 1);
    EXPECT_EQ(copy->userId, 42);
    EXPECT_EQ(copy->stateChanged, 1);
    EXPECT_EQ(tracksOf(copy), std::vector<AnimationTrack*>{track});
    ASSERT_EQ(qelObject3D_getUserParameterCount(copy), 2u);
    const UserParameter* copied = qelObject3D_getUserParameters(copy);
    EXPECT_EQ(copied[0].id, 100u);
    EXPECT_EQ(std::string(copied[0].data, copied[0].data + copied[0].length), "red");
    EXPECT_EQ(copied[1].length, 0u);
    qelObject3D_unref(copy);
    EXPECT_EQ(track.track.refCount, 1);
}

TEST(Object3D, ClassesThatCannotBeDuplicated) {
    for (const int32_t id : {0, 1, 17, 18}) {
        Target target{ClassId(id)};
        EXPECT_EQ(qelObject3D_duplicate(&target), nullptr) << id;
        EXPECT_EQ(qelObject3D_duplicateSubtree(&target), nullptr) << id;
    }
}
