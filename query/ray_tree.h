// A tree of boxes for finding those that a ray passes: four to a node, so that they are tested at once.
//
// The nodes lie level by level from the root on. Child c of node i of a level is node 4 i + c of the level below, and
// on the last level leaf 4 i + c. That keeps no pointers, so a tree can be moved.
#pragma once

#include "query/box16.h"
#include "query/float4.h"

struct RayTreeNode {
    int16_t bounds[2][3][4];  // least and greatest coordinates, by axis, of the boxes of four children
};

constexpr uint32_t kRayTreeMaxLevels = 16;  // for any number of leaves

struct RayTree {
    const RayTreeNode* nodes;
    uint32_t levelCount;
    uint32_t firstNode[kRayTreeMaxLevels];  // of each level
    uint32_t count[kRayTreeMaxLevels + 1];  // of the nodes of each level, and of the leaves
};

uint32_t RayTree_nodeCount(uint32_t leafCount);

// The tree in a block of RayTree_nodeCount nodes, with at least one leaf, and the making of it from the boxes of all
// leaves.
RayTree RayTree_at(const RayTreeNode* nodes, uint32_t leafCount);
void RayTree_build(const Box16* leaves, uint32_t leafCount, RayTreeNode* nodes);

// --- Walking ---

// A ray as the boxes see it, in their units: it is between the two planes of an axis from (bounds[nearSide] -
// nearOrigin) x inverse until (bounds[1 - nearSide] - farOrigin) x inverse. The two origins differ by the slack that
// moves planes out.
struct RaySlabs {
    Float4 nearOrigin[3], farOrigin[3];
    Float4 inverse[3];  // of the direction; finite
    uint32_t nearSide[3];
};

// For each of the four children, bit by bit, whether a ray passes its box at a time of at least 0.
inline uint32_t RayTreeNode_childrenPassed(const RayTreeNode& node, const RaySlabs& slabs) {
    Float4 in = {}, out;
    for (int axis = 0; axis < 3; ++axis) {
        const uint32_t side = slabs.nearSide[axis];
        const Float4 near = Float4_loadShorts(node.bounds[side][axis]);
        const Float4 far = Float4_loadShorts(node.bounds[1 - side][axis]);
        in = Float4_max(in, (near - slabs.nearOrigin[axis]) * slabs.inverse[axis]);
        const Float4 end = (far - slabs.farOrigin[axis]) * slabs.inverse[axis];
        out = axis == 0 ? end : Float4_min(out, end);
    }
    return laneBits(in <= out);
}
