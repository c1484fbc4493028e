#include "query/box_tree.h"

#include <algorithm>
#include <array>

#include "query/space_order.h"

static uint32_t leavesOf(uint32_t triangleCount) { return (triangleCount + kBoxTreeLeafSize - 1) / kBoxTreeLeafSize; }

static uint32_t nodesOf(uint32_t triangleCount) { return 2 * leavesOf(triangleCount) - 1; }

size_t BoxTree_byteCount(uint32_t triangleCount) {
    return size_t(triangleCount) * sizeof(uint32_t) + size_t(nodesOf(triangleCount)) * sizeof(Box16);
}

size_t BoxTree_scratchByteCount(uint32_t triangleCount) { return SpaceOrder_scratchByteCount(triangleCount); }

BoxTree BoxTree_at(const void* block, uint32_t triangleCount) {
    const auto* order = static_cast<const uint32_t*>(block);
    return {triangleCount, leavesOf(triangleCount), reinterpret_cast<const Box16*>(order + triangleCount), order};
}

static Box16 boxOfLeaf(const Box16* boxes, const BoxTree& tree, uint32_t leaf) {
    const uint32_t first = leaf * kBoxTreeLeafSize;
    const uint32_t end = std::min(first + kBoxTreeLeafSize, tree.triangleCount);
    Box16 box = boxes[tree.order[first]];
    for (uint32_t i = first + 1; i < end; ++i) box = Box16_unite(box, boxes[tree.order[i]]);
    return box;
}

// From the last node to the first: children lie behind their parents.
static void fillNodes(const Box16* boxes, const BoxTree& tree, Box16* nodes) {
    std::array<BoxTreeNode, kBoxTreeMaxDepth> path;
    uint32_t depth = 0;
    BoxTreeNode node = BoxTree_root(tree);
    // Right subtrees before left ones, each node after both: the mirror image of the order in which they lie.
    for (;;) {
        while (node.leafCount > 1) {
            path[depth++] = node;
            node = BoxTree_right(node);
        }
        nodes[node.node] = boxOfLeaf(boxes, tree, node.firstLeaf);
        // Up, as long as the node that is done lies right behind its parent: it is the left child, the last of the two.
        while (depth > 0 && path[depth - 1].node + 1 == node.node) {
            node = path[--depth];
            nodes[node.node] = Box16_unite(nodes[BoxTree_left(node).node], nodes[BoxTree_right(node).node]);
        }
        if (depth == 0) return;
        node = BoxTree_left(path[depth - 1]);
    }
}

BoxTree BoxTree_build(const Box16* boxes, uint32_t triangleCount, void* block, void* scratch) {
    const BoxTree tree = BoxTree_at(block, triangleCount);
    auto* order = static_cast<uint32_t*>(block);
    SpaceOrder_sort(boxes, triangleCount, order, scratch);
    fillNodes(boxes, tree, reinterpret_cast<Box16*>(order + triangleCount));
    return tree;
}
