#include "scene/triangle_strip_array.h"

#include <algorithm>
#include <span>

#include "scene/contents.h"

constexpr int64_t kMaxIndex = 65535;

static void destroyTriangleStripArray(Object3D* object) {
    auto* array = static_cast<TriangleStripArray*>(object);
    qelFree(array->stripLengths);
    qelFree(array->indices);
    qelObject3D_finalise(array);
    qelFree(array);
}

static TriangleStripArray* createEmpty() {
    auto* array = qelObject3D_alloc<TriangleStripArray>(ClassId::TriangleStripArray);
    if (!array) return nullptr;
    qelObject3D_init(array);
    array->classId = ClassId::TriangleStripArray;
    array->contents = qelContents_next();
    array->find = qelObject3D_findCommon;
    array->getReferences = qelObject3D_getReferencesCommon;
    array->destroy = destroyTriangleStripArray;
    return array;
}

static bool hasShortStrip(std::span<const int32_t> lengths) {
    return std::ranges::any_of(lengths, [](int32_t length) { return length < 3; });
}

static int64_t sumOf(std::span<const int32_t> lengths) {
    int64_t sum = 0;
    for (const int32_t length : lengths) sum += length;
    return sum;
}

static int32_t* copyLengths(std::span<const int32_t> lengths) {
    auto* copy = qelAllocArrayOf<int32_t>(uint32_t(lengths.size()));
    if (copy) std::ranges::copy(lengths, copy);
    return copy;
}

// --- Implicit: consecutive vertices ---

TriangleStripArray* qelTriangleStripArray_createImplicit(int32_t firstIndex, int32_t* stripLengths, int32_t stripCount,
                                                         bool copy, Result* result) {
    *result = QEL_STATUS_NULL_POINTER;
    if (!stripLengths) return nullptr;
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (stripCount < 1) return nullptr;
    const std::span<const int32_t> lengths(stripLengths, size_t(stripCount));
    if (hasShortStrip(lengths)) return nullptr;
    *result = QEL_STATUS_INDEX_OUT_OF_RANGE;
    const int64_t limit = firstIndex + sumOf(lengths);
    if (firstIndex < 0 || limit > kMaxIndex) return nullptr;

    *result = QEL_STATUS_OUT_OF_MEMORY;
    TriangleStripArray* array = createEmpty();
    if (!array) return nullptr;
    array->stripLengths = copy ? copyLengths(lengths) : stripLengths;
    if (!array->stripLengths) {
        qelObject3D_unref(array);
        return nullptr;
    }
    array->firstIndex = firstIndex;
    array->stripCount = stripCount;
    array->indexLimit = int32_t(limit);
    *result = QEL_STATUS_OK;
    return array;
}

// --- Explicit: a triangle list ---

// Every other triangle of a strip swaps its first two corners, so that all keep the strip's winding.
static void writeTriangles(std::span<const int32_t> lengths, const int32_t* indices, uint16_t* out) {
    for (const int32_t length : lengths) {
        for (int32_t k = 0; k < length - 2; ++k) {
            const int32_t swap = k & 1;
            *out++ = uint16_t(indices[k + swap]);
            *out++ = uint16_t(indices[k + 1 - swap]);
            *out++ = uint16_t(indices[k + 2]);
        }
        indices += length;
    }
}

static Result checkStrips(std::span<const int32_t> lengths, std::span<const int32_t> indices) {
    if (hasShortStrip(lengths) || sumOf(lengths) > int64_t(indices.size())) return QEL_STATUS_ILLEGAL_ARGUMENT;
    const bool allFit = std::ranges::all_of(indices, [](int32_t index) { return index >= 0 && index <= kMaxIndex; });
    return allFit ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
}

TriangleStripArray* qelTriangleStripArray_createExplicit(int32_t* stripLengths, int32_t stripCount, int32_t* indices,
                                                         int32_t indexCount, bool copy, Result* result) {
    *result = QEL_STATUS_NULL_POINTER;
    if (!stripLengths || !indices) return nullptr;
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (stripCount < 1 || indexCount < 1) return nullptr;
    const std::span<const int32_t> lengths(stripLengths, size_t(stripCount));
    const std::span<const int32_t> sources(indices, size_t(indexCount));
    *result = checkStrips(lengths, sources);
    if (*result != QEL_STATUS_OK) return nullptr;

    *result = QEL_STATUS_OUT_OF_MEMORY;
    const auto triangleCount = uint32_t(sumOf(lengths) - 2 * int64_t(stripCount));
    TriangleStripArray* array = createEmpty();
    if (!array) return nullptr;
    array->indices = static_cast<uint16_t*>(qelAllocArray(triangleCount, 3 * sizeof(uint16_t)));
    auto* listLength = array->indices && copy ? qelAllocArrayOf<int32_t>(1) : stripLengths;
    if (!array->indices || !listLength) {
        qelObject3D_unref(array);
        return nullptr;
    }
    writeTriangles(lengths, indices, array->indices);
    array->indexLimit = *std::ranges::max_element(sources);
    array->indexCount = int32_t(3 * triangleCount);
    array->stripCount = 1;
    array->stripLengths = listLength;
    array->stripLengths[0] = array->indexCount;
    if (!copy) qelFree(indices);  // adopted, and no longer needed
    *result = QEL_STATUS_OK;
    return array;
}

int32_t qelTriangleStripArray_getTriangleCount(const TriangleStripArray* array) {
    if (array->indices) return array->stripLengths[0] / 3;
    const std::span<const int32_t> lengths(array->stripLengths, size_t(array->stripCount));
    return int32_t(sumOf(lengths)) - 2 * array->stripCount;
}

Object3D* qelTriangleStripArray_duplicate(const TriangleStripArray* array) {
    TriangleStripArray* copy = qelObject3D_copy(array);
    if (!copy) return nullptr;
    copy->stripLengths = nullptr;
    copy->indices = nullptr;
    copy->stripLengths = copyLengths({array->stripLengths, size_t(array->stripCount)});
    if (copy->stripLengths && array->indices) copy->indices = qelAllocArrayOf<uint16_t>(uint32_t(array->indexCount));
    if (!copy->stripLengths || (array->indices && !copy->indices)) {
        qelObject3D_unref(copy);
        return nullptr;
    }
    if (array->indices) std::copy_n(array->indices, array->indexCount, copy->indices);
    return copy;
}
