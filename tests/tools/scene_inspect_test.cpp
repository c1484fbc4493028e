// Scenes as the inspector sees them, and as the library does: both must agree on which packages are good.
#include "tools/inspect/scene_inspector.h"

#include <gmock/gmock.h>

#include <random>

#include "k8.h"
#include "tests/loader/full_scene.h"
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

void expectAgreement(const Bytes& bytes) {
    const std::string problem = problemOf(bytes);
    ASSERT_EQ(problem.empty(), libraryTakes(bytes)) << problem;
}

TEST(SceneInspector, AgreesWithTheLibraryOnEveryField) {
    const EncodedFile good = encodeScenePackage(FullScene().scene);
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
    const Bytes good = encodeScenePackage(FullScene().scene).bytes;
    for (size_t length = 1; length < good.size(); ++length)
        ASSERT_NO_FATAL_FAILURE(expectAgreement(Bytes(good.begin(), good.begin() + ptrdiff_t(length)))) << length;
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
    FullScene full;
    recordOf<M3gGroup>(full.scene, full.bone).node.transform = transform;
    return full.scene;
}

M3gScene withTwoTextures(uint32_t count) {  // on that many submeshes
    FullScene full;
    std::vector<M3gSubmesh>& submeshes = recordOf<M3gMesh>(full.scene, full.formMesh).submeshes;
    submeshes.resize(5 + count, {full.strips, full.twoTextures});
    return full.scene;
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
        {"", withTwoTextures(32)},
        {"66 textures", withTwoTextures(33)},
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
        {"cannot be inverted", withBone({M3gComponents{.scale = {0, 0, 0}}})},
        {"neither RGB nor RGBA",
         {.objects = {M3gImage2D{.format = M3gImageFormat::Luminance, .width = 1, .height = 1, .pixels = {1}},
                      M3gBackground{.image = {0}}, M3gWorld{.background = {1}}}}},
        {"the attenuation is 0", {.objects = {M3gLight{.attenuation = {}}, M3gWorld{.children = {{0}}}}}},
        {"align",
         {.objects = {M3gWorld{
              .node = {.alignment = M3gAlignment{M3gAlignmentTarget::ZAxis, M3gAlignmentTarget::ZAxis}}}},
          .allowInvalid = true}},
        {"component",
         {.objects = {M3gKeyframeSequence{.keyframes = {{0, {1}}}}, M3gKeyframeSequence{.keyframes = {{0, {1, 1, 1}}}},
                      M3gAnimationTrack{.sequence = {0}, .property = M3gProperty::Scale},
                      M3gAnimationTrack{.sequence = {1}, .property = M3gProperty::Scale},
                      M3gWorld{.object = {.tracks = {{2}, {3}}}}}}},
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
    FullScene full;
    full.scene.sections = {1, full.scene.objects.size() - 1};
    const inspect::SceneSummary scene = inspect::inspectScene(encodeScenePackage(full.scene).bytes);
    EXPECT_EQ(scene.header->author, "a");
    EXPECT_THAT(scene.externalReferences, testing::ElementsAre("b"));
    ASSERT_EQ(scene.sections.size(), 2u);
    EXPECT_EQ(scene.sections[1].objectCount, scene.objects.size() - 1);

    std::string tree;
    for (const inspect::SceneTreeNode& node : inspect::treeOf(scene))
        tree += std::string(node.depth, ' ') + nameOf(scene.at(node.number).type()) + "\n";
    EXPECT_EQ(tree,
              "World\n Camera\n MorphingMesh\n SkinnedMesh\n  Group\n   Group\n Sprite3D\n Group\n  Light\n  Mesh\n"
              " Group\n  Camera\n  Camera\n  Sprite3D\n  Sprite3D\n  Mesh\n");

    const auto numberOf = [](M3gRef ref) { return ref.position + inspect::kFirstSceneNumber; };
    EXPECT_EQ(scene.world, numberOf(full.world));
    const auto& skinned = std::get<inspect::SceneSkinnedMesh>(scene.at(numberOf(full.skinnedMesh)).content);
    EXPECT_EQ(skinned.skeleton, numberOf(full.skeleton));
    EXPECT_EQ(skinned.submeshes[0].appearance, numberOf(full.appearance));
    EXPECT_EQ(scene.at(skinned.skeleton).node->parent, numberOf(full.skinnedMesh));
    EXPECT_EQ(std::get<inspect::SceneVertexBuffer>(scene.at(skinned.vertices).content).vertexCount, 3u);
    EXPECT_EQ(std::get<inspect::SceneImage>(scene.at(numberOf(full.indexedImage)).content).paletteEntries, 2u);

    // Most meshes stand at 1..51, -48..2, 3..153, a sprite at 0; the mesh with deltas is twice as large and 5 nearer.
    EXPECT_EQ(scene.least, (std::array<double, 3>{-2 * 5536, -48, 0}));
    EXPECT_EQ(scene.greatest, (std::array<double, 3>{2 * 30000, 2, 2 * 32767 + 5}));
}

}  // namespace
