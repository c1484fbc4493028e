// Picking, against the plain walk over all triangles.

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "bench/plain_pick.h"
#include "bench/ratios.h"
#include "scene/appearance.h"
#include "scene/triangle_strip_array.h"
#include "tests/scene/held.h"

using Ray = std::array<float, 6>;

// Steps from pole to pole and around, for about 10,000 and 60,000 triangles.
constexpr int64_t kSmallSphere = 71, kLargeSphere = 173;
constexpr float kRadius = 30;

static std::vector<int16_t> spherePositions(int32_t steps) {
    std::vector<int16_t> positions;
    for (int32_t i = 0; i <= steps; ++i)
        for (int32_t j = 0; j <= steps; ++j) {
            const double polar = std::numbers::pi * i / steps, around = 2 * std::numbers::pi * j / steps;
            const double at[] = {std::sin(polar) * std::cos(around), std::sin(polar) * std::sin(around),
                                 std::cos(polar)};
            for (const double coordinate : at) positions.push_back(int16_t(30000 * coordinate));
        }
    return positions;
}

static TriangleStripArray* sphereStrips(int32_t steps) {
    std::vector<int32_t> indices, lengths;
    for (int32_t i = 0; i < steps; ++i) {
        for (int32_t j = 0; j <= steps; ++j)
            for (const int32_t row : {i, i + 1}) indices.push_back(row * (steps + 1) + j);
        lengths.push_back(2 * (steps + 1));
    }
    Result result;
    return qelTriangleStripArray_createExplicit(lengths.data(), int32_t(lengths.size()), indices.data(),
                                                int32_t(indices.size()), true, &result);
}

struct PickFixture {
    explicit PickFixture(int64_t steps)
        : buffer(makeBuffer(spherePositions(int32_t(steps)), kRadius / 30000)), strips(sphereStrips(int32_t(steps))) {
        std::mt19937 random(1);
        std::normal_distribution<float> normal;
        for (Ray& ray : rays) {  // from outside at the sphere
            float length = 0;
            for (size_t i = 0; i < 3; ++i) length += (ray[i] = normal(random)) * ray[i];
            for (size_t i = 0; i < 3; ++i) {
                ray[i] *= 2 * kRadius / std::sqrt(length);
                ray[i + 3] = -ray[i] + normal(random) * kRadius / 4;
            }
        }
    }
    const Ray& nextRay() { return rays[next++ % rays.size()]; }
    int64_t triangleCount() const { return qelTriangleStripArray_getTriangleCount(strips); }

    Held<VertexBuffer> buffer;
    Held<TriangleStripArray> strips;
    Held<Appearance> appearance{qelAppearance_create()};
    std::array<Ray, 64> rays;
    size_t next = 0;
};

static Mesh* makeMesh(const PickFixture& fixture) {
    TriangleStripArray* const strips[] = {fixture.strips};
    Appearance* const appearances[] = {fixture.appearance};
    Result result;
    return qelMesh_create(fixture.buffer, strips, appearances, 1, &result);
}

template <typename Pick>
static void pickWith(benchmark::State& state, Pick&& pick, int picksBefore = 0) {
    PickFixture fixture(state.range(0));
    const Held mesh(makeMesh(fixture));
    for (int i = 0; i < picksBefore; ++i) {
        RayIntersection record{};
        pick(mesh.get(), fixture.nextRay(), &record);
    }
    for (auto _ : state) {
        RayIntersection record;
        qelRayIntersection_initialize(&record);
        benchmark::DoNotOptimize(pick(mesh.get(), fixture.nextRay(), &record));
    }
    state.SetItemsProcessed(state.iterations() * fixture.triangleCount());
}

static bool pickOnce(Mesh* mesh, const Ray& r, RayIntersection* record) {
    Result result;
    return qelMesh_pick(mesh, r[0], r[1], r[2], r[3], r[4], r[5], record, &result);
}

static void pickPlain(benchmark::State& state) {
    pickWith(state, [](Mesh* mesh, const Ray& ray, RayIntersection* record) {
        Result result;
        return plainPick(mesh, mesh->vertexBuffer, ray.data(), record, &result);
    });
}

// Every pick finds positions that have been written.
static void pickChanged(benchmark::State& state) {
    pickWith(state, [](Mesh* mesh, const Ray& ray, RayIntersection* record) {
        qelVertexArray_touch(mesh->vertexBuffer->positions);
        return pickOnce(mesh, ray, record);
    });
}

// With the tree that is made after 16 picks.
constexpr int kPicksUntilTree = 17;

static void pickAgain(benchmark::State& state) { pickWith(state, pickOnce, kPicksUntilTree); }

// What having the tree made takes, and the walks before it.
static void pickUntilTree(benchmark::State& state) {
    pickWith(state, [](Mesh* mesh, const Ray& ray, RayIntersection* record) {
        qelVertexArray_touch(mesh->vertexBuffer->positions);
        for (int i = 1; i < kPicksUntilTree; ++i) {
            RayIntersection earlier{};
            pickOnce(mesh, ray, &earlier);
        }
        return pickOnce(mesh, ray, record);
    });
}

BENCHMARK(pickPlain)->Arg(kSmallSphere)->Arg(kLargeSphere);
BENCHMARK(pickChanged)->Arg(kSmallSphere)->Arg(kLargeSphere);
BENCHMARK(pickAgain)->Arg(kSmallSphere)->Arg(kLargeSphere);
BENCHMARK(pickUntilTree)->Arg(kSmallSphere)->Arg(kLargeSphere);

// --- What is wanted ---

[[maybe_unused]] static const bool kExpected[] = {
    expectRatio("pick among 10,000 changed triangles", "pickPlain/71", "pickChanged/71", RatioBound::AtLeast, 3.5),
    expectRatio("pick among 60,000 changed triangles", "pickPlain/173", "pickChanged/173", RatioBound::AtLeast, 3.5),
    expectRatio("pick again among 10,000 triangles", "pickPlain/71", "pickAgain/71", RatioBound::AtLeast, 70),
    expectRatio("pick again among 60,000 triangles", "pickPlain/173", "pickAgain/173", RatioBound::AtLeast, 300),
};
