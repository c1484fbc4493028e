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
                       {.corners = {{0, 0, 1}, {1, 2, 3}, {2, 4, 5}, {3, 6, 7}}, .rawAttribute = 4}};
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

TEST(MbEncoder, ChoosesTheCheapestVertexRuns) {
    constexpr int16_t kWidest[] = {127, -512, 4095, -32768};  // of each width code
    struct Case {
        std::vector<uint32_t> widthCodes;
        std::vector<MbVertexRun> runs;
    };
    const Case cases[] = {{{0, 1}, {{2, 1}}},
                          {{0, 3}, {{1, 0}, {1, 3}}},
                          {{0, 1, 0, 0}, {{2, 1}, {2, 0}}},
                          {{2, 1, 1, 1, 3, 3, 2}, {{1, 2}, {3, 1}, {2, 3}, {1, 2}}},
                          {std::vector<uint32_t>(64, 2), {{64, 2}}}};
    for (const Case& c : cases) {
        MbFigure figure{.normalFormat = 0};
        for (const uint32_t code : c.widthCodes) figure.vertices.push_back({{0, kWidest[code], 0}});
        const ByteList chosen = encodeMb(figure).bytes;
        figure.vertexRuns = c.runs;
        EXPECT_EQ(chosen, encodeMb(figure).bytes) << testing::PrintToString(c.widthCodes);
    }
    MbFigure figure{.normalFormat = 0, .vertices = std::vector<MbVertex>(65)};
    EXPECT_EQ(encodeMb(figure).get("run[1].header"), encodeMb(figure).get("run[0].header") == 63 ? 0u : 63u);
}

TEST(MbEncoder, RefusesWhatTheFormatsCannotSay) {
    struct Case {
        const char* says;  // part of the text of the exception
        std::function<void(MbFigure&)> spoil;
    };
    const auto texture = [](MbFigure& f, uint32_t t) { f.polygons[0].texture = t; };
    const auto pattern = [](MbFigure& f, uint32_t p) { f.polygons[0].pattern = p; };
    const auto runs = [](MbFigure& f, uint32_t count, uint32_t code) { f.vertexRuns = {{count, code}}; };
    const auto style = [](uint32_t format, const MbStyle& spoiled) {
        return [=](MbFigure& f) { f.polygonFormat = format, f.polygons[0].style = spoiled; };
    };
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
        {"be blended in polygonFormat 1", style(1, {.blend = MbBlend::Half})},
        {"be lit in polygonFormat 1", style(1, {.lit = true})},
        {"be environment mapped in polygonFormat 1", style(1, {.environmentMap = true})},
        {"be flat in polygonFormat 2", style(2, {.flat = true})},
        {"be colour keyed in polygonFormat 3, colour",
         [](MbFigure& f) { f.polygons[0].color = Rgb{}, f.polygons[0].style.colorKey = true; }},
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
