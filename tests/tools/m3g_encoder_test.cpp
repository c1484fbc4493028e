#include <gmock/gmock.h>

#include <set>
#include <stdexcept>

#include "tests/loader/full_scene.h"
#include "tests/tools/literal_bytes.h"

namespace encode {
namespace {

const std::string kObject = "00000000 00000000 00000000";           // user id, no tracks, no user parameters
const std::string kNode = kObject + "00 00  01 01 FF FFFFFFFF 00";  // no transform, drawn, picked, not aligned
// Translation, scale, angle and axis; then a matrix.
const std::string kComponents =
    "01 0000803F 00000040 00004040  00008040 0000A040 0000C040  0000B442 00000000 00000000 00000040";
const std::string kMoved = kComponents +
                           "01 0000803F 00000000 00000000 0000E040  00000000 0000803F 00000000 00000041"
                           "   00000000 00000000 0000803F 00001041  00000000 00000000 00000000 0000803F";

// What stands between the length of an object and the type of the next.
ByteList bodyOf(const EncodedFile& file, const std::string& object) {
    const size_t begin = file.field(object + ".length").offset() + 4;
    const size_t length = file.get(object + ".length");
    return {file.bytes.begin() + ptrdiff_t(begin), file.bytes.begin() + ptrdiff_t(begin + length)};
}

// Object numbers count from 2.
TEST(M3gEncoder, WritesEveryFormOfEveryClass) {
    const FullScene s;
    const EncodedFile file = encodeM3gObjects(s.scene);
    const std::pair<M3gRef, std::string> objects[] = {
        {s.sequence,
         "0C000000 00000000 00000000 B2 C1 00 84030000 01000000 02000000 03000000 03000000 0A000000 "
         "0000803F 00000040 00004040 14000000 00008040 0000A040 0000C040 1E000000 0000E040 00000041 "
         "000010C1"},
        {s.controller, kObject + "00002040 0000403F FBFFFFFF 5A000000 00004841 F9FFFFFF"},
        {s.track, kObject + "02000000 03000000 13010000"},
        {s.compositingMode, kObject + "00 00 00 00 41 33 0000C03F 000000C0"},
        {s.fog, kObject + "102030 50 0000803E"},
        {s.polygonMode, kObject + "A1 A4 A9 01 01 01"},
        {s.material, kObject + "010203 05060704 08090A 0B0C0D 00004841 01"},
        {s.image, kObject + "63 00 02000000 01000000 00000000 06000000123456FF0000"},
        {s.texture, kObject + kComponents +
                        "01 0000803F 00000000 00000000 00000000 00000000 0000803F 00000000 00000000 00000000 00000000 "
                        "0000803F 00000000 0000803F 00000040 00004040 00008040 09000000 ABCDEF E2 F0 F1 D1 D1"},
        {s.appearance, kObject + "FD 05000000 06000000 07000000 08000000 02000000 00000000 0A000000"},
        {s.background, kObject + "50607040 09000000 21 20 01000000 FEFFFFFF 03000000 04000000 00 00"},
        {s.camera, kNode + "31 0000A040 0000C03F 000080C0 00002042"},
        {s.light, "FEFFFFFF 01000000 04000000 02000000 07000000 03000000010203 08000000 00000000" + kMoved +
                      "00 00 33 01000080 01 94 91 0D000000 00000000 0000003F 0000803E 00000040 334455 83 000040C0 "
                      "0000F041 00008841"},
        {s.normals, kObject + "01 03 00 0300 00 00 05 03 04 00 F7 00 00"},
        {s.vertices, kObject +
                         "22334411 0F000000 0000803F 00000040 00004040 0000003F 10000000 11000000 02000000 12000000 "
                         "00008040 0000A040 00000000 00000040 12000000 0000C040 0000E040 00000000 00004040"},
        {s.mesh, kNode + "13000000 02000000 14000000 0B000000 14000000 00000000"},
        {s.morphingMesh, kNode + "13000000 01000000 14000000 00000000 02000000 13000000 0000803E 13000000 000000C0"},
        {s.bone, kObject + kMoved + "01 01 FF FFFFFFFF 00 00000000"},
        {s.skinnedMesh, kNode +
                            "13000000 01000000 14000000 0B000000 18000000 02000000 17000000 01000000 02000000 05000000 "
                            "18000000 00000000 01000000 06000000"},
        {s.sprite, kNode + "09000000 0B000000 01 FFFFFFFF 02000000 FDFFFFFF 04000000"},
        {s.group, kNode + "02000000 0E000000 15000000"},
        {s.growing, kObject +
                        "B0 C0 01 04000000 00000000 01000000 03000000 02000000 00002041 000080BF 0000A040 00004C42 "
                        "00000040 00000000 00000000 00 FF 00 04000000 FF 00 00"},
        {s.fading, kObject + "B0 C0 02 04000000 00000000 01000000 01000000 02000000 00002041 00007F43 00000000 0000 "
                             "04000000 3333"},
        {s.turning, kObject +
                        "B1 C0 00 01000000 00000000 00000000 04000000 01000000 00000000 00000000 00000000 00004040 "
                        "00008040"},
        {s.genericCamera,
         kNode + "30 0000803F 00000040 00004040 00008040 0000A040 0000C040 0000E040 00000041 00001041 00002041 "
                 "00003041 00004041 00005041 00006041 00007041 00008041"},
        {s.perspectiveCamera, kNode + "32 00004842 00000040 00004040 00008040"},
        {s.linearFog, kObject + "000000 51 0000A040 0000C040"},
        {s.blankImage, kObject + "64 01 04000000 08000000"},
        {s.indexedImage, kObject + "63 00 04000000 01000000 06000000FF8888010203 0400000000010100"},
        {s.greyImage, kObject + "62 00 01000000 02000000 00000000 0400000001020304"},
        {s.rgbaImage, kObject + "64 00 01000000 01000000 00000000 0400000012345678"},
        {s.start32, kObject + "00 2C010000 01000000 04000000"},
        {s.start8, kObject + "01 FF 02000000 04000000 03000000"},
        {s.start16, kObject + "02 2C01 01000000 03000000"},
        {s.indices32, kObject + "80 04000000 09000000 08000000 07000000 2C010000 01000000 04000000"},
        {s.indices8, kObject + "81 04000000 09 08 07 FF 01000000 04000000"},
        {s.indices16, kObject + "82 04000000 0900 0800 0700 2C01 01000000 04000000"},
        {s.wideDeltas, kObject + "02 03 01 0300 3075 0100 0000 3075 FDFF 0000 3075 0000 FF7F"},
        {s.narrowDeltas, kObject + "01 03 01 0300 C8 01 00 64 02 00 CE 03 09"},
        {s.world, kNode + "06000000 0D000000 16000000 19000000 1A000000 1B000000 38000000 0D000000 0C000000"},
    };
    std::set<uint64_t> types;
    for (const auto& [ref, bytes] : objects) {
        const std::string name = indexed("object", ref.position);
        types.insert(file.get(name + ".type"));
        EXPECT_EQ(file.get(name + ".type"), s.scene.objects[ref.position].index());
        EXPECT_EQ(bodyOf(file, name), hexBytes(bytes)) << name << " of type " << file.get(name + ".type");
    }
    EXPECT_EQ(types.size(), 22u);
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
