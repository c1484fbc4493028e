#include "query/pair_search.h"

#include <array>

#include "frame/wrap.h"
#include "query/box_tree.h"
#include "query/triangle_crossing.h"

// The triangles of one record that reach into the other's box.
struct Candidates {
    const PlacedRecord* from;
    int32_t shift;
    uint32_t count;
    CollisionBox* boxes;
    CrossTriangle* triangles;  // set when first needed
    uint32_t* numbers;         // in the record
    CollisionBox whole;
    void* block;  // holds the arrays
};

// --- Choosing ---

static int32_t shifted(int32_t value, int32_t shift) { return shift >= 0 ? wrapShl(value, shift) : value >> -shift; }

// Shifting is monotonic, so this is also the box of the shifted triangles.
static CollisionBox shifted(const CollisionBox& box, int32_t shift) {
    CollisionBox out;
    for (int i = 0; i < 3; ++i) {
        out.least[i] = shifted(box.least[i], shift);
        out.greatest[i] = shifted(box.greatest[i], shift);
    }
    return out;
}

static uint32_t countReaching(const PlacedRecord& from, int32_t shift, const CollisionBox& target) {
    uint32_t count = 0;
    for (uint32_t i = 0; i < from.triangleCount; ++i)
        count += CollisionBox_overlap(shifted(from.boxes[i], shift), target);
    return count;
}

// False when memory runs out.
static bool choose(Candidates* chosen, const PlacedRecord& from, int32_t shift, const CollisionBox& target,
                   K8Allocator* allocator) {
    *chosen = {};
    chosen->from = &from;
    chosen->shift = shift;
    chosen->whole = kEmptyBox;
    const uint32_t count = countReaching(from, shift, target);
    if (count == 0) return true;
    constexpr uint64_t kBytesPerTriangle = sizeof(CollisionBox) + sizeof(CrossTriangle) + sizeof(uint32_t);
    chosen->block = K8Allocator_alloc(allocator, count * kBytesPerTriangle);
    if (!chosen->block) return false;
    chosen->boxes = static_cast<CollisionBox*>(chosen->block);
    chosen->triangles = reinterpret_cast<CrossTriangle*>(chosen->boxes + count);
    chosen->numbers = reinterpret_cast<uint32_t*>(chosen->triangles + count);
    for (uint32_t i = 0; i < from.triangleCount; ++i) {
        const CollisionBox box = shifted(from.boxes[i], shift);
        if (!CollisionBox_overlap(box, target)) continue;
        CollisionBox_unite(&chosen->whole, box);
        chosen->boxes[chosen->count] = box;
        chosen->numbers[chosen->count++] = i;
    }
    return true;
}

// --- Pairs ---

static CrossTriangle* triangleAt(const Candidates& side, uint32_t i) {
    CrossTriangle* triangle = &side.triangles[i];
    if (triangle->isSet) return triangle;
    const uint32_t* corners = side.from->corners[side.numbers[i]];
    for (int corner = 0; corner < 3; ++corner)
        for (int axis = 0; axis < 3; ++axis)
            triangle->corners[corner][axis] = shifted(side.from->vertices[corners[corner]][axis], side.shift);
    CrossTriangle_set(triangle);
    return triangle;
}

static bool pairCrosses(const Candidates& a, uint32_t i, const Candidates& b, uint32_t j) {
    return CollisionBox_overlap(a.boxes[i], b.boxes[j]) && CrossTriangle_cross(triangleAt(a, i), triangleAt(b, j));
}

static bool searchAllPairs(const Candidates& a, const Candidates& b) {
    for (uint32_t i = 0; i < a.count; ++i)
        for (uint32_t j = 0; j < b.count; ++j)
            if (pairCrosses(a, i, b, j)) return true;
    return false;
}

// --- Tree ---

// Coordinates lose a bit to fit the tree; boxes that overlap still do.
static Box16 halved(const CollisionBox& box) {
    Box16 out;
    for (int i = 0; i < 3; ++i) {
        out.least[i] = int16_t(box.least[i] >> 1);
        out.greatest[i] = int16_t(box.greatest[i] >> 1);
    }
    return out;
}

static bool overlap(const Box16& a, const Box16& b) {
    for (int i = 0; i < 3; ++i)
        if (a.least[i] > b.greatest[i] || b.least[i] > a.greatest[i]) return false;
    return true;
}

struct CandidateTree {
    void* block;
    BoxTree tree;
};

// The block is null when memory runs out.
static CandidateTree makeTree(const Candidates& side, K8Allocator* allocator) {
    CandidateTree made = {};
    const size_t boxBytes = size_t(side.count) * sizeof(Box16);
    auto* scratch =
        static_cast<uint8_t*>(K8Allocator_alloc(allocator, boxBytes + uint64_t(BoxTree_scratchByteCount(side.count))));
    made.block = scratch ? K8Allocator_alloc(allocator, BoxTree_byteCount(side.count)) : nullptr;
    if (made.block) {
        auto* boxes = reinterpret_cast<Box16*>(scratch);
        for (uint32_t i = 0; i < side.count; ++i) boxes[i] = halved(side.boxes[i]);
        made.tree = BoxTree_build(boxes, side.count, made.block, scratch + boxBytes);
    }
    K8Allocator_free(allocator, scratch);
    return made;
}

static bool leafCrosses(const Candidates& a, uint32_t i, const Candidates& b, const BoxTree& tree, uint32_t leaf) {
    const uint32_t first = leaf * kBoxTreeLeafSize;
    const uint32_t end = std::min(first + kBoxTreeLeafSize, tree.triangleCount);
    for (uint32_t k = first; k < end; ++k)
        if (pairCrosses(a, i, b, tree.order[k])) return true;
    return false;
}

// Whether triangle i of `a` crosses one of `b`, over which the tree is.
static bool searchTree(const Candidates& a, uint32_t i, const Candidates& b, const BoxTree& tree) {
    const Box16 box = halved(a.boxes[i]);
    std::array<BoxTreeNode, kBoxTreeMaxDepth> open;
    uint32_t openCount = 0;
    BoxTreeNode node = BoxTree_root(tree);
    for (;;) {
        if (overlap(tree.nodes[node.node], box)) {
            if (node.leafCount > 1) {
                open[openCount++] = BoxTree_right(node);
                node = BoxTree_left(node);
                continue;
            }
            if (leafCrosses(a, i, b, tree, node.firstLeaf)) return true;
        }
        if (openCount == 0) return false;
        node = open[--openCount];
    }
}

// Where one side has few triangles, looking at all pairs takes less time than a tree; without memory for the tree it has
// to do as well.
static bool searchPairs(const Candidates& few, const Candidates& many, K8Allocator* allocator) {
    constexpr uint32_t kWorthTree = 64;
    if (few.count < kWorthTree) return searchAllPairs(few, many);
    const CandidateTree made = makeTree(many, allocator);
    if (!made.block) return searchAllPairs(few, many);
    bool found = false;
    for (uint32_t i = 0; i < few.count && !found; ++i) found = searchTree(few, i, many, made.tree);
    K8Allocator_free(allocator, made.block);
    return found;
}

CollisionResult PairSearch_run(const PlacedRecord& a, const PlacedRecord& b, int32_t shift, K8Allocator* allocator,
                               bool* out) {
    *out = false;
    Candidates ofA, ofB = {};
    bool hasMemory = choose(&ofA, a, shift, shifted(b.whole, shift), allocator);
    if (hasMemory && ofA.count > 0) hasMemory = choose(&ofB, b, shift, ofA.whole, allocator);
    if (hasMemory && ofB.count > 0)
        *out = ofA.count < ofB.count ? searchPairs(ofA, ofB, allocator) : searchPairs(ofB, ofA, allocator);
    K8Allocator_free(allocator, ofA.block);
    K8Allocator_free(allocator, ofB.block);
    return hasMemory ? CollisionResult::Ok : CollisionResult::OutOfMemory;
}
