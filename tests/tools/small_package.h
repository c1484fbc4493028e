// A package with every kind of record: a figure in two places, one of them turned about, and what goes with it.
#pragma once

#include "tests/loader/small_files.h"
#include "tools/encode/k8_encoder.h"

namespace encode {

inline K8Package smallPackage() {
    // A quarter turn about y, twice as large, then 100 along x.
    constexpr std::array<float, 16> kTurned = {0, 0, 2, 100, 0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 0, 1};
    constexpr std::array<float, 16> kMoved = {1, 0, 0, 0, 0, 1, 0, -50, 0, 0, 1, 0, 0, 0, 0, 1};
    K8Package package;
    package.objects = {
        K8FogRecord{.color = 0x112233, .near = 10, .far = 20},
        K8FigureRecord{.model = smallFigure(), .actionTable = 2, .textures = {3, 0, 3}},
        K8ActionTableRecord{smallTable()},
        K8TextureRecord{smallTexture()},
        K8LightRecord{.mode = 131, .color = 0xFF8000, .position = {1, 2, 3}, .spotAngle = 30},
        K8PrimitiveRecord{.type = 5,
                          .params = 0x1000,
                          .count = 1,
                          .values = {{{0, 4096 * 7, 0}, {}, {}, {}, {4096 * 6, 4096 * 8, 0, 0, 0, 0, 0, 0}}}}};
    package.groups = {
        {{{.isGroup = true, .index = 1, .transform = kTurned}, {.isGroup = true, .index = 2}, {.index = 0}}},
        {{{.index = 1}, {.index = 4}}},
        {{{.isGroup = true, .index = 3, .transform = kMoved}, {.index = 5}}},
        {{{.isGroup = true, .index = 1, .transform = kTurned}}}};
    return package;
}

}  // namespace encode
