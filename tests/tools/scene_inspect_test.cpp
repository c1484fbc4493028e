// Scenes as the inspector sees them, and as the library does: both must agree on which packages are good.
#include "tools/inspect/scene_inspector.h"

#include <gmock/gmock.h>

#include <random>

#include "k8.h"
#include "tools/encode/m3g_encoder.h"
#include "tools/inspect/content_reader.h"

namespace {

using namespace encode;
using Bytes = std::vector<uint8_t>;

bool libraryTakes(const Bytes& bytes) {
    MALK8_touchMA();
    K8Handle* root = K8Loader_loadObject(int32_t(bytes.size()), bytes.data(), &MALK8_malc);
    if (!root) return false;
    K8Handle** others = reinterpret_cast<K8Group*>(root)->info->childData;
    for (; *others; ++others) K8Object3D_destroy(*others);
    K8Object3D_destroy(root);
    return true;
}

// Empty for a package without a problem.
std::string problemOf(const Bytes& bytes) {
    try {
        inspect::inspectScene(bytes);
        return "";
    } catch (const inspect::ContentProblem& problem) {
        EXPECT_LE(problem.offset, bytes.size());
        return "offset " + std::to_string(problem.offset) + ": " + problem.what();
    }
}

// Every class, and the fields that a class has only in some cases.
struct RichScene {
    M3gScene scene;
    M3gRef image, appearance, bone, skeleton, skinned, world;
};

RichScene richScene() {
    RichScene rich;
    M3gScene& s = rich.scene;
    s.add(M3gHeader{.author = "a"});
    s.add(M3gExternalReference{.name = "b"});
    const M3gRef sequence =
        s.add(M3gKeyframeSequence{.keyframes = {{0, {0, 0, 0}}, {500, {1, 2, 3}}, {900, {0, 1, 0}}}});
    const M3gRef turning = s.add(M3gKeyframeSequence{.interpolation = M3gInterpolation::Slerp,
                                                     .encoding = M3gKeyframeEncoding::Quantised8,
                                                     .keyframes = {{0, {0, 0, 0, 1}}, {9, {0, 1, 0, 0}}}});
    const M3gRef fading =
        s.add(M3gKeyframeSequence{.encoding = M3gKeyframeEncoding::Quantised16, .keyframes = {{0, {1}}}});
    const M3gRef controller = s.add(M3gAnimationController{});
    const auto track = [&](M3gRef of, M3gProperty property) {
        return s.add(M3gAnimationTrack{.sequence = of, .controller = controller, .property = property});
    };
    const M3gRef moves = track(sequence, M3gProperty::Translation), grows = track(sequence, M3gProperty::Scale);
    const M3gRef turns = track(turning, M3gProperty::Orientation), fades = track(fading, M3gProperty::Alpha);

    rich.image = s.add(M3gImage2D{.width = 2, .height = 2, .palette = {0, 0, 0, 9, 9, 9}, .pixels = {0, 1, 1, 0}});
    const M3gRef blank = s.add(M3gImage2D{.format = M3gImageFormat::Rgba, .isMutable = true, .width = 4, .height = 8});
    const M3gRef texture = s.add(M3gTexture2D{.image = blank, .levelFilter = M3gTextureFilter::Nearest});
    const M3gRef turned =
        s.add(M3gTexture2D{.transform = {.components = M3gComponents{.angle = 30}}, .image = rich.image});
    rich.appearance = s.add(M3gAppearance{.compositingMode = s.add(M3gCompositingMode{}),
                                          .fog = s.add(M3gFog{.mode = M3gFogMode::Exponential}),
                                          .polygonMode = s.add(M3gPolygonMode{}),
                                          .material = s.add(M3gMaterial{.object = {.tracks = {fades}}}),
                                          .textures = {texture, turned}});
    const M3gRef positions = s.add(M3gVertexArray{.values = {0, 0, 0, 10, 0, 0, 0, 20, 0}});
    const M3gRef colors =
        s.add(M3gVertexArray{.componentSize = 1, .asDeltas = true, .values = {0, 0, 0, 255, 9, 9, 0, 1, 2}});
    const M3gRef corners = s.add(M3gVertexArray{.componentCount = 2, .values = {0, 0, 1, 0, 0, 1}});
    const M3gRef buffer = s.add(
        M3gVertexBuffer{.positions = {positions, 0.5f, {1, 0, 0}},
                        .normals = s.add(M3gVertexArray{.componentSize = 1, .values = {0, 0, 1, 0, 0, 1, 0, 0, 1}}),
                        .colors = colors,
                        .texCoords = {{corners}, {corners}}});
    const M3gRef listed = s.add(M3gTriangleStripArray{.indices = {0, 1, 2}, .strips = {3}});
    const M3gRef consecutive = s.add(M3gTriangleStripArray{.start = 0, .strips = {3}});

    const M3gNode shifted = {.transform = {.components = M3gComponents{.translation = {0, 0, 5}, .scale = {2, 2, 2}}}};
    const M3gRef camera = s.add(M3gCamera{});
    const M3gRef light = s.add(
        M3gLight{.node = {.alignment = M3gAlignment{.zTarget = M3gAlignmentTarget::Origin, .zReference = camera}}});
    const M3gRef mesh =
        s.add(M3gMesh{.object = {.userId = 7, .tracks = {moves, grows, turns}, .parameters = {{1, {1, 2}}}},
                      .node = shifted,
                      .vertices = buffer,
                      .submeshes = {{listed, rich.appearance}, {consecutive}}});
    const M3gRef morphing =
        s.add(M3gMorphingMesh{.vertices = buffer, .submeshes = {{listed}}, .targets = {{buffer, 1}}});
    rich.bone = s.add(M3gGroup{.node = shifted});
    rich.skeleton = s.add(M3gGroup{.children = {rich.bone}});
    rich.skinned = s.add(M3gSkinnedMesh{.vertices = buffer,
                                        .submeshes = {{listed, rich.appearance}},
                                        .skeleton = rich.skeleton,
                                        .bindings = {{.bone = rich.bone, .vertexCount = 2}}});
    const M3gRef sprite = s.add(M3gSprite3D{.image = rich.image, .appearance = rich.appearance});
    const M3gRef background = s.add(M3gBackground{.image = rich.image});
    const M3gRef group =
        s.add(M3gGroup{.node = {.transform = {.matrix = M3gMatrix{1, 0, 0, 100, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}}},
                       .children = {mesh, light, sprite}});
    rich.world = s.add(M3gWorld{
        .children = {group, morphing, rich.skinned, camera}, .activeCamera = camera, .background = background});
    s.sections = {1, s.objects.size() - 2, 1};
    return rich;
}

TEST(SceneInspector, AgreesWithTheLibraryOnEveryField) {
    const EncodedFile good = encodeScenePackage(richScene().scene);
    ASSERT_EQ(problemOf(good.bytes), "");
    ASSERT_TRUE(libraryTakes(good.bytes));
    std::mt19937 random(3);
    size_t taken = 0, refused = 0;
    for (const Field& field : good.fields) {
        const uint64_t value = good.get(field);
        for (const uint64_t other : {value + 1, value - 1, value ^ uint64_t(1) << (field.bitCount - 1), uint64_t(0),
                                     ~uint64_t(0), value + 5, value / 2, value << 1, uint64_t(random() % 64)}) {
            EncodedFile changed = good;
            changed.set(field, other);
            const std::string problem = problemOf(changed.bytes);
            ASSERT_EQ(problem.empty(), libraryTakes(changed.bytes))
                << field.name << " set from " << value << " to " << changed.get(field) << ": " << problem;
            ++(problem.empty() ? taken : refused);
        }
    }
    EXPECT_GT(taken, 1000u);
    EXPECT_GT(refused, 1000u);
}

TEST(SceneInspector, AgreesWithTheLibraryOnEveryLength) {
    const Bytes good = encodeScenePackage(richScene().scene).bytes;
    for (size_t length = 1; length < good.size(); ++length) {
        const Bytes cut(good.begin(), good.begin() + ptrdiff_t(length));
        const std::string problem = problemOf(cut);
        ASSERT_EQ(problem.empty(), libraryTakes(cut)) << "cut to " << length << ": " << problem;
    }
}

template <typename Record>
Record& recordOf(M3gScene& scene, M3gRef ref) {
    return std::get<Record>(scene.objects[ref.position]);
}

M3gScene blankImages(uint32_t count) {
    M3gScene scene;
    M3gWorld world;
    for (uint32_t i = 0; i < count; ++i) {
        const M3gRef image =
            scene.add(M3gImage2D{.format = M3gImageFormat::Rgba, .isMutable = true, .width = 2048, .height = 2048});
        world.children.push_back(scene.add(M3gSprite3D{.image = image}));
    }
    scene.add(world);
    return scene;
}

M3gScene spritesOverOneImage(uint32_t count) {
    M3gScene scene = blankImages(1);
    scene.objects.pop_back();
    M3gWorld world{.children = {{1}}};
    while (world.children.size() < count) world.children.push_back(scene.add(M3gSprite3D{.image = {0}}));
    scene.add(world);
    return scene;
}

M3gScene morphOfOneStrip(uint32_t submeshCount, uint32_t targetCount, const std::vector<uint32_t>& indices) {
    M3gScene scene;
    const M3gRef positions = scene.add(M3gVertexArray{.values = std::vector<int32_t>(30000)});
    const M3gRef buffer = scene.add(M3gVertexBuffer{.positions = {positions}});
    const uint32_t length = indices.empty() ? 65535 : uint32_t(indices.size());
    const M3gRef strip = scene.add(M3gTriangleStripArray{.indices = indices, .strips = {length}});
    const M3gRef mesh = scene.add(M3gMorphingMesh{.vertices = buffer,
                                                  .submeshes = std::vector(submeshCount, M3gSubmesh{strip}),
                                                  .targets = std::vector(targetCount, M3gMorphTarget{buffer})});
    scene.add(M3gWorld{.children = {mesh}});
    return scene;
}

M3gScene withBone(const M3gTransform& transform) {
    RichScene rich = richScene();
    recordOf<M3gGroup>(rich.scene, rich.bone).node.transform = transform;
    return rich.scene;
}

M3gScene withSubmeshes(uint32_t count) {  // of two textures each
    RichScene rich = richScene();
    std::vector<M3gSubmesh>& submeshes = recordOf<M3gSkinnedMesh>(rich.scene, rich.skinned).submeshes;
    submeshes.assign(count, submeshes[0]);
    return rich.scene;
}

TEST(SceneInspector, AgreesWithTheLibraryOnWhatNoFieldDecides) {
    struct Case {
        const char* says;  // part of the problem; empty: there is none
        M3gScene scene;
    };
    const Case cases[] = {
        {"cannot be inverted", withBone({.components = M3gComponents{.scale = {1, 0, 1}, .angle = 40}})},
        {"cannot be inverted", withBone({.matrix = M3gMatrix{1, 2, 3, 0, 1, 2, 3, 0, 0, 0, 1, 0, 0, 0, 0, 1}})},
        {"", withBone({.components = M3gComponents{.scale = {1, 1e-30f, 1}, .angle = 40}})},
        {"", withSubmeshes(32)},
        {"66 textures", withSubmeshes(33)},
        {"", blankImages(1)},
        {"the blank image takes", blankImages(2)},
        {"", spritesOverOneImage(4)},
        {"the sprite takes", spritesOverOneImage(5)},
        {"", morphOfOneStrip(1000, 1, {})},
        {"drawing takes", morphOfOneStrip(1500, 1, {})},
        {"", morphOfOneStrip(1000, 1, std::vector<uint32_t>(20000))},
        {"drawing takes", morphOfOneStrip(1500, 1, std::vector<uint32_t>(20000))},
        {"", morphOfOneStrip(1, 1000, {})},
        {"morphing takes", morphOfOneStrip(1, 1500, {})},
        {"expected a single World", {.objects = {M3gWorld{}, M3gWorld{}}}},
        {"expected that of a World", {.objects = {M3gGroup{}}}},
    };
    for (const Case& c : cases) {
        const Bytes bytes = encodeScenePackage(c.scene).bytes;
        const std::string problem = problemOf(bytes);
        EXPECT_EQ(problem.empty(), libraryTakes(bytes)) << problem;
        EXPECT_EQ(problem.empty(), !*c.says) << problem;
        EXPECT_THAT(problem, testing::HasSubstr(c.says));
    }
}

TEST(SceneInspector, TellsWhatTheSceneHolds) {
    const RichScene rich = richScene();
    const inspect::SceneSummary scene = inspect::inspectScene(encodeScenePackage(rich.scene).bytes);
    EXPECT_EQ(scene.header->author, "a");
    EXPECT_THAT(scene.externalReferences, testing::ElementsAre("b"));
    EXPECT_EQ(scene.sections.size(), 3u);
    EXPECT_EQ(scene.sections[1].objectCount, scene.objects.size() - 1);

    std::string tree;
    for (const inspect::SceneTreeNode& node : inspect::treeOf(scene))
        tree += std::string(node.depth, ' ') + nameOf(scene.at(node.number).type()) + "\n";
    EXPECT_EQ(tree,
              "World\n Group\n  Mesh\n  Light\n  Sprite3D\n MorphingMesh\n SkinnedMesh\n  Group\n   Group\n Camera\n");

    // The header and the external reference have no number.
    const auto numberOf = [](M3gRef ref) { return ref.position - 2 + inspect::kFirstSceneNumber; };
    EXPECT_EQ(scene.world, numberOf(rich.world));
    const auto& skinned = std::get<inspect::SceneSkinnedMesh>(scene.at(numberOf(rich.skinned)).content);
    EXPECT_EQ(skinned.skeleton, numberOf(rich.skeleton));
    EXPECT_EQ(skinned.submeshes[0].appearance, numberOf(rich.appearance));
    EXPECT_EQ(scene.at(skinned.skeleton).node->parent, numberOf(rich.skinned));
    EXPECT_EQ(std::get<inspect::SceneVertexBuffer>(scene.at(skinned.vertices).content).vertexCount, 3u);
    EXPECT_EQ(std::get<inspect::SceneImage>(scene.at(numberOf(rich.image)).content).paletteEntries, 2u);

    // Positions 1..6, 0..10, 0: one mesh doubles them, 5 nearer, and its group moves them by 100.
    EXPECT_EQ(scene.least, (std::array<double, 3>{1, 0, 0}));
    EXPECT_EQ(scene.greatest, (std::array<double, 3>{112, 20, 5}));
}

}  // namespace
