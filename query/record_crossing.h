// Whether two placed records cross: brings the triangles of both into one frame of whole numbers of 16 bits and looks
// for a pair of which one crosses the other.
#pragma once

#include "query/collision_set.h"

// A record's triangles, made larger or smaller by a factor and cut to whole numbers.
struct PlacedRecord {
    const CollisionRecord* record;  // null: none
    int32_t factor;
    uint32_t triangleCount;
    int32_t (*vertices)[3];
    uint32_t (*corners)[3];  // the vertices of each triangle
    CollisionBox whole;
};

// What a query keeps from one pair of records to the next. Zeroed at first, but for the allocator and the work.
struct CrossingScratch {
    K8Allocator* allocator;
    CollisionWork* work;
    PlacedRecord a, b;
    uint8_t* block;  // holds the arrays of both
    uint64_t capacity;
};

CollisionResult CollisionRecord_cross(CrossingScratch* scratch, const CollisionSet& setA, CollisionRecord* a,
                                      const CollisionSet& setB, CollisionRecord* b, bool* out);
void CrossingScratch_release(CrossingScratch* scratch);
