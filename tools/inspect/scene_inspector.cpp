#include "tools/inspect/scene_inspector.h"

#include <algorithm>
#include <cmath>

#include "tools/adler32.h"
#include "tools/inspect/scene_reader.h"
#include "tools/inspect/scene_transform.h"

namespace inspect {

// --- Sections ---

static std::string readText(ContentReader& in, const char* field) {
    std::string text;
    while (const uint32_t byte = in.u8(field)) text += char(byte);
    return text;
}

static void readHeader(SceneReader& scene, ContentReader& in) {
    SceneHeader& header = scene.out.header.emplace();
    header.versionMajor = in.u8("the header's version");
    header.versionMinor = in.u8("the header's version");
    const uint32_t flag = in.u8("the header's external references flag");
    in.expect(flag <= 1, "the header's external references flag", flag, "0 or 1");
    header.hasExternalReferences = flag == 1;
    header.totalFileSize = in.u32("the header's total file size");
    header.approximateContentSize = in.u32("the header's approximate content size");
    header.author = readText(in, "the header's authoring field");
}

static void readExternalReference(SceneReader& scene, ContentReader& in) {
    constexpr size_t kMaxNames = 255;
    scene.out.externalReferences.push_back(readText(in, "an external reference"));
    if (scene.out.externalReferences.size() > kMaxNames) in.reject("there are more than 255 external references");
}

constexpr uint32_t kHeaderType = 0, kLastType = uint32_t(SceneType::World), kExternalReferenceType = 255;

static void readObject(SceneReader& scene, ContentReader& in, uint32_t type, SceneObject begun, size_t objectCount) {
    if (type == kHeaderType) return readHeader(scene, in);
    if (type == kExternalReferenceType) return readExternalReference(scene, in);
    if (type > kLastType)
        throw ContentProblem(begun.offset, "an object's type is " + std::to_string(type) + ", expected 0 to 22 or 255");
    if (scene.out.objects.size() == objectCount)
        throw ContentProblem(begun.offset, "there are more objects than the " + std::to_string(objectCount) +
                                               " that the package announces");
    readSceneObject(scene, in, SceneType(type), std::move(begun));
}

// The next object begins where the fields of the one before it end. Lengths are looked at in sum alone, but for the
// classes that check their own.
static void readObjects(SceneReader& scene, ContentReader& in, size_t objectCount) {
    uint64_t remaining = in.size() - in.offset();
    while (remaining > 0) {
        SceneObject begun;
        begun.offset = in.offset();
        const uint32_t type = in.u8("an object's type");
        begun.length = in.u32("an object's length");
        begun.section = uint32_t(scene.out.sections.size());
        const uint64_t taken = 5 + uint64_t(begun.length);
        if (taken > remaining)
            in.expect(false, "an object's length", begun.length,
                      "at most the " + std::to_string(int64_t(remaining) - 5) + " bytes that the section has left");
        readObject(scene, in, type, std::move(begun), objectCount);
        remaining -= taken;
    }
}

static void readSection(SceneReader& scene, std::span<const uint8_t> bytes, ContentReader& in, size_t objectCount) {
    constexpr uint32_t kFrontBytes = 9, kCheckSumBytes = 4;
    SceneSection section{.offset = in.offset()};
    const uint32_t compression = in.u8("a section's compression");
    in.expect(compression == 0, "a section's compression", compression, "0 (none)");
    section.length = in.u32("a section's length");
    in.expect(section.length >= kFrontBytes + kCheckSumBytes, "a section's length", section.length, "at least 13");
    in.skip("a section's uncompressed length", 4);
    const size_t begin = in.offset(), byteCount = section.length - kFrontBytes - kCheckSumBytes;
    in.skip("a section", byteCount);
    const uint32_t checksum = in.u32("a section's checksum");
    section.isIntact = checksum == 0 || checksum == adler32(bytes.subspan(section.offset, kFrontBytes + byteCount));
    ContentReader objects(bytes.first(begin + byteCount), begin, "the section");
    scene.objectBytes += byteCount;
    const size_t before = scene.out.objects.size();
    readObjects(scene, objects, objectCount);
    section.objectCount = uint32_t(scene.out.objects.size() - before);
    scene.out.sections.push_back(section);
}

static uint32_t readPackageHeader(SceneSummary& out, ContentReader& in) {
    in.expect(in.u16("the magic") == 0x384B, "the magic", int64_t(in.offset()), "the bytes \"K8\"");
    const uint32_t version = in.u16("the version");
    in.expect(version == 0x100, "the version", version, "256 (a scene)");
    out.objectSizeLimit = in.u32("the object size limit");
    in.expect(out.objectSizeLimit <= 0x80000, "the object size limit", int32_t(out.objectSizeLimit), "0 to 524288");
    const uint32_t objectCount = in.u16("the object count");
    in.expect(objectCount >= 1 && objectCount <= 1024, "the object count", objectCount, "1 to 1024");
    return objectCount;
}

// --- The scene as a whole ---

static void findRoot(SceneReader& scene) {
    SceneSummary& out = scene.out;
    uint32_t root = 0;
    for (uint32_t number = kFirstSceneNumber; number - kFirstSceneNumber < out.objects.size(); ++number) {
        if (scene.valuesOf(number).isUsed) continue;
        const std::string name = "object " + std::to_string(number) + " (" + nameOf(out.at(number).type()) + ")";
        if (root != 0)
            throw ContentProblem(out.at(number).offset, "nothing refers to " + name + ", nor to object " +
                                                            std::to_string(root) + "; expected a single World there");
        if (out.at(number).type() != SceneType::World)
            throw ContentProblem(out.at(number).offset,
                                 "nothing refers to " + name + ", expected that of a World alone");
        root = number;
    }
    out.world = root;  // the last object at least is there, and nothing refers to it
}

static std::vector<uint32_t> childrenOf(const SceneObject& object) {
    if (const auto* group = std::get_if<SceneGroup>(&object.content)) return group->children;
    if (const auto* world = std::get_if<SceneWorld>(&object.content)) return world->children;
    if (const auto* mesh = std::get_if<SceneSkinnedMesh>(&object.content)) return {mesh->skeleton};
    return {};
}

const SceneMesh* meshOf(const SceneObject& object) {
    if (const auto* mesh = std::get_if<SceneMesh>(&object.content)) return mesh;
    if (const auto* mesh = std::get_if<SceneMorphingMesh>(&object.content)) return mesh;
    return std::get_if<SceneSkinnedMesh>(&object.content);
}

std::vector<SceneTreeNode> treeOf(const SceneSummary& scene) {
    std::vector<SceneTreeNode> out, open = {{scene.world, 0}};
    while (!open.empty()) {
        const SceneTreeNode node = open.back();
        open.pop_back();
        out.push_back(node);
        const std::vector<uint32_t> children = childrenOf(scene.at(node.number));
        for (size_t i = children.size(); i-- > 0;) open.push_back({children[i], node.depth + 1});
    }
    return out;
}

// A texture of unit 1 counts where there is one of unit 0.
static uint32_t countTextures(const SceneReader& scene, const SceneMesh& mesh) {
    uint32_t count = 0;
    for (const SceneSubmesh& submesh : mesh.submeshes) {
        if (submesh.appearance == 0) continue;
        const std::vector<uint32_t>& textures = scene.contentOf<SceneAppearance>(submesh.appearance).textures;
        if (textures.empty() || textures[0] == 0) continue;
        count += textures.size() > 1 && textures[1] != 0 ? 2 : 1;
    }
    return count;
}

// A mesh and the meshes of its skeleton make one figure, which has room for so many textures.
static void checkTextureCounts(const SceneReader& scene) {
    constexpr uint32_t kMaxTextures = 64;
    size_t figureDepth = SIZE_MAX;
    uint32_t figure = 0, count = 0;
    for (const SceneTreeNode& node : treeOf(scene.out)) {
        const SceneMesh* mesh = meshOf(scene.at(node.number));
        if (node.depth <= figureDepth) figureDepth = SIZE_MAX;
        if (!mesh) continue;
        if (figureDepth == SIZE_MAX) {
            figureDepth = node.depth;
            figure = node.number;
            count = 0;
        }
        count += countTextures(scene, *mesh);
        if (count > kMaxTextures)
            throw ContentProblem(scene.at(node.number).offset, "object " + std::to_string(figure) + " has " +
                                                                   std::to_string(count) +
                                                                   " textures with its submeshes, expected at most 64");
    }
}

// --- Measuring ---

static void include(SceneSummary& out, const std::array<double, 3>& point) {
    if (!std::ranges::all_of(point, [](double value) { return std::isfinite(value); })) return;
    for (size_t axis = 0; axis < 3; ++axis) {
        out.least[axis] = out.isEmpty ? point[axis] : std::min(out.least[axis], point[axis]);
        out.greatest[axis] = out.isEmpty ? point[axis] : std::max(out.greatest[axis], point[axis]);
    }
    out.isEmpty = false;
}

static void measureMesh(SceneReader& scene, const SceneMesh& mesh, const SceneMatrix& toWorld) {
    const auto& buffer = scene.contentOf<SceneVertexBuffer>(mesh.vertices);
    if (buffer.positions == 0) return;
    const std::vector<int32_t>& components = scene.valuesOf(buffer.positions).components;
    for (size_t i = 0; i < components.size(); i += 3) {
        std::array<double, 3> local, point;
        for (size_t axis = 0; axis < 3; ++axis)
            local[axis] = components[i + axis] * double(buffer.positionScale) + buffer.positionBias[axis];
        for (size_t row = 0; row < 3; ++row) {
            const float* m = &toWorld[4 * row];
            point[row] = m[0] * local[0] + m[1] * local[1] + m[2] * local[2] + m[3];
        }
        include(scene.out, point);
    }
}

static void measure(SceneReader& scene) {
    SceneSummary& out = scene.out;
    std::vector<SceneMatrix> toWorld;  // by depth, of the node met last
    for (const SceneTreeNode& node : treeOf(out)) {
        const SceneObject& object = out.at(node.number);
        toWorld.resize(node.depth);
        // The root's own transform places the scene, not what is in it.
        toWorld.push_back(node.depth == 0 ? kSceneIdentity : product(toWorld.back(), compositeOf(*object.transform)));
        const SceneMatrix& m = toWorld.back();
        if (const SceneMesh* mesh = meshOf(object)) measureMesh(scene, *mesh, m);
        if (object.type() == SceneType::Sprite3D) include(out, {m[3], m[7], m[11]});
    }
}

SceneSummary inspectScene(std::span<const uint8_t> bytes) {
    SceneReader scene;
    ContentReader in(bytes);
    const uint32_t objectCount = readPackageHeader(scene.out, in);
    while (scene.out.objects.size() < objectCount) readSection(scene, bytes, in, objectCount);
    findRoot(scene);
    checkTextureCounts(scene);
    measure(scene);
    scene.out.trailerBytes = bytes.size() - in.offset();
    return std::move(scene.out);
}

}  // namespace inspect
