#include "animation/figure_blend.h"

#include <algorithm>
#include <cassert>

#include "animation/blend_plan.h"
#include "frame/allocator.h"
#include "frame/wrap.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// --- Build ---

static void assignVertices(FigureMesh* figure, uint32_t vertexCount) {
    const FigureBones& bones = figure->bones;
    std::fill_n(figure->vertexBones, vertexCount, -1);
    for (uint32_t b = 0; b < bones.boneCount; ++b) {
        const BoneRecord& bone = bones.bones[b];
        assert(bone.firstGroup + bone.groupCount <= bones.groupCount);
        for (const VertexGroup& group : std::span(bones.groups + bone.firstGroup, bone.groupCount))
            for (const uint16_t vertex : std::span(group.vertices, group.count)) {
                assert(vertex < vertexCount);
                figure->vertexBones[vertex] = int32_t(b);  // of two bones the later one has it
            }
    }
}

bool D_Figure_buildVertexBones(FigureMesh* figure) {
    if (!figure->vertexBuffer || !figure->vertexBuffer->positions) return true;  // nothing to deform
    const auto vertexCount = uint32_t(figure->vertexBuffer->positions->vertexCount);
    figure->vertexBones = qelAllocArrayOf<int32_t>(vertexCount);
    if (!figure->vertexBones) return false;
    figure->maxInfluences = 1;
    assignVertices(figure, vertexCount);
    figure->blendPlan = BlendPlan_create(figure);
    return figure->blendPlan != nullptr;
}

// --- World transforms ---

// The parent's world transform must be up to date.
static void updateWorld(FigureMesh* figure, int32_t b) {
    FigureBones& bones = figure->bones;
    BlendPlan* plan = figure->blendPlan;
    BoneRecord& bone = bones.bones[b];
    const uint32_t parentVersion = bone.parent < 0 ? 0 : plan->versions[bone.parent];
    if (!bone.changed && plan->parentVersions[b] == parentVersion) return;
    const Atrans3i* parent = bone.parent < 0 ? nullptr : &bones.world[bone.parent];
    const uint8_t isWide = !plan->kernel->compose(parent, &bones.local[b], &bones.world[b], &plan->factors[b]);
    plan->wideCount += uint32_t(isWide) - plan->wide[b];
    plan->wide[b] = isWide;
    bone.changed = 0;
    plan->parentVersions[b] = parentVersion;
    ++plan->versions[b];
}

void D_Figure_boneWorldTransform(FigureMesh* figure, int32_t bone, Atrans3i* out) {
    const FigureBones& bones = figure->bones;
    int32_t depth = 0;
    for (int32_t b = bone; b >= 0; b = bones.bones[b].parent) bones.chain[depth++] = b;
    while (depth > 0) updateWorld(figure, bones.chain[--depth]);
    *out = bones.world[bone];
}

// --- Vertices ---

// The arrays of one blend. Normals are null in both or in none.
struct BlendArrays {
    const int16_t* restPositions;
    const int8_t* restNormals;
    int16_t* positions;
    int8_t* normals;
};

static BlendArrays arraysOf(const FigureMesh* figure) {
    const VertexBuffer* rest = figure->vertexBuffer;
    BlendArrays arrays = {};
    arrays.restPositions = static_cast<const int16_t*>(rest->positions->data);
    arrays.positions = static_cast<int16_t*>(figure->skinnedPositions->data);
    if (rest->normals && figure->skinnedNormals) {
        arrays.restNormals = static_cast<const int8_t*>(rest->normals->data);
        arrays.normals = static_cast<int8_t*>(figure->skinnedNormals->data);
    }
    return arrays;
}

template <typename T>
static int32_t applyRow(const int32_t* row, const T* v) {
    const int32_t sum = wrapAdd(wrapAdd(wrapMul(row[0], v[0]), wrapMul(row[1], v[1])), wrapMul(row[2], v[2]));
    return wrapAdd(sum, kBlendRounding) >> 12;
}

// The formula, one vertex at a time and for any matrix: the scalar twin of the kernels.
static void blendVertex(const FigureMesh* figure, const BlendArrays& arrays, uint32_t vertex) {
    const uint32_t first = 3 * vertex;
    const int32_t bone = figure->vertexBones[vertex];
    if (bone < 0) {
        std::copy_n(arrays.restPositions + first, 3, arrays.positions + first);
        if (arrays.normals) std::copy_n(arrays.restNormals + first, 3, arrays.normals + first);
        return;
    }
    const int32_t* m = figure->bones.world[bone].m;
    for (uint32_t r = 0; r < 3; ++r)
        arrays.positions[first + r] = int16_t(wrapAdd(applyRow(m + 4 * r, arrays.restPositions + first), m[4 * r + 3]));
    if (!arrays.normals) return;
    for (uint32_t r = 0; r < 3; ++r)
        arrays.normals[first + r] = int8_t(applyRow(m + 4 * r, arrays.restNormals + first));
}

static bool isWide(const BlendPlan* plan, uint32_t vertex) {
    return plan->wide[plan->factorOffsets[vertex] / sizeof(BoneFactors)];
}

static uint32_t runKernel(const BlendPlan* plan, const BlendArrays& arrays) {
    return plan->kernel->blend({.rest = plan->rest,
                                .factors = plan->factors,
                                .factorOffsets = plan->factorOffsets,
                                .vertexCount = plan->vertexCount,
                                .positions = arrays.positions,
                                .normals = arrays.normals});
}

void _Figure_blendVertices(FigureMesh* figure) {
    if (!figure || !figure->blendPlan || !figure->skinnedPositions) return;
    const BlendPlan* plan = figure->blendPlan;
    for (const uint16_t bone : std::span(plan->usedBones, plan->usedCount)) updateWorld(figure, bone);

    const BlendArrays arrays = arraysOf(figure);
    const uint32_t blended = runKernel(plan, arrays);
    if (plan->wideCount > 0)
        for (uint32_t v = 0; v < blended; ++v)
            if (isWide(plan, v)) blendVertex(figure, arrays, v);
    for (uint32_t v = blended; v < plan->vertexCount; ++v) blendVertex(figure, arrays, v);
    qelVertexArray_touch(figure->skinnedPositions);
}
