// One small file of each format that stands for one object, and one action table with everything.
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

// One action of 300 frames with a track of every kind, and a pattern track.
inline MtTable tableOfEveryTrack() {
    const MtAction action = {
        .name = "every kind",
        .frameCount = 300,
        .tracks = {MtConstantMatrix{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, -1}}, MtUnchanged{},
                   MtTranslateScaleDirectionRoll{
                       {{0, 1, 2, 3}}, {{0, 4, 5, 6}}, {{0, 7, 8, 9}, {300, 1, 0, -32768}}, {{0, -5}}},
                   MtDirectionFixedTranslateRoll{{11, 12, -13}, {{0, 14, 15, 16}}, -17},
                   MtDirectionRoll{{{0, 18, 19, 20}}, {{0, 21}, {1, 22}}}, MtDirection{{{0, 23, 24, 25}}},
                   MtTranslateDirectionRoll{{{0, 26, 27, 28}}, {{0, 29, 30, 31}}, {{0, 32}, {2, 33}, {7, 34}}}},
        .patterns = {{0, 0x80000001}, {9, 2}}};
    return {.version = 5, .boneCount = 7, .actions = {action}};
}

// 3 x 2 pixels of one colour.
inline EncodedFile smallTexture() {
    return encodeBmp({.width = 3, .height = 2, .indices = std::vector<uint8_t>(6, 1), .palette = {{}, {9, 8, 7}}});
}

}  // namespace encode
