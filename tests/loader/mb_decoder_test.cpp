#include "loader/mb_decoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

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

    std::vector<int16_t> positions() const { return listOf(model.positions, model.expandedCount * 3); }
    std::vector<uint8_t> colors() const { return listOf(model.colors, model.expandedCount * 4); }
    std::vector<uint16_t> texCoords() const { return listOf(model.texCoords, model.expandedCount * 2); }
    std::vector<uint16_t> keys() const { return listOf(model.classKeys, model.classCount); }

    FigureModelData model;
    bool succeeded;
};

bool decodes(const ByteList& file) {
    const Decoded decoded(file);
    if (!decoded.succeeded) {
        const FigureModelData& model = decoded.model;
        EXPECT_EQ(model.positions, nullptr) << "a failed model is empty";
        EXPECT_EQ(model.bones.bones, nullptr) << "a failed model is empty";
    }
    return decoded.succeeded;
}

bool decodesFromOpaqueStream(const HeapCopy& file) {
    OpaqueStream stream(file.data(), file.size());
    FigureModelData model;
    const bool succeeded = D_FigureModel_decode(&stream, &model, false);
    D_FigureModel_release(&model);
    return succeeded;
}

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
    const auto first = [&](const std::string& changes) {
        EncodedFile file = encodeMb(figure);
        changeFields(file, changes, "normal[0].");
        return listOf(Decoded(file.bytes).model.normals, 3);
    };
    using Normal = std::vector<int8_t>;
    EXPECT_EQ(first("x=38&y=-12&zSign=1"), (Normal{38, -12, -50}));
    EXPECT_EQ(first("x=1&y=0&zSign=0"), (Normal{1, 0, 64})) << "rounded to nearest";
    EXPECT_EQ(first("x=0&y=-64&zSign=1"), (Normal{0, -64, 0}));
    EXPECT_EQ(first("x=60&y=60&zSign=1"), (Normal{60, 60, 0})) << "longer than a unit";
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

TEST(MbDecoder, ReadsFieldsWiderThanAnyValue) {
    MbFigure figure = richFigure();
    const Decoded narrow(figure);
    figure.widths = {40, 33, 64, 50, 64, 40, 36};
    const Decoded wide(figure);
    ASSERT_TRUE(wide.succeeded);
    EXPECT_EQ(wide.positions(), narrow.positions());
    EXPECT_EQ(wide.colors(), narrow.colors());
    EXPECT_EQ(wide.texCoords(), narrow.texCoords());
    EXPECT_EQ(wide.keys(), narrow.keys());
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

TEST(MbDecoder, BeforeVersion5EverythingIsOfPattern0AndTexture0) {
    MbFigure figure = triangleFigure(4, 1, 0, 3);
    figure.polygons.push_back({.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, .color = Rgb{1, 2, 3}});
    figure.patternCount = 2;
    figure.textureCount = 2;
    const Decoded decoded(figure);
    const FigureModelData& model = decoded.model;
    EXPECT_EQ(listOf(model.colorTriangleStarts, 3), (std::vector<uint32_t>{0, 1, 1}));
    EXPECT_EQ(listOf(model.texturedTriangleStarts, 5), (std::vector<uint32_t>{0, 1, 1, 1, 1}));
    EXPECT_EQ(listOf(model.texturedQuadStarts, 5), std::vector<uint32_t>(5));

    EncodedFile withoutPatterns = encodeMb(figure);
    withoutPatterns.set("patternCount", 0);
    EXPECT_EQ(Decoded(withoutPatterns.bytes).model.patternCount, 1u) << "there is a pattern 0 nevertheless";
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
    forEachChange(good, changes, [](const EncodedFile& file) {
        EXPECT_FALSE(decodes(file.bytes));
        EXPECT_FALSE(decodesFromOpaqueStream(HeapCopy(file.bytes))) << "length not known";
    });
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
        expectOnlyWhole(encodeMb(figure).bytes, decodes, decodesFromOpaqueStream);
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

// --- Random figures through the encoder, which knows nothing of the library, and back ---
// What must come out is computed from the description alone.

constexpr uint32_t kKindCount = 4;  // colour triangles, colour quads, textured triangles, textured quads
uint32_t kindOf(const MbPolygon& polygon) { return (polygon.color ? 0 : 2) + (polygon.corners.size() == 4 ? 1 : 0); }

int16_t randomCoordinate(Random& random) {
    constexpr int32_t kLimits[] = {127, 511, 4095, 32767};
    const int32_t limit = kLimits[random.below(4)];
    return int16_t(random.between(-limit - 1, limit));
}

// A normal that comes back exactly, in units of 1/64; with normalFormat 1 any 16-bit value does, in units of 1/4096.
std::array<float, 3> randomNormal(Random& random, uint32_t normalFormat) {
    if (normalFormat == 1)
        return {random.anyInt16() / 4096.0f, random.anyInt16() / 4096.0f, random.anyInt16() / 4096.0f};
    if (random.chance(4)) {
        std::array<float, 3> axis{};
        axis[random.below(3)] = random.chance(2) ? 1.0f : -1.0f;
        return axis;
    }
    const int32_t x = random.between(-63, 63), yLimit = int32_t(std::sqrt(4095 - x * x)),
                  y = random.between(-yLimit, yLimit);
    const auto z = float(std::lround(std::sqrt(4096.0 - x * x - y * y)));
    return {float(x) / 64, float(y) / 64, (random.chance(2) ? z : -z) / 64};
}

MbStyle randomStyle(Random& random, uint32_t polygonFormat, bool isColored) {
    MbStyle style;
    style.colorKey = !isColored && random.chance(2);
    style.twoSided = random.chance(2);
    if (polygonFormat == 1) return style;
    style.blend = MbBlend(random.below(4));
    style.lit = random.chance(2);
    style.environmentMap = random.chance(2);
    style.flat = polygonFormat == 3 && random.chance(2);
    return style;
}

// Few different coordinates and colours, so that corners share vertices.
MbPolygon randomPolygon(Random& random, const MbFigure& figure) {
    const auto vertexCount = uint32_t(figure.vertices.size());
    const uint32_t lastCoordinate = figure.polygonFormat == 2 ? 127 : 255;
    MbPolygon polygon;
    for (uint32_t corner = 0, count = random.chance(2) ? 3 : 4; corner < count; ++corner) {
        const auto coordinate = [&] { return uint8_t(random.chance(8) ? lastCoordinate : random.below(3)); };
        polygon.corners.push_back({random.below(vertexCount), coordinate(), coordinate()});
    }
    if (figure.polygonFormat == 3 && random.chance(2))
        polygon.color = Rgb{uint8_t(random.below(2) * 255), uint8_t(random.below(2)), uint8_t(random.below(20))};
    polygon.style = randomStyle(random, figure.polygonFormat, polygon.color.has_value());
    if (figure.version == 5 && figure.polygonFormat == 3) {
        polygon.pattern = random.below(4);
        if (!polygon.color) polygon.texture = random.below(3);
    }
    return polygon;
}

// Every bone but the root of its tree hangs on one that was drawn before it, in an order other than the file's.
std::vector<MbBone> randomBones(Random& random, uint32_t count) {
    std::vector<MbBone> bones(count);
    std::vector<int32_t> order;
    for (uint32_t i = 0; i < count; ++i) order.insert(order.begin() + random.below(i + 1), int32_t(i));
    for (uint32_t i = 0; i < count; ++i) {
        MbBone& bone = bones[size_t(order[i])];
        bone.parent = i == 0 || random.chance(4) ? -1 : order[random.below(i)];
        for (int16_t& element : bone.rest) element = random.anyInt16();
    }
    return bones;
}

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
        for (int16_t& component : vertex.position) component = randomCoordinate(random);
        vertex.normal = randomNormal(random, figure.normalFormat);
        vertex.bone = int32_t(random.below(uint32_t(figure.bones.size()) + 1)) - 1;
    }
    if (!figure.vertices.empty())
        for (uint32_t left = random.below(60); left > 0; --left)
            figure.polygons.push_back(randomPolygon(random, figure));
    if (figure.polygonFormat == 3 && random.chance(3)) {
        figure.patternCount = random.between(4, 33);
        figure.textureCount = random.between(3, 16);
    }
    if (random.chance(3))
        figure.widths = {.attribute = 16,
                         .index = 13,
                         .coordinate = 8 + random.below(9),
                         .colorAttribute = 15,
                         .colorVertexIndex = 17,
                         .colorChannel = 8,
                         .colorIndex = 11};
    return figure;
}

// Sets attribute bits that mean nothing where the widths leave room for them.
void addMeaninglessBits(const MbFigure& figure, EncodedFile& file) {
    if (figure.polygonFormat != 3) return;
    for (const Field& field : file.fields)
        if (field.name.ends_with(".attribute") && field.bitCount >= 10)
            file.set(field, file.get(field) | (field.name.starts_with("color") ? 0x180 : 0x300));
}

// A decoded figure in lists that compare and print.
struct Model {
    struct Polygon {
        int32_t attributeClass;
        std::vector<uint16_t> vertices;
        bool operator==(const Polygon&) const = default;
    };
    struct Bone {
        int32_t parent;
        uint16_t changed;
        std::vector<int32_t> rest, local;
        uint32_t firstGroup, groupCount;
        bool operator==(const Bone&) const = default;
    };
    std::vector<uint32_t> counts;
    std::vector<std::array<int, 3>> positions, normals;
    std::vector<std::array<int, 4>> colors;
    std::vector<std::array<int, 2>> texCoords;
    std::vector<uint16_t> classKeys;
    std::vector<uint32_t> starts[kKindCount];
    std::vector<Polygon> triangles, quads;
    std::vector<std::vector<uint16_t>> groups;
    std::vector<Bone> bones;
};

// The appearance key that a style asks for.
uint16_t keyOfStyle(const MbStyle& style) {
    constexpr uint16_t kBlendKeys[] = {0x0100, 0x0200, 0x0400, 0x1000};
    uint16_t key = kBlendKeys[uint32_t(style.blend)];
    key |= style.lit ? 0x0001 : 0x0004;
    if (style.lit && style.environmentMap) key |= 0x0002;
    if (style.twoSided) key |= 0x0020;
    if (style.flat) key |= 0x0040;
    if (style.twoSided && style.flat) key |= 0x0080;
    if (style.colorKey) key |= 0x0800;
    return key;
}

// Builds what a figure must decode to, corner by corner.
struct Expectation {
    const MbFigure& figure;
    Model model{};
    std::vector<uint32_t> vertexOrder{};  // description index of each file vertex
    std::vector<uint32_t> filePosition{};

    std::array<int, 3> normalOf(const MbVertex& vertex) const {
        std::array<int, 3> normal{};
        for (size_t i = 0; i < 3; ++i)
            normal[i] = figure.normalFormat == 2 ? int(vertex.normal[i] * 64)
                                                 : int8_t((int(vertex.normal[i] * 4096) + 32) >> 6);
        return normal;
    }

    void orderVertices() {
        const auto takeThoseOf = [&](int32_t bone) {
            for (uint32_t i = 0; i < figure.vertices.size(); ++i)
                if (figure.vertices[i].bone == bone) vertexOrder.push_back(i);
        };
        for (size_t b = 0; b < figure.bones.size(); ++b) {
            const MbBone& bone = figure.bones[b];
            const auto first = uint32_t(vertexOrder.size());
            takeThoseOf(int32_t(b));
            const std::vector<int32_t> rest(bone.rest.begin(), bone.rest.end());
            model.bones.push_back({bone.parent, 1, rest, rest, first, uint32_t(vertexOrder.size()) - first});
        }
        takeThoseOf(-1);
        filePosition.resize(vertexOrder.size());
        for (uint32_t i = 0; i < vertexOrder.size(); ++i) filePosition[vertexOrder[i]] = i;
        model.groups.resize(vertexOrder.size());
    }

    // Corners of one file vertex share an expanded vertex when the coordinates, or the colours, are the same.
    // Coordinates of vertices made for colour polygons are 0 and are shared as well.
    uint16_t expand(uint32_t vertex, bool isColored, std::array<int, 4> color, std::array<int, 2> texCoord) {
        std::vector<uint16_t>& group = model.groups[filePosition[vertex]];
        for (const uint16_t candidate : group)
            if (isColored ? model.colors[candidate] == color : model.texCoords[candidate] == texCoord) return candidate;
        const auto& position = figure.vertices[vertex].position;
        model.positions.push_back({position[0], position[1], position[2]});
        model.normals.push_back(normalOf(figure.vertices[vertex]));
        model.colors.push_back(color);
        model.texCoords.push_back(texCoord);
        group.push_back(uint16_t(model.positions.size() - 1));
        return group.back();
    }

    void addPolygon(const MbPolygon& polygon) {
        const uint16_t key = keyOfStyle(polygon.style);
        const auto found = std::ranges::find(model.classKeys, key);
        Model::Polygon record = {int32_t(found - model.classKeys.begin()), {}};
        if (found == model.classKeys.end()) model.classKeys.push_back(key);
        std::array<int, 4> color{};
        if (polygon.color) {
            const Rgb& rgb = *polygon.color;
            color = {rgb[0], rgb[1], rgb[2], polygon.style.blend == MbBlend::Half ? 128 : 255};
        }
        for (const MbCorner& corner : polygon.corners) {
            const bool isColored = polygon.color.has_value();
            std::array<int, 2> texCoord{};
            if (!isColored) texCoord = {corner.u, corner.v};
            record.vertices.push_back(expand(corner.vertex, isColored, color, texCoord));
        }
        (polygon.corners.size() == 3 ? model.triangles : model.quads).push_back(record);
    }

    void addPolygons(uint32_t patternCount, uint32_t textureCount) {
        for (uint32_t kind = 0; kind < kKindCount; ++kind) {
            uint32_t total = 0;
            model.starts[kind] = {0};
            const bool isColored = kind < 2;
            for (uint32_t s = 0; s < patternCount; ++s)
                for (uint32_t t = 0; t < (isColored ? 1 : textureCount); ++t) {
                    for (const MbPolygon& polygon : figure.polygons) {
                        const bool inRange = polygon.pattern == s && (isColored || polygon.texture == t);
                        if (kindOf(polygon) != kind || !inRange) continue;
                        addPolygon(polygon);
                        ++total;
                    }
                    model.starts[kind].push_back(total);
                }
        }
    }
};

Model expectedModel(const MbFigure& figure) {
    uint32_t patternCount = 1, textureCount = figure.polygonFormat == 3 ? 0 : 1;
    uint32_t kindCounts[kKindCount] = {};
    std::vector<Rgb> colors;
    for (const MbPolygon& polygon : figure.polygons) {
        ++kindCounts[kindOf(polygon)];
        patternCount = std::max(patternCount, polygon.pattern + 1);
        if (!polygon.color) textureCount = std::max(textureCount, polygon.texture + 1);
        if (polygon.color && std::ranges::find(colors, *polygon.color) == colors.end())
            colors.push_back(*polygon.color);
    }
    patternCount = figure.patternCount.value_or(patternCount);
    textureCount = figure.textureCount.value_or(textureCount);

    Expectation expectation{figure};
    expectation.orderVertices();
    expectation.addPolygons(patternCount, textureCount);
    Model& model = expectation.model;
    const auto expandedCount = uint32_t(model.positions.size());
    model.counts = {textureCount,
                    uint32_t(colors.size()),
                    kindCounts[0],
                    kindCounts[1],
                    kindCounts[2],
                    kindCounts[3],
                    patternCount,
                    uint32_t(figure.bones.size()),
                    uint32_t(figure.vertices.size()),
                    expandedCount};
    if (figure.normalFormat == 0) model.normals.clear();
    if (colors.empty()) model.colors.clear();
    if (textureCount == 0) model.texCoords.clear();
    return model;
}

template <size_t N, typename T>
std::vector<std::array<int, N>> tuplesOf(const T* items, size_t count) {
    std::vector<std::array<int, N>> tuples(items ? count : 0);
    for (size_t i = 0; i < tuples.size(); ++i) std::copy_n(items + i * N, N, tuples[i].begin());
    return tuples;
}

Model readModel(const FigureModelData& data) {
    Model model;
    model.counts = {data.textureCount,          data.colorCount,        data.colorTriangleCount, data.colorQuadCount,
                    data.texturedTriangleCount, data.texturedQuadCount, data.patternCount,       data.boneCount,
                    data.vertexCount,           data.expandedCount};
    model.positions = tuplesOf<3>(data.positions, data.expandedCount);
    model.normals = tuplesOf<3>(data.normals, data.expandedCount);
    model.colors = tuplesOf<4>(data.colors, data.expandedCount);
    model.texCoords = tuplesOf<2>(data.texCoords, data.expandedCount);
    model.classKeys = listOf(data.classKeys, size_t(data.classCount));
    const uint32_t texturedRanges = data.patternCount * data.textureCount;
    model.starts[0] = listOf(data.colorTriangleStarts, data.patternCount + 1);
    model.starts[1] = listOf(data.colorQuadStarts, data.patternCount + 1);
    model.starts[2] = listOf(data.texturedTriangleStarts, texturedRanges + 1);
    model.starts[3] = listOf(data.texturedQuadStarts, texturedRanges + 1);
    for (const TriangleRecord& each : listOf(data.triangles, data.colorTriangleCount + data.texturedTriangleCount))
        model.triangles.push_back({each.attributeClass, listOf(each.vertices, 3)});
    for (const QuadRecord& each : listOf(data.quads, data.colorQuadCount + data.texturedQuadCount))
        model.quads.push_back({each.attributeClass, listOf(each.vertices, 4)});
    for (const VertexGroup& each : listOf(data.bones.groups, data.bones.groupCount))
        model.groups.push_back(listOf(each.vertices, each.count));
    for (uint32_t b = 0; b < data.bones.boneCount; ++b) {
        const BoneRecord& bone = data.bones.bones[b];
        model.bones.push_back({bone.parent, bone.changed, listOf(&bone.rest.m[0], 12),
                               listOf(&data.bones.local[b].m[0], 12), bone.firstGroup, bone.groupCount});
    }
    return model;
}

TEST(MbRoundtrip, DecodesToWhatWasDescribed) {
    Random random{std::mt19937(20)};
    for (int round = 0; round < 800 && !testing::Test::HasFailure(); ++round) {
        const MbFigure figure = randomFigure(random);
        EncodedFile file = encodeMb(figure);
        addMeaninglessBits(figure, file);
        SCOPED_TRACE("round " + std::to_string(round) + ", version " + std::to_string(figure.version) + ", formats " +
                     std::to_string(figure.vertexFormat) + std::to_string(figure.normalFormat) +
                     std::to_string(figure.polygonFormat));
        CountingHeap heap;
        MemoryStream stream;
        MemoryStream_init(&stream, file.bytes.data(), uint32_t(file.bytes.size()));
        FigureModelData data{};
        ASSERT_TRUE(D_FigureModel_decode(&stream, &data, false));
        EXPECT_EQ(stream.cursor, stream.end);
        const Model model = readModel(data), expected = expectedModel(figure);
        EXPECT_EQ(model.counts, expected.counts);
        EXPECT_EQ(model.positions, expected.positions);
        EXPECT_EQ(model.normals, expected.normals);
        EXPECT_EQ(model.colors, expected.colors);
        EXPECT_EQ(model.texCoords, expected.texCoords);
        EXPECT_EQ(model.classKeys, expected.classKeys);
        for (uint32_t kind = 0; kind < kKindCount; ++kind) EXPECT_EQ(model.starts[kind], expected.starts[kind]) << kind;
        EXPECT_TRUE(model.triangles == expected.triangles);
        EXPECT_TRUE(model.quads == expected.quads);
        EXPECT_EQ(model.groups, expected.groups);
        EXPECT_TRUE(model.bones == expected.bones);
        D_FigureModel_release(&data);
        EXPECT_EQ(heap.liveBlocks(), 0);
    }
}

}  // namespace
