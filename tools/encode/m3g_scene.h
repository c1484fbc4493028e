// Descriptions of scenes in the JSR 184 object format. Every member has an initialiser: a designated initialiser may
// leave out any of them. Enumerators have the numbers of the file.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace encode {

// Another object of the scene, by its place in M3gScene::objects; by default none. Objects come after what they refer
// to.
struct M3gRef {
    static constexpr uint32_t kNone = UINT32_MAX;
    uint32_t position = kNone;
    bool operator==(const M3gRef&) const = default;
};

enum class M3gAlignmentTarget : uint8_t { None = 144, Origin, XAxis, YAxis, ZAxis };
enum class M3gBlending : uint8_t { Alpha = 64, AlphaAdd, Modulate, ModulateX2, Replace };
enum class M3gCulling : uint8_t { Back = 160, Front, None };
enum class M3gFogMode : uint8_t { Exponential = 80, Linear };
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"  // GCC sees a clash with the type Rgb, although the enumeration has a scope
enum class M3gImageFormat : uint8_t { Alpha = 96, Luminance, LuminanceAlpha, Rgb, Rgba };
#pragma GCC diagnostic pop
enum class M3gImageMode : uint8_t { Border = 32, Repeat };
enum class M3gInterpolation : uint8_t { Linear = 176, Slerp, Spline, Squad, Step };
enum class M3gKeyframeEncoding : uint8_t { Float, Quantised8, Quantised16 };
enum class M3gLightMode : uint8_t { Ambient = 128, Directional, Omni, Spot };
enum class M3gProjection : uint8_t { Generic = 48, Parallel, Perspective };
enum class M3gRepeatMode : uint8_t { Constant = 192, Loop };
enum class M3gShading : uint8_t { Flat = 164, Smooth };
enum class M3gStripEncoding : uint8_t { Start32, Start8, Start16, Indices32 = 128, Indices8, Indices16 };
enum class M3gTextureBlending : uint8_t { Add = 224, Blend, Decal, Modulate, Replace };
enum class M3gTextureFilter : uint8_t { BaseLevel = 208, Linear, Nearest };
enum class M3gTextureWrap : uint8_t { Clamp = 240, Repeat };
enum class M3gWinding : uint8_t { CounterClockwise = 168, Clockwise };
enum class M3gProperty : uint32_t {
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

using M3gVector = std::array<float, 3>;
using M3gMatrix = std::array<float, 16>;  // row-major

struct M3gUserParameter {
    uint32_t id = 0;
    std::vector<uint8_t> value{};
};

// What every object has.
struct M3gObject {
    uint32_t userId = 0;
    std::vector<M3gRef> tracks{};  // animation tracks
    std::vector<M3gUserParameter> parameters{};
};

struct M3gComponents {
    M3gVector translation{}, scale{1, 1, 1};
    float angle = 0;  // degrees, about the axis
    M3gVector axis{0, 0, 1};
};

// Nodes and textures.
struct M3gTransform {
    std::optional<M3gComponents> components{};
    std::optional<M3gMatrix> matrix{};  // applied before the components; nodes: bottom row 0 0 0 1
};

struct M3gAlignment {
    M3gAlignmentTarget zTarget = M3gAlignmentTarget::None, yTarget = M3gAlignmentTarget::None;
    M3gRef zReference{}, yReference{};  // nodes
};

struct M3gNode {
    M3gTransform transform{};
    bool rendering = true, picking = true;
    uint8_t alpha = 255;
    uint32_t scope = UINT32_MAX;
    std::optional<M3gAlignment> alignment{};
};

// Facts about the file that stand at its beginning. Not an object of the scene: nothing can refer to it.
struct M3gHeader {
    uint8_t versionMajor = 1, versionMinor = 0;
    std::optional<uint32_t> totalFileSize{}, approximateContentSize{};  // unset: what the sections take up
    std::string author{};
};

struct M3gAnimationController {
    M3gObject object{};
    float speed = 1, weight = 1;
    int32_t activeStart = 0, activeEnd = 0;  // milliseconds; equal: always active
    float referenceSequenceTime = 0;
    int32_t referenceWorldTime = 0;
};

struct M3gAnimationTrack {
    M3gObject object{};
    M3gRef sequence{}, controller{};
    M3gProperty property = M3gProperty::Translation;
};

struct M3gAppearance {
    M3gObject object{};
    int8_t layer = 0;
    M3gRef compositingMode{}, fog{}, polygonMode{}, material{};
    std::vector<M3gRef> textures{};  // by texture unit; none leaves a unit empty
};

struct M3gBackground {
    M3gObject object{};
    uint32_t color = 0;  // 0xAARRGGBB
    M3gRef image{};
    M3gImageMode modeX = M3gImageMode::Border, modeY = M3gImageMode::Border;
    int32_t cropX = 0, cropY = 0;
    std::optional<uint32_t> cropWidth{}, cropHeight{};  // unset: those of the image
    bool depthClear = true, colorClear = true;
};

struct M3gCamera {
    M3gObject object{};
    M3gNode node{};
    M3gProjection projection = M3gProjection::Perspective;
    float fieldOfView = 60;  // degrees; the height of a parallel view
    float aspectRatio = 1, near = 1, far = 1000;
    M3gMatrix matrix{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};  // Generic only
};

struct M3gCompositingMode {
    M3gObject object{};
    bool depthTest = true, depthWrite = true, colorWrite = true, alphaWrite = true;
    M3gBlending blending = M3gBlending::Replace;
    uint8_t alphaThreshold = 0;
    float depthOffsetFactor = 0, depthOffsetUnits = 0;
};

struct M3gFog {
    M3gObject object{};
    uint32_t color = 0;  // 0xRRGGBB
    M3gFogMode mode = M3gFogMode::Linear;
    float density = 1;        // Exponential
    float near = 0, far = 1;  // Linear
};

struct M3gPolygonMode {
    M3gObject object{};
    M3gCulling culling = M3gCulling::Back;
    M3gShading shading = M3gShading::Smooth;
    M3gWinding winding = M3gWinding::CounterClockwise;
    bool twoSidedLighting = false, localCameraLighting = false, perspectiveCorrection = false;
};

struct M3gGroup {
    M3gObject object{};
    M3gNode node{};
    std::vector<M3gRef> children{};
};

struct M3gImage2D {
    M3gObject object{};
    M3gImageFormat format = M3gImageFormat::Rgb;
    bool isMutable = false;  // has a size, but no pixels
    uint32_t width = 0, height = 0;
    std::vector<uint8_t> palette{};  // entries of as many bytes as the format has components; empty: no palette
    std::vector<uint8_t> pixels{};   // rows from top to bottom; with a palette one index per pixel
};

struct M3gTriangleStripArray {
    M3gObject object{};
    std::optional<M3gStripEncoding> encoding{};  // unset: the smallest that holds the start or the indices
    uint32_t start = 0;                          // first index of the first strip when there are no indices
    std::vector<uint32_t> indices{};
    std::vector<uint32_t> strips{};  // how many indices each strip takes
};

struct M3gLight {
    M3gObject object{};
    M3gNode node{};
    M3gVector attenuation{1, 0, 0};  // constant, linear, quadratic
    uint32_t color = 0xFFFFFF;
    M3gLightMode mode = M3gLightMode::Directional;
    float intensity = 1, spotAngle = 45, spotExponent = 0;
};

struct M3gMaterial {
    M3gObject object{};
    uint32_t ambient = 0x333333, diffuse = 0xFFCCCCCC, emissive = 0, specular = 0;  // diffuse: 0xAARRGGBB
    float shininess = 0;
    bool vertexColorTracking = false;
};

struct M3gSubmesh {
    M3gRef strips{}, appearance{};
};
struct M3gMesh {
    M3gObject object{};
    M3gNode node{};
    M3gRef vertices{};
    std::vector<M3gSubmesh> submeshes{};
};

struct M3gMorphTarget {
    M3gRef vertices{};
    float weight = 0;
};
struct M3gMorphingMesh {
    M3gObject object{};
    M3gNode node{};
    M3gRef vertices{};
    std::vector<M3gSubmesh> submeshes{};
    std::vector<M3gMorphTarget> targets{};
};

struct M3gBoneBinding {
    M3gRef bone{};
    uint32_t firstVertex = 0, vertexCount = 0;
    int32_t weight = 1;
};
struct M3gSkinnedMesh {
    M3gObject object{};
    M3gNode node{};
    M3gRef vertices{};
    std::vector<M3gSubmesh> submeshes{};
    M3gRef skeleton{};
    std::vector<M3gBoneBinding> bindings{};
};

struct M3gTexture2D {
    M3gObject object{};
    M3gTransform transform{};
    M3gRef image{};
    uint32_t blendColor = 0;
    M3gTextureBlending blending = M3gTextureBlending::Modulate;
    M3gTextureWrap wrapS = M3gTextureWrap::Repeat, wrapT = M3gTextureWrap::Repeat;
    M3gTextureFilter levelFilter = M3gTextureFilter::BaseLevel, imageFilter = M3gTextureFilter::Nearest;
};

struct M3gSprite3D {
    M3gObject object{};
    M3gNode node{};
    M3gRef image{}, appearance{};
    bool scaled = true;
    int32_t cropX = 0, cropY = 0;
    std::optional<int32_t> cropWidth{}, cropHeight{};  // unset: those of the image; negative ones mirror
};

struct M3gKeyframe {
    uint32_t time = 0;            // milliseconds
    std::vector<float> values{};  // as many for every keyframe of a sequence
};
struct M3gKeyframeSequence {
    M3gObject object{};
    M3gInterpolation interpolation = M3gInterpolation::Linear;
    M3gRepeatMode repeatMode = M3gRepeatMode::Constant;
    M3gKeyframeEncoding encoding = M3gKeyframeEncoding::Float;
    std::optional<uint32_t> duration{};  // unset: the time of the last keyframe, at least 1
    uint32_t validFirst = 0;
    std::optional<uint32_t> validLast{};  // unset: the last keyframe
    std::vector<M3gKeyframe> keyframes{};
    // Quantised values, per component: the smallest value and what the largest exceeds it by. Empty: those of the
    // keyframes.
    std::vector<float> bias{}, scale{};
};

struct M3gVertexArray {
    M3gObject object{};
    uint8_t componentSize = 2;  // bytes
    uint8_t componentCount = 3;
    bool asDeltas = false;          // every value as its difference to the vertex before
    std::vector<int32_t> values{};  // vertex by vertex; of one byte -128..255
};

struct M3gVertexData {
    M3gRef array{};
    float scale = 1;
    M3gVector bias{};
};
struct M3gVertexBuffer {
    M3gObject object{};
    uint32_t defaultColor = 0xFFFFFFFF;  // 0xAARRGGBB
    M3gVertexData positions{};
    M3gRef normals{}, colors{};
    std::vector<M3gVertexData> texCoords{};  // by texture unit
};

struct M3gWorld {
    M3gObject object{};
    M3gNode node{};
    std::vector<M3gRef> children{};
    M3gRef activeCamera{}, background{};
};

// Names a file that the scene would need. Not an object of the scene: nothing can refer to it.
struct M3gExternalReference {
    std::string name{};
};

// In the order of the file's type bytes: index() is the type, but for the last, which is 255.
using M3gRecord =
    std::variant<M3gHeader, M3gAnimationController, M3gAnimationTrack, M3gAppearance, M3gBackground, M3gCamera,
                 M3gCompositingMode, M3gFog, M3gPolygonMode, M3gGroup, M3gImage2D, M3gTriangleStripArray, M3gLight,
                 M3gMaterial, M3gMesh, M3gMorphingMesh, M3gSkinnedMesh, M3gTexture2D, M3gSprite3D, M3gKeyframeSequence,
                 M3gVertexArray, M3gVertexBuffer, M3gWorld, M3gExternalReference>;

struct M3gScene {
    std::vector<M3gRecord> objects{};
    std::vector<size_t> sections{};  // how many entries of `objects` go into each section; empty: all into one

    // Writes what the checks of the encoder would refuse, in so far as it can be written: references to later objects,
    // to objects of another class or to none, sizes that contradict each other, floats that are no valid values. For
    // tests of readers.
    bool allowInvalid = false;

    M3gRef add(M3gRecord record) {
        objects.push_back(std::move(record));
        return {uint32_t(objects.size() - 1)};
    }
};

}  // namespace encode
