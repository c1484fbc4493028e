// The triangles of one submesh or of one primitive, read where they lie: as vertices of at most 10 significant bits per
// coordinate and corners that name them. Nothing is copied, so what a part is made from must stay as it is meanwhile.
#pragma once

#include "scene/names.h"

enum class PartShape : uint8_t {
    IndexRange,    // a mesh's index triples over a range of its vertices
    IndexCorners,  // the same with a vertex for every corner, for triples that leave most of the range out
    Strips,        // a mesh's strips of consecutive vertices
    Triangles,     // primitives
    Quads,
    Lines,
};

struct CollisionPart {
    PartShape shape;
    uint8_t componentSize;    // of the coordinates, in bytes: 1, 2 or 4
    uint8_t shift;            // by which coordinates are shortened
    const void* coordinates;  // x, y, z from the first vertex on
    const uint16_t* indices;  // triples, where the shape has them; they count from `firstIndex`
    const int32_t* stripLengths;
    uint32_t firstIndex;
    uint32_t vertexCount, triangleCount;
    int32_t least[3], greatest[3];  // box of the shortened coordinates
    qelTransform place;             // shortened coordinates to the space of the query
};

// How far coordinates have to be shortened, and the box of what that makes of them.
void CollisionPart_setBounds(CollisionPart* part, const int32_t least[3], const int32_t greatest[3]);

// Writes the vertices first .. first + count - 1.
void CollisionPart_readVertices(const CollisionPart& part, uint32_t first, uint32_t count, int16_t (*out)[3]);
// Writes the three vertices of each triangle, numbered from `firstVertex` on.
void CollisionPart_readCorners(const CollisionPart& part, uint32_t firstVertex, uint32_t (*out)[3]);
