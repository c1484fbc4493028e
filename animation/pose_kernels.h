// Turns what tracks say into bone transforms: normalises the direction, builds the rotation, applies roll and scale,
// and multiplies with the rest transform.
#pragma once

#include <span>

#include "animation/action_track.h"

// out = rest M.
void TrackValues_apply(const TrackValues* values, const Atrans3i* rest, Atrans3i* out);

// Bones that are posed together.
constexpr uint32_t kPoseBatchSize = 8;
struct PoseBatch {
    alignas(32) TrackValues values[kPoseBatchSize];
    const Atrans3i* rest[kPoseBatchSize];
    Atrans3i* out[kPoseBatchSize];
    uint32_t count;
};

// Does for the bones of a batch what TrackValues_apply does, with the same bits.
using PoseKernel = void (*)(const PoseBatch& batch);

struct PoseKernelChoice {
    const char* name;
    PoseKernel kernel;
};

// The kernels that this machine can run, the fastest first and TrackValues_apply in a loop last.
std::span<const PoseKernelChoice> PoseKernels_supported();
