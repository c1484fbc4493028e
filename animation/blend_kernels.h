// The inner loops of vertex blending. Every kernel gives the bits of the plain formula, in 32-bit wrap-around:
//   position r = ((m_r0 x + m_r1 y + m_r2 z + 2253) >> 12) + t_r, low 16 bits
//   normal r   =  (m_r0 a + m_r1 b + m_r2 c + 2253) >> 12,        low 8 bits
// They multiply 16-bit numbers in pairs, (x, y) with (m_r0, m_r1) and (z, 0) with (m_r2, anything), so the nine m must
// lie in -32768..32767. The constant is added before the shift as 2253 + (t_r << 12), which leaves the bits kept the same.
#pragma once

#include <cstdint>
#include <span>

#include "k8.h"

constexpr int32_t kBlendRounding = 2253;

// The rest vertices 2 i and 2 i + 1, four components each of which the last is 0. Normals are multiplied by 256: there
// the 8 bits of a result end where those of a position do, at bit 27.
struct alignas(32) RestPair {
    int16_t positions[2][4];
    int16_t normals[2][4];
};
constexpr int32_t kRestNormalScale = 256;

// A bone's matrix for a kernel: the factors of (x, y) and (z, 0) per row and what is added to the products, once for
// positions and once for normals. The fourth row is meaningless.
struct alignas(32) BoneFactors {
    int16_t xy[2][8];
    int16_t z[2][8];
    int32_t constants[2][4];
};

struct BlendTask {
    const RestPair* rest;
    const BoneFactors* factors;
    const uint32_t* factorOffsets;  // per vertex, in bytes
    uint32_t vertexCount;
    int16_t* positions;  // 3 per vertex
    int8_t* normals;     // 3 per vertex, or null
};

struct BlendKernel {
    const char* name;
    // world = parent local, or local where parent is null, and the factors of that. False when an entry does not fit
    // 16 bits; the factors are then without meaning.
    bool (*compose)(const Atrans3i* parent, const Atrans3i* local, Atrans3i* world, BoneFactors* factors);
    // Blends vertices from the first on and returns how many; the last few are left when whole vectors would reach past
    // the end of the output.
    uint32_t (*blend)(const BlendTask& task);
};

// The kernels that this machine can run, the fastest first; the last one composes by D_Atrans3i_multiply2 and blends
// nothing, which leaves all vertices to the formula.
std::span<const BlendKernel> BlendKernels_supported();

// `compose` without instructions of a particular machine.
bool BoneFactors_compose(const Atrans3i* parent, const Atrans3i* local, Atrans3i* world, BoneFactors* factors);
uint32_t blendNothing(const BlendTask& task);
