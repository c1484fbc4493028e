// Packages that carry a scene: sections, the root, and the handles made for its nodes.
#include <array>

#include "scene/light.h"
#include "scene/skinned_mesh.h"
#include "scene/texture2d.h"
#include "scene/world.h"
#include "tests/loader/loaded.h"
#include "tests/loader/m3g_scenes.h"

using namespace encode;

namespace {

template <typename Handle>
const Handle* childOf(const K8Group* group, size_t index) {
    return reinterpret_cast<const Handle*>(group->info->childHandles[index]);
}

std::vector<const K8Handle*> allOf(const Loaded& loaded) {
    std::vector<const K8Handle*> handles;
    for (size_t i = 0; loaded.made(i); ++i) handles.push_back(loaded.made(i));
    return handles;
}

// One triangle, and meshes made of it.
struct TriangleScene {
    M3gScene scene;
    M3gRef vertices, strips;

    TriangleScene() {
        const M3gRef positions = scene.add(M3gVertexArray{.values = {0, 0, 0, 9, 0, 0, 0, 9, 0}});
        vertices = scene.add(M3gVertexBuffer{.positions = {.array = positions}});
        strips = scene.add(M3gTriangleStripArray{.strips = {3}});
    }
    M3gRef addImage() { return scene.add(M3gImage2D{.width = 1, .height = 1, .pixels = {1, 2, 3}}); }
    M3gRef addTexture() { return scene.add(M3gTexture2D{.image = addImage()}); }
    M3gRef addAppearance(std::vector<M3gRef> textures) { return scene.add(M3gAppearance{.textures = textures}); }
    M3gMesh meshOf(const std::vector<M3gRef>& appearances) const {
        M3gMesh mesh{.vertices = vertices};
        for (const M3gRef appearance : appearances) mesh.submeshes.push_back({strips, appearance});
        return mesh;
    }
};

// --- Handles ---

TEST(ScenePackage, NodesBecomeATreeOfHandles) {
    TriangleScene s;
    const M3gRef camera = s.scene.add(M3gCamera{}), light = s.scene.add(M3gLight{}), mesh = s.scene.add(s.meshOf({{}}));
    const M3gRef sprite = s.scene.add(M3gSprite3D{.image = s.addImage()});
    const M3gRef empty = s.scene.add(M3gGroup{});
    const M3gRef other = s.scene.add(s.meshOf({{}}));
    const M3gRef inner = s.scene.add(M3gGroup{.children = {sprite, other, empty}});
    s.scene.add(M3gWorld{.children = {camera, inner, light, mesh}, .activeCamera = camera});
    const size_t half = s.scene.objects.size() / 2;
    s.scene.sections = {half, 0, s.scene.objects.size() - half};
    EncodedFile file = encodeScenePackage(s.scene);
    file.bytes.insert(file.bytes.end(), 7, 0xAB);  // nobody looks behind the last object
    const Loaded loaded(file);
    ASSERT_NE(loaded.root, nullptr);

    const auto* root = as<K8Group>(loaded.root);
    const auto* world = static_cast<World*>(root->header.object);
    EXPECT_EQ(root->header.classId, K8_CLASS_SCENE_GROUP);
    EXPECT_EQ(world->refCount, 1);
    EXPECT_EQ(root->info->transform, nullptr);
    EXPECT_EQ(root->info->flag, 1);
    ASSERT_EQ(root->info->childHandleCount, 3) << "none for the camera";
    const auto* group = childOf<K8Group>(root, 0);
    EXPECT_EQ(group->header.classId, K8_CLASS_SCENE_GROUP);
    EXPECT_EQ(group->header.object, world->children[1]);
    EXPECT_EQ(group->info->childData, nullptr);
    ASSERT_EQ(group->info->childHandleCount, 2) << "none for the sprite";
    EXPECT_EQ(childOf<K8Group>(group, 1)->info->childHandleCount, 0);
    EXPECT_EQ(childOf<K8Light>(root, 1)->header.classId, K8_CLASS_LIGHT);
    EXPECT_EQ(childOf<K8Light>(root, 1)->header.object, world->children[2]);
    const auto* figure = childOf<K8Figure>(root, 2);
    EXPECT_EQ(figure->header.classId, K8_CLASS_FIGURE);
    EXPECT_EQ(figure->header.object, world->children[3]);
    EXPECT_EQ(figure->info->transparency, 409600);
    EXPECT_EQ(allOf(loaded),
              (std::vector<const K8Handle*>{&group->header, group->info->childHandles[0], group->info->childHandles[1],
                                            root->info->childHandles[1], root->info->childHandles[2]}));
}

// Two submeshes with the same texture, one with textures on both units, one with unit 1 alone.
TEST(ScenePackage, TexturesOfSubmeshesInOrder) {
    TriangleScene s;
    const M3gRef a = s.addTexture(), b = s.addTexture();
    const M3gRef one = s.addAppearance({a}), both = s.addAppearance({b, a}), second = s.addAppearance({{}, b});
    const M3gRef mesh = s.scene.add(s.meshOf({one, one, {}, both, second}));
    s.scene.add(M3gWorld{.children = {mesh}});
    const Loaded loaded(encodeScenePackage(s.scene));
    ASSERT_NE(loaded.root, nullptr);
    const K8FigureInfo* info = childOf<K8Figure>(as<K8Group>(loaded.root), 0)->info;
    ASSERT_EQ(info->loadedTextureCount, 3);
    K8Texture* const* textures = info->loadedTextures;
    EXPECT_NE(textures[0], textures[1]) << "a handle each";
    EXPECT_EQ(textures[0]->header.object, textures[1]->header.object);
    EXPECT_EQ(textures[0]->info->hasSecondMap, 0);
    EXPECT_EQ(textures[2]->info->hasSecondMap, 1);
    EXPECT_EQ(textures[2]->info->secondMap->header.object, textures[0]->header.object);
    EXPECT_EQ(textures[0]->keepsBlending, 1);
    EXPECT_EQ(allOf(loaded).size(), 5u) << "the second map included";
}

TEST(ScenePackage, ASkinnedMeshBringsTheTexturesOfMeshesOnItsBones) {
    TriangleScene s;
    const M3gRef texture = s.addTexture(), appearance = s.addAppearance({texture});
    const M3gRef held = s.scene.add(s.meshOf({appearance, appearance}));
    const M3gRef bone = s.scene.add(M3gGroup{.children = {held}}), skeleton = s.scene.add(M3gGroup{.children = {bone}});
    const M3gRef skinned = s.scene.add(
        M3gSkinnedMesh{.vertices = s.vertices, .submeshes = {{s.strips, appearance}}, .skeleton = skeleton});
    s.scene.add(M3gWorld{.children = {skinned}});
    const Loaded loaded(encodeScenePackage(s.scene));
    ASSERT_NE(loaded.root, nullptr);
    EXPECT_EQ(childOf<K8Figure>(as<K8Group>(loaded.root), 0)->info->loadedTextureCount, 3);
    EXPECT_EQ(allOf(loaded).size(), 4u) << "no handles for what is below a skinned mesh";
}

TEST(ScenePackage, AFigureHas64TexturesAtMost) {
    for (const size_t alone : {0u, 1u}) {
        TriangleScene s;
        const M3gRef texture = s.addTexture();
        std::vector<M3gRef> appearances(32, s.addAppearance({texture, texture}));
        if (alone) appearances.push_back(s.addAppearance({texture}));
        const M3gRef mesh = s.scene.add(s.meshOf(appearances));
        s.scene.add(M3gWorld{.children = {mesh}});
        const Loaded loaded(encodeScenePackage(s.scene));
        EXPECT_EQ(loaded.root != nullptr, alone == 0);
    }
}

TEST(ScenePackage, ALightIsPlacedByAllTransformsBelowTheWorld) {
    using Fixed = std::array<int32_t, 6>;
    const auto placed = [](M3gTransform world, M3gTransform outer, M3gTransform own) {
        M3gScene scene;
        const M3gRef light = scene.add(M3gLight{.node = {.transform = own}});
        const M3gRef group = scene.add(M3gGroup{.node = {.transform = outer}, .children = {light}});
        scene.add(M3gWorld{.node = {.transform = world}, .children = {group}});
        const Loaded loaded(encodeScenePackage(scene));
        const K8LightInfo& i = *childOf<K8Light>(childOf<K8Group>(as<K8Group>(loaded.root), 0), 0)->info;
        return Fixed{i.position[0], i.position[1], i.position[2], i.direction[0], i.direction[1], i.direction[2]};
    };
    EXPECT_EQ(placed({}, {}, {}), (Fixed{0, 0, 0, 0, 0, -4096}));
    EXPECT_EQ(placed({}, {M3gComponents{{}, {1, 1, 0}}}, {}), (Fixed{0, 0, 0, 0, 0, -4096})) << "nothing left of it";
    // A quarter turn about x takes -z to y; the group's about z takes that to -x, and its scale does not count.
    const M3gComponents turnX{{1, 2, 3}, {1, 1, 1}, 90, {1, 0, 0}}, turnZ{{10, 0, 0}, {2, 2, 2}, 90, {0, 0, 1}};
    const Fixed turned = placed({M3gComponents{{100, 100, 100}}}, {turnZ}, {turnX});
    const Fixed expected = {6 * 4096, 2 * 4096, 6 * 4096, -4096, 0, 0};
    for (size_t i = 0; i < 6; ++i) EXPECT_NEAR(turned[i], expected[i], 1) << i;
}

TEST(ScenePackage, AnAlignmentIsClearedWithTheNodeItNames) {
    M3gScene scene;
    const M3gRef lost = scene.add(M3gGroup{});
    const M3gRef aligned = scene.add(
        M3gGroup{.node = {.alignment = M3gAlignment{.zTarget = M3gAlignmentTarget::Origin, .zReference = lost}}});
    scene.add(M3gWorld{.children = {aligned}});
    const Loaded loaded(encodeScenePackage(scene));
    ASSERT_NE(loaded.root, nullptr);
    const auto* node = static_cast<Node*>(as<K8Group>(loaded.root)->info->childHandles[0]->object);
    EXPECT_EQ(node->zReference, nullptr);
    EXPECT_EQ(node->zTarget, AlignmentTarget::None);
}

// --- Sections and roots ---

TEST(ScenePackage, RefusesWhatIsNoScene) {
    M3gScene good;
    good.objects = {M3gGroup{}, M3gWorld{.children = {{0}}}};
    const EncodedFile file = encodeScenePackage(good);
    forEachChange(file, "objectCount=2 section[0].uncompressedLength=0 section[0].checksum=0",
                  [](const EncodedFile& changed) { EXPECT_TRUE(loads(changed)); });
    forEachChange(file,
                  "section[0].compression=1 section[0].length=12 section[0].length+=1 section[0].length+=-8 "
                  "objectCount=0 objectCount=1 objectCount=3 object[1].childCount=0",
                  [](const EncodedFile& changed) { EXPECT_FALSE(loads(changed)); });
    EXPECT_FALSE(loads(encodeScenePackage({.objects = {M3gGroup{}}}))) << "no World";
    EXPECT_FALSE(loads(encodeScenePackage({.objects = {M3gWorld{}, M3gFog{}}}))) << "something else besides";
}

}  // namespace
