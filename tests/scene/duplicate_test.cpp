#include "scene/duplicate.h"

#include <algorithm>
#include <array>

#include "scene/background.h"
#include "scene/camera.h"
#include "scene/figure_mesh.h"
#include "scene/light.h"
#include "scene/subtree.h"
#include "scene/world.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

// A skinned mesh of one triangle whose bones are its skeleton group and an arm below. Null when memory runs out.
static SkinnedMesh* makeArm() {
    const Held buffer(makeBuffer<int16_t>({0, 0, 0, 10, 0, 0, 0, 10, 0}));
    const Held triangle(makeTriangle());
    const Held skeleton(qelGroup_create()), arm(qelGroup_create());
    if (!buffer.get() || !triangle.get() || !skeleton.get() || !arm.get()) return nullptr;
    if (qelGroup_addChild(skeleton, arm) != QEL_STATUS_OK) return nullptr;
    TriangleStripArray* strips[] = {triangle};
    Result result;
    SkinnedMesh* mesh = qelSkinnedMesh_create(buffer, strips, nullptr, skeleton, 1, &result);
    if (!mesh) return nullptr;
    if (qelSkinnedMesh_addTransform(mesh, skeleton, 1, 0, 3) == QEL_STATUS_OK &&
        qelSkinnedMesh_addTransform(mesh, arm, 1, 2, 1) == QEL_STATUS_OK)
        return mesh;
    qelObject3D_unref(mesh);
    return nullptr;
}

static Group* armOf(const SkinnedMesh* mesh) { return static_cast<Group*>(mesh->skeleton->children[0]); }

TEST(DuplicateSubtree, SkinnedMeshFollowsItsOwnSkeleton) {
    const Held root(qelGroup_create());
    SkinnedMesh* mesh = addTo(root, makeArm());
    const Held copy(static_cast<Group*>(qelObject3D_duplicateSubtree(root)));
    ASSERT_NE(copy.get(), nullptr);
    const auto* meshCopy = static_cast<const SkinnedMesh*>(copy->children[0]);
    EXPECT_EQ(meshCopy->parent, copy.get());
    ASSERT_NE(meshCopy->skeleton, nullptr);
    EXPECT_NE(meshCopy->skeleton, mesh->skeleton);
    EXPECT_EQ(meshCopy->skeleton->parent, meshCopy);
    EXPECT_EQ(meshCopy->skeleton->refCount, 1);
    ASSERT_EQ(meshCopy->boneCount, 2);
    EXPECT_EQ(meshCopy->bones[0], meshCopy->skeleton);
    EXPECT_EQ(meshCopy->bones[1], armOf(meshCopy));
    EXPECT_EQ(mesh->bones[1], armOf(mesh)) << "the source keeps its own";
    EXPECT_EQ(qelGroup_removeChild(meshCopy->skeleton, armOf(meshCopy)), QEL_STATUS_ILLEGAL_ARGUMENT);
}

TEST(DuplicateSubtree, OfASingleCopyOutlivesTheSkeleton) {
    const Held copy([] {
        const Held mesh(makeArm());
        return static_cast<SkinnedMesh*>(qelObject3D_duplicate(mesh));
    }());
    const Held again(static_cast<SkinnedMesh*>(qelObject3D_duplicateSubtree(copy)));
    EXPECT_EQ(again->skeleton, nullptr);
    EXPECT_EQ(again->bindingCount, 2);
}

TEST(DuplicateSubtree, WorldKeepsStructureAndCamera) {
    const Held world(qelWorld_create());
    const Held background(qelBackground_create());
    qelWorld_setBackground(world, background);
    Group* group = addTo(world, qelGroup_create());
    Camera* camera = addTo(group, qelCamera_create());
    addTo(world, qelLight_create());
    qelWorld_setActiveCamera(world, camera);
    {
        const Held copy(static_cast<World*>(qelObject3D_duplicateSubtree(world)));
        ASSERT_EQ(copy->childCount, 2);
        const auto* groupCopy = static_cast<const Group*>(copy->children[0]);
        EXPECT_NE(groupCopy, group);
        EXPECT_EQ(groupCopy->parent, copy.get());
        ASSERT_EQ(groupCopy->childCount, 1);
        EXPECT_EQ(groupCopy->children[0]->parent, groupCopy);
        EXPECT_EQ(copy->children[1]->classId, ClassId::Light);
        EXPECT_EQ(copy->children[1]->childSlot, 1);
        EXPECT_EQ(copy->activeCamera, groupCopy->children[0]);
        EXPECT_EQ(copy->activeCamera->refCount, 2);
        EXPECT_EQ(copy->background, background.get());
    }
    EXPECT_EQ(background->refCount, 2);
    EXPECT_EQ(camera->refCount, 2);

    const Held outside(qelCamera_create());
    qelWorld_setActiveCamera(world, outside);
    const Held copy(static_cast<World*>(qelObject3D_duplicateSubtree(world)));
    EXPECT_EQ(copy->activeCamera, nullptr) << "a camera outside the world is not taken over";
}

TEST(DuplicateSubtree, AlignmentsFollowTheCopyWhereTheirReferenceDoes) {
    const Held outside(qelGroup_create()), root(qelGroup_create());
    Group *first = addTo(root, qelGroup_create()), *second = addTo(root, qelGroup_create());
    qelNode_setAlignment(first, second, 145, outside, 146);  // its reference is copied after it
    qelNode_setAlignment(second, root, 147, first, 148);
    {
        const Held copy(static_cast<Group*>(qelObject3D_duplicateSubtree(root)));
        ASSERT_NE(copy.get(), nullptr);
        const Node *firstCopy = copy->children[0], *secondCopy = copy->children[1];
        EXPECT_EQ(firstCopy->zReference, secondCopy);
        EXPECT_EQ(firstCopy->yReference, outside.get());
        EXPECT_EQ(firstCopy->zTarget, AlignmentTarget::Origin);
        EXPECT_EQ(firstCopy->yTarget, AlignmentTarget::XAxis);
        EXPECT_EQ(secondCopy->zReference, copy.get());
        EXPECT_EQ(secondCopy->yReference, firstCopy);
    }
    EXPECT_EQ(first->zReference, second);
    EXPECT_EQ(outside->yChain.first, first) << "the copy has left the chain";
    EXPECT_EQ(first->yChain.next, nullptr);
}

TEST(DuplicateSubtree, RefusesFigures) {
    const Held root(qelGroup_create());
    FigureMesh* figure = addTo(root, qelFigureMesh_create());
    addTo(root, qelGroup_create());
    EXPECT_EQ(qelObject3D_duplicateSubtree(figure), nullptr);
    EXPECT_EQ(qelObject3D_duplicateSubtree(root), nullptr);
}

TEST(DuplicateSubtree, GivesEverythingBackOnEveryFailure) {
    const int32_t allocations = sweepEngineAllocations(FailMode::Once, [](CountingHeap& heap) {
        const Held world(qelWorld_create());
        const Held camera(qelCamera_create());
        const Held mesh(makeArm());
        if (!world.get() || !camera.get() || !mesh.get()) return;
        if (qelGroup_addChild(world, camera) != QEL_STATUS_OK) return;
        if (qelGroup_addChild(world, mesh) != QEL_STATUS_OK) return;
        qelWorld_setActiveCamera(world, camera);
        qelNode_setAlignment(mesh, camera, 145, nullptr, 144);
        const bool failedBefore = heap.hasFailed();
        const int32_t blocks = heap.liveBlocks();
        {
            const Held copy(static_cast<World*>(qelObject3D_duplicateSubtree(world)));
            EXPECT_EQ(copy.get() == nullptr, heap.hasFailed() && !failedBefore);
        }
        EXPECT_EQ(heap.liveBlocks(), blocks);
        EXPECT_EQ(camera->zChain.first, mesh.get());
        EXPECT_EQ(mesh->zChain.next, nullptr);
    });
    EXPECT_GT(allocations, 30);
}
