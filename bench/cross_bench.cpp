// Asking whether two meshes cross, against a plain loop over all pairs of triangles. Both make everything they need
// within the call, and none of the meshes cross: a crossing would end the search early.

#include <benchmark/benchmark.h>

#include <cmath>
#include <deque>
#include <numbers>

#include "bench/plain_cross.h"
#include "bench/ratios.h"
#include "tests/query/cross_objects.h"
#include "tests/support/figure_fixture.h"

// 5000 triangles with shared vertices, out to 1000 units.
static MeshShape sphere() {
    constexpr int32_t kSides = 50;
    MeshShape shape{.positions = {}, .submeshes = {{}}};
    for (int32_t i = 0; i < (kSides + 1) * kSides; ++i) {
        const double across = i / kSides * std::numbers::pi / kSides;
        const double around = i % kSides * 2 * std::numbers::pi / kSides;
        for (const double value :
             {std::cos(across), std::sin(across) * std::cos(around), std::sin(across) * std::sin(around)})
            shape.positions.push_back(int16_t(1000 * value));
        if (i >= kSides * kSides) continue;
        const int32_t next = i / kSides * kSides + (i + 1) % kSides;
        shape.submeshes[0].insert(shape.submeshes[0].end(), {i, next, i + kSides, next, i + kSides, next + kSides});
    }
    return shape;
}

// Small parallel triangles all over a cube, as many in a volume whatever their number; no vertices are shared.
static MeshShape cloud(int32_t triangleCount, uint32_t seed) {
    std::mt19937 random(seed);
    MeshShape shape{.positions = {}, .submeshes = {{}}};
    const auto side = int32_t(std::cbrt(triangleCount) * 36);
    for (int32_t i = 0; i < triangleCount; ++i) {
        const int32_t x = randomBetween(random, 0, side), y = randomBetween(random, 0, side),
                      z = randomBetween(random, 0, side);
        for (const int32_t value : {x, y, z, x + 18, y, z, x, y + 18, z}) shape.positions.push_back(int16_t(value));
        for (const int32_t corner : {0, 1, 2}) shape.submeshes[0].push_back(3 * i + corner);
    }
    return shape;
}

enum class Scene { Apart, Corner, Inside, Density };

struct CrossScene {
    explicit CrossScene(Scene scene, int32_t triangleCount = 5000, uint32_t seed = 0) {
        MALK8_touchMA();
        const bool isCloud = scene == Scene::Corner || scene == Scene::Density;
        a = make.mesh(isCloud ? cloud(triangleCount, seed) : sphere());
        b = make.mesh(isCloud ? cloud(triangleCount, seed + 1) : sphere());
        const auto nearlyAll = float(std::cbrt(triangleCount) * 36 * 0.9);
        if (scene == Scene::Apart) place = make.moved(5000, 0, 0);
        if (scene == Scene::Corner) place = make.moved(nearlyAll, nearlyAll, nearlyAll);
        if (scene == Scene::Inside) place = make.moved(0, 0, 0, 0.8f);
        if (scene == Scene::Density) place = make.moved(0.5f, 0.5f, 0.5f);
    }

    CrossObjects make{&MALK8_malc};
    K8Handle *a, *b;
    K8Transform* place;
};

static void crossPlain(benchmark::State& state, Scene scene) {
    const CrossScene objects(scene);
    for (auto _ : state)
        if (plainCross(objects.a, nullptr, objects.b, objects.place)) return state.SkipWithError("they cross");
}

static void cross(benchmark::State& state, Scene scene) {
    const CrossScene objects(scene);
    for (auto _ : state)
        if (K8Util_getCrossStatus(objects.a, nullptr, objects.b, objects.place))
            return state.SkipWithError("they cross");
}

BENCHMARK_CAPTURE(crossPlain, apart, Scene::Apart);
BENCHMARK_CAPTURE(cross, apart, Scene::Apart);
BENCHMARK_CAPTURE(crossPlain, corner, Scene::Corner);
BENCHMARK_CAPTURE(cross, corner, Scene::Corner);
BENCHMARK_CAPTURE(crossPlain, inside, Scene::Inside);
BENCHMARK_CAPTURE(cross, inside, Scene::Inside);

// Argument: triangles in each of the two. Small pairs take turns, so that no number fares better for what the processor
// remembers of the last time.
static void crossDense(benchmark::State& state) {
    const auto count = int32_t(state.range(0));
    std::deque<CrossScene> scenes;
    for (int32_t total = 0; total < 20000; total += count) scenes.emplace_back(Scene::Density, count, uint32_t(total));
    for (auto _ : state)
        for (const CrossScene& scene : scenes)
            if (K8Util_getCrossStatus(scene.a, nullptr, scene.b, scene.place)) return state.SkipWithError("they cross");
    state.SetItemsProcessed(state.iterations() * 20000);
}
BENCHMARK(crossDense)->Arg(1000)->Arg(5000)->Arg(20000);

// Of the time per triangle, where all of it goes with the logarithm of the number.
static double growth(double from, double to) { return std::log2(to) / std::log2(from); }

[[maybe_unused]] static const bool kExpected[] = {
    expectRatio("cross, 2 x 5000 triangles, apart", "crossPlain/apart", "cross/apart", RatioBound::AtLeast, 1),
    expectRatio("cross, 2 x 5000, boxes overlap at a corner", "crossPlain/corner", "cross/corner", RatioBound::AtLeast,
                50),
    expectRatio("cross, 2 x 5000, one inside the other", "crossPlain/inside", "cross/inside", RatioBound::AtLeast, 12),
    expectRatio("cross, per triangle, of 5000 to of 1000", "crossDense/5000", "crossDense/1000", RatioBound::AtMost,
                growth(1000, 5000)),
    expectRatio("cross, per triangle, of 20000 to of 1000", "crossDense/20000", "crossDense/1000", RatioBound::AtMost,
                growth(1000, 20000)),
};
