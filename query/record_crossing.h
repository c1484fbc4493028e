// Whether two placed records cross: brings the triangles of both into one frame of whole numbers of 16 bits and looks
// for a pair of which one crosses the other.
#pragma once

#include "query/collision_set.h"

// A record's triangles, made larger or smaller by a factor and cut to whole numbers.
struct PlacedRecord {
    const CollisionRecord* record;  // null: none
    int32_t factor;
    uint32_t triangleCount;
    const int32_t (*vertices)[3];
    const uint32_t (*corners)[3];  // the vertices of each triangle
    const CollisionBox* boxes;     // of each triangle
    CollisionBox whole;
    void* block;  // holds the arrays, and is kept for the next record
    uint64_t capacity;
};

// What a query keeps from one pair of records to the next. Zeroed at first.
struct CrossingScratch {
    K8Allocator* allocator;
    PlacedRecord a, b;
};

CollisionResult CollisionRecord_cross(CrossingScratch* scratch, const CollisionSet& setA, CollisionRecord* a,
                                      const CollisionSet& setB, CollisionRecord* b, bool* out);
void CrossingScratch_release(CrossingScratch* scratch);
