// The way through all triangles of a mesh, submesh by submesh.
#pragma once

#include "query/pick_triangle.h"

// Triangles in a row: an index list, or, without one, a strip of consecutive vertices.
struct TriangleRun {
    const uint16_t* indices;
    uint32_t first;  // vertex of a strip
    uint32_t count;  // triangles
};
void TriangleRun_getCorners(const TriangleRun& run, uint32_t k, uint32_t corners[3]);

// The runs of one index buffer, in order.
struct TriangleRuns {
    const TriangleStripArray* strips;
    int32_t nextStrip;
    uint32_t nextVertex;
};
TriangleRuns TriangleRuns_of(const TriangleStripArray* strips);
bool TriangleRuns_next(TriangleRuns* runs, TriangleRun* run);                  // false behind the last one
bool TriangleRuns_fit(const TriangleStripArray* strips, int32_t vertexCount);  // false may err, for an index unused

// Tests every triangle that is not culled and takes the hits in order, up to one that ends the pick or one with an
// index that exceeds the vertices. _all chooses; the others say how: one triangle at a time, or four, most of which
// are left out for being too far from the ray.
void PickWalk_all(Pick* pick);
void PickWalk_plain(Pick* pick);
void PickWalk_byFours(Pick* pick, float* scratch);
uint32_t PickWalk_scratchCount(const Pick* pick);  // floats
