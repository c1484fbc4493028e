#include "query/record_crossing.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <span>

#include "frame/fixed_point.h"
#include "frame/wrap.h"
#include "query/pair_search.h"

// --- The common frame ---

// What both records are multiplied by, so that one of their units is at least four and at most 32 units of the frame.
static int32_t factorFor(const CollisionRecord& a, const CollisionRecord& b) {
    constexpr int32_t kLeast = 4 * kFixedOne, kGreatest = 32 * kFixedOne;
    const int32_t least = std::min({a.leastReach, b.leastReach, kLeast});
    const int32_t greatest = std::max({a.greatestReach, b.greatestReach, kGreatest});
    if (greatest > kGreatest) return fixedDiv(kGreatest, greatest);
    return least < kLeast ? fixedDiv(kLeast, least) : kFixedOne;
}

struct Matrix34 {
    float m[12];
};

static Matrix34 placeOf(const CollisionPart& part, int32_t factor) {
    Matrix34 place;
    std::copy_n(part.place.elements, 12, place.m);
    if (factor == kFixedOne) return place;
    const float scale = f2j(factor);
    for (float& element : place.m) element *= scale;
    return place;
}

// What a coordinate must stay below for its F number not to wrap around.
constexpr float kWrapLimit = 524288;

// Cut toward zero twice, first to an F number; where that does not wrap around once is enough.
static int32_t toWhole(float value) {
    if (std::fabs(value) < kWrapLimit) return int32_t(value);
    return j2f(value) / kFixedOne;
}

// --- Loose boxes ---

// One coordinate of all points of a box, rounded the way a single point's is: every operation is monotonic, so what it
// makes of the least and greatest operands encloses what it makes of all others. False when the range is not certain.
static bool boundRow(const float row[4], const CollisionPart& part, int32_t* least, int32_t* greatest) {
    float low[3], high[3];
    for (int i = 0; i < 3; ++i) {
        const float one = row[i] * float(part.least[i]), other = row[i] * float(part.greatest[i]);
        low[i] = std::min(one, other);
        high[i] = std::max(one, other);
    }
    const float lowSum = low[0] + low[1] + low[2] + row[3], highSum = high[0] + high[1] + high[2] + row[3];
    if (!(lowSum > -kWrapLimit && highSum < kWrapLimit)) return false;
    *least = int32_t(lowSum);
    *greatest = int32_t(highSum);
    return true;
}

static CollisionBox looseBoxOf(const CollisionPart& part, int32_t factor) {
    constexpr CollisionBox kEverything = {{INT32_MIN, INT32_MIN, INT32_MIN}, {INT32_MAX, INT32_MAX, INT32_MAX}};
    const Matrix34 place = placeOf(part, factor);
    CollisionBox box;
    for (int i = 0; i < 3; ++i)
        if (!boundRow(place.m + 4 * i, part, &box.least[i], &box.greatest[i])) return kEverything;
    return box;
}

static std::span<const CollisionPart> partsOf(const CollisionSet& set, const CollisionRecord& record) {
    return {set.parts.records + record.firstPart, record.partCount};
}

static const CollisionBox& updateLooseBox(const CollisionSet& set, CollisionRecord* record, int32_t factor) {
    if (!record->hasLooseBox || record->looseFactor != factor) {
        record->looseBox = kEmptyBox;
        for (const CollisionPart& part : partsOf(set, *record))
            CollisionBox_unite(&record->looseBox, looseBoxOf(part, factor));
        record->looseFactor = factor;
        record->hasLooseBox = true;
    }
    return record->looseBox;
}

// --- Placing ---

struct PlacedArrays {
    int32_t (*vertices)[3];
    uint32_t (*corners)[3];
    CollisionBox* boxes;
};

static void placeVertices(const CollisionPart& part, int32_t factor, int32_t (*out)[3]) {
    constexpr uint32_t kChunk = 256;
    int16_t chunk[kChunk][3];
    const Matrix34 place = placeOf(part, factor);
    for (uint32_t first = 0; first < part.vertexCount; first += kChunk) {
        const uint32_t count = std::min(kChunk, part.vertexCount - first);
        CollisionPart_readVertices(part, first, count, chunk);
        for (uint32_t i = 0; i < count; ++i, ++out) {
            const float x = chunk[i][0], y = chunk[i][1], z = chunk[i][2];
            for (int row = 0; row < 3; ++row) {
                const float* m = place.m + 4 * row;
                (*out)[row] = toWhole(m[0] * x + m[1] * y + m[2] * z + m[3]);
            }
        }
    }
}

static CollisionBox boxAround(const int32_t (*vertices)[3], const uint32_t corners[3]) {
    const int32_t *p = vertices[corners[0]], *q = vertices[corners[1]], *r = vertices[corners[2]];
    CollisionBox box;
    for (int i = 0; i < 3; ++i) {
        box.least[i] = std::min({p[i], q[i], r[i]});
        box.greatest[i] = std::max({p[i], q[i], r[i]});
    }
    return box;
}

// Makes room for a record's arrays. False when memory runs out.
static bool reserve(PlacedRecord* placed, const CollisionRecord& record, K8Allocator* allocator, PlacedArrays* out) {
    constexpr uint64_t kBytesPerTriangle = sizeof *out->corners + sizeof *out->boxes;
    const uint64_t wanted = record.triangleCount * kBytesPerTriangle + record.vertexCount * sizeof *out->vertices;
    if (wanted > placed->capacity) {
        K8Allocator_free(allocator, placed->block);
        placed->block = K8Allocator_alloc(allocator, wanted);
        placed->capacity = placed->block ? wanted : 0;
    }
    out->boxes = static_cast<CollisionBox*>(placed->block);
    out->corners = reinterpret_cast<uint32_t(*)[3]>(out->boxes + record.triangleCount);
    out->vertices = reinterpret_cast<int32_t(*)[3]>(out->corners + record.triangleCount);
    return placed->block;
}

static bool place(PlacedRecord* placed, const CollisionSet& set, const CollisionRecord* record, int32_t factor) {
    if (placed->record == record && placed->factor == factor) return true;
    placed->record = nullptr;
    PlacedArrays arrays;
    if (!reserve(placed, *record, set.allocator, &arrays)) return false;
    uint32_t vertexCount = 0, triangleCount = 0;
    for (const CollisionPart& part : partsOf(set, *record)) {
        placeVertices(part, factor, arrays.vertices + vertexCount);
        CollisionPart_readCorners(part, vertexCount, arrays.corners + triangleCount);
        vertexCount += part.vertexCount;
        triangleCount += part.triangleCount;
    }
    placed->whole = kEmptyBox;
    for (uint32_t i = 0; i < triangleCount; ++i) {
        arrays.boxes[i] = boxAround(arrays.vertices, arrays.corners[i]);
        CollisionBox_unite(&placed->whole, arrays.boxes[i]);
    }
    placed->record = record;
    placed->factor = factor;
    placed->triangleCount = triangleCount;
    placed->vertices = arrays.vertices;
    placed->corners = arrays.corners;
    placed->boxes = arrays.boxes;
    return true;
}

// --- Precision ---

static uint32_t largestIn(const CollisionBox& box) {
    uint32_t largest = 0;
    for (int i = 0; i < 3; ++i) largest = std::max({largest, magnitude(box.least[i]), magnitude(box.greatest[i])});
    return largest;
}

// By how many bits to the left, or to the right when negative, the coordinates of both come to 16 significant bits.
static int32_t shiftFor(const PlacedRecord& a, const PlacedRecord& b) {
    return std::countl_zero(std::max(largestIn(a.whole), largestIn(b.whole))) - 16;
}

// --- The test ---

CollisionResult CollisionRecord_cross(CrossingScratch* scratch, const CollisionSet& setA, CollisionRecord* a,
                                      const CollisionSet& setB, CollisionRecord* b, bool* out) {
    *out = false;
    const int32_t factor = factorFor(*a, *b);
    if (!CollisionBox_overlap(updateLooseBox(setA, a, factor), updateLooseBox(setB, b, factor)))
        return CollisionResult::Ok;
    if (!place(&scratch->a, setA, a, factor) || !place(&scratch->b, setB, b, factor))
        return CollisionResult::OutOfMemory;
    if (!CollisionBox_overlap(scratch->a.whole, scratch->b.whole)) return CollisionResult::Ok;
    const int32_t shift = shiftFor(scratch->a, scratch->b);
    return PairSearch_run(scratch->a, scratch->b, shift, scratch->allocator, out);
}

void CrossingScratch_release(CrossingScratch* scratch) {
    K8Allocator_free(scratch->allocator, scratch->a.block);
    K8Allocator_free(scratch->allocator, scratch->b.block);
}
