#if defined(__aarch64__)

#include <arm_neon.h>

#include "animation/blend_kernels.h"

static const BoneFactors& factorsOf(const BlendTask& task, uint32_t vertex) {
    return *reinterpret_cast<const BoneFactors*>(reinterpret_cast<const uint8_t*>(task.factors) +
                                                 task.factorOffsets[vertex]);
}

// The columns of a bone's matrix.
struct Columns {
    int16x4_t x, y, z;
};

static Columns columnsOf(const BoneFactors& factors) {
    const int16x4x2_t xy = vld2_s16(factors.xy[0]);
    return {xy.val[0], xy.val[1], vld2_s16(factors.z[0]).val[0]};
}

static int32x4_t sum(const int16_t* components, const Columns& columns, const int32_t* constants) {
    const int16x4_t vector = vld1_s16(components);
    int32x4_t sum = vld1q_s32(constants);
    sum = vmlal_lane_s16(sum, columns.x, vector, 0);
    sum = vmlal_lane_s16(sum, columns.y, vector, 1);
    return vmlal_lane_s16(sum, columns.z, vector, 2);
}

// Stores 8 bytes where 6 and 3 are meant; the next vertices write over the excess.
static uint32_t blendNeon(const BlendTask& shared) {
    const BlendTask task = shared;  // where no store can reach it
    constexpr uint32_t kReach = 3;  // vertices that the stores touch
    uint32_t v = 0;
    for (; v + kReach <= task.vertexCount; ++v) {
        const BoneFactors& factors = factorsOf(task, v);
        const Columns columns = columnsOf(factors);
        const RestPair& pair = task.rest[v / 2];
        const int32x4_t position = sum(pair.positions[v % 2], columns, factors.constants[0]);
        vst1_s16(task.positions + 3 * v, vshrn_n_s32(position, 12));
        if (!task.normals) continue;
        const int16x4_t normal = vshrn_n_s32(sum(pair.normals[v % 2], columns, factors.constants[1]), 16);
        vst1_s8(task.normals + 3 * v, vshrn_n_s16(vcombine_s16(normal, normal), 4));
    }
    return v;
}

static constexpr BlendKernel kKernels[] = {{"NEON", BoneFactors_compose, blendNeon},
                                           {"plain", BoneFactors_compose, blendNothing}};

std::span<const BlendKernel> BlendKernels_supported() { return kKernels; }

#endif
