#include "query/pick_tree.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <span>

#include "query/box_tree.h"
#include "query/pick_reach.h"
#include "query/pick_walk.h"
#include "query/quiet_status.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

constexpr uint32_t kPicksBeforeTree = 16;  // making it takes as long as 20 to 30 walks
constexpr uint32_t kFewTriangles = 256;    // walking so many takes no longer
constexpr uint32_t kMaxBytesPerTriangle = 16;
constexpr uint32_t kMaxWild = 256;

// --- What is kept ---

enum class KeptState : uint32_t { Counting, Tree, Refused };

// The block in VertexArray::pickTree. A tree goes on with
//   KeptSubmesh[submeshCount], the numbers of wild triangles, the nodes and numbers of a BoxTree over the others.
struct KeptPick {
    uint64_t key;  // of the positions and all triangles
    KeptState state;
    uint32_t credit;  // up to kPicksBeforeTree: picks of these triangles less those of others, none below 0
    uint32_t submeshCount, wildCount, boxedCount;
};

struct KeptSubmesh {
    uint64_t contents;
    uint32_t firstPlace;
};

// A triangle's number is twice its place, plus 1 when it swaps two corners. Places go up by one per triangle of a list,
// and per vertex of a strip, so that they tell the first vertex; in both forms the numbers are in walk order.
constexpr uint64_t kMaxPlace = INT32_MAX;

static std::span<TriangleStripArray* const> stripsOf(const Pick* pick) {
    return {pick->mesh->indexBuffers, size_t(pick->mesh->submeshCount)};
}

static std::span<const KeptSubmesh> submeshesOf(const KeptPick* kept) {
    return {reinterpret_cast<const KeptSubmesh*>(kept + 1), kept->submeshCount};
}

static std::span<const uint32_t> wildOf(const KeptPick* kept) {
    return {reinterpret_cast<const uint32_t*>(submeshesOf(kept).data() + kept->submeshCount), kept->wildCount};
}

static BoxTree treeOf(const KeptPick* kept) {
    return BoxTree_at(wildOf(kept).data() + kept->wildCount, kept->boxedCount);
}

static size_t bytesOf(const KeptPick& kept) {
    return sizeof kept + kept.submeshCount * sizeof(KeptSubmesh) + kept.wildCount * sizeof(uint32_t) +
           BoxTree_byteCount(kept.boxedCount);
}

// Distinct for all practical purposes; who follows numbers into index buffers compares all contents.
static uint64_t keyOf(const Pick* pick) {
    uint64_t key = pick->buffer->positions->contents;
    for (const TriangleStripArray* strips : stripsOf(pick)) {
        key = (key ^ strips->contents) * 0x9E3779B97F4A7C15u;
        key ^= key >> 32;
    }
    return key;
}

static bool hasSameTriangles(const KeptPick* kept, const Pick* pick) {
    return std::ranges::equal(submeshesOf(kept), stripsOf(pick),
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

// --- Boxes ---

enum class Shape { Flat, Wild, Boxed };

struct Steps {
    double x, y, z;
};

static double square(const Steps& v) { return v.x * v.x + v.y * v.y + v.z * v.z; }

static Steps between(const Steps& a, const Steps& b) { return {b.x - a.x, b.y - a.y, b.z - a.z}; }

static double squareOfCross(const Steps& a, const Steps& b) {
    return square({a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x});
}

// Boxes count in double steps, so that there is room around the positions.
constexpr double kStepsPerBoxUnit = 2;

// The box outside of which no hit can be (see pick_reach.h), but for the slack.
//
// The floats of an edge differ from its steps by less than 1/36 step, for both ends are off by 1/128 per component.
// Where the height over the longer edge is at least 1/2 step that changes |A x B| by less than 11 %, and c by less than
// 16 %: so c stays above 1/256 for triangles that have 1/200 in steps, and 128e / c^2 in steps exceeds the 64e / c^2 of
// the floats. Others are wild. Two corners in one place are there in floats, too: m is (0, 0, 0) and nothing ever hits.
static Shape boxTriangle(const Steps (&p)[3], Box16* box) {
    constexpr double kEdgeTolerance = 0.001, kRounding = 0x1p-17;
    const Steps a = between(p[0], p[1]), b = between(p[0], p[2]);
    const double a2 = square(a), b2 = square(b), area2 = squareOfCross(a, b);
    if (a2 == 0 || b2 == 0 || square(between(p[1], p[2])) == 0) return Shape::Flat;
    if (area2 < 0.25 * std::max(a2, b2) || area2 * (200 * 200) < a2 * b2) return Shape::Wild;
    const double reach = (std::sqrt(a2) + std::sqrt(b2)) * (kEdgeTolerance + kRounding * (a2 * b2 / area2));
    const double components[3][3] = {{p[0].x, p[1].x, p[2].x}, {p[0].y, p[1].y, p[2].y}, {p[0].z, p[1].z, p[2].z}};
    for (int i = 0; i < 3; ++i) {
        const auto [low, high] = std::ranges::minmax(components[i]);
        const double least = std::floor((low - reach) / kStepsPerBoxUnit);
        const double greatest = std::ceil((high + reach) / kStepsPerBoxUnit);
        if (least < INT16_MIN || greatest > INT16_MAX) return Shape::Wild;
        box->least[i] = int16_t(least);
        box->greatest[i] = int16_t(greatest);
    }
    return Shape::Boxed;
}

template <typename T>
static Steps stepsOf(const VertexArray* positions, uint32_t vertex) {
    const T* in = static_cast<const T*>(positions->data) + 3 * size_t(vertex);
    const int32_t steps = stepsPerUnit(sizeof(T));
    return {double(in[0] * steps), double(in[1] * steps), double(in[2] * steps)};
}

// --- Making the tree ---

struct TreePlan {
    KeptPick kept;
    Box16* boxes;       // scratch for all triangles
    uint32_t* numbers;  // of those with boxes
    std::array<uint32_t, kMaxWild> wild;
};

// False when there are too many wild ones.
static bool planTriangle(TreePlan* plan, const Steps (&p)[3], uint32_t number) {
    KeptPick& kept = plan->kept;
    switch (boxTriangle(p, &plan->boxes[kept.boxedCount])) {
        case Shape::Flat: return true;
        case Shape::Wild:
            if (kept.wildCount == kMaxWild) return false;
            plan->wild[kept.wildCount++] = number;
            return true;
        case Shape::Boxed: break;
    }
    plan->numbers[kept.boxedCount++] = number;
    return true;
}

template <typename T>
static bool planTriangles(TreePlan* plan, const Pick* pick) {
    const VertexArray* positions = pick->buffer->positions;
    uint32_t place = 0;
    for (const TriangleStripArray* strips : stripsOf(pick)) {
        TriangleRuns runs = TriangleRuns_of(strips);
        TriangleRun run;
        while (TriangleRuns_next(&runs, &run)) {
            for (uint32_t k = 0; k < run.count; ++k) {
                uint32_t corners[3];
                TriangleRun_getCorners(run, k, corners);
                const Steps p[] = {stepsOf<T>(positions, corners[0]), stepsOf<T>(positions, corners[1]),
                                   stepsOf<T>(positions, corners[2])};
                if (!planTriangle(plan, p, 2 * (place + k) + (run.indices ? 0 : k & 1))) return false;
            }
            place += run.indices ? run.count : run.count + 2;
        }
    }
    return true;
}

static uint32_t countPlaces(const TriangleStripArray* strips) {
    const auto triangleCount = uint32_t(qelTriangleStripArray_getTriangleCount(strips));
    return strips->indices ? triangleCount : triangleCount + 2 * uint32_t(strips->stripCount);
}

static void writeSubmeshes(KeptPick* kept, const Pick* pick) {
    auto* submesh = reinterpret_cast<KeptSubmesh*>(kept + 1);
    uint32_t place = 0;
    for (const TriangleStripArray* strips : stripsOf(pick)) {
        *submesh++ = {strips->contents, place};
        place += countPlaces(strips);
    }
}

static KeptPick* makeTree(const TreePlan& plan, const Pick* pick) {
    const Scratch<uint8_t> scratch(uint32_t(BoxTree_scratchByteCount(plan.kept.boxedCount)));
    auto* block = qelAllocArrayOf<uint8_t>(uint32_t(bytesOf(plan.kept)));
    if (!scratch.data || !block) {
        qelFree(block);
        return nullptr;
    }
    auto* kept = reinterpret_cast<KeptPick*>(block);
    *kept = plan.kept;
    writeSubmeshes(kept, pick);
    auto* wild = reinterpret_cast<uint32_t*>(block + sizeof *kept + kept->submeshCount * sizeof(KeptSubmesh));
    std::copy_n(plan.wild.data(), kept->wildCount, wild);
    uint32_t* tree = wild + kept->wildCount;
    BoxTree_build(plan.boxes, kept->boxedCount, tree, scratch.data);
    for (uint32_t& number : std::span(tree, kept->boxedCount)) number = plan.numbers[number];
    return kept;
}

// More triangles than that over few vertices, such as submeshes that share strips have, come in no proportion to the
// content that asks for their tree.
constexpr uint64_t kMaxTrianglesPerVertex = 8, kMoreTriangles = 1024;

static bool canHaveTree(const Pick* pick) {
    const int32_t vertexCount = pick->buffer->positions->vertexCount;
    if (countTriangles(pick) > kMaxTrianglesPerVertex * uint32_t(vertexCount) + kMoreTriangles) return false;
    uint64_t placeCount = 0;
    for (const TriangleStripArray* strips : stripsOf(pick)) {
        if (!TriangleRuns_fit(strips, vertexCount)) return false;  // what comes first, a hit or the bad index?
        placeCount += countPlaces(strips);
    }
    return placeCount <= kMaxPlace;
}

// Null when memory runs out: it is tried again after as many picks.
static KeptPick* makeKept(uint64_t key, const Pick* pick) {
    const auto triangleCount = uint32_t(countTriangles(pick));
    const Scratch<Box16> boxes(triangleCount);
    const Scratch<uint32_t> numbers(triangleCount);
    if (!boxes.data || !numbers.data) return nullptr;
    TreePlan plan;
    plan.kept = {key, KeptState::Tree, kPicksBeforeTree, uint32_t(pick->mesh->submeshCount), 0, 0};
    plan.boxes = boxes.data;
    plan.numbers = numbers.data;
    const bool isByte = pick->buffer->positions->componentSize == 1;
    const bool isPlanned = isByte ? planTriangles<int8_t>(&plan, pick) : planTriangles<int16_t>(&plan, pick);
    if (isPlanned && plan.kept.boxedCount > 0 && bytesOf(plan.kept) <= kMaxBytesPerTriangle * size_t(triangleCount))
        return makeTree(plan, pick);
    auto* refused = qelAllocArrayOf<KeptPick>(1);
    if (refused) *refused = {key, KeptState::Refused, kPicksBeforeTree, 0, 0, 0};
    return refused;
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
    } else if (KeptPick* made = makeKept(key, pick)) {
        replace(positions, made);
    } else {
        kept->credit = 0;
    }
}

// --- Asking the tree ---

// The ray against boxes, in their units: the times at which it is between the planes of each axis. The fourth lane says
// that time begins at 0.
struct Slabs {
    Float4 lowOrigin, highOrigin;  // of the ray as the lower and the upper planes see it, which the slack moves out
    Float4 inverse;                // of the direction
};

static Slabs slabsOf(const PickReach& reach, const PickRay& ray) {
    // An axis along which the ray moves less than the slack allows for counts as one along which it moves that much.
    constexpr float kLeastPart = 0x1p-24f, kUnitsPerStep = float(1 / kStepsPerBoxUnit);
    const float d[] = {ray.direction.x / reach.step, ray.direction.y / reach.step, ray.direction.z / reach.step};
    const float least = kLeastPart * std::max({std::fabs(d[0]), std::fabs(d[1]), std::fabs(d[2])});
    Slabs slabs{};
    for (int i = 0; i < 3; ++i) {
        slabs.lowOrigin[i] = (reach.origin[i] + reach.slack) * kUnitsPerStep;
        slabs.highOrigin[i] = (reach.origin[i] - reach.slack) * kUnitsPerStep;
        slabs.inverse[i] = 1 / (std::fabs(d[i]) < least ? least : d[i]);
    }
    return slabs;
}

static bool meetsBox(const Slabs& slabs, const Box16& box) {
    constexpr float kForever = std::numeric_limits<float>::infinity();
    static_assert(offsetof(Box16, greatest) == 3 * sizeof(int16_t),
                  "each load takes one component of the other member");
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&box);
    const Float4 low = Float4_loadShorts(bytes);
    const Float4 high = __builtin_shufflevector(Float4_loadShorts(bytes + 2 * sizeof(int16_t)), Float4{}, 1, 2, 3, 0);
    const Float4 a = (low - slabs.lowOrigin) * slabs.inverse, b = (high - slabs.highOrigin) * slabs.inverse;
    const Float4 in = Float4_min(a, b), out = Float4_max(a, b) + Float4{0, 0, 0, kForever};
    return Float4_largest(in) <= Float4_least(out);
}

// The hits of one pick; they have to be found first and taken in order then.
struct Search {
    Pick* pick;
    const KeptPick* kept;
    std::array<uint32_t, 256> hits;  // numbers
    uint32_t hitCount;
};

static PickTriangle triangleOf(const Search& search, uint32_t number) {
    const std::span submeshes = submeshesOf(search.kept);
    const uint32_t place = number / 2;
    const auto next = std::ranges::upper_bound(submeshes, place, {}, &KeptSubmesh::firstPlace);
    PickTriangle triangle = {int32_t(next - submeshes.begin()) - 1, {}};
    const TriangleStripArray* strips = search.pick->mesh->indexBuffers[triangle.submesh];
    const uint32_t k = place - next[-1].firstPlace;
    if (strips->indices) {
        std::copy_n(strips->indices + 3 * size_t(k), 3, triangle.corners);
    } else {
        const uint32_t first = uint32_t(strips->firstIndex) + k, swap = number & 1;
        triangle.corners[0] = first + swap;
        triangle.corners[1] = first + 1 - swap;
        triangle.corners[2] = first + 2;
    }
    return triangle;
}

static PickCulling cullingOf(const Search& search, const PickTriangle& triangle) {
    return PickCulling_of(search.pick->mesh->appearances[triangle.submesh]);
}

static bool isVisible(const Search& search, const PickTriangle& triangle) {
    return search.pick->mesh->appearances[triangle.submesh] != nullptr;
}

static bool isHit(const Search& search, const PickTriangle& triangle, Vector3<float>* hitPoint) {
    return isVisible(search, triangle) &&
           PickTriangle_isHit(search.pick, cullingOf(search, triangle), triangle, hitPoint);
}

// Bit by bit which of up to four triangles are hit.
static uint32_t findHits(const Search& search, std::span<const uint32_t> numbers) {
    PickTriangle triangles[4];
    uint32_t hits = 0, alike = 0;
    for (uint32_t k = 0; k < 4; ++k) {
        triangles[k] = triangleOf(search, numbers[std::min<size_t>(k, numbers.size() - 1)]);
        alike += triangles[k].submesh == triangles[0].submesh;
    }
    if (alike == 4) {
        if (!isVisible(search, triangles[0])) return 0;
        return PickTriangle_hitsOfFour(search.pick, cullingOf(search, triangles[0]), triangles) &
               ((1u << numbers.size()) - 1);
    }
    Vector3<float> hitPoint;
    for (uint32_t k = 0; k < numbers.size(); ++k) hits |= uint32_t(isHit(search, triangles[k], &hitPoint)) << k;
    return hits;
}

// False when there are too many hits.
static bool tryNumbers(Search* search, std::span<const uint32_t> numbers) {
    for (size_t i = 0; i < numbers.size(); i += 4) {
        const std::span four = numbers.subspan(i, std::min<size_t>(4, numbers.size() - i));
        for (uint32_t hits = findHits(*search, four); hits != 0; hits &= hits - 1) {
            if (search->hitCount == search->hits.size()) return false;
            search->hits[search->hitCount++] = four[size_t(std::countr_zero(hits))];
        }
    }
    return true;
}

// Leaves that the ray meets wait for each other: their numbers and triangles are on the way while others are looked
// for.
using LeafBatch = std::array<uint32_t, 32>;

static bool tryLeaves(Search* search, const BoxTree& tree, std::span<const uint32_t> leaves) {
    for (const uint32_t leaf : leaves) {
        const uint32_t first = leaf * kBoxTreeLeafSize;
        const uint32_t count = std::min(tree.triangleCount - first, kBoxTreeLeafSize);
        if (!tryNumbers(search, {tree.order + first, count})) return false;
    }
    return true;
}

// False when the ray passes too much.
static bool searchTree(Search* search, const Slabs& slabs) {
    const BoxTree tree = treeOf(search->kept);
    uint32_t leavesLeft = tree.leafCount / 8 + 16;  // testing more takes as long as walking
    LeafBatch leaves;
    uint32_t waiting = 0;
    std::array<BoxTreeNode, kBoxTreeMaxDepth> stack;
    uint32_t depth = 0;
    stack[depth++] = BoxTree_root(tree);
    while (depth > 0) {
        BoxTreeNode node = stack[--depth];
        while (meetsBox(slabs, tree.nodes[node.node])) {
            if (node.leafCount > 1) {
                stack[depth] = BoxTree_right(node);
                __builtin_prefetch(&tree.nodes[stack[depth++].node]);
                node = BoxTree_left(node);
                continue;
            }
            if (leavesLeft-- == 0) return false;
            __builtin_prefetch(&tree.order[node.firstLeaf * kBoxTreeLeafSize]);
            leaves[waiting++] = node.firstLeaf;
            if (waiting == leaves.size()) {
                if (!tryLeaves(search, tree, leaves)) return false;
                waiting = 0;
            }
            break;
        }
    }
    return tryLeaves(search, tree, {leaves.data(), waiting});
}

static void takeHits(Search* search) {
    const std::span hits(search->hits.data(), search->hitCount);
    std::ranges::sort(hits);
    for (const uint32_t number : hits) {
        const PickTriangle triangle = triangleOf(*search, number);
        Vector3<float> hitPoint;
        isHit(*search, triangle, &hitPoint);
        if (!Pick_takeHit(search->pick, triangle, hitPoint)) return;
    }
}

bool PickTree_pick(Pick* pick) {
    count(pick);
    const auto* kept = static_cast<const KeptPick*>(pick->buffer->positions->pickTree);
    PickReach reach;
    if (!kept || kept->state != KeptState::Tree || !hasSameTriangles(kept, pick) ||
        !PickReach_of(pick->buffer, pick->ray, &reach))
        return false;
    Search search;
    search.pick = pick;
    search.kept = kept;
    search.hitCount = 0;
    if (!tryNumbers(&search, wildOf(kept)) || !searchTree(&search, slabsOf(reach, pick->ray))) return false;
    takeHits(&search);
    return true;
}
