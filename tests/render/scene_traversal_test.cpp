// From a scene graph to draws: which nodes, where, in which order, how opaque.
#include <pthread.h>

#include <functional>

#include "render/texture_upload.h"
#include "scene/duplicate.h"
#include "scene/group.h"
#include "scene/morphing_mesh.h"
#include "scene/skinned_mesh.h"
#include "scene/world.h"
#include "tests/render/graphics_fixture.h"
#include "tests/support/counting_heap.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class TraversalTest : public GraphicsTest {
protected:
    static Held<Group> groupOf(const std::vector<Node*>& children) {
        Held<Group> group(qelGroup_create());
        for (Node* child : children) EXPECT_EQ(qelGroup_addChild(group, child), QEL_STATUS_OK);
        return group;
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
    const std::vector<Drawn> placed = {{1, 1, 0, 5}, {2, 6, 10, 5}, {3, 8, 10, 5}};
    const auto sorted = [](std::vector<Drawn> drawn) {  // opaque entries are queued in no order worth a promise
        std::ranges::sort(drawn, {}, &Drawn::name);
        return drawn;
    };
    EXPECT_EQ(sorted(render(root, &place)), placed) << "the given transform replaces the root's own";

    struct Case {
        const char* what;
        std::function<void()> change;
        std::vector<Drawn> expected;
    };
    for (const Case& test : {
             Case{"nothing changed", [] {}, placed},
             Case{"an ancestor moved", [&] { move(inner, 0, 20, 0); }, {{1, 1, 0, 5}, {2, 6, 20, 5}, {3, 8, 20, 5}}},
             Case{"a leaf moved", [&] { move(c, 5, 0, 0); }, {{1, 1, 0, 5}, {2, 6, 20, 5}, {3, 10, 20, 5}}},
             Case{"a mesh was rendered by itself elsewhere",
                  [&] {
                      EXPECT_EQ(render(b), (std::vector<Drawn>{{2, 0, 0, 0}}));
                  },
                  {{1, 1, 0, 5}, {2, 6, 20, 5}, {3, 10, 20, 5}}},
             Case{"a group was rendered by itself elsewhere",
                  [&] {
                      EXPECT_EQ(sorted(render(inner)), (std::vector<Drawn>{{2, 3, 0, 0}, {3, 5, 0, 0}}));
                  },
                  {{1, 1, 0, 5}, {2, 6, 20, 5}, {3, 10, 20, 5}}},
             Case{"somebody asked for the way to the root",
                  [&] {
                      qelTransform toRoot;
                      qelNode_computeToRoot(c, &toRoot);
                  },
                  {{1, 1, 0, 5}, {2, 6, 20, 5}, {3, 10, 20, 5}}},
             Case{"hidden",
                  [&] {
                      qelNode_setRenderingEnable(inner, false);
                      move(inner, 0, 30, 0);
                  },
                  {{1, 1, 0, 5}}},
             Case{"back after a move",
                  [&] { qelNode_setRenderingEnable(inner, true); },
                  {{1, 1, 0, 5}, {2, 6, 30, 5}, {3, 10, 30, 5}}},
             Case{"hung elsewhere",
                  [&] {
                      qelGroup_removeChild(inner, b);
                      qelGroup_addChild(root, b);
                  },
                  {{1, 1, 0, 5}, {2, 3, 0, 5}, {3, 10, 30, 5}}},
         }) {
        test.change();
        EXPECT_EQ(sorted(render(root, &place)), test.expected) << test.what;
    }
    EXPECT_EQ(sorted(render(root)), (std::vector<Drawn>{{1, 1, 0, 0}, {2, 3, 0, 0}, {3, 10, 30, 0}}))
        << "no transform: the identity";
}

TEST_F(TraversalTest, DisabledNodesAreSkippedWithWhatIsBelow) {
    const Held<Mesh> a = makeMesh(1), b = makeMesh(2), c = makeMesh(3), d = makeMesh(4);
    const Held<Group> inner = groupOf({b}), middle = groupOf({inner, c});
    const Held<Group> root = groupOf({a, middle, d});
    for (Node* node : std::vector<Node*>{a, b, c, d, inner, middle}) {
        const auto shown = [&] {
            std::vector<int> all = names(root);
            std::ranges::sort(all);
            return all;
        };
        EXPECT_THAT(shown(), ElementsAre(1, 2, 3, 4));
        qelNode_setRenderingEnable(node, false);
        std::vector<int> expected;
        for (const auto& [name, mesh] : {std::pair<int, Node*>{1, a}, {2, b}, {3, c}, {4, d}})
            if (!qelNode_isAncestor(node, mesh)) expected.push_back(name);
        EXPECT_EQ(shown(), expected);
        qelNode_setRenderingEnable(node, true);
    }
}

TEST_F(TraversalTest, WorldsAndGroupsWithEmptySlotsAreWalked) {
    const Held<World> world(qelWorld_create());
    const Held<Mesh> mesh = makeMesh(1), other = makeMesh(2);
    const Held<Light> light(qelLight_create());
    const Held<Group> inner = groupOf({});
    for (Node* child : std::vector<Node*>{light, inner, mesh}) qelGroup_addChild(world, child);
    EXPECT_THAT(names(world), ElementsAre(1));
    const Held<World> slots(static_cast<World*>(qelObject3D_duplicate(world)));  // of three slots, all empty
    EXPECT_THAT(names(slots), IsEmpty());
    qelGroup_addChild(slots, other);
    EXPECT_THAT(names(slots), ElementsAre(2));
    qelNode_setRenderingEnable(light, false);
    render(light, nullptr, QEL_STATUS_ILLEGAL_ARGUMENT);
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
    EXPECT_THAT(names(root), ElementsAre(2));
    qelNode_setScope(camera, 8);
    EXPECT_THAT(names(root), IsEmpty());
    EXPECT_THAT(names(a), ElementsAre(1)) << "a mesh given to render is drawn whatever its scope";
}

TEST_F(TraversalTest, AlphaIsTheProductDownFromTheTopmostAncestor) {
    const Held<Mesh> mesh = makeMesh(1, Blending::Alpha);
    const Held<Group> inner = groupOf({mesh}), middle = groupOf({inner}), top = groupOf({middle});
    qelNode_setAlphaFactor(mesh, 0.5f);
    qelNode_setAlphaFactor(inner, 0.75f);
    qelNode_setAlphaFactor(top, 0.5f);
    const int alpha = 255 * int(0.5f * 0.75f * 0.5f * 16384) >> 14;
    for (Node* root : std::vector<Node*>{top, middle, mesh, top}) {
        qelGraphics3D_releaseTarget(graphics);
        bind();
        glRecorder.take();
        render(root);
        EXPECT_THAT(glRecorder.take(), testing::Contains("glColor4f(1, 1, 1, " + printed(float(alpha) / 255) + ")"));
    }
}

TEST_F(TraversalTest, TheQueueDrawsByLayerOpacityAndDepth) {
    usePerspective();
    const Held<Mesh> nearer = makeMesh(1, Blending::Alpha), farther = makeMesh(2, Blending::Alpha),
                     opaque = makeMesh(3), background = makeMesh(4, {makeAppearance(Blending::Add, -5)}),
                     both = makeMesh(5, {makeAppearance(Blending::Alpha), makeAppearance(), nullptr});
    move(nearer, 0, 0, -5);
    move(farther, 0, 0, -50);
    move(opaque, 0, 0, -20);
    move(background, 0, 0, -2);
    move(both, 0, 0, -80);
    const Held<Group> inner = groupOf({farther, both}), root = groupOf({nearer, inner, opaque, background});
    EXPECT_THAT(names(root), testing::AnyOf(ElementsAre(4, 3, 5, 5, 2, 1), ElementsAre(4, 5, 3, 5, 2, 1)));
    move(nearer, 0, 0, -60);  // behind the other
    EXPECT_THAT(names(root), testing::AnyOf(ElementsAre(4, 3, 5, 5, 1, 2), ElementsAre(4, 5, 3, 5, 1, 2)));
}

TEST_F(TraversalTest, AMeshByItselfDrawsItsOpaqueSubmeshesFirst) {
    std::vector<Held<Appearance>> appearances;
    std::vector<Appearance*> list;
    for (const Blending blending : {Blending::Alpha, Blending::Replace, Blending::Add, Blending::Replace})
        list.push_back(appearances.emplace_back(makeAppearance(blending)));
    qelAppearance_setCompositingMode(appearances[3], nullptr);
    list.push_back(nullptr);
    const Held<Mesh> mesh = makeMesh(1, list);
    glRecorder.take();
    EXPECT_EQ(render(mesh).size(), 4u);
    GlLines order;
    for (const std::string& line : glRecorder.take())
        if (line.starts_with("glBlendFunc")) order.push_back(line);
    EXPECT_THAT(order, ElementsAre("glBlendFunc(GL_ONE, GL_ZERO)", "glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA)",
                                   "glBlendFunc(GL_ONE, GL_ONE)"));
}

// Of two meshes of one group, each has the lights of its scope, and where there are more than eight the nearest to itself.
TEST_F(TraversalTest, LightsAreChosenForEveryNode) {
    std::vector<Held<Light>> lights;
    const auto addLight = [&](float x, int32_t scope) {
        Light* light = lights.emplace_back(qelLight_create());
        qelLight_setColor(light, uint32_t(lights.size()));
        qelNode_setScope(light, scope);
        const qelTransform place = translation(x, 0, 0);
        Result result;
        qelGraphics3D_addLight(graphics, light, &place, &result);
    };
    const Held<Mesh> left = makeMesh(1), right = makeMesh(2, {makeAppearance(Blending::Replace, 1)});
    const Held<Group> root = groupOf({left, right});
    move(right, 80, 0, 0);
    // The colours, which are the numbers of the lights, in slots 0 and 3 at each of the draws.
    auto slots = [&, colors = std::array<int, 8>{}]() mutable {
        render(root);
        std::vector<std::pair<int, int>> all;
        for (const std::string& line : glRecorder.take()) {
            int slot;
            float blue;
            if (std::sscanf(line.c_str(), "glLightfv(GL_LIGHT%d, GL_DIFFUSE, {0, 0, %f", &slot, &blue) == 2)
                colors[size_t(slot)] = int(std::lround(blue * 255));
            if (line.starts_with("glDraw")) all.emplace_back(colors[0], colors[3]);
        }
        return all;
    };
    qelNode_setScope(left, 1);
    qelNode_setScope(right, 2);
    addLight(0, 2);
    addLight(0, 1);
    EXPECT_THAT(slots(), ElementsAre(std::pair(2, 0), std::pair(1, 0)));

    qelGraphics3D_resetLights(graphics);
    lights.clear();
    qelNode_setScope(right, 1);
    for (const int x : {1, 2, 3, 90, 5, 6, 7, 8, 4}) addLight(float(x), 1);
    EXPECT_THAT(slots(), ElementsAre(std::pair(1, 9), std::pair(9, 4)));
}

// --- Culling ---

TEST_F(TraversalTest, SubmeshesOutsideTheViewAreNotDrawn) {
    struct Case {
        const char* what;
        float x, y, z, halfSide;
        bool perspective, parallel;
    };
    // The perspective sees 90 degrees, the parallel view 20 x 20, both from 1 to 100. A sphere has the radius of half
    // the square's diagonal.
    const Case cases[] = {
        {"in the middle", 0, 0, -10, 1, true, true},
        {"behind", 0, 0, 10, 1, false, false},
        {"beyond far", 0, 0, -102, 1, false, false},
        {"its sphere reaches over far", 0, 0, -101, 1, true, true},
        {"before near, not its sphere", 0, 0, 0, 1, true, true},
        {"beside", 30, 0, -10, 1, false, false},
        {"above", 0, -30, -10, 1, false, false},
        {"beside, but large", 30, 0, -10, 25, true, true},
        {"beside by less than the sphere", 11, 0, -10, 1, true, true},
        {"beside by more", 12.5f, 0, -10, 1, false, false},
        {"only the wide end sees it", 40, 0, -60, 1, true, false},
    };
    for (const bool isPerspective : {true, false}) {
        if (isPerspective)
            usePerspective();
        else
            qelCamera_setParallel(camera, 20, 1, 1, 100);
        qelGraphics3D_setCamera(graphics, camera, nullptr);
        for (const Case& c : cases) {
            const bool expected = isPerspective ? c.perspective : c.parallel;
            const Held<Mesh> mesh = makeMesh(1, Blending::Replace, c.halfSide);
            move(mesh, c.x, c.y, c.z);
            const Held<Group> root = groupOf({mesh});
            // The group's own origin, which would stand for its children, is kept out of sight.
            const qelTransform away = translation(0, 0, 5000);
            move(mesh, c.x, c.y, c.z - 5000);
            EXPECT_EQ(names(root, &away).size(), expected) << c.what << ", in a group";
            const qelTransform place = translation(c.x, c.y, c.z);
            EXPECT_EQ(names(mesh, &place).size(), expected) << c.what << ", by itself";
        }
    }
}

TEST_F(TraversalTest, WhoseGroupIsInViewIsNotCulled) {
    usePerspective();
    const Held<Mesh> mesh = makeMesh(1), below = makeMesh(2);
    const Held<Group> inner = groupOf({below}), root = groupOf({mesh, inner});
    move(mesh, 500, 0, 0);
    move(inner, 500, 0, 0);
    const qelTransform visible = translation(0, 0, -10), hidden = translation(0, 0, 10);
    EXPECT_THAT(names(root, &visible), ElementsAre(1)) << "only for its own children";
    EXPECT_THAT(names(root, &hidden), IsEmpty());
    qelCamera_setGeneric(camera, &identity);
    qelGraphics3D_setCamera(graphics, camera, nullptr);
    EXPECT_EQ(names(root, &hidden).size(), 2u) << "a generic camera culls nothing";
}

// The box counts the vertices that are used; of an index list also the first one of the array.
TEST_F(TraversalTest, SpheresHoldWhatIsDrawn) {
    usePerspective();
    struct Case {
        const char* what;
        bool isList, isNarrow;
        bool isDrawn;
    };
    for (const Case& c : {Case{"implicit strip", false, false, false}, Case{"index list", true, false, true},
                          Case{"bytes", false, true, false}}) {
        // Vertex 0 stands in view; the triangle that is drawn does not.
        const Held<VertexBuffer> buffer(qelVertexBuffer_create());
        const float bias[] = {0, 0, -10};
        if (c.isNarrow)
            qelVertexBuffer_setPositions(buffer, makeArray<int8_t>(3, {0, 0, 0, 100, 0, 0, 101, 0, 0, 100, 1, 0}), 1,
                                         bias);
        else
            qelVertexBuffer_setPositions(buffer, makeArray<int16_t>(3, {0, 0, 0, 100, 0, 0, 101, 0, 0, 100, 1, 0}), 1,
                                         bias);
        Result result;
        int32_t length = 3, indices[] = {1, 2, 3};
        const Held<TriangleStripArray> strip(
            c.isList ? qelTriangleStripArray_createExplicit(&length, 1, indices, 3, true, &result)
                     : qelTriangleStripArray_createImplicit(1, &length, 1, true, &result));
        TriangleStripArray* strips[] = {strip};
        const Held<Appearance> appearance = makeAppearance();
        Appearance* appearances[] = {appearance};
        const Held<Mesh> mesh(qelMesh_create(buffer, strips, appearances, 1, &result));
        glRecorder.draws.clear();
        const qelTransform outOfSight = translation(0, 0, 0.5f);  // the origin only: the near plane is at 1
        EXPECT_EQ(qelGraphics3D_render(graphics, mesh, &outOfSight), QEL_STATUS_OK);
        EXPECT_EQ(glRecorder.draws.size(), c.isDrawn) << c.what;
    }
}

TEST_F(TraversalTest, IndicesBeyondThePositionsFailWithoutBeingFollowed) {
    usePerspective();
    const Held<Mesh> good = makeMesh(1), bad = makeMesh(2, Blending::Alpha);
    const Held<VertexArray> few = makeArray<int16_t>(3, {0, 0, 0, 1, 1, 0, 2, 2, 0});
    const Held<Group> root = groupOf({good, bad});
    const qelTransform place = translation(0, 0, -10), hidden = translation(0, 0, 10);
    for (VertexArray* positions : {few.get(), static_cast<VertexArray*>(nullptr)}) {
        Held<VertexArray> whole(bad->vertexBuffer->positions);
        qelObject3D_ref(whole);
        qelVertexBuffer_setPositions(bad->vertexBuffer, nullptr, 1, nullptr);
        if (positions) qelVertexBuffer_setPositions(bad->vertexBuffer, positions, 1, nullptr);
        render(bad, &place, QEL_STATUS_ILLEGAL_STATE);
        render(root, &place, QEL_STATUS_ILLEGAL_STATE);
        render(root, &hidden, QEL_STATUS_ILLEGAL_STATE);
        qelVertexBuffer_setPositions(bad->vertexBuffer, nullptr, 1, nullptr);
        qelVertexBuffer_setPositions(bad->vertexBuffer, whole, 1.0f / 1024, nullptr);
        EXPECT_THAT(names(root, &place), ElementsAre(1, 2)) << "mended";
    }
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
    const auto sorted = [this](Node* node) {
        std::vector<Drawn> drawn = render(node);
        std::ranges::sort(drawn, {}, &Drawn::name);
        return drawn;
    };
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(sorted(root), (std::vector<Drawn>{{1, 100, 7, 0}, {2, 100, 7, 0}, {3, 100, 7, 0}, {4, 0, 0, 0}}));
        EXPECT_EQ(sorted(skinned.mesh), (std::vector<Drawn>{{1, 0, 7, 0}, {2, 0, 7, 0}, {3, 0, 7, 0}}));
    }
    qelNode_setRenderingEnable(skinned.skeleton, false);
    EXPECT_EQ(sorted(root), (std::vector<Drawn>{{1, 100, 7, 0}, {4, 0, 0, 0}}));
    qelNode_setScope(skinned.mesh, 2);
    qelNode_setScope(camera, 1);
    EXPECT_EQ(sorted(root), (std::vector<Drawn>{{4, 0, 0, 0}}));
    EXPECT_EQ(sorted(skinned.mesh), (std::vector<Drawn>{{1, 0, 7, 0}})) << "given to render, whatever its scope";
}

TEST_F(TraversalTest, ASkinnedMeshInViewKeepsItsSkeletonFromBeingCulled) {
    usePerspective();
    const Skinned skinned(1);
    const Held<Mesh> hat = makeMesh(2);
    qelGroup_addChild(skinned.skeleton, hat);
    const Held<Group> root = groupOf({skinned.mesh});
    move(skinned.skeleton, 500, 0, 0);
    const qelTransform visible = translation(0, 0, -10), hidden = translation(0, 0, 10);
    EXPECT_EQ(names(root, &visible).size(), 2u);
    EXPECT_THAT(names(root, &hidden), IsEmpty());
    EXPECT_EQ(names(skinned.mesh, &visible).size(), 2u);
    EXPECT_EQ(names(root, &visible).size(), 2u);
    EXPECT_THAT(names(skinned.mesh, &hidden), IsEmpty()) << "where its group was seen last does not matter";
}

TEST_F(TraversalTest, ACopyOfASkinnedMeshAloneHasNoSkeletonToWalk) {
    const Skinned skinned(1);
    const Held<SkinnedMesh> copy(static_cast<SkinnedMesh*>(qelSkinnedMesh_duplicate(skinned.mesh)));
    EXPECT_THAT(names(copy), ElementsAre(1));
    const Held<Group> root = groupOf({copy});
    EXPECT_THAT(names(root), ElementsAre(1));
}

TEST_F(TraversalTest, AMeshWhoseMorphFailsIsLeftOut) {
    const NamedSquare square(1), squashed(1);
    VertexBuffer* targets[] = {squashed.buffer};
    TriangleStripArray* strips[] = {square.strip};
    const Held<Appearance> appearance = makeAppearance();
    Appearance* appearances[] = {appearance};
    Result result;
    const Held<MorphingMesh> morphing(
        qelMorphingMesh_create(square.buffer, targets, strips, appearances, 1, 1, &result));
    const float weight = 0.5f;
    qelMorphingMesh_setWeights(morphing, &weight);
    const Held<Mesh> other = makeMesh(2);
    const Held<Group> root = groupOf({morphing, other});
    EXPECT_EQ(names(root).size(), 2u);
    const Held<VertexArray> few = makeArray<int16_t>(3, {0, 0, 0});
    qelVertexBuffer_setPositions(squashed.buffer, nullptr, 1, nullptr);
    qelVertexBuffer_setPositions(squashed.buffer, few, 1, nullptr);
    qelMorphingMesh_setWeights(morphing, &weight);
    EXPECT_THAT(names(root), ElementsAre(2));
    EXPECT_THAT(names(morphing), IsEmpty());
}

// Each of the meshes is seen at first, since its sphere reaches into the view, and is then moved aside.
TEST_F(TraversalTest, SpheresFollowThePositions) {
    usePerspective();
    const NamedSquare square(1), moved(1);
    const std::vector<int16_t> aside = {30000, 0, 0, 30001, 0, 0, 30000, 1, 0, 30001, 1, 0};
    qelVertexArray_set16(moved.buffer->positions, 0, 4, aside.data());
    const Held<Appearance> appearance = makeAppearance();
    Appearance* appearances[] = {appearance};
    TriangleStripArray* strips[] = {square.strip};
    VertexBuffer* targets[] = {moved.buffer};
    Result result;
    const Held<MorphingMesh> morphing(
        qelMorphingMesh_create(square.buffer, targets, strips, appearances, 1, 1, &result));
    const Held<Mesh> written = makeMesh(1), replaced = makeMesh(1);
    const Skinned skinned(1);
    struct Case {
        const char* what;
        Mesh* mesh;
        std::function<void()> moveAside;
    };
    const float weight = 1;
    for (const Case& c : {
             Case{"written", written,
                  [&] { qelVertexArray_set16(written->vertexBuffer->positions, 0, 4, aside.data()); }},
             Case{"replaced", replaced,
                  [&] {
                      const auto array = makeArray<int16_t>(3, aside);
                      qelVertexBuffer_setPositions(replaced->vertexBuffer, array, 1.0f / 1024, nullptr);
                  }},
             Case{"morphed", morphing, [&] { qelMorphingMesh_setWeights(morphing, &weight); }},
             Case{"skinned", skinned.mesh, [&] { move(skinned.bone, 30, 0, 0); }},
         }) {
        EXPECT_THAT(names(c.mesh), ElementsAre(1)) << c.what;
        c.moveAside();
        EXPECT_THAT(names(c.mesh), IsEmpty()) << c.what;
    }
}

// --- Depth and failures ---

// Runs on a stack that is too small for one call per level of a deep tree.
void runOnSmallStack(std::function<void()> work) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 512 * 1024);
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST_F(TraversalTest, NestingTakesNoStack) {
    constexpr int kLevels = 30000;
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
    runOnSmallStack([&] {
        EXPECT_EQ(render(top), (std::vector<Drawn>{{1, kLevels - 1, 0, 0}})) << "the outermost stands where it is put";
        qelObject3D_unref(top);
    });
}

TEST_F(TraversalTest, ATextureThatCannotBeUploadedEndsTheRenderUntilItCan) {
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    const Held<Appearance> textured = makeAppearance(Blending::Replace, 1), last = makeAppearance(Blending::Replace, 2);
    const Held<Mesh> first = makeMesh(1), second = makeMesh(2, {textured}), third = makeMesh(3, {last});
    qelAppearance_setTexture(textured, 0, texture);
    const Held<VertexArray> coordinates = makeArray<int16_t>(2, {0, 0, 8, 0, 0, 8, 8, 8});
    qelVertexBuffer_setTexCoords(second->vertexBuffer, 0, coordinates, 1, nullptr);
    const Held<Group> root = groupOf({first, second, third});
    glRecorder.uploadsUntilOutOfMemory = 0;
    EXPECT_EQ(render(root, nullptr, QEL_STATUS_OUT_OF_MEMORY).size(), 1u) << "nothing behind it is drawn";
    EXPECT_EQ(names(root).size(), 3u);
    qelGLBackend_setTextureMemoryLimit(graphics->backend, 64);
    const Held<Image2D> other = makeImage(ImageFormat::Rgb, 8, 8);
    qelTexture2D_setImage(texture, other);
    EXPECT_EQ(render(root, nullptr, QEL_STATUS_OUT_OF_MEMORY).size(), 1u);
    qelGLBackend_setTextureMemoryLimit(graphics->backend, 0);
    EXPECT_EQ(names(root).size(), 3u);
}

TEST(Traversal, EveryAllocationMayFailOnce) {
    for (int32_t failAt = 0;; ++failAt) {
        SCOPED_TRACE("allocation " + std::to_string(failAt));
        CountingHeap heap;
        bool failed;
        {
            glRecorder.reset();
            Graphics3D* graphics = qelGraphics3D_create(kHintTrueColor, 8, 8);
            int target;
            qelGraphics3D_bindTarget(graphics, &target, {0, 0, 8, 8}, 8, 8, true, kHintTrueColor);
            const Skinned skinned(1);
            const Held<Mesh> mesh = makeMesh(2, Blending::Alpha);
            const Held<Camera> camera(qelCamera_create());
            qelGraphics3D_setCamera(graphics, camera, nullptr);
            qelGraphics3D_render(graphics, skinned.mesh, nullptr);  // its tables, once not to be had, never are
            const Held<VertexArray> colors = makeArray<uint8_t>(3, std::vector<uint8_t>(12, 99));
            qelVertexBuffer_setColors(mesh->vertexBuffer, colors);  // to be copied with an alpha
            const Held<Group> root(qelGroup_create());
            qelGroup_addChild(root, skinned.mesh);
            qelGroup_addChild(root, mesh);
            heap.failAfter(failAt);
            const Result result = qelGraphics3D_render(graphics, root, nullptr);
            failed = heap.hasFailed();
            EXPECT_EQ(result, failed ? QEL_STATUS_OUT_OF_MEMORY : QEL_STATUS_OK);
            glRecorder.draws.clear();
            EXPECT_EQ(qelGraphics3D_render(graphics, root, nullptr), QEL_STATUS_OK);
            EXPECT_EQ(glRecorder.draws.size(), 2u);
            heap.failAfter(kNeverFail);
            EXPECT_EQ(qelGraphics3D_render(graphics, root, nullptr), QEL_STATUS_OK);
            EXPECT_EQ(heap.calls(), 0) << "a frame like the one before allocates nothing";
            qelGraphics3D_destroy(graphics);
        }
        if (!failed || testing::Test::HasFailure()) {
            EXPECT_GT(failAt, 1);
            break;
        }
    }
}

}  // namespace
