#include "animation/pose_kernels.h"

#include <array>

#include "animation/pose_kernel_avx2.h"
#include "frame/atrans3i.h"
#include "frame/fixed_point.h"

void TrackValues_apply(const TrackValues* values, const Atrans3i* rest, Atrans3i* out) {
    int32_t direction[3] = {values->direction[0], values->direction[1], values->direction[2]};
    normalizeFixedOrZ(direction);
    Atrans3i m;
    Atrans3i_setDirectionRollScale(&m, values->scale, direction, values->roll);
    for (int row = 0; row < 3; ++row) m.m[4 * row + 3] = values->translation[row];
    D_Atrans3i_multiply2(out, rest, &m);
}

static void poseScalar(const PoseBatch& batch) {
    for (uint32_t i = 0; i < batch.count; ++i) TrackValues_apply(&batch.values[i], batch.rest[i], batch.out[i]);
}

#if defined(__x86_64__) || defined(__i386__)
static constexpr std::array<PoseKernelChoice, 2> kKernels = {{{"AVX2", poseAvx2}, {"scalar", poseScalar}}};

std::span<const PoseKernelChoice> PoseKernels_supported() {
    const std::span all(kKernels);
    return __builtin_cpu_supports("avx2") ? all : all.last(1);
}
#else
static constexpr std::array<PoseKernelChoice, 1> kKernels = {{{"scalar", poseScalar}}};

std::span<const PoseKernelChoice> PoseKernels_supported() { return kKernels; }
#endif
