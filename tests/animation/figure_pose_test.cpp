#include "animation/figure_pose.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "animation/blend_plan.h"
#include "animation/figure_blend.h"
#include "bench/plain_figure.h"
#include "scene/appearance.h"
#include "tests/scene/held.h"
#include "tests/support/figure_fixture.h"

namespace {

using namespace encode;
using FigurePtr = Held<FigureMesh>;
using TablePtr = Held<ActTable>;

FigurePtr load(const MbFigure& description) {
    FigureMesh* figure = loadFigure(description);
    EXPECT_NE(figure, nullptr);
    return FigurePtr(figure);
}

using Values = std::vector<int16_t>;

Values positionsOf(const FigureMesh* figure) { return valuesOf<int16_t>(figure->skinnedPositions); }

std::vector<int8_t> normalsOf(const FigureMesh* figure) {
    return figure->skinnedNormals ? valuesOf<int8_t>(figure->skinnedNormals) : std::vector<int8_t>();
}

void setLocal(FigureMesh* figure, uint32_t bone, const Atrans3i& local) {
    figure->bones.local[bone] = local;
    figure->bones.bones[bone].changed = 1;
}

Atrans3i translation(int32_t x, int32_t y, int32_t z) { return {{4096, 0, 0, x, 0, 4096, 0, y, 0, 0, 4096, z}}; }

// One vertex per bone, at (100, 0, 0) with its normal along x. `parents` has one entry per bone.
MbFigure figureOfBones(const std::vector<int32_t>& parents) {
    MbFigure figure;
    for (const int32_t parent : parents) {
        figure.vertices.push_back({{100, 0, 0}, {1, 0, 0}, int32_t(figure.bones.size())});
        figure.bones.push_back({.parent = parent});
    }
    for (uint32_t v = 0; v < parents.size(); ++v) figure.polygons.push_back({.corners = {{v}, {v}, {v}}});
    return figure;
}

// --- Blending: kernels ---

struct MatrixClass {
    const char* what;
    int32_t entryLimit;        // of the m
    uint32_t translationMask;  // of the t
};

void setRandomLocals(std::mt19937& random, FigureMesh* figure, PlainFigure& plain, const MatrixClass& matrices) {
    for (uint32_t b = 0; b < figure->bones.boneCount; ++b) {
        Atrans3i local;
        for (int i = 0; i < 12; ++i)
            local.m[i] = i % 4 == 3 ? int32_t(uint32_t(random()) & matrices.translationMask)
                                    : randomBetween(random, -matrices.entryLimit - 1, matrices.entryLimit);
        setLocal(figure, b, local);
        plain.local[b] = local;
    }
}

// Vertex counts around the numbers that kernels take at once, and roots only: there the entries are what is set.
TEST(FigureBlend, EveryKernelGivesTheBitsOfThePlainLoop) {
    std::mt19937 random(11);
    std::vector<uint32_t> vertexCounts = {100, 1001};
    for (uint32_t n = 1; n < 20; ++n) vertexCounts.push_back(n);
    for (const uint32_t vertexCount : vertexCounts)
        for (const bool hasNormals : {false, true}) {
            MbFigure description = randomFigure(random, {.vertexCount = vertexCount,
                                                         .boneCount = 5,
                                                         .hasNormals = hasNormals,
                                                         .isScattered = true,
                                                         .hasLooseVertices = true,
                                                         .isExtreme = true});
            for (MbBone& bone : description.bones) bone.parent = -1;
            const FigurePtr figure = load(description);
            PlainFigure plain(figure.get());
            for (const MatrixClass& matrices : {MatrixClass{"rotations", 4096, 1023},
                                                {"of 16 bits", 32767, 0xFFFFFFFF},
                                                {"some too wide", 40000, 0xFFFF},
                                                {"of 32 bits", INT32_MAX, 0xFFFFFFFF}})
                for (const BlendKernel& kernel : BlendKernels_supported()) {
                    SCOPED_TRACE(testing::Message() << kernel.name << ", " << vertexCount << " vertices, normals "
                                                    << hasNormals << ", matrices " << matrices.what);
                    figure->blendPlan->kernel = &kernel;
                    setRandomLocals(random, figure.get(), plain, matrices);
                    plain.blend();
                    _Figure_blendVertices(figure.get());
                    ASSERT_EQ(positionsOf(figure.get()), plain.positions);
                    ASSERT_EQ(normalsOf(figure.get()), plain.normals);
                }
        }
}

TEST(FigureBlend, EveryKernelComposesLikeTheProductOfMatrices) {
    std::mt19937 random(12);
    for (const BlendKernel& kernel : BlendKernels_supported())
        for (int32_t round = 0; round < 2000; ++round) {
            const int32_t bits = randomBetween(random, 1, 31);
            Atrans3i parent, local, expected, world;
            for (int i = 0; i < 12; ++i) {
                parent.m[i] = int32_t(random()) >> bits;
                local.m[i] = int32_t(random()) >> bits;
            }
            D_Atrans3i_multiply2(&expected, &parent, &local);
            BoneFactors factors;
            const bool fits = kernel.compose(&parent, &local, &world, &factors);
            EXPECT_EQ(std::to_array(world.m), std::to_array(expected.m)) << kernel.name;
            bool expectedFits = true;
            for (int i = 0; i < 12; ++i)
                expectedFits = expectedFits && (i % 4 == 3 || expected.m[i] == int16_t(expected.m[i]));
            EXPECT_EQ(fits, expectedFits) << kernel.name;
        }
}

// --- Blending: the hierarchy ---

Values xOf(const FigureMesh* figure) {
    const Values positions = positionsOf(figure);
    Values x;
    for (size_t i = 0; i < positions.size(); i += 3) x.push_back(positions[i]);
    return x;
}

TEST(FigureBlend, DescendantsFollowAndOthersKeepTheirTransforms) {
    // 0 is the root of 2, 2 of 1; 3 stands alone. Parents may come behind their children.
    const FigurePtr figure = load(figureOfBones({-1, 2, 0, -1}));
    setLocal(figure.get(), 0, translation(10, 20, 30));
    _Figure_blendVertices(figure.get());
    EXPECT_EQ(xOf(figure.get()), (Values{110, 110, 110, 100}));
    const uint64_t contents = figure->skinnedPositions->contents;
    figure->bones.world[3] = translation(2000, 0, 0);  // a mark, lost where it is computed anew
    setLocal(figure.get(), 2, translation(5, 0, 0));
    _Figure_blendVertices(figure.get());
    EXPECT_EQ(xOf(figure.get()), (Values{110, 115, 115, 2100}));
    EXPECT_NE(figure->skinnedPositions->contents, contents) << "what was derived from the positions is out of date";
    // Asking for one bone leaves no other stale.
    setLocal(figure.get(), 0, translation(20, 0, 0));
    Atrans3i world;
    D_Figure_boneWorldTransform(figure.get(), 2, &world);
    EXPECT_EQ(world.m[3], 25);
    D_Figure_boneWorldTransform(figure.get(), 0, &world);
    EXPECT_EQ(world.m[3], 20);
    _Figure_blendVertices(figure.get());
    EXPECT_EQ(xOf(figure.get()), (Values{120, 125, 125, 2100}));
}

TEST(FigureBlend, DeepChainsTakeLinearTime) {
    constexpr uint32_t kBoneCount = 32768, kVertexCount = 21845;  // as deep and as many as a file can say
    MbFigure description;
    for (uint32_t b = 0; b < kBoneCount; ++b)
        description.bones.push_back(
            {.parent = b + 1 < kBoneCount ? int32_t(b + 1) : -1, .rest = translationBone(1, 0, 0)});
    for (uint32_t v = 0; v < kVertexCount; ++v) description.vertices.push_back({{0, 0, 0}, {1, 0, 0}, int32_t(v)});
    for (uint32_t v = 0; v < kVertexCount; ++v) description.polygons.push_back({.corners = {{v}, {v}, {v}}});
    const FigurePtr figure = load(description);
    const std::vector<int16_t> before = xOf(figure.get());
    for (uint32_t v = 0; v < kVertexCount; ++v) ASSERT_EQ(before[v], int16_t(kBoneCount - v));
    setLocal(figure.get(), kBoneCount - 1, translation(0, 0, 0));
    _Figure_blendVertices(figure.get());
    const std::vector<int16_t> after = xOf(figure.get());
    for (uint32_t v = 0; v < kVertexCount; ++v) ASSERT_EQ(after[v], int16_t(before[v] - 1));
}

// --- Posing ---

TEST(FigurePose, MatchesThePlainLoop) {
    std::mt19937 random(31);
    for (const uint32_t boneCount : {1u, 7u, 8u, 9u, 32u})
        for (const uint32_t tableBoneCount : {boneCount, boneCount / 2, boneCount + 3}) {
            SCOPED_TRACE(testing::Message() << boneCount << " bones, " << tableBoneCount << " tracks");
            const FigurePtr figure =
                load(randomFigure(random, {.vertexCount = 90, .boneCount = boneCount, .isScattered = true}));
            const TablePtr table(loadTable(
                randomTable(random, {.boneCount = tableBoneCount, .actionCount = 2, .hasSharedFrames = false})));
            PlainFigure plain(figure.get());
            for (int32_t round = 0; round < 50; ++round) {
                const int32_t action = round % 2, frame = randomBetween(random, -1000, 101 << 16);
                D_Figure_applyAction(figure.get(), table.get(), action, frame);
                plain.pose(table.get(), action, frame);
                plain.blend();
                for (uint32_t b = 0; b < boneCount; ++b)
                    ASSERT_EQ(std::to_array(figure->bones.local[b].m), std::to_array(plain.local[b].m)) << "bone " << b;
                ASSERT_EQ(positionsOf(figure.get()), plain.positions);
                ASSERT_EQ(normalsOf(figure.get()), plain.normals);
            }
        }
}

TEST(FigurePose, RemembersWhatWasPosedAndRefusesTheRest) {
    std::mt19937 random(32);
    const FigurePtr figure = load(randomFigure(random, {.vertexCount = 3, .boneCount = 2}));
    const FigurePtr emptyFigure(qelFigureMesh_create());
    const TablePtr table(loadTable(randomTable(random, {.boneCount = 2, .actionCount = 3})));
    const TablePtr emptyTable(qelActTable_create());
    D_Figure_applyAction(figure.get(), table.get(), 2, 5 << 16);
    const Values posed = positionsOf(figure.get());
    for (const int32_t action : {3, -1}) D_Figure_applyAction(figure.get(), table.get(), action, 0);
    for (const ActTable* none : {emptyTable.get(), static_cast<ActTable*>(nullptr)})
        D_Figure_applyAction(figure.get(), none, 0, 0);
    D_Figure_applyAction(nullptr, table.get(), 0, 0);
    D_Figure_applyAction(emptyFigure.get(), table.get(), 0, 0);
    EXPECT_EQ(emptyFigure->posedAction, -1);
    EXPECT_EQ(figure->posedTable, table.get());
    EXPECT_EQ(figure->posedAction, 2);
    EXPECT_EQ(figure->posedFrame, 5 << 16);
    EXPECT_EQ(D_Figure_getPattern(figure.get()), ActTable__calcPattern(table.get(), 2, 5 << 16));
    EXPECT_EQ(positionsOf(figure.get()), posed);
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
    // Submeshes: 0 of pattern 0, 1 and 2 of pattern 1, 3 of pattern 31, 4 of pattern 32.
    const FigurePtr figure = load(figureOf({triangle(0), triangle(1), triangle(1, 0, {.twoSided = true}),
                                            triangle(31, 0, {}, Rgb{1, 2, 3}), triangle(32)}));
    EXPECT_EQ(D_Figure_getNumPatterns(figure.get()), 33);
    std::fill_n(figure->slotFlags, 5, uint32_t(kSlotBlended));
    const std::pair<uint32_t, std::vector<bool>> kCases[] = {{2, {true, true, true, false, false}},
                                                             {0, {true, false, false, false, false}},
                                                             {0x80000000, {true, false, false, true, false}},
                                                             {0x7FFFFFFC, {true, false, false, false, false}},
                                                             {0xFFFFFFFF, {true, true, true, true, false}}};
    for (const auto& [mask, shown] : kCases) {
        EXPECT_EQ(D_Figure_setPattern(figure.get(), mask), mask);
        EXPECT_EQ(D_Figure_getPattern(figure.get()), mask);
        EXPECT_EQ(shownOf(figure.get()), shown) << "mask " << mask;
    }
    constexpr uint32_t kTextured = kSlotBlended | kSlotTextured, kColored = kSlotBlended | kSlotColored;
    EXPECT_EQ(std::vector(figure->slotFlags, figure->slotFlags + 5),
              (std::vector<uint32_t>{kTextured, kTextured, kTextured, kColored, kSlotBlended}))
        << "flags are set but never cleared";
    figure->appearances[1] = nullptr;
    D_Figure_setPattern(figure.get(), 0xFFFFFFFF);
    EXPECT_EQ(figure->appearances[1], nullptr) << "the same mask twice changes slots once";
}

TEST(FigurePattern, OnePatternIsAlwaysShown) {
    const FigurePtr figure = load(figureOf({triangle(0), triangle(0, 0, {.twoSided = true})}));
    const uint32_t applied = figure->appliedPattern;
    EXPECT_EQ(D_Figure_setPattern(figure.get(), 6), 6u);
    EXPECT_EQ(D_Figure_getPattern(figure.get()), 6u);
    EXPECT_EQ(figure->appliedPattern, applied);
    EXPECT_EQ(shownOf(figure.get()), std::vector(2, true));
}

// --- Textures ---

TEST(FigureTextures, ReachTheAppearancesOfTheirSlot) {
    // Two classes, two textures, colours: appearances 0 and 1 are of colours, then class by class texture 0 and 1.
    const FigurePtr owner = load(figureOf(
        {triangle(0, 0), triangle(0, 1), triangle(0, 0, {.twoSided = true}), triangle(0, 0, {}, Rgb{1, 2, 3})}));
    FigureMesh* figure = owner.get();
    using Textures = std::vector<const Texture2D*>;
    const auto texturesOf = [figure](int32_t unit) {
        Textures textures;
        for (uint32_t i = 0; i < figure->appearanceCount; ++i)
            textures.push_back(figure->appearanceTable[i]->textures[unit]);
        return textures;
    };
    const Held a(makeTexture(makeImage(ImageFormat::Rgb, 32, 16))), b(makeTexture(makeImage(ImageFormat::Rgb, 32, 16)));
    for (const int32_t slot : {-1, 2, 15, 16, INT32_MAX}) {
        D_Figure_setTexture(figure, slot, a);
        D_Figure_setSecondTexture(figure, slot, a);
    }
    EXPECT_EQ(a->refCount, 1) << "there are no such slots";
    EXPECT_EQ(a->scale[0], 1);
    D_Figure_setTexture(figure, 1, a);
    EXPECT_EQ(figure->textureSlots[1], a.get());
    EXPECT_EQ(a->refCount, 3) << "ours and one of each appearance";
    D_Figure_setTexture(figure, 0, b);
    EXPECT_EQ(texturesOf(0), (Textures{nullptr, nullptr, b, a, b, a}));
    D_Figure_setSecondTexture(figure, 1, b);
    EXPECT_EQ(texturesOf(1), (Textures{nullptr, nullptr, nullptr, b, nullptr, b}));
    for (const Texture2D* texture : {a.get(), b.get()})
        EXPECT_EQ(std::to_array(texture->scale), (std::array{1.0f / 32, 1.0f / 32, 1.0f})) << "texels of the width";
    D_Figure_setTexture(figure, 1, nullptr);
    D_Figure_setSecondTexture(figure, 1, nullptr);
    EXPECT_EQ(texturesOf(0), (Textures{nullptr, nullptr, b, nullptr, b, nullptr}));
    EXPECT_EQ(texturesOf(1), Textures(6));
    EXPECT_EQ(a->refCount, 1);
}

}  // namespace
