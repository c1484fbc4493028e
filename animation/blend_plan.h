// What vertex blending works out once per figure: which bones it needs and in what order, and the rest vertices in the
// layout of the kernels. Rest vertices and the hierarchy are fixed once a figure is built.
#pragma once

#include "animation/blend_kernels.h"
#include "scene/figure_mesh.h"

// One engine block. A slot is the place of a bone among the used ones; the slot after the last stands for no bone and
// leaves its vertices where they are.
struct BlendPlan {
    uint32_t vertexCount;
    uint32_t usedCount;
    uint16_t* usedBones;  // bones that own vertices and their ancestors, parents first
    uint32_t* slots;      // per bone, or kNoSlot
    // Per bone: how often its world transform was computed, and of which count of the parent's it was made. That tells
    // a stale transform whoever asked for the parent's, and when.
    uint32_t* versions;
    uint32_t* parentVersions;

    BlendKernel kernel;  // null where there is none
    RestPair* rest;
    uint32_t* factorOffsets;  // per vertex
    BoneFactors* factors;     // per slot
    uint8_t* wide;            // per slot: the matrix does not fit the kernels
    uint32_t wideCount;
};

constexpr uint32_t kNoSlot = 0xFFFFFFFF;

// For a figure with positions, bones and vertexBones, where -1 is no bone. Null when memory runs out.
BlendPlan* BlendPlan_create(const FigureMesh* figure);

// Gives the kernels a bone's new world transform.
void BlendPlan_setWorld(BlendPlan* plan, uint32_t bone, const Atrans3i* world);
