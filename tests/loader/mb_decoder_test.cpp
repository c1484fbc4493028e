#include "loader/mb_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "loader/figure_appearance.h"
#include "tests/loader/content.h"
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
// textures; vertices and polygons in another order than the file's.
MbFigure richFigure() {
    MbFigure figure;
    figure.vertices = {{{-1, -1, -1}, {0, 0, -1}, -1},
                       {{0, 500, 0}, {0, 1, 0}, 1},
                       {{0, 0, 0}, {0, 0, 1}, 0},
                       {{0, 0, 5000}, {-1, 0, 0}, 1},
                       {{100, 0, 0}, {0.6f, 0, 0.8f}, 0}};
    figure.bones = {{.parent = 1}, {.parent = -1, .rest = translationBone(10, 20, 30)}};
    const std::vector<MbCorner> triangle = {{2, 0, 0}, {4, 255, 0}, {1, 0, 255}}, other = {{3}, {2, 1, 1}, {1, 0, 255}};
    const std::vector<MbCorner> quad = {{2, 1, 1}, {4, 2, 2}, {1, 3, 3}, {0, 4, 4}};
    const MbStyle half = {.blend = MbBlend::Half};
    figure.polygons = {{.corners = triangle, .style = {.lit = true}, .pattern = 2, .texture = 1},
                       {.corners = quad},
                       {.corners = triangle, .style = half, .color = Rgb{1, 2, 3}},
                       {.corners = quad, .pattern = 1, .color = Rgb{200, 0, 7}},
                       {.corners = other, .style = half, .texture = 1}};
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

TEST(MbDecoder, RoundsPlainNormalsAndLimitsPackedOnes) {
    EncodedFile plain = encodeMb(triangleFigure(4, 1, 1)), packed = encodeMb(richFigure());
    changeFields(plain, "x=31&y=32&z=-32", "normal[0].");
    changeFields(plain, "x=-33&y=32767&z=-32768", "normal[1].");
    EXPECT_EQ(listOf(Decoded(plain.bytes).model.normals, 6), (std::vector<int8_t>{0, 1, 0, -1, 0, 0}));
    changeFields(packed, "x=60&y=60&zSign=1", "normal[1].");
    EXPECT_EQ(listOf(Decoded(packed.bytes).model.normals + 3, 3), (std::vector<int8_t>{60, 60, 0}));
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
    MbFigure figure = triangleFigure(4);
    figure.vertices.resize(1);
    figure.polygons.clear();
    for (uint32_t i = 0; i < count; i += 3) {
        const auto corner = [&](uint32_t k) { return MbCorner{0, uint8_t(k), uint8_t(k >> 8)}; };
        figure.polygons.push_back({.corners = {corner(i), corner(i + 1), corner(i + 2)}});
    }
    return figure;
}

TEST(MbDecoder, RefusesMoreVerticesThanAnArrayHolds) {
    MbFigure figure = splitVertex(65535);
    const std::vector<MbPolygon> again(figure.polygons.rbegin(), figure.polygons.rend());
    figure.polygons.insert(figure.polygons.end(), again.begin(), again.end());
    const Decoded decoded(figure);
    ASSERT_TRUE(decoded.succeeded);
    EXPECT_EQ(decoded.model.expandedCount, 65535u) << "corners that were there before make no vertices";
    figure.polygons.push_back({.corners = {{0, 255, 255}, {0, 255, 255}, {0, 255, 255}}});
    EXPECT_FALSE(decodes(encodeMb(figure).bytes));
}

// --- Patterns ---

TEST(MbDecoder, BeforeVersion5EverythingIsOfPattern0AndTexture0) {
    MbFigure figure = triangleFigure(4, 1, 0, 3);
    figure.polygons.push_back({.corners = {{0}, {1}, {2}}, .color = Rgb{1, 2, 3}});
    figure.patternCount = figure.textureCount = 2;
    EncodedFile file = encodeMb(figure);
    const Decoded decoded(file.bytes);
    EXPECT_EQ(listOf(decoded.model.colorTriangleStarts, 3), (std::vector<uint32_t>{0, 1, 1}));
    EXPECT_EQ(listOf(decoded.model.texturedTriangleStarts, 5), (std::vector<uint32_t>{0, 1, 1, 1, 1}));
    EXPECT_EQ(listOf(decoded.model.texturedQuadStarts, 5), std::vector<uint32_t>(5));
    file.set("patternCount", 0);
    EXPECT_EQ(Decoded(file.bytes).model.patternCount, 1u) << "there is a pattern 0 nevertheless";
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
    figure.colorTable = {{200, 0, 7}, {1, 2, 3}};
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
    const auto refuses = [](const EncodedFile& file) { expectRefused(HeapCopy(file.bytes), decode); };
    forEachChange(good, changes, refuses);
    figure.widths = {.attribute = 40, .index = 50};
    const EncodedFile wide = encodeMb(figure);
    ASSERT_TRUE(decodes(wide.bytes));
    forEachChange(wide, "texturedTriangle[0].attribute=0x8000000000 texturedQuad[0].vertex[1]=0x100000000", refuses);
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
        const auto& p = between[i];
        const auto distance = [&p](const Normal& n) { return std::hypot(n[0] - p[0], n[1] - p[1], n[2] - p[2]); };
        double nearest = 1000;
        for (const Normal& normal : all) nearest = std::min(nearest, distance(normal));
        EXPECT_LE(distance(normals[i]), nearest + 1e-4) << testing::PrintToString(p);  // floats in between
    }
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

TEST(MbRoundtrip, DecodesToWhatWasDescribed) {
    const ByteList file = encodeMb(richFigure()).bytes;
    MemoryStream stream;
    MemoryStream_init(&stream, file.data(), uint32_t(file.size()));
    FigureModelData data;
    ASSERT_TRUE(D_FigureModel_decode(&stream, &data, false));
    EXPECT_EQ(stream.cursor, stream.end);
    Model model = readModel(data);
    D_FigureModel_release(&data);
    // Corners of coloured polygons come first: 0..2 and 3..6. Vertex 0 also serves a textured corner at (0, 0).
    const Model expected = {
        {"counts", {2, 2, 1, 1, 2, 1, 3, 2, 5, 14}},
        {"positions", {0, 0, 0,    100, 0, 0, 0, 500, 0, 0,   0, 0, 100, 0, 0, 0, 500, 0, -1, -1, -1,
                       0, 0, 5000, 0,   0, 0, 0, 500, 0, 100, 0, 0, 100, 0, 0, 0, 500, 0, -1, -1, -1}},
        {"normals", {0,   0, 64, 38, 0, 51, 0, 64, 0, 0,  0, 64, 38, 0, 51, 0, 64, 0, 0, 0, -64,
                     -64, 0, 0,  0,  0, 64, 0, 64, 0, 38, 0, 51, 38, 0, 51, 0, 64, 0, 0, 0, -64}},
        {"colors",
         {1, 2, 3, 128, 1, 2, 3, 128, 1, 2, 3, 128, 200, 0, 7, 255, 200, 0, 7, 255, 200, 0, 7, 255, 200, 0, 7, 255,
          0, 0, 0, 0,   0, 0, 0, 0,   0, 0, 0, 0,   0,   0, 0, 0,   0,   0, 0, 0,   0,   0, 0, 0,   0,   0, 0, 0}},
        {"coordinates", {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 0, 255, 255, 0, 2, 2, 3, 3, 4, 4}},
        {"classes", {0x0204, 0x0104, 0x0101}},
        {"starts[0]", {0, 1, 1, 1}},
        {"starts[1]", {0, 0, 1, 1}},
        {"starts[2]", {0, 0, 1, 1, 1, 1, 2}},
        {"starts[3]", {0, 1, 1, 1, 1, 1, 1}},
        {"triangles", {0, 0, 1, 2, /* next */ 0, 7, 8, 9, /* next */ 2, 0, 10, 9}},
        {"quads", {1, 3, 4, 5, 6, /* next */ 1, 8, 11, 12, 13}},
        {"group[0]", {0, 3, 8}},
        {"group[1]", {1, 4, 10, 11}},
        {"group[2]", {2, 5, 9, 12}},
        {"group[3]", {7}},
        {"group[4]", {6, 13}},
        {"bone[0]",
         {1, 1, 0, 2, 4096, 0, 0, 0, 0, 4096, 0, 0, 0, 0, 4096, 0, 4096, 0, 0, 0, 0, 4096, 0, 0, 0, 0, 4096, 0}},
        {"bone[1]", {-1,   1,  2,    2, 4096, 0,  0, 10,   0, 4096, 0, 20, 0,    0,
                     4096, 30, 4096, 0, 0,    10, 0, 4096, 0, 20,   0, 0,  4096, 30}}};
    for (const auto& [name, values] : expected) EXPECT_EQ(model[name], values) << name;
    EXPECT_EQ(model.size(), expected.size());
}

TEST(MbRoundtrip, EveryVersionAndFormatSaysTheSame) {
    MbFigure figure = triangleFigure(2);
    for (const auto limit : std::to_array<int16_t>({127, 511, 4095, 32767}))
        figure.vertices.push_back({{limit, int16_t(-limit - 1), limit}, {0, -1, 0}, limit > 511});
    figure.bones = {{.parent = 1}, {.rest = {-32768, 32767, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}}};
    figure.polygons.push_back({.corners = {{3}, {4, 127, 0}, {5, 0, 127}, {6, 1, 1}}, .style = {.twoSided = true}});
    figure.polygons.push_back({.corners = {{6, 1, 1}, {4, 3, 3}, {3, 1, 0}}, .style = {.colorKey = true}});
    Model plain = readModel(Decoded(figure).model);
    std::vector<int64_t> normals;
    EXPECT_EQ(plain["classes"], (std::vector<int64_t>{0x0104, 0x0904, 0x0124}));
    const MbWidths tight, wide = {40, 33, 64, 50, 64, 40, 36};  // wider than any value
    for (const int32_t version : {3, 4, 5})
        for (uint32_t formats = 0; formats < (version < 4 ? 1 : 18); ++formats)
            for (const MbWidths& widths : {tight, wide}) {
                figure.version = version;
                figure.vertexFormat = 1 + formats % 2;
                figure.normalFormat = formats / 2 % 3;
                figure.polygonFormat = 1 + formats / 6;
                figure.widths = widths;
                SCOPED_TRACE(testing::PrintToString(std::array{uint32_t(version), formats}));
                const Decoded decoded(figure);
                ASSERT_TRUE(decoded.succeeded);
                Model model = readModel(decoded.model);
                if (figure.normalFormat > 0) {
                    if (normals.empty()) normals = model["normals"];
                    EXPECT_EQ(model["normals"], normals);
                    model.erase("normals");
                }
                EXPECT_EQ(model, plain);
            }
    EXPECT_EQ(normals.size(), 3u * 9);
}

}  // namespace
