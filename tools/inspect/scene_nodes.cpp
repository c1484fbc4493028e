// Nodes, and the background.
#include <map>

#include "tools/inspect/scene_reader.h"
#include "tools/inspect/scene_transform.h"

namespace inspect {

static uint32_t readAlignmentReference(ObjectReader& o, const char* field) {
    const uint32_t number = o.in.u32(field);
    if (number != 0 && (number < kFirstSceneNumber || number >= o.number()))
        o.in.expect(false, field, number, "0 or the number of an earlier object");
    return number;
}

// References to anything but nodes leave the node unaligned.
static void readAlignment(ObjectReader& o) {
    SceneAlignment alignment;
    alignment.zTarget = o.oneOf("the z target", 144, 148);
    alignment.yTarget = o.oneOf("the y target", 144, 148);
    alignment.zReference = readAlignmentReference(o, "the z reference");
    alignment.yReference = readAlignmentReference(o, "the y reference");
    const bool isSame = alignment.zTarget == alignment.yTarget && alignment.zReference == alignment.yReference;
    if (isSame && alignment.zTarget != 144) o.in.reject("the z axis and the y axis are aligned to the same");
    for (const uint32_t number : {alignment.zReference, alignment.yReference})
        if (number != 0 && !kSceneNodes.contain(o.scene.at(number).type())) return;
    for (const uint32_t number : {alignment.zReference, alignment.yReference})
        if (number != 0) o.scene.valuesOf(number).isUsed = true;
    o.object.node->alignment = alignment;
}

static void readNode(ObjectReader& o) {
    SceneNode& node = o.object.node.emplace();
    readTransform(o);
    if (const auto& matrix = o.object.transform->matrix) {
        const SceneMatrix& m = *matrix;
        if (m[12] != 0 || m[13] != 0 || m[14] != 0 || m[15] != 1)
            o.in.reject("the bottom row of the general transform is not 0 0 0 1");
    }
    node.isRendered = o.flag("the rendering flag");
    node.isPickable = o.flag("the picking flag");
    node.alpha = float(o.in.u8("the alpha factor")) / 255;
    node.scope = o.in.u32("the scope");
    if (o.flag("the alignment flag")) readAlignment(o);
}

// --- Groups and single nodes ---

static void requireLength(ObjectReader& o, size_t begin) {
    const size_t read = o.in.offset() - begin;
    if (read != o.object.length)
        throw ContentProblem(o.object.offset + 1, "the length is " + std::to_string(o.object.length) +
                                                      ", but the fields take " + std::to_string(read) + " bytes");
}

// A node has one parent.
static void adopt(ObjectReader& o, const char* field, uint32_t child) {
    SceneNode& node = o.scene.nodeOf(child);
    if (node.parent == o.number()) o.in.reject(std::string(field) + " is " + o.describe(child) + " once more");
    if (node.parent != 0)
        o.in.reject(std::string(field) + " is " + o.describe(child) + ", which belongs to " + o.describe(node.parent));
    node.parent = o.number();
}

static void readChildren(ObjectReader& o, SceneGroup& group) {
    const uint32_t count = o.count("the child count", 4);
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t child = o.required("a child", kSceneNodes);
        if (o.scene.at(child).type() == SceneType::World) o.in.reject("a child is a World");
        adopt(o, "a child", child);
        group.children.push_back(child);
    }
}

static SceneGroup readGroup(ObjectReader& o) {
    SceneGroup out;
    readNode(o);
    readChildren(o, out);
    return out;
}

static SceneWorld readWorld(ObjectReader& o) {
    SceneWorld out;
    readNode(o);
    readChildren(o, out);
    out.activeCamera = o.optional("the active camera", SceneType::Camera);
    out.background = o.optional("the background", SceneType::Background);
    return out;
}

static SceneBackground readBackground(ObjectReader& o) {
    SceneBackground out;
    out.color = o.argb("the colour");
    out.image = o.optional("the image", SceneType::Image2D);
    if (out.image != 0 && o.scene.contentOf<SceneImage>(out.image).format < 99)
        o.in.reject("the image is neither RGB nor RGBA");
    out.modeX = o.oneOf("the image mode of x", 32, 33);
    out.modeY = o.oneOf("the image mode of y", 32, 33);
    for (size_t i = 0; i < 4; ++i) {
        out.crop[i] = o.i32("the crop rectangle");
        o.in.expect(i < 2 || out.crop[i] >= 0, "a side of the crop rectangle", out.crop[i], "0 or more");
    }
    out.clearsDepth = o.flag("the depth clear flag");
    out.clearsColor = o.flag("the colour clear flag");
    return out;
}

static SceneCamera readCamera(ObjectReader& o) {
    SceneCamera out;
    readNode(o);
    out.projection = o.oneOf("the projection type", 48, 50);
    if (out.projection == 48) {
        o.reals("the projection", out.matrix);
        return out;
    }
    const bool isPerspective = out.projection == 50;
    const auto readPositive = [&o](const char* field) {
        const float value = o.real(field);
        if (value <= 0) o.in.reject(std::string(field) + " is not above 0");
        return value;
    };
    out.fieldOfView = readPositive(isPerspective ? "the field of view" : "the height");
    if (isPerspective && out.fieldOfView >= 180) o.in.reject("the field of view is not below 180 degrees");
    out.aspectRatio = readPositive("the aspect ratio");
    out.near = isPerspective ? readPositive("the near distance") : o.real("the near distance");
    out.far = isPerspective ? readPositive("the far distance") : o.real("the far distance");
    return out;
}

static SceneLight readLight(ObjectReader& o) {
    SceneLight out;
    readNode(o);
    for (float& factor : out.attenuation) {
        factor = o.real("the attenuation");
        if (factor < 0) o.in.reject("the attenuation is negative");
    }
    if (out.attenuation == std::array<float, 3>{}) o.in.reject("the attenuation is 0 in all its factors");
    out.color = o.rgb("the colour");
    out.mode = o.oneOf("the mode", 128, 131);
    out.intensity = o.real("the intensity");
    out.spotAngle = o.real("the spot angle");
    if (out.spotAngle < 0 || out.spotAngle > 90) o.in.reject("the spot angle is outside 0 to 90 degrees");
    out.spotExponent = o.real("the spot exponent");
    if (out.spotExponent < 0 || out.spotExponent > 128) o.in.reject("the spot exponent is outside 0 to 128");
    return out;
}

static SceneSprite readSprite(ObjectReader& o) {
    constexpr int32_t kMaxSide = 2048;
    SceneSprite out;
    readNode(o);
    out.image = o.required("the image", SceneType::Image2D);
    out.appearance = o.optional("the appearance", SceneType::Appearance);
    out.isScaled = o.flag("the scaled flag");
    const auto& image = o.scene.contentOf<SceneImage>(out.image);
    o.deriveTexture("the sprite", uint64_t(image.width) * image.height);
    for (size_t i = 0; i < 4; ++i) {
        out.crop[i] = o.i32("the crop rectangle");
        o.in.expect(i < 2 || out.crop[i] <= kMaxSide, "a side of the crop rectangle", out.crop[i], "at most 2048");
    }
    return out;
}

// --- Meshes ---

static uint64_t drawnVertexCountOf(const SceneTriangleStrips& strips) {
    if (strips.hasIndices) return 3 * uint64_t(strips.triangleCount);
    return uint64_t(strips.lastIndex) + 1 - strips.firstIndex;
}

static void readMeshFields(ObjectReader& o, SceneMesh& mesh) {
    readNode(o);
    mesh.vertices = o.required("the vertex buffer", SceneType::VertexBuffer);
    const uint32_t count = o.count("the submesh count", 8);
    o.in.expect(count > 0, "the submesh count", count, "at least 1");
    for (uint32_t i = 0; i < count; ++i) {
        SceneSubmesh& submesh = mesh.submeshes.emplace_back();
        submesh.strips = o.required("a submesh's triangle strips", SceneType::TriangleStripArray);
        submesh.appearance = o.optional("a submesh's appearance", SceneType::Appearance);
        o.deriveWork("drawing", drawnVertexCountOf(o.scene.contentOf<SceneTriangleStrips>(submesh.strips)));
    }
}

static SceneMesh readMesh(ObjectReader& o) {
    SceneMesh out;
    readMeshFields(o, out);
    return out;
}

static uint64_t arrayBytes(const ObjectReader& o, uint32_t number) {
    if (number == 0) return 0;
    const auto& array = o.scene.contentOf<SceneVertexArray>(number);
    return uint64_t(array.vertexCount) * array.componentCount * array.componentSize;
}

static SceneMorphingMesh readMorphingMesh(ObjectReader& o) {
    SceneMorphingMesh out;
    readMeshFields(o, out);
    const uint32_t count = o.count("the morph target count", 8);
    o.in.expect(count > 0, "the morph target count", count, "at least 1");
    const auto& base = o.scene.contentOf<SceneVertexBuffer>(out.vertices);
    uint64_t bytes = arrayBytes(o, base.positions) + arrayBytes(o, base.normals) + arrayBytes(o, base.colors);
    for (const uint32_t array : base.texCoords) bytes += arrayBytes(o, array);
    o.deriveBytes("the morphed buffer", bytes);
    o.deriveWork("morphing", bytes * count);
    for (uint32_t i = 0; i < count; ++i) {
        SceneMorphTarget& target = out.targets.emplace_back();
        target.vertices = o.required("a morph target", SceneType::VertexBuffer);
        target.weight = o.real("a morph target's weight");
    }
    return out;
}

// The way from the mesh to a bone below its skeleton must lead back.
static void checkBone(const ObjectReader& o, uint32_t bone) {
    SceneMatrix toMesh = kSceneIdentity;
    uint32_t above = bone;
    while (above != 0 && above != o.number()) {
        const SceneObject& node = o.scene.at(above);
        toMesh = product(compositeOf(*node.transform), toMesh);
        above = node.node->parent;
    }
    if (above == 0) o.in.reject("a bone is " + o.describe(bone) + ", which is not in the skeleton");
    if (isSingular(toMesh)) o.in.reject("a bone is " + o.describe(bone) + ", whose transform cannot be inverted");
}

static void readBindings(ObjectReader& o, SceneSkinnedMesh& mesh) {
    constexpr uint32_t kMaxVertex = 65535;
    const uint32_t count = o.count("the transform reference count", 16);
    std::vector<bool> isChecked(o.scene.out.objects.size());
    for (uint32_t i = 0; i < count; ++i) {
        SceneBoneBinding& binding = mesh.bindings.emplace_back();
        binding.bone = o.required("a bone", kSceneNodes);
        if (!isChecked[binding.bone - kFirstSceneNumber]) checkBone(o, binding.bone);
        isChecked[binding.bone - kFirstSceneNumber] = true;
        binding.firstVertex = o.in.u32("a bone's first vertex");
        o.in.expect(binding.firstVertex <= kMaxVertex, "a bone's first vertex", binding.firstVertex, "at most 65535");
        binding.vertexCount = o.in.u32("a bone's vertex count");
        o.in.expect(binding.vertexCount >= 1 && binding.vertexCount <= kMaxVertex - binding.firstVertex,
                    "a bone's vertex count", binding.vertexCount,
                    "1 to " + std::to_string(kMaxVertex - binding.firstVertex));
        binding.weight = o.i32("a bone's weight");
        o.in.expect(binding.weight >= 1, "a bone's weight", binding.weight, "at least 1");
        o.deriveBytes("binding vertices to bones", binding.vertexCount);
    }
}

static SceneSkinnedMesh readSkinnedMesh(ObjectReader& o) {
    constexpr uint64_t kTableBytes = 36;  // per vertex: a count, three bones and weights, a run
    SceneSkinnedMesh out;
    readMeshFields(o, out);
    out.skeleton = o.required("the skeleton", SceneType::Group);
    adopt(o, "the skeleton", out.skeleton);
    const auto& base = o.scene.contentOf<SceneVertexBuffer>(out.vertices);
    const uint64_t vertexCount =
        base.positions == 0 ? 0 : o.scene.contentOf<SceneVertexArray>(base.positions).vertexCount;
    o.deriveBytes("skinning",
                  2 * arrayBytes(o, base.positions) + arrayBytes(o, base.normals) + vertexCount * kTableBytes);
    readBindings(o, out);
    return out;
}

SceneContent readNodeClass(ObjectReader& o, SceneType type) {
    const size_t begin = o.object.offset + 5;  // behind type and length
    switch (type) {
        case SceneType::Background: {
            SceneContent background = readBackground(o);
            requireLength(o, begin);
            return background;
        }
        case SceneType::Group: {
            SceneContent group = readGroup(o);
            requireLength(o, begin);
            return group;
        }
        case SceneType::Camera: return readCamera(o);
        case SceneType::Light: return readLight(o);
        case SceneType::Mesh: return readMesh(o);
        case SceneType::MorphingMesh: return readMorphingMesh(o);
        case SceneType::SkinnedMesh: return readSkinnedMesh(o);
        case SceneType::Sprite3D: return readSprite(o);
        default: return readWorld(o);
    }
}

}  // namespace inspect
