#include "query/pick_walk.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <span>

#include "query/pick_reach.h"
#include "query/quiet_status.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

// --- Runs ---

TriangleRuns TriangleRuns_of(const TriangleStripArray* strips) { return {strips, 0, uint32_t(strips->firstIndex)}; }

bool TriangleRuns_next(TriangleRuns* runs, TriangleRun* run) {
    const TriangleStripArray* strips = runs->strips;
    if (runs->nextStrip == strips->stripCount) return false;
    const auto length = uint32_t(strips->stripLengths[runs->nextStrip++]);
    *run = strips->indices ? TriangleRun{strips->indices, 0, length / 3}
                           : TriangleRun{nullptr, runs->nextVertex, length - 2};
    runs->nextVertex += length;
    return true;
}

bool TriangleRuns_fit(const TriangleStripArray* strips, int32_t vertexCount) {
    return strips->indices ? strips->indexLimit < vertexCount : strips->indexLimit <= vertexCount;
}

// Every other triangle of a strip swaps its first two corners, so that all keep the strip's winding.
void TriangleRun_getCorners(const TriangleRun& run, uint32_t k, uint32_t corners[3]) {
    const uint32_t swap = k & 1;
    const uint32_t strip[] = {run.first + k + swap, run.first + k + 1 - swap, run.first + k + 2};
    for (uint32_t i = 0; i < 3; ++i) corners[i] = run.indices ? run.indices[3 * k + i] : strip[i];
}

// The triangles before the first one with an index that exceeds the vertices.
static uint32_t countGood(const TriangleRun& run, uint32_t vertexCount) {
    if (!run.indices) {
        const uint32_t left = vertexCount - std::min(vertexCount, run.first);
        return std::min(run.count, left - std::min(left, 2u));
    }
    const std::span<const uint16_t> indices(run.indices, 3 * size_t(run.count));
    const auto bad = std::ranges::find_if(indices, [=](uint16_t index) { return index >= vertexCount; });
    return uint32_t(bad - indices.begin()) / 3;
}

// --- One at a time ---

// The part of a pick that is in one run.
struct RunPick {
    Pick* pick;
    int32_t submesh;
    PickCulling culling;
    TriangleRun run;
    uint32_t count;  // triangles with good indices
};

// Tests one triangle. False when the pick is over.
static bool tryTriangle(const RunPick& part, uint32_t k) {
    PickTriangle triangle = {part.submesh, {}};
    TriangleRun_getCorners(part.run, k, triangle.corners);
    Vector3<float> hitPoint;
    return !PickTriangle_isHit(part.pick, part.culling, triangle, &hitPoint) ||
           Pick_takeHit(part.pick, triangle, hitPoint);
}

static bool tryPlainly(const RunPick& part) {
    for (uint32_t k = 0; k < part.count; ++k)
        if (!tryTriangle(part, k)) return false;
    return true;
}

// --- Four at a time ---

// Vertices are converted to floats once: x, y, z, and a clearance, the square of what must lie between the vertex and
// the ray in units of the sizes below. A triangle of less size than its first corner has clearance is too far to be
// hit.
//
// Slivers are not left out. The size of a triangle is |e1|^2 + |f|^2 with its third side f. As |e2|^2 is at most double
// that, the least area (the square of twice the area, against |e1|^2 times the size) makes c^2 at least 2^-15. The K of
// pick_reach.h is below 1/30 then, and hits are within 1.11 L + slack of the first corner, L being the sides e1 and e2.
// L^2 is at most 5 sizes, so (1.11 L + slack)^2 is at most 7 sizes + 9 slack^2.
constexpr float kLeastArea = 0x1p-14f;
constexpr float kSizesPerClearance = 7.5f;
constexpr float kSlackSquares = 10;

static Int4 isFar(Float4 clearance, const Vector3<Float4>& e1, const Vector3<Float4>& f) {
    const Vector3<Float4> n = cross(e1, f);
    const Float4 square = dot(e1, e1), size = square + dot(f, f);
    return (clearance > size) & (dot(n, n) >= kLeastArea * (square * size));
}

struct Vector4 {
    Vector3<Float4> xyz;
    Float4 w;
};

// Four lanes of x, y, z and w out of four vectors, and the other way round.
static Vector4 transpose(Float4 p, Float4 q, Float4 r, Float4 s) {
    const Float4 pqLow = __builtin_shufflevector(p, q, 0, 4, 1, 5), rsLow = __builtin_shufflevector(r, s, 0, 4, 1, 5);
    const Float4 pqHigh = __builtin_shufflevector(p, q, 2, 6, 3, 7), rsHigh = __builtin_shufflevector(r, s, 2, 6, 3, 7);
    return {{__builtin_shufflevector(pqLow, rsLow, 0, 1, 4, 5), __builtin_shufflevector(pqLow, rsLow, 2, 3, 6, 7),
             __builtin_shufflevector(pqHigh, rsHigh, 0, 1, 4, 5)},
            __builtin_shufflevector(pqHigh, rsHigh, 2, 3, 6, 7)};
}

static Vector3<float> unitOf(const Vector3<float>& d) {
    const float length = std::sqrt(dot(d, d));
    return {d.x / length, d.y / length, d.z / length};
}

// What turns the integers of four vertices into floats and clearances.
struct Conversion {
    Float4 scale;
    Vector3<Float4> bias, origin, direction;  // the latter two of the ray, and of unit length
    Float4 factor, loss;                      // of clearances
};

static Vector3<Float4> inAllLanes(const Vector3<float>& v) {
    return {Float4_ofOne(v.x), Float4_ofOne(v.y), Float4_ofOne(v.z)};
}

static Conversion planConversion(const Pick* pick) {
    const VertexBuffer* buffer = pick->buffer;
    const float* bias = buffer->positionBias;
    Conversion plan = {Float4_ofOne(buffer->positionScale),
                       inAllLanes({bias[0], bias[1], bias[2]}),
                       inAllLanes(pick->ray.origin),
                       {},
                       {},
                       Float4_ofOne(1)};
    PickReach reach;
    if (!PickReach_of(buffer, pick->ray, &reach)) return plan;  // clearances become -1: nothing is far
    const float slack = reach.slack * reach.step;
    plan.direction = inAllLanes(unitOf(pick->ray.direction));
    plan.factor = Float4_ofOne(1 / kSizesPerClearance);
    plan.loss = Float4_ofOne(kSlackSquares * slack * slack / kSizesPerClearance);
    return plan;
}

static inline Float4 loadFour(const int8_t* in) { return Float4_loadBytes(in); }
static inline Float4 loadFour(const int16_t* in) { return Float4_loadShorts(in); }

// Four vertices of x, y and z in a row.
template <typename T>
static inline Vector3<Float4> loadVertices(const T* in) {
    const Float4 a = loadFour(in), b = loadFour(in + 4), c = loadFour(in + 8);  // x0 y0 z0 x1, y1 z1 x2 y2, z2 x3 y3 z3
    const Float4 yz01 = __builtin_shufflevector(a, b, 1, 2, 4, 5), xy23 = __builtin_shufflevector(b, c, 2, 3, 5, 6);
    return {__builtin_shufflevector(a, xy23, 0, 3, 4, 6), __builtin_shufflevector(yz01, xy23, 0, 2, 5, 7),
            __builtin_shufflevector(yz01, c, 1, 3, 4, 7)};
}

template <typename T>
static inline void convertFour(const Conversion& plan, const T* in, float* out) {
    const Vector3<Float4> integers = loadVertices(in);
    const Vector3<Float4> p = {integers.x * plan.scale + plan.bias.x, integers.y * plan.scale + plan.bias.y,
                               integers.z * plan.scale + plan.bias.z};
    const Vector3<Float4> n = cross(p - plan.origin, plan.direction);
    const Vector4 rows = transpose(p.x, p.y, p.z, dot(n, n) * plan.factor - plan.loss);
    Float4_store(rows.xyz.x, out);
    Float4_store(rows.xyz.y, out + 4);
    Float4_store(rows.xyz.z, out + 8);
    Float4_store(rows.w, out + 12);
}

// out has room for a multiple of four vertices.
template <typename T>
static void convertVertices(const Pick* pick, float* out) {
    const Conversion plan = planConversion(pick);
    const std::span in(static_cast<const T*>(pick->buffer->positions->data),
                       3 * size_t(pick->buffer->positions->vertexCount));
    size_t i = 0;
    for (; i + 12 <= in.size(); i += 12, out += 16) convertFour(plan, &in[i], out);
    if (i == in.size()) return;
    T rest[12] = {};
    std::ranges::copy(in.subspan(i), rest);
    convertFour(plan, rest, out);
}

static Float4 vertexAt(const float* vertices, uint16_t index) { return Float4_load(vertices + 4 * size_t(index)); }

static Vector4 gather(const float* vertices, const uint16_t* indices) {
    return transpose(vertexAt(vertices, indices[0]), vertexAt(vertices, indices[3]), vertexAt(vertices, indices[6]),
                     vertexAt(vertices, indices[9]));
}

// Of four triangles. Sides are taken before they are transposed, for there are fewer of them than corners.
static inline Int4 areFar(const float* vertices, const uint16_t* indices) {
    Float4 p[4], e[4], f[4];
    for (int k = 0; k < 4; ++k, indices += 3) {
        const Float4 second = vertexAt(vertices, indices[1]);
        p[k] = vertexAt(vertices, indices[0]);
        e[k] = second - p[k];
        f[k] = vertexAt(vertices, indices[2]) - second;
    }
    return isFar(transpose(p[0], p[1], p[2], p[3]).w, transpose(e[0], e[1], e[2], e[3]).xyz,
                 transpose(f[0], f[1], f[2], f[3]).xyz);
}

// The first triangle from k, which goes in steps of four up to `end`, of the four that are not all far; or `end`.
static uint32_t findNear(const float* vertices, const uint16_t* list, uint32_t k, uint32_t end) {
    while (k < end && laneBits(areFar(vertices, list + 3 * size_t(k))) == 15) k += 4;
    return k;
}

static uint32_t hitsOfFour(const RunPick& part, const float* vertices, const uint16_t* indices) {
    Vector3<Float4> unused;
    return laneBits(PickRay_hits(part.pick->ray, part.culling, gather(vertices, indices).xyz,
                                 gather(vertices, indices + 1).xyz, gather(vertices, indices + 2).xyz, &unused));
}

// The run's triangles from `first` as a list whose length is a multiple of four.
static bool tryList(const RunPick& part, const float* vertices, const uint16_t* list, uint32_t first, uint32_t count) {
    for (uint32_t k = 0; (k = findNear(vertices, list, k, count)) < count; k += 4)
        for (uint32_t hits = hitsOfFour(part, vertices, list + 3 * size_t(k)); hits != 0; hits &= hits - 1) {
            const uint32_t hit = first + k + uint32_t(std::countr_zero(hits));
            if (hit < part.count && !tryTriangle(part, hit)) return false;
        }
    return true;
}

constexpr uint32_t kListLength = 32;

// Strips are made lists piece by piece, and so is the rest of a list that makes no four. The last triangle stands in
// for those missing.
static bool tryByFours(const RunPick& part, const float* vertices) {
    uint32_t first = part.run.indices ? part.count & ~3u : 0;
    if (!tryList(part, vertices, part.run.indices, 0, first)) return false;
    for (; first < part.count; first += kListLength) {
        uint16_t list[3 * kListLength];
        const uint32_t count = std::min((part.count - first + 3) & ~3u, kListLength);
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t corners[3];
            TriangleRun_getCorners(part.run, std::min(first + i, part.count - 1), corners);
            std::copy_n(corners, 3, list + 3 * i);
        }
        if (!tryList(part, vertices, list, first, count)) return false;
    }
    return true;
}

// --- The whole ---

// With vertices, by fours.
static bool walkSubmesh(Pick* pick, const float* vertices, int32_t submesh, PickCulling culling) {
    const TriangleStripArray* strips = pick->mesh->indexBuffers[submesh];
    const int32_t vertexCount = pick->buffer->positions->vertexCount;
    const bool areGood = TriangleRuns_fit(strips, vertexCount);
    TriangleRuns runs = TriangleRuns_of(strips);
    TriangleRun run;
    while (TriangleRuns_next(&runs, &run)) {
        const uint32_t count = areGood ? run.count : countGood(run, uint32_t(vertexCount));
        const RunPick part = {pick, submesh, culling, run, count};
        if (vertices ? !tryByFours(part, vertices) : !tryPlainly(part)) return false;
        if (part.count == run.count) continue;
        pick->result = QEL_STATUS_ILLEGAL_STATE;
        return false;
    }
    return true;
}

static void walk(Pick* pick, const float* vertices) {
    const Mesh* mesh = pick->mesh;
    for (int32_t i = 0; i < mesh->submeshCount; ++i) {
        const Appearance* appearance = mesh->appearances[i];
        if (appearance && !walkSubmesh(pick, vertices, i, PickCulling_of(appearance))) return;
    }
}

void PickWalk_plain(Pick* pick) { walk(pick, nullptr); }

uint32_t PickWalk_scratchCount(const Pick* pick) {
    return 16 * ((uint32_t(pick->buffer->positions->vertexCount) + 3) / 4);
}

void PickWalk_byFours(Pick* pick, float* scratch) {
    if (pick->buffer->positions->componentSize == 1)
        convertVertices<int8_t>(pick, scratch);
    else
        convertVertices<int16_t>(pick, scratch);
    walk(pick, scratch);
}

// All vertices are converted, so there must be enough triangles that use them.
constexpr uint32_t kFewTriangles = 16, kVerticesPerTriangle = 2;

static bool isWorthFours(const Pick* pick) {
    uint64_t triangleCount = 0;
    for (int32_t i = 0; i < pick->mesh->submeshCount; ++i)
        if (pick->mesh->appearances[i])
            triangleCount += uint32_t(qelTriangleStripArray_getTriangleCount(pick->mesh->indexBuffers[i]));
    return triangleCount >= kFewTriangles &&
           uint32_t(pick->buffer->positions->vertexCount) / kVerticesPerTriangle <= triangleCount;
}

// The walk itself is not quiet: an array that grows shows in the engine status, as it does in the plain walk.
static float* allocQuietly(uint32_t count) {
    const QuietStatus quiet;
    return qelAllocArrayOf<float>(count);
}

void PickWalk_all(Pick* pick) {
    float* scratch = isWorthFours(pick) ? allocQuietly(PickWalk_scratchCount(pick)) : nullptr;
    if (scratch)
        PickWalk_byFours(pick, scratch);
    else
        PickWalk_plain(pick);
    qelFree(scratch);
}
