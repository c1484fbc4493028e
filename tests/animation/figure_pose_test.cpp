#include "animation/figure_pose.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

#include "bench/plain_figure.h"
#include "scene/appearance.h"
#include "scene/texture2d.h"
#include "scene/vertex_array.h"
#include "tests/support/figure_fixture.h"

namespace {

using namespace encode;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;

struct Unref {
    void operator()(Object3D* object) const { qelObject3D_unref(object); }
};
using FigurePtr = std::unique_ptr<FigureMesh, Unref>;
using TablePtr = std::unique_ptr<ActTable, Unref>;

std::vector<int16_t> positionsOf(const FigureMesh* figure) {
    const auto* data = static_cast<const int16_t*>(figure->skinnedPositions->data);
    return {data, data + figure->skinnedPositions->vertexCount * 3};
}

// --- Posing ---

TEST(FigurePose, MatchesThePlainLoop) {
    std::mt19937 random(31);
    for (const uint32_t boneCount : {1u, 7u, 8u, 9u, 32u})
        for (const uint32_t tableBoneCount : {boneCount, boneCount / 2, boneCount + 3}) {
            SCOPED_TRACE(testing::Message() << boneCount << " bones, " << tableBoneCount << " tracks");
            const FigurePtr figure(
                loadFigure(randomFigure(random, {.vertexCount = 90, .boneCount = boneCount, .isScattered = true})));
            const TablePtr table(loadTable(
                randomTable(random, {.boneCount = tableBoneCount, .actionCount = 2, .hasSharedFrames = false})));
            PlainFigure plain(figure.get());
            for (int32_t round = 0; round < 50; ++round) {
                const int32_t action = round % 2, frame = randomBetween(random, -1000, 101 << 16);
                D_Figure_applyAction(figure.get(), table.get(), action, frame);
                plain.pose(table.get(), action, frame);
                plain.blend();
                for (uint32_t b = 0; b < boneCount; ++b)
                    ASSERT_THAT(figure->bones.local[b].m, ElementsAreArray(plain.local[b].m)) << "bone " << b;
                ASSERT_EQ(positionsOf(figure.get()), plain.positions);
                const auto* normals = static_cast<const int8_t*>(figure->skinnedNormals->data);
                ASSERT_EQ(std::vector(normals, normals + plain.normals.size()), plain.normals);
            }
        }
}

TEST(FigurePose, RemembersWhatWasPosedAndRefusesTheRest) {
    std::mt19937 random(32);
    const FigurePtr figure(loadFigure(randomFigure(random, {.vertexCount = 3, .boneCount = 2})));
    const TablePtr table(loadTable(randomTable(random, {.boneCount = 2, .actionCount = 3})));
    EXPECT_EQ(figure->posedTable, nullptr);
    EXPECT_EQ(figure->posedAction, -1);
    EXPECT_EQ(figure->posedFrame, -1);
    D_Figure_applyAction(figure.get(), table.get(), 2, 5 << 16);
    EXPECT_EQ(figure->posedTable, table.get());
    EXPECT_EQ(figure->posedAction, 2);
    EXPECT_EQ(figure->posedFrame, 5 << 16);
    EXPECT_EQ(D_Figure_getPattern(figure.get()), ActTable__calcPattern(table.get(), 2, 5 << 16));

    const std::vector<int16_t> posed = positionsOf(figure.get());
    const TablePtr emptyTable(qelActTable_create());
    D_Figure_applyAction(figure.get(), table.get(), 3, 0);
    D_Figure_applyAction(figure.get(), table.get(), -1, 0);
    D_Figure_applyAction(figure.get(), emptyTable.get(), 0, 0);
    D_Figure_applyAction(figure.get(), nullptr, 0, 0);
    D_Figure_applyAction(nullptr, table.get(), 0, 0);
    EXPECT_EQ(figure->posedAction, 2);
    EXPECT_EQ(positionsOf(figure.get()), posed);

    const FigurePtr emptyFigure(qelFigureMesh_create());
    D_Figure_applyAction(emptyFigure.get(), table.get(), 0, 0);
    EXPECT_EQ(emptyFigure->posedAction, -1);
}

// --- Patterns ---

MbPolygon triangle(uint32_t pattern, uint32_t texture = 0, MbStyle style = {}, std::optional<Rgb> color = {}) {
    return {.corners = {{0}, {1}, {2}}, .style = style, .pattern = pattern, .texture = texture, .color = color};
}

MbFigure figureOf(const std::vector<MbPolygon>& polygons) {
    MbFigure figure;
    figure.vertices = {{{0, 0, 0}, {0, 0, 1}, -1}, {{9, 0, 0}, {0, 0, 1}, -1}, {{0, 9, 0}, {0, 0, 1}, -1}};
    figure.polygons = polygons;
    return figure;
}

std::vector<bool> shownOf(const FigureMesh* figure) {
    std::vector<bool> shown;
    for (int32_t slot = 0; slot < figure->submeshCount; ++slot) shown.push_back(figure->appearances[slot] != nullptr);
    return shown;
}

TEST(FigurePattern, ShowsThePatternsOfTheMask) {
    // Submeshes: 0 of pattern 0, 1 and 2 of pattern 1, none of pattern 2, 3 of pattern 3.
    const FigurePtr figure(loadFigure(
        figureOf({triangle(0), triangle(1), triangle(1, 0, {.twoSided = true}), triangle(3, 0, {}, Rgb{1, 2, 3})})));
    EXPECT_EQ(D_Figure_getNumPatterns(figure.get()), 4);
    struct Case {
        uint32_t mask;
        std::vector<bool> shown;
    };
    for (const Case& c : {Case{0, {true, false, false, false}}, Case{2, {true, true, true, false}},
                          Case{8, {true, false, false, true}}, Case{0xB, {true, true, true, true}},
                          Case{0xFFFFFFF4, {true, false, false, false}}, Case{0xFFFFFFFF, {true, true, true, true}}}) {
        EXPECT_EQ(D_Figure_setPattern(figure.get(), c.mask), c.mask);
        EXPECT_EQ(D_Figure_getPattern(figure.get()), c.mask);
        EXPECT_EQ(shownOf(figure.get()), c.shown) << "mask " << c.mask;
    }
    for (int32_t slot = 0; slot < figure->submeshCount; ++slot)
        EXPECT_EQ(figure->appearances[slot], figure->appearanceTable[figure->patternTable[4 + slot]]) << slot;
}

TEST(FigurePattern, SetsButNeverClearsFlags) {
    const FigurePtr figure(loadFigure(figureOf({triangle(0), triangle(1, 0, {}, Rgb{1, 2, 3}), triangle(2)})));
    std::fill_n(figure->slotFlags, 3, uint32_t(kSlotBlended));
    D_Figure_setPattern(figure.get(), 2);
    EXPECT_THAT(std::span(figure->slotFlags, 3), ElementsAre(kSlotBlended, kSlotBlended | kSlotColored, kSlotBlended));
    D_Figure_setPattern(figure.get(), 5);
    EXPECT_THAT(std::span(figure->slotFlags, 3),
                ElementsAre(kSlotBlended | kSlotTextured, kSlotBlended | kSlotColored, kSlotBlended | kSlotTextured));
}

TEST(FigurePattern, TheSameMaskTwiceChangesSlotsOnce) {
    const FigurePtr figure(loadFigure(figureOf({triangle(0), triangle(1)})));
    D_Figure_setPattern(figure.get(), 2);
    figure->appearances[1] = nullptr;
    D_Figure_setPattern(figure.get(), 2);
    EXPECT_EQ(figure->appearances[1], nullptr);
    D_Figure_setPattern(figure.get(), 0);
    D_Figure_setPattern(figure.get(), 2);
    EXPECT_NE(figure->appearances[1], nullptr);
}

TEST(FigurePattern, OnePatternIsAlwaysShown) {
    const FigurePtr figure(loadFigure(figureOf({triangle(0), triangle(0, 0, {.twoSided = true})})));
    const uint32_t applied = figure->appliedPattern;
    EXPECT_EQ(D_Figure_setPattern(figure.get(), 6), 6u);
    EXPECT_EQ(D_Figure_getPattern(figure.get()), 6u);
    EXPECT_EQ(figure->appliedPattern, applied);
    EXPECT_THAT(shownOf(figure.get()), Each(true));
}

TEST(FigurePattern, MasksReachPattern31) {
    MbFigure description = figureOf({triangle(0), triangle(31), triangle(32)});
    const FigurePtr figure(loadFigure(description));
    EXPECT_EQ(D_Figure_getNumPatterns(figure.get()), 33);
    D_Figure_setPattern(figure.get(), 0xFFFFFFFF);
    EXPECT_THAT(shownOf(figure.get()), ElementsAre(true, true, false));
}

// --- Textures ---

class FigureTextures : public testing::Test {
protected:
    // Two classes, two textures, colours: appearances 0 and 1 are of colours, then class by class texture 0 and 1.
    FigureTextures()
        : figure_(loadFigure(figureOf({triangle(0, 0), triangle(0, 1), triangle(0, 0, {.twoSided = true}),
                                       triangle(0, 0, {}, Rgb{1, 2, 3})}))) {
        const std::vector<uint8_t> pixels(32 * 16 * 3);
        Result result;
        Image2D* image = qelImage2D_createFromPixels(int32_t(ImageFormat::Rgb), 32, 16, pixels.data(), true, &result);
        for (auto* texture : {&first_, &second_}) texture->reset(qelTexture2D_create(image, &result));
        qelObject3D_unref(image);
    }
    std::vector<const Texture2D*> texturesOf(int32_t unit) const {
        std::vector<const Texture2D*> textures;
        for (uint32_t i = 0; i < figure_->appearanceCount; ++i)
            textures.push_back(figure_->appearanceTable[i]->textures[unit]);
        return textures;
    }

    FigurePtr figure_;
    std::unique_ptr<Texture2D, Unref> first_, second_;
};

TEST_F(FigureTextures, ReachTheAppearancesOfTheirSlot) {
    const Texture2D *a = first_.get(), *b = second_.get();
    D_Figure_setTexture(figure_.get(), 1, first_.get());
    EXPECT_THAT(texturesOf(0), ElementsAre(nullptr, nullptr, nullptr, a, nullptr, a));
    EXPECT_EQ(figure_->textureSlots[1], a);
    EXPECT_EQ(a->refCount, 3) << "ours and one of each appearance";
    D_Figure_setTexture(figure_.get(), 0, second_.get());
    EXPECT_THAT(texturesOf(0), ElementsAre(nullptr, nullptr, b, a, b, a));
    D_Figure_setSecondTexture(figure_.get(), 1, second_.get());
    EXPECT_THAT(texturesOf(1), ElementsAre(nullptr, nullptr, nullptr, b, nullptr, b));
    EXPECT_EQ(figure_->textureSlots[1], a);
    D_Figure_setTexture(figure_.get(), 1, nullptr);
    D_Figure_setSecondTexture(figure_.get(), 1, nullptr);
    EXPECT_THAT(texturesOf(0), ElementsAre(nullptr, nullptr, b, nullptr, b, nullptr));
    EXPECT_THAT(texturesOf(1), Each(nullptr));
    EXPECT_EQ(a->refCount, 1);
}

TEST_F(FigureTextures, CountTexelsAlongTheWidth) {
    D_Figure_setTexture(figure_.get(), 0, first_.get());
    EXPECT_THAT(first_->scale, ElementsAre(1.0f / 32, 1.0f / 32, 1.0f));
    D_Figure_setSecondTexture(figure_.get(), 0, second_.get());
    EXPECT_THAT(second_->scale, ElementsAre(1.0f / 32, 1.0f / 32, 1.0f));
}

TEST_F(FigureTextures, OtherSlotsAreIgnored) {
    for (const int32_t slot : {-1, 2, 15, 16, INT32_MAX}) {
        D_Figure_setTexture(figure_.get(), slot, first_.get());
        D_Figure_setSecondTexture(figure_.get(), slot, first_.get());
    }
    EXPECT_THAT(figure_->textureSlots, Each(nullptr));
    EXPECT_THAT(texturesOf(0), Each(nullptr));
    EXPECT_THAT(texturesOf(1), Each(nullptr));
    EXPECT_EQ(first_->scale[0], 1);
}

}  // namespace
