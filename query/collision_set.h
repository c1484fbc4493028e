// What a collision query gathers of one of its two objects: a record for every placed figure and primitive, with the
// parts that its triangles come in. All memory comes from the query's allocator.
#pragma once

#include "query/collision_part.h"
#include "render/growing_block.h"

enum class CollisionResult { Ok, OutOfMemory, Failed };

struct CollisionBox {
    int32_t least[3], greatest[3];
};

// Covers nothing: what is united with it is left as it is.
constexpr CollisionBox kEmptyBox = {{INT32_MAX, INT32_MAX, INT32_MAX}, {INT32_MIN, INT32_MIN, INT32_MIN}};

// Boxes that only touch overlap.
inline bool CollisionBox_overlap(const CollisionBox& a, const CollisionBox& b) {
    for (int i = 0; i < 3; ++i)
        if (a.least[i] > b.greatest[i] || b.least[i] > a.greatest[i]) return false;
    return true;
}

inline void CollisionBox_unite(CollisionBox* box, const CollisionBox& other) {
    for (int i = 0; i < 3; ++i) {
        box->least[i] = other.least[i] < box->least[i] ? other.least[i] : box->least[i];
        box->greatest[i] = other.greatest[i] > box->greatest[i] ? other.greatest[i] : box->greatest[i];
    }
}

// A block that is not cleared, so that what turns out not to be needed is never touched. Null when there is none; sizes
// beyond 31 bits have none.
inline void* CollisionMemory_alloc(K8Allocator* allocator, uint64_t byteCount) {
    return byteCount <= uint64_t(INT32_MAX) ? allocator->functions->alloc(allocator, int32_t(byteCount)) : nullptr;
}

// What a query has done, in steps of roughly a tenth of a microsecond. A few bytes can stand for hours: a tree that
// reaches the same things in many ways, submeshes that share one strip. So a query is given up when its records have
// taken too long together, or when two of them alone take more than some steps per triangle: records that large overlap
// in part, if they are no trap.
struct CollisionWork {
    uint64_t steps;
    uint64_t limit;  // of the two records under way
};
constexpr uint64_t kMaxCollisionSteps = 1 << 25;
constexpr uint64_t kMinPairSteps = 1 << 26, kMaxPairSteps = 1 << 27, kPairStepsPerTriangle = 64;

inline bool CollisionWork_isSpent(const CollisionWork& work) { return work.steps > work.limit; }

struct CollisionRecord {
    uint32_t firstPart, partCount;  // at least one
    uint64_t vertexCount, triangleCount;
    // The least and the greatest sum of magnitudes in a row of a part's placing matrix, translations left out, as F
    // numbers.
    int32_t leastReach, greatestReach;
    // A box around the record when it is made larger by `looseFactor`; both unset at first.
    int32_t looseFactor;
    bool hasLooseBox;
    CollisionBox looseBox;
};

struct CollisionSet {
    K8Allocator* allocator;
    CollisionWork* work;
    GrowingBlock<CollisionRecord> records;
    GrowingBlock<CollisionPart> parts;
};

// Adds the records of a figure, a primitive, or all figures and primitives below a group; other handles have none, nor
// has a group with a group in it that has no loaded info. Figures are brought up to date. After a failure the set can
// only be released.
CollisionResult CollisionSet_gather(CollisionSet* set, const K8Handle* object, const K8Transform* place);
void CollisionSet_release(CollisionSet* set);

// For the gathering: whether there is more than a query may take.
bool CollisionSet_isTooLarge(const CollisionSet* set);
// A part at the end of the set, or null when memory runs out.
CollisionPart* CollisionSet_addPart(CollisionSet* set);

// The parts of a figure's mesh and of a primitive, placed in the space of the figure or primitive. A mesh that cannot
// be read as a whole has none.
CollisionResult CollisionSet_addMeshParts(CollisionSet* set, Mesh* mesh);
CollisionResult CollisionSet_addPrimitiveParts(CollisionSet* set, const K8PrimitiveInfo& info);
