#include "loader/figure_builder.h"

#include <gmock/gmock.h>

#include "loader/figure_appearance.h"
#include "loader/mb_decoder.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "tests/loader/content.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/mb_encoder.h"

namespace {

using namespace encode;
using testing::ElementsAre;

bool load(FigureMesh* figure, const ByteList& file) {
    const HeapCopy copy(file);
    MemoryStream stream;
    MemoryStream_init(&stream, copy.data(), copy.size());
    return D_Figure_load(figure, &stream, false);
}

// A figure that was only built: no pattern applied, so that every slot is filled.
struct Built {
    explicit Built(const MbFigure& description) {
        const ByteList file = encodeMb(description).bytes;
        MemoryStream stream;
        MemoryStream_init(&stream, file.data(), uint32_t(file.size()));
        FigureModelData model;
        figure = qelFigureMesh_create();
        succeeded = D_FigureModel_decode(&stream, &model, false) && D_Figure_build(figure, &model);
        D_FigureModel_release(&model);
    }
    ~Built() { qelObject3D_unref(figure); }

    std::vector<uint16_t> indices(int32_t submesh) const {
        const TriangleStripArray* array = figure->indexBuffers[submesh];
        return {array->indices, array->indices + array->indexCount};
    }

    FigureMesh* figure;
    bool succeeded;
};

MbPolygon triangle(uint32_t pattern, uint32_t texture, MbStyle style = {}, std::optional<Rgb> color = {}) {
    return {{{0, 0, 0}, {1, 9, 0}, {2, 0, 9}}, style, pattern, texture, color};
}

MbPolygon quad(uint32_t pattern, uint32_t texture, MbStyle style = {}, std::optional<Rgb> color = {}) {
    MbPolygon polygon = triangle(pattern, texture, style, color);
    polygon.corners.push_back({3, 9, 9});
    return polygon;
}

MbFigure figureOf(const std::vector<MbPolygon>& polygons) {
    MbFigure figure;
    figure.vertices = {{{1, 2, 3}, {0, 0, 1}, 0},
                       {{4, 5, 6}, {0, 1, 0}, 0},
                       {{7, 8, 9}, {1, 0, 0}, 0},
                       {{10, 11, 12}, {0, 0, -1}, -1}};
    figure.bones = {{.rest = translationBone(100, 0, 0)}};
    figure.polygons = polygons;
    return figure;
}

constexpr Rgb kRed = {200, 10, 20};
constexpr MbStyle kLit = {.lit = true}, kHalf = {.blend = MbBlend::Half};

TEST(FigureBuilder, OrdersSubmeshesByPatternClassAndTextureWithColorsLast) {
    const Built built(figureOf({triangle(0, 0, {}, kRed), triangle(0, 1, kHalf), triangle(0, 0), triangle(0, 0, kHalf),
                                triangle(2, 0, kHalf, kRed), quad(2, 1), quad(0, 0)}));
    ASSERT_TRUE(built.succeeded);
    const FigureMesh* figure = built.figure;
    EXPECT_EQ(figure->classCount, 2u);  // 0: opaque, from the colour triangle; 1: half
    // table: colours of class 0 and 1, then class 0 with texture 0 and 1, class 1 with texture 0 and 1
    EXPECT_EQ(figure->appearanceCount, 6u);
    EXPECT_THAT(std::span(figure->patternTable, 9),
                ElementsAre(4, 0, 2, /* pattern 0 */ 2, 0, 4, 5, /* pattern 2 */ 3, 1));
    EXPECT_THAT(std::span(figure->slotFlags, 6),
                ElementsAre(kSlotTextured, kSlotColored, kSlotTextured | kSlotBlended, kSlotTextured | kSlotBlended,
                            kSlotTextured, kSlotColored | kSlotBlended));
    EXPECT_EQ(figure->blendFlags, 1u);
    EXPECT_EQ(figure->polygonCount, 9u) << "a quad counts twice";
    const std::vector<uint16_t> indices[] = {
        {0, 6, 7, /* the quad */ 0, 6, 7, 7, 6, 8}, {0, 1, 2}, {0, 6, 7}, {0, 6, 7},
        /* pattern 2 */ {0, 6, 7, 7, 6, 8},         {3, 4, 5}};
    for (int32_t slot = 0; slot < 6; ++slot) {
        EXPECT_EQ(figure->appearances[slot], figure->appearanceTable[figure->patternTable[3 + slot]]);
        EXPECT_EQ(built.indices(slot), indices[slot]) << slot;
    }
}

TEST(FigureBuilder, MakesVertexDataAndAnOpaqueCopyOfTheColors) {
    const Built built(figureOf({triangle(0, 0, kHalf, kRed), triangle(0, 0)}));
    ASSERT_TRUE(built.succeeded);
    const VertexBuffer* buffer = built.figure->vertexBuffer;
    EXPECT_THAT(valuesOf<int16_t>(buffer->positions), ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 4, 5, 6, 7, 8, 9));
    EXPECT_EQ(buffer->positionScale, 1.0f);
    EXPECT_EQ(buffer->texCoordScale[0], 1.0f);
    EXPECT_THAT(valuesOf<int16_t>(buffer->texCoords[0]), ElementsAre(0, 0, 0, 0, 0, 0, 9, 0, 0, 9));
    EXPECT_THAT(valuesOf<int8_t>(buffer->normals), ElementsAre(0, 0, 64, 0, 64, 0, 64, 0, 0, 0, 64, 0, 64, 0, 0))
        << "normals keep their length";
    std::vector<uint8_t> blended = valuesOf<uint8_t>(buffer->colors),
                         opaque = valuesOf<uint8_t>(built.figure->opaqueColors);
    blended.resize(4), opaque.resize(4);
    EXPECT_THAT(blended, ElementsAre(200, 10, 20, 128));
    EXPECT_THAT(opaque, ElementsAre(200, 10, 20, 255));
}

TEST(FigureBuilder, LoadingShowsPattern0AndDeformsTheVertices) {
    FigureMesh* figure = qelFigureMesh_create();
    const ByteList file = encodeMb(figureOf({quad(0, 0), triangle(1, 0)})).bytes;
    qelObject3D_ref(figure);
    EXPECT_FALSE(load(figure, file)) << "busy";
    EXPECT_EQ(figure->vertexBuffer, nullptr);
    qelObject3D_unref(figure);
    ASSERT_TRUE(load(figure, file));
    EXPECT_NE(figure->appearances[0], nullptr);
    EXPECT_EQ(figure->appearances[1], nullptr);
    EXPECT_THAT(valuesOf<int16_t>(figure->skinnedBuffer->positions),
                ElementsAre(101, 2, 3, 104, 5, 6, 107, 8, 9, 10, 11, 12))
        << "the last vertex is of no bone";
    qelObject3D_unref(figure);
}

TEST(FigureBuilder, AModelThatDrawsNothingIsAFigure) {
    MbFigure noPolygons = figureOf({}), nothing = figureOf({}), noPatterns = figureOf({});
    nothing.vertices.clear();
    nothing.bones.clear();
    noPatterns.patternCount = noPatterns.textureCount = 0;
    for (const MbFigure& description : {noPolygons, nothing, noPatterns}) {
        FigureMesh* figure = qelFigureMesh_create();
        ASSERT_TRUE(load(figure, encodeMb(description).bytes));
        EXPECT_EQ(figure->submeshCount, 0);
        EXPECT_EQ(figure->polygonCount, 0u);
        _Figure_blendVertices(figure);
        D_Figure_setPattern(figure, 3);
        qelObject3D_unref(figure);
    }
}

TEST(FigureBuilder, GivesEverythingBackWhenMemoryRunsOut) {
    const ByteList file =
        encodeMb(figureOf({triangle(0, 0), quad(1, 0, kLit), triangle(0, 1, kHalf), triangle(1, 0, kHalf, kRed)}))
            .bytes;
    for (const FailMode mode : {FailMode::Once, FailMode::FromThenOn})
        sweepEngineAllocations(mode, [&](CountingHeap& heap) {
            FigureMesh* figure = qelFigureMesh_create();
            if (!figure) return;
            const bool loaded = load(figure, file);
            EXPECT_EQ(loaded, !heap.hasFailed());
            if (!loaded) {
                EXPECT_EQ(heap.liveBlocks(), 1) << "only the empty figure";
                EXPECT_EQ(figure->vertexBuffer, nullptr);
                EXPECT_EQ(figure->submeshCount, 0);
                EXPECT_EQ(load(figure, file), mode == FailMode::Once) << "there is memory again";
            }
            qelObject3D_unref(figure);
        });
}

}  // namespace
