// Deforming the meshes of a scene.

#include <benchmark/benchmark.h>

#include <vector>

#include "bench/ratios.h"
#include "scene/appearance.h"
#include "scene/morphing_mesh.h"
#include "scene/skinned_mesh.h"
#include "tests/scene/held.h"

constexpr int32_t kVertexCount = 10000, kBoneCount = 40, kVerticesPerBone = kVertexCount / kBoneCount;

static std::vector<int16_t> makePositions(int32_t step) {
    std::vector<int16_t> positions(size_t(kVertexCount) * 3);
    for (size_t i = 0; i < positions.size(); ++i) positions[i] = int16_t(int32_t(i) * step % 4000 - 2000);
    return positions;
}

// --- Skinning: a fan of bones, each vertex on two of them ---

struct SkinFixture {
    SkinFixture() {
        TriangleStripArray* const strips[] = {triangle};
        Result result;
        mesh = qelSkinnedMesh_create(buffer, strips, nullptr, skeleton, 1, &result);
        for (int32_t i = 0; i < kBoneCount; ++i) {
            const Held bone(qelGroup_create());
            qelGroup_addChild(skeleton, bone);
            bones.push_back(bone);
        }
        for (int32_t i = 0; i < kBoneCount; ++i)
            for (const int32_t bone : {i, (i + 1) % kBoneCount})
                qelSkinnedMesh_addTransform(mesh, bones[size_t(bone)], 1, i * kVerticesPerBone, kVerticesPerBone);
        qelSkinnedMesh_skin(mesh, true);
    }
    ~SkinFixture() { qelObject3D_unref(mesh); }

    void turn(Group* node) {
        degrees += 1;
        qelTransformable_setOrientation(node, degrees, 0, 0, 1);
    }

    Held<VertexBuffer> buffer{makeBuffer(makePositions(7))};
    Held<TriangleStripArray> triangle{makeTriangle()};
    Held<Group> skeleton{qelGroup_create()};
    std::vector<Group*> bones;
    SkinnedMesh* mesh;
    float degrees = 0;
};

// Argument: how many bones move.
static void skin(benchmark::State& state) {
    SkinFixture fixture;
    for (auto _ : state) {
        for (int64_t i = 0; i < state.range(0); ++i) fixture.turn(fixture.bones[size_t(i)]);
        qelSkinnedMesh_skin(fixture.mesh, true);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kVertexCount);
}

BENCHMARK(skin)->Arg(0)->Arg(1)->Arg(kBoneCount);

// --- Morphing ---

static void morph(benchmark::State& state) {
    const Held base(makeBuffer(makePositions(7))), target(makeBuffer(makePositions(11)));
    const Held triangle(makeTriangle());
    const std::vector<VertexBuffer*> targets(size_t(state.range(0)), target);
    const std::vector<float> weights(targets.size(), 0.1f);
    TriangleStripArray* const strips[] = {triangle};
    Result result;
    const Held mesh(qelMorphingMesh_create(base, targets.data(), strips, nullptr, 1, int32_t(targets.size()), &result));
    qelMorphingMesh_setWeights(mesh, weights.data());
    for (auto _ : state) {
        qelMorphingMesh_morph(mesh);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kVertexCount);
}

BENCHMARK(morph)->Arg(1)->Arg(4);

// --- What is wanted ---

[[maybe_unused]] static const bool kExpected[] = {
    expectRatio("skin one bone of 40 instead of all", "skin/40", "skin/1", RatioBound::AtLeast, 8),
    expectRatio("skin nothing instead of all 40 bones", "skin/40", "skin/0", RatioBound::AtLeast, 50),
};
