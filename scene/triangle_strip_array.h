#pragma once

#include "scene/object3d.h"

struct TriangleStripArray : Object3D {
    int32_t firstIndex;     // implicit form
    int32_t* stripLengths;  // owned; explicit form: one entry, the length of the triangle list
    int32_t stripCount;
    uint16_t* indices;  // owned: a triangle list; null for the implicit form
    int32_t indexCount;
    int32_t indexLimit;  // implicit: one past the largest index; explicit: the largest index
    uint64_t contents;   // a number for the triangles: of no other array but a copy
};

TriangleStripArray* qelTriangleStripArray_createImplicit(int32_t firstIndex, int32_t* stripLengths, int32_t stripCount,
                                                         bool copy, Result* result);
// Strips become a triangle list. copy false adopts both engine blocks; on failure they stay the caller's.
TriangleStripArray* qelTriangleStripArray_createExplicit(int32_t* stripLengths, int32_t stripCount, int32_t* indices,
                                                         int32_t indexCount, bool copy, Result* result);
int32_t qelTriangleStripArray_getTriangleCount(const TriangleStripArray* array);
Object3D* qelTriangleStripArray_duplicate(const TriangleStripArray* array);
