#include "loader/mb_decoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <span>

#include "loader/figure_appearance.h"
#include "tests/loader/content.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/mb_encoder.h"

namespace {

using namespace encode;
using testing::ElementsAre;
using testing::ElementsAreArray;

// A model and whether it could be decoded.
struct Decoded {
    explicit Decoded(const ByteList& file, bool magicConsumed = false) {
        const HeapCopy copy(file);
        MemoryStream stream;
        MemoryStream_init(&stream, copy.data(), copy.size());
        succeeded = D_FigureModel_decode(&stream, &model, magicConsumed);
        bytesLeft = LoaderStream_bytesLeft(&stream);
    }
    explicit Decoded(const MbFigure& figure) : Decoded(encodeMb(figure).bytes) {}
    ~Decoded() { D_FigureModel_release(&model); }

    std::span<const int16_t> positions() const { return {model.positions, model.expandedCount * 3}; }
    std::span<const int8_t> normals() const { return {model.normals, model.normals ? model.expandedCount * 3 : 0}; }
    std::span<const uint16_t> texCoords() const { return {model.texCoords, model.expandedCount * 2}; }
    std::span<const uint8_t> colors() const { return {model.colors, model.colors ? model.expandedCount * 4 : 0}; }
    std::span<const uint16_t> keys() const { return {model.classKeys, model.classCount}; }
    std::span<const uint16_t> group(uint32_t vertex) const {
        const VertexGroup& group = model.bones.groups[vertex];
        return {group.vertices, group.count};
    }

    FigureModelData model;
    bool succeeded;
    uint32_t bytesLeft;
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

TEST(MbDecoder, DecodesAnEmptyModel) {
    const Decoded decoded(MbFigure{.version = 2, .vertexFormat = 1, .normalFormat = 0, .polygonFormat = 1});
    ASSERT_TRUE(decoded.succeeded) << "version 2 has no trailer";
    EXPECT_EQ(decoded.bytesLeft, 0u);
    const FigureModelData& model = decoded.model;
    EXPECT_EQ(model.expandedCount, 0u);
    EXPECT_EQ(model.textureCount, 1u);
    EXPECT_EQ(model.patternCount, 1u);
    EXPECT_EQ(model.colorCount, 0u);
    EXPECT_EQ(model.colors, nullptr);
    EXPECT_EQ(model.normals, nullptr);
}

TEST(MbDecoder, DecodesPlainTrianglesAndQuads) {
    MbFigure figure = triangleFigure(2);
    figure.polygons[0].style = {.colorKey = true, .twoSided = true};
    figure.polygons.push_back({.corners = {{2, 5, 127}, {1, 8, 9}, {0, 1, 2}, {1, 255, 0}}});
    const Decoded decoded(figure);
    ASSERT_TRUE(decoded.succeeded);
    const FigureModelData& model = decoded.model;
    EXPECT_THAT(decoded.positions(), ElementsAre(1, 2, 3, -1, -2, -3, 256, 0, -32768, -1, -2, -3, -1, -2, -3));
    EXPECT_THAT(decoded.texCoords(), ElementsAre(1, 2, 3, 4, 5, 127, 8, 9, 255, 0));
    EXPECT_THAT(model.triangles[0].vertices, ElementsAre(0, 1, 2));
    EXPECT_THAT(model.quads[0].vertices, ElementsAre(2, 3, 0, 4));
    EXPECT_THAT(decoded.keys(), ElementsAre(keyOf(0x4011), keyOf(0xC000)));
    EXPECT_EQ(model.triangles[0].attributeClass, 0);
    EXPECT_EQ(model.quads[0].attributeClass, 1);
    EXPECT_THAT(decoded.group(0), ElementsAre(0));
    EXPECT_THAT(decoded.group(1), ElementsAre(1, 3, 4));
    EXPECT_THAT(decoded.group(2), ElementsAre(2));
    for (const uint32_t* starts : {model.texturedTriangleStarts, model.texturedQuadStarts})
        EXPECT_THAT(std::span(starts, 2), ElementsAre(0u, 1u));
    for (const uint32_t* starts : {model.colorTriangleStarts, model.colorQuadStarts})
        EXPECT_THAT(std::span(starts, 2), ElementsAre(0u, 0u));
}

TEST(MbDecoder, StartsBehindAMagicThatWasConsumed) {
    const ByteList file = encodeMb(triangleFigure(3)).bytes;
    EXPECT_TRUE(Decoded(ByteList(file.begin() + 2, file.end()), true).succeeded);
    EXPECT_FALSE(Decoded(file, true).succeeded);
}

TEST(MbDecoder, ReadsPackedVerticesOfEveryWidth) {
    MbFigure figure = triangleFigure(4, 2);
    figure.vertices = {{{-128, 127, 0}}, {{-512, 511, 0}}, {{-4096, 4095, -1}}, {{-32768, 32767, 1}}};
    figure.bones.clear();
    figure.vertexRuns = {{1, 0}, {1, 1}, {1, 2}, {1, 3}};
    figure.polygons[0] = {.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}}};
    EXPECT_EQ(encodeMb(figure).get("run[3].header"), 0xC0u);
    const int16_t expected[] = {-128, 127, 0, -512, 511, 0, -4096, 4095, -1, -32768, 32767, 1};
    EXPECT_THAT(Decoded(figure).positions(), ElementsAreArray(expected));

    figure.vertices.resize(64);
    figure.vertexRuns = {{64, 3}};
    EXPECT_TRUE(Decoded(figure).succeeded) << "the longest run";
    figure.polygons.clear();  // nothing behind the vertices could be misread
    EncodedFile tooLong = encodeMb(figure);
    tooLong.set("vertexCount", 63);
    EXPECT_FALSE(decodes(tooLong.bytes)) << "a run past the last vertex";
}

TEST(MbDecoder, RoundsPlainNormals) {
    EncodedFile file = encodeMb(triangleFigure(4, 1, 1));
    const std::vector<std::pair<int, int>> cases = {{4096, 64}, {-4096, -64}, {31, 0},  {32, 1},   {-32, 0},
                                                    {-33, -1},  {8191, -128}, {-32, 0}, {32767, 0}};
    const char* names[] = {"x", "y", "z"};
    for (size_t i = 0; i < 9; ++i) file.set(indexed("normal", i / 3) + "." + names[i % 3], uint64_t(cases[i].first));
    const Decoded decoded(file.bytes);
    ASSERT_TRUE(decoded.succeeded);
    for (size_t i = 0; i < 9; ++i) EXPECT_EQ(decoded.normals()[i], cases[i].second) << cases[i].first;
}

TEST(MbDecoder, ReadsPackedNormals) {
    const int8_t axes[6][3] = {{64, 0, 0}, {0, 64, 0}, {0, 0, 64}, {-64, 0, 0}, {0, -64, 0}, {0, 0, -64}};
    MbFigure figure = triangleFigure(4, 1, 2);
    figure.vertices[0].normal = {-1, 0, 0};
    for (uint32_t axis = 0; axis < 8; ++axis) {
        EncodedFile file = encodeMb(figure);
        file.set("normal[0].axis", axis);
        const Decoded decoded(file.bytes);
        ASSERT_EQ(decoded.succeeded, axis < 6) << axis;
        if (!decoded.succeeded) continue;
        EXPECT_THAT(decoded.normals().first(3), ElementsAreArray(axes[axis])) << axis;
    }
    struct Case {
        const char* what;
        int x, y, sign, z;
    };
    figure.vertices[0].normal = {0.6f, 0, 0.8f};
    for (const Case& c :
         {Case{"up", 38, -12, 0, 50}, Case{"down", 38, -12, 1, -50}, Case{"rounded to nearest", 1, 0, 0, 64},
          Case{"y of -64", 0, -64, 1, 0}, Case{"longer than a unit", 60, 60, 1, 0}}) {
        EncodedFile file = encodeMb(figure);
        file.set("normal[0].x", uint64_t(c.x));
        file.set("normal[0].y", uint64_t(c.y));
        file.set("normal[0].zSign", uint64_t(c.sign));
        EXPECT_THAT(Decoded(file.bytes).normals().first(3), ElementsAre(c.x, c.y, c.z)) << c.what;
    }
}

// --- Attributes ---

constexpr uint32_t kIllegal = 0x10000;

// What each attribute bit of the file becomes in the attribute word.
struct AttributeRule {
    const char* what;
    uint32_t polygonFormat;
    bool colored;
    std::array<uint32_t, 11> wordBits;  // the last entry stands for all higher bits
};
constexpr AttributeRule kAttributeRules[] = {
    {"plain",
     1,
     false,
     {kIllegal, 0x0001, 0x0010, kIllegal, kIllegal, kIllegal, kIllegal, kIllegal, kIllegal, kIllegal, kIllegal}},
    {"packed",
     2,
     false,
     {0x0001, 0x0002, 0x0004, kIllegal, 0x0010, 0x0800, 0x0020, kIllegal, kIllegal, kIllegal, kIllegal}},
    {"textured", 3, false, {0x0001, 0x0002, 0x0004, kIllegal, 0x0010, 0x0800, 0x0020, 0x0040, 0, 0, kIllegal}},
    {"colour", 3, true, {0x0002, 0x0004, kIllegal, 0x0010, 0x0800, 0x0020, 0x0040, 0, 0, kIllegal, kIllegal}},
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
                for (uint32_t bit = 0; bit < 16; ++bit)
                    if (attribute >> bit & 1) word |= hasQuadBit && bit == 0 ? 0 : rule.wordBits[std::min(bit, 10u)];
                if (hasQuadBit && !(attribute & 1)) word |= kIllegal;
                file.set(name, attribute);
                const Decoded decoded(file.bytes);
                ASSERT_EQ(decoded.succeeded, !(word & kIllegal)) << rule.what << " " << name << " " << attribute;
                if (!decoded.succeeded) continue;
                ASSERT_EQ(decoded.model.classKeys[0], keyOf(word)) << rule.what << " " << name << " " << attribute;
            }
        }
}

TEST(MbDecoder, CountsAttributeClassesInOrderOfFirstUse) {
    MbFigure figure = triangleFigure(4, 1, 0, 2);
    const MbPolygon plain = figure.polygons[0];
    MbPolygon lit = plain, environmentUnlit = plain;
    lit.style.lit = true;
    environmentUnlit.style.environmentMap = true;  // without light it shows nothing: the same key
    figure.polygons = {lit, plain, environmentUnlit, lit};
    const Decoded decoded(figure);
    EXPECT_THAT(decoded.keys(), ElementsAre(keyOf(0x4800), keyOf(0x4000)));
    std::vector<int> classes;
    for (uint32_t i = 0; i < 4; ++i) classes.push_back(decoded.model.triangles[i].attributeClass);
    EXPECT_THAT(classes, ElementsAre(0, 1, 1, 0));
}

// --- Colours ---

TEST(MbDecoder, GivesColorsToTheCornersOfColorPolygons) {
    MbFigure figure = triangleFigure(4, 1, 0, 3);
    figure.polygons = {
        {.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, .style = {.blend = MbBlend::Half}, .color = Rgb{1, 2, 255}},
        {.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, .color = Rgb{1, 2, 255}},
        {.corners = {{0, 5, 5}, {1, 0, 0}, {2, 0, 0}}}};
    const Decoded decoded(figure);
    ASSERT_TRUE(decoded.succeeded);
    EXPECT_EQ(decoded.model.expandedCount, 7u);
    EXPECT_THAT(decoded.colors(), ElementsAre(1, 2, 255, 128, 1, 2, 255, 128, 1, 2, 255, 128,  // half
                                              1, 2, 255, 255, 1, 2, 255, 255, 1, 2, 255, 255,  // opaque
                                              0, 0, 0, 0));                                    // textured
    EXPECT_THAT(decoded.texCoords().last(2), ElementsAre(5, 5));
    // a corner with the coordinates (0, 0) finds the first vertex that has them, whatever it was made for
    EXPECT_THAT(decoded.model.triangles[2].vertices, ElementsAre(6, 1, 2));

    figure.polygons.pop_back();
    figure.textureCount = 0;
    EXPECT_EQ(Decoded(figure).model.texCoords, nullptr) << "without textures there are no coordinates";
}

TEST(MbDecoder, KeepsEightBitsOfChannelsAndCoordinates) {
    MbFigure figure = triangleFigure(4, 1, 0, 3);
    figure.polygons.push_back({.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, .color = Rgb{1, 2, 3}});
    figure.widths = {.coordinate = 12, .colorChannel = 11};
    EncodedFile file = encodeMb(figure);
    file.set("colorTable[0].g", 0x7FE);
    file.set("texturedTriangle[0].v[0]", 0xF81);
    const Decoded decoded(file.bytes);
    EXPECT_THAT(decoded.colors().first(4), ElementsAre(1, 0xFE, 3, 255));
    EXPECT_THAT(decoded.texCoords().subspan(6, 2), ElementsAre(1, 0x81));
}

TEST(MbDecoder, ReadsFieldsWiderThanAnyValue) {
    MbFigure figure = richFigure();
    const Decoded narrow(figure);
    figure.widths = {40, 33, 64, 50, 64, 40, 36};
    const Decoded wide(figure);
    ASSERT_TRUE(wide.succeeded);
    EXPECT_THAT(wide.positions(), ElementsAreArray(narrow.positions()));
    EXPECT_THAT(wide.colors(), ElementsAreArray(narrow.colors()));
    EXPECT_THAT(wide.texCoords(), ElementsAreArray(narrow.texCoords()));
    EXPECT_THAT(wide.keys(), ElementsAreArray(narrow.keys()));
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
    EXPECT_EQ(decoded.group(0).size(), 65535u);
    figure.polygons.push_back({.corners = {{0, 255, 255}, {0, 255, 255}, {0, 255, 255}}});
    EXPECT_FALSE(decodes(encodeMb(figure).bytes));
}

// --- Patterns ---

TEST(MbDecoder, AccumulatesTheRangesOfPatternsAndTextures) {
    const Decoded decoded(richFigure());
    ASSERT_TRUE(decoded.succeeded);
    const FigureModelData& model = decoded.model;
    EXPECT_THAT(std::span(model.colorTriangleStarts, 4), ElementsAre(0u, 1u, 1u, 1u));
    EXPECT_THAT(std::span(model.colorQuadStarts, 4), ElementsAre(0u, 0u, 1u, 1u));
    EXPECT_THAT(std::span(model.texturedTriangleStarts, 7), ElementsAre(0u, 0u, 0u, 0u, 0u, 0u, 1u));
    EXPECT_THAT(std::span(model.texturedQuadStarts, 7), ElementsAre(0u, 1u, 1u, 1u, 1u, 1u, 1u));
}

TEST(MbDecoder, BeforeVersion5EverythingIsOfPattern0AndTexture0) {
    MbFigure figure = triangleFigure(4, 1, 0, 3);
    figure.polygons.push_back({.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, .color = Rgb{1, 2, 3}});
    figure.polygons.push_back({.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 0, 0}}, .color = Rgb{1, 2, 3}});
    figure.patternCount = 2;
    figure.textureCount = 2;
    const Decoded decoded(figure);
    const FigureModelData& model = decoded.model;
    EXPECT_THAT(std::span(model.colorTriangleStarts, 3), ElementsAre(0u, 1u, 1u));
    EXPECT_THAT(std::span(model.colorQuadStarts, 3), ElementsAre(0u, 1u, 1u));
    EXPECT_THAT(std::span(model.texturedTriangleStarts, 5), ElementsAre(0u, 1u, 1u, 1u, 1u));
    EXPECT_THAT(std::span(model.texturedQuadStarts, 5), ElementsAre(0u, 0u, 0u, 0u, 0u));

    EncodedFile withoutPatterns = encodeMb(figure);
    withoutPatterns.set("patternCount", 0);
    EXPECT_EQ(Decoded(withoutPatterns.bytes).model.patternCount, 1u) << "there is a pattern 0 nevertheless";
}

TEST(MbDecoder, TakesNoPatternsForNoPolygons) {
    MbFigure figure = triangleFigure(5, 1, 0, 3);
    figure.polygons.clear();
    figure.patternCount = 0;
    figure.textureCount = 0;
    const Decoded decoded(figure);
    EXPECT_TRUE(decoded.succeeded);
    EXPECT_EQ(decoded.model.patternCount, 0u);
}

// --- Bones ---

TEST(MbDecoder, DecodesBones) {
    const Decoded decoded(richFigure());
    ASSERT_TRUE(decoded.succeeded);
    const FigureBones& bones = decoded.model.bones;
    EXPECT_EQ(bones.boneCount, 2u);
    EXPECT_EQ(bones.groupCount, 5u);
    EXPECT_EQ(bones.bones[0].parent, 1) << "a parent may come after its child";
    EXPECT_EQ(bones.bones[1].parent, -1);
    EXPECT_EQ(bones.bones[1].firstGroup, 2u);
    EXPECT_EQ(bones.bones[1].groupCount, 2u);
    for (uint32_t b = 0; b < 2; ++b) {
        EXPECT_EQ(bones.bones[b].changed, 1);
        EXPECT_EQ(bones.chain[b], 0);
        EXPECT_THAT(bones.local[b].m, ElementsAreArray(bones.bones[b].rest.m));
    }
    EXPECT_THAT(bones.bones[1].rest.m, ElementsAre(4096, 0, 0, 10, 0, 4096, 0, 20, 0, 0, 4096, 30));
}

TEST(MbDecoder, RefusesLoopsOfBones) {
    struct Case {
        const char* what;
        std::vector<int32_t> parents;
        bool valid;
    };
    for (const Case& c :
         {Case{"a chain backward", {-1, 0, 1, 2}, true}, Case{"a chain forward", {1, 2, 3, -1}, true},
          Case{"two roots", {-1, 0, -1, 2}, true}, Case{"its own parent", {0}, false},
          Case{"two that hold each other", {-1, 2, 1}, false}, Case{"a chain into a loop", {1, 2, 3, 1, -1}, false},
          Case{"a loop behind a good chain", {-1, 0, 3, 4, 2}, false}}) {
        MbFigure figure = triangleFigure(3);
        figure.bones.clear();
        for (const int32_t parent : c.parents) figure.bones.push_back({.parent = parent});
        EXPECT_EQ(Decoded(figure).succeeded, c.valid) << c.what;
    }
}

// --- What is refused ---

TEST(MbDecoder, RefusesEveryBrokenField) {
    const auto set = [](const char* field, uint64_t value) {
        return [=](EncodedFile& file) { file.set(field, value); };
    };
    const auto add = [](const char* field, int value) {
        return [=](EncodedFile& file) { file.set(field, file.get(field) + uint64_t(value)); };
    };
    const BrokenFile cases[] = {
        {"another magic", set("magic", 0x4D42)},
        {"version 1", set("version", 1)},
        {"version 6", set("version", 6)},
        {"version -5", set("version", uint64_t(-5))},
        {"vertexFormat 0", set("vertexFormat", 0)},
        {"vertexFormat 3", set("vertexFormat", 3)},
        {"normalFormat 3", set("normalFormat", 3)},
        {"polygonFormat 0", set("polygonFormat", 0)},
        {"polygonFormat 4", set("polygonFormat", 4)},
        {"boneFormat 0", set("boneFormat", 0)},
        {"boneFormat 2", set("boneFormat", 2)},
        {"a colour triangle more than the patterns have", add("colorTriangleCount", 1)},
        {"a colour quad less", add("colorQuadCount", -1)},
        {"a textured triangle more", add("texturedTriangleCount", 1)},
        {"a textured quad less", add("texturedQuadCount", -1)},
        {"a pattern with a colour triangle more", add("pattern[0].colorTriangleCount", 1)},
        {"a pattern with a colour quad more", add("pattern[2].colorQuadCount", 1)},
        {"a range with a textured triangle more", add("pattern[1].texture[0].triangleCount", 1)},
        {"a range with a textured quad less", add("pattern[0].texture[0].quadCount", -1)},
        {"a colour triangle's vertex", set("colorTriangle[0].vertex[2]", 5)},
        {"a colour quad's vertex", set("colorQuad[0].vertex[3]", 7)},
        {"a textured triangle's vertex", set("texturedTriangle[0].vertex[0]", 5)},
        {"a textured quad's vertex", set("texturedQuad[0].vertex[1]", 6)},
        {"a triangle's colour", set("colorTriangle[0].color", 2)},
        {"a quad's colour", set("colorQuad[0].color", 3)},
        {"a parent that is not there", set("bone[0].parent", 2)},
        {"a parent of -2", set("bone[0].parent", uint64_t(-2))},
        {"bones with more vertices than there are", set("bone[1].vertexCount", 4)},
        {"a first bone with more vertices than there are", set("bone[0].vertexCount", 0xFFFF)},
    };
    MbFigure figure = richFigure();
    figure.colorTable = {{9, 9, 9}, {1, 2, 3}};
    figure.widths = {.index = 3, .colorVertexIndex = 3, .colorIndex = 2};
    ASSERT_TRUE(decodes(encodeMb(figure).bytes));
    for (const BrokenFile& c : cases) {
        EncodedFile file = encodeMb(figure);
        c.breakIt(file);
        EXPECT_FALSE(decodes(file.bytes)) << c.what;
        EXPECT_FALSE(decodesFromOpaqueStream(HeapCopy(file.bytes))) << c.what << ", length not known";
    }
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

TEST(MbDecoder, RefusesTexturedPolygonsWithoutTextures) {
    EncodedFile file = encodeMb(triangleFigure(4, 1, 0, 3));
    file.set("textureCount", 0);
    EXPECT_FALSE(decodes(file.bytes));
}

TEST(MbDecoder, RefusesEveryTruncation) {
    MbFigure plain = triangleFigure(2), packed = triangleFigure(4, 2, 2, 2), trailing = triangleFigure(3);
    plain.polygons.push_back({.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {0, 0, 0}}});
    for (const MbFigure& figure : {plain, trailing, packed, richFigure()}) {
        ByteList file = encodeMb(figure).bytes;
        for (size_t length = 0; length < file.size(); ++length) {
            EXPECT_FALSE(decodes(ByteList(file.begin(), file.begin() + ptrdiff_t(length))))
                << figure.version << ": " << length;
            EXPECT_FALSE(decodesFromOpaqueStream(HeapCopy(file, length))) << figure.version << ": " << length;
        }
        EXPECT_TRUE(decodesFromOpaqueStream(HeapCopy(file)));
        file.push_back(0);
        const Decoded decoded(file);
        EXPECT_TRUE(decoded.succeeded) << "more bytes may follow";
        EXPECT_EQ(decoded.bytesLeft, 1u);
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

}  // namespace
