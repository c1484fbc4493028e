// What an "MB" figure model holds.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace inspect {

struct FigureBone {
    int32_t parent;  // -1: a root
    uint32_t vertexCount;
};

struct FigurePolygons {
    uint32_t colorTriangles = 0, colorQuads = 0, texturedTriangles = 0, texturedQuads = 0;
};

struct FigureSummary {
    int32_t version = 0;
    uint32_t vertexFormat = 1, normalFormat = 0, polygonFormat = 1, boneFormat = 1;
    uint32_t vertexCount = 0;
    FigurePolygons polygons;
    uint32_t textureCount = 1, patternCount = 1, colorCount = 0;
    std::vector<FigurePolygons> patterns;  // patternCount of them
    std::vector<FigureBone> bones;
    // The box of the vertices at rest, in 1/64 of a unit; an empty model has the origin.
    std::array<double, 3> least{}, greatest{};
};

// Throws ContentProblem for what the library would not load.
FigureSummary inspectFigure(std::span<const uint8_t> bytes);

}  // namespace inspect
