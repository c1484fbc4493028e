#include "tools/encode/mb_encoder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <stdexcept>

#include "tests/tools/literal_bytes.h"

namespace encode {
namespace {

MbFigure triangleFigure(int32_t version, uint32_t vertexFormat, uint32_t normalFormat, uint32_t polygonFormat) {
    MbFigure figure = {
        .version = version, .vertexFormat = vertexFormat, .normalFormat = normalFormat, .polygonFormat = polygonFormat};
    figure.vertices = {{{1, 2, 3}, {0, 0, 1}, 0}, {{-1, -2, -3}, {0, 0, 1}, 0}, {{256, 0, 0}, {0, 0, 1}, 0}};
    figure.bones = {{.name = "root"}};
    figure.polygons = {{.corners = {{0, 1, 2}, {1, 3, 4}, {2, 5, 127}}}};
    return figure;
}

TEST(MbEncoder, WritesPlainTrianglesAndQuads) {
    MbFigure figure = triangleFigure(2, 1, 0, 1);
    figure.vertices.push_back({{0x7FFF, 0, -0x8000}, {}, 0});
    figure.polygons[0].style = {.colorKey = true, .twoSided = true};
    figure.polygons.push_back(
        {.corners = {{3, 10, 11}, {2, 12, 13}, {1, 14, 15}, {0, 16, 255}}, .style = {.twoSided = true}});
    const ByteList counts = hexBytes("0400 0100 0100 0100");
    const ByteList vertices = hexBytes("0100 0200 0300  FFFF FEFF FDFF  0001 0000 0000  FF7F 0000 0080");
    const ByteList polygons = hexBytes(
        "0600 0000 0100 0200  01 02 03 04 05 7F"
        "0500 0300 0200 0100 0000  0A 0B 0C 0D 0E 0F 10 FF");
    const ByteList bones = hexBytes("0400 FFFF  0010 0000 0000 0000  0000 0010 0000 0000  0000 0000 0010 0000");
    const ByteList sections = vertices + polygons + bones;
    const ByteList trailer(20, 0xAB);
    figure.trailer = trailer;

    EXPECT_EQ(encodeMb(figure).bytes, hexBytes("4D42 0200") + counts + sections) << "version 2 has no trailer";
    figure.version = 3;
    EXPECT_EQ(encodeMb(figure).bytes, hexBytes("4D42 0300") + counts + sections + trailer);
    figure.version = 4;
    EXPECT_EQ(encodeMb(figure).bytes, hexBytes("4D42 0400 01 00 01 01") + counts + sections + trailer);
    figure.version = 5;
    EXPECT_EQ(encodeMb(figure).bytes,
              hexBytes("4D42 0500 01 00 01 01") + counts + hexBytes("0000 0000 0100 0100") + sections + trailer);
}

TEST(MbEncoder, PacksVerticesNormalsAndPolygons) {
    MbFigure figure = {.version = 4, .vertexFormat = 2, .normalFormat = 2, .polygonFormat = 2};
    figure.vertices = {{{1, -2, 3}, {1, 0, 0}},
                       {{200, -128, 0}, {0, 0, -1}},
                       {{0, 0, 0}, {-33 / 64.0f, 20 / 64.0f, -51 / 64.0f}},
                       {{5, 6, 7}, {0.001f, 0, 1}}};
    figure.polygons = {{.corners = {{3, 1, 2}, {2, 3, 4}, {1, 5, 127}}, .style = {.twoSided = true, .lit = true}},
                       {.corners = {{0, 0, 1}, {1, 2, 3}, {2, 4, 5}, {3, 6, 7}}, .style = {.blend = MbBlend::Add}}};
    EXPECT_EQ(encodeMb(figure).bytes,
              hexBytes("4D42 0400 02 02 02 01  0400 0100 0100 0000") +
                  packedBits("01000001 0000000001 1111111110 0000000011 0011001000 1110000000 0000000000"
                             " 00000001 00000000 00000000 00000000 00000101 00000110 00000111") +
                  packedBits("1000000 000  1000000 101  1011111 0010100 1  1000000 010") +
                  packedBits("00000110 00000010"
                             " 110000 11 10 01 0000001 0000010 0000011 0000100 0000101 1111111"
                             " 000100 00 01 10 11 0000000 0000001 0000010 0000011 0000100 0000101 0000110 0000111") +
                  ByteList(20, 0));
}

TEST(MbEncoder, SortsPolygonsByPatternAndTexture) {
    MbFigure figure = triangleFigure(5, 1, 1, 3);
    figure.vertices.push_back({{0, 0, 0}, {-0.5f, 0, 0}, 0});
    const std::vector<MbCorner> triangle = {{0, 0, 1}, {1, 2, 3}, {2, 0, 0}},
                                quad = {{0, 1, 1}, {1, 2, 2}, {2, 3, 3}, {3, 0, 0}};
    figure.polygons = {
        {.corners = triangle, .style = {.flat = true}, .pattern = 1},
        {.corners = quad, .style = {.blend = MbBlend::Half}, .color = Rgb{3, 2, 1}},
        {.corners = triangle, .style = {.flat = true}, .pattern = 1, .color = Rgb{1, 2, 3}},
        {.corners = triangle, .style = {.lit = true, .environmentMap = true}, .texture = 1},
        {.corners = quad},
    };
    EXPECT_EQ(encodeMb(figure).bytes,
              hexBytes("4D42 0500 01 01 03 01  0400 0200 0100 0100  0100 0100 0200 0200 0200"
                       "0000 0100 0000 0100 0100 0000  0100 0000 0100 0000 0000 0000"
                       "0100 0200 0300  FFFF FEFF FDFF  0001 0000 0000  0000 0000 0000"
                       "0000 0000 0010  0000 0000 0010  0000 0000 0010  00F8 0000 0000") +
                  packedBits("00000111 00000010 00000010 00000001 00000000"
                             " 11 10 01  01 10 11"
                             " 1000000 00 01 10 1"
                             " 0000001 00 01 10 11 0"
                             " 00001000 00000010 00000010 00000000"
                             " 01100000 00 01 10 00 01 10 11 00 00"
                             " 10000000 00 01 10 00 01 10 11 00 00"
                             " 00000000 00 01 10 11 01 01 10 10 11 11 00 00") +
                  hexBytes("0400 FFFF  0010 0000 0000 0000  0000 0010 0000 0000  0000 0000 0010 0000") +
                  ByteList(20, 0));
}

TEST(MbEncoder, OrdersVerticesByBone) {
    MbFigure figure = triangleFigure(5, 1, 0, 3);
    figure.vertices = {
        {{10, 0, 0}, {}, -1}, {{11, 0, 0}, {}, 2}, {{12, 0, 0}, {}, 0}, {{13, 0, 0}, {}, 2}, {{14, 0, 0}, {}, 0}};
    figure.bones = {{.parent = 2}, {.parent = -1}, {.parent = 1, .rest = translationBone(1, 2, 3)}};
    figure.polygons = {{.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}}};
    const EncodedFile file = encodeMb(figure);
    const uint64_t xOfFile[] = {12, 14, 11, 13, 10};
    for (size_t i = 0; i < 5; ++i) EXPECT_EQ(file.get(indexed("vertex", i) + ".x"), xOfFile[i]) << i;
    const uint64_t indicesOfFile[] = {4, 2, 0}, countsOfFile[] = {2, 0, 2};
    for (size_t k = 0; k < 3; ++k) {
        EXPECT_EQ(file.get(indexed("texturedTriangle[0].vertex", k)), indicesOfFile[k]) << k;
        EXPECT_EQ(file.get(indexed("bone", k) + ".vertexCount"), countsOfFile[k]) << k;
    }
    EXPECT_EQ(file.get("bone[0].parent"), 2u);
    EXPECT_EQ(file.get("bone[2].m[11]"), 3u);
}

// expected: of a triangle, or -1 when the format cannot say the style.
void expectAttribute(const char* what, const MbStyle& style, uint32_t format, std::optional<Rgb> color, int expected) {
    for (const bool isQuad : {false, true}) {
        SCOPED_TRACE(std::string(what) + (color ? " in colour" : "") + (isQuad ? ", quad" : ", triangle") +
                     ", format " + std::to_string(format));
        MbFigure figure = triangleFigure(5, 1, 0, format);
        figure.polygons[0].style = style;
        figure.polygons[0].color = color;
        if (isQuad) figure.polygons[0].corners.resize(4);
        if (expected < 0) {
            EXPECT_THROW(encodeMb(figure), std::invalid_argument);
            continue;
        }
        const std::string name = std::string(color ? "color" : "textured") + (isQuad ? "Quad" : "Triangle");
        const int quadBit = isQuad && format == 1 ? 1 : 0;
        EXPECT_EQ(encodeMb(figure).get(name + "[0].attribute"), uint32_t(expected | quadBit));
    }
}

TEST(MbEncoder, KnowsTheAttributeBitsOfEveryFormat) {
    struct Case {
        const char* what;
        MbStyle style;
        int format1, format2, textured3, color3;
    };
    const Case cases[] = {
        {"plain", {}, 0, 0, 0, 0},
        {"colour key", {.colorKey = true}, 0x02, 0x01, 0x01, -1},
        {"two-sided", {.twoSided = true}, 0x04, 0x10, 0x10, 0x08},
        {"half", {.blend = MbBlend::Half}, -1, 0x02, 0x02, 0x01},
        {"add", {.blend = MbBlend::Add}, -1, 0x04, 0x04, 0x02},
        {"add by alpha", {.blend = MbBlend::AddByAlpha}, -1, 0x06, 0x06, 0x03},
        {"lit", {.lit = true}, -1, 0x20, 0x20, 0x10},
        {"environment map", {.environmentMap = true}, -1, 0x40, 0x40, 0x20},
        {"flat", {.flat = true}, -1, -1, 0x80, 0x40},
    };
    for (const Case& c : cases) {
        expectAttribute(c.what, c.style, 1, {}, c.format1);
        expectAttribute(c.what, c.style, 2, {}, c.format2);
        expectAttribute(c.what, c.style, 3, {}, c.textured3);
        expectAttribute(c.what, c.style, 3, Rgb{1, 2, 3}, c.color3);
    }
}

// The cost of the cheapest runs for vertices [first, end), by trying every first run.
size_t cheapestRuns(const std::vector<uint32_t>& widths, size_t first) {
    if (first == widths.size()) return 0;
    size_t best = SIZE_MAX;
    uint32_t width = 0;
    for (size_t end = first + 1; end <= widths.size(); ++end) {
        width = std::max(width, widths[end - 1]);
        best = std::min(best, 8 + (end - first) * 3 * width + cheapestRuns(widths, end));
    }
    return best;
}

TEST(MbEncoder, ChoosesTheCheapestVertexRuns) {
    std::mt19937 random(1);
    const uint32_t widths[] = {8, 10, 13, 16};
    const int16_t smallestOfWidth[] = {0, 128, -513, 4096};
    for (int round = 0; round < 200; ++round) {
        MbFigure figure = triangleFigure(5, 2, 0, 3);
        figure.polygons.clear();
        figure.vertices.clear();
        std::vector<uint32_t> vertexWidths;
        while (figure.vertices.size() < size_t(1 + round % 10)) {
            const uint32_t code = random() % 4;
            vertexWidths.push_back(widths[code]);
            figure.vertices.push_back({{0, smallestOfWidth[code], 0}});
        }
        const EncodedFile file = encodeMb(figure);
        const size_t begin = file.field("run[0].header").offset(), end = file.field("bone[0].vertexCount").offset();
        ASSERT_EQ(end - begin, (cheapestRuns(vertexWidths, 0) + 7) / 8) << "round " << round;
    }
    MbFigure figure = triangleFigure(5, 2, 0, 3);
    figure.vertices.assign(65, {});
    EXPECT_EQ(encodeMb(figure).get("run[1].header"), encodeMb(figure).get("run[0].header") == 63 ? 0u : 63u);
    figure.vertexRuns = {{60, 3}, {5, 1}};
    EXPECT_EQ(encodeMb(figure).get("run[0].header"), 59u | 3 << 6);
}

// What a reader rebuilds from the fields of a packed normal, in units of 1/64.
std::array<int, 3> readPackedNormal(const EncodedFile& file) {
    const auto signExtend = [](uint64_t value) { return int(value) - (value >= 64 ? 128 : 0); };
    if (file.get("normal[0].x") == 64) {
        std::array<int, 3> axis{};
        const int k = int(file.get("normal[0].axis"));
        axis[size_t(k % 3)] = k < 3 ? 64 : -64;
        return axis;
    }
    const int x = signExtend(file.get("normal[0].x")), y = signExtend(file.get("normal[0].y"));
    const int z = int(std::lround(std::sqrt(4096.0 - x * x - y * y)));
    return {x, y, file.get("normal[0].zSign") ? -z : z};
}

MbFigure oneNormal(double x, double y, double z) {
    MbFigure figure = {.vertexFormat = 1, .normalFormat = 2};
    figure.vertices = {{{}, {float(x / 64), float(y / 64), float(z / 64)}}};
    return figure;
}

TEST(MbEncoder, PacksTheNearestNormal) {
    std::vector<std::array<int, 3>> all;  // every normal the format can say
    for (int x = -63; x <= 63; ++x)
        for (int y = -64; y <= 63; ++y) {
            if (x * x + y * y > 4096) continue;
            const int z = int(std::lround(std::sqrt(4096.0 - x * x - y * y)));
            for (const int signedZ : {z, -z}) {
                all.push_back({x, y, signedZ});
                ASSERT_EQ(readPackedNormal(encodeMb(oneNormal(x, y, signedZ))), all.back());
            }
        }
    for (const int side : {64, -64}) all.insert(all.end(), {{side, 0, 0}, {0, side, 0}});

    const auto distance = [](const std::array<int, 3>& said, double x, double y, double z) {
        return std::hypot(said[0] - x, said[1] - y, said[2] - z);
    };
    std::mt19937 random(2);
    std::uniform_real_distribution<double> turn(0, 6.2831853), height(-64, 64);
    for (int round = 0; round < 200; ++round) {
        const double angle = turn(random),
                     z = round % 2 ? height(random) : height(random) / 16;  // half of them near the rim
        const double radius = std::sqrt(4096 - z * z), x = radius * std::cos(angle), y = radius * std::sin(angle);
        double nearest = 1000;
        for (const auto& normal : all) nearest = std::min(nearest, distance(normal, x, y, z));
        ASSERT_LE(distance(readPackedNormal(encodeMb(oneNormal(x, y, z))), x, y, z),
                  nearest + 1e-4)  // floats in between
            << x << " " << y << " " << z;
    }
}

TEST(MbEncoder, TakesWidthsAndRawAttributes) {
    MbFigure figure = triangleFigure(5, 1, 0, 3);
    figure.polygons.push_back({.corners = figure.polygons[0].corners, .color = Rgb{9, 9, 9}});
    figure.widths = {.attribute = 12,
                     .index = 16,
                     .coordinate = 9,
                     .colorAttribute = 11,
                     .colorVertexIndex = 3,
                     .colorChannel = 8,
                     .colorIndex = 5};
    figure.polygons[0].rawAttribute = 0x801;
    figure.colorTable = {{1, 1, 1}, {9, 9, 9}};
    const EncodedFile file = encodeMb(figure);
    struct Case {
        const char* header;
        const char* value;
        uint32_t width;
    };
    for (const Case& c :
         {Case{"textured.attributeWidth", "texturedTriangle[0].attribute", 12},
          Case{"textured.indexWidth", "texturedTriangle[0].vertex[2]", 16},
          Case{"textured.coordinateWidth", "texturedTriangle[0].v[2]", 9},
          Case{"color.attributeWidth", "colorTriangle[0].attribute", 11},
          Case{"color.indexWidth", "colorTriangle[0].vertex[2]", 3}, Case{"color.channelWidth", "colorTable[1].b", 8},
          Case{"color.colorIndexWidth", "colorTriangle[0].color", 5}}) {
        EXPECT_EQ(file.get(c.header), c.width) << c.header;
        EXPECT_EQ(file.field(c.value).bitCount, c.width) << c.value;
    }
    EXPECT_EQ(file.get("texturedTriangle[0].attribute"), 0x801u);
    EXPECT_EQ(file.get("colorTriangle[0].color"), 1u) << "found in the given table";
}

TEST(MbEncoder, RefusesWhatTheFormatsCannotSay) {
    struct Case {
        const char* says;  // part of the text of the exception
        std::function<void(MbFigure&)> spoil;
    };
    const auto texture = [](MbFigure& f, uint32_t t) { f.polygons[0].texture = t; };
    const auto pattern = [](MbFigure& f, uint32_t p) { f.polygons[0].pattern = p; };
    const auto runs = [](MbFigure& f, uint32_t count, uint32_t code) { f.vertexRuns = {{count, code}}; };
    const auto normal = [](MbFigure& f, float y) { f.normalFormat = 2, f.vertices[1].normal = {0, y, 0}; };
    const Case cases[] = {
        {"no version 1", [](MbFigure& f) { f.version = 1; }},
        {"no version 6", [](MbFigure& f) { f.version = 6; }},
        {"versions 2 and 3", [](MbFigure& f) { f.version = 3; }},
        {"vertexFormat", [](MbFigure& f) { f.vertexFormat = 3; }},
        {"normalFormat", [](MbFigure& f) { f.normalFormat = 3; }},
        {"polygonFormat", [](MbFigure& f) { f.polygonFormat = 4; }},
        {"boneFormat", [](MbFigure& f) { f.boneFormat = 0; }},
        {"21845 vertices", [](MbFigure& f) { f.vertices.resize(21846); }},
        {"vertex[0] is of a bone", [](MbFigure& f) { f.vertices[0].bone = 1; }},
        {"vertex[0] is of a bone", [](MbFigure& f) { f.vertices[0].bone = -2; }},
        {"bone[0] has a parent", [](MbFigure& f) { f.bones[0].parent = 1; }},
        {"bone[0] has a parent", [](MbFigure& f) { f.bones[0].parent = -2; }},
        {"polygon[0] has neither", [](MbFigure& f) { f.polygons[0].corners.pop_back(); }},
        {"polygon[0] has a corner", [](MbFigure& f) { f.polygons[0].corners[2].vertex = 3; }},
        {"16 textures", [&](MbFigure& f) { texture(f, 16); }},
        {"33 patterns", [&](MbFigure& f) { pattern(f, 33); }},
        {"is of a pattern", [&](MbFigure& f) { pattern(f, UINT32_MAX); }},
        {"is of a texture", [&](MbFigure& f) { texture(f, 1), f.textureCount = 1; }},
        {"is of a pattern", [&](MbFigure& f) { pattern(f, 1), f.patternCount = 1; }},
        {"need version 5", [&](MbFigure& f) { texture(f, 1), f.version = 4; }},
        {"need version 5", [&](MbFigure& f) { pattern(f, 1), f.version = 4; }},
        {"is of a texture", [&](MbFigure& f) { texture(f, 1), f.polygonFormat = 2; }},
        {"need polygonFormat 3", [](MbFigure& f) { f.polygonFormat = 1, f.textureCount = 0; }},
        {"need polygonFormat 3", [](MbFigure& f) { f.polygonFormat = 2, f.polygons[0].color = Rgb{}; }},
        {"256 colours", [](MbFigure& f) { f.colorTable.resize(257); }},
        {"u[1]: 128 does not", [](MbFigure& f) { f.polygonFormat = 2, f.polygons[0].corners[1].u = 128; }},
        {"v[2]: 127 does not", [](MbFigure& f) { f.widths.coordinate = 6; }},
        {"normal[1] is not", [&](MbFigure& f) { normal(f, 0.5f); }},
        {"normal[1] is not", [&](MbFigure& f) { normal(f, NAN); }},
        {"1 to 64 vertices", [&](MbFigure& f) { f.vertices.resize(65), runs(f, 65, 3); }},
        {"width code", [&](MbFigure& f) { runs(f, 3, 4); }},
        {"do not cover", [&](MbFigure& f) { runs(f, 4, 3); }},
        {"vertex[2].x: 256 does not", [&](MbFigure& f) { runs(f, 3, 0); }},
    };
    for (const Case& c : cases) {
        MbFigure figure = triangleFigure(5, 2, 0, 3);
        ASSERT_NO_THROW(encodeMb(figure));
        c.spoil(figure);
        std::string said = "nothing";
        try {
            encodeMb(figure);
        } catch (const std::invalid_argument& refusal) {
            said = refusal.what();
        }
        EXPECT_THAT(said, testing::HasSubstr(c.says));
    }
}

}  // namespace
}  // namespace encode
