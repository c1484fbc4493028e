#include "query/pick_tree.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <span>

#include "query/kept_pick.h"
#include "query/pick_reach.h"
#include "query/pick_walk.h"
#include "query/quiet_status.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

constexpr uint32_t kPicksBeforeTree = 16;  // making it takes as long as 20 to 30 walks
constexpr uint32_t kFewTriangles = 256;    // walking so many takes no longer

// --- What it is kept for ---

static std::span<TriangleStripArray* const> stripsOf(const Pick* pick) {
    return {pick->mesh->indexBuffers, size_t(pick->mesh->submeshCount)};
}

// Distinct for all practical purposes; who follows numbers to triangles compares all contents.
static uint64_t keyOf(const Pick* pick) {
    uint64_t key = pick->buffer->positions->contents;
    for (const TriangleStripArray* strips : stripsOf(pick)) {
        key = (key ^ strips->contents) * 0x9E3779B97F4A7C15u;
        key ^= key >> 32;
    }
    return key;
}

static bool hasSameTriangles(KeptPick* kept, const Pick* pick) {
    return std::ranges::equal(std::span(KeptPick_parts(kept).submeshes, kept->submeshCount), stripsOf(pick),
                              [](const KeptSubmesh& submesh, const TriangleStripArray* strips) {
                                  return submesh.contents == strips->contents;
                              });
}

static uint64_t countTriangles(const Pick* pick) {
    uint64_t count = 0;
    for (const TriangleStripArray* strips : stripsOf(pick))
        count += uint32_t(qelTriangleStripArray_getTriangleCount(strips));
    return count;
}

// More triangles than that over few vertices, such as submeshes that share strips have, come in no proportion to the
// content that asks for their tree.
constexpr uint64_t kMaxTrianglesPerVertex = 8, kMoreTriangles = 1024;

static bool canHaveTree(const Pick* pick) {
    const int32_t vertexCount = pick->buffer->positions->vertexCount;
    // With a bad index it would matter what comes first, that or a hit.
    return countTriangles(pick) <= kMaxTrianglesPerVertex * uint32_t(vertexCount) + kMoreTriangles &&
           std::ranges::all_of(stripsOf(pick), [vertexCount](const TriangleStripArray* strips) {
               return TriangleRuns_fit(strips, vertexCount);
           });
}

// --- Counting ---

static void replace(VertexArray* positions, KeptPick* kept) {
    qelFree(positions->pickTree);
    positions->pickTree = kept;
}

// One block serves all meshes over the same positions. It is for the one that is picked more than all others together:
// a pick of another takes from its credit, and counts for the other when there is none left.
static void countOther(const Pick* pick, uint64_t key) {
    auto* kept = static_cast<KeptPick*>(pick->buffer->positions->pickTree);
    if (countTriangles(pick) < kFewTriangles) return;
    if (kept && kept->credit > 0) {
        --kept->credit;
        return;
    }
    auto* counter = qelAllocArrayOf<KeptPick>(1);
    if (!counter) return;
    *counter = {key, KeptState::Counting, 1, 0, 0, 0};
    replace(pick->buffer->positions, counter);
}

static void count(const Pick* pick) {
    const QuietStatus quiet;
    VertexArray* positions = pick->buffer->positions;
    auto* kept = static_cast<KeptPick*>(positions->pickTree);
    const uint64_t key = keyOf(pick);
    if (!kept || kept->key != key) {
        countOther(pick, key);
    } else if (kept->state != KeptState::Counting) {
        if (kept->state == KeptState::Tree) kept->credit = std::min(kept->credit + 1, kPicksBeforeTree);
    } else if (kept->credit < kPicksBeforeTree) {
        ++kept->credit;
    } else if (!canHaveTree(pick)) {
        kept->state = KeptState::Refused;
    } else if (KeptPick* made = KeptPick_make(pick, key, uint32_t(countTriangles(pick)))) {
        made->credit = kPicksBeforeTree;
        replace(positions, made);
    } else {
        kept->credit = 0;  // it is tried again after as many picks
    }
}

// --- Asking the tree ---

static RaySlabs slabsOf(const PickReach& reach, const PickRay& ray) {
    // An axis along which the ray moves less than the slack allows for counts as one along which it moves that much.
    constexpr float kLeastPart = 0x1p-24f, kUnitsPerStep = float(1 / kStepsPerBoxUnit);
    const float d[] = {ray.direction.x / reach.step, ray.direction.y / reach.step, ray.direction.z / reach.step};
    const float least = kLeastPart * std::max({std::fabs(d[0]), std::fabs(d[1]), std::fabs(d[2])});
    RaySlabs slabs;
    for (int i = 0; i < 3; ++i) {
        const float inverse = 1 / (std::fabs(d[i]) < least ? least : d[i]);
        const float slack = inverse < 0 ? -reach.slack : reach.slack;
        slabs.nearSide[i] = inverse < 0;
        slabs.nearOrigin[i] = Float4_ofOne((reach.origin[i] + slack) * kUnitsPerStep);
        slabs.farOrigin[i] = Float4_ofOne((reach.origin[i] - slack) * kUnitsPerStep);
        slabs.inverse[i] = Float4_ofOne(inverse);
    }
    return slabs;
}

// The hits of one pick; they have to be found first and taken in order then.
struct Hit {
    uint32_t number;
    PickTriangle triangle;
};

struct Search {
    Pick* pick;
    KeptParts parts;
    uint32_t submeshCount;
    uint32_t hitCount;
    std::array<Hit, 256> hits;
};

static int32_t submeshOf(const Search& search, uint32_t number) {
    const std::span submeshes(search.parts.submeshes, search.submeshCount);
    return int32_t(std::ranges::upper_bound(submeshes, number, {}, &KeptSubmesh::firstTriangle) - submeshes.begin()) -
           1;
}

// Up to where the triangles of a submesh go.
static uint32_t endOf(const Search& search, int32_t submesh) {
    const uint32_t next = uint32_t(submesh) + 1;
    return next < search.submeshCount ? search.parts.submeshes[next].firstTriangle : UINT32_MAX;
}

// Bit by bit which triangles of a leaf are hit. Culling goes by submesh: most often there is one for all four.
static uint32_t hitsOf(const Search& search, const KeptLeaf& leaf) {
    uint32_t hits = 0;
    for (uint32_t left = 15; left != 0;) {
        const uint32_t number = leaf.numbers[std::countr_zero(left)];
        const int32_t submesh = submeshOf(search, number);
        const uint32_t first = search.parts.submeshes[submesh].firstTriangle, end = endOf(search, submesh);
        uint32_t alike = 0;
        for (uint32_t k = 0; k < 4; ++k) alike |= uint32_t(leaf.numbers[k] >= first && leaf.numbers[k] < end) << k;
        left &= ~alike;
        const Appearance* appearance = search.pick->mesh->appearances[submesh];
        if (appearance) hits |= alike & PickTriangle_hitsOfFour(search.pick, PickCulling_of(appearance), leaf.corners);
    }
    return hits;
}

// False when there are too many hits.
static bool tryLeaf(Search* search, const KeptLeaf& leaf) {
    for (uint32_t hits = hitsOf(*search, leaf); hits != 0; hits &= hits - 1) {
        if (search->hitCount == search->hits.size()) return false;
        const int k = std::countr_zero(hits);
        const PickTriangle triangle = {submeshOf(*search, leaf.numbers[k]),
                                       {leaf.corners[0][k], leaf.corners[1][k], leaf.corners[2][k]}};
        search->hits[search->hitCount++] = {leaf.numbers[k], triangle};
    }
    return true;
}

// Nodes and leaves that the ray passes wait for each other, so that all are on their way from memory while others are
// looked at. Nodes are taken eight at a time from the lowest level that any wait on: so no more wait on a level than
// the children of eight.
constexpr uint32_t kGroup = 8;

struct WaitingNode {
    uint32_t level, index;
};

struct Waiting {
    uint32_t nodeCount, leafCount;
    std::array<WaitingNode, kRayTreeMaxLevels * 4 * kGroup> nodes;  // those on lower levels last
    std::array<uint32_t, 2 * 4 * kGroup> leaves;
};

static void prefetch(const void* first, size_t byteCount) {
    const auto* bytes = static_cast<const uint8_t*>(first);
    __builtin_prefetch(bytes);
    __builtin_prefetch(bytes + byteCount - 1);
}

static void addNodes(Waiting* waiting, const RayTree& tree, uint32_t level, std::span<const uint32_t> indices) {
    for (const uint32_t index : indices) {
        prefetch(&tree.nodes[tree.firstNode[level] + index], sizeof(RayTreeNode));
        waiting->nodes[waiting->nodeCount++] = {level, index};
    }
}

static void addLeaves(Waiting* waiting, const Search& search, std::span<const uint32_t> leaves) {
    for (const uint32_t leaf : leaves) {
        prefetch(&search.parts.boxed[leaf], sizeof(KeptLeaf));
        waiting->leaves[waiting->leafCount++] = leaf;
    }
}

static void prefetchPositions(const Search& search, const KeptLeaf& leaf) {
    const VertexArray* positions = search.pick->buffer->positions;
    const auto* data = static_cast<const uint8_t*>(positions->data);
    for (const auto& corners : leaf.corners)
        for (const uint16_t vertex : corners)
            __builtin_prefetch(data + size_t(vertex) * 3 * size_t(positions->componentSize));
}

static bool tryLeaves(Search* search, Waiting* waiting) {
    const std::span leaves(waiting->leaves.data(), waiting->leafCount);
    waiting->leafCount = 0;
    for (const uint32_t leaf : leaves) prefetchPositions(*search, search->parts.boxed[leaf]);
    return std::ranges::all_of(leaves, [&](uint32_t leaf) { return tryLeaf(search, search->parts.boxed[leaf]); });
}

// The children of a node that the ray passes, at the beginning of an array.
static uint32_t findChildren(const RayTree& tree, const RaySlabs& slabs, const WaitingNode& node, uint32_t (&out)[4]) {
    uint32_t passed = RayTreeNode_childrenPassed(tree.nodes[tree.firstNode[node.level] + node.index], slabs);
    const uint32_t present = tree.count[node.level + 1] - 4 * node.index;
    if (present < 4) passed &= (1u << present) - 1;
    uint32_t count = 0;
    for (uint32_t child = 0; child < 4; ++child) {  // without branches, which nobody could foretell
        out[count] = 4 * node.index + child;
        count += passed >> child & 1;
    }
    return count;
}

// False when the ray passes too much.
static bool searchTree(Search* search, const RayTree& tree, const RaySlabs& slabs) {
    uint32_t leavesLeft = tree.count[tree.levelCount] / 8 + 16;  // testing more takes as long as walking
    Waiting waiting;
    waiting.leafCount = 0;
    waiting.nodeCount = 1;
    waiting.nodes[0] = {0, 0};
    while (waiting.nodeCount > 0) {
        std::array<WaitingNode, kGroup> group;
        const uint32_t groupCount = std::min(waiting.nodeCount, kGroup);
        waiting.nodeCount -= groupCount;
        std::copy_n(waiting.nodes.data() + waiting.nodeCount, groupCount, group.data());
        for (const WaitingNode& node : std::span(group.data(), groupCount)) {
            uint32_t found[4];
            const std::span children(found, findChildren(tree, slabs, node, found));
            if (node.level + 1 < tree.levelCount) {
                addNodes(&waiting, tree, node.level + 1, children);
                continue;
            }
            if (children.size() > leavesLeft) return false;
            leavesLeft -= uint32_t(children.size());
            addLeaves(&waiting, *search, children);
        }
        if (waiting.leafCount > waiting.leaves.size() - 4 * kGroup && !tryLeaves(search, &waiting)) return false;
    }
    return tryLeaves(search, &waiting);
}

static bool tryWild(Search* search, uint32_t wildCount) {
    return std::ranges::all_of(std::span(search->parts.wild, KeptLeaf_countFor(wildCount)),
                               [search](const KeptLeaf& leaf) { return tryLeaf(search, leaf); });
}

static void takeHits(Search* search) {
    const std::span hits(search->hits.data(), search->hitCount);
    std::ranges::sort(hits, {}, &Hit::number);
    for (size_t i = 0; i < hits.size(); ++i) {
        if (i > 0 && hits[i].number == hits[i - 1].number) continue;  // of a leaf that repeats a triangle
        Vector3<float> hitPoint;
        PickTriangle_isHit(search->pick, PickCulling::None, hits[i].triangle, &hitPoint);
        if (!Pick_takeHit(search->pick, hits[i].triangle, hitPoint)) return;
    }
}

bool PickTree_pick(Pick* pick) {
    count(pick);
    auto* kept = static_cast<KeptPick*>(pick->buffer->positions->pickTree);
    PickReach reach;
    if (!kept || kept->state != KeptState::Tree || !hasSameTriangles(kept, pick) ||
        !PickReach_of(pick->buffer, pick->ray, &reach))
        return false;
    Search search;
    search.pick = pick;
    search.parts = KeptPick_parts(kept);
    search.submeshCount = kept->submeshCount;
    search.hitCount = 0;
    const RayTree tree = RayTree_at(search.parts.nodes, KeptLeaf_countFor(kept->boxedCount));
    if (!tryWild(&search, kept->wildCount) || !searchTree(&search, tree, slabsOf(reach, pick->ray))) return false;
    takeHits(&search);
    return true;
}
