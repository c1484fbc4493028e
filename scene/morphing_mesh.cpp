#include "scene/morphing_mesh.h"

#include <algorithm>
#include <array>
#include <span>

#include "frame/fixed_point.h"
#include "scene/appearance.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

static std::span<VertexBuffer*> targetsOf(const MorphingMesh* mesh) {
    return {mesh->morphTargets, size_t(mesh->targetCount)};
}

// --- Operation slots ---

static Object3D* findInMorphingMesh(Object3D* object, int32_t userId) {
    if (Object3D* found = qelMesh_find(object, userId)) return found;
    for (VertexBuffer* target : targetsOf(static_cast<MorphingMesh*>(object)))
        if (Object3D* found = qelObject3D_findIn(target, userId)) return found;
    return nullptr;
}

static int32_t getMorphingMeshReferences(const Object3D* object, Object3D** out) {
    int32_t count = qelMesh_getReferences(object, out);
    for (VertexBuffer* target : targetsOf(static_cast<const MorphingMesh*>(object)))
        count = qelObject3D_appendReference(target, out, count);
    return count;
}

static void destroyMorphingMesh(Object3D* object) {
    qelMorphingMesh_finalise(static_cast<MorphingMesh*>(object));
    qelFree(object);
}

// --- The attributes of a vertex buffer ---

enum class Attribute { Positions, Normals, Colors, TexCoords0, TexCoords1 };
constexpr Attribute kAttributes[] = {Attribute::Positions, Attribute::Normals, Attribute::Colors, Attribute::TexCoords0,
                                     Attribute::TexCoords1};
static_assert(kMaxTextureUnits == 2);

static VertexArray*& arrayOf(VertexBuffer* buffer, Attribute attribute) {
    switch (attribute) {
        case Attribute::Positions: return buffer->positions;
        case Attribute::Normals: return buffer->normals;
        case Attribute::Colors: return buffer->colors;
        case Attribute::TexCoords0: return buffer->texCoords[0];
        case Attribute::TexCoords1: break;
    }
    return buffer->texCoords[1];
}

static VertexArray* carriedBy(VertexBuffer* buffer, Attribute attribute) {
    return attribute == Attribute::TexCoords1 && buffer->isLaidOver ? nullptr : arrayOf(buffer, attribute);
}

static bool sameShapes(VertexBuffer* a, VertexBuffer* b) {
    return std::ranges::all_of(kAttributes, [&](Attribute attribute) {
        return qelVertexArray_sameShape(arrayOf(a, attribute), arrayOf(b, attribute));
    });
}

static void copyScalesAndBiases(const VertexBuffer* base, VertexBuffer* out) {
    out->positionScale = base->positionScale;
    std::ranges::copy(base->positionBias, out->positionBias);
    std::ranges::copy(base->texCoordScale, out->texCoordScale);
    std::memcpy(out->texCoordBias, base->texCoordBias, sizeof base->texCoordBias);
}

// A buffer with zeroed arrays in the shapes of the base's, and its scales and biases. Null when memory runs out.
static VertexBuffer* createLike(VertexBuffer* base) {
    VertexBuffer* buffer = qelVertexBuffer_create();
    if (!buffer) return nullptr;
    copyScalesAndBiases(base, buffer);
    for (const Attribute attribute : kAttributes) {
        const VertexArray* array = arrayOf(base, attribute);
        if (!array) continue;
        Result result;
        arrayOf(buffer, attribute) =
            qelVertexArray_create(array->vertexCount, array->componentCount, array->componentSize, &result);
        if (result == QEL_STATUS_OK) continue;
        qelObject3D_unref(buffer);
        return nullptr;
    }
    return buffer;
}

// --- Life ---

static void detachTargets(MorphingMesh* mesh) {
    mesh->morphTargets = nullptr;
    mesh->weights = nullptr;
    mesh->targetCount = 0;
    mesh->weightsChanged = 1;
    mesh->morphedBuffer = nullptr;
}

static void initEmpty(MorphingMesh* mesh) {
    qelMesh_initEmpty(mesh);
    mesh->classId = ClassId::MorphingMesh;
    mesh->find = findInMorphingMesh;
    mesh->getReferences = getMorphingMeshReferences;
    mesh->destroy = destroyMorphingMesh;
    detachTargets(mesh);
}

// Into a mesh that has its base buffer. False when memory runs out.
static bool initTargets(MorphingMesh* mesh, VertexBuffer* const* targets, int32_t targetCount) {
    mesh->morphTargets = qelAllocArrayOf<VertexBuffer*>(uint32_t(targetCount));
    if (!mesh->morphTargets) return false;
    mesh->targetCount = targetCount;
    for (int32_t i = 0; i < targetCount; ++i) qelObject3D_exchange(mesh->morphTargets[i], targets[i]);
    mesh->weights = qelAllocArrayOf<float>(uint32_t(targetCount));
    if (!mesh->weights) return false;
    mesh->morphedBuffer = createLike(mesh->vertexBuffer);
    return mesh->morphedBuffer != nullptr;
}

static Result checkTargets(VertexBuffer* vertexBuffer, VertexBuffer* const* targets, int32_t targetCount) {
    if (!vertexBuffer || !targets) return QEL_STATUS_NULL_POINTER;
    if (targetCount < 1) return QEL_STATUS_ILLEGAL_ARGUMENT;
    const bool hasNull =
        std::any_of(targets, targets + targetCount, [](const VertexBuffer* target) { return !target; });
    return hasNull ? QEL_STATUS_NULL_POINTER : QEL_STATUS_OK;
}

MorphingMesh* qelMorphingMesh_create(VertexBuffer* vertexBuffer, VertexBuffer* const* targets,
                                     TriangleStripArray* const* indexBuffers, Appearance* const* appearances,
                                     int32_t submeshCount, int32_t targetCount, Result* result) {
    *result = checkTargets(vertexBuffer, targets, targetCount);
    if (*result != QEL_STATUS_OK) return nullptr;
    *result = QEL_STATUS_OUT_OF_MEMORY;
    auto* mesh = qelObject3D_alloc<MorphingMesh>(ClassId::MorphingMesh);
    if (!mesh) return nullptr;
    initEmpty(mesh);
    *result = qelMesh_init(mesh, vertexBuffer, indexBuffers, appearances, submeshCount);
    if (*result == QEL_STATUS_OK && !initTargets(mesh, targets, targetCount)) *result = QEL_STATUS_OUT_OF_MEMORY;
    if (*result == QEL_STATUS_OK) return mesh;
    qelObject3D_unref(mesh);
    return nullptr;
}

void qelMorphingMesh_finalise(MorphingMesh* mesh) {
    for (VertexBuffer* target : targetsOf(mesh)) qelObject3D_unref(target);
    qelFree(mesh->morphTargets);
    qelFree(mesh->weights);
    qelObject3D_unref(mesh->morphedBuffer);
    qelMesh_finalise(mesh);
    initEmpty(mesh);
}

Object3D* qelMorphingMesh_duplicate(const MorphingMesh* mesh) {
    MorphingMesh* copy = qelNode_copy(mesh);
    if (!copy) return nullptr;
    qelMesh_detachCopy(copy);
    detachTargets(copy);
    if (!qelMesh_shareParts(copy, mesh) || !initTargets(copy, mesh->morphTargets, mesh->targetCount)) {
        qelObject3D_unref(copy);
        return nullptr;
    }
    std::copy_n(mesh->weights, mesh->targetCount, copy->weights);
    return copy;
}

// --- Weights and targets ---

Result qelMorphingMesh_setWeights(MorphingMesh* mesh, const float* weights) {
    if (!weights) return QEL_STATUS_NULL_POINTER;
    std::copy_n(weights, mesh->targetCount, mesh->weights);
    mesh->weightsChanged = 1;
    return QEL_STATUS_OK;
}

void qelMorphingMesh_getWeights(const MorphingMesh* mesh, float* out) {
    std::copy_n(mesh->weights, mesh->targetCount, out);
}

VertexBuffer* qelMorphingMesh_getMorphTarget(const MorphingMesh* mesh, int32_t index, Result* result) {
    const bool exists = index >= 0 && index < mesh->targetCount;
    *result = exists ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
    return exists ? mesh->morphTargets[index] : nullptr;
}

// --- Morphing ---

// Components are morphed a block at a time: every target adds to the block's sums, which are then rounded together.
constexpr uint32_t kBlockSize = 256;
using BlockSums = std::array<float, kBlockSize>;
using BlockSteps = std::array<int32_t, kBlockSize>;

#ifdef __SSE2__

// As roundToInt rounds: halves away from zero, saturating, NaN as 0.
static __m128i roundFour(__m128 value) {
    const __m128i truncated = _mm_cvttps_epi32(value);  // -2^31 for NaN and beyond 32 bits
    const __m128 rest = _mm_sub_ps(value, _mm_cvtepi32_ps(truncated));
    const __m128 size = _mm_andnot_ps(_mm_set1_ps(-0.0f), value);
    const __m128 hasFraction = _mm_cmplt_ps(size, _mm_set1_ps(8388608.0f));
    const __m128 up = _mm_and_ps(hasFraction, _mm_cmpge_ps(rest, _mm_set1_ps(0.5f)));
    const __m128 down = _mm_and_ps(hasFraction, _mm_cmple_ps(rest, _mm_set1_ps(-0.5f)));
    const __m128i rounded = _mm_add_epi32(_mm_sub_epi32(truncated, _mm_castps_si128(up)), _mm_castps_si128(down));
    const __m128i tooLarge = _mm_castps_si128(_mm_cmpge_ps(value, _mm_set1_ps(2147483648.0f)));
    const __m128i isNumber = _mm_castps_si128(_mm_cmpord_ps(value, value));
    return _mm_and_si128(_mm_xor_si128(rounded, tooLarge), isNumber);  // flips -2^31 to 2^31 - 1
}

static void roundSums(const BlockSums& sums, BlockSteps& steps) {
    for (uint32_t i = 0; i < kBlockSize; i += 4)
        _mm_storeu_si128(reinterpret_cast<__m128i*>(&steps[i]), roundFour(_mm_loadu_ps(&sums[i])));
}

#else

static void roundSums(const BlockSums& sums, BlockSteps& steps) {
    for (uint32_t i = 0; i < kBlockSize; ++i) steps[i] = roundToInt(sums[i]);
}

#endif

template <typename T>
static void addWeighted(const T* base, const T* target, float weight, uint32_t count, BlockSums& sums) {
    for (uint32_t i = 0; i < count; ++i) sums[i] += weight * float(target[i] - base[i]);
}

template <typename T>
static void morphComponents(const MorphingMesh* mesh, Attribute attribute, VertexArray* out) {
    const auto componentCount = uint32_t(out->vertexCount * out->componentCount);
    const auto* base = static_cast<const T*>(arrayOf(mesh->vertexBuffer, attribute)->data);
    for (uint32_t first = 0; first < componentCount; first += kBlockSize) {
        const uint32_t count = std::min(componentCount - first, kBlockSize);
        BlockSums sums{};
        for (int32_t t = 0; t < mesh->targetCount; ++t) {
            if (mesh->weights[t] == 0) continue;
            const auto* target = static_cast<const T*>(carriedBy(mesh->morphTargets[t], attribute)->data);
            addWeighted(base + first, target + first, mesh->weights[t], count, sums);
        }
        BlockSteps steps;
        roundSums(sums, steps);
        T* morphed = static_cast<T*>(out->data) + first;
        for (uint32_t i = 0; i < count; ++i) morphed[i] = T(uint32_t(base[first + i]) + uint32_t(steps[i]));
    }
}

static void morphAttribute(const MorphingMesh* mesh, Attribute attribute) {
    const VertexArray* base = arrayOf(mesh->vertexBuffer, attribute);
    if (!base) return;
    VertexArray* out = arrayOf(mesh->morphedBuffer, attribute);
    qelVertexArray_touch(out);
    const bool isCarried = carriedBy(mesh->morphTargets[0], attribute) != nullptr;
    if (!isCarried)
        std::memcpy(out->data, base->data, qelVertexArray_byteCount(base));
    else if (attribute == Attribute::Colors)
        morphComponents<uint8_t>(mesh, attribute, out);
    else if (base->componentSize == 1)
        morphComponents<int8_t>(mesh, attribute, out);
    else
        morphComponents<int16_t>(mesh, attribute, out);
}

static int32_t channelOf(uint32_t color, uint32_t shift) { return int32_t(color >> shift & 0xFF); }

// Weights outside 0..1 can carry a channel out of its byte: it stops at 0 or 255.
static uint32_t morphDefaultColor(const MorphingMesh* mesh) {
    const uint32_t base = mesh->vertexBuffer->defaultColor;
    uint32_t color = 0;
    for (const uint32_t shift : {24u, 16u, 8u, 0u}) {
        float sum = 0;
        for (int32_t t = 0; t < mesh->targetCount; ++t)
            sum += mesh->weights[t] *
                   float(channelOf(mesh->morphTargets[t]->defaultColor, shift) - channelOf(base, shift));
        const int32_t channel = roundToInt(float(channelOf(base, shift)) + sum);
        color |= uint32_t(std::clamp(channel, 0, 255)) << shift;
    }
    return color;
}

// All targets carry the same attributes, each in the shape in which the base buffer carries it.
static bool targetsMatch(const MorphingMesh* mesh) {
    for (const Attribute attribute : kAttributes) {
        const VertexArray* base = carriedBy(mesh->vertexBuffer, attribute);
        const bool areCarried = carriedBy(mesh->morphTargets[0], attribute) != nullptr;
        for (VertexBuffer* target : targetsOf(mesh)) {
            const VertexArray* array = carriedBy(target, attribute);
            if (areCarried ? !array || !qelVertexArray_sameShape(array, base) : array != nullptr) return false;
        }
    }
    return true;
}

static bool ensureMorphedBuffer(MorphingMesh* mesh) {
    if (sameShapes(mesh->morphedBuffer, mesh->vertexBuffer)) return true;
    VertexBuffer* buffer = createLike(mesh->vertexBuffer);
    if (!buffer) return false;
    qelObject3D_unref(mesh->morphedBuffer);
    mesh->morphedBuffer = buffer;
    mesh->weightsChanged = 1;
    return true;
}

static void setMorphedColor(MorphingMesh* mesh) {
    const VertexBuffer* base = mesh->vertexBuffer;
    const bool colorsAreCarried = mesh->morphTargets[0]->colors != nullptr;
    qelVertexBuffer_setDefaultColor(mesh->morphedBuffer,
                                    colorsAreCarried ? base->defaultColor : morphDefaultColor(mesh));
    mesh->morphedFromColor = base->defaultColor;
}

Result qelMorphingMesh_morph(MorphingMesh* mesh) {
    if (!ensureMorphedBuffer(mesh)) return QEL_STATUS_OUT_OF_MEMORY;
    if (!targetsMatch(mesh)) return QEL_STATUS_ILLEGAL_STATE;
    for (const Attribute attribute : kAttributes) morphAttribute(mesh, attribute);
    VertexBuffer* morphed = mesh->morphedBuffer;
    copyScalesAndBiases(mesh->vertexBuffer, morphed);
    setMorphedColor(mesh);
    morphed->positionsChanged = morphed->normalsChanged = 1;
    mesh->weightsChanged = 0;
    return QEL_STATUS_OK;
}

Result qelMorphingMesh_update(MorphingMesh* mesh) {
    if (mesh->weightsChanged || !sameShapes(mesh->morphedBuffer, mesh->vertexBuffer))
        return qelMorphingMesh_morph(mesh);
    if (mesh->morphedFromColor != mesh->vertexBuffer->defaultColor) setMorphedColor(mesh);
    return QEL_STATUS_OK;
}
