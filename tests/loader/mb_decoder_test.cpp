#include "loader/mb_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "loader/figure_appearance.h"
#include "tests/loader/content.h"
#include "tests/loader/random.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/mb_encoder.h"

namespace {

using namespace encode;

template <typename T>
std::vector<T> listOf(const T* items, size_t count) {
    return items ? std::vector<T>(items, items + count) : std::vector<T>();
}

// A model and whether it could be decoded.
struct Decoded {
    explicit Decoded(const ByteList& file) {
        const HeapCopy copy(file);
        MemoryStream stream;
        MemoryStream_init(&stream, copy.data(), copy.size());
        succeeded = D_FigureModel_decode(&stream, &model, false);
    }
    explicit Decoded(const MbFigure& figure) : Decoded(encodeMb(figure).bytes) {}
    ~Decoded() { D_FigureModel_release(&model); }

    FigureModelData model;
    bool succeeded;
};

bool decode(LoaderStream* stream) {
    FigureModelData model;
    const bool succeeded = D_FigureModel_decode(stream, &model, false);
    if (!succeeded) {
        EXPECT_EQ(model.positions, nullptr) << "a failed model is empty";
        EXPECT_EQ(model.bones.bones, nullptr) << "a failed model is empty";
    }
    D_FigureModel_release(&model);
    return succeeded;
}

bool decodes(const ByteList& file) { return decodes(HeapCopy(file), decode); }

uint16_t keyOf(uint32_t word) { return qelFigureAppearance_key(word, 0).key; }

// Three vertices on one bone and one textured triangle in the formats given.
MbFigure triangleFigure(int32_t version, uint32_t vertexFormat = 1, uint32_t normalFormat = 0,
                        uint32_t polygonFormat = 1) {
    MbFigure figure = {
        .version = version, .vertexFormat = vertexFormat, .normalFormat = normalFormat, .polygonFormat = polygonFormat};
    figure.vertices = {{{1, 2, 3}, {0, 0, 1}, 0}, {{-1, -2, -3}, {0, 0, 1}, 0}, {{256, 0, -32768}, {1, 0, 0}, 0}};
    figure.bones = {{.parent = -1}};
    figure.polygons = {{.corners = {{0, 1, 2}, {1, 3, 4}, {2, 5, 127}}}};
    return figure;
}

// Every section of the format: packed vertices and normals, both kinds and shapes of polygons, three patterns, two
// textures.
MbFigure richFigure() {
    MbFigure figure;
    figure.vertices = {{{0, 0, 0}, {0, 0, 1}, 0},
                       {{100, 0, 0}, {0.6f, 0, 0.8f}, 0},
                       {{0, 500, 0}, {0, 1, 0}, 1},
                       {{0, 0, 5000}, {-1, 0, 0}, 1},
                       {{-1, -1, -1}, {0, 0, -1}, -1}};
    figure.bones = {{.parent = 1}, {.parent = -1, .rest = translationBone(10, 20, 30)}};
    const std::vector<MbCorner> triangle = {{0, 0, 0}, {1, 255, 0}, {2, 0, 255}};
    const std::vector<MbCorner> quad = {{0, 1, 1}, {1, 2, 2}, {2, 3, 3}, {4, 4, 4}};
    const MbStyle half = {.blend = MbBlend::Half};
    figure.polygons = {{.corners = triangle, .style = {.lit = true}, .pattern = 2, .texture = 1},
                       {.corners = quad},
                       {.corners = triangle, .style = half, .color = Rgb{1, 2, 3}},
                       {.corners = quad, .pattern = 1, .color = Rgb{1, 2, 3}}};
    return figure;
}

TEST(MbDecoder, RefusesARunPastTheLastVertex) {
    MbFigure figure = triangleFigure(4, 2);
    figure.vertices.resize(64);
    figure.vertexRuns = {{64, 3}};
    EXPECT_TRUE(Decoded(figure).succeeded) << "the longest run";
    figure.polygons.clear();  // nothing behind the vertices could be misread
    EncodedFile tooLong = encodeMb(figure);
    tooLong.set("vertexCount", 63);
    EXPECT_FALSE(decodes(tooLong.bytes));
}

TEST(MbDecoder, LimitsNormalsToTheUnit) {
    MbFigure figure = triangleFigure(4, 1, 2);
    figure.vertices[0].normal = {0.6f, 0, 0.8f};
    EncodedFile file = encodeMb(figure);
    changeFields(file, "x=60&y=60&zSign=1", "normal[0].");
    EXPECT_EQ(listOf(Decoded(file.bytes).model.normals, 3), (std::vector<int8_t>{60, 60, 0}));
}

// --- Attributes ---

constexpr uint32_t kIllegal = 0x10000, kNothing = 0x20000;

// What each attribute bit of the file becomes in the attribute word.
struct AttributeRule {
    const char* what;
    uint32_t polygonFormat;
    bool colored;
    std::array<uint32_t, 16> wordBits;  // 0: illegal too
};
constexpr AttributeRule kAttributeRules[] = {
    {"plain", 1, false, {kIllegal, 0x0001, 0x0010}},
    {"packed", 2, false, {0x0001, 0x0002, 0x0004, kIllegal, 0x0010, 0x0800, 0x0020}},
    {"textured", 3, false, {0x0001, 0x0002, 0x0004, kIllegal, 0x0010, 0x0800, 0x0020, 0x0040, kNothing, kNothing}},
    {"colour", 3, true, {0x0002, 0x0004, kIllegal, 0x0010, 0x0800, 0x0020, 0x0040, kNothing, kNothing}},
};

TEST(MbDecoder, KnowsEveryAttributeBitOfEveryFormat) {
    for (const AttributeRule& rule : kAttributeRules)
        for (const bool isQuad : {false, true}) {
            MbFigure figure = triangleFigure(4, 1, 0, rule.polygonFormat);
            if (isQuad) figure.polygons[0].corners.push_back({0, 0, 0});
            if (rule.colored) figure.polygons[0].color = Rgb{9, 8, 7};
            if (rule.polygonFormat > 1) figure.widths.attribute = figure.widths.colorAttribute = 16;
            EncodedFile file = encodeMb(figure);
            const std::string name =
                std::string(rule.colored ? "color" : "textured") + (isQuad ? "Quad" : "Triangle") + "[0].attribute";
            const bool hasQuadBit = rule.polygonFormat == 1 && isQuad;  // bit 0, which no triangle may have
            for (uint32_t attribute = 0; attribute < 0x10000; attribute += attribute < 0x1000 ? 1 : 0x800) {
                uint32_t word = 0x4000 | (isQuad ? 0x8000 : 0) | (rule.colored ? 0x2000 : 0);
                for (uint32_t bit = hasQuadBit ? 1 : 0; bit < 16; ++bit)
                    if (attribute >> bit & 1) word |= rule.wordBits[bit] ? rule.wordBits[bit] : kIllegal;
                if (hasQuadBit && !(attribute & 1)) word |= kIllegal;
                file.set(name, attribute);
                const Decoded decoded(file.bytes);
                ASSERT_EQ(decoded.succeeded, !(word & kIllegal)) << rule.what << " " << name << " " << attribute;
                if (!decoded.succeeded) continue;
                ASSERT_EQ(decoded.model.classKeys[0], keyOf(word & 0xFFFF))
                    << rule.what << " " << name << " " << attribute;
            }
        }
}

// --- Colours ---

TEST(MbDecoder, KeepsEightBitsOfChannelsAndCoordinates) {
    MbFigure figure = triangleFigure(4, 1, 0, 3);
    figure.polygons.push_back({.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, .color = Rgb{1, 2, 3}});
    figure.widths = {.coordinate = 12, .colorChannel = 11};
    EncodedFile file = encodeMb(figure);
    file.set("colorTable[0].g", 0x7FE);
    file.set("texturedTriangle[0].v[0]", 0xF81);
    const Decoded decoded(file.bytes);
    EXPECT_EQ(listOf(decoded.model.colors, 4), (std::vector<uint8_t>{1, 0xFE, 3, 255}));
    EXPECT_EQ(listOf(decoded.model.texCoords + 6, 2), (std::vector<uint16_t>{1, 0x81}));
}

// `count` corners of one vertex, all with different coordinates.
MbFigure splitVertex(uint32_t count) {
    MbFigure figure = triangleFigure(4, 1, 0, 1);
    figure.vertices.resize(1);
    figure.polygons.clear();
    for (uint32_t i = 0; i < count; i += 3) {
        MbPolygon polygon;
        for (uint32_t k = i; k < i + 3; ++k) polygon.corners.push_back({0, uint8_t(k), uint8_t(k >> 8)});
        figure.polygons.push_back(polygon);
    }
    return figure;
}

TEST(MbDecoder, RefusesMoreVerticesThanAnArrayHolds) {
    MbFigure figure = splitVertex(65535);
    const Decoded decoded(figure);
    ASSERT_TRUE(decoded.succeeded);
    EXPECT_EQ(decoded.model.expandedCount, 65535u);
    figure.polygons.push_back({.corners = {{0, 255, 255}, {0, 255, 255}, {0, 255, 255}}});
    EXPECT_FALSE(decodes(encodeMb(figure).bytes));
}

// --- Patterns ---

TEST(MbDecoder, BeforeVersion5ThereIsAPattern0WhateverTheFileSays) {
    EncodedFile file = encodeMb(triangleFigure(4, 1, 0, 3));
    file.set("patternCount", 0);
    const Decoded decoded(file.bytes);
    EXPECT_EQ(decoded.model.patternCount, 1u);
    EXPECT_EQ(listOf(decoded.model.texturedTriangleStarts, 2), (std::vector<uint32_t>{0, 1}));
}

// --- Bones ---

TEST(MbDecoder, RefusesLoopsOfBones) {
    const auto isTaken = [](const std::vector<int32_t>& parents) {
        MbFigure figure = triangleFigure(3);
        figure.bones.clear();
        for (const int32_t parent : parents) figure.bones.push_back({.parent = parent});
        return Decoded(figure).succeeded;
    };
    EXPECT_TRUE(isTaken({1, 2, 3, -1}));
    EXPECT_FALSE(isTaken({0})) << "its own parent";
    EXPECT_FALSE(isTaken({-1, 2, 1})) << "two that hold each other";
    EXPECT_FALSE(isTaken({1, 2, 3, 1, -1})) << "a chain into a loop";
    EXPECT_FALSE(isTaken({-1, 0, 3, 4, 2})) << "a loop behind a good chain";
}

// --- What is refused ---

TEST(MbDecoder, RefusesEveryBrokenField) {
    MbFigure figure = richFigure();
    figure.colorTable = {{9, 9, 9}, {1, 2, 3}};
    figure.widths = {.index = 3, .colorVertexIndex = 3, .colorIndex = 2};
    const EncodedFile good = encodeMb(figure);
    ASSERT_TRUE(decodes(good.bytes));
    const char* const changes =
        "magic=0x4D42 version=1 version=6 version=-5 vertexFormat=0 vertexFormat=3 normalFormat=3 "
        "polygonFormat=0 polygonFormat=4 boneFormat=0 boneFormat=2 colorTriangleCount+=1 colorQuadCount+=-1 "
        "texturedTriangleCount+=1 texturedQuadCount+=-1 pattern[0].colorTriangleCount+=1 "
        "pattern[2].colorQuadCount+=1 pattern[1].texture[0].triangleCount+=1 pattern[0].texture[0].quadCount+=-1 "
        "colorTriangle[0].vertex[2]=5 colorQuad[0].vertex[3]=7 texturedTriangle[0].vertex[0]=5 "
        "texturedQuad[0].vertex[1]=6 colorTriangle[0].color=2 colorQuad[0].color=3 bone[0].parent=2 "
        "bone[0].parent=-2 bone[1].vertexCount=4 bone[0].vertexCount=0xFFFF normal[0].axis=6 normal[0].axis=7";
    forEachChange(good, changes, [](const EncodedFile& file) { expectRefused(HeapCopy(file.bytes), decode); });
}

// Files that would be good without the limit: the counts cost nothing else.
TEST(MbDecoder, KeepsItsLimits) {
    MbFigure figure = triangleFigure(4, 1, 0, 3);
    figure.polygons = {{.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, .color = Rgb{0, 0, 0}}};
    struct Case {
        const char* field;
        uint64_t limit;
    };
    for (const Case& c : {Case{"textureCount", 16}, Case{"patternCount", 33}, Case{"colorCount", 256}}) {
        EncodedFile file = encodeMb(figure);
        ASSERT_EQ(file.get("color.channelWidth"), 0u) << "black colours take no bits";
        file.set(c.field, c.limit);
        EXPECT_TRUE(decodes(file.bytes)) << c.field;
        file.set(c.field, c.limit + 1);
        EXPECT_FALSE(decodes(file.bytes)) << c.field;
    }
    MbFigure large = triangleFigure(2);
    large.vertices.resize(21845);
    EncodedFile file = encodeMb(large);
    EXPECT_TRUE(decodes(file.bytes)) << "vertexCount";
    file.bytes.insert(file.bytes.begin() + ptrdiff_t(file.field("vertex[0].x").offset()), 6, 0);
    file.set("vertexCount", 21846);
    EXPECT_FALSE(decodes(file.bytes)) << "vertexCount";
}

TEST(MbDecoder, RefusesEveryTruncation) {
    MbFigure plain = triangleFigure(2), packed = triangleFigure(4, 2, 2, 2), trailing = triangleFigure(3);
    plain.polygons.push_back({.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 0, 0}}});
    for (const MbFigure& figure : {plain, trailing, packed, richFigure()}) {
        SCOPED_TRACE(figure.version);
        expectOnlyWhole(encodeMb(figure).bytes, decode);
    }
}

TEST(MbDecoder, GivesEverythingBackWhenMemoryRunsOut) {
    MbFigure growing = splitVertex(300);
    growing.normalFormat = 1;
    for (const MbFigure& figure : {richFigure(), growing}) {
        const ByteList file = encodeMb(figure).bytes;
        sweepEngineAllocations(FailMode::Once, [&](CountingHeap& heap) {
            const bool succeeded = decodes(file);
            EXPECT_EQ(succeeded, !heap.hasFailed());
        });
    }
}

// --- Proportion ---

// Polygons of no bits at all: every width 0, every corner vertex 0.
EncodedFile polygonsOfNoBits(uint32_t count) {
    MbFigure figure = triangleFigure(4, 1, 0, 3);
    figure.vertices.resize(1);
    figure.polygons = {{.corners = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}}};
    EncodedFile file = encodeMb(figure);
    file.set("texturedTriangleCount", count);
    return file;
}

TEST(MbDecoder, PolygonsMustCostSomething) {
    const auto fileSize = uint32_t(polygonsOfNoBits(1).bytes.size());
    EXPECT_TRUE(decodes(polygonsOfNoBits(1024).bytes)) << "a few may come for nothing";
    EXPECT_TRUE(decodes(polygonsOfNoBits(1024 + fileSize / 2).bytes));
    EXPECT_FALSE(decodes(polygonsOfNoBits(1025 + fileSize / 2).bytes));
}

TEST(MbDecoder, RefusesEmptyPromisesBeforeItReserves) {
    for (const char* field : {"vertexCount", "boneCount", "texturedTriangleCount", "texturedQuadCount",
                              "colorTriangleCount", "colorQuadCount"}) {
        EncodedFile file = encodeMb(triangleFigure(4, 2, 1, 3));
        file.set(field, field == std::string("vertexCount") ? 21845 : 0xFFFF);
        CountingHeap heap;
        EXPECT_FALSE(decodes(file.bytes)) << field;
        EXPECT_LT(heap.peakBytes(), 4096) << field;
    }
}

// --- Through the encoder, which knows nothing of the library, and back ---

// What becomes of normals in units of 1/64 that are packed and unpacked.
using Normal = std::array<int, 3>;
std::vector<Normal> throughPackedForm(const std::vector<std::array<double, 3>>& wanted) {
    MbFigure figure = {.vertexFormat = 1};
    for (const auto& [x, y, z] : wanted)
        figure.vertices.push_back({.normal = {float(x / 64), float(y / 64), float(z / 64)}});
    const auto last = uint32_t(wanted.size() - 1);
    for (uint32_t i = 0; i <= last; i += 3)
        figure.polygons.push_back({.corners = {{i}, {std::min(i + 1, last)}, {std::min(i + 2, last)}}});
    const Decoded decoded(figure);
    EXPECT_EQ(decoded.model.expandedCount, wanted.size());
    std::vector<Normal> normals;
    for (const int8_t* n = decoded.model.normals; normals.size() < wanted.size(); n += 3)
        normals.push_back({n[0], n[1], n[2]});
    return normals;
}

TEST(MbRoundtrip, NormalsBecomeTheNearestThatThePackedFormCanSay) {
    std::vector<Normal> all;
    for (const int side : {64, -64}) all.insert(all.end(), {{side, 0, 0}, {0, side, 0}, {0, 0, side}});
    for (const int sign : {1, -1}) {
        std::vector<Normal> half;
        for (int x = -63; x <= 63; ++x)
            for (int y = -64; y <= 63; ++y)
                if (x * x + y * y <= 4096)
                    half.push_back({x, y, sign * int(std::lround(std::sqrt(4096.0 - x * x - y * y)))});
        std::vector<std::array<double, 3>> wanted;
        for (const auto& [x, y, z] : half) wanted.push_back({double(x), double(y), double(z)});
        ASSERT_EQ(throughPackedForm(wanted), half);
        all.insert(all.end(), half.begin(), half.end());
    }
    std::vector<std::array<double, 3>> between;
    for (int i = 0; i < 201; ++i) {
        const double angle = i * 2.4, height = (i - 100) * 0.63, z = i % 2 ? height : height / 16;  // half near the rim
        const double radius = std::sqrt(4096 - z * z);
        between.push_back({radius * std::cos(angle), radius * std::sin(angle), z});
    }
    const std::vector<Normal> normals = throughPackedForm(between);
    for (size_t i = 0; i < between.size(); ++i) {
        const auto [x, y, z] = between[i];
        const auto distance = [&](const Normal& n) { return std::hypot(n[0] - x, n[1] - y, n[2] - z); };
        double nearest = 1000;
        for (const Normal& normal : all) nearest = std::min(nearest, distance(normal));
        EXPECT_LE(distance(normals[i]), nearest + 1e-4) << x << " " << y << " " << z;  // floats in between
    }
}

constexpr uint32_t kKindCount = 4;  // colour triangles, colour quads, textured triangles, textured quads
uint32_t kindOf(const MbPolygon& polygon) { return (polygon.color ? 0 : 2) + (polygon.corners.size() == 4 ? 1 : 0); }

// Few different coordinates and colours, so that corners share vertices.
MbPolygon randomPolygon(Random& random, const MbFigure& figure) {
    const auto flag = [&](bool isPossible) { return isPossible && random.chance(2); };
    const bool isPacked = figure.polygonFormat > 1, isRich = figure.polygonFormat == 3, isColored = flag(isRich);
    MbPolygon polygon;
    for (uint32_t corner = 0, count = random.chance(2) ? 3 : 4; corner < count; ++corner) {
        const auto coordinate = [&] { return uint8_t(random.chance(8) ? (isRich ? 255 : 127) : random.below(3)); };
        polygon.corners.push_back({random.below(uint32_t(figure.vertices.size())), coordinate(), coordinate()});
    }
    if (isColored) polygon.color = {uint8_t(random.below(2) * 255), uint8_t(random.below(2)), uint8_t(random.below(9))};
    polygon.style = {.colorKey = flag(!isColored),
                     .twoSided = flag(true),
                     .blend = MbBlend(isPacked ? random.below(4) : 0),
                     .lit = flag(isPacked),
                     .environmentMap = flag(isPacked),
                     .flat = flag(isRich)};
    if (figure.version == 5 && isRich) {
        polygon.pattern = random.below(4);
        if (!isColored) polygon.texture = random.below(3);
    }
    return polygon;
}

// Bones hang on others that are nearer to one of them, by number, or on none.
std::vector<MbBone> randomBones(Random& random, uint32_t count) {
    std::vector<MbBone> bones(count);
    const auto root = int32_t(count > 0 ? random.below(count) : 0);
    for (int32_t i = 0; i < int32_t(count); ++i) {
        MbBone& bone = bones[size_t(i)];
        if (i != root && !random.chance(4))
            bone.parent = i < root ? random.between(i + 1, root) : random.between(root, i - 1);
        for (int16_t& element : bone.rest) element = random.anyInt16();
    }
    return bones;
}

// Vertices of all widths; normals that come back exactly, which with normalFormat 1 any do.
MbFigure randomFigure(Random& random) {
    MbFigure figure = {.version = random.between(2, 5), .vertexFormat = 1, .normalFormat = 0, .polygonFormat = 1};
    if (figure.version >= 4) {
        figure.vertexFormat = 1 + random.below(2);
        figure.normalFormat = random.below(3);
        figure.polygonFormat = 1 + random.below(3);
    }
    figure.bones = randomBones(random, random.below(8));
    figure.vertices.resize(random.chance(10) ? 0 : 1 + random.below(random.chance(4) ? 200 : 12));
    for (MbVertex& vertex : figure.vertices) {
        const uint32_t narrower = random.below(9);
        for (int16_t& component : vertex.position) component = int16_t(random.anyInt16() >> narrower);
        if (figure.normalFormat == 1)
            vertex.normal = {random.anyInt16() / 4096.0f, random.anyInt16() / 4096.0f, random.anyInt16() / 4096.0f};
        else
            vertex.normal[random.below(3)] = random.chance(2) ? 1.0f : -1.0f;
        vertex.bone = int32_t(random.below(uint32_t(figure.bones.size()) + 1)) - 1;
    }
    if (!figure.vertices.empty())
        for (uint32_t left = random.below(60); left > 0; --left)
            figure.polygons.push_back(randomPolygon(random, figure));
    if (figure.polygonFormat == 3 && random.chance(3)) {
        figure.patternCount = random.between(4, 33);
        figure.textureCount = random.between(3, 16);
    }
    if (random.chance(3)) figure.widths = {16, 13, 8 + random.below(9), 15, 17, 8, 11};
    if (random.chance(6)) figure.widths = {40, 33, 64, 50, 64, 40, 36};  // wider than any value
    return figure;
}

// A decoded figure as lists of numbers that compare and print. Polygons begin with their class.
using Model = std::map<std::string, std::vector<int64_t>>;

Model readModel(const FigureModelData& data) {
    Model model;
    const auto add = [&](const std::string& name, const auto* items, size_t count) {
        if (items) model[name].insert(model[name].end(), items, items + count);
    };
    model["counts"] = {data.textureCount,          data.colorCount,        data.colorTriangleCount, data.colorQuadCount,
                       data.texturedTriangleCount, data.texturedQuadCount, data.patternCount,       data.boneCount,
                       data.vertexCount,           data.expandedCount};
    add("positions", data.positions, data.expandedCount * 3);
    add("normals", data.normals, data.expandedCount * 3);
    add("colors", data.colors, data.expandedCount * 4);
    add("coordinates", data.texCoords, data.expandedCount * 2);
    add("classes", data.classKeys, data.classCount);
    const uint32_t textureRanges = data.patternCount * data.textureCount;
    add("starts[0]", data.colorTriangleStarts, data.patternCount + 1);
    add("starts[1]", data.colorQuadStarts, data.patternCount + 1);
    add("starts[2]", data.texturedTriangleStarts, textureRanges + 1);
    add("starts[3]", data.texturedQuadStarts, textureRanges + 1);
    const auto addPolygons = [&](const std::string& name, const auto* polygons, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            add(name, &polygons[i].attributeClass, 1);
            add(name, polygons[i].vertices, std::size(polygons[i].vertices));
        }
    };
    addPolygons("triangles", data.triangles, data.colorTriangleCount + data.texturedTriangleCount);
    addPolygons("quads", data.quads, data.colorQuadCount + data.texturedQuadCount);
    for (uint32_t i = 0; i < data.bones.groupCount; ++i)
        add(indexed("group", i), data.bones.groups[i].vertices, data.bones.groups[i].count);
    for (uint32_t b = 0; b < data.bones.boneCount; ++b) {
        const BoneRecord& bone = data.bones.bones[b];
        model[indexed("bone", b)] = {bone.parent, bone.changed, bone.firstGroup, bone.groupCount};
        add(indexed("bone", b), &bone.rest.m[0], 12);
        add(indexed("bone", b), &data.bones.local[b].m[0], 12);
    }
    return model;
}

// Builds what a figure must decode to from the description alone, corner by corner.
struct Expectation {
    struct Vertex {
        uint32_t source;
        std::array<int, 4> color;
        std::array<int, 2> coordinates;
    };
    const MbFigure& figure;
    uint32_t patternCount = 1, textureCount = figure.polygonFormat == 3 ? 0 : 1;
    Model model{};
    std::vector<uint32_t> filePosition = std::vector<uint32_t>(figure.vertices.size());
    std::vector<Vertex> expanded{};

    void append(const std::string& name, const auto& values) {
        model[name].insert(model[name].end(), std::begin(values), std::end(values));
    }

    void orderVertices() {
        uint32_t next = 0;
        const auto takeThoseOf = [&](int32_t bone) {
            for (uint32_t i = 0; i < figure.vertices.size(); ++i)
                if (figure.vertices[i].bone == bone) filePosition[i] = next++;
        };
        for (size_t b = 0; b < figure.bones.size(); ++b) {
            const MbBone& bone = figure.bones[b];
            const uint32_t first = next;
            takeThoseOf(int32_t(b));
            append(indexed("bone", b), std::array<int64_t, 4>{bone.parent, 1, first, next - first});
            append(indexed("bone", b), bone.rest);
            append(indexed("bone", b), bone.rest);
        }
        takeThoseOf(-1);
    }

    // Corners of one file vertex share an expanded vertex when the coordinates, or the colours, are the same.
    // Coordinates of vertices made for colour polygons are 0 and are shared as well.
    size_t expand(const Vertex& vertex, bool isColored) {
        const auto isSame = [&](const Vertex& other) {
            return other.source == vertex.source &&
                   (isColored ? other.color == vertex.color : other.coordinates == vertex.coordinates);
        };
        const auto found = std::ranges::find_if(expanded, isSame);
        if (found != expanded.end()) return size_t(found - expanded.begin());
        append(indexed("group", filePosition[vertex.source]), std::array{expanded.size()});
        expanded.push_back(vertex);
        return expanded.size() - 1;
    }

    void addPolygon(const MbPolygon& polygon) {
        const MbStyle& style = polygon.style;
        const uint32_t word = uint32_t(style.colorKey) | uint32_t(style.blend) << 1 | uint32_t(style.twoSided) << 4 |
                              uint32_t(style.environmentMap) << 5 | uint32_t(style.flat) << 6 |
                              uint32_t(style.lit) << 11;
        std::vector<int64_t>& classes = model["classes"];
        const auto found = std::ranges::find(classes, keyOf(word));
        std::vector<int64_t> record = {found - classes.begin()};
        if (found == classes.end()) classes.push_back(keyOf(word));
        for (const MbCorner& corner : polygon.corners) {
            Vertex vertex = {corner.vertex, {}, {}};
            if (polygon.color)
                vertex.color = {(*polygon.color)[0], (*polygon.color)[1], (*polygon.color)[2],
                                style.blend == MbBlend::Half ? 128 : 255};
            else
                vertex.coordinates = {corner.u, corner.v};
            record.push_back(int64_t(expand(vertex, polygon.color.has_value())));
        }
        append(polygon.corners.size() == 3 ? "triangles" : "quads", record);
    }

    void addPolygons() {
        for (uint32_t kind = 0; kind < kKindCount; ++kind) {
            std::vector<int64_t> starts = {0};
            const bool isColored = kind < 2;
            for (uint32_t s = 0; s < patternCount; ++s)
                for (uint32_t t = 0; t < (isColored ? 1 : textureCount); ++t) {
                    starts.push_back(starts.back());
                    for (const MbPolygon& polygon : figure.polygons) {
                        const bool inRange = polygon.pattern == s && (isColored || polygon.texture == t);
                        if (kindOf(polygon) != kind || !inRange) continue;
                        addPolygon(polygon);
                        ++starts.back();
                    }
                }
            append(indexed("starts", kind), starts);
        }
    }

    Model make() {
        std::array<int64_t, kKindCount> kindCounts{};
        std::set<Rgb> colors;
        for (const MbPolygon& polygon : figure.polygons) {
            ++kindCounts[kindOf(polygon)];
            patternCount = std::max(patternCount, polygon.pattern + 1);
            if (polygon.color)
                colors.insert(*polygon.color);
            else
                textureCount = std::max(textureCount, polygon.texture + 1);
        }
        patternCount = figure.patternCount.value_or(patternCount);
        textureCount = figure.textureCount.value_or(textureCount);
        orderVertices();
        addPolygons();
        append("counts", std::array<int64_t, 2>{textureCount, int64_t(colors.size())});
        append("counts", kindCounts);
        append("counts",
               std::array{size_t(patternCount), figure.bones.size(), figure.vertices.size(), expanded.size()});
        for (const Vertex& vertex : expanded) {
            const MbVertex& described = figure.vertices[vertex.source];
            append("positions", described.position);
            for (const float component : described.normal)
                if (figure.normalFormat > 0) model["normals"].push_back(int8_t((int(component * 4096) + 32) >> 6));
            if (!colors.empty()) append("colors", vertex.color);
            if (textureCount > 0) append("coordinates", vertex.coordinates);
        }
        return model;
    }
};

TEST(MbRoundtrip, DecodesToWhatWasDescribed) {
    Random random{std::mt19937(20)};
    for (int round = 0; round < 800 && !testing::Test::HasFailure(); ++round) {
        const MbFigure figure = randomFigure(random);
        const EncodedFile file = encodeMb(figure);
        SCOPED_TRACE(testing::PrintToString(std::array{uint32_t(round), uint32_t(figure.version), figure.vertexFormat,
                                                       figure.normalFormat, figure.polygonFormat}));
        const CountingHeap heap;
        MemoryStream stream;
        MemoryStream_init(&stream, file.bytes.data(), uint32_t(file.bytes.size()));
        FigureModelData data{};
        ASSERT_TRUE(D_FigureModel_decode(&stream, &data, false));
        EXPECT_EQ(stream.cursor, stream.end);
        Model model = readModel(data), expected = Expectation{figure}.make();
        for (const auto& [name, values] : expected) EXPECT_EQ(model[name], values) << name;
        for (const auto& [name, values] : model) EXPECT_EQ(expected[name], values) << name;
        D_FigureModel_release(&data);
    }
}

}  // namespace
