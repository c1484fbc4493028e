#include "query/ray_intersection.h"

#include <algorithm>

#include "frame/allocator.h"
#include "render/capabilities.h"

constexpr int32_t kCapacityGrowth = 32;
static_assert(std::size(RayIntersection{}.textureS) == kMaxTextureUnits);

// --- One hit ---

void qelRayIntersection_initialize(RayIntersection* record) {
    *record = {};
    record->normal[2] = 1;
    record->ray[5] = 1;
}

void qelRayIntersection_finalize(RayIntersection* record) { qelRayIntersection_initialize(record); }

float qelRayIntersection_getDistance(const RayIntersection* record) { return record->distance; }

int32_t qelRayIntersection_getSubmeshIndex(const RayIntersection* record) { return record->submeshIndex; }

static float valueOfUnit(const float (&values)[kMaxTextureUnits], int32_t unit, Result* result) {
    const bool exists = unit >= 0 && unit < kMaxTextureUnits;
    *result = exists ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
    return exists ? values[unit] : 0;
}

float qelRayIntersection_getTextureS(const RayIntersection* record, int32_t unit, Result* result) {
    return valueOfUnit(record->textureS, unit, result);
}

float qelRayIntersection_getTextureT(const RayIntersection* record, int32_t unit, Result* result) {
    return valueOfUnit(record->textureT, unit, result);
}

float qelRayIntersection_getNormalX(const RayIntersection* record) { return record->normal[0]; }

float qelRayIntersection_getNormalY(const RayIntersection* record) { return record->normal[1]; }

float qelRayIntersection_getNormalZ(const RayIntersection* record) { return record->normal[2]; }

Result qelRayIntersection_getRay(const RayIntersection* record, float out[6]) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    std::ranges::copy(record->ray, out);
    return QEL_STATUS_OK;
}

// --- Any number ---

void qelRayIntersectionArray_initialize(RayIntersectionArray* array) { *array = {}; }

void qelRayIntersectionArray_finalize(RayIntersectionArray* array) {
    qelFree(array->records);
    qelRayIntersectionArray_initialize(array);
}

int32_t qelRayIntersectionArray_getRayIntersectionCount(const RayIntersectionArray* array) { return array->count; }

RayIntersection* qelRayIntersectionArray_getRayIntersection(const RayIntersectionArray* array, int32_t index,
                                                            Result* result) {
    const bool exists = index >= 0 && index < array->count;
    *result = exists ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
    return exists ? array->records + index : nullptr;
}

static bool grow(RayIntersectionArray* array) {
    const auto capacity = uint32_t(array->capacity) + kCapacityGrowth;
    void* grown = qelReallocArray(array->records, capacity, sizeof(RayIntersection));
    if (!grown) return false;
    array->records = static_cast<RayIntersection*>(grown);
    array->capacity = int32_t(capacity);
    return true;
}

Result qelRayIntersectionArray_appendIntersection(RayIntersectionArray* array, const RayIntersection* record) {
    if (!record) return QEL_STATUS_NULL_POINTER;
    if (array->count == array->capacity && !grow(array)) return QEL_STATUS_OUT_OF_MEMORY;
    array->records[array->count++] = *record;
    return QEL_STATUS_OK;
}
