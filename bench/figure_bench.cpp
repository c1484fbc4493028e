// Posing figures and blending their vertices, against plain loops.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "animation/blend_plan.h"
#include "animation/figure_pose.h"
#include "bench/plain_figure.h"
#include "bench/ratios.h"
#include "tests/support/figure_fixture.h"

constexpr uint32_t kBoneCount = 32;

// --- Blending ---

static FigureMesh* makeFigure(uint32_t vertexCount, bool isScattered) {
    std::mt19937 random(vertexCount);
    return loadFigure(
        randomFigure(random, {.vertexCount = vertexCount, .boneCount = kBoneCount, .isScattered = isScattered}));
}

static void markBonesChanged(FigureMesh* figure) {
    for (uint32_t b = 0; b < figure->bones.boneCount; ++b) figure->bones.bones[b].changed = 1;
}

// Every bone has moved, as after posing. Arguments: vertices, whether neighbours are of different bones.
static void blendPlain(benchmark::State& state) {
    FigureMesh* figure = makeFigure(uint32_t(state.range(0)), state.range(1));
    PlainFigure plain(figure);
    for (auto _ : state) {
        plain.blend();
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    qelObject3D_unref(figure);
}

static void blend(benchmark::State& state) {
    FigureMesh* figure = makeFigure(uint32_t(state.range(0)), state.range(1));
    for (auto _ : state) {
        markBonesChanged(figure);
        _Figure_blendVertices(figure);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    qelObject3D_unref(figure);
}

// What the slower kernels of this machine do with 10000 vertices of mixed bones.
static void blendWith(benchmark::State& state, const BlendKernel* kernel) {
    FigureMesh* figure = makeFigure(10000, true);
    figure->blendPlan->kernel = kernel;
    for (auto _ : state) {
        markBonesChanged(figure);
        _Figure_blendVertices(figure);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * 10000);
    qelObject3D_unref(figure);
}

[[maybe_unused]] static const bool kRegistered = [] {
    for (const BlendKernel& kernel : BlendKernels_supported().subspan(1))
        benchmark::RegisterBenchmark((std::string("blend10000, ") + kernel.name).c_str(), blendWith, &kernel);
    return true;
}();

BENCHMARK(blendPlain)->ArgsProduct({{1000, 10000}, {0, 1}});
BENCHMARK(blend)->ArgsProduct({{1000, 10000}, {0, 1}});

// --- Posing ---

struct PoseFixture {
    explicit PoseFixture(bool hasSharedFrames) {
        std::mt19937 random(5);
        table = loadTable(randomTable(
            random,
            {.boneCount = kBoneCount, .frameCount = 400, .hasSharedFrames = hasSharedFrames, .hasKeysOnly = true}));
        figure = loadFigure(randomFigure(random, {.vertexCount = 3, .boneCount = kBoneCount}));
        for (int32_t& frame : frames) frame = randomBetween(random, 0, 400 << 16);
    }
    ~PoseFixture() {
        qelObject3D_unref(figure);
        qelObject3D_unref(table);
    }
    int32_t nextFrame() { return frames[next++ % frames.size()]; }

    ActTable* table;
    FigureMesh* figure;
    std::vector<int32_t> frames = std::vector<int32_t>(1024);
    size_t next = 0;
};

// 20 keys per track. Argument: whether all tracks have them at the same frames.
static void posePlain(benchmark::State& state) {
    PoseFixture fixture(state.range(0));
    PlainFigure plain(fixture.figure);
    for (auto _ : state) {
        plain.pose(fixture.table, 0, fixture.nextFrame());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBoneCount);
}

// With the blending of a single triangle.
static void pose(benchmark::State& state) {
    PoseFixture fixture(state.range(0));
    for (auto _ : state) {
        D_Figure_applyAction(fixture.figure, fixture.table, 0, fixture.nextFrame());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBoneCount);
}

BENCHMARK(posePlain)->Arg(0)->Arg(1);
BENCHMARK(pose)->Arg(0)->Arg(1);

// --- What is wanted ---

[[maybe_unused]] static const bool kExpected[] = {
    expectRatio("blend 10000 vertices, bone by bone", "blendPlain/10000/0", "blend/10000/0", RatioBound::AtLeast, 6),
    expectRatio("blend 10000 vertices, bones mixed", "blendPlain/10000/1", "blend/10000/1", RatioBound::AtLeast, 6),
    expectRatio("blend 1000 vertices, bone by bone", "blendPlain/1000/0", "blend/1000/0", RatioBound::AtLeast, 4),
    expectRatio("blend 1000 vertices, bones mixed", "blendPlain/1000/1", "blend/1000/1", RatioBound::AtLeast, 4),
    expectRatio("pose 32 bones, keys at frames of their own", "posePlain/0", "pose/0", RatioBound::AtLeast, 1.5),
    expectRatio("pose 32 bones, keys at the same frames", "posePlain/1", "pose/1", RatioBound::AtLeast, 1.5),
};
