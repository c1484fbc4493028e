// One small file of each format that stands for one object.
#pragma once

#include "tools/encode/bmp_encoder.h"
#include "tools/encode/mb_encoder.h"
#include "tools/encode/mt_encoder.h"

namespace encode {

// A lit textured triangle, and a coloured one in a pattern of its own.
inline EncodedFile smallFigure() {
    MbFigure figure;
    figure.vertices = {{{0, 0, 0}, {0, 0, 1}, 0}, {{64, 0, 0}, {0, 0, 1}, 0}, {{0, 64, 0}, {0, 0, 1}, -1}};
    figure.bones = {{.parent = -1}};
    figure.polygons = {{.corners = {{0, 0, 0}, {1, 9, 0}, {2, 0, 9}}, .style = {.lit = true}},
                       {.corners = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, .pattern = 1, .color = Rgb{1, 2, 3}}};
    return encodeMb(figure);
}

// One action of three frames.
inline EncodedFile smallTable() {
    return encodeMt({.version = 5, .boneCount = 1, .actions = {{.frameCount = 3, .tracks = {MtUnchanged{}}}}});
}

// 3 x 2 pixels of one colour.
inline EncodedFile smallTexture() {
    return encodeBmp({.width = 3, .height = 2, .indices = std::vector<uint8_t>(6, 1), .palette = {{}, {9, 8, 7}}});
}

}  // namespace encode
