#include "scene/morphing_mesh.h"

#include <cmath>
#include <memory>
#include <random>

#include "render/figure_parameters.h"
#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

// A mesh over one triangle.
static MorphingMesh* makeMorphing(VertexBuffer* base, std::vector<VertexBuffer*> targets, Result* result) {
    const Held triangle(makeTriangle());
    TriangleStripArray* const indexBuffers[] = {triangle};
    return qelMorphingMesh_create(base, targets.data(), indexBuffers, nullptr, 1, int32_t(targets.size()), result);
}

// What a component becomes.
template <typename T>
static T morphed(T base, const std::vector<T>& targets, const std::vector<float>& weights) {
    float sum = 0;
    for (size_t t = 0; t < targets.size(); ++t) sum += weights[t] * float(targets[t] - base);
    double step = std::isnan(sum) ? 0 : std::round(double(sum));
    step = std::min(std::max(step, -2147483648.0), 2147483647.0);
    return T(int64_t(base) + int64_t(step));
}

template <typename T>
static std::vector<T> randomValues(size_t count) {
    static std::mt19937 random(3);
    std::vector<T> values(count);
    for (T& value : values) value = T(random());
    return values;
}

static const std::vector<float> kWeights[] = {
    {0, 0, 0},         {0.5f, 0, 0}, {0, 1, 0},        {0.25f, 0.3f, -0.7f}, {1e-3f, 3, 100},     {1e6f, -2e6f, 5e5f},
    {3e9f, 0, -1e30f}, {NAN, 1, 0},  {INFINITY, 1, 0}, {-INFINITY, 0, 0},    {33554.43f, 0, 0.1f}};

// Morphs one attribute of 301 vertices (more than a block, and not a multiple of one) with every set of weights.
template <typename T>
static void expectMorphs(int32_t componentCount, VertexArray* VertexBuffer::*attribute) {
    const size_t count = 301 * size_t(componentCount);
    std::vector<std::vector<T>> values;
    std::vector<std::unique_ptr<Held<VertexBuffer>>> buffers;
    for (int i = 0; i < 4; ++i) {
        values.push_back(randomValues<T>(count));
        buffers.push_back(std::make_unique<Held<VertexBuffer>>(qelVertexBuffer_create()));
        buffers.back()->get()->*attribute = makeArray<T>(componentCount, values.back());
    }
    Result result;
    const Held mesh(makeMorphing(*buffers[0], {*buffers[1], *buffers[2], *buffers[3]}, &result));
    ASSERT_EQ(result, QEL_STATUS_OK);
    for (const std::vector<float>& weights : kWeights) {
        SCOPED_TRACE(testing::PrintToString(weights));
        qelMorphingMesh_setWeights(mesh, weights.data());
        ASSERT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_OK);
        std::vector<T> expected;
        for (size_t i = 0; i < count; ++i)
            expected.push_back(morphed<T>(values[0][i], {values[1][i], values[2][i], values[3][i]}, weights));
        EXPECT_EQ(valuesOf<T>(mesh->morphedBuffer->*attribute), expected);
    }
}

TEST(MorphingMesh, AddsRoundedWeightedDifferences) {
    expectMorphs<int8_t>(3, &VertexBuffer::positions);
    expectMorphs<int16_t>(3, &VertexBuffer::positions);
    expectMorphs<int8_t>(3, &VertexBuffer::normals);
    expectMorphs<int16_t>(3, &VertexBuffer::normals);
    expectMorphs<uint8_t>(4, &VertexBuffer::colors);
    expectMorphs<uint8_t>(3, &VertexBuffer::colors);
}

TEST(MorphingMesh, CopiesWhatTheTargetsDoNotCarry) {
    const Held base(makeBuffer<int16_t>({10, 20, 30}, 0.5f, {1, 2, 3})), target(makeBuffer<int16_t>({20, 20, 20}));
    const Held coords(makeArray<int8_t>(2, {4, 5})), normals(makeArray<int8_t>(3, {0, 3, 0}));
    const float bias[] = {7, 8};
    qelVertexBuffer_setTexCoords(base, 1, coords, 0.25f, bias);
    qelVertexBuffer_setNormalsAsIs(base, normals);
    Result result;
    const Held mesh(makeMorphing(base, {target}, &result));
    ASSERT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_OK);
    const VertexBuffer* out = mesh->morphedBuffer;
    EXPECT_EQ(valuesOf<int16_t>(out->positions), (std::vector<int16_t>{10, 20, 30}));
    EXPECT_EQ(valuesOf<int8_t>(out->texCoords[1]), (std::vector<int8_t>{4, 5}));
    EXPECT_EQ(valuesOf<int8_t>(out->normals), (std::vector<int8_t>{0, 3, 0}));
    EXPECT_NE(out->texCoords[1], coords.get());
    EXPECT_EQ(
        (std::vector<float>{out->positionScale, out->positionBias[2], out->texCoordScale[1], out->texCoordBias[1][1]}),
        (std::vector<float>{0.5f, 3, 0.25f, 8}));
}

TEST(MorphingMesh, MorphsTheDefaultColourWhereNoVertexColoursAreMorphed) {
    const Held base(makeBuffer<int8_t>({0, 0, 0})), target(makeBuffer<int8_t>({0, 0, 0}));
    qelVertexBuffer_setDefaultColor(base, 0x80FF0010);
    qelVertexBuffer_setDefaultColor(target, 0x81000110);
    Result result;
    const Held mesh(makeMorphing(base, {target}, &result));
    struct Case {
        float weight;
        uint32_t color;
    };
    for (const Case& c : {Case{0, 0x80FF0010}, Case{0.5f, 0x81800110}, Case{1, 0x81000110}, Case{3, 0x83000310},
                          Case{-400, 0x00FF0010}, Case{1e30f, 0xFF00FF10}}) {
        qelMorphingMesh_setWeights(mesh, &c.weight);
        ASSERT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_OK);
        EXPECT_EQ(mesh->morphedBuffer->defaultColor, c.color) << c.weight;
    }
    const uint64_t positions = mesh->morphedBuffer->positions->contents;
    qelVertexBuffer_setDefaultColor(base, 0x80FF0020);
    ASSERT_EQ(qelMorphingMesh_update(mesh), QEL_STATUS_OK);
    EXPECT_EQ(mesh->morphedBuffer->defaultColor, 0xFF00FF00u) << "with the last weight";
    EXPECT_EQ(mesh->morphedBuffer->positions->contents, positions) << "for a colour alone";
    const Held colors(makeArray<uint8_t>(3, {1, 2, 3}));
    qelVertexBuffer_setColors(base, colors);
    qelVertexBuffer_setColors(target, colors);
    ASSERT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_OK);
    EXPECT_EQ(mesh->morphedBuffer->defaultColor, 0x80FF0020u) << "targets carry colours";
}

TEST(MorphingMesh, FollowsTheShapeOfItsBaseAndRefusesUnlikeTargets) {
    const Held base(makeBuffer<int8_t>(std::vector<int8_t>(6))), first(makeBuffer<int8_t>(std::vector<int8_t>(6)));
    const Held second(makeBuffer<int8_t>(std::vector<int8_t>(6)));
    Result result;
    const Held mesh(makeMorphing(base, {first, second}, &result));
    ASSERT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_OK);
    const auto setPositions = [](VertexBuffer* buffer, VertexArray* adopted) {
        qelVertexBuffer_setPositions(buffer, adopted, 1, nullptr);
        qelObject3D_unref(adopted);
    };
    mesh->weightsChanged = 1;
    setPositions(second, makeArray<int8_t>(3, std::vector<int8_t>(9)));
    EXPECT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_ILLEGAL_STATE) << "one target longer";
    setPositions(second, nullptr);
    EXPECT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_ILLEGAL_STATE) << "one target without";
    setPositions(second, makeArray<int16_t>(3, std::vector<int16_t>(6)));
    EXPECT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_ILLEGAL_STATE) << "one target wider";
    EXPECT_EQ(mesh->weightsChanged, 1);
    setPositions(first, makeArray<int16_t>(3, std::vector<int16_t>(6)));
    EXPECT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_ILLEGAL_STATE) << "both wider than the base";
    setPositions(base, makeArray<int16_t>(3, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_OK);
    EXPECT_EQ(valuesOf<int16_t>(mesh->morphedBuffer->positions), (std::vector<int16_t>{1, 2, 3, 4, 5, 6}));
    setPositions(base, nullptr);
    EXPECT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_ILLEGAL_STATE) << "base without";
    EXPECT_EQ(qelMorphingMesh_update(mesh), QEL_STATUS_ILLEGAL_STATE)
        << "what the buffer was remade for has yet to come";
    EXPECT_EQ(mesh->morphedBuffer->positions, nullptr);
}

// What a base was given to draw with is nothing that its targets could carry, whether or not it was drawn yet.
TEST(MorphingMesh, DoesNotMorphCoordinatesThatAreLaidOver) {
    const Held base(makeBuffer<int8_t>({0, 0, 0})), target(makeBuffer<int8_t>({10, 0, 0}));
    const Held own(makeArray<int8_t>(2, {4, 5})), others(makeArray<int8_t>(2, {6, 9}));
    qelVertexBuffer_setTexCoords(base, 0, own, 1, nullptr);
    Result result;
    const Held mesh(makeMorphing(base, {target}, &result));
    for (const bool isDrawn : {false, true}) {
        if (isDrawn) K8FigureParameters_ensureSecondCoordinates(base);
        qelVertexBuffer_setTexCoords(target, 1, others, 1, nullptr);
        EXPECT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_ILLEGAL_STATE) << isDrawn;
        qelVertexBuffer_setTexCoords(target, 1, nullptr, 1, nullptr);
        EXPECT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_OK) << isDrawn;
    }
    EXPECT_EQ(valuesOf<int8_t>(mesh->morphedBuffer->texCoords[1]), (std::vector<int8_t>{4, 5}));
}

TEST(MorphingMesh, DuplicateMorphsIntoItsOwnBuffer) {
    const Held base(makeBuffer<int8_t>({0, 0, 0})), target(makeBuffer<int8_t>({10, 0, 0}));
    Result result;
    const Held mesh(makeMorphing(base, {target}, &result));
    const float half = 0.5f, one = 1;
    qelMorphingMesh_setWeights(mesh, &half);
    const Held copy(static_cast<MorphingMesh*>(qelMorphingMesh_duplicate(mesh)));
    EXPECT_EQ(copy->weights[0], 0.5f);
    qelMorphingMesh_setWeights(copy, &one);
    for (MorphingMesh* each : {mesh.get(), copy.get()}) {
        qelMorphingMesh_morph(each);
        EXPECT_EQ(valuesOf<int8_t>(each->morphedBuffer->positions)[0], each == copy ? 10 : 5);
    }
}

TEST(MorphingMesh, GivesEverythingBackWhenMemoryRunsOut) {
    const Held base(qelVertexBuffer_create()), target(qelVertexBuffer_create());
    const Held words(makeArray<int16_t>(3, std::vector<int16_t>(9)));
    const Held bytes(makeArray<int8_t>(3, std::vector<int8_t>(9)));
    sweepEngineAllocations(FailMode::Once, [&](CountingHeap& heap) {
        for (VertexBuffer* buffer : {base.get(), target.get()}) qelVertexBuffer_setPositions(buffer, bytes, 1, nullptr);
        Result result;
        const Held mesh(makeMorphing(base, {target}, &result));
        if (!mesh.get()) return;
        const Held copy(static_cast<MorphingMesh*>(qelMorphingMesh_duplicate(mesh)));
        EXPECT_EQ(copy.get() == nullptr, heap.hasFailed());
        for (VertexBuffer* buffer : {base.get(), target.get()}) qelVertexBuffer_setPositions(buffer, words, 1, nullptr);
        const bool failedBefore = heap.hasFailed();
        if (qelMorphingMesh_morph(mesh) == QEL_STATUS_OK) return;
        EXPECT_TRUE(!failedBefore && heap.hasFailed());
        EXPECT_EQ(qelMorphingMesh_morph(mesh), QEL_STATUS_OK);
    });
    EXPECT_EQ(base->refCount, 1);
    EXPECT_EQ(target->refCount, 1);
}
