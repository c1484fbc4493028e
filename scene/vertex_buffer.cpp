#include "scene/vertex_buffer.h"

#include <algorithm>
#include <limits>
#include <span>

#include "animation/animate.h"
#include "frame/fixed_point.h"
#include "scene/vertex_array.h"

// The arrays in the order in which find and getReferences visit them.
static std::array<VertexArray*, 3 + kMaxTextureUnits> arraysOf(const VertexBuffer* buffer) {
    return {buffer->colors, buffer->normals, buffer->positions, buffer->texCoords[0], buffer->texCoords[1]};
}

static Object3D* findInVertexBuffer(Object3D* object, int32_t userId) {
    if (Object3D* found = qelObject3D_findCommon(object, userId)) return found;
    for (VertexArray* array : arraysOf(static_cast<VertexBuffer*>(object)))
        if (Object3D* found = qelObject3D_findIn(array, userId)) return found;
    return nullptr;
}

static int32_t getVertexBufferReferences(const Object3D* object, Object3D** out) {
    int32_t count = qelObject3D_getReferencesCommon(object, out);
    for (VertexArray* array : arraysOf(static_cast<const VertexBuffer*>(object)))
        count = qelObject3D_appendReference(array, out, count);
    return count;
}

static void destroyVertexBuffer(Object3D* object) {
    for (VertexArray* array : arraysOf(static_cast<VertexBuffer*>(object))) qelObject3D_unref(array);
    qelObject3D_finalise(object);
    qelFree(object);
}

VertexBuffer* qelVertexBuffer_create() {
    auto* buffer = qelObject3D_alloc<VertexBuffer>(ClassId::VertexBuffer);
    if (!buffer) return nullptr;
    qelObject3D_init(buffer);
    buffer->classId = ClassId::VertexBuffer;
    buffer->find = findInVertexBuffer;
    buffer->getReferences = getVertexBufferReferences;
    buffer->animate = qelObject3D_animateCommon;
    buffer->destroy = destroyVertexBuffer;
    buffer->positionScale = 1;
    std::ranges::fill(buffer->texCoordScale, 1.0f);
    buffer->defaultColor = 0xFFFFFFFF;
    buffer->defaultColorChanged = 1;
    buffer->positionsChanged = 1;
    qelTransform_setIdentity(&buffer->scaleBiasMatrix);
    return buffer;
}

Result qelVertexBuffer_setPositions(VertexBuffer* buffer, VertexArray* array, float scale, const float* bias) {
    if (array && array->componentCount != 3) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (array != buffer->positions || scale != buffer->positionScale) buffer->positionsChanged = 1;
    qelObject3D_exchange(buffer->positions, array);
    buffer->positionScale = scale;
    for (int32_t i = 0; i < 3; ++i) buffer->positionBias[i] = bias ? bias[i] : 0;
    buffer->stateChanged = 1;
    return QEL_STATUS_OK;
}

template <typename T>
static void normaliseAll(VertexArray* array) {
    constexpr int32_t kUnit = std::numeric_limits<T>::max();
    const std::span values(static_cast<T*>(array->data), size_t(array->vertexCount) * 3);
    for (size_t i = 0; i < values.size(); i += 3) {
        const int32_t x = values[i], y = values[i + 1], z = values[i + 2];
        // Three squares of -32768 leave the signed range, but not the unsigned one.
        const uint32_t square = uint32_t(x * x) + uint32_t(y * y) + uint32_t(z * z);
        const int32_t length = std::max(int32_t(integerSqrt(square)), 1);
        values[i] = T(x * kUnit / length);
        values[i + 1] = T(y * kUnit / length);
        values[i + 2] = T(z * kUnit / length);
    }
    qelVertexArray_touch(array);
}

Result qelVertexBuffer_setNormals(VertexBuffer* buffer, VertexArray* array) {
    const Result result = qelVertexBuffer_setNormalsAsIs(buffer, array);
    if (result != QEL_STATUS_OK || !array) return result;
    if (array->componentSize == 1)
        normaliseAll<int8_t>(array);
    else
        normaliseAll<int16_t>(array);
    return QEL_STATUS_OK;
}

Result qelVertexBuffer_setNormalsAsIs(VertexBuffer* buffer, VertexArray* array) {
    if (array && array->componentCount != 3) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (array != buffer->normals) buffer->normalsChanged = 1;
    qelObject3D_exchange(buffer->normals, array);
    buffer->stateChanged = 1;
    return QEL_STATUS_OK;
}

Result qelVertexBuffer_setColors(VertexBuffer* buffer, VertexArray* array) {
    if (array && (array->componentCount < 3 || array->componentSize != 1)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    qelObject3D_exchange(buffer->colors, array);
    buffer->stateChanged = 1;
    return QEL_STATUS_OK;
}

Result qelVertexBuffer_setTexCoords(VertexBuffer* buffer, int32_t unit, VertexArray* array, float scale,
                                    const float* bias) {
    if (unit < 0 || unit >= kMaxTextureUnits) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (array && array->componentCount > 3) return QEL_STATUS_ILLEGAL_ARGUMENT;
    qelObject3D_exchange(buffer->texCoords[unit], array);
    if (unit == 1) buffer->isLaidOver = 0;
    buffer->texCoordScale[unit] = scale;
    const int32_t biasCount = bias && array ? array->componentCount : 0;
    for (int32_t i = 0; i < 3; ++i) buffer->texCoordBias[unit][i] = i < biasCount ? bias[i] : 0;
    buffer->stateChanged = 1;
    return QEL_STATUS_OK;
}

void qelVertexBuffer_setDefaultColor(VertexBuffer* buffer, uint32_t argb) {
    buffer->defaultColor = argb;
    buffer->defaultColorChanged = 1;
    buffer->stateChanged = 1;
}

VertexArray* qelVertexBuffer_getPositions(const VertexBuffer* buffer, float* scaleBias) {
    if (scaleBias) {
        scaleBias[0] = buffer->positionScale;
        std::ranges::copy(buffer->positionBias, scaleBias + 1);
    }
    return buffer->positions;
}

VertexArray* qelVertexBuffer_getTexCoords(const VertexBuffer* buffer, int32_t unit, float* scaleBias, Result* result) {
    *result = QEL_STATUS_INDEX_OUT_OF_RANGE;
    if (unit < 0 || unit >= kMaxTextureUnits) return nullptr;
    *result = QEL_STATUS_OK;
    VertexArray* array = buffer->texCoords[unit];
    if (scaleBias) {
        scaleBias[0] = buffer->texCoordScale[unit];
        std::copy_n(buffer->texCoordBias[unit], array ? array->componentCount : 0, scaleBias + 1);
    }
    return array;
}

int32_t qelVertexBuffer_getVertexCount(const VertexBuffer* buffer) {
    for (const VertexArray* array :
         {buffer->positions, buffer->texCoords[0], buffer->texCoords[1], buffer->colors, buffer->normals})
        if (array) return array->vertexCount;
    return 0;
}

Object3D* qelVertexBuffer_duplicate(const VertexBuffer* buffer) {
    VertexBuffer* copy = qelObject3D_copy(buffer);
    if (!copy) return nullptr;
    for (VertexArray* array : arraysOf(copy)) qelObject3D_ref(array);
    return copy;
}
