// Making what is kept for picking again.

#include <algorithm>
#include <array>
#include <cmath>

#include "query/kept_pick.h"
#include "query/pick_reach.h"
#include "query/pick_walk.h"
#include "query/space_order.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

constexpr uint32_t kMaxBytesPerTriangle = 16;
constexpr uint32_t kMaxWild = 256;

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

// --- Planning ---

struct NumberedTriangle {
    uint32_t number;
    uint16_t corners[3];
};

struct KeptPlan {
    KeptPick kept;
    // Scratch for all triangles; the first ones of both are those with boxes.
    Box16* boxes;
    NumberedTriangle* boxed;
    std::array<NumberedTriangle, kMaxWild> wild;
};

// False when there are too many wild ones.
static bool planTriangle(KeptPlan* plan, const Steps (&p)[3], const NumberedTriangle& triangle) {
    KeptPick& kept = plan->kept;
    switch (boxTriangle(p, &plan->boxes[kept.boxedCount])) {
        case Shape::Flat: return true;
        case Shape::Wild:
            if (kept.wildCount == kMaxWild) return false;
            plan->wild[kept.wildCount++] = triangle;
            return true;
        case Shape::Boxed: break;
    }
    plan->boxed[kept.boxedCount++] = triangle;
    return true;
}

template <typename T>
static bool planTriangles(KeptPlan* plan, const Pick* pick) {
    const VertexArray* positions = pick->buffer->positions;
    uint32_t number = 0;
    for (int32_t i = 0; i < pick->mesh->submeshCount; ++i) {
        TriangleRuns runs = TriangleRuns_of(pick->mesh->indexBuffers[i]);
        TriangleRun run;
        while (TriangleRuns_next(&runs, &run)) {
            for (uint32_t k = 0; k < run.count; ++k) {
                uint32_t corners[3];
                TriangleRun_getCorners(run, k, corners);
                const auto [a, b, c] = corners;
                const Steps p[] = {stepsOf<T>(positions, a), stepsOf<T>(positions, b), stepsOf<T>(positions, c)};
                if (!planTriangle(plan, p, {number++, {uint16_t(a), uint16_t(b), uint16_t(c)}})) return false;
            }
        }
    }
    return true;
}

// --- Writing ---

static void writeSubmeshes(const Pick* pick, KeptSubmesh* out) {
    uint32_t firstTriangle = 0;
    for (int32_t i = 0; i < pick->mesh->submeshCount; ++i) {
        const TriangleStripArray* strips = pick->mesh->indexBuffers[i];
        out[i] = {strips->contents, firstTriangle};
        firstTriangle += uint32_t(qelTriangleStripArray_getTriangleCount(strips));
    }
}

// In the order given; without one, as they are.
static void writeLeaves(const NumberedTriangle* triangles, uint32_t count, const uint32_t* order, KeptLeaf* out) {
    for (uint32_t slot = 0; slot < 4 * KeptLeaf_countFor(count); ++slot) {
        const uint32_t place = std::min(slot, count - 1);
        const NumberedTriangle& triangle = triangles[order ? order[place] : place];
        KeptLeaf& leaf = out[slot / 4];
        leaf.numbers[slot % 4] = triangle.number;
        for (int corner = 0; corner < 3; ++corner) leaf.corners[corner][slot % 4] = triangle.corners[corner];
    }
}

static void uniteLeaves(const Box16* boxes, uint32_t count, const uint32_t* order, Box16* out) {
    for (uint32_t slot = 0; slot < count; ++slot) {
        const Box16& box = boxes[order[slot]];
        out[slot / 4] = slot % 4 == 0 ? box : Box16_unite(out[slot / 4], box);
    }
}

static uint64_t byteCountOf(const KeptPick& kept) {
    const uint32_t boxedLeaves = KeptLeaf_countFor(kept.boxedCount);
    return sizeof kept + kept.submeshCount * sizeof(KeptSubmesh) +
           RayTree_nodeCount(boxedLeaves) * sizeof(RayTreeNode) +
           (KeptLeaf_countFor(kept.wildCount) + uint64_t(boxedLeaves)) * sizeof(KeptLeaf);
}

static KeptPick* makeTree(const KeptPlan& plan, const Pick* pick) {
    const uint32_t count = plan.kept.boxedCount, leafCount = KeptLeaf_countFor(count);
    const Scratch<uint32_t> order(count);
    const Scratch<uint8_t> sorting(uint32_t(SpaceOrder_scratchByteCount(count)));
    const Scratch<Box16> leafBoxes(leafCount);
    auto* block = qelAllocArrayOf<uint8_t>(uint32_t(byteCountOf(plan.kept)));
    if (!order.data || !sorting.data || !leafBoxes.data || !block) {
        qelFree(block);
        return nullptr;
    }
    auto* kept = reinterpret_cast<KeptPick*>(block);
    *kept = plan.kept;
    const KeptParts parts = KeptPick_parts(kept);
    writeSubmeshes(pick, parts.submeshes);
    SpaceOrder_sort(plan.boxes, count, order.data, sorting.data);
    uniteLeaves(plan.boxes, count, order.data, leafBoxes.data);
    RayTree_build(leafBoxes.data, leafCount, parts.nodes);
    writeLeaves(plan.wild.data(), kept->wildCount, nullptr, parts.wild);
    writeLeaves(plan.boxed, count, order.data, parts.boxed);
    return kept;
}

KeptPick* KeptPick_make(const Pick* pick, uint64_t key, uint32_t triangleCount) {
    const Scratch<Box16> boxes(triangleCount);
    const Scratch<NumberedTriangle> boxed(triangleCount);
    if (!boxes.data || !boxed.data) return nullptr;
    KeptPlan plan;
    plan.kept = {key, KeptState::Tree, 0, uint32_t(pick->mesh->submeshCount), 0, 0};
    plan.boxes = boxes.data;
    plan.boxed = boxed.data;
    const bool isByte = pick->buffer->positions->componentSize == 1;
    const bool isPlanned = isByte ? planTriangles<int8_t>(&plan, pick) : planTriangles<int16_t>(&plan, pick);
    if (isPlanned && plan.kept.boxedCount > 0 &&
        byteCountOf(plan.kept) <= kMaxBytesPerTriangle * uint64_t(triangleCount))
        return makeTree(plan, pick);
    auto* refused = qelAllocArrayOf<KeptPick>(1);
    if (refused) *refused = {key, KeptState::Refused, 0, 0, 0, 0};
    return refused;
}
