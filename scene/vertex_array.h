#pragma once

#include "scene/object3d.h"

struct qelVertexArray : Object3D {
    int32_t vertexCount;
    int32_t componentCount;
    int32_t componentSize;  // bytes
    void* data;             // vertexCount x componentCount x componentSize bytes; owned
    uint8_t modified;       // written since a skinned mesh last looked
    uint64_t contents;      // a number for what the data is: of no other array but a copy, and another after each write
    void* cache;            // a buffer that a consumer attached; freed with the array
    void* pickTree;         // what picking keeps of these positions: one engine block, freed when they change
};

// Adopts an engine block as data. On failure the block stays the caller's.
VertexArray* qelVertexArray_createAdopting(int32_t vertexCount, int32_t componentCount, int32_t componentSize,
                                           void* data, Result* result);
Result qelVertexArray_set8(VertexArray* array, int32_t first, int32_t count, const int8_t* values);
Result qelVertexArray_set16(VertexArray* array, int32_t first, int32_t count, const int16_t* values);
Result qelVertexArray_get8(const VertexArray* array, int32_t first, int32_t count, int8_t* values);
Result qelVertexArray_get16(const VertexArray* array, int32_t first, int32_t count, int16_t* values);
// Count, components and size; two nulls are the same.
bool qelVertexArray_sameShape(const VertexArray* a, const VertexArray* b);
// To be called after every write into the data of an array that may have been drawn.
void qelVertexArray_touch(VertexArray* array);
uint32_t qelVertexArray_byteCount(const VertexArray* array);
Object3D* qelVertexArray_duplicate(const VertexArray* array);
