// Posing and blending written straight from their formulas: scalar loops in file order, keys walked from the first one.
// The yardstick of the benchmarks and the oracle of the property tests; shares no code with animation/ but the tables
// of sines and roots.
#pragma once

#include <cstdint>
#include <vector>

#include "loader/act_table.h"
#include "scene/figure_mesh.h"

struct PlainFigure {
    // Copies what a loaded figure has: bones with their local transforms, rest vertices, owners.
    explicit PlainFigure(const FigureMesh* figure);

    void pose(const ActTable* table, int32_t action, int32_t frame);  // writes `local`
    void blend();                                                     // writes `world`, `positions`, `normals`

    std::vector<int32_t> parents;
    std::vector<Atrans3i> rest, local, world;
    std::vector<int32_t> vertexBones;  // -1: none
    std::vector<int16_t> restPositions, positions;
    std::vector<int8_t> restNormals, normals;  // empty without normals

private:
    std::vector<int32_t> parentsFirst_;
};

// out = rest M, as ActTable__calcTrans.
void plainCalcTrans(const ActTable* table, int32_t action, int32_t bone, int32_t frame, Atrans3i* out,
                    const Atrans3i* rest);
uint32_t plainCalcPattern(const ActTable* table, int32_t action, int32_t frame);
