// Skinning: computes the output arrays of a SkinnedMesh from its bones, in 32-bit integers.
#include <algorithm>
#include <cmath>
#include <span>

#include "frame/fixed_point.h"
#include "scene/appearance.h"
#include "scene/skinned_mesh.h"
#include "scene/skinning_kernel.h"
#include "scene/subtree.h"
#include "scene/transform.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// --- Influence tables ---

static std::span<const SkinBinding> bindingsOf(const SkinnedMesh* mesh) {
    return {mesh->bindings, size_t(mesh->bindingCount)};
}

static bool reachPast(std::span<const SkinBinding> bindings, int32_t vertexCount) {
    return std::ranges::any_of(
        bindings, [=](const SkinBinding& binding) { return binding.firstVertex + binding.vertexCount > vertexCount; });
}

// Tables take time for every vertex of every binding. Bindings that all overlap would make many seconds of a small file,
// so there may be no more than 256 on each of 65535 vertices, say.
constexpr int64_t kMaxCoverage = 1 << 24;

static int64_t coverageOf(std::span<const SkinBinding> bindings) {
    int64_t coverage = 0;
    for (const SkinBinding& binding : bindings) coverage += binding.vertexCount;
    return coverage;
}

// The largest number of bindings over any vertex. counts: zeroed scratch, one per vertex.
static int32_t largestCoverage(std::span<const SkinBinding> bindings, std::span<int32_t> counts) {
    for (const SkinBinding& binding : bindings) {
        const auto end = size_t(binding.firstVertex + binding.vertexCount);
        ++counts[size_t(binding.firstVertex)];
        if (end < counts.size()) --counts[end];
    }
    int32_t covering = 0, largest = 0;
    for (const int32_t change : counts) {
        covering += change;
        largest = std::max(largest, covering);
    }
    return largest;
}

static bool allocTables(SkinnedMesh* mesh, int32_t vertexCount) {
    qelFree(mesh->vertexInfluenceCount);
    qelFree(mesh->vertexWeights);
    qelFree(mesh->vertexBones);
    mesh->vertexWeights = mesh->vertexBones = nullptr;
    mesh->vertexInfluenceCount = qelAllocArrayOf<int32_t>(uint32_t(vertexCount));
    if (!mesh->vertexInfluenceCount) return false;
    const std::span counts(mesh->vertexInfluenceCount, size_t(vertexCount));
    mesh->maxInfluences = std::min(largestCoverage(bindingsOf(mesh), counts), kMaxInfluences);
    std::ranges::fill(counts, 0);
    mesh->vertexWeights = qelAllocArrayOf<int32_t>(uint32_t(vertexCount * mesh->maxInfluences));
    if (!mesh->vertexWeights) return false;
    mesh->vertexBones = qelAllocArrayOf<int32_t>(uint32_t(vertexCount * mesh->maxInfluences));
    return mesh->vertexBones != nullptr;
}

// A later binding of the same bone takes the place of the earlier one; a vertex with all the bones it can have gives up
// the first weaker one.
static void addInfluence(const SkinnedMesh* mesh, int32_t vertex, const SkinBinding& binding) {
    int32_t& count = mesh->vertexInfluenceCount[vertex];
    int32_t* weights = mesh->vertexWeights + vertex * mesh->maxInfluences;
    int32_t* bones = mesh->vertexBones + vertex * mesh->maxInfluences;
    int32_t slot = int32_t(std::find(bones, bones + count, binding.bone) - bones);
    if (slot == count) {
        if (count < mesh->maxInfluences)
            ++count;
        else
            slot = int32_t(
                std::find_if(weights, weights + count, [&](int32_t weight) { return weight < binding.weight; }) -
                weights);
    }
    if (slot == count) return;
    weights[slot] = binding.weight;
    bones[slot] = binding.bone;
}

// To 20.12, with a sum of 1.0 but for what truncation takes.
static void normaliseWeights(int32_t* weights, int32_t count) {
    int64_t sum = 0;
    for (int32_t k = 0; k < count; ++k) sum += weights[k];
    for (int32_t k = 0; k < count; ++k) weights[k] = int32_t(int64_t(weights[k]) * kFixedOne / sum);
}

static SkinInfluences influencesOf(const SkinnedMesh* mesh, int32_t vertex) {
    const int32_t first = vertex * mesh->maxInfluences;
    return {mesh->vertexBones + first, mesh->vertexWeights + first, mesh->vertexInfluenceCount[vertex]};
}

static bool sameInfluences(const SkinInfluences& a, const SkinInfluences& b) {
    return std::equal(a.bones, a.bones + a.count, b.bones, b.bones + b.count) &&
           std::equal(a.weights, a.weights + a.count, b.weights);
}

// The vertex behind the run that begins at `first`.
static int32_t endOfRun(const SkinnedMesh* mesh, int32_t first, int32_t vertexCount) {
    int32_t end = first + 1;
    while (end < vertexCount && sameInfluences(influencesOf(mesh, first), influencesOf(mesh, end))) ++end;
    return end;
}

static bool buildRuns(SkinnedMesh* mesh, int32_t vertexCount) {
    qelFree(mesh->runs);
    mesh->runs = nullptr;
    mesh->runCount = 0;
    for (int32_t vertex = 0; vertex < vertexCount; vertex = endOfRun(mesh, vertex, vertexCount)) ++mesh->runCount;
    mesh->runs = qelAllocArrayOf<SkinRun>(uint32_t(mesh->runCount));
    if (!mesh->runs) return false;
    SkinRun* run = mesh->runs;
    for (int32_t vertex = 0; vertex < vertexCount; vertex += run++->vertexCount)
        *run = {vertex, endOfRun(mesh, vertex, vertexCount) - vertex};
    return true;
}

static Result buildTables(SkinnedMesh* mesh) {
    const int32_t vertexCount = mesh->skinnedPositions->vertexCount;
    mesh->bindingsChanged = 0;
    mesh->tablesValid = 0;
    if (reachPast(bindingsOf(mesh), vertexCount) || coverageOf(bindingsOf(mesh)) > kMaxCoverage)
        return QEL_STATUS_ILLEGAL_STATE;
    if (!allocTables(mesh, vertexCount)) return QEL_STATUS_OUT_OF_MEMORY;
    for (const SkinBinding& binding : bindingsOf(mesh))
        for (int32_t i = 0; i < binding.vertexCount; ++i) addInfluence(mesh, binding.firstVertex + i, binding);
    for (int32_t vertex = 0; vertex < vertexCount; ++vertex)
        normaliseWeights(mesh->vertexWeights + vertex * mesh->maxInfluences, mesh->vertexInfluenceCount[vertex]);
    if (!buildRuns(mesh, vertexCount)) return QEL_STATUS_OUT_OF_MEMORY;
    mesh->tablesValid = 1;
    mesh->skeleton->compositeChanged = 1;  // no vertex is where the new tables put it
    return QEL_STATUS_OK;
}

// --- Bones ---

// Bits of boneMatrixDone.
constexpr uint8_t kBoneMoved = 1;  // its vertices are to be computed
constexpr uint8_t kMatrixDone = 2;

// Brings the world transforms below the skeleton, relative to the mesh, up to date, and marks those that changed.
static void updateWorldTransforms(Group* skeleton) {
    SubtreeWalk walk{skeleton, skeleton, 0};
    do {
        Node* node = walk.node;
        const Node* parent = node == skeleton ? nullptr : node->parent;
        qelTransformable_updateComposite(node);
        if (node->compositeChanged || (parent && parent->worldTransformUpdated)) {
            qelNode_updateWorldTransform(node, parent ? &parent->worldTransform : nullptr);
            node->compositeChanged = 0;
        }
        // A skinned mesh that hangs on a bone has a skeleton of its own, which is not part of this one.
        if (node->classId == ClassId::SkinnedMesh) walk.childIndex = 1;
    } while (qelSubtreeWalk_next(&walk));
}

static bool markMovedBones(const SkinnedMesh* mesh) {
    bool any = false;
    for (int32_t i = 0; i < mesh->boneCount; ++i) {
        const bool moved = mesh->bones[i]->worldTransformUpdated;
        mesh->boneMatrixDone[i] = moved ? kBoneMoved : 0;
        any |= moved;
    }
    return any;
}

static void markAllBones(const SkinnedMesh* mesh) { std::fill_n(mesh->boneMatrixDone, mesh->boneCount, kBoneMoved); }

// What all vertices of a pass share.
struct SkinPass {
    SkinnedMesh* mesh;
    bool withNormals;
    qelTransform toModelUnits;  // applies bias and scale of the positions, both in units of the skinned scale
    int32_t bias[4];            // in units of the skinned scale, 20.12; kernels read a fourth entry
};

static SkinPass beginPass(SkinnedMesh* mesh, bool withNormals) {
    SkinPass pass{};
    pass.mesh = mesh;
    pass.withNormals = withNormals;
    float column[4];
    for (int32_t i = 0; i < 3; ++i) {
        column[i] = mesh->vertexBuffer->positionBias[i] / mesh->skinScale;
        pass.bias[i] = j2f(column[i]);
    }
    column[3] = 1 / mesh->skinScale;
    qelTransform_setIdentity(&pass.toModelUnits);
    qelTransform_setColumn(&pass.toModelUnits, 3, column);
    return pass;
}

static int32_t* normalMatricesOf(const SkinnedMesh* mesh) {
    return mesh->boneMatrices + kSkinMatrixWords * mesh->boneCapacity;
}

static void computeBoneMatrices(const SkinPass& pass, int32_t bone) {
    const SkinnedMesh* mesh = pass.mesh;
    qelTransform moved, matrix;
    qelTransform_multiplyInto(&moved, &mesh->bones[bone]->worldTransform, mesh->restTransforms[bone]);
    qelTransform_multiplyInto(&matrix, &moved, &pass.toModelUnits);
    int32_t rows[12];
    qelTransform_toFixedRows(&matrix, rows);
    SkinKernel::setMatrix(rows, mesh->boneMatrices + kSkinMatrixWords * bone);
    if (pass.withNormals) {
        if (qelTransform_invert(&moved) == QEL_STATUS_OK) qelTransform_transpose(&moved);
        qelTransform_toFixedRows(&moved, rows);
        SkinKernel::setMatrix(rows, normalMatricesOf(mesh) + kSkinMatrixWords * bone);
    }
    mesh->boneMatrixDone[bone] |= kMatrixDone;
}

// --- Vertices ---

// Whether some bone of a run moved; the matrices of all its bones are then ready.
static bool needsSkinning(const SkinPass& pass, const SkinInfluences& influences) {
    const uint8_t* flags = pass.mesh->boneMatrixDone;
    const std::span bones(influences.bones, size_t(influences.count));
    if (std::ranges::none_of(bones, [=](int32_t bone) { return flags[bone] & kBoneMoved; })) return false;
    for (const int32_t bone : bones)
        if (!(flags[bone] & kMatrixDone)) computeBoneMatrices(pass, bone);
    return true;
}

// Returns 0, or the largest component of the vertex that did not fit the storage, at which it stopped.
template <typename T>
static uint32_t skinPositions(const SkinPass& pass, const VertexArray* from) {
    const SkinnedMesh* mesh = pass.mesh;
    const auto* in = static_cast<const T*>(from->data);
    auto* out = static_cast<T*>(mesh->skinnedPositions->data);
    for (const SkinRun& run : std::span(mesh->runs, size_t(mesh->runCount))) {
        const int32_t count = std::min(run.vertexCount, from->vertexCount - run.firstVertex);
        const SkinInfluences influences = influencesOf(mesh, run.firstVertex);
        if (count <= 0 || !needsSkinning(pass, influences)) continue;
        const int32_t first = 3 * run.firstVertex;
        const uint32_t overflow =
            SkinKernel::positions(mesh->boneMatrices, influences, pass.bias, in + first, out + first, count);
        if (overflow != 0) return overflow;
    }
    return 0;
}

template <typename T>
static void skinNormals(const SkinPass& pass) {
    const SkinnedMesh* mesh = pass.mesh;
    const auto* in = static_cast<const T*>(mesh->vertexBuffer->normals->data);
    auto* out = static_cast<T*>(mesh->skinnedNormals->data);
    for (const SkinRun& run : std::span(mesh->runs, size_t(mesh->runCount))) {
        const int32_t count = std::min(run.vertexCount, mesh->skinnedNormals->vertexCount - run.firstVertex);
        const SkinInfluences influences = influencesOf(mesh, run.firstVertex);
        if (count <= 0 || !needsSkinning(pass, influences)) continue;
        const int32_t first = 3 * run.firstVertex;
        SkinKernel::normals(normalMatricesOf(mesh), influences, in + first, out + first, count);
    }
}

// --- Overflow ---

template <typename T>
static void requantise(const VertexArray* from, float fromScale, float toScale, VertexArray* out) {
    const auto* in = static_cast<const T*>(from->data);
    auto* rescaled = static_cast<T*>(out->data);
    for (int32_t i = 0; i < from->vertexCount * 3; ++i) rescaled[i] = T(roundToInt(float(in[i]) * fromScale / toScale));
}

// Chooses a position scale that brings `largest` well into the storage range, and requantises the base positions to it.
// The scale grows by more than a quarter each time and has to stay finite, so that hostile data ends too; it cannot
// grow at all when it is 0, denormal or not a number.
static Result enlargeScale(SkinnedMesh* mesh, uint32_t largest) {
    const VertexBuffer* base = mesh->vertexBuffer;
    const bool isByte = base->positions->componentSize == 1;
    const float scale = float(largest) * mesh->skinScale * (isByte ? 0.01f : 0.00004f);
    if (!(std::fabs(scale) > std::fabs(mesh->skinScale)) || std::isinf(scale)) return QEL_STATUS_ARITHMETIC;
    if (!mesh->rescaledPositions) {
        Result result;
        mesh->rescaledPositions =
            qelVertexArray_create(base->positions->vertexCount, 3, base->positions->componentSize, &result);
        if (!mesh->rescaledPositions) return result;
    }
    mesh->skinScale = scale;
    if (isByte)
        requantise<int8_t>(base->positions, base->positionScale, scale, mesh->rescaledPositions);
    else
        requantise<int16_t>(base->positions, base->positionScale, scale, mesh->rescaledPositions);
    std::memcpy(mesh->skinnedPositions->data, mesh->rescaledPositions->data,
                qelVertexArray_byteCount(mesh->rescaledPositions));
    return QEL_STATUS_OK;
}

// --- The whole ---

// Repeats the pass, over all vertices and in a larger scale, until every position fits.
static Result skinMovedVertices(SkinnedMesh* mesh, bool withNormals) {
    for (;;) {
        const SkinPass pass = beginPass(mesh, withNormals);
        const VertexArray* from = mesh->rescaledPositions ? mesh->rescaledPositions : mesh->vertexBuffer->positions;
        const uint32_t overflow =
            from->componentSize == 1 ? skinPositions<int8_t>(pass, from) : skinPositions<int16_t>(pass, from);
        if (overflow == 0) {
            if (withNormals && mesh->skinnedNormals->componentSize == 1) skinNormals<int8_t>(pass);
            if (withNormals && mesh->skinnedNormals->componentSize == 2) skinNormals<int16_t>(pass);
            return QEL_STATUS_OK;
        }
        const Result result = enlargeScale(mesh, overflow);
        if (result != QEL_STATUS_OK) return result;
        markAllBones(mesh);
    }
}

static void publish(const SkinnedMesh* mesh, bool withNormals) {
    VertexBuffer* skinned = mesh->skinnedBuffer;
    qelVertexBuffer_setPositions(skinned, mesh->skinnedPositions, mesh->skinScale, mesh->vertexBuffer->positionBias);
    skinned->positionsChanged = 1;
    qelVertexArray_touch(mesh->skinnedPositions);
    if (!withNormals) return;
    skinned->normalsChanged = 1;
    qelVertexArray_touch(mesh->skinnedNormals);
}

static bool hasMaterial(const Mesh* mesh) {
    return std::any_of(mesh->appearances, mesh->appearances + mesh->submeshCount,
                       [](const Appearance* appearance) { return appearance && appearance->material; });
}

Result qelSkinnedMesh_skin(SkinnedMesh* mesh, bool withNormals) {
    Result result = qelSkinnedMesh_prepareSkinnedBuffer(mesh);
    if (result != QEL_STATUS_OK) return result;
    if (!mesh->tablesValid) return QEL_STATUS_ILLEGAL_STATE;
    if (!mesh->skeleton || !mesh->skinnedPositions || mesh->bindingCount == 0) return QEL_STATUS_OK;
    if (mesh->bindingsChanged) result = buildTables(mesh);
    if (result != QEL_STATUS_OK) return result;

    Group* skeleton = mesh->skeleton;
    const bool skinsNormals = withNormals && mesh->skinnedNormals && hasMaterial(mesh);
    if (skinsNormals && !mesh->normalsSkinnedOnce) skeleton->compositeChanged = 1;
    updateWorldTransforms(skeleton);
    if (markMovedBones(mesh)) {
        mesh->normalsSkinnedOnce = skinsNormals;
        result = skinMovedVertices(mesh, skinsNormals);
        if (result == QEL_STATUS_OK)
            publish(mesh, skinsNormals);
        else
            skeleton->compositeChanged = 1;  // half of the vertices may have been computed
        std::fill_n(mesh->boneMatrixDone, mesh->boneCount, uint8_t(0));
    }
    qelNode_invalidateWorldTransforms(skeleton);
    return result;
}
