// Packages that carry a scene: sections, the root, and the handles made for its nodes.
#include <gmock/gmock.h>

#include "frame/error_status.h"
#include "scene/light.h"
#include "scene/skinned_mesh.h"
#include "scene/texture2d.h"
#include "scene/world.h"
#include "tests/loader/m3g_scenes.h"
#include "tests/support/counting_heap.h"
#include "tests/support/dispose.h"

using namespace encode;
using testing::ElementsAre;

namespace {

K8Group* load(const ByteList& file, K8Allocator* allocator) {
    const HeapCopy copy(file);
    return reinterpret_cast<K8Group*>(K8Loader_loadObject(int32_t(copy.size()), copy.data(), allocator));
}

// A loaded scene, disposed of at the end of the scope; nothing of it is left then.
class LoadedScene {
public:
    explicit LoadedScene(const EncodedFile& file) : root(load(file.bytes, host_.get())) {}
    explicit LoadedScene(const M3gScene& scene) : LoadedScene(encodeScenePackage(scene)) {}
    ~LoadedScene() {
        dispose(root ? &root->header : nullptr);
        EXPECT_EQ(host_.liveBlocks(), 0);
    }

    std::vector<const K8Handle*> all() const {
        std::vector<const K8Handle*> handles;
        for (K8Handle** handle = root->info->childData; *handle; ++handle) handles.push_back(*handle);
        return handles;
    }

private:
    CountingHeap heap_;
    CountingAllocator host_;

public:
    K8Group* const root;
};

template <typename Handle>
const Handle* childOf(const K8Group* group, size_t index) {
    return reinterpret_cast<const Handle*>(group->info->childHandles[index]);
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
    const LoadedScene loaded(s.scene);
    ASSERT_NE(loaded.root, nullptr);

    const K8Group* root = loaded.root;
    const auto* world = static_cast<World*>(root->header.object);
    EXPECT_EQ(root->header.classId, K8_CLASS_SCENE_GROUP);
    EXPECT_EQ(world->classId, ClassId::World);
    EXPECT_EQ(world->refCount, 1);
    EXPECT_EQ(root->info->transform, nullptr);
    EXPECT_EQ(root->info->flag, 1);
    ASSERT_EQ(root->info->childHandleCount, 3) << "none for the camera";
    const auto* group = childOf<K8Group>(root, 0);
    EXPECT_EQ(group->header.classId, K8_CLASS_SCENE_GROUP);
    EXPECT_EQ(group->header.object, world->children[1]);
    EXPECT_EQ(group->header.object->refCount, 2);
    EXPECT_EQ(group->info->childData, nullptr);
    ASSERT_EQ(group->info->childHandleCount, 2) << "none for the sprite";
    EXPECT_EQ(childOf<K8Group>(group, 1)->info->childHandleCount, 0);
    EXPECT_EQ(childOf<K8Light>(root, 1)->header.classId, K8_CLASS_LIGHT);
    EXPECT_EQ(childOf<K8Light>(root, 1)->header.object, world->children[2]);
    const auto* figure = childOf<K8Figure>(root, 2);
    EXPECT_EQ(figure->header.classId, K8_CLASS_FIGURE);
    EXPECT_EQ(figure->header.object, world->children[3]);
    EXPECT_EQ(figure->info->transparency, 409600);
    EXPECT_EQ(figure->info->canChangeAction + figure->info->canChangeTextures, 2);
    EXPECT_EQ(figure->info->loadedTextureCount, 0);
    EXPECT_THAT(loaded.all(), ElementsAre(&group->header, group->info->childHandles[0], group->info->childHandles[1],
                                          root->info->childHandles[1], root->info->childHandles[2]));
}

TEST(ScenePackage, EveryObjectLivesAsLongAsItsHandle) {
    CountingHeap heap;
    CountingAllocator host;
    TriangleScene s;
    const M3gRef mesh = s.scene.add(s.meshOf({{}}));
    s.scene.add(M3gWorld{.children = {mesh}});
    K8Group* root = load(encodeScenePackage(s.scene).bytes, host.get());
    ASSERT_NE(root, nullptr);
    K8Handle* figure = root->info->childHandles[0];
    K8Group_destroy(root);
    EXPECT_EQ(figure->object->refCount, 1);
    EXPECT_EQ(static_cast<Node*>(figure->object)->parent, nullptr);
    K8Object3D_destroy(figure);
    EXPECT_EQ(heap.liveBlocks() + host.liveBlocks(), 0);
}

// Two submeshes with the same texture, one with textures on both units, one with unit 1 alone.
TEST(ScenePackage, TexturesOfSubmeshesInOrder) {
    TriangleScene s;
    const M3gRef a = s.addTexture(), b = s.addTexture();
    const M3gRef one = s.addAppearance({a}), both = s.addAppearance({b, a}), second = s.addAppearance({{}, b});
    const M3gRef mesh = s.scene.add(s.meshOf({one, one, {}, both, second}));
    s.scene.add(M3gWorld{.children = {mesh}});
    const LoadedScene loaded(s.scene);
    ASSERT_NE(loaded.root, nullptr);
    const K8FigureInfo* info = childOf<K8Figure>(loaded.root, 0)->info;
    ASSERT_EQ(info->loadedTextureCount, 3);
    const auto textures = std::span(info->loadedTextures, 3);
    EXPECT_NE(textures[0], textures[1]) << "a handle each";
    EXPECT_EQ(textures[0]->header.object, textures[1]->header.object);
    EXPECT_EQ(textures[0]->info->hasSecondMap, 0);
    EXPECT_EQ(textures[2]->info->hasSecondMap, 1);
    const K8Texture* map = textures[2]->info->secondMap;
    EXPECT_EQ(map->header.object, textures[0]->header.object);
    for (const K8Texture* texture : {static_cast<const K8Texture*>(textures[0]), map}) {
        EXPECT_EQ(texture->header.classId, K8_CLASS_TEXTURE);
        EXPECT_EQ(texture->keepsBlending, 1);
        EXPECT_EQ(texture->info->textureMode, 0);
    }
    EXPECT_EQ(textures[0]->header.object->refCount, 3 + 2) << "handles and appearances";
    EXPECT_EQ(loaded.all().size(), 5u) << "the second map included";
}

TEST(ScenePackage, ASkinnedMeshBringsTheTexturesOfMeshesOnItsBones) {
    TriangleScene s;
    const M3gRef texture = s.addTexture(), appearance = s.addAppearance({texture});
    const M3gRef held = s.scene.add(s.meshOf({appearance, appearance}));
    const M3gRef bone = s.scene.add(M3gGroup{.children = {held}}), skeleton = s.scene.add(M3gGroup{.children = {bone}});
    const M3gRef skinned = s.scene.add(
        M3gSkinnedMesh{.vertices = s.vertices, .submeshes = {{s.strips, appearance}}, .skeleton = skeleton});
    s.scene.add(M3gWorld{.children = {skinned}});
    const LoadedScene loaded(s.scene);
    ASSERT_NE(loaded.root, nullptr);
    EXPECT_EQ(childOf<K8Figure>(loaded.root, 0)->info->loadedTextureCount, 3);
    EXPECT_EQ(loaded.all().size(), 4u) << "no handles for what is below a skinned mesh";
}

TEST(ScenePackage, AFigureHas64TexturesAtMost) {
    for (const size_t alone : {0u, 1u}) {
        TriangleScene s;
        const M3gRef texture = s.addTexture();
        std::vector<M3gRef> appearances(32, s.addAppearance({texture, texture}));
        if (alone) appearances.push_back(s.addAppearance({texture}));
        const M3gRef mesh = s.scene.add(s.meshOf(appearances));
        s.scene.add(M3gWorld{.children = {mesh}});
        const LoadedScene loaded(s.scene);
        EXPECT_EQ(loaded.root != nullptr, alone == 0);
    }
}

TEST(ScenePackage, ALightIsPlacedByAllTransformsBelowTheWorld) {
    const auto infoOf = [](M3gTransform world, M3gTransform outer, M3gTransform own) {
        M3gScene scene;
        const M3gRef light = scene.add(M3gLight{.node = {.transform = own}});
        const M3gRef group = scene.add(M3gGroup{.node = {.transform = outer}, .children = {light}});
        scene.add(M3gWorld{.node = {.transform = world}, .children = {group}});
        const LoadedScene loaded(scene);
        return *childOf<K8Light>(childOf<K8Group>(loaded.root, 0), 0)->info;
    };
    const K8LightInfo plain = infoOf({}, {}, {});
    EXPECT_THAT(plain.position, ElementsAre(0, 0, 0));
    EXPECT_THAT(plain.direction, ElementsAre(0, 0, -4096));
    // A quarter turn about x takes -z to y; the group's about z takes that to -x, and its scale does not count.
    const M3gComponents turnX{{1, 2, 3}, {1, 1, 1}, 90, {1, 0, 0}}, turnZ{{10, 0, 0}, {2, 2, 2}, 90, {0, 0, 1}};
    const K8LightInfo turned = infoOf({M3gComponents{{100, 100, 100}}}, {turnZ}, {turnX});
    EXPECT_THAT(turned.position,
                ElementsAre(testing::AllOf(testing::Ge(6 * 4096 - 1), testing::Le(6 * 4096 + 1)),
                            testing::AllOf(testing::Ge(2 * 4096 - 1), testing::Le(2 * 4096 + 1)), 6 * 4096));
    EXPECT_NEAR(turned.direction[0], -4096, 1);
    EXPECT_NEAR(turned.direction[1], 0, 1);
    EXPECT_NEAR(turned.direction[2], 0, 1);
    const K8LightInfo flat = infoOf({}, {M3gComponents{{}, {1, 1, 0}}}, {});
    EXPECT_THAT(flat.direction, ElementsAre(0, 0, -4096)) << "nothing left of it";
}

TEST(ScenePackage, AnAlignmentIsClearedWithTheNodeItNames) {
    M3gScene scene;
    const M3gRef lost = scene.add(M3gGroup{});
    const M3gRef aligned = scene.add(
        M3gGroup{.node = {.alignment = M3gAlignment{.zTarget = M3gAlignmentTarget::Origin, .zReference = lost}}});
    scene.add(M3gWorld{.children = {aligned}});
    const LoadedScene loaded(scene);
    ASSERT_NE(loaded.root, nullptr);
    const auto* node = static_cast<Node*>(loaded.root->info->childHandles[0]->object);
    EXPECT_EQ(node->zReference, nullptr);
    EXPECT_EQ(node->zTarget, AlignmentTarget::None);
}

// --- Sections and roots ---

TEST(ScenePackage, SectionsFollowEachOther) {
    FullScene full;
    const size_t half = full.scene.objects.size() / 2;
    full.scene.sections = {half, 0, full.scene.objects.size() - half};
    EncodedFile file = encodeScenePackage(full.scene);
    file.bytes.insert(file.bytes.end(), 7, 0xAB);  // nobody looks behind the last object
    const LoadedScene loaded(file);
    ASSERT_NE(loaded.root, nullptr);
    EXPECT_EQ(loaded.root->info->childHandleCount, 3);
}

TEST(ScenePackage, RefusesWhatIsNoScene) {
    M3gScene good;
    good.objects = {M3gGroup{}, M3gWorld{.children = {{0}}}};
    const EncodedFile file = encodeScenePackage(good);
    struct Case {
        const char* what;
        const char* field;
        uint64_t value;
        bool loads;
    };
    const uint64_t length = file.get("section[0].length");
    for (const Case& c :
         {Case{"as it is", "objectCount", 2, true}, Case{"compressed", "section[0].compression", 1, false},
          Case{"a section without room", "section[0].length", 12, false},
          Case{"a section beyond the file", "section[0].length", length + 1, false},
          Case{"half a section", "section[0].length", length - 8, false},
          Case{"other uncompressed length", "section[0].uncompressedLength", 0, true},
          Case{"other check sum", "section[0].checksum", 0, true}, Case{"no objects", "objectCount", 0, false},
          Case{"one too many", "objectCount", 1, false}, Case{"one too few", "objectCount", 3, false},
          Case{"two roots", "object[1].childCount", 0, false}}) {
        EncodedFile changed = file;
        changed.set(c.field, c.value);
        K8ErrStorage_setErrorStatus(77);
        const LoadedScene loaded(changed);
        EXPECT_EQ(loaded.root != nullptr, c.loads) << c.what;
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), c.loads ? 77 : K8_ERR_FAILURE) << c.what;
    }
    EXPECT_EQ(LoadedScene({.objects = {M3gGroup{}}}).root, nullptr) << "no World";
    EXPECT_EQ(LoadedScene({.objects = {M3gWorld{}, M3gFog{}}}).root, nullptr) << "something else besides";
}

TEST(ScenePackage, ATruncatedFileFailsAndLeavesNothing) {
    const ByteList file = encodeScenePackage(FullScene().scene).bytes;
    CountingHeap heap;
    CountingAllocator host;
    for (size_t length = 2; length < file.size(); ++length) {
        EXPECT_EQ(load(ByteList(file.begin(), file.begin() + int64_t(length)), host.get()), nullptr) << length;
        EXPECT_EQ(heap.liveBlocks() + host.liveBlocks(), 0) << length;
    }
}

TEST(ScenePackage, ReportsExhaustedMemoryWhereverItHappens) {
    FullScene full;
    const ByteList file = encodeScenePackage(full.scene).bytes;
    const auto attempt = [&](K8Allocator* host, const AllocationCounter& counter) {
        K8ErrStorage_setErrorStatus(77);
        K8Group* root = load(file, host);
        EXPECT_EQ(root == nullptr, counter.hasFailed());
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), root ? 77 : K8_ERR_OUT_OF_MEMORY);
        dispose(root ? &root->header : nullptr);
    };
    for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn}) {
        sweepEngineAllocations(mode, [&](CountingHeap& heap) {
            CountingAllocator host;
            attempt(host.get(), heap);
            EXPECT_EQ(host.liveBlocks(), 0);
        });
        sweepHostAllocations(mode, [&](CountingAllocator& host) {
            CountingHeap heap;
            attempt(host.get(), host);
            EXPECT_EQ(heap.liveBlocks(), 0);
        });
    }
}

}  // namespace
