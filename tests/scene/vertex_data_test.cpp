#include <algorithm>
#include <array>
#include <cmath>
#include <random>

#include "tests/scene/held.h"
#include "tests/support/counting_heap.h"

// --- VertexArray ---

TEST(VertexArray, RefusesShapesOutsideItsLimits) {
    Result result;
    for (const auto& [vertices, components, size, accepted] : std::vector<std::array<int32_t, 4>>{{1, 2, 1, true},
                                                                                                  {65535, 4, 2, true},
                                                                                                  {0, 3, 2},
                                                                                                  {-1, 3, 2},
                                                                                                  {65536, 3, 2},
                                                                                                  {10, 1, 2},
                                                                                                  {10, 5, 2},
                                                                                                  {10, 3, 4},
                                                                                                  {10, 3, 0}}) {
        const Held array(qelVertexArray_create(vertices, components, size, &result));
        EXPECT_EQ(array.get() != nullptr, accepted) << vertices << ", " << components << ", " << size;
        EXPECT_EQ(result, accepted ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT);
    }
}

TEST(VertexArray, ChecksRangesAndCopiesWholeVertices) {
    const Held array(makeArray<int16_t>(2, {0, 0, 1, 2, 3, 4, 5, 6}));
    int16_t words[8] = {7, -8, 9, -32768};
    int8_t bytes[8] = {};
    struct Case {
        const char* what;
        int32_t first, count;
        Result words, bytes;
    };
    constexpr Result kOk = QEL_STATUS_OK, kState = QEL_STATUS_ILLEGAL_STATE, kArgument = QEL_STATUS_ILLEGAL_ARGUMENT,
                     kIndex = QEL_STATUS_INDEX_OUT_OF_RANGE;
    for (const Case& c :
         {Case{"some", 1, 2, kOk, kState}, Case{"none", 3, 0, kOk, kState}, Case{"one past", 1, 4, kIndex, kIndex},
          Case{"from the end", 4, 0, kIndex, kIndex}, Case{"sum wraps", 1, INT32_MAX, kIndex, kIndex},
          Case{"before the start", -1, 2, kIndex, kIndex}, Case{"negative count", 0, -1, kArgument, kArgument}}) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(qelVertexArray_set16(array, c.first, c.count, words), c.words);
        EXPECT_EQ(qelVertexArray_get16(array, c.first, c.count, words), c.words);
        EXPECT_EQ(qelVertexArray_set8(array, c.first, c.count, bytes), c.bytes);
        EXPECT_EQ(qelVertexArray_get8(array, c.first, c.count, bytes), c.bytes);
    }
    EXPECT_EQ(valuesOf<int16_t>(array), (std::vector<int16_t>{0, 0, 7, -8, 9, -32768, 5, 6}));
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
    struct Case {
        int32_t components;
        bool isByte;
        Result positions, normals, colors, texCoords;
    };
    constexpr Result kOk = QEL_STATUS_OK, kBad = QEL_STATUS_ILLEGAL_ARGUMENT;
    for (const Case& c : {Case{2, true, kBad, kBad, kBad, kOk}, Case{3, true, kOk, kOk, kOk, kOk},
                          Case{4, true, kBad, kBad, kOk, kBad}, Case{3, false, kOk, kOk, kBad, kOk}}) {
        SCOPED_TRACE(testing::Message() << c.components << (c.isByte ? " bytes" : " words"));
        const Held array(c.isByte ? makeArray<int8_t>(c.components, std::vector<int8_t>(12))
                                  : makeArray<int16_t>(c.components, std::vector<int16_t>(12)));
        EXPECT_EQ(qelVertexBuffer_setPositions(buffer, array, 1, nullptr), c.positions);
        EXPECT_EQ(qelVertexBuffer_setNormals(buffer, array), c.normals);
        EXPECT_EQ(qelVertexBuffer_setNormalsAsIs(buffer, array), c.normals);
        EXPECT_EQ(qelVertexBuffer_setColors(buffer, array), c.colors);
        EXPECT_EQ(qelVertexBuffer_setTexCoords(buffer, 1, array, 1, nullptr), c.texCoords);
        EXPECT_EQ(qelVertexBuffer_setTexCoords(buffer, 2, array, 1, nullptr), kBad);
        EXPECT_EQ(qelVertexBuffer_setTexCoords(buffer, -1, array, 1, nullptr), kBad);
    }
    EXPECT_EQ(qelVertexBuffer_setPositions(buffer, nullptr, 1, nullptr), kOk);
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
static void expectNormalised(const std::vector<T>& values) {
    const Held buffer(qelVertexBuffer_create());
    const Held array(makeArray<T>(3, values));
    ASSERT_EQ(qelVertexBuffer_setNormals(buffer, array), QEL_STATUS_OK);
    EXPECT_EQ(valuesOf<T>(array), normalised(values));
}

TEST(VertexBuffer, NormalisesNormalsInPlace) {
    const Held buffer(qelVertexBuffer_create());
    const Held array(makeArray<int16_t>(3, {3, 4, 0, 0, 0, 0, -32768, -32768, -32768}));
    const std::vector<int16_t> given = valuesOf<int16_t>(array);
    qelVertexBuffer_setNormalsAsIs(buffer, array);
    EXPECT_EQ(valuesOf<int16_t>(array), given);
    qelVertexBuffer_setNormals(buffer, nullptr);
    qelVertexBuffer_setNormals(buffer, array);
    EXPECT_EQ(valuesOf<int16_t>(array), (std::vector<int16_t>{19660, 26213, 0, 0, 0, 0, -18917, -18917, -18917}));
    buffer->normalsChanged = 0;
    qelVertexBuffer_setNormals(buffer, array);
    EXPECT_EQ(buffer->normalsChanged, 0) << "the same array";

    std::vector<int8_t> bytes;
    for (int32_t x = -128; x < 128; ++x)
        for (int32_t y = -128; y < 128; ++y) {
            const int8_t normal[] = {int8_t(x), int8_t(y), int8_t(x * 7 + y * 3)};
            bytes.insert(bytes.end(), normal, normal + 3);
            if (bytes.size() == 3 * 32768) expectNormalised(std::exchange(bytes, {}));
        }
    std::mt19937 random(1);
    std::vector<int16_t> words(3 * 65535);
    for (int16_t& word : words) word = int16_t(random() >> (random() & 15));
    expectNormalised(words);
}

// --- TriangleStripArray ---

static std::vector<uint16_t> indicesOf(const TriangleStripArray* array) {
    return {array->indices, array->indices + array->indexCount};
}

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
        EXPECT_EQ(indicesOf(array), c.triangles);
        EXPECT_EQ(array->indexLimit, c.limit);
        EXPECT_EQ(array->stripCount, 1);
        EXPECT_EQ(array->stripLengths[0], array->indexCount);
        EXPECT_EQ(qelTriangleStripArray_getTriangleCount(array), int32_t(c.triangles.size()) / 3);
        const Held copy(static_cast<TriangleStripArray*>(qelTriangleStripArray_duplicate(array)));
        EXPECT_EQ(indicesOf(copy), c.triangles);
        EXPECT_NE(copy->indices, array->indices);
    }
}

TEST(TriangleStripArray, RefusesWhatIsNoStrip) {
    struct Case {
        const char* what;
        std::vector<int32_t> lengths, indices;
        int32_t stripCount, indexCount;
        Result result;
    };
    constexpr Result kArgument = QEL_STATUS_ILLEGAL_ARGUMENT, kIndex = QEL_STATUS_INDEX_OUT_OF_RANGE;
    for (Case& c : std::vector<Case>{
             {"no strips", {3}, {0, 1, 2}, 0, 3, kArgument},
             {"negative strip count", {3}, {0, 1, 2}, -1, 3, kArgument},
             {"no indices", {3}, {0, 1, 2}, 1, 0, kArgument},
             {"strip of two", {3, 2}, {0, 1, 2, 3, 4}, 2, 5, kArgument},
             {"more strips than indices", {3, 3}, {0, 1, 2, 3, 4}, 2, 5, kArgument},
             {"lengths whose sum wraps", {INT32_MAX, INT32_MAX, 5}, {0, 1, 2}, 3, 3, kArgument},
             {"index too large", {3}, {0, 1, 65536}, 1, 3, kIndex},
             {"negative index, not in a strip", {3}, {0, 1, 2, -1}, 1, 4, kIndex},
         }) {
        SCOPED_TRACE(c.what);
        Result result = QEL_STATUS_OK;
        EXPECT_EQ(qelTriangleStripArray_createExplicit(c.lengths.data(), c.stripCount, c.indices.data(), c.indexCount,
                                                       true, &result),
                  nullptr);
        EXPECT_EQ(result, c.result);
    }
}

TEST(TriangleStripArray, ImplicitStripsStayWithin65535Vertices) {
    const auto limitOf = [](int32_t first, std::vector<int32_t> lengths) {
        Result result = QEL_STATUS_OK;
        lengths.reserve(1);
        const Held array(
            qelTriangleStripArray_createImplicit(first, lengths.data(), int32_t(lengths.size()), true, &result));
        return array.get() ? array->indexLimit : -result;
    };
    EXPECT_EQ(limitOf(10, {3, 5}), 18);
    EXPECT_EQ(limitOf(0, {65535}), 65535);
    EXPECT_EQ(limitOf(65532, {3}), 65535);
    EXPECT_EQ(limitOf(65533, {3}), -QEL_STATUS_INDEX_OUT_OF_RANGE);
    EXPECT_EQ(limitOf(-1, {3}), -QEL_STATUS_INDEX_OUT_OF_RANGE);
    EXPECT_EQ(limitOf(INT32_MAX, {INT32_MAX, INT32_MAX}), -QEL_STATUS_INDEX_OUT_OF_RANGE);
    EXPECT_EQ(limitOf(0, {4, 2}), -QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(limitOf(0, {}), -QEL_STATUS_ILLEGAL_ARGUMENT);
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
