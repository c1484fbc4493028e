#include "query/pair_search.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "frame/wrap.h"
#include "query/box_tree.h"
#include "query/float4.h"
#include "query/triangle_crossing.h"

struct Candidate {
    CollisionBox box;
    uint32_t triangle;  // in the record
    bool isSet;         // its CrossTriangle
};

// The triangles of one record that reach into the other's box.
struct Candidates {
    const PlacedRecord* from;
    int32_t shift;
    uint32_t count;
    Candidate* list;
    CrossTriangle* triangles;  // one per candidate, set when first needed: most never are
    CollisionBox whole;
    CollisionWork* work;
};

// --- Choosing ---

static int32_t shifted(int32_t value, int32_t shift) { return shift >= 0 ? wrapShl(value, shift) : value >> -shift; }

// Shifting is monotonic: this is the box of the shifted triangle, too.
static CollisionBox shifted(const CollisionBox& box, int32_t shift) {
    CollisionBox out;
    for (int i = 0; i < 3; ++i) {
        out.least[i] = shifted(box.least[i], shift);
        out.greatest[i] = shifted(box.greatest[i], shift);
    }
    return out;
}

static CollisionBox boxAround(const PlacedRecord& from, uint32_t triangle) {
    const uint32_t* corners = from.corners[triangle];
    const int32_t *p = from.vertices[corners[0]], *q = from.vertices[corners[1]], *r = from.vertices[corners[2]];
    CollisionBox box;
    for (int i = 0; i < 3; ++i) {
        box.least[i] = std::min({p[i], q[i], r[i]});
        box.greatest[i] = std::max({p[i], q[i], r[i]});
    }
    return box;
}

// `list` must have room for all of the record's triangles.
static Candidates choose(const PlacedRecord& from, int32_t shift, const CollisionBox& target, CollisionWork* work,
                         Candidate* list) {
    Candidates chosen = {.from = &from,
                         .shift = shift,
                         .count = 0,
                         .list = list,
                         .triangles = nullptr,
                         .whole = kEmptyBox,
                         .work = work};
    work->steps += from.triangleCount / 8;
    for (uint32_t i = 0; i < from.triangleCount; ++i) {
        const CollisionBox box = shifted(boxAround(from, i), shift);
        if (!CollisionBox_overlap(box, target)) continue;
        list[chosen.count++] = {box, i, false};
        CollisionBox_unite(&chosen.whole, box);
    }
    return chosen;
}

// --- Pairs ---

// What it takes to prepare a triangle, and to find that two whose boxes overlap do not cross although every edge
// reaches the other's plane.
constexpr uint64_t kStepsPerTriangle = 2, kStepsPerCrossing = 3;
constexpr uint32_t kBoxTestsPerStep = 32;

static CrossTriangle* triangleAt(const Candidates& side, uint32_t i) {
    CrossTriangle* triangle = &side.triangles[i];
    Candidate* candidate = &side.list[i];
    if (candidate->isSet) return triangle;
    side.work->steps += kStepsPerTriangle;
    const uint32_t* corners = side.from->corners[candidate->triangle];
    for (int corner = 0; corner < 3; ++corner)
        for (int axis = 0; axis < 3; ++axis)
            triangle->corners[corner][axis] = shifted(side.from->vertices[corners[corner]][axis], side.shift);
    CrossTriangle_set(triangle);
    candidate->isSet = true;
    return triangle;
}

static bool pairCrosses(const Candidates& a, uint32_t i, const Candidates& b, uint32_t j) {
    if (!CollisionBox_overlap(a.list[i].box, b.list[j].box)) return false;
    a.work->steps += kStepsPerCrossing;
    return CrossTriangle_cross(triangleAt(a, i), triangleAt(b, j));
}

// Like searchTrees, false when there was too much to do.
static bool searchAllPairs(const Candidates& a, const Candidates& b, bool* out) {
    uint32_t tested = 0;
    for (uint32_t i = 0; i < a.count && !*out; ++i) {
        if (CollisionWork_isSpent(*a.work)) return false;
        tested += b.count;
        a.work->steps += tested / kBoxTestsPerStep;
        tested %= kBoxTestsPerStep;
        for (uint32_t j = 0; j < b.count && !*out; ++j) *out = pairCrosses(a, i, b, j);
    }
    return true;
}

// --- Trees ---

// Coordinates lose a bit to fit the tree; boxes that overlap still do.
static Box16 halved(const CollisionBox& box) {
    Box16 out;
    for (int i = 0; i < 3; ++i) {
        out.least[i] = int16_t(box.least[i] >> 1);
        out.greatest[i] = int16_t(box.greatest[i] >> 1);
    }
    return out;
}

using Long2 = int64_t __attribute__((vector_size(16)));

// Four of a box's six numbers, in the lower half.
static Short8 loadNumbers(const Box16& box, size_t first) {
    int64_t bits;
    std::memcpy(&bits, reinterpret_cast<const int16_t*>(&box) + first, sizeof bits);
    return Short8(Long2{bits, 0});
}

// All comparisons at once: which of them fails is as good as random.
static bool overlap(const Box16& a, const Box16& b) {
    static_assert(sizeof(Box16) == 6 * sizeof(int16_t));
    const Short8 leastA = loadNumbers(a, 0), leastB = loadNumbers(b, 0);
    const Short8 restA = loadNumbers(a, 2), restB = loadNumbers(b, 2);
    const Short8 greatestA = __builtin_shufflevector(restA, restA, 1, 2, 3, 0, 4, 5, 6, 7);
    const Short8 greatestB = __builtin_shufflevector(restB, restB, 1, 2, 3, 0, 4, 5, 6, 7);
    const Short8 apart = Short8(leastA > greatestB) | Short8(leastB > greatestA);
    return Long2(apart & Short8{-1, -1, -1, 0, 0, 0, 0, 0})[0] == 0;
}

// The boxes of a leaf's four triangles along each axis: where they begin, then where they end as a complement. Another
// box lies apart from a triangle's when on some axis one of the triangle's two numbers is greater than the other's
// opposite one.
struct LeafBoxes {
    int16_t bounds[3][2 * kBoxTreeLeafSize];
};
static_assert(sizeof(Short8) == sizeof LeafBoxes{}.bounds[0]);

struct CandidateTree {
    BoxTree tree;
    const LeafBoxes* leaves;
};

// Places that a leaf does not use lie apart from nearly everything.
static void setLeaves(LeafBoxes* leaves, const Candidates& side, const BoxTree& tree) {
    constexpr Box16 kEmpty = {{INT16_MAX, INT16_MAX, INT16_MAX}, {INT16_MIN, INT16_MIN, INT16_MIN}};
    for (uint32_t k = 0; k < tree.leafCount * kBoxTreeLeafSize; ++k) {
        const Box16 box = k < side.count ? halved(side.list[tree.order[k]].box) : kEmpty;
        LeafBoxes& leaf = leaves[k / kBoxTreeLeafSize];
        for (int axis = 0; axis < 3; ++axis) {
            leaf.bounds[axis][k % kBoxTreeLeafSize] = box.least[axis];
            leaf.bounds[axis][kBoxTreeLeafSize + k % kBoxTreeLeafSize] = int16_t(~box.greatest[axis]);
        }
    }
}

// A tree's bytes, and behind them those of the boxes and the scratch that it is made with, where its leaves lie then.
struct TreeBytes {
    uint64_t tree, boxes, scratch;
};

static TreeBytes treeBytesOf(const Candidates& side) {
    const uint64_t leaves = (uint64_t(side.count) / kBoxTreeLeafSize + 1) * sizeof(LeafBoxes);
    const uint64_t boxes = uint64_t(side.count) * sizeof(Box16);
    return {BoxTree_byteCount(side.count), boxes, std::max<uint64_t>(BoxTree_scratchByteCount(side.count), leaves)};
}

static uint64_t totalOf(const TreeBytes& bytes) { return bytes.tree + bytes.boxes + bytes.scratch; }

static CandidateTree makeTree(const Candidates& side, uint8_t* block) {
    const TreeBytes bytes = treeBytesOf(side);
    auto* boxes = reinterpret_cast<Box16*>(block + bytes.tree);
    for (uint32_t i = 0; i < side.count; ++i) boxes[i] = halved(side.list[i].box);
    uint8_t* scratch = block + bytes.tree + bytes.boxes;
    const BoxTree tree = BoxTree_build(boxes, side.count, block, scratch);
    auto* leaves = reinterpret_cast<LeafBoxes*>(scratch);
    setLeaves(leaves, side, tree);
    return {tree, leaves};
}

struct SearchSide {
    const Candidates& candidates;
    const CandidateTree& tree;
};

// Whether the box of a triangle of one leaf may overlap one of another leaf's.
static bool mayOverlap(const LeafBoxes& a, uint32_t place, const LeafBoxes& b) {
    Short8 apart = {};
    for (int axis = 0; axis < 3; ++axis) {
        const auto greatest = int16_t(~a.bounds[axis][kBoxTreeLeafSize + place]);
        const auto least = int16_t(~a.bounds[axis][place]);  // a complement, too
        Short8 bounds;
        std::memcpy(&bounds, b.bounds[axis], sizeof bounds);
        apart |= Short8(bounds > Short8{greatest, greatest, greatest, greatest, least, least, least, least});
    }
    const auto halves = Long2(apart);
    return (halves[0] | halves[1]) != -1;
}

static uint32_t leafEnd(const SearchSide& side, uint32_t leaf) {
    return std::min((leaf + 1) * kBoxTreeLeafSize, side.candidates.count);
}

static bool leavesCross(const SearchSide& a, uint32_t leafA, const SearchSide& b, uint32_t leafB) {
    ++a.candidates.work->steps;
    const uint32_t firstA = leafA * kBoxTreeLeafSize, firstB = leafB * kBoxTreeLeafSize;
    for (uint32_t i = firstA; i < leafEnd(a, leafA); ++i) {
        if (!mayOverlap(a.tree.leaves[leafA], i - firstA, b.tree.leaves[leafB])) continue;
        for (uint32_t j = firstB; j < leafEnd(b, leafB); ++j)
            if (pairCrosses(a.candidates, a.tree.tree.order[i], b.candidates, b.tree.tree.order[j])) return true;
    }
    return false;
}

// Goes down both trees at once, each time into the node with more below it. Pairs of nodes count as work too: of two
// contents that interlock, all may overlap down to the leaves, and no leaves.
static bool searchTrees(const SearchSide& a, const SearchSide& b, bool* out) {
    struct NodePair {
        BoxTreeNode a, b;
    };
    std::array<NodePair, 2 * kBoxTreeMaxDepth> open;  // every step down leaves one behind
    uint32_t openCount = 0, tested = 0;
    constexpr uint32_t kTestsPerStep = 8;
    NodePair pair = {BoxTree_root(a.tree.tree), BoxTree_root(b.tree.tree)};
    for (;;) {
        if (overlap(a.tree.tree.nodes[pair.a.node], b.tree.tree.nodes[pair.b.node])) {
            if (pair.a.leafCount > 1 && pair.a.leafCount >= pair.b.leafCount) {
                open[openCount++] = {BoxTree_right(pair.a), pair.b};
                pair.a = BoxTree_left(pair.a);
                continue;
            }
            if (pair.b.leafCount > 1) {
                open[openCount++] = {pair.a, BoxTree_right(pair.b)};
                pair.b = BoxTree_left(pair.b);
                continue;
            }
            *out = leavesCross(a, pair.a.firstLeaf, b, pair.b.firstLeaf);
        }
        if (*out || openCount == 0) return true;
        a.candidates.work->steps += ++tested % kTestsPerStep == 0;
        if (CollisionWork_isSpent(*a.candidates.work)) return false;
        pair = open[--openCount];
    }
}

// --- Both ways ---

// What searching needs besides the lists, in one block: the triangles of both sides, then the trees of both. Where one
// side has few triangles, looking at all pairs takes less time than trees; without memory for trees it has to do, too.
struct SearchMemory {
    uint8_t* block;  // null when memory ran out
    uint64_t triangleBytes;
    bool hasTrees;
};

static SearchMemory allocMemory(const Candidates& a, const Candidates& b, K8Allocator* allocator) {
    constexpr uint32_t kWorthTrees = 64;
    SearchMemory memory = {nullptr, (uint64_t(a.count) + b.count) * sizeof(CrossTriangle), false};
    if (std::min(a.count, b.count) >= kWorthTrees) {
        const uint64_t treeBytes = totalOf(treeBytesOf(a)) + totalOf(treeBytesOf(b));
        memory.block = static_cast<uint8_t*>(CollisionMemory_alloc(allocator, memory.triangleBytes + treeBytes));
        memory.hasTrees = memory.block;
    }
    if (!memory.block) memory.block = static_cast<uint8_t*>(CollisionMemory_alloc(allocator, memory.triangleBytes));
    return memory;
}

static bool searchWithTrees(const Candidates& a, const Candidates& b, uint8_t* block, bool* out) {
    a.work->steps += a.count + b.count;
    const CandidateTree treeA = makeTree(a, block), treeB = makeTree(b, block + totalOf(treeBytesOf(a)));
    return searchTrees({a, treeA}, {b, treeB}, out);
}

static CollisionResult search(Candidates* a, Candidates* b, K8Allocator* allocator, bool* out) {
    const SearchMemory memory = allocMemory(*a, *b, allocator);
    if (!memory.block) return CollisionResult::OutOfMemory;
    CollisionWork* work = a->work;
    const uint64_t allowed = kMinPairSteps + kPairStepsPerTriangle * (uint64_t(a->count) + b->count);
    work->limit = work->steps + std::min(allowed, kMaxPairSteps);
    a->triangles = reinterpret_cast<CrossTriangle*>(memory.block);
    b->triangles = a->triangles + a->count;
    const bool hasEnded = memory.hasTrees ? searchWithTrees(*a, *b, memory.block + memory.triangleBytes, out)
                                          : searchAllPairs(*a, *b, out);
    K8Allocator_free(allocator, memory.block);
    return hasEnded ? CollisionResult::Ok : CollisionResult::Failed;
}

CollisionResult PairSearch_run(const PlacedRecord& a, const PlacedRecord& b, int32_t shift, K8Allocator* allocator,
                               CollisionWork* work, bool* out) {
    *out = false;
    const uint64_t listBytes = (uint64_t(a.triangleCount) + b.triangleCount) * sizeof(Candidate);
    auto* list = static_cast<Candidate*>(CollisionMemory_alloc(allocator, listBytes));
    if (!list) return CollisionResult::OutOfMemory;
    CollisionResult result = CollisionResult::Ok;
    Candidates ofA = choose(a, shift, shifted(b.whole, shift), work, list);
    if (ofA.count > 0) {
        Candidates ofB = choose(b, shift, ofA.whole, work, list + ofA.count);
        if (ofB.count > 0) result = search(&ofA, &ofB, allocator, out);
    }
    K8Allocator_free(allocator, list);
    return result;
}
