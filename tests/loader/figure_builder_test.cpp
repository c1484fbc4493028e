#include "loader/figure_builder.h"

#include <gtest/gtest.h>

#include "loader/figure_appearance.h"
#include "loader/mb_decoder.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "tests/loader/content.h"
#include "tests/loader/random.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"
#include "tools/encode/mb_encoder.h"

namespace {

using namespace encode;

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
        figure = qelFigureMesh_create();
        succeeded = D_FigureModel_decode(&stream, &model, false) && D_Figure_build(figure, &model);
        D_FigureModel_release(&model);
    }
    ~Built() { qelObject3D_unref(figure); }

    std::vector<uint32_t> patternTable() const {
        return {figure->patternTable, figure->patternTable + figure->patternCount + uint32_t(figure->submeshCount)};
    }
    std::vector<uint16_t> indices(int32_t submesh) const {
        const TriangleStripArray* array = figure->indexBuffers[submesh];
        return {array->indices, array->indices + array->indexCount};
    }

    FigureMesh* figure;
    FigureModelData model;
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
                                triangle(2, 0, kHalf, kRed), quad(2, 1)}));
    ASSERT_TRUE(built.succeeded);
    const FigureMesh* figure = built.figure;
    EXPECT_EQ(figure->classCount, 2u);  // 0: opaque, from the colour triangle; 1: half
    // table: colours of class 0 and 1, then class 0 with texture 0 and 1, class 1 with texture 0 and 1
    EXPECT_EQ(figure->appearanceCount, 6u);
    EXPECT_EQ(built.patternTable(), (std::vector<uint32_t>{4, 0, 2, /* pattern 0 */ 2, 0, 4, 5, /* pattern 2 */ 3, 1}));
    EXPECT_EQ(std::vector<uint32_t>(figure->slotFlags, figure->slotFlags + 6),
              (std::vector<uint32_t>{kSlotTextured, kSlotColored, kSlotTextured | kSlotBlended,
                                     kSlotTextured | kSlotBlended, kSlotTextured, kSlotColored | kSlotBlended}));
    EXPECT_EQ(figure->blendFlags, 1u);
    EXPECT_EQ(figure->polygonCount, 7u) << "a quad counts twice";
    for (int32_t slot = 0; slot < 6; ++slot)
        EXPECT_EQ(figure->appearances[slot], figure->appearanceTable[figure->patternTable[3 + slot]]);
}

TEST(FigureBuilder, MakesVertexDataAndAnOpaqueCopyOfTheColors) {
    const Built built(figureOf({triangle(0, 0, kHalf, kRed), triangle(0, 0)}));
    ASSERT_TRUE(built.succeeded);
    const VertexBuffer* buffer = built.figure->vertexBuffer;
    EXPECT_EQ(valuesOf<int16_t>(buffer->positions),
              (std::vector<int16_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(buffer->positionScale, 1.0f);
    EXPECT_EQ(buffer->texCoordScale[0], 1.0f);
    EXPECT_EQ(valuesOf<int16_t>(buffer->texCoords[0]), (std::vector<int16_t>{0, 0, 0, 0, 0, 0, 9, 0, 0, 9}));
    EXPECT_EQ(valuesOf<int8_t>(buffer->normals),
              (std::vector<int8_t>{0, 0, 64, 0, 64, 0, 64, 0, 0, 0, 64, 0, 64, 0, 0}))
        << "normals keep their length";
    const std::vector<uint8_t> blended = valuesOf<uint8_t>(buffer->colors),
                               opaque = valuesOf<uint8_t>(built.figure->opaqueColors);
    EXPECT_EQ(std::vector<uint8_t>(blended.begin(), blended.begin() + 4), (std::vector<uint8_t>{200, 10, 20, 128}));
    EXPECT_EQ(std::vector<uint8_t>(opaque.begin(), opaque.begin() + 4), (std::vector<uint8_t>{200, 10, 20, 255}));
}

// The text of the rule as loops: for each pattern, class, texture look at every polygon.
TEST(FigureBuilder, GroupsRandomPolygonsAsTheRuleSays) {
    Random random{std::mt19937(7)};
    for (int round = 0; round < 40; ++round) {
        std::vector<MbPolygon> polygons;
        for (uint32_t i = 0, n = random.below(40); i < n; ++i) {
            MbStyle style = {.twoSided = random.chance(2), .blend = MbBlend(random.below(3))};
            const std::optional<Rgb> color = random.chance(2) ? std::optional(kRed) : std::nullopt;
            const uint32_t pattern = random.below(4), texture = random.below(3);
            polygons.push_back(random.chance(2) ? triangle(pattern, texture, style, color)
                                                : quad(pattern, texture, style, color));
        }
        MbFigure description = figureOf(polygons);
        description.patternCount = 4;
        description.textureCount = 3;
        const Built built(description);
        ASSERT_TRUE(built.succeeded);
        const FigureMesh* figure = built.figure;

        const ByteList file = encodeMb(description).bytes;
        MemoryStream stream;
        MemoryStream_init(&stream, file.data(), uint32_t(file.size()));
        FigureModelData model;
        ASSERT_TRUE(D_FigureModel_decode(&stream, &model, false));
        int32_t slot = 0;
        for (uint32_t s = 0; s < 4; ++s) {
            const int32_t firstSlot = slot;
            for (uint32_t a = 0; a < model.classCount; ++a)
                for (uint32_t t = 0; t <= 3; ++t) {  // 3: colours
                    if (t == 3 && model.colorCount == 0) continue;
                    std::vector<uint16_t> indices;
                    const uint32_t range = s * 3 + t;
                    const uint32_t* triangleRange =
                        t < 3 ? &model.texturedTriangleStarts[range] : &model.colorTriangleStarts[s];
                    for (uint32_t i = triangleRange[0]; i < triangleRange[1]; ++i) {
                        const TriangleRecord& record = model.triangles[(t < 3 ? model.colorTriangleCount : 0) + i];
                        if (record.attributeClass != a) continue;
                        indices.insert(indices.end(), record.vertices, record.vertices + 3);
                    }
                    const uint32_t* quadRange = t < 3 ? &model.texturedQuadStarts[range] : &model.colorQuadStarts[s];
                    for (uint32_t i = quadRange[0]; i < quadRange[1]; ++i) {
                        const QuadRecord& record = model.quads[(t < 3 ? model.colorQuadCount : 0) + i];
                        const uint16_t* v = record.vertices;
                        if (record.attributeClass == a)
                            indices.insert(indices.end(), {v[0], v[1], v[2], v[2], v[1], v[3]});
                    }
                    if (indices.empty()) continue;
                    ASSERT_LT(slot, figure->submeshCount);
                    ASSERT_EQ(built.indices(slot), indices) << "round " << round << " slot " << slot;
                    const uint32_t colored = model.colorCount ? model.classCount : 0;
                    ASSERT_EQ(figure->patternTable[4 + slot], t == 3 ? a : colored + a * 3 + t);
                    ++slot;
                }
            ASSERT_EQ(figure->patternTable[s], uint32_t(slot - firstSlot));
        }
        ASSERT_EQ(slot, figure->submeshCount);
        D_FigureModel_release(&model);
    }
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
    EXPECT_EQ(valuesOf<int16_t>(figure->skinnedBuffer->positions),
              (std::vector<int16_t>{101, 2, 3, 104, 5, 6, 107, 8, 9, 10, 11, 12}))
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
