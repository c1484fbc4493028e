// A binary tree of boxes over triangles, for finding those that another tree's may touch. Triangles that are near each
// other in space share a leaf; the tree is made in linear time and keeps no pointers, so it can be moved.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "query/box16.h"

constexpr uint32_t kBoxTreeLeafSize = 4;  // triangles per leaf; the last leaf may have fewer

// The nodes lie depth first: a node's left child is behind it, with half of the leaves, rounded up to a power of two;
// the right child is behind the left one's subtree.
struct BoxTree {
    uint32_t triangleCount;
    uint32_t leafCount;
    const Box16* nodes;     // 2 leafCount - 1; a box around everything below each
    const uint32_t* order;  // the numbers of the triangles, leaf by leaf
};

// The bytes of a tree, and of what making it needs besides, for triangleCount triangles; both are multiples of 4.
// A tree takes at most 10 bytes per triangle, and 6 more.
size_t BoxTree_byteCount(uint32_t triangleCount);
size_t BoxTree_scratchByteCount(uint32_t triangleCount);

// Makes the tree in `block` from one box per triangle, of which there must be at least one. Both blocks must be aligned
// for uint32_t and as large as the counts above say; `scratch` is free again afterwards.
BoxTree BoxTree_build(const Box16* boxes, uint32_t triangleCount, void* block, void* scratch);

// The same tree again from its block.
BoxTree BoxTree_at(const void* block, uint32_t triangleCount);

// --- Walking ---

struct BoxTreeNode {
    uint32_t node;
    uint32_t firstLeaf, leafCount;
};

constexpr uint32_t kBoxTreeMaxDepth = 32;  // nodes on the longest way down, which is what a walk's stack must hold

inline BoxTreeNode BoxTree_root(const BoxTree& tree) { return {0, 0, tree.leafCount}; }

// The two children of a node with more than one leaf.
inline uint32_t BoxTree_leftLeafCount(uint32_t leafCount) { return std::bit_ceil(leafCount) / 2; }
inline BoxTreeNode BoxTree_left(const BoxTreeNode& node) {
    return {node.node + 1, node.firstLeaf, BoxTree_leftLeafCount(node.leafCount)};
}
inline BoxTreeNode BoxTree_right(const BoxTreeNode& node) {
    const uint32_t left = BoxTree_leftLeafCount(node.leafCount);
    return {node.node + 2 * left, node.firstLeaf + left, node.leafCount - left};
}
