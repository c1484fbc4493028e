#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

// --- VertexArray ---

TEST(VertexArray, RefusesShapesOutsideItsLimits) {
    struct Case {
        int32_t vertices, components, size;
        bool isAccepted;
    };
    for (const Case& c : {Case{1, 2, 1, true}, Case{65535, 4, 2, true}, Case{0, 3, 2, false}, Case{-1, 3, 2, false},
                          Case{65536, 3, 2, false}, Case{10, 1, 2, false}, Case{10, 5, 2, false}, Case{10, 3, 4, false},
                          Case{10, 3, 0, false}}) {
        Result result;
        const Held array(qelVertexArray_create(c.vertices, c.components, c.size, &result));
        EXPECT_EQ(array.get() != nullptr, c.isAccepted) << c.vertices << ", " << c.components << ", " << c.size;
        EXPECT_EQ(result, c.isAccepted ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT);
    }
}

TEST(VertexArray, ChecksRangesAndCopiesWholeVertices) {
    const Held array(makeArray<int16_t>(2, {0, 0, 1, 2, 3, 4, 5, 6}));
    int16_t words[8] = {7, -8, 9, -32768};
    int8_t bytes[8] = {};
    constexpr Result kOk = QEL_STATUS_OK, kState = QEL_STATUS_ILLEGAL_STATE, kArgument = QEL_STATUS_ILLEGAL_ARGUMENT,
                     kIndex = QEL_STATUS_INDEX_OUT_OF_RANGE;
    using Row = std::array<int32_t, 4>;
    for (const auto& [first, count, ofWords, ofBytes] :
         {Row{1, 2, kOk, kState}, Row{3, 0, kOk, kState}, Row{1, 4, kIndex, kIndex}, Row{4, 0, kIndex, kIndex},
          Row{1, INT32_MAX, kIndex, kIndex}, Row{-1, 2, kIndex, kIndex}, Row{0, -1, kArgument, kArgument}}) {
        SCOPED_TRACE(testing::Message() << first << ", " << count);
        EXPECT_EQ(qelVertexArray_set16(array, first, count, words), ofWords);
        EXPECT_EQ(qelVertexArray_get16(array, first, count, words), ofWords);
        EXPECT_EQ(qelVertexArray_set8(array, first, count, bytes), ofBytes);
        EXPECT_EQ(qelVertexArray_get8(array, first, count, bytes), ofBytes);
    }
    EXPECT_EQ(qelVertexArray_get16(array, 9, 9, nullptr), QEL_STATUS_NULL_POINTER) << "before the range";
    qelVertexArray_get16(array, 3, 1, words);
    EXPECT_EQ(std::vector<int16_t>(words, words + 3), (std::vector<int16_t>{5, 6, 9}));
    array->cache = qelAllocArray(5, 1);
    const Held copy(static_cast<VertexArray*>(qelVertexArray_duplicate(array)));
    static_cast<int16_t*>(array->data)[0] = 99;
    EXPECT_EQ(valuesOf<int16_t>(copy), (std::vector<int16_t>{0, 0, 7, -8, 9, -32768, 5, 6}));
    EXPECT_EQ(copy->cache, nullptr);
}

TEST(VertexArray, AdoptsABlockOnlyOnSuccess) {
    CountingHeap heap;
    Result result;
    void* block = qelAllocArray(12, 1);
    EXPECT_EQ(qelVertexArray_createAdopting(0, 3, 1, block, &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_ILLEGAL_ARGUMENT);
    heap.failAfter(0);
    EXPECT_EQ(qelVertexArray_createAdopting(4, 3, 1, block, &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(heap.liveBlocks(), 1);
    const Held array(qelVertexArray_createAdopting(4, 3, 1, block, &result));
    EXPECT_EQ(result, QEL_STATUS_OK);
    EXPECT_EQ(array->data, block);
    EXPECT_EQ(qelVertexArray_createAdopting(4, 3, 1, nullptr, &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
}

// --- VertexBuffer ---

TEST(VertexBuffer, RefusesArraysOfTheWrongShape) {
    const Held buffer(qelVertexBuffer_create());
    constexpr Result kOk = QEL_STATUS_OK, kBad = QEL_STATUS_ILLEGAL_ARGUMENT;
    using Row = std::array<int32_t, 6>;
    for (const auto& [components, isByte, positions, normals, colors, texCoords] :
         {Row{2, true, kBad, kBad, kBad, kOk}, Row{3, true, kOk, kOk, kOk, kOk}, Row{4, true, kBad, kBad, kOk, kBad},
          Row{3, false, kOk, kOk, kBad, kOk}}) {
        SCOPED_TRACE(testing::Message() << components << (isByte ? " bytes" : " words"));
        const Held array(isByte ? makeArray<int8_t>(components, std::vector<int8_t>(12))
                                : makeArray<int16_t>(components, std::vector<int16_t>(12)));
        EXPECT_EQ(qelVertexBuffer_setPositions(buffer, array, 1, nullptr), positions);
        EXPECT_EQ(qelVertexBuffer_setNormals(buffer, array), normals);
        EXPECT_EQ(qelVertexBuffer_setNormalsAsIs(buffer, array), normals);
        EXPECT_EQ(qelVertexBuffer_setColors(buffer, array), colors);
        EXPECT_EQ(qelVertexBuffer_setTexCoords(buffer, 1, array, 1, nullptr), texCoords);
        for (const int32_t unit : {-1, 2})
            EXPECT_EQ(qelVertexBuffer_setTexCoords(buffer, unit, array, 1, nullptr), kBad);
    }
}

TEST(VertexBuffer, PositionsCountAsChangedByArrayAndScaleButNotByBias) {
    const Held buffer(qelVertexBuffer_create());
    const Held first(makeArray<int8_t>(3, {1, 2, 3})), second(makeArray<int8_t>(3, {1, 2, 3}));
    const float bias[] = {1, 2, 3};
    const auto changes = [&](VertexArray* array, float scale, const float* by) {
        buffer->positionsChanged = 0;
        EXPECT_EQ(qelVertexBuffer_setPositions(buffer, array, scale, by), QEL_STATUS_OK);
        EXPECT_EQ(buffer->positionBias[2], by ? 3 : 0);
        return buffer->positionsChanged != 0;
    };
    EXPECT_TRUE(changes(first, 1, nullptr));
    EXPECT_FALSE(changes(first, 1, nullptr)) << "the same again";
    EXPECT_FALSE(changes(first, 1, bias));
    EXPECT_TRUE(changes(first, 2, bias));
    EXPECT_TRUE(changes(second, 2, bias));
    EXPECT_TRUE(changes(nullptr, 2, nullptr));
    EXPECT_EQ(first->refCount, 1);
}

TEST(VertexBuffer, TexCoordBiasHasAsManyComponentsAsTheArray) {
    const Held buffer(qelVertexBuffer_create());
    const Held pairs(makeArray<int16_t>(2, {1, 2})), triples(makeArray<int16_t>(3, {1, 2, 3}));
    const float bias[] = {4, 5, 6};
    std::vector<float> out = {0, 0, 0, 99};
    Result result;
    qelVertexBuffer_setTexCoords(buffer, 1, triples, 0.5f, bias);
    qelVertexBuffer_setTexCoords(buffer, 1, pairs, 0.5f, bias);
    EXPECT_EQ(buffer->texCoordBias[1][2], 0);
    EXPECT_EQ(qelVertexBuffer_getTexCoords(buffer, 1, out.data(), &result), pairs.get());
    EXPECT_EQ(out, (std::vector<float>{0.5f, 4, 5, 99})) << "written beyond the array's components";
    EXPECT_EQ(qelVertexBuffer_getTexCoords(buffer, 2, out.data(), &result), nullptr);
    EXPECT_EQ(result, QEL_STATUS_INDEX_OUT_OF_RANGE);
}

// --- Normals ---

template <typename T>
static std::vector<T> normalised(const std::vector<T>& values) {
    const double unit = std::numeric_limits<T>::max();
    std::vector<T> out;
    for (size_t i = 0; i < values.size(); i += 3) {
        const double x = values[i], y = values[i + 1], z = values[i + 2];
        const double length = std::max(std::floor(std::sqrt(x * x + y * y + z * z) + 0.5), 1.0);
        for (size_t k = 0; k < 3; ++k) out.push_back(T(std::trunc(values[i + k] * unit / length)));
    }
    return out;
}

template <typename T>
static void expectNormalised() {
    std::mt19937 random(1);
    std::vector<T> values(3 * 65535);
    for (T& value : values) value = T(random() >> (random() % (8 * sizeof(T))));
    const Held buffer(qelVertexBuffer_create());
    const Held array(makeArray<T>(3, values));
    ASSERT_EQ(qelVertexBuffer_setNormals(buffer, array), QEL_STATUS_OK);
    EXPECT_EQ(valuesOf<T>(array), normalised(values));
}

TEST(VertexBuffer, NormalisesNormalsInPlace) {
    const Held buffer(qelVertexBuffer_create());
    const std::vector<int16_t> given = {3, 4, 0, 0, 0, 0, -32768, -32768, -32768};
    const Held array(makeArray<int16_t>(3, given));
    qelVertexBuffer_setNormalsAsIs(buffer, array);
    EXPECT_EQ(valuesOf<int16_t>(array), given);
    qelVertexBuffer_setNormals(buffer, nullptr);
    qelVertexBuffer_setNormals(buffer, array);
    EXPECT_EQ(valuesOf<int16_t>(array), (std::vector<int16_t>{19660, 26213, 0, 0, 0, 0, -18917, -18917, -18917}));
    buffer->normalsChanged = 0;
    qelVertexBuffer_setNormals(buffer, array);
    EXPECT_EQ(buffer->normalsChanged, 0) << "the same array";
    expectNormalised<int8_t>();
    expectNormalised<int16_t>();
}

// --- TriangleStripArray ---

TEST(TriangleStripArray, TurnsStripsIntoTrianglesOfOneWinding) {
    struct Case {
        const char* what;
        std::vector<int32_t> lengths, indices;
        std::vector<uint16_t> triangles;
        int32_t limit;
    };
    for (Case& c : std::vector<Case>{
             {"one strip", {5}, {0, 1, 2, 3, 4}, {0, 1, 2, 2, 1, 3, 2, 3, 4}, 4},
             {"triangles and a quad", {3, 4}, {7, 8, 9, 3, 1, 2, 0}, {7, 8, 9, 3, 1, 2, 2, 1, 0}, 9},
             {"index left over, and it is the largest", {3}, {0, 1, 2, 65535}, {0, 1, 2}, 65535},
         }) {
        SCOPED_TRACE(c.what);
        Result result;
        const Held array(qelTriangleStripArray_createExplicit(
            c.lengths.data(), int32_t(c.lengths.size()), c.indices.data(), int32_t(c.indices.size()), true, &result));
        ASSERT_EQ(result, QEL_STATUS_OK);
        const Held copy(static_cast<TriangleStripArray*>(qelTriangleStripArray_duplicate(array)));
        for (const TriangleStripArray* each : {array.get(), copy.get()}) {
            EXPECT_EQ(std::vector(each->indices, each->indices + each->indexCount), c.triangles);
            EXPECT_EQ(each->indexLimit, c.limit);
            EXPECT_EQ(each->stripCount, 1);
            EXPECT_EQ(each->stripLengths[0], each->indexCount);
            EXPECT_EQ(qelTriangleStripArray_getTriangleCount(each), int32_t(c.triangles.size()) / 3);
        }
        EXPECT_NE(copy->indices, array->indices);
    }
}

TEST(TriangleStripArray, RefusesWhatIsNoStrip) {
    const auto refusalOf = [](int32_t stripCount, std::vector<int32_t> lengths, std::vector<int32_t> indices) {
        Result result = QEL_STATUS_OK;
        const auto indexCount = int32_t(indices.size());
        indices.reserve(1);
        const Held array(qelTriangleStripArray_createExplicit(lengths.data(), stripCount, indices.data(), indexCount,
                                                              true, &result));
        EXPECT_EQ(array.get(), nullptr);
        return result;
    };
    constexpr Result kArgument = QEL_STATUS_ILLEGAL_ARGUMENT, kIndex = QEL_STATUS_INDEX_OUT_OF_RANGE;
    for (const int32_t none : {0, -1}) EXPECT_EQ(refusalOf(none, {3}, {0, 1, 2}), kArgument) << "no strips";
    EXPECT_EQ(refusalOf(1, {3}, {}), kArgument) << "no indices";
    EXPECT_EQ(refusalOf(2, {3, 2}, {0, 1, 2, 3, 4}), kArgument) << "strip of two";
    EXPECT_EQ(refusalOf(2, {3, 3}, {0, 1, 2, 3, 4}), kArgument) << "more strips than indices";
    EXPECT_EQ(refusalOf(3, {INT32_MAX, INT32_MAX, 5}, {0, 1, 2}), kArgument) << "lengths whose sum wraps";
    EXPECT_EQ(refusalOf(1, {3}, {0, 1, 65536}), kIndex);
    EXPECT_EQ(refusalOf(1, {3}, {0, 1, 2, -1}), kIndex) << "not in a strip";
}

TEST(TriangleStripArray, ImplicitStripsStayWithin65535Vertices) {
    const auto limitOf = [](int32_t first, std::vector<int32_t> lengths) {
        Result result = QEL_STATUS_OK;
        const auto count = int32_t(lengths.size());
        lengths.reserve(1);
        const Held array(qelTriangleStripArray_createImplicit(first, lengths.data(), count, true, &result));
        return array.get() ? array->indexLimit : -result;
    };
    constexpr Result kArgument = QEL_STATUS_ILLEGAL_ARGUMENT, kIndex = QEL_STATUS_INDEX_OUT_OF_RANGE;
    EXPECT_EQ(limitOf(10, {3, 5}), 18);
    EXPECT_EQ(limitOf(65532, {3}), 65535);
    EXPECT_EQ(limitOf(65533, {3}), -kIndex);
    EXPECT_EQ(limitOf(-1, {3}), -kIndex);
    EXPECT_EQ(limitOf(INT32_MAX, {INT32_MAX, INT32_MAX}), -kIndex);
    EXPECT_EQ(limitOf(0, {4, 2}), -kArgument);
    EXPECT_EQ(limitOf(0, {}), -kArgument);
}

TEST(TriangleStripArray, AdoptsBlocksOnlyOnSuccess) {
    for (const bool isExplicit : {false, true})
        sweepEngineAllocations(FailMode::Once, [=](CountingHeap& heap) {
            auto* lengths = qelAllocArrayOf<int32_t>(1);
            auto* indices = qelAllocArrayOf<int32_t>(4);
            Result result = QEL_STATUS_OUT_OF_MEMORY;
            TriangleStripArray* array = nullptr;
            if (lengths && indices) {
                lengths[0] = 4;
                array = isExplicit ? qelTriangleStripArray_createExplicit(lengths, 1, indices, 4, false, &result)
                                   : qelTriangleStripArray_createImplicit(0, lengths, 1, false, &result);
            }
            EXPECT_EQ(result, heap.hasFailed() ? QEL_STATUS_OUT_OF_MEMORY : QEL_STATUS_OK);
            EXPECT_EQ(array == nullptr, heap.hasFailed());
            if (!array) qelFree(lengths);
            if (!array || !isExplicit) qelFree(indices);
            qelObject3D_unref(array);
        });
}
