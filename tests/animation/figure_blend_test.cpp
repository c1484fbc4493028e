#include "animation/figure_blend.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <vector>

#include "animation/blend_plan.h"
#include "bench/plain_figure.h"
#include "scene/vertex_array.h"
#include "tests/support/figure_fixture.h"

namespace {

using namespace encode;
using testing::ElementsAre;

struct Unref {
    void operator()(FigureMesh* figure) const { qelObject3D_unref(figure); }
};
using FigurePtr = std::unique_ptr<FigureMesh, Unref>;

FigurePtr load(const MbFigure& description) {
    FigurePtr figure(loadFigure(description));
    EXPECT_NE(figure, nullptr);
    return figure;
}

std::vector<int16_t> positionsOf(const FigureMesh* figure) {
    const auto* data = static_cast<const int16_t*>(figure->skinnedPositions->data);
    return {data, data + figure->skinnedPositions->vertexCount * 3};
}

std::vector<int8_t> normalsOf(const FigureMesh* figure) {
    if (!figure->skinnedNormals) return {};
    const auto* data = static_cast<const int8_t*>(figure->skinnedNormals->data);
    return {data, data + figure->skinnedNormals->vertexCount * 3};
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

// --- The formula ---

TEST(FigureBlend, TransformsPositionsAndNormals) {
    struct Case {
        const char* what;
        Atrans3i local;
        std::array<int16_t, 3> rest, position;
        std::array<int8_t, 3> restNormal, normal;
    };
    for (const Case& c : {
             Case{"identity", translation(0, 0, 0), {1, 1, 1}, {1, 1, 1}, {64, -64, 1}, {64, -64, 1}},
             Case{"90 degrees about z",
                  {{0, -4096, 0, 0, 4096, 0, 0, 0, 0, 0, 4096, 0}},
                  {100, 0, 0},
                  {0, 100, 0},
                  {64, 0, 0},
                  {0, 64, 0}},
             Case{"a translation moves no normals",
                  translation(10, 20, 30),
                  {1, 2, 3},
                  {11, 22, 33},
                  {0, 64, 0},
                  {0, 64, 0}},
             Case{"2253 / 4096 is added: 0.45 becomes 1, 0.44 becomes 0, -0.55 becomes 0",
                  {{1843, 0, 0, 0, 0, 1842, 0, 0, 0, 0, -2253, 0}},
                  {1, 1, 1},
                  {1, 0, 0},
                  {1, 1, 1},
                  {1, 0, 0}},
             Case{"results keep their low 16 and 8 bits",
                  {{0, 0, 0, 65536 + 7, 0, 32767, 0, 0, 0, 0, 32767, 0}},
                  {0, 32767, -32768},
                  {7, -16, 8},
                  {0, 127, -128},
                  {0, -8, 0}},
         }) {
        MbFigure description = figureOfBones({-1});
        description.normalFormat = 1;
        description.vertices[0].position = c.rest;
        for (size_t i = 0; i < 3; ++i) description.vertices[0].normal[i] = float(c.restNormal[i]) / 64;
        const FigurePtr figure = load(description);
        setLocal(figure.get(), 0, c.local);
        _Figure_blendVertices(figure.get());
        EXPECT_THAT(positionsOf(figure.get()), testing::ElementsAreArray(c.position)) << c.what;
        EXPECT_THAT(normalsOf(figure.get()), testing::ElementsAreArray(c.normal)) << c.what;
    }
}

// --- Kernels ---

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
            EXPECT_THAT(world.m, testing::ElementsAreArray(expected.m)) << kernel.name;
            bool expectedFits = true;
            for (int i = 0; i < 12; ++i)
                expectedFits = expectedFits && (i % 4 == 3 || expected.m[i] == int16_t(expected.m[i]));
            EXPECT_EQ(fits, expectedFits) << kernel.name;
        }
}

TEST(FigureBlend, WideMatricesComeAndGo) {
    const FigurePtr figure = load(figureOfBones({-1, -1, -1, -1, -1, -1, -1, -1}));
    Atrans3i wide = translation(0, 0, 0);
    wide.m[0] = 40960;
    setLocal(figure.get(), 2, wide);
    _Figure_blendVertices(figure.get());
    EXPECT_EQ(positionsOf(figure.get())[6], 1000);
    EXPECT_EQ(positionsOf(figure.get())[9], 100);
    setLocal(figure.get(), 2, translation(1, 0, 0));
    setLocal(figure.get(), 3, wide);
    _Figure_blendVertices(figure.get());
    EXPECT_EQ(positionsOf(figure.get())[6], 101);
    EXPECT_EQ(positionsOf(figure.get())[9], 1000);
    EXPECT_EQ(figure->blendPlan->wideCount, 1u);
}

// --- The hierarchy ---

std::vector<int16_t> xOf(const FigureMesh* figure) {
    const std::vector<int16_t> positions = positionsOf(figure);
    std::vector<int16_t> x;
    for (size_t i = 0; i < positions.size(); i += 3) x.push_back(positions[i]);
    return x;
}

TEST(FigureBlend, DescendantsFollow) {
    // 0 is the root of 2, 2 of 1; 3 stands alone. Parents may come behind their children.
    const FigurePtr figure = load(figureOfBones({-1, 2, 0, -1}));
    EXPECT_THAT(xOf(figure.get()), ElementsAre(100, 100, 100, 100));
    setLocal(figure.get(), 0, translation(10, 20, 30));
    _Figure_blendVertices(figure.get());
    EXPECT_THAT(xOf(figure.get()), ElementsAre(110, 110, 110, 100));
    const uint64_t contents = figure->skinnedPositions->contents;
    setLocal(figure.get(), 2, translation(5, 0, 0));
    _Figure_blendVertices(figure.get());
    EXPECT_THAT(xOf(figure.get()), ElementsAre(110, 115, 115, 100));
    EXPECT_NE(figure->skinnedPositions->contents, contents) << "what was derived from the positions is out of date";
}

TEST(FigureBlend, KeepsWorldTransformsThatDidNotChange) {
    const FigurePtr figure = load(figureOfBones({-1, 0, 0}));
    figure->bones.world[0] = translation(1000, 0, 0);  // marks: what is computed anew loses them
    figure->bones.world[2] = translation(2000, 0, 0);
    setLocal(figure.get(), 1, translation(1, 0, 0));
    _Figure_blendVertices(figure.get());
    EXPECT_EQ(figure->bones.world[0].m[3], 1000);
    EXPECT_EQ(figure->bones.world[1].m[3], 1001);
    EXPECT_EQ(figure->bones.world[2].m[3], 2000);
}

TEST(FigureBlend, AskingForOneBoneLeavesNoOtherStale) {
    // 1 and 2 hang on 0; 3 on 2.
    const FigurePtr figure = load(figureOfBones({-1, 0, 0, 2}));
    setLocal(figure.get(), 0, translation(10, 0, 0));
    Atrans3i world;
    D_Figure_boneWorldTransform(figure.get(), 1, &world);
    EXPECT_EQ(world.m[3], 10);
    EXPECT_EQ(figure->bones.bones[0].changed, 0);
    D_Figure_boneWorldTransform(figure.get(), 3, &world);
    EXPECT_EQ(world.m[3], 10);
    setLocal(figure.get(), 0, translation(20, 0, 0));
    D_Figure_boneWorldTransform(figure.get(), 0, &world);
    _Figure_blendVertices(figure.get());
    EXPECT_THAT(xOf(figure.get()), ElementsAre(120, 120, 120, 120));
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

// --- Vertices without a bone ---

TEST(FigureBlend, VerticesWithoutABoneStandStill) {
    MbFigure description = figureOfBones({-1});
    description.vertices.push_back({{7, 8, 9}, {0, 1, 0}, -1});
    description.polygons.push_back({.corners = {{1}, {1}, {1}}});
    const FigurePtr figure = load(description);
    setLocal(figure.get(), 0, translation(1, 1, 1));
    _Figure_blendVertices(figure.get());
    EXPECT_THAT(positionsOf(figure.get()), ElementsAre(101, 1, 1, 7, 8, 9));
    EXPECT_THAT(normalsOf(figure.get()), ElementsAre(64, 0, 0, 0, 64, 0));

    description.bones.clear();
    description.vertices[0].bone = -1;
    const FigurePtr boneless = load(description);
    _Figure_blendVertices(boneless.get());
    EXPECT_THAT(positionsOf(boneless.get()), ElementsAre(100, 0, 0, 7, 8, 9));
}

TEST(FigureBlend, NothingToBlend) {
    _Figure_blendVertices(nullptr);
    const FigurePtr empty(qelFigureMesh_create());
    _Figure_blendVertices(empty.get());
    const FigurePtr loadedEmpty = load({.version = 2, .vertexFormat = 1, .normalFormat = 0, .polygonFormat = 1});
    _Figure_blendVertices(loadedEmpty.get());
}

}  // namespace
