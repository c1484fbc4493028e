#include "scene/duplicate.h"

#include "scene/background.h"
#include "scene/camera.h"
#include "scene/figure_mesh.h"
#include "scene/light.h"
#include "scene/subtree.h"
#include "scene/world.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

// A skinned mesh of one triangle whose only bone is its skeleton. Null when memory runs out.
static SkinnedMesh* makeSkinned() {
    const Held buffer(makeBuffer<int16_t>({0, 0, 0, 10, 0, 0, 0, 10, 0}));
    const Held triangle(makeTriangle());
    const Held skeleton(qelGroup_create());
    if (!buffer.get() || !triangle.get() || !skeleton.get()) return nullptr;
    TriangleStripArray* strips[] = {triangle};
    Result result;
    SkinnedMesh* mesh = qelSkinnedMesh_create(buffer, strips, nullptr, skeleton, 1, &result);
    if (!mesh || qelSkinnedMesh_addTransform(mesh, skeleton, 1, 0, 3) == QEL_STATUS_OK) return mesh;
    qelObject3D_unref(mesh);
    return nullptr;
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
        const Held mesh(makeSkinned());
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
