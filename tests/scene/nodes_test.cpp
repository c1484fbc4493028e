#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "scene/appearance.h"
#include "scene/background.h"
#include "scene/camera.h"
#include "scene/image2d.h"
#include "scene/light.h"
#include "scene/sprite3d.h"
#include "scene/subtree.h"
#include "scene/texture2d.h"
#include "scene/transform.h"
#include "scene/world.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

using Matrix = std::array<float, 16>;

static Held<Group> newGroup() { return Held(qelGroup_create()); }
static Held<Camera> newCamera() { return Held(qelCamera_create()); }

static Held<Image2D> newImage(ImageFormat format, int32_t width, int32_t height) {
    Result result;
    return Held(qelImage2D_createMutable(int32_t(format), width, height, &result));
}

// A new group below the parent, which holds the only reference.
static Group* addGroup(Group* parent) {
    Group* group = qelGroup_create();
    EXPECT_EQ(qelGroup_addChild(parent, group), QEL_STATUS_OK);
    qelObject3D_unref(group);
    return group;
}

static std::vector<Node*> childrenOf(const Group* group) {
    return {group->children, group->children + group->childCount};
}

static Matrix compositeOf(Transformable* t) {
    qelTransform composite;
    EXPECT_EQ(qelTransformable_getCompositeTransform(t, &composite), QEL_STATUS_OK);
    return std::to_array(composite.elements);
}

static void expectNear(const Matrix& actual, const Matrix& expected, const char* what) {
    for (size_t i = 0; i < 16; ++i) EXPECT_NEAR(actual[i], expected[i], 1e-6) << what << " " << i;
}

// --- Transformable ---

TEST(Transformable, CompositeMultipliesTranslationRotationScaleAndMatrix) {
    const auto node = newGroup();
    qelTransformable_setTranslation(node, 1, 2, 3);
    qelTransformable_setScale(node, 2, 2, 2);
    EXPECT_EQ(compositeOf(node), (Matrix{2, 0, 0, 1, 0, 2, 0, 2, 0, 0, 2, 3, 0, 0, 0, 1}));

    qelTransformable_setScale(node, 2, 3, 4);
    qelTransformable_setOrientation(node, 90, 0, 0, 1);
    qelTransform matrix;
    qelTransform_setIdentity(&matrix);
    qelTransform_postTranslate(&matrix, 10, 20, 30);
    ASSERT_EQ(qelTransformable_setTransform(node, &matrix), QEL_STATUS_OK);
    // R S = (0 -3 0 / 2 0 0 / 0 0 4), applied to (10, 20, 30) and moved.
    expectNear(compositeOf(node), {0, -3, 0, 1 - 60, 2, 0, 0, 2 + 20, 0, 0, 4, 3 + 120, 0, 0, 0, 1}, "T R S M");

    qelTransformable_translate(node, 1, 1, 1);
    qelTransformable_scale(node, 2, 1, 1);
    qelTransformable_setTransform(node, nullptr);
    expectNear(compositeOf(node), {0, -3, 0, 2, 4, 0, 0, 3, 0, 0, 4, 4, 0, 0, 0, 1}, "T R S");
}

TEST(Transformable, UpdatesOnlyAfterAChange) {
    const auto node = newGroup();
    EXPECT_FALSE(qelTransformable_updateComposite(node));
    qelTransformable_setScale(node, 1, 1, 1);
    EXPECT_TRUE(qelTransformable_updateComposite(node));
    EXPECT_TRUE(node->transformChanged && node->compositeChanged);
    EXPECT_FALSE(qelTransformable_updateComposite(node));
}

TEST(Transformable, WrittenCompositeStandsBehindTheGeneralMatrix) {
    const auto node = newGroup();
    qelTransform matrix, written;
    qelTransform_setIdentity(&matrix);
    qelTransform_postScale(&matrix, 2, 2, 2);
    qelTransformable_setTransform(node, &matrix);
    qelTransform_setIdentity(&written);
    qelTransform_postTranslate(&written, 1, 2, 3);
    qelTransformable_updateComposite(node);
    node->transformChanged = node->compositeChanged = 0;
    qelTransformable_setComposite(node, &written);
    EXPECT_EQ(compositeOf(node), (Matrix{2, 0, 0, 2, 0, 2, 0, 4, 0, 0, 2, 6, 0, 0, 0, 1}));
    EXPECT_TRUE(node->transformChanged && node->compositeChanged);
    EXPECT_EQ(compositeOf(node)[3], 2) << "multiplied once";
}

TEST(Transformable, RefusedRotationsChangeNothing) {
    const auto node = newGroup();
    ASSERT_EQ(qelTransformable_setOrientation(node, 50, 0, 2, 0), QEL_STATUS_OK);
    qelTransformable_updateComposite(node);
    const float noQuaternion[4] = {0, 0, 0, 0};
    EXPECT_EQ(qelTransformable_setOrientation(node, 90, 0, 0, 0), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelTransformable_postRotate(node, 90, 0, 0, 0), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelTransformable_preRotate(node, 90, 0, 0, 0), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelTransformable_setOrientationQuat(node, noQuaternion), QEL_STATUS_ILLEGAL_ARGUMENT);
    std::array<float, 4> orientation;
    qelTransformable_getOrientation(node, orientation.data());
    EXPECT_EQ(orientation, (std::array<float, 4>{50, 0, 2, 0})) << "the axis as given";
    EXPECT_FALSE(qelTransformable_updateComposite(node));
    EXPECT_EQ(qelTransformable_setOrientation(node, 0, 0, 0, 0), QEL_STATUS_OK);
}

TEST(Transformable, QuaternionsBecomeAngleAndAxis) {
    struct Case {
        const char* what;
        std::array<float, 4> q, orientation;
    };
    const float half = std::sqrt(0.5f);
    for (const Case& c : {Case{"quarter turn", {0, half, 0, half}, {90, 0, 1, 0}},
                          Case{"not normalised: the angle is that of w as given", {0, 0, 3, 2}, {0, 0, 0, 1}},
                          Case{"w below -1", {0, 3, 4, -7}, {360, 0, 0.6f, 0.8f}},
                          Case{"no vector part", {0, 0, 0, -2}, {0, 1, 0, 0}}}) {
        const auto node = newGroup();
        ASSERT_EQ(qelTransformable_setOrientationQuat(node, c.q.data()), QEL_STATUS_OK) << c.what;
        std::array<float, 4> orientation;
        qelTransformable_getOrientation(node, orientation.data());
        for (size_t i = 0; i < 4; ++i) EXPECT_NEAR(orientation[i], c.orientation[i], 5e-5) << c.what << " " << i;
    }
    // The matrix is that of the normalised quaternion: (0, 0, 3, 2) turns by 2 atan(3 / 2) about z.
    const auto node = newGroup();
    const float q[4] = {0, 0, 3, 2};
    qelTransformable_setOrientationQuat(node, q);
    expectNear(compositeOf(node), {-5 / 13.f, -12 / 13.f, 0, 0, 12 / 13.f, -5 / 13.f, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1},
               "unit quaternion");
}

TEST(Transformable, RotationsAccumulateOnTheirSide) {
    // A quarter turn about x after or before one about z: (0 0 1 / 1 0 0 / 0 1 0) and (0 -1 0 / 0 0 -1 / 1 0 0), both
    // 120 degrees.
    const auto post = newGroup(), pre = newGroup();
    for (const auto& node : {post.get(), pre.get()}) qelTransformable_setOrientation(node, 90, 0, 0, 1);
    EXPECT_EQ(qelTransformable_postRotate(post, 90, 3, 0, 0), QEL_STATUS_OK);
    EXPECT_EQ(qelTransformable_preRotate(pre, 90, 3, 0, 0), QEL_STATUS_OK);
    expectNear(compositeOf(post), {0, 0, 1, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1}, "after");
    expectNear(compositeOf(pre), {0, -1, 0, 0, 0, 0, -1, 0, 1, 0, 0, 0, 0, 0, 0, 1}, "before");
    const float third = 1 / std::sqrt(3.0f);
    std::array<float, 4> orientation;
    qelTransformable_getOrientation(post, orientation.data());
    for (size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(orientation[i], (std::array<float, 4>{120, third, third, third})[i], 2e-5) << i;
    qelTransformable_getOrientation(pre, orientation.data());
    for (size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(orientation[i], (std::array<float, 4>{120, third, -third, third})[i], 2e-5) << i;
}

TEST(Transformable, DerivedAxisIsAlwaysFinite) {
    struct Case {
        const char* what;
        float first, second;
        std::array<float, 4> orientation;
    };
    for (const Case& c :
         {Case{"half a turn", 90, 90, {180, 0, 0, 1}}, Case{"back to nothing keeps the axis", 60, -60, {0, 0, 0, 5}},
          Case{"nothing and nothing", 0, 0, {0, 0, 0, 5}}}) {
        const auto node = newGroup();
        qelTransformable_setOrientation(node, c.first, 0, 0, 5);
        EXPECT_EQ(qelTransformable_postRotate(node, c.second, 0, 0, 1), QEL_STATUS_OK) << c.what;
        std::array<float, 4> orientation;
        qelTransformable_getOrientation(node, orientation.data());
        for (size_t i = 0; i < 4; ++i) EXPECT_NEAR(orientation[i], c.orientation[i], 1e-4) << c.what << " " << i;
    }
}

TEST(Transformable, OnlyTexturesTakeAnyBottomRow) {
    qelTransform projective;
    qelTransform_setIdentity(&projective);
    const float row[4] = {0, 0, 1, 1};
    qelTransform_setRow(&projective, 3, row);
    const auto node = newGroup();
    EXPECT_EQ(qelTransformable_setTransform(node, &projective), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_FALSE(qelTransformable_updateComposite(node));
    const auto image = newImage(ImageFormat::Rgb, 2, 2);
    Result result;
    const Held texture(qelTexture2D_create(image, &result));
    EXPECT_EQ(qelTransformable_setTransform(texture, &projective), QEL_STATUS_OK);
    EXPECT_EQ(compositeOf(texture), (Matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 1}));
}

// --- Node ---

TEST(Node, AlphaFactorIsAFraction) {
    const auto node = newGroup();
    for (const float good : {0.0f, 0.25f, 1.0f}) EXPECT_EQ(qelNode_setAlphaFactor(node, good), QEL_STATUS_OK);
    for (const float bad : {-0.0001f, 1.0001f, NAN, INFINITY})
        EXPECT_EQ(qelNode_setAlphaFactor(node, bad), QEL_STATUS_ILLEGAL_ARGUMENT) << bad;
    EXPECT_EQ(node->alphaFactor, 1.0f);
}

TEST(Node, ComingBackIntoViewMarksTheTransform) {
    const auto node = newGroup();
    for (const auto set : {qelNode_setRenderingEnable, qelNode_setPickingEnable}) {
        set(node, true);
        set(node, false);
        EXPECT_EQ(node->transformChanged, 0);
        set(node, true);
        EXPECT_EQ(node->transformChanged, 1);
        node->transformChanged = 0;
    }
}

TEST(Node, AlignmentRefusesWhatCannotBeAligned) {
    const auto node = newGroup(), a = newGroup(), b = newGroup();
    struct Case {
        const char* what;
        Node *z, *y;
        int32_t zTarget, yTarget;
        Result result;
    };
    for (const Case& c : {Case{"same reference, same target", a.get(), a.get(), 145, 145, QEL_STATUS_ILLEGAL_ARGUMENT},
                          Case{"no reference, same target", nullptr, nullptr, 148, 148, QEL_STATUS_ILLEGAL_ARGUMENT},
                          Case{"both none", a.get(), a.get(), 144, 144, QEL_STATUS_OK},
                          Case{"other target", a.get(), a.get(), 148, 147, QEL_STATUS_OK},
                          Case{"other reference", a.get(), b.get(), 145, 145, QEL_STATUS_OK},
                          Case{"z to itself", node.get(), a.get(), 145, 146, QEL_STATUS_ILLEGAL_ARGUMENT},
                          Case{"y to itself", a.get(), node.get(), 145, 146, QEL_STATUS_ILLEGAL_ARGUMENT},
                          Case{"target below", a.get(), b.get(), 143, 146, QEL_STATUS_ILLEGAL_ARGUMENT},
                          Case{"target above", a.get(), b.get(), 145, 149, QEL_STATUS_ILLEGAL_ARGUMENT}}) {
        qelNode_setAlignment(node, b, 145, nullptr, 146);
        EXPECT_EQ(qelNode_setAlignment(node, c.z, c.zTarget, c.y, c.yTarget), c.result) << c.what;
        const bool taken = c.result == QEL_STATUS_OK;
        EXPECT_EQ(node->zReference, taken ? c.z : b.get()) << c.what;
        EXPECT_EQ(node->yReference, taken ? c.y : nullptr) << c.what;
        EXPECT_EQ(int32_t(node->zTarget), taken ? c.zTarget : 145) << c.what;
        EXPECT_EQ(int32_t(node->yTarget), taken ? c.yTarget : 146) << c.what;
    }
}

TEST(Node, AlignmentEndsWithTheNodeItNames) {
    const auto other = newGroup();
    Group* reference = qelGroup_create();
    std::array<Group*, 5> nodes;
    for (Group*& node : nodes) {
        node = qelGroup_create();
        qelNode_setAlignment(node, reference, 145, reference, 146);
    }
    qelObject3D_unref(nodes[2]);                                   // one leaves from the middle,
    qelObject3D_unref(nodes[4]);                                   // one from the front,
    qelNode_setAlignment(nodes[0], other, 147, nullptr, 148);      // one for another reference,
    qelNode_setAlignment(reference, nodes[1], 145, nullptr, 144);  // and one is aligned to in turn
    qelObject3D_unref(reference);
    for (const Node* node : {nodes[1], nodes[3]}) {
        EXPECT_EQ(node->zReference, nullptr);
        EXPECT_EQ(node->yReference, nullptr);
        EXPECT_EQ(node->zTarget, AlignmentTarget::None);
        EXPECT_EQ(node->yTarget, AlignmentTarget::None);
    }
    EXPECT_EQ(nodes[0]->zReference, other.get());
    EXPECT_EQ(nodes[0]->yTarget, AlignmentTarget::ZAxis);
    for (Node* node : {nodes[0], nodes[1], nodes[3]}) qelObject3D_unref(node);
    EXPECT_EQ(other->zChain.first, nullptr);
}

TEST(Node, TransformToAnotherNodeOfTheTree) {
    const auto top = newGroup();
    Group *left = addGroup(top), *leaf = addGroup(left), *right = addGroup(top);
    qelTransformable_setTranslation(top, 100, 100, 100);  // above both: without effect
    qelTransformable_setTranslation(left, 1, 0, 0);
    qelTransformable_setOrientation(left, 90, 0, 0, 1);
    qelTransformable_setTranslation(leaf, 0, 2, 0);
    qelTransformable_setScale(right, 2, 2, 2);

    qelTransform out;
    Result result;
    ASSERT_TRUE(qelNode_getTransformTo(leaf, right, &out, &result));
    EXPECT_EQ(result, QEL_STATUS_OK);
    // leaf's origin stands at (-1, 0, 0) below top, half of that for right
    expectNear(std::to_array(out.elements), {0, -0.5f, 0, -0.5f, 0.5f, 0, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 1}, "sideways");
    ASSERT_TRUE(qelNode_getTransformTo(leaf, leaf, &out, &result));
    EXPECT_TRUE(qelTransform_isIdentityExact(&out));
    ASSERT_TRUE(qelNode_getTransformTo(leaf, left, &out, &result));
    expectNear(std::to_array(out.elements), {1, 0, 0, 0, 0, 1, 0, 2, 0, 0, 1, 0, 0, 0, 0, 1}, "upwards");

    qelTransformable_setScale(right, 0, 1, 1);
    EXPECT_FALSE(qelNode_getTransformTo(leaf, right, &out, &result));
    EXPECT_EQ(result, QEL_STATUS_ARITHMETIC);
    const auto stranger = newGroup();
    EXPECT_FALSE(qelNode_getTransformTo(leaf, stranger, &out, &result));
    for (const bool failed :
         {qelNode_getTransformTo(nullptr, leaf, &out, &result), qelNode_getTransformTo(leaf, nullptr, &out, &result),
          qelNode_getTransformTo(leaf, leaf, nullptr, &result)}) {
        EXPECT_FALSE(failed);
        EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
    }
}

TEST(Node, WayToTheRootLeavesTheRootOut) {
    const Held world(qelWorld_create());
    Group *outer = addGroup(world), *inner = addGroup(outer);
    qelTransformable_setTranslation(world, 5, 5, 5);
    qelTransformable_setScale(outer, 2, 2, 2);
    qelTransformable_setTranslation(inner, 1, 2, 3);
    qelTransform out;
    qelNode_computeToRoot(inner, &out);
    EXPECT_EQ(std::to_array(out.elements), (Matrix{2, 0, 0, 2, 0, 2, 0, 4, 0, 0, 2, 6, 0, 0, 0, 1}));
    EXPECT_EQ(std::to_array(inner->toWorld.elements), std::to_array(out.elements));
    qelNode_computeToRoot(world, &out);
    EXPECT_TRUE(qelTransform_isIdentityExact(&out));
    EXPECT_EQ(qelNode_getRootWorld(inner), world.get());
    const auto group = newGroup();
    EXPECT_EQ(qelNode_getRootWorld(addGroup(group)), nullptr);
}

// --- Group ---

TEST(Group, RefusesChildrenThatWouldBreakTheTree) {
    const auto group = newGroup();
    const Held world(qelWorld_create());
    Group *child = addGroup(group), *grandchild = addGroup(child);
    EXPECT_EQ(qelGroup_addChild(group, nullptr), QEL_STATUS_NULL_POINTER);
    EXPECT_EQ(qelGroup_addChild(group, group), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelGroup_addChild(group, world), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelGroup_addChild(world, grandchild), QEL_STATUS_ILLEGAL_ARGUMENT) << "has a parent";
    EXPECT_EQ(qelGroup_addChild(grandchild, group), QEL_STATUS_ILLEGAL_ARGUMENT) << "is an ancestor";
    EXPECT_EQ(group->refCount, 1);
    EXPECT_EQ(world->childCount, 0);
}

TEST(Group, KeepsChildrenInOrderWithTheirSlots) {
    const auto group = newGroup();
    const std::vector<Node*> nodes = {addGroup(group), addGroup(group), addGroup(group), addGroup(group)};
    const auto stranger = newGroup();
    EXPECT_EQ(qelGroup_removeChild(group, stranger), QEL_STATUS_OK);
    EXPECT_EQ(qelGroup_removeChild(group, nullptr), QEL_STATUS_OK);
    EXPECT_EQ(childrenOf(group), nodes);

    const Held<Node> removed(static_cast<Node*>(qelObject3D_ref(nodes[1])));
    EXPECT_EQ(qelGroup_removeChild(group, removed), QEL_STATUS_OK);
    EXPECT_EQ(removed->refCount, 1);
    EXPECT_EQ(removed->parent, nullptr);
    EXPECT_EQ(qelGroup_addChild(group, removed), QEL_STATUS_OK) << "free for another parent";
    EXPECT_EQ(childrenOf(group), (std::vector<Node*>{nodes[0], nodes[2], nodes[3], nodes[1]}));
    for (int32_t i = 0; i < group->childCount; ++i) EXPECT_EQ(group->children[i]->childSlot, i);

    Result result;
    EXPECT_EQ(qelGroup_getChild(group, 3, &result), nodes[1]);
    EXPECT_EQ(result, QEL_STATUS_OK);
    for (const int32_t outside : {-1, 4}) {
        EXPECT_EQ(qelGroup_getChild(group, outside, &result), nullptr);
        EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
    }
}

TEST(Group, ChildrenOutliveItWithoutParent) {
    Group* group = qelGroup_create();
    const auto child = newGroup();
    qelGroup_addChild(group, child);
    qelObject3D_unref(group);
    EXPECT_EQ(child->parent, nullptr);
    EXPECT_EQ(child->refCount, 1);
}

TEST(Group, ChildListThatCannotGrowStaysAsItWas) {
    CountingHeap heap;
    const auto group = newGroup(), child = newGroup();
    Group* first = addGroup(group);
    heap.failAfter(0);
    EXPECT_EQ(qelGroup_addChild(group, child), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(childrenOf(group), std::vector<Node*>{first});
    EXPECT_EQ(child->parent, nullptr);
    EXPECT_EQ(child->refCount, 1);
    EXPECT_EQ(qelGroup_addChild(group, child), QEL_STATUS_OK);
}

// --- Walks ---

// world: a (aa (aaa), ab), camera, b
struct SmallWorld {
    SmallWorld() : world(qelWorld_create()), camera(newCamera()) {
        a = addGroup(world);
        qelGroup_addChild(world, camera);
        b = addGroup(world);
        aa = addGroup(a);
        aaa = addGroup(aa);
        ab = addGroup(a);
    }
    std::vector<Node*> all() const { return {world.get(), a, aa, aaa, ab, camera.get(), b}; }
    Held<World> world;
    Held<Camera> camera;
    Group *a, *aa, *aaa, *ab, *b;
};

static std::vector<Node*> visitedFrom(Node* root) {
    std::vector<Node*> visited;
    SubtreeWalk walk{root, root, 0};
    do visited.push_back(walk.node);
    while (qelSubtreeWalk_next(&walk));
    return visited;
}

TEST(SubtreeWalk, VisitsParentsBeforeChildrenInOrder) {
    const SmallWorld s;
    EXPECT_EQ(visitedFrom(s.world), s.all());
    EXPECT_EQ(visitedFrom(s.a), (std::vector<Node*>{s.a, s.aa, s.aaa, s.ab})) << "the root's siblings are not visited";
    EXPECT_EQ(visitedFrom(s.aaa), std::vector<Node*>{s.aaa});
}

TEST(SubtreeWalk, FindsTheFirstInVisitingOrder) {
    const SmallWorld s;
    s.aaa->userId = s.b->userId = 5;
    s.camera->userId = 6;
    EXPECT_EQ(qelObject3D_findInSubtree(s.world, 5), s.aaa);
    EXPECT_EQ(qelObject3D_findInSubtree(s.world, 6), s.camera.get());
    EXPECT_EQ(qelObject3D_findInSubtree(s.a, 6), nullptr);
    EXPECT_EQ(qelObject3D_findInSubtree(nullptr, 5), nullptr);
    const auto image = newImage(ImageFormat::Rgb, 1, 1);
    image->userId = 7;
    EXPECT_EQ(qelObject3D_findInSubtree(image, 7), image.get()) << "an object that is no node is asked alone";
}

// An animate slot that reports its own user id as validity; negative ids fail.
static int32_t animateByUserId(Object3D* object, int32_t worldTime, Result* result) {
    EXPECT_EQ(worldTime, 1234);
    *result = object->userId < 0 ? QEL_STATUS_ILLEGAL_STATE : QEL_STATUS_OK;
    ++object->stateChanged;
    return object->userId;
}

TEST(SubtreeWalk, AnimatesToTheSmallestValidityAndStopsAtAFailure) {
    const SmallWorld s;
    int32_t id = 100;
    for (Node* node : s.all()) {
        node->animate = animateByUserId;
        node->userId = id++;
        node->stateChanged = 0;
    }
    Result result = -1;
    s.ab->userId = 50;
    EXPECT_EQ(qelObject3D_animateSubtree(s.world, 1234, &result), 50);
    EXPECT_EQ(result, QEL_STATUS_OK);
    s.ab->userId = -1;
    s.aaa->animate = nullptr;
    EXPECT_EQ(qelObject3D_animateSubtree(s.world, 1234, &result), 100);
    EXPECT_EQ(result, QEL_STATUS_ILLEGAL_STATE);
    EXPECT_EQ(s.aa->stateChanged, 2);
    EXPECT_EQ(s.b->stateChanged, 1) << "not reached the second time";
    EXPECT_EQ(qelObject3D_animateSubtree(nullptr, 1234, &result), kValidForever);
    EXPECT_EQ(result, QEL_STATUS_OK);
    EXPECT_EQ(qelObject3D_animateSubtree(s.b, 1234, &result), 106);
}

TEST(World, AnimatesItsBackgroundAndFindsWhatItRefersTo) {
    const Held world(qelWorld_create());
    const Held background(qelBackground_create());
    const auto camera = newCamera();
    qelWorld_setBackground(world, background);
    camera->transformChanged = 0;
    EXPECT_EQ(qelWorld_setActiveCamera(world, nullptr), QEL_STATUS_NULL_POINTER);
    EXPECT_EQ(qelWorld_setActiveCamera(world, camera), QEL_STATUS_OK);
    EXPECT_EQ(camera->transformChanged, 1);

    background->animate = animateByUserId;
    background->userId = camera->userId = 9;
    Result result;
    EXPECT_EQ(world->animate(world, 1234, &result), 9);
    EXPECT_EQ(world->find(world, 9), background.get());
    Object3D* references[2];
    ASSERT_EQ(world->getReferences(world, nullptr), 2);
    world->getReferences(world, references);
    EXPECT_EQ(references[0], background.get());
    EXPECT_EQ(references[1], camera.get());
    qelWorld_setBackground(world, nullptr);
    EXPECT_EQ(background->refCount, 1);
    EXPECT_EQ(world->find(world, 9), camera.get());
}

// --- Camera ---

TEST(Camera, ChecksItsParameters) {
    const auto camera = newCamera();
    EXPECT_EQ(qelCamera_setPerspective(camera, 179.9f, 1, 1, 10), QEL_STATUS_OK);
    for (const auto& [fovy, aspect, near, far] : std::vector<std::array<float, 4>>{{180, 1, 1, 10},
                                                                                   {0, 1, 1, 10},
                                                                                   {NAN, 1, 1, 10},
                                                                                   {60, 0, 1, 10},
                                                                                   {60, NAN, 1, 10},
                                                                                   {60, 1, 0, 10},
                                                                                   {60, 1, 1, -1},
                                                                                   {60, 1, 1, NAN}})
        EXPECT_EQ(qelCamera_setPerspective(camera, fovy, aspect, near, far), QEL_STATUS_ILLEGAL_ARGUMENT);
    for (const auto& [height, aspect] : std::vector<std::array<float, 2>>{{0, 1}, {NAN, 1}, {1, 0}, {1, -1}, {1, NAN}})
        EXPECT_EQ(qelCamera_setParallel(camera, height, aspect, -1, 1), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelCamera_setGeneric(camera, nullptr), QEL_STATUS_NULL_POINTER);
    std::array<float, 4> parameters;
    EXPECT_EQ(qelCamera_getProjectionParameters(camera, parameters.data()), ProjectionType::Perspective);
    EXPECT_EQ(parameters, (std::array<float, 4>{179.9f, 1, 1, 10}));
}

static Matrix projectionOf(Camera* camera) {
    qelTransform out;
    Result result = -1;
    qelCamera_getProjection(camera, &out, &result);
    EXPECT_EQ(result, QEL_STATUS_OK);
    return std::to_array(out.elements);
}

TEST(Camera, ProjectsByItsType) {
    const auto camera = newCamera();
    EXPECT_EQ(projectionOf(camera), (Matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1})) << "default";
    qelCamera_setParallel(camera, 8, 2, 1, 5);
    expectNear(projectionOf(camera), {0.125f, 0, 0, 0, 0, 0.25f, 0, 0, 0, 0, -0.5f, -1.5f, 0, 0, 0, 1}, "parallel");
    qelCamera_setPerspective(camera, 60, 2, 1, 3);
    const float h = std::sqrt(3.0f);
    expectNear(projectionOf(camera), {h / 2, 0, 0, 0, 0, h, 0, 0, 0, 0, -2, -3, 0, 0, -1, 0}, "perspective");

    qelTransform generic;
    qelTransform_setIdentity(&generic);
    qelTransform_postScale(&generic, 7, 8, 9);
    qelCamera_setGeneric(camera, &generic);
    EXPECT_EQ(projectionOf(camera), std::to_array(generic.elements));
    float untouched = 77;
    EXPECT_EQ(qelCamera_getProjectionParameters(camera, &untouched), ProjectionType::Generic);
    EXPECT_EQ(untouched, 77);
}

TEST(Camera, EqualPlanesShowWhenTheProjectionIsAskedFor) {
    const auto camera = newCamera();
    qelTransform out;
    qelTransform_setIdentity(&out);
    out.changed = 0;
    Result result;
    EXPECT_EQ(qelCamera_setPerspective(camera, 60, 1, 1, 1), QEL_STATUS_OK);
    EXPECT_EQ(qelCamera_getProjection(camera, &out, &result), ProjectionType::Perspective);
    EXPECT_EQ(result, QEL_STATUS_ARITHMETIC);
    EXPECT_EQ(out.changed, 0);
    qelCamera_setGeneric(camera, &out);
    qelCamera_getProjection(camera, nullptr, &result);
    EXPECT_EQ(result, QEL_STATUS_OK);
}

// --- Light ---

TEST(Light, ChecksRangesAndIgnoresWhatIsStoredAlready) {
    const Held light(qelLight_create());
    constexpr Result kRefused = QEL_STATUS_ILLEGAL_ARGUMENT;
    struct Case {
        const char* what;
        Result (*set)(Light*);
        Result result;
        bool changes;
    };
    for (const Case& c : {
             Case{"mode 127", [](Light* l) { return qelLight_setMode(l, 127); }, kRefused, false},
             Case{"mode 132", [](Light* l) { return qelLight_setMode(l, 132); }, kRefused, false},
             Case{"mode 131", [](Light* l) { return qelLight_setMode(l, 131); }, QEL_STATUS_OK, true},
             Case{"mode 131 again", [](Light* l) { return qelLight_setMode(l, 131); }, QEL_STATUS_OK, false},
             Case{"angle 90", [](Light* l) { return qelLight_setSpotAngle(l, 90); }, QEL_STATUS_OK, true},
             Case{"angle 90 again", [](Light* l) { return qelLight_setSpotAngle(l, 90); }, QEL_STATUS_OK, false},
             Case{"angle 90.5", [](Light* l) { return qelLight_setSpotAngle(l, 90.5f); }, kRefused, false},
             Case{"angle -1", [](Light* l) { return qelLight_setSpotAngle(l, -1); }, kRefused, false},
             Case{"angle NaN", [](Light* l) { return qelLight_setSpotAngle(l, NAN); }, kRefused, false},
             Case{"exponent 128", [](Light* l) { return qelLight_setSpotExponent(l, 128); }, QEL_STATUS_OK, true},
             Case{"exponent 129", [](Light* l) { return qelLight_setSpotExponent(l, 129); }, kRefused, false},
             Case{"exponent NaN", [](Light* l) { return qelLight_setSpotExponent(l, NAN); }, kRefused, false},
             Case{"no attenuation", [](Light* l) { return qelLight_setAttenuation(l, 0, 0, 0); }, kRefused, false},
             Case{"negative", [](Light* l) { return qelLight_setAttenuation(l, 1, -1, 0); }, kRefused, false},
             Case{"NaN", [](Light* l) { return qelLight_setAttenuation(l, 1, 0, NAN); }, kRefused, false},
             Case{"the default", [](Light* l) { return qelLight_setAttenuation(l, 1, 0, 0); }, QEL_STATUS_OK, false},
             Case{"quadratic", [](Light* l) { return qelLight_setAttenuation(l, 0, 0, 1); }, QEL_STATUS_OK, true},
             Case{"white with alpha",
                  [](Light* l) {
                      qelLight_setColor(l, 0x80FFFFFF);
                      return Result(l->color == 0xFFFFFF ? QEL_STATUS_OK : -1);
                  },
                  QEL_STATUS_OK, false},
             Case{"negative intensity",
                  [](Light* l) {
                      qelLight_setIntensity(l, -2);
                      return QEL_STATUS_OK + 0;
                  },
                  QEL_STATUS_OK, true},
         }) {
        light->stateChanged = 0;
        EXPECT_EQ(c.set(light), c.result) << c.what;
        EXPECT_EQ(light->stateChanged, c.changes) << c.what;
    }
    EXPECT_EQ(light->spotAngle, 90);
    EXPECT_NEAR(light->spotCosine, 0, 1e-7);
    EXPECT_EQ(light->spotExponent, 128);
    EXPECT_EQ(std::to_array(light->attenuation), (std::array<float, 3>{0, 0, 1}));
}

TEST(Light, EqualityLooksAtEverySetting) {
    const Held a(qelLight_create()), b(qelLight_create());
    EXPECT_TRUE(qelLight_equals(a, b));
    EXPECT_NEAR(a->spotCosine, std::sqrt(0.5), 1e-7);
    for (void (*change)(Light*) : {+[](Light* l) { qelLight_setMode(l, 130); }, +[](Light* l) { l->color = 1; },
                                   +[](Light* l) { qelLight_setSpotAngle(l, 1); }, +[](Light* l) { l->spotCosine = 0; },
                                   +[](Light* l) { l->spotExponent = 1; }, +[](Light* l) { l->attenuation[2] = 1; },
                                   +[](Light* l) { l->intensity = 0; }}) {
        const Held<Light> copy(static_cast<Light*>(qelLight_duplicate(a)));
        ASSERT_TRUE(qelLight_equals(a, copy));
        change(copy);
        EXPECT_FALSE(qelLight_equals(a, copy));
    }
}

// --- Background and sprite ---

static std::array<int32_t, 4> cropOf(const auto& object) {
    return {object->cropX, object->cropY, object->cropWidth, object->cropHeight};
}

TEST(Background, TakesColourImagesOnly) {
    const Held background(qelBackground_create());
    for (const auto& [format, accepted] :
         std::vector<std::pair<ImageFormat, bool>>{{ImageFormat::Alpha, false},
                                                   {ImageFormat::Luminance, false},
                                                   {ImageFormat::LuminanceAlpha, false},
                                                   {ImageFormat::Rgb, true},
                                                   {ImageFormat::Rgba, true}}) {
        const auto image = newImage(format, 3, 5);
        background->imageVersionSeen = 9;
        EXPECT_EQ(qelBackground_setImage(background, image), accepted ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT);
        EXPECT_EQ(background->image == image.get(), accepted);
        EXPECT_EQ(background->imageVersionSeen, accepted ? 0u : 9u);
    }
    EXPECT_EQ(cropOf(background), (std::array<int32_t, 4>{0, 0, 3, 5}));
    EXPECT_EQ(qelBackground_setCrop(background, -7, 8, 0, -1), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelBackground_setCrop(background, -7, 8, 0, 1), QEL_STATUS_OK);
    EXPECT_EQ(cropOf(background), (std::array<int32_t, 4>{-7, 8, 0, 1}));
    EXPECT_EQ(qelBackground_setImage(background, nullptr), QEL_STATUS_OK);
    EXPECT_EQ(cropOf(background), (std::array<int32_t, 4>{}));
    EXPECT_EQ(qelBackground_setImageMode(background, 33, 34), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelBackground_setImageMode(background, 31, 33), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(background->imageModeX, ImageMode::Border);
    EXPECT_EQ(qelBackground_setImageMode(background, 33, 32), QEL_STATUS_OK);
    EXPECT_EQ(background->imageModeX, ImageMode::Repeat);
}

TEST(Sprite3D, CropIsLimitedAndKeepsItsOrigin) {
    const auto wide = newImage(ImageFormat::Alpha, 3000, 4), small = newImage(ImageFormat::Rgb, 10, 20);
    const Held appearance(qelAppearance_create());
    appearance->stateChanged = wide->stateChanged = 0;
    Result result;
    EXPECT_EQ(qelSprite3D_create(true, nullptr, nullptr, &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
    const Held sprite(qelSprite3D_create(true, wide, appearance, &result));
    ASSERT_EQ(result, QEL_STATUS_OK);
    EXPECT_TRUE(appearance->stateChanged && wide->stateChanged);
    EXPECT_EQ(cropOf(sprite), (std::array<int32_t, 4>{0, 0, 2048, 4}));
    EXPECT_EQ(sprite->zTarget, AlignmentTarget::ZAxis);
    EXPECT_EQ(sprite->yTarget, AlignmentTarget::YAxis);

    EXPECT_EQ(qelSprite3D_setCrop(sprite, 5, 6, 2048, -4000), QEL_STATUS_OK) << "negative sizes mirror";
    EXPECT_EQ(qelSprite3D_setCrop(sprite, 7, 8, 1, 2049), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(cropOf(sprite), (std::array<int32_t, 4>{7, 8, 2048, -4000}));

    EXPECT_EQ(qelSprite3D_setImage(sprite, nullptr), QEL_STATUS_NULL_POINTER);
    EXPECT_EQ(qelSprite3D_setImage(sprite, small), QEL_STATUS_OK);
    EXPECT_EQ(cropOf(sprite), (std::array<int32_t, 4>{0, 0, 10, 20}));
    EXPECT_EQ(wide->refCount, 1);
    sprite->stateChanged = 0;
    EXPECT_EQ(qelSprite3D_setImage(sprite, small), QEL_STATUS_OK);
    EXPECT_EQ(sprite->stateChanged, 0) << "the same image";
    Object3D* references[2];
    ASSERT_EQ(sprite->getReferences(sprite, references), 2);
    EXPECT_EQ(references[0], appearance.get());
    EXPECT_EQ(references[1], small.get());
}

TEST(Nodes, CreationGivesEverythingBackOnEveryFailure) {
    sweepEngineAllocations(FailMode::Once, [](CountingHeap& heap) {
        const auto image = newImage(ImageFormat::Rgb, 2, 2);
        if (!image.get()) return;
        {
            Result result = QEL_STATUS_OK;
            const Held sprite(qelSprite3D_create(true, image, nullptr, &result));
            EXPECT_EQ(result, sprite.get() ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY);
            const Held background(qelBackground_create());
            EXPECT_EQ(!sprite.get() || !background.get(), heap.hasFailed());
            if (background.get()) qelBackground_setImage(background, image);
        }
        EXPECT_EQ(image->refCount, 1);
    });
}
