// What the objects of a JSR 184 scene say, class by class.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

namespace inspect {

enum class SceneType : uint8_t {
    AnimationController = 1,
    AnimationTrack,
    Appearance,
    Background,
    Camera,
    CompositingMode,
    Fog,
    PolygonMode,
    Group,
    Image2D,
    TriangleStripArray,
    Light,
    Material,
    Mesh,
    MorphingMesh,
    SkinnedMesh,
    Texture2D,
    Sprite3D,
    KeyframeSequence,
    VertexArray,
    VertexBuffer,
    World,
};

enum class SceneProperty : uint32_t {
    Alpha = 256,
    AmbientColor,
    Color,
    Crop,
    Density,
    DiffuseColor,
    EmissiveColor,
    FarDistance,
    FieldOfView,
    Intensity,
    MorphWeights,
    NearDistance,
    Orientation,
    Pickability,
    Scale,
    Shininess,
    SpecularColor,
    SpotAngle,
    SpotExponent,
    Translation,
    Visibility,
};

// Objects refer to each other by number, 0 being none. Modes have the numbers of the file.

struct SceneAnimationController {
    float speed = 0, weight = 0;
    int32_t activeStart = 0, activeEnd = 0;  // milliseconds; equal: always active
    float referenceSequenceTime = 0;
    int32_t referenceWorldTime = 0;
};

struct SceneAnimationTrack {
    uint32_t sequence = 0, controller = 0;
    SceneProperty property{};
};

struct SceneAppearance {
    int32_t layer = 0;
    uint32_t compositingMode = 0, fog = 0, polygonMode = 0, material = 0;
    std::vector<uint32_t> textures;  // by unit
};

struct SceneBackground {
    uint32_t color = 0;  // 0xAARRGGBB
    uint32_t image = 0;
    uint32_t modeX = 0, modeY = 0;
    std::array<int32_t, 4> crop{};  // x, y, width, height
    bool clearsDepth = false, clearsColor = false;
};

struct SceneCamera {
    uint32_t projection = 0;
    float fieldOfView = 0, aspectRatio = 0, near = 0, far = 0;  // field of view: the height of parallel cameras
    std::array<float, 16> matrix{};                             // of generic cameras alone, row-major
};

struct SceneCompositingMode {
    bool testsDepth = false, writesDepth = false, writesColor = false, writesAlpha = false;
    uint32_t blending = 0;
    uint32_t alphaThreshold = 0;  // of 255
    float depthOffsetFactor = 0, depthOffsetUnits = 0;
};

struct SceneFog {
    uint32_t color = 0;
    uint32_t mode = 0;
    float density = 0;        // exponential
    float near = 0, far = 0;  // linear
};

struct ScenePolygonMode {
    uint32_t culling = 0, shading = 0, winding = 0;
    bool twoSidedLighting = false, localCameraLighting = false, perspectiveCorrection = false;
};

struct SceneGroup {
    std::vector<uint32_t> children;
};

struct SceneImage {
    uint32_t format = 0;
    bool isMutable = false;
    uint32_t width = 0, height = 0;
    uint32_t paletteEntries = 0;  // 0: no palette
};

struct SceneTriangleStrips {
    bool hasIndices = false;
    uint32_t firstIndex = 0, lastIndex = 0;  // the lowest and the highest in use
    uint32_t stripCount = 0, triangleCount = 0;
};

struct SceneLight {
    uint32_t mode = 0;
    uint32_t color = 0;
    std::array<float, 3> attenuation{};  // constant, linear, quadratic
    float intensity = 0, spotAngle = 0, spotExponent = 0;
};

struct SceneMaterial {
    uint32_t ambient = 0, diffuse = 0, emissive = 0, specular = 0;  // diffuse: 0xAARRGGBB
    float shininess = 0;
    bool tracksVertexColors = false;
};

struct SceneSubmesh {
    uint32_t strips = 0, appearance = 0;
};
struct SceneMesh {
    uint32_t vertices = 0;
    std::vector<SceneSubmesh> submeshes;
};

struct SceneMorphTarget {
    uint32_t vertices = 0;
    float weight = 0;
};
struct SceneMorphingMesh : SceneMesh {
    std::vector<SceneMorphTarget> targets;
};

struct SceneBoneBinding {
    uint32_t bone = 0;
    uint32_t firstVertex = 0, vertexCount = 0;
    int32_t weight = 0;
};
struct SceneSkinnedMesh : SceneMesh {
    uint32_t skeleton = 0;
    std::vector<SceneBoneBinding> bindings;
};

struct SceneTexture {
    uint32_t image = 0;
    uint32_t blendColor = 0;
    uint32_t blending = 0, wrapS = 0, wrapT = 0, levelFilter = 0, imageFilter = 0;
};

struct SceneSprite {
    uint32_t image = 0, appearance = 0;
    bool isScaled = false;
    std::array<int32_t, 4> crop{};  // x, y, width, height
};

struct SceneKeyframeSequence {
    uint32_t interpolation = 0, encoding = 0;
    bool repeats = false;
    uint32_t duration = 0;  // milliseconds, like times
    uint32_t validFirst = 0, validLast = 0;
    uint32_t componentCount = 0;
    std::vector<uint32_t> times;  // of the keyframes
};

struct SceneVertexArray {
    uint32_t componentSize = 0, componentCount = 0;
    uint32_t vertexCount = 0;
    bool isDeltaEncoded = false;
};

struct SceneVertexBuffer {
    uint32_t defaultColor = 0;  // 0xAARRGGBB
    uint32_t positions = 0, normals = 0, colors = 0;
    std::array<float, 3> positionBias{};
    float positionScale = 0;
    std::vector<uint32_t> texCoords;  // by unit
    uint32_t vertexCount = 0;         // of the first array there is
};

struct SceneWorld : SceneGroup {
    uint32_t activeCamera = 0, background = 0;
};

// In the order of SceneType, without the header that stands before its first.
using SceneContent =
    std::variant<SceneAnimationController, SceneAnimationTrack, SceneAppearance, SceneBackground, SceneCamera,
                 SceneCompositingMode, SceneFog, ScenePolygonMode, SceneGroup, SceneImage, SceneTriangleStrips,
                 SceneLight, SceneMaterial, SceneMesh, SceneMorphingMesh, SceneSkinnedMesh, SceneTexture, SceneSprite,
                 SceneKeyframeSequence, SceneVertexArray, SceneVertexBuffer, SceneWorld>;

// Of nodes and textures: translation, rotation about an axis in degrees, scale, and behind them a matrix.
struct SceneTransform {
    std::array<float, 3> translation{}, scale{1, 1, 1}, axis{0, 0, 1};
    float angle = 0;
    std::optional<std::array<float, 16>> matrix;  // row-major
};

struct SceneAlignment {
    uint32_t zTarget = 0, yTarget = 0;
    uint32_t zReference = 0, yReference = 0;
};

struct SceneNode {
    uint32_t parent = 0;  // a group or, of a skeleton, the mesh
    bool isRendered = true, isPickable = true;
    float alpha = 1;
    uint32_t scope = 0;
    std::optional<SceneAlignment> alignment;
};

struct SceneObject {
    size_t offset = 0;    // of the type byte
    uint32_t length = 0;  // behind type and length, by its own account
    uint32_t section = 0;
    uint32_t userId = 0;
    std::vector<uint32_t> tracks;  // animation tracks
    uint32_t parameterCount = 0;
    std::optional<SceneTransform> transform;  // nodes and textures
    std::optional<SceneNode> node;            // nodes
    SceneContent content;

    SceneType type() const { return SceneType(content.index() + 1); }
};

}  // namespace inspect
