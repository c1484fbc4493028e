#include "query/box_tree.h"

#include <algorithm>
#include <array>
#include <bit>
#include <span>
#include <utility>

// A triangle's place along a curve that fills space.
struct PlacedTriangle {
    uint32_t place, triangle;
};

static uint32_t leavesOf(uint32_t triangleCount) { return (triangleCount + kBoxTreeLeafSize - 1) / kBoxTreeLeafSize; }

static uint32_t nodesOf(uint32_t triangleCount) { return 2 * leavesOf(triangleCount) - 1; }

size_t BoxTree_byteCount(uint32_t triangleCount) {
    return size_t(triangleCount) * sizeof(uint32_t) + size_t(nodesOf(triangleCount)) * sizeof(Box16);
}

size_t BoxTree_scratchByteCount(uint32_t triangleCount) { return 2 * size_t(triangleCount) * sizeof(PlacedTriangle); }

BoxTree BoxTree_at(const void* block, uint32_t triangleCount) {
    const auto* order = static_cast<const uint32_t*>(block);
    return {triangleCount, leavesOf(triangleCount), reinterpret_cast<const Box16*>(order + triangleCount), order};
}

// --- Places ---

constexpr int32_t kPlaceBits = 10;  // per coordinate

static Box16 unite(const Box16& a, const Box16& b) {
    Box16 box;
    for (int i = 0; i < 3; ++i) {
        box.least[i] = std::min(a.least[i], b.least[i]);
        box.greatest[i] = std::max(a.greatest[i], b.greatest[i]);
    }
    return box;
}

// Puts two zero bits before each of the ten lowest bits.
static constexpr uint32_t spread(uint32_t bits) {
    bits = (bits | bits << 16) & 0x030000FF;
    bits = (bits | bits << 8) & 0x0300F00F;
    bits = (bits | bits << 4) & 0x030C30C3;
    return (bits | bits << 2) & 0x09249249;
}

// The curve is Hilbert's, whose neighbours in order are neighbours in space: any stretch of it fits a close box. It
// goes through the eight octants of a cube, and within each in one of 24 orientations: the octant that it starts in
// (three bits, one per axis) and the axis along which it ends. Each step is the octant's number in that order, and
// how the curve is oriented within.
struct CurveStep {
    uint8_t number, orientation;
};
using CurveSteps = std::array<std::array<CurveStep, 8>, 24>;  // by orientation 3 start + axis, and octant

static constexpr uint32_t rotateLeft(uint32_t bits, uint32_t by) { return (bits << by | bits >> (3 - by)) & 7; }

static constexpr CurveSteps makeCurve() {
    CurveSteps steps{};
    for (uint32_t orientation = 0; orientation < 24; ++orientation)
        for (uint32_t number = 0; number < 8; ++number) {
            const uint32_t start = orientation / 3, turn = (orientation % 3 + 1) % 3;
            const uint32_t octant = start ^ rotateLeft(number ^ number >> 1, turn);  // Gray code: one axis at a time
            const uint32_t before = number == 0 ? 0 : (number - 1) & ~1u;
            const uint32_t innerStart = start ^ rotateLeft(before ^ before >> 1, turn);
            const uint32_t ones = uint32_t(std::countr_one(number % 2 == 1 || number == 0 ? number : number - 1));
            const uint32_t innerAxis = (orientation % 3 + ones + 1) % 3;
            steps[orientation][octant] = {uint8_t(number), uint8_t(3 * innerStart + innerAxis)};
        }
    return steps;
}

static constexpr CurveSteps kCurve = makeCurve();

// Where on the curve a cell is whose coordinates' bits come in turn.
static uint32_t placeOnCurve(uint32_t cell) {
    uint32_t place = 0, orientation = 0;
    for (int32_t shift = 3 * (kPlaceBits - 1); shift >= 0; shift -= 3) {
        const CurveStep step = kCurve[orientation][cell >> shift & 7];
        place = place << 3 | step.number;
        orientation = step.orientation;
    }
    return place;
}

static void placeTriangles(std::span<const Box16> boxes, PlacedTriangle* out) {
    Box16 all = boxes[0];
    for (const Box16& box : boxes) all = unite(all, box);
    // Centres are doubled. One step for all axes, so that cells are cubes.
    int32_t origin[3], extent = 0;
    for (int i = 0; i < 3; ++i) {
        origin[i] = 2 * all.least[i];
        extent = std::max(extent, 2 * (all.greatest[i] - all.least[i]));
    }
    const int32_t shift = std::max(int32_t(std::bit_width(uint32_t(extent))) - kPlaceBits, 0);
    for (uint32_t t = 0; t < boxes.size(); ++t) {
        uint32_t cell = 0;
        for (int i = 0; i < 3; ++i) {
            const int32_t center = boxes[t].least[i] + boxes[t].greatest[i];
            cell |= spread(uint32_t(center - origin[i]) >> shift) << i;
        }
        out[t] = {placeOnCurve(cell), t};
    }
}

// --- Order ---

constexpr uint32_t kDigitBits = 8, kDigitCount = 4;
using DigitCounts = std::array<uint32_t, 1 << kDigitBits>;

static uint32_t digitOf(uint32_t place, uint32_t digit) { return place >> (digit * kDigitBits) & 0xFF; }

// Sorts by place, byte by byte from the lowest; returns which of the two arrays has the outcome. Equal places keep
// their order, so that every build makes the same tree.
static const PlacedTriangle* sortByPlace(PlacedTriangle* triangles, PlacedTriangle* other, uint32_t count) {
    std::array<DigitCounts, kDigitCount> ends{};
    for (const PlacedTriangle& placed : std::span(triangles, count))
        for (uint32_t digit = 0; digit < kDigitCount; ++digit) ++ends[digit][digitOf(placed.place, digit)];
    for (uint32_t digit = 0; digit < kDigitCount; ++digit) {
        if (ends[digit][digitOf(triangles[0].place, digit)] == count) continue;  // all have the same
        uint32_t start = 0;
        for (uint32_t& entry : ends[digit]) start += std::exchange(entry, start);
        for (const PlacedTriangle& placed : std::span(triangles, count))
            other[ends[digit][digitOf(placed.place, digit)]++] = placed;
        std::swap(triangles, other);
    }
    return triangles;
}

// --- Nodes ---

static Box16 boxOfLeaf(const Box16* boxes, const BoxTree& tree, uint32_t leaf) {
    const uint32_t first = leaf * kBoxTreeLeafSize;
    const uint32_t end = std::min(first + kBoxTreeLeafSize, tree.triangleCount);
    Box16 box = boxes[tree.order[first]];
    for (uint32_t i = first + 1; i < end; ++i) box = unite(box, boxes[tree.order[i]]);
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
            nodes[node.node] = unite(nodes[BoxTree_left(node).node], nodes[BoxTree_right(node).node]);
        }
        if (depth == 0) return;
        node = BoxTree_left(path[depth - 1]);
    }
}

BoxTree BoxTree_build(const Box16* boxes, uint32_t triangleCount, void* block, void* scratch) {
    const BoxTree tree = BoxTree_at(block, triangleCount);
    auto* placed = static_cast<PlacedTriangle*>(scratch);
    placeTriangles({boxes, triangleCount}, placed);
    const PlacedTriangle* sorted = sortByPlace(placed, placed + triangleCount, triangleCount);
    auto* order = static_cast<uint32_t*>(block);
    for (uint32_t i = 0; i < triangleCount; ++i) order[i] = sorted[i].triangle;
    fillNodes(boxes, tree, reinterpret_cast<Box16*>(order + triangleCount));
    return tree;
}
