#include "scene/skinned_mesh.h"

#include <algorithm>
#include <span>

#include "scene/animate_parts.h"
#include "scene/appearance.h"
#include "scene/skinning_kernel.h"
#include "scene/transform.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

constexpr int32_t kMaxVertex = 65535;
constexpr int32_t kFirstCapacity = 30, kCapacityGrowth = 20;  // of bindings and of bones

static int32_t grownCapacity(int32_t capacity) { return capacity == 0 ? kFirstCapacity : capacity + kCapacityGrowth; }

// --- Operation slots ---

static Object3D* findInSkinnedMesh(Object3D* object, int32_t userId) {
    if (Object3D* found = qelMesh_find(object, userId)) return found;
    return qelObject3D_findIn(static_cast<SkinnedMesh*>(object)->skeleton, userId);
}

static int32_t getSkinnedMeshReferences(const Object3D* object, Object3D** out) {
    const int32_t count = qelMesh_getReferences(object, out);
    return qelObject3D_appendReference(static_cast<const SkinnedMesh*>(object)->skeleton, out, count);
}

static int32_t animateSkinnedMesh(Object3D* object, int32_t worldTime, Result* result) {
    int32_t validity = qelMesh_animate(object, worldTime, result);
    if (*result == QEL_STATUS_OK)
        animatePart(static_cast<SkinnedMesh*>(object)->skeleton, worldTime, &validity, result);
    return validity;
}

static void destroySkinnedMesh(Object3D* object) {
    qelSkinnedMesh_finalise(static_cast<SkinnedMesh*>(object));
    qelFree(object);
}

// --- Life ---

// Everything that a skinned mesh has beyond a mesh, empty.
static void clearMembers(SkinnedMesh* mesh) {
    mesh->skeleton = nullptr;
    mesh->vertexInfluenceCount = nullptr;
    mesh->vertexWeights = nullptr;
    mesh->vertexBones = nullptr;
    mesh->skinnedPositions = nullptr;
    mesh->skinnedNormals = nullptr;
    mesh->maxInfluences = 0;
    mesh->bindings = nullptr;
    mesh->bindingCount = mesh->bindingCapacity = 0;
    mesh->bindingsChanged = 0;
    mesh->restTransforms = nullptr;
    mesh->boneMatrices = nullptr;
    mesh->boneMatrixDone = nullptr;
    mesh->skinnedBuffer = nullptr;
    mesh->bones = nullptr;
    mesh->boneCount = mesh->boneCapacity = 0;
    mesh->tablesValid = 1;
    mesh->rescaledPositions = nullptr;
    mesh->skinScale = 1;
    mesh->normalsSkinnedOnce = 0;
    mesh->runs = nullptr;
    mesh->runCount = 0;
}

void qelSkinnedMesh_initEmpty(SkinnedMesh* mesh) {
    qelMesh_initEmpty(mesh);
    mesh->classId = ClassId::SkinnedMesh;
    mesh->find = findInSkinnedMesh;
    mesh->getReferences = getSkinnedMeshReferences;
    mesh->animate = animateSkinnedMesh;
    mesh->destroy = destroySkinnedMesh;
    clearMembers(mesh);
}

static Result checkSkeleton(const Group* skeleton) {
    if (!skeleton) return QEL_STATUS_NULL_POINTER;
    const bool isFree = skeleton->classId != ClassId::World && !skeleton->parent;
    return isFree ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT;
}

SkinnedMesh* qelSkinnedMesh_create(VertexBuffer* vertexBuffer, TriangleStripArray* const* indexBuffers,
                                   Appearance* const* appearances, Group* skeleton, int32_t submeshCount,
                                   Result* result) {
    *result = vertexBuffer && indexBuffers ? checkSkeleton(skeleton) : QEL_STATUS_NULL_POINTER;
    if (*result != QEL_STATUS_OK) return nullptr;
    *result = QEL_STATUS_OUT_OF_MEMORY;
    auto* mesh = qelObject3D_alloc<SkinnedMesh>(ClassId::SkinnedMesh);
    if (!mesh) return nullptr;
    qelSkinnedMesh_initEmpty(mesh);
    *result = qelMesh_init(mesh, vertexBuffer, indexBuffers, appearances, submeshCount);
    if (*result == QEL_STATUS_OK) *result = qelSkinnedMesh_prepareSkinnedBuffer(mesh);
    if (*result != QEL_STATUS_OK) {
        qelObject3D_unref(mesh);
        return nullptr;
    }
    qelObject3D_exchange(mesh->skeleton, skeleton);
    skeleton->parent = mesh;
    return mesh;
}

void qelSkinnedMesh_finalise(SkinnedMesh* mesh) {
    if (mesh->skeleton) mesh->skeleton->parent = nullptr;
    qelObject3D_unref(mesh->skeleton);
    qelObject3D_unref(mesh->skinnedBuffer);
    qelObject3D_unref(mesh->skinnedPositions);
    qelObject3D_unref(mesh->skinnedNormals);
    qelObject3D_unref(mesh->rescaledPositions);
    qelFree(mesh->vertexInfluenceCount);
    qelFree(mesh->vertexWeights);
    qelFree(mesh->vertexBones);
    qelFree(mesh->runs);
    qelFree(mesh->bindings);
    if (mesh->restTransforms)  // a figure has none
        for (qelTransform* rest : std::span(mesh->restTransforms, size_t(mesh->boneCount))) qelTransform_destroy(rest);
    qelFree(mesh->restTransforms);
    qelFree(mesh->boneMatrices);
    qelFree(mesh->boneMatrixDone);
    qelFree(mesh->bones);
    qelMesh_finalise(mesh);
    qelSkinnedMesh_initEmpty(mesh);
}

// --- Bones and bindings ---

template <typename T>
static bool growArray(T*& array, int32_t capacity) {
    void* grown = qelReallocArray(array, uint32_t(capacity), sizeof(T));
    if (grown) array = static_cast<T*>(grown);
    return grown != nullptr;
}

// What grew before a failure stays larger than the capacity says, which harms nothing.
static bool reserveBones(SkinnedMesh* mesh, int32_t capacity) {
    constexpr uint32_t kBytesPerBone = 2 * kSkinMatrixWords * sizeof(int32_t);  // for positions and for normals
    if (!growArray(mesh->bones, capacity) || !growArray(mesh->restTransforms, capacity)) return false;
    auto* matrices = static_cast<int32_t*>(qelAllocArray(uint32_t(capacity), kBytesPerBone));
    auto* done = matrices ? qelAllocArrayOf<uint8_t>(uint32_t(capacity)) : nullptr;
    if (!done) {
        qelFree(matrices);
        return false;
    }
    // Both hold nothing between two passes.
    qelFree(mesh->boneMatrices);
    qelFree(mesh->boneMatrixDone);
    mesh->boneMatrices = matrices;
    mesh->boneMatrixDone = done;
    mesh->boneCapacity = capacity;
    return true;
}

static void storeBone(SkinnedMesh* mesh, Node* bone, qelTransform* rest) {
    mesh->bones[mesh->boneCount] = bone;
    mesh->restTransforms[mesh->boneCount] = rest;
    ++mesh->boneCount;
}

static Result appendBone(SkinnedMesh* mesh, Node* bone) {
    if (mesh->boneCount == mesh->boneCapacity && !reserveBones(mesh, grownCapacity(mesh->boneCapacity)))
        return QEL_STATUS_OUT_OF_MEMORY;
    qelTransform* rest = qelTransform_create();
    if (!rest) return QEL_STATUS_OUT_OF_MEMORY;
    Result result;
    if (!qelNode_getTransformTo(mesh, bone, rest, &result)) {
        qelTransform_destroy(rest);
        return QEL_STATUS_ARITHMETIC;
    }
    storeBone(mesh, bone, rest);
    return QEL_STATUS_OK;
}

static Result checkBinding(const SkinnedMesh* mesh, const Node* bone, int32_t weight, int32_t firstVertex,
                           int32_t vertexCount) {
    if (mesh->classId == ClassId::FigureMesh || weight < 1 || vertexCount < 1) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (firstVertex < 0 || vertexCount > kMaxVertex - firstVertex) return QEL_STATUS_INDEX_OUT_OF_RANGE;
    return bone ? QEL_STATUS_OK : QEL_STATUS_NULL_POINTER;
}

// The skeleton group is a bone like those below it. Nothing leaves a skeleton, so bones are asked once.
static bool isInSkeleton(const SkinnedMesh* mesh, const Node* bone) {
    return bone->parent && mesh->skeleton && qelNode_isAncestor(mesh->skeleton, bone);
}

Result qelSkinnedMesh_reserveBindings(SkinnedMesh* mesh, int32_t capacity) {
    if (capacity <= mesh->bindingCapacity) return QEL_STATUS_OK;
    if (!growArray(mesh->bindings, capacity)) return QEL_STATUS_OUT_OF_MEMORY;
    mesh->bindingCapacity = capacity;
    return QEL_STATUS_OK;
}

static Result reserveBinding(SkinnedMesh* mesh) {
    if (mesh->bindingCount < mesh->bindingCapacity) return QEL_STATUS_OK;
    return qelSkinnedMesh_reserveBindings(mesh, grownCapacity(mesh->bindingCapacity));
}

Result qelSkinnedMesh_addTransform(SkinnedMesh* mesh, Node* bone, int32_t weight, int32_t firstVertex,
                                   int32_t vertexCount) {
    const Result result = checkBinding(mesh, bone, weight, firstVertex, vertexCount);
    if (result != QEL_STATUS_OK) return result;
    const std::span<Node*> bones(mesh->bones, size_t(mesh->boneCount));
    const auto index = int32_t(std::ranges::find(bones, bone) - bones.begin());
    const bool isNew = index == mesh->boneCount;
    if (isNew && !isInSkeleton(mesh, bone)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    const Result reserved = reserveBinding(mesh);
    if (reserved != QEL_STATUS_OK) return reserved;
    if (isNew) {
        const Result appended = appendBone(mesh, bone);
        if (appended != QEL_STATUS_OK) return appended;
    }
    mesh->bindings[mesh->bindingCount++] = {index, weight, firstVertex, vertexCount};
    mesh->bindingsChanged = 1;
    return QEL_STATUS_OK;
}

// --- The skinned buffer ---

static bool isOutdated(const VertexArray* skinned, const VertexArray* base, bool baseReplaced) {
    return !skinned || baseReplaced || base->modified || !qelVertexArray_sameShape(skinned, base);
}

// Makes `skinned` a copy of its base. False when memory runs out.
static bool remake(VertexArray*& skinned, const VertexArray* base) {
    if (!skinned || !qelVertexArray_sameShape(skinned, base)) {
        Result result;
        VertexArray* made =
            qelVertexArray_create(base->vertexCount, base->componentCount, base->componentSize, &result);
        if (!made) return false;
        qelObject3D_unref(skinned);
        skinned = made;
    }
    std::memcpy(skinned->data, base->data, qelVertexArray_byteCount(base));
    qelVertexArray_touch(skinned);
    return true;
}

static void drop(VertexArray*& array) { qelObject3D_exchange(array, static_cast<VertexArray*>(nullptr)); }

// Skinning recomputes only what follows a changed bone; fresh copies of the base are to be recomputed in any case.
static void recomputeAll(SkinnedMesh* mesh) {
    if (mesh->skeleton) mesh->skeleton->compositeChanged = 1;
}

static bool updatePositions(SkinnedMesh* mesh) {
    VertexBuffer* base = mesh->vertexBuffer;
    if (!base->positions) {
        drop(mesh->skinnedPositions);
        mesh->skinScale = base->positionScale;
        return true;
    }
    if (!isOutdated(mesh->skinnedPositions, base->positions, base->positionsChanged)) return true;
    const int32_t oldCount = mesh->skinnedPositions ? mesh->skinnedPositions->vertexCount : 0;
    if (!remake(mesh->skinnedPositions, base->positions)) return false;
    if (oldCount < base->positions->vertexCount) mesh->bindingsChanged = 1;
    base->positions->modified = 0;
    base->positionsChanged = 0;
    // Whatever scale the old positions needed, the new ones start from their own.
    mesh->skinScale = base->positionScale;
    drop(mesh->rescaledPositions);
    mesh->skinnedBuffer->positionsChanged = 1;
    recomputeAll(mesh);
    return true;
}

static bool updateNormals(SkinnedMesh* mesh) {
    VertexBuffer* base = mesh->vertexBuffer;
    if (!base->normals) {
        drop(mesh->skinnedNormals);
        return true;
    }
    if (!isOutdated(mesh->skinnedNormals, base->normals, base->normalsChanged)) return true;
    if (!remake(mesh->skinnedNormals, base->normals)) return false;
    if (mesh->classId != ClassId::FigureMesh) qelVertexBuffer_setNormals(mesh->skinnedBuffer, mesh->skinnedNormals);
    base->normals->modified = 0;
    base->normalsChanged = 0;
    mesh->skinnedBuffer->normalsChanged = 1;
    recomputeAll(mesh);
    return true;
}

// Gives the skinned buffer the mesh's arrays, and everything that is not skinned from the base.
static void updateAttributes(SkinnedMesh* mesh) {
    const VertexBuffer* base = mesh->vertexBuffer;
    VertexBuffer* skinned = mesh->skinnedBuffer;
    qelVertexBuffer_setPositions(skinned, mesh->skinnedPositions, mesh->skinScale, base->positionBias);
    qelVertexBuffer_setNormalsAsIs(skinned, mesh->skinnedNormals);
    qelVertexBuffer_setColors(skinned, base->colors);
    if (skinned->defaultColor != base->defaultColor) qelVertexBuffer_setDefaultColor(skinned, base->defaultColor);
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit)
        qelVertexBuffer_setTexCoords(skinned, unit, base->texCoords[unit], base->texCoordScale[unit],
                                     base->texCoordBias[unit]);
}

Result qelSkinnedMesh_prepareSkinnedBuffer(SkinnedMesh* mesh) {
    if (!mesh->vertexBuffer) return QEL_STATUS_OK;  // an empty figure
    if (!mesh->skinnedBuffer) mesh->skinnedBuffer = qelVertexBuffer_create();
    if (!mesh->skinnedBuffer || !updatePositions(mesh) || !updateNormals(mesh)) return QEL_STATUS_OUT_OF_MEMORY;
    updateAttributes(mesh);
    return QEL_STATUS_OK;
}

// --- Duplicate ---

static bool copyBones(SkinnedMesh* copy, const SkinnedMesh* source) {
    if (source->boneCapacity == 0) return true;
    if (!reserveBones(copy, source->boneCapacity)) return false;
    for (int32_t i = 0; i < source->boneCount; ++i) {
        qelTransform* rest = qelTransform_create();
        if (!rest) return false;
        *rest = *source->restTransforms[i];
        storeBone(copy, source->bones[i], rest);
    }
    return true;
}

static bool copyBindings(SkinnedMesh* copy, const SkinnedMesh* source) {
    if (source->bindingCapacity == 0) return true;
    if (!growArray(copy->bindings, source->bindingCapacity)) return false;
    copy->bindingCapacity = source->bindingCapacity;
    copy->bindingCount = source->bindingCount;
    std::copy_n(source->bindings, source->bindingCount, copy->bindings);
    copy->bindingsChanged = 1;  // the tables are made again when the copy is first skinned
    return true;
}

static bool copyArray(VertexArray*& copy, const VertexArray* source) {
    copy = source ? static_cast<VertexArray*>(qelVertexArray_duplicate(source)) : nullptr;
    return copy || !source;
}

static bool copyOutput(SkinnedMesh* copy, const SkinnedMesh* source) {
    if (!copyArray(copy->skinnedPositions, source->skinnedPositions)) return false;
    if (!copyArray(copy->skinnedNormals, source->skinnedNormals)) return false;
    if (!copyArray(copy->rescaledPositions, source->rescaledPositions)) return false;
    copy->skinnedBuffer = qelVertexBuffer_create();
    if (!copy->skinnedBuffer) return false;
    updateAttributes(copy);
    return true;
}

Object3D* qelSkinnedMesh_duplicate(const SkinnedMesh* mesh) {
    SkinnedMesh* copy = qelNode_copy(mesh);
    if (!copy) return nullptr;
    qelMesh_detachCopy(copy);
    clearMembers(copy);
    copy->tablesValid = mesh->tablesValid;
    copy->skinScale = mesh->skinScale;
    if (qelMesh_shareParts(copy, mesh) && copyBones(copy, mesh) && copyBindings(copy, mesh) && copyOutput(copy, mesh))
        return copy;
    qelObject3D_unref(copy);
    return nullptr;
}
