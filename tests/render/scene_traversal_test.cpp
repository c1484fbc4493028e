// From a scene graph to draws: which nodes, where, in which order, how opaque.
#include "scene/duplicate.h"
#include "scene/group.h"
#include "scene/morphing_mesh.h"
#include "scene/skinned_mesh.h"
#include "scene/world.h"
#include "tests/render/graphics_fixture.h"

using Names = std::vector<int>;

namespace {

class TraversalTest : public GraphicsTest {
protected:
    static Held<Group> groupOf(const std::vector<Node*>& children) {
        Held<Group> group(qelGroup_create());
        for (Node* child : children) EXPECT_EQ(qelGroup_addChild(group, child), QEL_STATUS_OK);
        return group;
    }
    std::vector<Drawn> sorted(Node* node, const qelTransform* transform = nullptr) {
        std::vector<Drawn> drawn = render(node, transform);  // opaque entries come in no order worth a promise
        std::ranges::sort(drawn, {}, &Drawn::name);
        return drawn;
    }
    static void move(Node* node, float x, float y, float z) { qelTransformable_setTranslation(node, x, y, z); }

    // Looks along -z with an opening of 90 degrees.
    void usePerspective(float near = 1, float far = 100) {
        qelCamera_setPerspective(camera, 90, 1, near, far);
        qelGraphics3D_setCamera(graphics, camera, nullptr);
    }
};

// --- Where ---

TEST_F(TraversalTest, NodesStandWhereTheirAncestorsPutThem) {
    const Held<Mesh> a = makeMesh(1), b = makeMesh(2), c = makeMesh(3);
    const Held<Group> inner = groupOf({b, c}), root = groupOf({a, inner});
    move(a, 1, 0, 0);
    move(inner, 0, 10, 0);
    qelTransformable_setScale(inner, 2, 2, 2);
    move(b, 3, 0, 0);
    move(c, 4, 0, 0);
    move(root, 1000, 1000, 1000);
    const qelTransform place = translation(0, 0, 5);
    const auto expectPlaced = [&](const char* what, float bx, float by, float cx, float cy) {
        EXPECT_EQ(sorted(root, &place), (std::vector<Drawn>{{1, 1, 0, 5}, {2, bx, by, 5}, {3, cx, cy, 5}})) << what;
    };
    expectPlaced("the given transform replaces the root's own", 6, 10, 8, 10);
    move(inner, 0, 20, 0);
    move(c, 5, 0, 0);
    expectPlaced("an ancestor and a leaf moved", 6, 20, 10, 20);
    EXPECT_EQ(sorted(inner), (std::vector<Drawn>{{2, 3, 0, 0}, {3, 5, 0, 0}})) << "no transform: the identity";
    expectPlaced("a part was rendered by itself", 6, 20, 10, 20);
    qelNode_setRenderingEnable(inner, false);
    move(inner, 0, 30, 0);
    EXPECT_EQ(names(root, &place), Names{1}) << "hidden with what is below";
    qelNode_setRenderingEnable(inner, true);
    expectPlaced("back after a move", 6, 30, 10, 30);
    qelGroup_removeChild(inner, b);
    qelGroup_addChild(root, b);
    expectPlaced("hung elsewhere", 3, 0, 10, 30);
}

// --- Which, and how opaque ---

TEST_F(TraversalTest, OnlyNodesInTheScopeOfTheCameraAreDrawn) {
    const Held<Mesh> a = makeMesh(1), b = makeMesh(2);
    const Held<Group> inner = groupOf({b}), root = groupOf({a, inner});
    qelNode_setScope(a, 1);
    qelNode_setScope(b, 6);
    qelNode_setScope(inner, 0);  // says nothing about its children
    qelNode_setScope(camera, 3);
    EXPECT_EQ(names(root).size(), 2u);
    qelNode_setScope(camera, 4);
    EXPECT_EQ(names(root), (Names{2}));
    qelNode_setScope(camera, 8);
    EXPECT_TRUE(names(root).empty());
    EXPECT_EQ(names(a), (Names{1})) << "a mesh given to render is drawn whatever its scope";
}

TEST_F(TraversalTest, AlphaIsTheProductDownFromTheTopmostAncestor) {
    const Held<Mesh> mesh = makeMesh(1, Blending::Alpha);
    const Held<Group> inner = groupOf({mesh}), middle = groupOf({inner}), top = groupOf({middle});
    qelNode_setAlphaFactor(mesh, 0.5f);
    qelNode_setAlphaFactor(inner, 0.75f);
    qelNode_setAlphaFactor(top, 0.5f);
    for (Node* root : std::vector<Node*>{top, middle, mesh, top}) {
        qelGraphics3D_releaseTarget(graphics);
        bind();
        glRecorder.take();
        render(root);
        EXPECT_TRUE(sent({"Color4f(1, 1, 1, 0.184314)"})) << "47 of 255: 0.1875, cut";
    }
}

TEST_F(TraversalTest, TheQueueDrawsByLayerOpacityAndDepth) {
    usePerspective();
    const Held<Mesh> nearer = makeMesh(1, Blending::Alpha), farther = makeMesh(2, Blending::Alpha),
                     background = makeMesh(3, {makeAppearance(Blending::Add, -5)}),
                     both = makeMesh(4, {makeAppearance(Blending::Alpha), makeAppearance(), nullptr});
    move(nearer, 0, 0, -5);
    move(farther, 0, 0, -50);
    move(background, 0, 0, -2);
    move(both, 0, 0, -80);
    const Held<Group> inner = groupOf({farther, both}), root = groupOf({nearer, inner, background});
    EXPECT_EQ(names(root), (Names{3, 4, 4, 2, 1}));
    move(nearer, 0, 0, -60);  // behind the other
    EXPECT_EQ(names(root), (Names{3, 4, 4, 1, 2}));
}

TEST_F(TraversalTest, AMeshByItselfDrawsItsOpaqueSubmeshesFirst) {
    const Held<Appearance> alpha = makeAppearance(Blending::Alpha), replace = makeAppearance(),
                           add = makeAppearance(Blending::Add), plain(qelAppearance_create());
    const Held<Mesh> mesh = makeMesh(1, {alpha, replace, add, plain, nullptr});
    glRecorder.take();
    EXPECT_EQ(render(mesh).size(), 4u);
    EXPECT_EQ(brief(only(glRecorder.take(), "glBlendFunc")),
              "BlendFunc(ONE, ZERO); BlendFunc(SRC_ALPHA, ONE_MINUS_SRC_ALPHA); BlendFunc(ONE, ONE)");
}

// Of two meshes of one group, each has those of more than eight that are the nearest to itself.
TEST_F(TraversalTest, LightsAreChosenForEveryNode) {
    const Held<Mesh> left = makeMesh(1), right = makeMesh(2, {makeAppearance(Blending::Replace, 1)});
    const Held<Group> root = groupOf({left, right});
    move(right, 80, 0, 0);
    for (const int x : {1, 2, 3, 90, 5, 6, 7, 8}) addLight(0x330000, float(x));
    addLight(0xFF0000, 4);
    glRecorder.take();
    render(root);
    GlLines slot;
    for (const GlDrawn& drawn : glRecorder.takeDraws()) slot.push_back(drawn.last("Lightfv(LIGHT3, DIFFUSE"));
    EXPECT_EQ(brief(slot), "Lightfv(LIGHT3, DIFFUSE, {1, 0, 0, 0}); Lightfv(LIGHT3, DIFFUSE, {0.2, 0, 0, 0})");
}

// --- Culling ---

TEST_F(TraversalTest, IndicesBeyondThePositionsFailWithoutBeingFollowed) {
    usePerspective();
    const Held<Mesh> good = makeMesh(1), bad = makeMesh(2, Blending::Alpha);
    const Held<Group> root = groupOf({good, bad});
    const Held<VertexArray> few = makeArray<int16_t>(3, {0, 0, 0, 1, 1, 0, 2, 2, 0});
    const qelTransform place = translation(0, 0, -10), hidden = translation(0, 0, 10);
    for (VertexArray* positions : {few.get(), static_cast<VertexArray*>(nullptr)}) {
        qelVertexBuffer_setPositions(bad->vertexBuffer, nullptr, 1, nullptr);
        if (positions) qelVertexBuffer_setPositions(bad->vertexBuffer, positions, 1, nullptr);
        render(bad, &place, QEL_STATUS_ILLEGAL_STATE);
        render(root, &place, QEL_STATUS_ILLEGAL_STATE);
        render(root, &hidden, QEL_STATUS_ILLEGAL_STATE);
    }
    qelVertexBuffer_setPositions(bad->vertexBuffer, good->vertexBuffer->positions, 1.0f / 1024, nullptr);
    EXPECT_EQ(names(root, &place), (Names{1, 1})) << "mended";
}

// --- Deforming meshes ---

// A skinned mesh with one bone: a group in its skeleton. Its submesh is the square of that name.
struct Skinned {
    Held<Group> skeleton{qelGroup_create()}, bone{qelGroup_create()};
    Held<SkinnedMesh> mesh;

    explicit Skinned(int16_t name) {
        const NamedSquare square(name);
        const Held<Appearance> appearance = makeAppearance();
        Appearance* appearances[] = {appearance};
        TriangleStripArray* strips[] = {square.strip};
        Result result;
        qelGroup_addChild(skeleton, bone);
        mesh = Held<SkinnedMesh>(qelSkinnedMesh_create(square.buffer, strips, appearances, skeleton, 1, &result));
        EXPECT_EQ(qelSkinnedMesh_addTransform(mesh, bone, 1, 0, 4), QEL_STATUS_OK);
    }
};

TEST_F(TraversalTest, ASkinnedMeshIsDrawnWithWhatHangsInItsSkeleton) {
    const Skinned skinned(1);
    const Held<Mesh> hat = makeMesh(2), feather = makeMesh(3);
    const Held<Group> hatGroup = groupOf({hat, feather});
    qelGroup_addChild(skinned.bone, hatGroup);
    const Held<Mesh> after = makeMesh(4);
    const Held<Group> root = groupOf({skinned.mesh, after});
    move(skinned.mesh, 100, 0, 0);
    move(skinned.bone, 0, 7, 0);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(sorted(root), (std::vector<Drawn>{{1, 100, 7, 0}, {2, 100, 7, 0}, {3, 100, 7, 0}, {4, 0, 0, 0}}));
        EXPECT_EQ(sorted(skinned.mesh), (std::vector<Drawn>{{1, 0, 7, 0}, {2, 0, 7, 0}, {3, 0, 7, 0}}));
    }
    qelNode_setRenderingEnable(skinned.skeleton, false);
    EXPECT_EQ(sorted(root), (std::vector<Drawn>{{1, 100, 7, 0}, {4, 0, 0, 0}}));
    qelNode_setScope(skinned.mesh, 2);
    qelNode_setScope(camera, 1);
    EXPECT_EQ(sorted(root), (std::vector<Drawn>{{4, 0, 0, 0}}));
    const Held<SkinnedMesh> copy(static_cast<SkinnedMesh*>(qelSkinnedMesh_duplicate(skinned.mesh)));
    EXPECT_EQ(names(copy), Names{1}) << "without a skeleton to walk";
    EXPECT_EQ(sorted(skinned.mesh), (std::vector<Drawn>{{1, 0, 7, 0}})) << "given to render, whatever its scope";
}

// A skeleton goes with its mesh, any other group with what hangs directly in it.
TEST_F(TraversalTest, WhoseGroupIsInViewIsNotCulled) {
    usePerspective();
    const Skinned skinned(1);
    const Held<Mesh> hat = makeMesh(2), mesh = makeMesh(3, Blending::Alpha), below = makeMesh(4);
    qelGroup_addChild(skinned.skeleton, hat);
    const Held<Group> inner = groupOf({below}), root = groupOf({skinned.mesh, mesh, inner});
    for (Node* node : std::vector<Node*>{skinned.skeleton, mesh, inner}) move(node, 25, 0, 0);
    const qelTransform visible = translation(0, 0, -10), hidden = translation(0, 0, 10);
    const auto sortedNames = [&](Node* node, const qelTransform& place) {
        Names all = names(node, &place);
        std::ranges::sort(all);
        return all;
    };
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(sortedNames(root, visible), (Names{1, 2, 3}));
        EXPECT_EQ(sortedNames(skinned.mesh, visible), (Names{1, 2}));
        EXPECT_EQ(sortedNames(root, hidden), Names{});
        EXPECT_EQ(sortedNames(skinned.mesh, hidden), Names{}) << "where its group was seen last does not matter";
    }
    qelCamera_setGeneric(camera, &identity);
    qelGraphics3D_setCamera(graphics, camera, nullptr);
    EXPECT_EQ(sortedNames(root, hidden), (Names{1, 2, 3, 4})) << "a generic camera culls nothing";
}

// A square that morphs to another; both are called 1.
struct Morphing {
    NamedSquare square{1}, target{1};
    Held<Appearance> appearance = makeAppearance();
    Held<MorphingMesh> mesh;

    Morphing() {
        VertexBuffer* targets[] = {target.buffer};
        TriangleStripArray* strips[] = {square.strip};
        Appearance* appearances[] = {appearance};
        Result result;
        mesh = Held<MorphingMesh>(qelMorphingMesh_create(square.buffer, targets, strips, appearances, 1, 1, &result));
    }
    void setWeight(float weight) const { qelMorphingMesh_setWeights(mesh, &weight); }
};

TEST_F(TraversalTest, AMeshWhoseMorphFailsIsLeftOut) {
    const Morphing morphing;
    morphing.setWeight(0.5f);
    const Held<Mesh> other = makeMesh(2);
    const Held<Group> root = groupOf({morphing.mesh, other});
    EXPECT_EQ(names(root).size(), 2u);
    const Held<VertexArray> few = makeArray<int16_t>(3, {0, 0, 0});
    qelVertexBuffer_setPositions(morphing.target.buffer, nullptr, 1, nullptr);
    qelVertexBuffer_setPositions(morphing.target.buffer, few, 1, nullptr);
    morphing.setWeight(0.5f);
    EXPECT_EQ(names(root), Names{2});
    EXPECT_TRUE(names(morphing.mesh).empty());
}

// Each of the meshes is seen at first, since its sphere reaches into the view, and is then moved aside.
TEST_F(TraversalTest, SpheresFollowThePositions) {
    usePerspective();
    const std::vector<int16_t> aside = {30000, 0, 0, 30001, 0, 0, 30000, 1, 0, 30001, 1, 0};
    const Morphing morphing;
    qelVertexArray_set16(morphing.target.buffer->positions, 0, 4, aside.data());
    const Held<Mesh> written = makeMesh(1), replaced = makeMesh(1);
    const Skinned skinned(1);
    const std::vector<Mesh*> meshes = {written, replaced, morphing.mesh, skinned.mesh};
    for (Mesh* mesh : meshes) EXPECT_EQ(names(mesh), Names{1});
    qelVertexArray_set16(written->vertexBuffer->positions, 0, 4, aside.data());
    const auto array = makeArray<int16_t>(3, aside);
    qelVertexBuffer_setPositions(replaced->vertexBuffer, array, 1.0f / 1024, nullptr);
    morphing.setWeight(1);
    move(skinned.bone, 30, 0, 0);
    for (size_t i = 0; i < meshes.size(); ++i) EXPECT_TRUE(names(meshes[i]).empty()) << i;
}

// More levels than the stack has room for calls.
TEST_F(TraversalTest, NestingTakesNoStack) {
    constexpr int kLevels = 300000;
    Held<Mesh> mesh = makeMesh(1);
    Node* top = mesh.get();
    qelObject3D_ref(top);
    for (int i = 0; i < kLevels; ++i) {
        Group* group = qelGroup_create();
        qelGroup_addChild(group, top);
        qelObject3D_unref(top);
        move(group, 1, 0, 0);
        top = group;
    }
    EXPECT_EQ(render(top), (std::vector<Drawn>{{1, kLevels - 1, 0, 0}})) << "the outermost stands where it is put";
    qelObject3D_unref(top);
}

}  // namespace
