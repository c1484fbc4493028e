#include "scene/mesh.h"

#include <span>

#include "animation/animate.h"
#include "scene/animate_parts.h"
#include "scene/appearance.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_buffer.h"

static std::span<TriangleStripArray*> indexBuffersOf(const Mesh* mesh) {
    return {mesh->indexBuffers, size_t(mesh->submeshCount)};
}

static std::span<Appearance*> appearancesOf(const Mesh* mesh) {
    return {mesh->appearances, size_t(mesh->submeshCount)};
}

// --- Operation slots ---

Object3D* qelMesh_find(Object3D* object, int32_t userId) {
    const auto* mesh = static_cast<Mesh*>(object);
    if (Object3D* found = qelObject3D_findCommon(object, userId)) return found;
    if (Object3D* found = qelObject3D_findIn(mesh->vertexBuffer, userId)) return found;
    for (int32_t i = 0; i < mesh->submeshCount; ++i) {
        if (Object3D* found = qelObject3D_findIn(mesh->indexBuffers[i], userId)) return found;
        if (Object3D* found = qelObject3D_findIn(mesh->appearances[i], userId)) return found;
    }
    return nullptr;
}

int32_t qelMesh_getReferences(const Object3D* object, Object3D** out) {
    const auto* mesh = static_cast<const Mesh*>(object);
    int32_t count = qelObject3D_getReferencesCommon(object, out);
    count = qelObject3D_appendReference(mesh->vertexBuffer, out, count);
    for (TriangleStripArray* indices : indexBuffersOf(mesh)) count = qelObject3D_appendReference(indices, out, count);
    for (Appearance* appearance : appearancesOf(mesh)) count = qelObject3D_appendReference(appearance, out, count);
    return count;
}

int32_t qelMesh_animate(Object3D* object, int32_t worldTime, Result* result) {
    const auto* mesh = static_cast<Mesh*>(object);
    *result = QEL_STATUS_OK;
    int32_t validity = qelObject3D_animateCommon(object, worldTime, result);
    if (*result != QEL_STATUS_OK) return validity;
    for (Appearance* appearance : appearancesOf(mesh))
        if (!animatePart(appearance, worldTime, &validity, result)) return validity;
    animatePart(mesh->vertexBuffer, worldTime, &validity, result);
    return validity;
}

static void destroyMesh(Object3D* object) {
    qelMesh_finalise(static_cast<Mesh*>(object));
    qelFree(object);
}

// --- Life ---

void qelMesh_initEmpty(Mesh* mesh) {
    qelNode_init(mesh);
    mesh->classId = ClassId::Mesh;
    mesh->find = qelMesh_find;
    mesh->getReferences = qelMesh_getReferences;
    mesh->animate = qelMesh_animate;
    mesh->destroy = destroyMesh;
    qelMesh_detachCopy(mesh);
}

// The next `count` elements of a block; `next` moves behind them.
template <typename T>
static T* carve(uint8_t*& next, uint32_t count) {
    T* part = reinterpret_cast<T*>(next);
    next += size_t(count) * sizeof(T);
    return part;
}

bool qelMesh_allocSubmeshes(Mesh* mesh, int32_t submeshCount) {
    constexpr uint32_t kBytesPerSubmesh = sizeof(Appearance*) + sizeof(TriangleStripArray*) + 2 * sizeof(uint32_t) +
                                          sizeof(SubmeshBounds) + sizeof(uint8_t);
    const auto count = uint32_t(submeshCount);
    auto* next = static_cast<uint8_t*>(qelAllocArray(count, kBytesPerSubmesh));
    if (!next) return false;
    // Strictest alignment first.
    mesh->appearances = carve<Appearance*>(next, count);
    mesh->indexBuffers = carve<TriangleStripArray*>(next, count);
    for (uint32_t*& words : mesh->rendererWords) words = carve<uint32_t>(next, count);
    mesh->bounds = carve<SubmeshBounds>(next, count);
    mesh->appearanceChanged = carve<uint8_t>(next, count);
    mesh->submeshCount = submeshCount;
    std::memset(mesh->appearanceChanged, 1, count);
    return true;
}

static bool hasNull(std::span<TriangleStripArray* const> indexBuffers) {
    for (const TriangleStripArray* indices : indexBuffers)
        if (!indices) return true;
    return false;
}

Result qelMesh_init(Mesh* mesh, VertexBuffer* vertexBuffer, TriangleStripArray* const* indexBuffers,
                    Appearance* const* appearances, int32_t submeshCount) {
    if (!vertexBuffer || !indexBuffers) return QEL_STATUS_NULL_POINTER;
    if (submeshCount <= 0) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (hasNull({indexBuffers, size_t(submeshCount)})) return QEL_STATUS_NULL_POINTER;
    if (!qelMesh_allocSubmeshes(mesh, submeshCount)) return QEL_STATUS_OUT_OF_MEMORY;
    qelObject3D_exchange(mesh->vertexBuffer, vertexBuffer);
    for (int32_t i = 0; i < submeshCount; ++i) {
        qelObject3D_exchange(mesh->indexBuffers[i], indexBuffers[i]);
        if (appearances) qelObject3D_exchange(mesh->appearances[i], appearances[i]);
    }
    return QEL_STATUS_OK;
}

Mesh* qelMesh_create(VertexBuffer* vertexBuffer, TriangleStripArray* const* indexBuffers,
                     Appearance* const* appearances, int32_t submeshCount, Result* result) {
    *result = QEL_STATUS_OUT_OF_MEMORY;
    auto* mesh = qelObject3D_alloc<Mesh>(ClassId::Mesh);
    if (!mesh) return nullptr;
    qelMesh_initEmpty(mesh);
    *result = qelMesh_init(mesh, vertexBuffer, indexBuffers, appearances, submeshCount);
    if (*result == QEL_STATUS_OK) return mesh;
    qelObject3D_unref(mesh);
    return nullptr;
}

void qelMesh_finalise(Mesh* mesh) {
    qelObject3D_unref(mesh->vertexBuffer);
    for (TriangleStripArray* indices : indexBuffersOf(mesh)) qelObject3D_unref(indices);
    for (Appearance* appearance : appearancesOf(mesh)) qelObject3D_unref(appearance);
    qelFree(mesh->appearances);  // with all other per-submesh arrays
    qelNode_finalise(mesh);
    qelMesh_initEmpty(mesh);
}

// --- Parts ---

VertexBuffer* qelMesh_getVertexBuffer(const Mesh* mesh) { return mesh->vertexBuffer; }

static bool exists(const Mesh* mesh, int32_t index) { return index >= 0 && index < mesh->submeshCount; }

Appearance* qelMesh_getAppearance(const Mesh* mesh, int32_t index, Result* result) {
    *result = exists(mesh, index) ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
    return exists(mesh, index) ? mesh->appearances[index] : nullptr;
}

Result qelMesh_setAppearance(Mesh* mesh, int32_t index, Appearance* appearance) {
    if (!exists(mesh, index)) return QEL_STATUS_INDEX_OUT_OF_RANGE;
    qelObject3D_exchange(mesh->appearances[index], appearance);
    mesh->appearanceChanged[index] = 1;
    return QEL_STATUS_OK;
}

TriangleStripArray* qelMesh_getIndexBuffer(const Mesh* mesh, int32_t index, Result* result) {
    *result = exists(mesh, index) ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
    return exists(mesh, index) ? mesh->indexBuffers[index] : nullptr;
}

int32_t qelMesh_getSubmeshCount(const Mesh* mesh) { return mesh->submeshCount; }

// --- Duplicate ---

void qelMesh_detachCopy(Mesh* copy) {
    copy->vertexBuffer = nullptr;
    copy->appearances = nullptr;
    copy->indexBuffers = nullptr;
    copy->rendererWords[0] = copy->rendererWords[1] = nullptr;
    copy->bounds = nullptr;
    copy->submeshCount = 0;
    copy->appearanceChanged = nullptr;
}

bool qelMesh_shareParts(Mesh* copy, const Mesh* source) {
    return qelMesh_init(copy, source->vertexBuffer, source->indexBuffers, source->appearances, source->submeshCount) ==
           QEL_STATUS_OK;
}

Object3D* qelMesh_duplicate(const Mesh* mesh) {
    Mesh* copy = qelNode_copy(mesh);
    if (!copy) return nullptr;
    qelMesh_detachCopy(copy);
    if (qelMesh_shareParts(copy, mesh)) return copy;
    qelObject3D_unref(copy);
    return nullptr;
}
