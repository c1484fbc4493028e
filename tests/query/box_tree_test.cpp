#include "query/box_tree.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <span>
#include <vector>

#include "query/ray_tree.h"

static Box16 randomBox(std::mt19937& random, int32_t extent) {
    std::uniform_int_distribution<int32_t> place(-extent, extent - 1), size(0, std::max(extent / 8, 1));
    Box16 box;
    for (int i = 0; i < 3; ++i) {
        box.least[i] = int16_t(place(random));
        box.greatest[i] = int16_t(std::min(box.least[i] + size(random), 32767));
    }
    return box;
}

static bool contains(const Box16& outer, const Box16& inner) {
    for (int i = 0; i < 3; ++i)
        if (inner.least[i] < outer.least[i] || inner.greatest[i] > outer.greatest[i]) return false;
    return true;
}

// The numbers below a node, all of which its box has to contain.
static std::vector<uint32_t> numbersBelow(const BoxTree& tree, const BoxTreeNode& node, const std::vector<Box16>& boxes,
                                          uint32_t depth) {
    EXPECT_LE(depth, kBoxTreeMaxDepth);
    std::vector<uint32_t> numbers;
    if (node.leafCount == 1) {
        const uint32_t first = node.firstLeaf * kBoxTreeLeafSize;
        numbers.assign(tree.order + first, tree.order + std::min(first + kBoxTreeLeafSize, tree.triangleCount));
    } else {
        EXPECT_LT(BoxTree_right(node).node, 2 * tree.leafCount - 1);
        numbers = numbersBelow(tree, BoxTree_left(node), boxes, depth + 1);
        for (const uint32_t number : numbersBelow(tree, BoxTree_right(node), boxes, depth + 1))
            numbers.push_back(number);
    }
    for (const uint32_t number : numbers) EXPECT_TRUE(contains(tree.nodes[node.node], boxes[number]));
    return numbers;
}

TEST(BoxTree, HoldsEveryTriangleOnceInAllItsBoxes) {
    std::mt19937 random(3);
    for (uint32_t count = 1; count < 300; count += count < 70 ? 1 : 23) {
        SCOPED_TRACE(count);
        std::vector<Box16> boxes;
        const int32_t extent = std::array{1, 100, 32768}[count % 3];  // the first: many in one place
        for (uint32_t i = 0; i < count; ++i) boxes.push_back(randomBox(random, extent));
        EXPECT_LE(BoxTree_byteCount(count), 10 * count + 6);
        std::vector<uint32_t> block(BoxTree_byteCount(count) / 4), scratch(BoxTree_scratchByteCount(count) / 4);
        const BoxTree tree = BoxTree_build(boxes.data(), count, block.data(), scratch.data());
        std::vector<uint32_t> numbers = numbersBelow(tree, BoxTree_root(tree), boxes, 1);
        std::ranges::sort(numbers);
        ASSERT_EQ(numbers.size(), count);
        for (uint32_t i = 0; i < count; ++i) EXPECT_EQ(numbers[i], i);
        for (const Box16& node : std::span(tree.nodes, 2 * tree.leafCount - 1))
            EXPECT_TRUE(contains(tree.nodes[0], node));
    }
}

// A ray that passes a leaf's box passes all boxes above it.
TEST(RayTree, FindsTheLeavesThatARayPasses) {
    std::mt19937 random(4);
    std::uniform_real_distribution<float> place(-40000, 40000);
    for (const uint32_t leafCount : {1, 3, 4, 5, 16, 17, 64, 65, 257, 1000}) {
        SCOPED_TRACE(leafCount);
        std::vector<Box16> leaves;
        for (uint32_t i = 0; i < leafCount; ++i) leaves.push_back(randomBox(random, 32768));
        std::vector<RayTreeNode> nodes(RayTree_nodeCount(leafCount));
        RayTree_build(leaves.data(), leafCount, nodes.data());
        const RayTree tree = RayTree_at(nodes.data(), leafCount);
        EXPECT_EQ(tree.firstNode[tree.levelCount - 1] + tree.count[tree.levelCount - 1], nodes.size());
        for (int ray = 0; ray < 50; ++ray) {
            RaySlabs slabs;
            float origin[3], inverse[3];
            for (int i = 0; i < 3; ++i) {
                origin[i] = place(random);
                inverse[i] = 1 / place(random);
                slabs.nearOrigin[i] = slabs.farOrigin[i] = Float4_ofOne(origin[i]);
                slabs.inverse[i] = Float4_ofOne(inverse[i]);
                slabs.nearSide[i] = inverse[i] < 0;
            }
            std::vector<uint32_t> expected, found = {0};
            for (uint32_t leaf = 0; leaf < leafCount; ++leaf) {
                float in = 0, out = INFINITY;
                for (int i = 0; i < 3; ++i) {
                    const float a = (float(leaves[leaf].least[i]) - origin[i]) * inverse[i];
                    const float b = (float(leaves[leaf].greatest[i]) - origin[i]) * inverse[i];
                    in = std::max(in, std::min(a, b));
                    out = std::min(out, std::max(a, b));
                }
                if (in <= out) expected.push_back(leaf);
            }
            for (uint32_t level = 0; level < tree.levelCount; ++level) {
                std::vector<uint32_t> below;
                for (const uint32_t node : found) {
                    const uint32_t passed = RayTreeNode_childrenPassed(tree.nodes[tree.firstNode[level] + node], slabs);
                    for (uint32_t c = 0; c < 4 && 4 * node + c < tree.count[level + 1]; ++c)
                        if (passed >> c & 1) below.push_back(4 * node + c);
                }
                found = below;
            }
            EXPECT_EQ(found, expected);
        }
    }
}
