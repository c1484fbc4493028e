// A decoded figure model: what an "MB" file says, with every vertex split into as many as it has texture coordinates or
// colours.
#pragma once

#include "scene/figure_mesh.h"

constexpr uint32_t kMaxAttributeClasses = 96;     // as many appearance keys can arise from polygon attributes
constexpr uint32_t kMaxExpandedVertices = 65535;  // what a vertex array holds

struct TriangleRecord {
    uint16_t vertices[3];  // expanded
    uint16_t attributeClass;
};
struct QuadRecord {
    uint16_t vertices[4];  // expanded, in strip order
    uint16_t attributeClass;
};

struct FigureModelData {
    uint32_t byteCount;  // that the stream held: what building measures its memory against

    uint32_t textureCount, colorCount;
    uint32_t colorTriangleCount, colorQuadCount, texturedTriangleCount, texturedQuadCount;
    uint32_t patternCount, boneCount;
    uint32_t vertexCount;  // of the file
    uint32_t expandedCount;

    int16_t* positions;   // 3 per expanded vertex
    int8_t* normals;      // 3 per expanded vertex, unit length 64; or null
    uint8_t* colors;      // r, g, b, a per expanded vertex; null without colours
    uint16_t* texCoords;  // u, v per expanded vertex, 0..255; null without textures

    uint16_t classKeys[kMaxAttributeClasses];  // appearance keys in order of first use
    uint32_t classCount;

    // First polygon of each range, one entry more than ranges: colour polygons per pattern, textured ones per (pattern,
    // texture), pattern-major. One block that begins with the colour triangles.
    uint32_t* colorTriangleStarts;
    uint32_t* colorQuadStarts;
    uint32_t* texturedTriangleStarts;
    uint32_t* texturedQuadStarts;

    TriangleRecord* triangles;  // coloured, then textured, each in file order
    QuadRecord* quads;

    FigureBones bones;  // with the vertex groups
};

// Releases every block and leaves the model empty.
void D_FigureModel_release(FigureModelData* model);
