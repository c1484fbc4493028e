// The collision parts of meshes: one per submesh, whether or not it is drawn.

#include <algorithm>
#include <span>

#include "animation/blend_plan.h"
#include "query/collision_set.h"
#include "render/submesh_bounds.h"
#include "scene/figure_mesh.h"
#include "scene/subtree.h"
#include "scene/transform.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

constexpr float kFigureUnit = 1.0f / 64.0f;

// Comparing takes up to 200 bytes per triangle, and submeshes that share one strip are as many triangles as one likes.
// Eight times what a closed surface over 65536 vertices has.
constexpr uint64_t kMaxMeshTriangles = 1 << 20;

// --- Vertices ---

// Asking the bones takes time whenever a figure is reached; blending its vertices only the first time.
static bool hasMovedBones(const FigureMesh* figure, CollisionWork* work) {
    constexpr uint32_t kBonesPerStep = 64;
    const BlendPlan* plan = figure->blendPlan;
    if (!plan) return false;
    work->steps += plan->usedCount / kBonesPerStep;
    return std::ranges::any_of(std::span(plan->usedBones, plan->usedCount),
                               [&](uint16_t bone) { return figure->bones.bones[bone].changed; });
}

static uint32_t nodeCount(Group* root) {
    SubtreeWalk walk = {root, root, 0};
    uint32_t count = 0;
    do {
        ++count;
    } while (qelSubtreeWalk_next(&walk));
    return count;
}

// Skinning walks the skeleton, moved or not, whose nodes may lie anywhere in memory, and what moved costs its vertices.
static uint64_t skinningSteps(const SkinnedMesh* mesh) {
    constexpr uint64_t kStepsPerNode = 4;
    const VertexArray* positions = mesh->vertexBuffer ? mesh->vertexBuffer->positions : nullptr;
    uint64_t steps = positions ? uint32_t(mesh->boneCount + positions->vertexCount / 8) : 0;
    if (mesh->skeleton) steps += kStepsPerNode * nodeCount(mesh->skeleton);
    return steps;
}

// The vertices that a mesh is to be tested with, brought up to date; null when they cannot be. Those of a morphing mesh
// are the ones it was made with.
static CollisionResult verticesOf(CollisionSet* set, Mesh* mesh, VertexBuffer** out) {
    *out = mesh->vertexBuffer;
    if (mesh->classId == ClassId::FigureMesh) {
        auto* figure = static_cast<FigureMesh*>(mesh);
        if (hasMovedBones(figure, set->work)) _Figure_blendVertices(figure);
        *out = figure->skinnedBuffer;
    } else if (mesh->classId == ClassId::SkinnedMesh) {
        auto* skinned = static_cast<SkinnedMesh*>(mesh);
        set->work->steps += skinningSteps(skinned);
        const Result result = qelSkinnedMesh_skin(skinned, false);
        if (result == QEL_STATUS_OUT_OF_MEMORY) return CollisionResult::OutOfMemory;
        *out = result == QEL_STATUS_OK ? skinned->skinnedBuffer : nullptr;
    }
    return CollisionResult::Ok;
}

static bool canBeRead(const Mesh* mesh, const VertexBuffer* buffer) {
    const VertexArray* positions = buffer ? buffer->positions : nullptr;
    if (!positions || (positions->componentSize != 1 && positions->componentSize != 2)) return false;
    const std::span<TriangleStripArray*> submeshes(mesh->indexBuffers, size_t(mesh->submeshCount));
    return std::ranges::all_of(
        submeshes, [buffer](const TriangleStripArray* strips) { return qelSubmeshBounds_indicesFit(buffer, strips); });
}

// Coordinates of vertices to those of the node's parent.
static qelTransform decodeTransform(Mesh* mesh, const VertexBuffer* buffer) {
    qelTransform decode;
    qelTransformable_getCompositeTransform(mesh, &decode);
    const float scale = buffer->positionScale;
    const float* bias = buffer->positionBias;
    qelTransform_postTranslate(&decode, bias[0], bias[1], bias[2]);
    qelTransform_postScale(&decode, scale, scale, scale);
    return decode;
}

// --- Submeshes ---

template <typename T>
static void extendBounds(const T* position, int32_t least[3], int32_t greatest[3]) {
    for (int i = 0; i < 3; ++i) {
        least[i] = std::min(least[i], int32_t(position[i]));
        greatest[i] = std::max(greatest[i], int32_t(position[i]));
    }
}

// Of the vertices that triangles use.
template <typename T>
static void measure(CollisionPart* part, const T* positions) {
    int32_t least[3] = {INT32_MAX, INT32_MAX, INT32_MAX}, greatest[3] = {INT32_MIN, INT32_MIN, INT32_MIN};
    if (part->indices) {
        for (const uint16_t index : std::span(part->indices, size_t(part->triangleCount) * 3))
            extendBounds(positions + 3 * size_t(index), least, greatest);
    } else {
        for (uint32_t i = 0; i < part->vertexCount; ++i)
            extendBounds(positions + 3 * size_t(part->firstIndex + i), least, greatest);
    }
    CollisionPart_setBounds(part, least, greatest);
    part->coordinates = positions + 3 * size_t(part->firstIndex);
}

static void setShape(CollisionPart* part, const TriangleStripArray* strips) {
    part->triangleCount = uint32_t(qelTriangleStripArray_getTriangleCount(strips));
    part->indices = strips->indices;
    if (!strips->indices) {
        part->shape = PartShape::Strips;
        part->stripLengths = strips->stripLengths;
        part->firstIndex = uint32_t(strips->firstIndex);
        part->vertexCount = uint32_t(strips->indexLimit - strips->firstIndex);
        return;
    }
    const std::span indices(strips->indices, size_t(part->triangleCount) * 3);
    const auto [least, greatest] = std::ranges::minmax(indices);
    part->firstIndex = least;
    part->vertexCount = uint32_t(greatest - least) + 1;
    part->shape = PartShape::IndexRange;
    if (part->vertexCount <= indices.size()) return;
    part->shape = PartShape::IndexCorners;
    part->vertexCount = uint32_t(indices.size());
}

static void setPart(CollisionPart* part, const TriangleStripArray* strips, const VertexArray* positions,
                    const qelTransform& decode) {
    setShape(part, strips);
    part->componentSize = uint8_t(positions->componentSize);
    if (positions->componentSize == 1)
        measure(part, static_cast<const int8_t*>(positions->data));
    else
        measure(part, static_cast<const int16_t*>(positions->data));
    const auto scale = float(1 << part->shift);
    part->place = decode;
    qelTransform_postScale(&part->place, scale, scale, scale);
}

CollisionResult CollisionSet_addMeshParts(CollisionSet* set, Mesh* mesh) {
    VertexBuffer* buffer;
    set->work->steps += 1 + uint32_t(mesh->submeshCount);
    const CollisionResult result = verticesOf(set, mesh, &buffer);
    if (result != CollisionResult::Ok || !canBeRead(mesh, buffer)) return result;
    const qelTransform decode = decodeTransform(mesh, buffer);
    uint64_t triangleCount = 0;
    for (const TriangleStripArray* strips : std::span(mesh->indexBuffers, size_t(mesh->submeshCount))) {
        if (CollisionSet_isTooLarge(set)) return CollisionResult::Failed;
        CollisionPart* part = CollisionSet_addPart(set);
        if (!part) return CollisionResult::OutOfMemory;
        setPart(part, strips, buffer->positions, decode);
        set->work->steps += part->triangleCount / 8;
        triangleCount += part->triangleCount;
        if (triangleCount > kMaxMeshTriangles) return CollisionResult::Failed;
        if (mesh->classId == ClassId::FigureMesh)
            qelTransform_postScale(&part->place, kFigureUnit, kFigureUnit, kFigureUnit);
    }
    return CollisionResult::Ok;
}
