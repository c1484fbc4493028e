#include "query/ray_tree.h"

constexpr uint32_t kChildren = 4;

static uint32_t nodesOver(uint32_t count) { return count / kChildren + (count % kChildren != 0); }

uint32_t RayTree_nodeCount(uint32_t leafCount) {
    uint32_t total = 0, count = leafCount;
    do total += count = nodesOver(count);
    while (count > 1);
    return total;
}

RayTree RayTree_at(const RayTreeNode* nodes, uint32_t leafCount) {
    RayTree tree{};
    tree.nodes = nodes;
    for (uint32_t count = leafCount; tree.levelCount == 0 || count > 1; ++tree.levelCount) count = nodesOver(count);
    tree.count[tree.levelCount] = leafCount;
    for (uint32_t level = tree.levelCount; level-- > 0;) tree.count[level] = nodesOver(tree.count[level + 1]);
    for (uint32_t level = 1; level < tree.levelCount; ++level)
        tree.firstNode[level] = tree.firstNode[level - 1] + tree.count[level - 1];
    return tree;
}

static void setChild(RayTreeNode* node, uint32_t child, const Box16& box) {
    for (int axis = 0; axis < 3; ++axis) {
        node->bounds[0][axis][child] = box.least[axis];
        node->bounds[1][axis][child] = box.greatest[axis];
    }
}

static Box16 boxOf(const RayTreeNode& node) {
    Box16 box;
    for (int axis = 0; axis < 3; ++axis) {
        box.least[axis] = *std::min_element(node.bounds[0][axis], node.bounds[0][axis] + kChildren);
        box.greatest[axis] = *std::max_element(node.bounds[1][axis], node.bounds[1][axis] + kChildren);
    }
    return box;
}

// The last child stands in for those that a level's last node lacks.
void RayTree_build(const Box16* leaves, uint32_t leafCount, RayTreeNode* nodes) {
    const RayTree tree = RayTree_at(nodes, leafCount);
    for (uint32_t level = tree.levelCount; level-- > 0;) {
        RayTreeNode* const parents = nodes + tree.firstNode[level];
        const RayTreeNode* const below = parents + tree.count[level];
        const uint32_t last = tree.count[level + 1] - 1;
        for (uint32_t i = 0; i < tree.count[level] * kChildren; ++i) {
            const uint32_t child = std::min(i, last);
            setChild(&parents[i / kChildren], i % kChildren,
                     level + 1 == tree.levelCount ? leaves[child] : boxOf(below[child]));
        }
    }
}
