#include "query/record_crossing.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <span>

#include "frame/fixed_point.h"
#include "frame/wrap.h"
#include "query/float4.h"
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
        set.work->steps += record->partCount;
        record->looseBox = kEmptyBox;
        for (const CollisionPart& part : partsOf(set, *record))
            CollisionBox_unite(&record->looseBox, looseBoxOf(part, factor));
        record->looseFactor = factor;
        record->hasLooseBox = true;
    }
    return record->looseBox;
}

// --- Placing ---

// The columns of a matrix, so that its rows come out side by side. The fourth lane is 0.
struct Columns {
    Float4 column[4];
};

static Columns columnsOf(const Matrix34& place) {
    Columns columns;
    for (int i = 0; i < 4; ++i) columns.column[i] = Float4{place.m[i], place.m[4 + i], place.m[8 + i], 0};
    return columns;
}

static void placeVertex(const Columns& place, const int16_t vertex[3], int32_t out[3]) {
    const auto x = float(vertex[0]), y = float(vertex[1]), z = float(vertex[2]);
    const Float4 sum = place.column[0] * x + place.column[1] * y + place.column[2] * z + place.column[3];
    if (laneBits((sum > -kWrapLimit) & (sum < kWrapLimit)) == 15) {
        const Int4 whole = __builtin_convertvector(sum, Int4);
        std::memcpy(out, &whole, 3 * sizeof *out);
    } else {
        for (int i = 0; i < 3; ++i) out[i] = toWhole(sum[i]);
    }
}

static void placeVertices(const CollisionPart& part, int32_t factor, int32_t (*out)[3]) {
    constexpr uint32_t kChunk = 256;
    int16_t chunk[kChunk][3];
    const Columns place = columnsOf(placeOf(part, factor));
    for (uint32_t first = 0; first < part.vertexCount; first += kChunk) {
        const uint32_t count = std::min(kChunk, part.vertexCount - first);
        CollisionPart_readVertices(part, first, count, chunk);
        for (uint32_t i = 0; i < count; ++i) placeVertex(place, chunk[i], *out++);
    }
}

static void extend(CollisionBox* box, const int32_t point[3]) {
    for (int i = 0; i < 3; ++i) {
        box->least[i] = std::min(box->least[i], point[i]);
        box->greatest[i] = std::max(box->greatest[i], point[i]);
    }
}

// Around the vertices that triangles use: of a range that index triples choose from, some may be left out.
static CollisionBox boxAround(const CollisionPart& part, const int32_t (*vertices)[3]) {
    CollisionBox box = kEmptyBox;
    if (part.shape == PartShape::IndexRange) {
        for (const uint16_t index : std::span(part.indices, size_t(part.triangleCount) * 3))
            extend(&box, vertices[index - part.firstIndex]);
    } else {
        for (uint32_t i = 0; i < part.vertexCount; ++i) extend(&box, vertices[i]);
    }
    return box;
}

static uint64_t bytesOf(const CollisionRecord& record) {
    return record.triangleCount * sizeof *PlacedRecord::corners + record.vertexCount * sizeof *PlacedRecord::vertices;
}

// Makes room for both records: the first one's arrays lie at the beginning of the block, the second one's at the end,
// where they stay as long as the block does. False when memory runs out.
static bool reserve(CrossingScratch* scratch, const CollisionRecord& a, const CollisionRecord& b) {
    const uint64_t wanted = bytesOf(a) + bytesOf(b);
    if (wanted <= scratch->capacity) return true;
    K8Allocator_free(scratch->allocator, scratch->block);
    scratch->a.record = scratch->b.record = nullptr;
    scratch->block = static_cast<uint8_t*>(CollisionMemory_alloc(scratch->allocator, wanted));
    scratch->capacity = scratch->block ? wanted : 0;
    return scratch->block;
}

static void place(PlacedRecord* placed, const CollisionSet& set, const CollisionRecord* record, int32_t factor,
                  uint8_t* block) {
    if (placed->record == record && placed->factor == factor) return;
    set.work->steps += (record->vertexCount + record->triangleCount) / 8;
    placed->record = record;
    placed->factor = factor;
    placed->triangleCount = 0;
    placed->whole = kEmptyBox;
    placed->corners = reinterpret_cast<uint32_t(*)[3]>(block);
    placed->vertices = reinterpret_cast<int32_t(*)[3]>(placed->corners + record->triangleCount);
    uint32_t vertexCount = 0;
    for (const CollisionPart& part : partsOf(set, *record)) {
        placeVertices(part, factor, placed->vertices + vertexCount);
        CollisionPart_readCorners(part, vertexCount, placed->corners + placed->triangleCount);
        CollisionBox_unite(&placed->whole, boxAround(part, placed->vertices + vertexCount));
        vertexCount += part.vertexCount;
        placed->triangleCount += part.triangleCount;
    }
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
    if (scratch->work->steps > kMaxCollisionSteps) return CollisionResult::Failed;
    const int32_t factor = factorFor(*a, *b);
    if (!CollisionBox_overlap(updateLooseBox(setA, a, factor), updateLooseBox(setB, b, factor)))
        return CollisionResult::Ok;
    scratch->work->steps += 16;
    if (!reserve(scratch, *a, *b)) return CollisionResult::OutOfMemory;
    place(&scratch->a, setA, a, factor, scratch->block);
    place(&scratch->b, setB, b, factor, scratch->block + scratch->capacity - bytesOf(*b));
    if (!CollisionBox_overlap(scratch->a.whole, scratch->b.whole)) return CollisionResult::Ok;
    const int32_t shift = shiftFor(scratch->a, scratch->b);
    return PairSearch_run(scratch->a, scratch->b, shift, scratch->allocator, scratch->work, out);
}

void CrossingScratch_release(CrossingScratch* scratch) { K8Allocator_free(scratch->allocator, scratch->block); }
