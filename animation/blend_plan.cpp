#include "animation/blend_plan.h"

#include <algorithm>

#include "frame/allocator.h"
#include "frame/atrans3i.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// Hands out the parts of one block, or, while `base` is null, adds up its size.
struct Carver {
    uint8_t* base;
    size_t size;
};

template <typename T>
static T* carve(Carver& carver, uint32_t count) {
    carver.size = (carver.size + alignof(T) - 1) / alignof(T) * alignof(T);
    T* part = carver.base ? reinterpret_cast<T*>(carver.base + carver.size) : nullptr;
    carver.size += size_t(count) * sizeof(T);
    return part;
}

static void carvePlan(Carver& carver, BlendPlan& plan, uint32_t boneCount) {
    plan.factors = carve<BoneFactors>(carver, boneCount + 1);
    plan.rest = carve<RestPair>(carver, (plan.vertexCount + 1) / 2);
    plan.factorOffsets = carve<uint32_t>(carver, plan.vertexCount);
    plan.versions = carve<uint32_t>(carver, boneCount);
    plan.parentVersions = carve<uint32_t>(carver, boneCount);
    plan.usedBones = carve<uint16_t>(carver, boneCount);
    plan.wide = carve<uint8_t>(carver, boneCount + 1);
}

// The block's start need not be aligned as the kernels want it.
static BlendPlan* allocatePlan(uint32_t vertexCount, uint32_t boneCount) {
    BlendPlan layout = {};
    layout.vertexCount = vertexCount;
    Carver carver = {};
    carvePlan(carver, layout, boneCount);
    constexpr size_t kHead = sizeof(BlendPlan) + alignof(BoneFactors) - 1;
    auto* plan = static_cast<BlendPlan*>(qelAllocArray(uint32_t(kHead + carver.size), 1));  // 9 MB at most
    if (!plan) return nullptr;
    plan->vertexCount = vertexCount;
    const auto head = reinterpret_cast<uintptr_t>(plan) + kHead;
    carver = {reinterpret_cast<uint8_t*>(head - head % alignof(BoneFactors)), 0};
    carvePlan(carver, *plan, boneCount);
    return plan;
}

// Appends a bone behind those of its ancestors that are not yet used; used ones have a version. Every bone is walked
// over once.
static void useBone(BlendPlan& plan, const FigureBones& bones, int32_t bone) {
    int32_t depth = 0;
    for (; bone >= 0 && plan.versions[bone] == 0; bone = bones.bones[bone].parent) {
        plan.versions[bone] = 1;
        bones.chain[depth++] = bone;
    }
    while (depth > 0) plan.usedBones[plan.usedCount++] = uint16_t(bones.chain[--depth]);
}

static void setBones(BlendPlan& plan, const FigureBones& bones, const int32_t* vertexBones) {
    for (uint32_t v = 0; v < plan.vertexCount; ++v) {
        useBone(plan, bones, vertexBones[v]);
        const uint32_t index = vertexBones[v] < 0 ? bones.boneCount : uint32_t(vertexBones[v]);
        plan.factorOffsets[v] = index * uint32_t(sizeof(BoneFactors));
    }
    Atrans3i still;
    Atrans3i_setIdentity(&still);
    BoneFactors_compose(nullptr, &still, &still, &plan.factors[bones.boneCount]);
}

static void setRest(BlendPlan& plan, const VertexBuffer* buffer) {
    const auto* positions = static_cast<const int16_t*>(buffer->positions->data);
    const auto* normals = buffer->normals ? static_cast<const int8_t*>(buffer->normals->data) : nullptr;
    for (uint32_t v = 0; v < plan.vertexCount; ++v) {
        RestPair& pair = plan.rest[v / 2];
        std::copy_n(positions + 3 * v, 3, pair.positions[v % 2]);
        if (!normals) continue;
        for (uint32_t i = 0; i < 3; ++i) pair.normals[v % 2][i] = int16_t(normals[3 * v + i] * kRestNormalScale);
    }
}

BlendPlan* BlendPlan_create(const FigureMesh* figure) {
    const FigureBones& bones = figure->bones;
    BlendPlan* plan = allocatePlan(uint32_t(figure->vertexBuffer->positions->vertexCount), bones.boneCount);
    if (!plan) return nullptr;
    setBones(*plan, bones, figure->vertexBones);
    setRest(*plan, figure->vertexBuffer);
    plan->kernel = &BlendKernels_supported().front();
    return plan;
}
