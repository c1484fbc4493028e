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
#include "tests/scene/matrices.h"
#include "tests/support/counting_heap.h"

static Held<Group> newGroup() { return Held(qelGroup_create()); }

static Group* addGroup(Group* parent) { return addTo(parent, qelGroup_create()); }

static std::vector<Node*> childrenOf(const Group* group) {
    return {group->children, group->children + group->childCount};
}

static Matrix compositeOf(Transformable* t) {
    qelTransform composite;
    EXPECT_EQ(qelTransformable_getCompositeTransform(t, &composite), QEL_STATUS_OK);
    return std::to_array(composite.elements);
}

template <size_t count>
static void expectNear(const std::array<float, count>& actual, const std::array<float, count>& expected,
                       const char* what, double tolerance = 1e-6) {
    for (size_t i = 0; i < count; ++i) EXPECT_NEAR(actual[i], expected[i], tolerance) << what << " " << i;
}

static std::array<float, 4> orientationOf(Transformable* t) {
    std::array<float, 4> orientation;
    qelTransformable_getOrientation(t, orientation.data());
    return orientation;
}

// --- Transformable ---

TEST(Transformable, CompositeMultipliesTranslationRotationScaleAndMatrix) {
    const auto node = newGroup();
    EXPECT_FALSE(qelTransformable_updateComposite(node));
    qelTransformable_setTranslation(node, 1, 2, 3);
    qelTransformable_setScale(node, 2, 3, 4);
    EXPECT_EQ(compositeOf(node), (Matrix{2, 0, 0, 1, 0, 3, 0, 2, 0, 0, 4, 3, 0, 0, 0, 1}));
    EXPECT_FALSE(qelTransformable_updateComposite(node)) << "only after a change";
    qelTransformable_setScale(node, 2, 3, 4);
    EXPECT_TRUE(qelTransformable_updateComposite(node));

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

TEST(Transformable, RefusedRotationsChangeNothing) {
    const auto node = newGroup();
    ASSERT_EQ(qelTransformable_setOrientation(node, 50, 0, 2, 0), QEL_STATUS_OK);
    qelTransformable_updateComposite(node);
    const float noQuaternion[4] = {0, 0, 0, 0};
    for (const Result result :
         {qelTransformable_setOrientation(node, 90, 0, 0, 0), qelTransformable_postRotate(node, 90, 0, 0, 0),
          qelTransformable_preRotate(node, 90, 0, 0, 0), qelTransformable_setOrientationQuat(node, noQuaternion)})
        EXPECT_EQ(result, QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(orientationOf(node), (std::array<float, 4>{50, 0, 2, 0})) << "the axis as given";
    EXPECT_FALSE(qelTransformable_updateComposite(node));
    EXPECT_EQ(qelTransformable_setOrientation(node, 0, 0, 0, 0), QEL_STATUS_OK);
}

TEST(Transformable, QuaternionsBecomeAngleAndAxis) {
    struct Case {
        const char* what;
        std::array<float, 4> q, orientation;
    };
    const float half = std::sqrt(0.5f);
    const auto node = newGroup();
    for (const Case& c :
         {Case{"quarter turn", {0, half, 0, half}, {90, 0, 1, 0}},
          Case{"w below -1", {0, 3, 4, -7}, {360, 0, 0.6f, 0.8f}}, Case{"no vector part", {0, 0, 0, -2}, {0, 1, 0, 0}},
          Case{"not normalised: the angle is that of w as given", {0, 0, 3, 2}, {0, 0, 0, 1}}}) {
        ASSERT_EQ(qelTransformable_setOrientationQuat(node, c.q.data()), QEL_STATUS_OK) << c.what;
        expectNear(orientationOf(node), c.orientation, c.what, 5e-5);
    }
    // The matrix is that of the normalised quaternion: (0, 0, 3, 2) turns by 2 atan(3 / 2) about z.
    expectNear(compositeOf(node), {-5 / 13.f, -12 / 13.f, 0, 0, 12 / 13.f, -5 / 13.f, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1},
               "unit quaternion");
}

TEST(Transformable, RotationsAccumulateOnTheirSide) {
    // A quarter turn about x after or before one about z, both 120 degrees.
    const auto post = newGroup(), pre = newGroup();
    for (const auto& node : {post.get(), pre.get()}) qelTransformable_setOrientation(node, 90, 0, 0, 1);
    EXPECT_EQ(qelTransformable_postRotate(post, 90, 3, 0, 0), QEL_STATUS_OK);
    EXPECT_EQ(qelTransformable_preRotate(pre, 90, 3, 0, 0), QEL_STATUS_OK);
    const float third = 1 / std::sqrt(3.0f);
    expectNear(orientationOf(post), {120, third, third, third}, "after", 2e-5);
    expectNear(orientationOf(pre), {120, third, -third, third}, "before", 2e-5);
    expectNear(compositeOf(pre), {0, -1, 0, 0, 0, 0, -1, 0, 1, 0, 0, 0, 0, 0, 0, 1}, "before");
    qelTransformable_setOrientation(post, 60, 0, 0, 5);
    qelTransformable_postRotate(post, -60, 0, 0, 1);
    EXPECT_EQ(orientationOf(post), (std::array<float, 4>{0, 0, 0, 5})) << "back to nothing keeps the axis";
}

TEST(Transformable, OnlyTexturesTakeAnyBottomRow) {
    qelTransform projective;
    qelTransform_setIdentity(&projective);
    const float row[4] = {0, 0, 1, 1};
    qelTransform_setRow(&projective, 3, row);
    const auto node = newGroup();
    EXPECT_EQ(qelTransformable_setTransform(node, &projective), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_FALSE(qelTransformable_updateComposite(node));
    const Held texture(makeTexture());
    EXPECT_EQ(qelTransformable_setTransform(texture, &projective), QEL_STATUS_OK);
    EXPECT_EQ(compositeOf(texture), (Matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 1, 1}));
}

// --- Node ---

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
        Node* z;
        int32_t zTarget;
        Node* y;
        int32_t yTarget;
        bool isTaken;
    };
    for (const Case& c :
         {Case{"same reference, same target", a, 145, a, 145, false},
          Case{"no reference, same target", nullptr, 148, nullptr, 148, false}, Case{"both none", a, 144, a, 144, true},
          Case{"other targets", a, 148, a, 147, true}, Case{"other references", a, 145, b, 145, true},
          Case{"z to itself", node, 145, a, 146, false}, Case{"y to itself", a, 145, node, 146, false}}) {
        SCOPED_TRACE(c.what);
        qelNode_setAlignment(node, b, 145, nullptr, 146);
        EXPECT_EQ(qelNode_setAlignment(node, c.z, c.zTarget, c.y, c.yTarget) == QEL_STATUS_OK, c.isTaken);
        EXPECT_EQ(node->zReference, c.isTaken ? c.z : b.get());
        EXPECT_EQ(node->yReference, c.isTaken ? c.y : nullptr);
        EXPECT_EQ(int32_t(node->zTarget), c.isTaken ? c.zTarget : 145);
        EXPECT_EQ(int32_t(node->yTarget), c.isTaken ? c.yTarget : 146);
    }
}

TEST(Node, AlignmentEndsWithTheNodeItNames) {
    const auto other = newGroup();
    Group* reference = qelGroup_create();
    std::array<Group*, 5> nodes;
    for (Group*& node : nodes) qelNode_setAlignment(node = qelGroup_create(), reference, 145, reference, 146);
    qelObject3D_unref(nodes[2]);                                   // one leaves from the middle,
    qelObject3D_unref(nodes[4]);                                   // one from the front,
    qelNode_setAlignment(nodes[0], other, 147, nullptr, 148);      // one for another reference,
    qelNode_setAlignment(reference, nodes[1], 145, nullptr, 144);  // and one is aligned to in turn
    qelObject3D_unref(reference);
    for (const Node* node : {nodes[1], nodes[3]}) {
        EXPECT_TRUE(node->zReference == nullptr && node->zTarget == AlignmentTarget::None);
        EXPECT_TRUE(node->yReference == nullptr && node->yTarget == AlignmentTarget::None);
    }
    EXPECT_EQ(nodes[0]->zReference, other.get());
    EXPECT_EQ(nodes[0]->yTarget, AlignmentTarget::ZAxis);
    for (Node* node : {nodes[0], nodes[1], nodes[3]}) qelObject3D_unref(node);
    EXPECT_EQ(other->zChain.first, nullptr);
}

TEST(Node, TransformsToOtherNodesLeaveTheirCommonAncestorOut) {
    const Held world(qelWorld_create());
    Group *left = addGroup(world), *leaf = addGroup(left), *right = addGroup(world);
    qelTransformable_setTranslation(world, 100, 100, 100);  // above all: without effect
    qelTransformable_setTranslation(left, 1, 0, 0);
    qelTransformable_setOrientation(left, 90, 0, 0, 1);
    qelTransformable_setTranslation(leaf, 0, 2, 0);
    qelTransformable_setScale(right, 2, 2, 2);
    qelTransform out;
    Result result;
    ASSERT_TRUE(qelNode_getTransformTo(leaf, right, &out, &result));
    EXPECT_EQ(result, QEL_STATUS_OK);
    // leaf's origin stands at (-1, 0, 0) below the world, half of that for right
    expectNear(std::to_array(out.elements), {0, -0.5f, 0, -0.5f, 0.5f, 0, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 1}, "sideways");
    ASSERT_TRUE(qelNode_getTransformTo(leaf, left, &out, &result));
    expectNear(std::to_array(out.elements), {1, 0, 0, 0, 0, 1, 0, 2, 0, 0, 1, 0, 0, 0, 0, 1}, "upwards");
    qelNode_computeToRoot(leaf, &out);
    expectNear(std::to_array(out.elements), {0, -1, 0, -1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, "to the root");
    EXPECT_EQ(std::to_array(leaf->toWorld.elements), std::to_array(out.elements));
    qelNode_computeToRoot(world, &out);
    EXPECT_TRUE(qelTransform_isIdentityExact(&out));
    EXPECT_EQ(qelNode_getRootWorld(leaf), world.get());

    qelTransformable_setScale(right, 0, 1, 1);
    EXPECT_FALSE(qelNode_getTransformTo(leaf, right, &out, &result));
    EXPECT_EQ(result, QEL_STATUS_ARITHMETIC);
    const auto stranger = newGroup();
    EXPECT_FALSE(qelNode_getTransformTo(leaf, stranger, &out, &result));
    EXPECT_EQ(qelNode_getRootWorld(addGroup(stranger)), nullptr);
}

// --- Group ---

TEST(Group, RefusesChildrenThatWouldBreakTheTree) {
    const auto group = newGroup();
    const Held world(qelWorld_create());
    Group *child = addGroup(group), *grandchild = addGroup(child);
    EXPECT_EQ(qelGroup_addChild(group, nullptr), QEL_STATUS_NULL_POINTER);
    for (const auto& [what, parent, node] :
         std::vector<std::tuple<const char*, Group*, Group*>>{{"itself", group, group},
                                                              {"a world", group, world},
                                                              {"has a parent", world, grandchild},
                                                              {"is an ancestor", grandchild, group}})
        EXPECT_EQ(qelGroup_addChild(parent, node), QEL_STATUS_ILLEGAL_ARGUMENT) << what;
    EXPECT_EQ(group->refCount, 1);
    EXPECT_EQ(world->childCount, 0);
}

TEST(Group, KeepsChildrenInOrderWithTheirSlots) {
    CountingHeap heap;
    const auto removed = newGroup();
    {
        const auto group = newGroup();
        const std::vector<Node*> nodes = {addGroup(group), addGroup(group), addGroup(group)};
        EXPECT_EQ(qelGroup_removeChild(group, removed), QEL_STATUS_OK) << "a stranger";
        heap.failAfter(0);
        EXPECT_EQ(qelGroup_addChild(group, removed), QEL_STATUS_OUT_OF_MEMORY);
        EXPECT_EQ(childrenOf(group), nodes);
        EXPECT_EQ(removed->parent, nullptr);
        EXPECT_EQ(removed->refCount, 1);

        EXPECT_EQ(qelGroup_addChild(group, removed), QEL_STATUS_OK);
        qelObject3D_ref(nodes[1]);
        EXPECT_EQ(qelGroup_removeChild(group, nodes[1]), QEL_STATUS_OK);
        EXPECT_EQ(nodes[1]->parent, nullptr);
        addTo(group, nodes[1]);  // free for another place
        EXPECT_EQ(childrenOf(group), (std::vector<Node*>{nodes[0], nodes[2], removed, nodes[1]}));
        for (int32_t i = 0; i < group->childCount; ++i) EXPECT_EQ(group->children[i]->childSlot, i);
        Result result;
        for (const int32_t outside : {-1, 4}) {
            EXPECT_EQ(qelGroup_getChild(group, outside, &result), nullptr);
            EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
        }
    }
    EXPECT_EQ(removed->parent, nullptr) << "after the group";
    EXPECT_EQ(removed->refCount, 1);
}

// --- Walks ---

TEST(SubtreeWalk, VisitsParentsBeforeChildrenInOrder) {
    const Held world(qelWorld_create());
    Group *a = addGroup(world), *b = addGroup(world), *aa = addGroup(a), *aaa = addGroup(aa), *ab = addGroup(a);
    const auto visitedFrom = [](Node* root) {
        std::vector<Object3D*> visited;
        SubtreeWalk walk{root, root, 0};
        do visited.push_back(walk.node);
        while (qelSubtreeWalk_next(&walk));
        return visited;
    };
    EXPECT_EQ(visitedFrom(world), (std::vector<Object3D*>{world, a, aa, aaa, ab, b}));
    EXPECT_EQ(visitedFrom(a), (std::vector<Object3D*>{a, aa, aaa, ab})) << "not the root's siblings";
    aaa->userId = b->userId = 5;
    EXPECT_EQ(qelObject3D_findInSubtree(world, 5), aaa);
    EXPECT_EQ(qelObject3D_findInSubtree(ab, 5), nullptr);
    EXPECT_EQ(qelObject3D_findInSubtree(nullptr, 5), nullptr);
    aaa->animate = nullptr;
    Result result = -1;
    qelObject3D_animateSubtree(world, 0, &result);
    EXPECT_EQ(result, QEL_STATUS_OK) << "passes over what cannot be animated";
}

// --- Camera ---

static Matrix projectionOf(Camera* camera) {
    qelTransform out;
    Result result = -1;
    qelCamera_getProjection(camera, &out, &result);
    EXPECT_EQ(result, QEL_STATUS_OK);
    return std::to_array(out.elements);
}

TEST(Camera, ProjectsByItsType) {
    const Held camera(qelCamera_create());
    EXPECT_EQ(projectionOf(camera), (Matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1})) << "default";
    qelCamera_setParallel(camera, 8, 2, 1, 5);
    expectNear(projectionOf(camera), {0.125f, 0, 0, 0, 0, 0.25f, 0, 0, 0, 0, -0.5f, -1.5f, 0, 0, 0, 1}, "parallel");
    qelCamera_setPerspective(camera, 60, 2, 1, 3);
    const float h = std::sqrt(3.0f);
    expectNear(projectionOf(camera), {h / 2, 0, 0, 0, 0, h, 0, 0, 0, 0, -2, -3, 0, 0, -1, 0}, "perspective");
    qelTransform generic, out;
    qelTransform_setIdentity(&generic);
    qelTransform_postScale(&generic, 7, 8, 9);
    qelCamera_setGeneric(camera, &generic);
    EXPECT_EQ(projectionOf(camera), std::to_array(generic.elements));
    Result result;
    EXPECT_EQ(qelCamera_setPerspective(camera, 60, 1, 1, 1), QEL_STATUS_OK);
    EXPECT_EQ(qelCamera_getProjection(camera, &out, &result), ProjectionType::Perspective);
    EXPECT_EQ(result, QEL_STATUS_ARITHMETIC) << "equal planes show when the projection is asked for";
}

// --- Background and sprite ---

static std::array<int32_t, 4> cropOf(const auto& object) {
    return {object->cropX, object->cropY, object->cropWidth, object->cropHeight};
}

TEST(Background, TakesColourImagesOnly) {
    const Held background(qelBackground_create());
    for (int32_t format = 96; format <= 100; ++format) {
        const bool accepted = format >= 99;
        const Held image(makeImage(ImageFormat(format), 3, 5));
        EXPECT_EQ(qelBackground_setImage(background, image), accepted ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT);
        EXPECT_EQ(background->image == image.get(), accepted);
    }
    EXPECT_EQ(cropOf(background), (std::array<int32_t, 4>{0, 0, 3, 5}));
    EXPECT_EQ(qelBackground_setCrop(background, -7, 8, 0, -1), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelBackground_setCrop(background, -7, 8, 0, 1), QEL_STATUS_OK);
    EXPECT_EQ(qelBackground_setImage(background, nullptr), QEL_STATUS_OK);
    EXPECT_EQ(cropOf(background), (std::array<int32_t, 4>{}));
}

TEST(Sprite3D, CropIsLimitedAndKeepsItsOrigin) {
    const Held wide(makeImage(ImageFormat::Alpha, 3000, 4)), small(makeImage(ImageFormat::Rgb, 10, 20));
    Result result;
    EXPECT_EQ(qelSprite3D_create(true, nullptr, nullptr, &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
    const Held sprite(qelSprite3D_create(true, wide, nullptr, &result));
    ASSERT_EQ(result, QEL_STATUS_OK);
    EXPECT_EQ(cropOf(sprite), (std::array<int32_t, 4>{0, 0, 2048, 4}));
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
}
