#include "scene/vertex_array.h"

#include <algorithm>

#include "scene/contents.h"

static void destroyVertexArray(Object3D* object) {
    qelVertexArray_finalize(static_cast<VertexArray*>(object));
    qelFree(object);
}

static void initVertexArray(VertexArray* array) {
    qelObject3D_init(array);
    array->classId = ClassId::VertexArray;
    array->find = qelObject3D_findCommon;
    array->getReferences = qelObject3D_getReferencesCommon;
    array->destroy = destroyVertexArray;
    array->vertexCount = 0;
    array->componentCount = 0;
    array->componentSize = 0;
    array->data = nullptr;
    array->modified = 0;
    array->contents = qelContents_next();
    array->cache = nullptr;
    array->pickTree = nullptr;
}

void qelVertexArray_finalize(VertexArray* array) {
    qelFree(array->data);
    qelFree(array->cache);
    qelFree(array->pickTree);
    qelObject3D_finalise(array);
    initVertexArray(array);
}

static bool isValidShape(int32_t vertexCount, int32_t componentCount, int32_t componentSize) {
    return vertexCount >= 1 && vertexCount <= 65535 && componentCount >= 2 && componentCount <= 4 &&
           (componentSize == 1 || componentSize == 2);
}

static VertexArray* createArray(int32_t vertexCount, int32_t componentCount, int32_t componentSize, void* data) {
    auto* array = qelObject3D_alloc<VertexArray>(ClassId::VertexArray);
    if (!array) return nullptr;
    initVertexArray(array);
    array->vertexCount = vertexCount;
    array->componentCount = componentCount;
    array->componentSize = componentSize;
    array->data = data;
    return array;
}

VertexArray* qelVertexArray_create(int32_t vertexCount, int32_t componentCount, int32_t componentSize, Result* result) {
    *result = QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!isValidShape(vertexCount, componentCount, componentSize)) return nullptr;
    *result = QEL_STATUS_OUT_OF_MEMORY;
    Scratch<uint8_t> data(uint32_t(vertexCount * componentCount * componentSize));
    if (!data.data) return nullptr;
    VertexArray* array = createArray(vertexCount, componentCount, componentSize, data.data);
    if (!array) return nullptr;
    data.release();
    *result = QEL_STATUS_OK;
    return array;
}

VertexArray* qelVertexArray_createAdopting(int32_t vertexCount, int32_t componentCount, int32_t componentSize,
                                           void* data, Result* result) {
    *result = data ? QEL_STATUS_ILLEGAL_ARGUMENT : QEL_STATUS_NULL_POINTER;
    if (!data || !isValidShape(vertexCount, componentCount, componentSize)) return nullptr;
    VertexArray* array = createArray(vertexCount, componentCount, componentSize, data);
    *result = array ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY;
    return array;
}

static Result checkRange(const VertexArray* array, int32_t first, int32_t count, size_t componentSize,
                         const void* values) {
    if (!values) return QEL_STATUS_NULL_POINTER;
    if (first < 0 || first >= array->vertexCount || count > array->vertexCount - first)
        return QEL_STATUS_INDEX_OUT_OF_RANGE;
    if (count < 0) return QEL_STATUS_ILLEGAL_ARGUMENT;
    return size_t(array->componentSize) == componentSize ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_STATE;
}

template <typename T>
static Result setValues(VertexArray* array, int32_t first, int32_t count, const T* values) {
    const Result result = checkRange(array, first, count, sizeof(T), values);
    if (result != QEL_STATUS_OK) return result;
    std::copy_n(values, count * array->componentCount, static_cast<T*>(array->data) + first * array->componentCount);
    qelVertexArray_touch(array);
    return QEL_STATUS_OK;
}

template <typename T>
static Result getValues(const VertexArray* array, int32_t first, int32_t count, T* values) {
    const Result result = checkRange(array, first, count, sizeof(T), values);
    if (result != QEL_STATUS_OK) return result;
    std::copy_n(static_cast<const T*>(array->data) + first * array->componentCount, count * array->componentCount,
                values);
    return QEL_STATUS_OK;
}

Result qelVertexArray_set8(VertexArray* array, int32_t first, int32_t count, const int8_t* values) {
    return setValues(array, first, count, values);
}

Result qelVertexArray_set16(VertexArray* array, int32_t first, int32_t count, const int16_t* values) {
    return setValues(array, first, count, values);
}

Result qelVertexArray_get8(const VertexArray* array, int32_t first, int32_t count, int8_t* values) {
    return getValues(array, first, count, values);
}

Result qelVertexArray_get16(const VertexArray* array, int32_t first, int32_t count, int16_t* values) {
    return getValues(array, first, count, values);
}

bool qelVertexArray_sameShape(const VertexArray* a, const VertexArray* b) {
    if (!a || !b) return a == b;
    return a->vertexCount == b->vertexCount && a->componentCount == b->componentCount &&
           a->componentSize == b->componentSize;
}

void qelVertexArray_touch(VertexArray* array) {
    array->modified = 1;
    array->contents = qelContents_next();
    qelFree(array->pickTree);
    array->pickTree = nullptr;
}

uint32_t qelVertexArray_byteCount(const VertexArray* array) {
    return uint32_t(array->vertexCount * array->componentCount * array->componentSize);
}

Object3D* qelVertexArray_duplicate(const VertexArray* array) {
    VertexArray* copy = qelObject3D_copy(array);
    if (!copy) return nullptr;
    copy->cache = nullptr;
    copy->pickTree = nullptr;
    copy->data = qelAllocArrayOf<uint8_t>(qelVertexArray_byteCount(array));
    if (!copy->data) {
        qelObject3D_unref(copy);
        return nullptr;
    }
    if (array->data) std::memcpy(copy->data, array->data, qelVertexArray_byteCount(array));
    return copy;
}
