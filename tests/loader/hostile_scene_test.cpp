// Scenes: what their objects share may cost memory and time for each that shares it, in proportion to the file and to a
// floor.
#include "k8.h"
#include "tests/loader/hostile.h"
#include "tools/encode/m3g_encoder.h"

using namespace encode;

namespace {

using Refs = std::vector<M3gRef>;

ByteList finish(M3gScene& scene, const Refs& children) {
    scene.add(M3gWorld{.children = children});
    return encodeScenePackage(scene).bytes;
}

M3gVertexArray someValues(uint32_t vertexCount) {
    M3gVertexArray array;
    for (uint32_t i = 0; i < 3 * vertexCount; ++i) array.values.push_back(int32_t(i * 37 % 65535) - 32767);
    return array;
}

struct SharedMesh {
    M3gScene scene;
    M3gRef array, vertices, strips;

    explicit SharedMesh(uint32_t vertexCount) {
        array = scene.add(someValues(vertexCount));
        vertices = scene.add(M3gVertexBuffer{.positions = {.array = array}});
        strips = scene.add(M3gTriangleStripArray{.strips = {3}});
    }
    M3gRef addMesh(M3gRef of) { return scene.add(M3gMesh{.vertices = of, .submeshes = {{strips, {}}}}); }
};

// About 1 MB of a mesh with normals of its own.
ByteList honestScene() {
    SharedMesh s(65535);
    const M3gRef normals = s.scene.add(someValues(65535));
    const M3gRef vertices = s.scene.add(M3gVertexBuffer{.positions = {.array = s.array}, .normals = normals});
    const M3gRef inner = s.addMesh(s.vertices);
    const M3gRef outer = s.addMesh(vertices);
    return finish(s.scene, {inner, outer});
}

// Sprites over blank images, of which there are fewer when several share one.
ByteList blankSprites(uint32_t count, uint32_t imageCount, uint32_t width, uint32_t height) {
    M3gScene scene;
    Refs images, sprites;
    while (images.size() < imageCount)
        images.push_back(
            scene.add(M3gImage2D{.format = M3gImageFormat::Rgba, .isMutable = true, .width = width, .height = height}));
    for (uint32_t i = 0; i < count; ++i)
        sprites.push_back(scene.add(M3gSprite3D{.image = images[i % imageCount], .cropWidth = 1, .cropHeight = 1}));
    return finish(scene, sprites);
}

ByteList submeshesOfOneStrip(uint32_t count) {
    SharedMesh s(3);
    const M3gRef longest = s.scene.add(M3gTriangleStripArray{.strips = {65535}});
    M3gMesh mesh{.vertices = s.vertices, .submeshes = std::vector(count, M3gSubmesh{longest, {}})};
    mesh.submeshes.push_back({s.strips, {}});
    return finish(s.scene, {s.scene.add(mesh)});
}

ByteList mipmapsOfOneImage(uint32_t textureCount) {
    SharedMesh s(3);
    M3gImage2D image{.width = 256, .height = 256, .palette = std::vector<uint8_t>(768, 9)};
    image.pixels.resize(65536);
    const M3gRef shared = s.scene.add(image);
    Refs meshes;
    for (uint32_t i = 0; i < textureCount; ++i) {
        const M3gRef texture = s.scene.add(M3gTexture2D{.image = shared, .levelFilter = M3gTextureFilter::Linear});
        const M3gRef appearance = s.scene.add(M3gAppearance{.textures = {texture}});
        meshes.push_back(s.scene.add(M3gMesh{.vertices = s.vertices, .submeshes = {{s.strips, appearance}}}));
    }
    return finish(s.scene, meshes);
}

ByteList buffersOverOneArray(uint32_t count) {
    SharedMesh s(10000);
    Refs meshes;
    for (uint32_t i = 0; i < count; ++i) {
        const M3gRef vertices = s.scene.add(M3gVertexBuffer{.positions = {.array = s.array}, .normals = s.array});
        meshes.push_back(s.addMesh(vertices));
    }
    meshes.push_back(s.addMesh(s.vertices));
    return finish(s.scene, meshes);
}

ByteList skinsOfOneBuffer(uint32_t meshCount, uint32_t bindingCount) {
    SharedMesh s(10000);
    Refs meshes;
    for (uint32_t i = 0; i < meshCount; ++i) {
        const M3gRef skeleton = s.scene.add(M3gGroup{});
        meshes.push_back(
            s.scene.add(M3gSkinnedMesh{.vertices = s.vertices,
                                       .submeshes = {{s.strips, {}}},
                                       .skeleton = skeleton,
                                       .bindings = std::vector(bindingCount, M3gBoneBinding{skeleton, 0, 10000, 1})}));
    }
    return finish(s.scene, meshes);
}

ByteList morphsToOneBuffer(uint32_t targetCount) {
    SharedMesh s(10000);
    const M3gRef mesh = s.scene.add(M3gMorphingMesh{.vertices = s.vertices,
                                                    .submeshes = {{s.strips, {}}},
                                                    .targets = std::vector(targetCount, M3gMorphTarget{s.vertices})});
    return finish(s.scene, {mesh});
}

// Groups in groups, with as many objects as a package may have.
Refs addNest(M3gScene& scene, uint32_t count, M3gRef innermost) {
    Refs groups = {scene.add(M3gGroup{.children = {innermost}})};
    while (groups.size() < count) groups.push_back(scene.add(M3gGroup{.children = {groups.back()}}));
    return groups;
}

ByteList lightsAtEveryDepth() {
    M3gScene scene;
    M3gRef group = scene.add(M3gGroup{});
    for (uint32_t i = 0; i < 511; ++i) {
        const M3gRef light = scene.add(M3gLight{});
        group = scene.add(M3gGroup{.children = {light, group}});
    }
    return finish(scene, {group});
}

ByteList bonesAtEveryDepth(uint32_t bindingCount) {
    SharedMesh s(3);
    const M3gRef tip = s.scene.add(M3gGroup{});
    const Refs bones = addNest(s.scene, 1018, tip);
    M3gSkinnedMesh mesh{.vertices = s.vertices, .submeshes = {{s.strips, {}}}, .skeleton = bones.back()};
    for (uint32_t i = 0; i < bindingCount; ++i) mesh.bindings.push_back({bones[i * 389 % bones.size()], 0, 1, 1});
    return finish(s.scene, {s.scene.add(mesh)});
}

// Skinned meshes that hang on each other's skeletons, each bound to all groups below it.
ByteList skinsOnSkins(uint32_t count) {
    SharedMesh s(3);
    Refs bones, children;
    for (uint32_t i = 0; i < count; ++i) {
        bones.push_back(s.scene.add(M3gGroup{.children = children}));
        M3gSkinnedMesh mesh{.vertices = s.vertices, .submeshes = {{s.strips, {}}}, .skeleton = bones.back()};
        for (const M3gRef bone : bones) mesh.bindings.push_back({bone, 0, 1, 1});
        children = {s.scene.add(mesh)};
    }
    return finish(s.scene, children);
}

Refs addTracks(M3gScene& scene, uint32_t count, M3gProperty property, const std::vector<float>& values) {
    const M3gRef sequence = scene.add(M3gKeyframeSequence{.keyframes = {{0, values}}});
    const M3gRef controller = scene.add(M3gAnimationController{});
    Refs tracks;
    while (tracks.size() < count)
        tracks.push_back(
            scene.add(M3gAnimationTrack{.sequence = sequence, .controller = controller, .property = property}));
    return tracks;
}

ByteList submeshesOfOneFog(uint32_t submeshCount, uint32_t trackCount) {
    SharedMesh s(3);
    const Refs tracks = addTracks(s.scene, trackCount, M3gProperty::Color, {0, 0, 1});
    const M3gRef fog = s.scene.add(M3gFog{.object = {.tracks = tracks}});
    const M3gRef appearance = s.scene.add(M3gAppearance{.fog = fog});
    const std::vector<M3gSubmesh> submeshes(submeshCount, {s.strips, appearance});
    return finish(s.scene, {s.scene.add(M3gMesh{.vertices = s.vertices, .submeshes = submeshes})});
}

ByteList weightsOfManyTargets(uint32_t targetCount, uint32_t trackCount) {
    SharedMesh s(3);
    const Refs tracks = addTracks(s.scene, trackCount, M3gProperty::MorphWeights, {1});
    const M3gRef mesh = s.scene.add(M3gMorphingMesh{.object = {.tracks = tracks},
                                                    .vertices = s.vertices,
                                                    .submeshes = {{s.strips, {}}},
                                                    .targets = std::vector(targetCount, M3gMorphTarget{s.vertices})});
    return finish(s.scene, {mesh});
}

std::vector<HostileFile> hostileScenes() {
    return {{"the largest blank image", blankSprites(1, 1, 2048, 2048), true},
            {"a blank image that is too wide", blankSprites(1, 1, 2049, 1), false},
            {"many blank images", blankSprites(300, 300, 256, 256), false},
            {"sprites over one image", blankSprites(200, 1, 256, 256), true},
            {"too many sprites over one image", blankSprites(1000, 1, 2048, 2048), false},
            {"submeshes of one strip", submeshesOfOneStrip(1000), true},
            {"too many submeshes of one strip", submeshesOfOneStrip(100000), false},
            {"mipmaps of one image", mipmapsOfOneImage(50), true},
            {"too many mipmaps of one image", mipmapsOfOneImage(300), false},
            {"buffers over one array of normals", buffersOverOneArray(250), true},
            {"too many buffers over one array of normals", buffersOverOneArray(450), false},
            {"skins of one buffer", skinsOfOneBuffer(30, 3), true},
            {"too many skins of one buffer", skinsOfOneBuffer(300, 1), false},
            {"bindings over each other", skinsOfOneBuffer(1, 2500), false},
            {"morphs to one buffer", morphsToOneBuffer(1000), true},
            {"too many morphs to one buffer", morphsToOneBuffer(1500), false},
            {"submeshes of one animated fog", submeshesOfOneFog(1000, 50), true},
            {"too many submeshes of one animated fog", submeshesOfOneFog(20000, 900), false},
            {"lights at every depth", lightsAtEveryDepth(), true},
            {"weights of many targets", weightsOfManyTargets(1000, 50), true},
            {"weights of too many targets", weightsOfManyTargets(200000, 900), false},
            {"bones at every depth", bonesAtEveryDepth(30000), true},
            {"skins on skins", skinsOnSkins(100), true},
            {"too many skins on skins", skinsOnSkins(400), false}};
}

TEST(HostileScenes, CostWhatTheirSizeJustifies) {
    expectProportion(hostileScenes(), honestScene(), 100, [](const ByteList&) -> int64_t { return 18 << 20; });
}

}  // namespace
