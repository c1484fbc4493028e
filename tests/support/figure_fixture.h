// Random figures and action tables for tests and benchmarks, made the way a host gets them: written to files and
// loaded.
#pragma once

#include <cstdint>
#include <random>

#include "loader/act_table.h"
#include "scene/figure_mesh.h"
#include "tools/encode/mb_encoder.h"
#include "tools/encode/mt_encoder.h"

struct FigureShape {
    uint32_t vertexCount;
    uint32_t boneCount;
    bool hasNormals = true;
    bool isScattered = false;       // neighbouring vertices are of any bones, instead of mostly the same
    bool hasLooseVertices = false;  // some belong to no bone
    bool isExtreme = false;         // positions and normals of all 16 and 8 bits
};

// The vertices come out in the order in which the polygons use them. Rest transforms are rotations.
encode::MbFigure randomFigure(std::mt19937& random, const FigureShape& shape);

struct TableShape {
    uint32_t boneCount;
    uint32_t actionCount = 1;
    int32_t frameCount = 100;
    uint32_t keyCount = 20;       // per track, at most; pattern tracks too
    bool hasSharedFrames = true;  // all tracks have their keys at the same frames, evenly spread
    bool hasKeysOnly = false;     // without the track kinds that have no keys
};
encode::MtTable randomTable(std::mt19937& random, const TableShape& shape);

// Null when the engine refuses.
FigureMesh* loadFigure(const encode::MbFigure& description);
ActTable* loadTable(const encode::MtTable& description);

// A rotation with a translation, entries within -4096..4096 and -limit..limit.
encode::BoneMatrix randomBone(std::mt19937& random, int32_t translationLimit);

int32_t randomBetween(std::mt19937& random, int32_t low, int32_t high);
