// What vertex blending works out once per figure: which bones it needs and in what order, and the rest vertices in the
// layout of the kernels. Rest vertices and the hierarchy are fixed once a figure is built.
#pragma once

#include "animation/blend_kernels.h"
#include "scene/figure_mesh.h"

// One engine block.
struct BlendPlan {
    uint32_t vertexCount;
    uint32_t usedCount;
    uint16_t* usedBones;  // bones that own vertices and their ancestors, parents first
    // Per bone: how often its world transform was computed, and of which count of the parent's it was made. That tells
    // a stale transform whoever asked for the parent's, and when.
    uint32_t* versions;
    uint32_t* parentVersions;

    const BlendKernel* kernel;
    RestPair* rest;
    uint32_t* factorOffsets;  // per vertex
    BoneFactors* factors;     // per bone; one more leaves the vertices of no bone where they are
    uint8_t* wide;            // per bone, and that one more: the matrix does not fit the kernels
    uint32_t wideCount;
};

// For a figure with positions, bones and vertexBones, where -1 is no bone. Null when memory runs out.
BlendPlan* BlendPlan_create(const FigureMesh* figure);
