#include "tools/encode/m3g_encoder.h"

#include <gmock/gmock.h>

#include <set>
#include <stdexcept>

#include "tests/tools/literal_bytes.h"

namespace encode {
namespace {

const std::string kObject = "00000000 00000000 00000000";           // user id, no tracks, no user parameters
const std::string kNode = kObject + "00 00  01 01 FF FFFFFFFF 00";  // no transform, drawn, picked, not aligned

// What stands between the length of one object and the type of the next.
ByteList bodyOf(const EncodedFile& file, const std::string& object) {
    const size_t begin = file.field(object + ".length").offset() + 4;
    const size_t length = file.get(object + ".length");
    return {file.bytes.begin() + ptrdiff_t(begin), file.bytes.begin() + ptrdiff_t(begin + length)};
}

struct Described {
    M3gRecord record;
    std::string bytes;
};

// Every class, each entry referring to earlier ones; object numbers count from 2.
std::vector<Described> everyClass() {
    const M3gRef vertices{0}, buffer{1}, strips{2}, fog{3}, mode{4}, polygons{5}, material{6}, image{7}, texture{8};
    const M3gRef appearance{9}, sequence{10}, controller{11}, track{12}, camera{13}, background{14}, group{15};
    const M3gRef mesh{17}, light{16};
    return {
        {M3gVertexArray{.componentSize = 1, .componentCount = 2, .values = {1, -1, 255, 3}},
         kObject + "01 02 00 0200 01FF FF03"},
        {M3gVertexBuffer{.defaultColor = 0x80112233,
                         .positions = {vertices, 2, {1, 0, 0}},
                         .colors = vertices,
                         .texCoords = {{vertices, 0.5f}, {}}},
         kObject + "11223380 02000000 0000803F 00000000 00000000 00000040 00000000 02000000 02000000"
                   "02000000 00000000 00000000 00000000 0000003F  00000000 00000000 00000000 00000000 0000803F"},
        {M3gTriangleStripArray{.indices = {0, 1, 2, 300}, .strips = {4}},
         kObject + "82 04000000 0000 0100 0200 2C01 01000000 04000000"},
        {M3gFog{.color = 0x010203, .mode = M3gFogMode::Exponential, .density = 2}, kObject + "010203 50 00000040"},
        {M3gCompositingMode{.depthWrite = false,
                            .blending = M3gBlending::AlphaAdd,
                            .alphaThreshold = 7,
                            .depthOffsetFactor = 1,
                            .depthOffsetUnits = 2},
         kObject + "01 00 01 01 41 07 0000803F 00000040"},
        {M3gPolygonMode{.culling = M3gCulling::None,
                        .shading = M3gShading::Flat,
                        .winding = M3gWinding::Clockwise,
                        .localCameraLighting = true},
         kObject + "A2 A4 A9 00 01 00"},
        {M3gMaterial{.ambient = 0x010203,
                     .diffuse = 0x04050607,
                     .emissive = 0x08090A,
                     .specular = 0x0B0C0D,
                     .shininess = 1,
                     .vertexColorTracking = true},
         kObject + "010203 05060704 08090A 0B0C0D 0000803F 01"},
        {M3gImage2D{.format = M3gImageFormat::LuminanceAlpha,
                    .width = 1,
                    .height = 2,
                    .palette = {1, 2, 3, 4},
                    .pixels = {1, 0}},
         kObject + "62 00 01000000 02000000 04000000 01020304 02000000 0100"},
        {M3gTexture2D{.transform = {.components = M3gComponents{.translation = {1, 0, 0}, .angle = 2}},
                      .image = image,
                      .blendColor = 0x010203,
                      .wrapT = M3gTextureWrap::Clamp,
                      .levelFilter = M3gTextureFilter::Nearest,
                      .imageFilter = M3gTextureFilter::Linear},
         kObject + "01 0000803F 00000000 00000000  0000803F 0000803F 0000803F  00000040 00000000 00000000 0000803F"
                   "00 09000000 010203 E3 F1 F0 D2 D1"},
        {M3gAppearance{.layer = -1,
                       .compositingMode = mode,
                       .fog = fog,
                       .polygonMode = polygons,
                       .material = material,
                       .textures = {{}, texture}},
         kObject + "FF 06000000 05000000 07000000 08000000 02000000 00000000 0A000000"},
        {M3gKeyframeSequence{.interpolation = M3gInterpolation::Step,
                             .repeatMode = M3gRepeatMode::Loop,
                             .validFirst = 1,
                             .keyframes = {{0, {1, 0, 0}}, {5, {2, 0, 0}}}},
         kObject + "B4 C1 00 05000000 01000000 01000000 03000000 02000000"
                   "00000000 0000803F 00000000 00000000  05000000 00000040 00000000 00000000"},
        {M3gAnimationController{.speed = 2,
                                .weight = 0.5f,
                                .activeStart = -1,
                                .activeEnd = 3,
                                .referenceSequenceTime = 1,
                                .referenceWorldTime = -2},
         kObject + "00000040 0000003F FFFFFFFF 03000000 0000803F FEFFFFFF"},
        {M3gAnimationTrack{.sequence = sequence, .controller = controller, .property = M3gProperty::Visibility},
         kObject + "0C000000 0D000000 14010000"},
        {M3gCamera{.node = {.rendering = false, .alpha = 1, .scope = 2}, .fieldOfView = 1, .near = 2, .far = 4},
         kObject + "00 00  00 01 01 02000000 00  32 0000803F 0000803F 00000040 00008040"},
        {M3gBackground{.color = 0x80112233, .image = image, .modeY = M3gImageMode::Repeat, .cropY = -1},
         kObject + "11223380 09000000 20 21 00000000 FFFFFFFF 01000000 02000000 01 01"},
        {M3gGroup{.object = {.userId = 9, .tracks = {track}, .parameters = {{7, {0xAB}}}}, .children = {camera}},
         "09000000 01000000 0E000000 01000000 07000000 01000000 AB" + kNode.substr(kObject.size()) +
             "01000000 0F000000"},
        {M3gLight{.node = {.alignment = M3gAlignment{.zTarget = M3gAlignmentTarget::ZAxis, .zReference = group}},
                  .color = 0x010203,
                  .mode = M3gLightMode::Spot,
                  .intensity = 2,
                  .spotAngle = 1,
                  .spotExponent = 4},
         kObject + "00 00 01 01 FF FFFFFFFF 01 94 90 11000000 00000000"
                   "0000803F 00000000 00000000 010203 83 00000040 0000803F 00008040"},
        {M3gMesh{.vertices = buffer, .submeshes = {{strips, appearance}, {strips}}},
         kNode + "03000000 02000000 04000000 0B000000 04000000 00000000"},
        {M3gMorphingMesh{.vertices = buffer, .submeshes = {{strips}}, .targets = {{buffer, 0.5f}}},
         kNode + "03000000 01000000 04000000 00000000  01000000 03000000 0000003F"},
        {M3gSkinnedMesh{.vertices = buffer,
                        .submeshes = {{strips}},
                        .skeleton = group,
                        .bindings = {{.bone = camera, .firstVertex = 1, .vertexCount = 2, .weight = -3}}},
         kNode + "03000000 01000000 04000000 00000000  11000000 01000000 0F000000 01000000 02000000 FDFFFFFF"},
        {M3gSprite3D{.image = image, .appearance = appearance, .cropX = -1, .cropHeight = -2},
         kNode + "09000000 0B000000 01 FFFFFFFF 00000000 01000000 FEFFFFFF"},
        {M3gWorld{.children = {group, light, mesh}, .activeCamera = camera, .background = background},
         kNode + "03000000 11000000 12000000 13000000 0F000000 10000000"},
    };
}

M3gScene sceneOf(const std::vector<Described>& described) {
    M3gScene scene;
    for (const Described& each : described) scene.add(each.record);
    return scene;
}

TEST(M3gEncoder, WritesEveryClass) {
    const std::vector<Described> described = everyClass();
    const EncodedFile file = encodeM3gObjects(sceneOf(described));
    std::set<uint64_t> types;
    for (size_t i = 0; i < described.size(); ++i) {
        const std::string name = indexed("object", i);
        types.insert(file.get(name + ".type"));
        EXPECT_EQ(file.get(name + ".type"), described[i].record.index());
        EXPECT_EQ(bodyOf(file, name), hexBytes(described[i].bytes)) << name << " of type " << file.get(name + ".type");
    }
    EXPECT_EQ(types.size(), 22u);
}

TEST(M3gEncoder, WritesTheOtherFormsOfClasses) {
    const std::string sequence = kObject + "B0 C0";
    const M3gMatrix matrix = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    const std::string matrixBytes =
        "0000803F 00000000 00000000 00000000  00000000 0000803F 00000000 00000000"
        "00000000 00000000 0000803F 00000000  00000000 00000000 00000000 0000803F";
    using enum M3gStripEncoding;
    const std::vector<Described> forms = {
        {M3gCamera{.node = {.transform = {.matrix = matrix}}, .projection = M3gProjection::Generic},
         kObject + "00 01" + matrixBytes + "01 01 FF FFFFFFFF 00 30" + matrixBytes},
        {M3gFog{.near = 1, .far = 2}, kObject + "000000 51 0000803F 00000040"},
        {M3gImage2D{.isMutable = true, .width = 3, .height = 4}, kObject + "63 01 03000000 04000000"},
        {M3gImage2D{.width = 1, .height = 1, .pixels = {1, 2, 3}},
         kObject + "63 00 01000000 01000000 00000000 03000000 010203"},
        {M3gTriangleStripArray{.encoding = Start32, .start = 1, .strips = {3}},
         kObject + "00 01000000 01000000 03000000"},
        {M3gTriangleStripArray{.start = 1, .strips = {3, 4}}, kObject + "01 01 02000000 03000000 04000000"},
        {M3gTriangleStripArray{.start = 256, .strips = {3}}, kObject + "02 0001 01000000 03000000"},
        {M3gTriangleStripArray{.encoding = Indices32, .indices = {1, 2, 3}, .strips = {3}},
         kObject + "80 03000000 01000000 02000000 03000000 01000000 03000000"},
        {M3gTriangleStripArray{.indices = {1, 2, 255}, .strips = {3}},
         kObject + "81 03000000 01 02 FF 01000000 03000000"},
        {M3gKeyframeSequence{.encoding = M3gKeyframeEncoding::Quantised8,
                             .duration = 9,
                             .validLast = 0,
                             .keyframes = {{0, {1, 5}}, {4, {3, 5}}, {6, {2, 5}}}},
         sequence + "01 09000000 00000000 00000000 02000000 03000000 0000803F 0000A040 00000040 00000000"
                    "00000000 00 00  04000000 FF 00  06000000 80 00"},
        {M3gKeyframeSequence{.encoding = M3gKeyframeEncoding::Quantised16,
                             .keyframes = {{0, {1}}, {4, {4}}},
                             .bias = {0},
                             .scale = {4}},
         sequence + "02 04000000 00000000 01000000 01000000 02000000 00000000 00008040"
                    "00000000 0040  04000000 FFFF"},
        {M3gVertexArray{.componentSize = 1, .componentCount = 1, .asDeltas = true, .values = {200, 44}},
         kObject + "01 01 01 0200 C8 64"},
        {M3gVertexArray{.componentCount = 2, .asDeltas = true, .values = {1, -32768, 3, 32767}},
         kObject + "02 02 01 0200 0100 0080 0200 FFFF"},
    };
    const EncodedFile file = encodeM3gObjects(sceneOf(forms));
    for (size_t i = 0; i < forms.size(); ++i)
        EXPECT_EQ(bodyOf(file, indexed("object", i)), hexBytes(forms[i].bytes)) << indexed("form", i);
}

TEST(M3gEncoder, WritesSectionsAndPackages) {
    M3gScene scene;
    scene.add(M3gHeader{.author = "me"});
    const M3gRef camera = scene.add(M3gCamera{});
    scene.add(M3gExternalReference{.name = "x"});
    scene.add(M3gWorld{.activeCamera = camera});
    scene.sections = {1, 3};
    // Checksums were taken with another program.
    const ByteList sections = hexBytes(
        "00 20000000 13000000  00 0E000000 01 00 01 87000000 87000000 6D6500  2402D611"
        "00 67000000 5A000000  05 27000000" +
        kNode +
        "32 00007042 0000803F 0000803F 00007A44  FF 02000000 7800"
        "16 22000000" +
        kNode + "00000000 02000000 00000000  BB0F71E9");
    const EncodedFile file = encodeM3gSections(scene);
    EXPECT_EQ(file.bytes, sections);
    EXPECT_EQ(file.get("object[3].activeCamera"), 2u) << "headers and external references are not counted";

    const EncodedFile package = encodeScenePackage(scene);
    EXPECT_EQ(package.bytes, hexBytes("4B38 0001 00000800 0200") + sections);
    EXPECT_EQ(package.get("section[1].length"), file.get("section[1].length"));
}

TEST(M3gEncoder, RefusesWhatContradictsTheFormat) {
    struct Case {
        const char* says;  // part of the text of the exception
        M3gRecord record;
    };
    constexpr M3gRef fog{0}, buffer{1}, strips{2}, group{3}, sequence{4}, own{5}, missing{9};
    const std::vector<M3gSubmesh> submeshes = {{strips}};
    const auto node = [](const M3gTransform& transform) { return M3gGroup{.node = {.transform = transform}}; };
    const Case refusable[] = {
        {"object[5]: material names an object of another", M3gAppearance{.material = fog}},
        {"child[0] names a later", M3gGroup{.children = {own}}},
        {"child[0] is none", M3gGroup{.children = {{}}}},
        {"child[0] names an object of another", M3gGroup{.children = {fog}}},
        {"track[0] names an object of another", M3gGroup{.object = {.tracks = {sequence}}}},
        {"strips is none", M3gMesh{.vertices = buffer, .submeshes = {{}}}},
        {"no submeshes", M3gMesh{.vertices = buffer}},
        {"skeleton is none", M3gSkinnedMesh{.vertices = buffer, .submeshes = submeshes}},
        {"density is no valid", M3gFog{.mode = M3gFogMode::Exponential, .density = -0.0f}},
        {"density is no valid", M3gFog{.mode = M3gFogMode::Exponential, .density = 1e-40f}},
        {"an angle needs", node({.components = M3gComponents{.angle = 1, .axis = {}}})},
        {"bottom row", node({.matrix = M3gMatrix{}})},
        {"aligned to the same",
         M3gGroup{.node = {.alignment =
                               M3gAlignment{M3gAlignmentTarget::Origin, M3gAlignmentTarget::Origin, group, group}}}},
        {"0xRRGGBB", M3gFog{.color = 0x1000000}},
        {"256 whole", M3gImage2D{.palette = ByteList(769)}},
        {"do not fill", M3gImage2D{.width = 1, .height = 1, .pixels = {1}}},
        {"have no pixels", M3gImage2D{.isMutable = true, .pixels = {1}}},
        {"strip[0] has no", M3gTriangleStripArray{.strips = {2}}},
        {"no strips", M3gTriangleStripArray{}},
        {"more indices", M3gTriangleStripArray{.indices = {0, 1, 2}, .strips = {4}}},
    };
    const Case impossible[] = {
        {"names what is not there", M3gGroup{.children = {missing}}},
        {"no keyframes", M3gKeyframeSequence{}},
        {"different numbers", M3gKeyframeSequence{.keyframes = {{0, {1}}, {1, {}}}}},
        {"of their own", M3gKeyframeSequence{.keyframes = {{0, {1}}}, .bias = {1, 2}}},
        {"1 or 2 bytes", M3gVertexArray{.componentSize = 4}},
        {"incomplete", M3gVertexArray{.values = {1}}},
        {"value[0] does not fit", M3gVertexArray{.componentSize = 1, .componentCount = 1, .values = {256}}},
        {"value[0] does not fit", M3gVertexArray{.componentCount = 1, .values = {40000}}},
        {"start: 256 does not", M3gTriangleStripArray{.encoding = M3gStripEncoding::Start8, .start = 256}},
        {"first NUL", M3gExternalReference{.name = std::string(1, '\0')}},
    };
    const auto refusalOf = [](const M3gRecord& record, bool allowInvalid) -> std::string {
        M3gScene scene{.objects = {M3gFog{}, M3gVertexBuffer{}, M3gTriangleStripArray{.strips = {3}}, M3gGroup{},
                                   M3gKeyframeSequence{.keyframes = {{}}}, record},
                       .allowInvalid = allowInvalid};
        try {
            encodeM3gObjects(scene);
            return "";
        } catch (const std::invalid_argument& refusal) {
            return refusal.what();
        }
    };
    for (const Case& c : refusable) {
        EXPECT_THAT(refusalOf(c.record, false), testing::HasSubstr(c.says));
        EXPECT_EQ(refusalOf(c.record, true), "") << c.says;
    }
    for (const Case& c : impossible) EXPECT_THAT(refusalOf(c.record, true), testing::HasSubstr(c.says));

    M3gScene scene{.objects = {M3gFog{}, M3gFog{}}};
    for (const std::vector<size_t>& sections : {std::vector<size_t>{1}, {1, 2}}) {
        scene.sections = sections;
        EXPECT_THROW(encodeM3gSections(scene), std::invalid_argument);
    }
    scene = {.objects = std::vector<M3gRecord>(1025, M3gFog{})};
    EXPECT_THROW(encodeScenePackage(scene), std::invalid_argument);
}

}  // namespace
}  // namespace encode
