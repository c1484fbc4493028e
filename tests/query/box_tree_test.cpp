#include "query/box_tree.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <span>
#include <vector>

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
