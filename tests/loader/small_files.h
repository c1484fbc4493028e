// One small file of each format, an action table with everything, and a package of them all.
#pragma once

#include "tools/encode/bmp_encoder.h"
#include "tools/encode/k8_encoder.h"
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

enum RecordPlace : uint16_t { Figure, Texture, Table, Spot, HaloFog, Haze, Quads, Sprites, RecordCount };

// Every kind of record: a figure in two places, one of them turned about, and what goes with it.
inline K8Package everyRecord() {
    // A quarter turn about y, twice as large, then 100 along x.
    constexpr std::array<float, 16> kTurned = {0, 0, 2, 100, 0, 2, 0, 0, -2, 0, 0, 0, 0, 0, 0, 1};
    constexpr std::array<float, 16> kMoved = {1, 0, 0, 0, 0, 1, 0, -50, 0, 0, 1, 0, 0, 0, 0, 1};
    K8Package package;
    package.objects = {
        K8FigureRecord{smallFigure(), Table, {Texture, 0, Texture}},
        K8TextureRecord{smallTexture()},
        K8ActionTableRecord{smallTable()},
        K8LightRecord{.mode = 131,
                      .color = 0x123456,
                      .position = {1, -2, 0.5f},
                      .direction = {0, 1.0f / 3, -1},
                      .attenuation = {0.5f, 0.25f, 2},
                      .intensity = 1.5f,
                      .spotAngle = 30,
                      .spotExponent = 8},
        K8FogRecord{.mode = 80, .color = 0xABCDEF, .density = 0.75f},
        K8FogRecord{.mode = 81, .color = 0x010203, .near = 2, .far = 30},
        K8PrimitiveRecord{.type = 4 << 24, .params = 0x311, .count = 1, .values = {{{1, -2}, {3}, {}, {4}, {5, 6, 7}}}},
        K8PrimitiveRecord{.type = 5,
                          .params = 0x1000,
                          .count = 1,
                          .values = {{{0, 4096 * 7, 0}, {}, {}, {}, {4096 * 6, 4096 * 8, 0, 0, 0, 0, 0, 0}}}}};
    package.groups = {
        {{{.isGroup = true, .index = 1, .transform = kTurned}, {.isGroup = true, .index = 2}, {.index = Haze}}},
        {{{.index = Figure}, {.index = Spot}}},
        {{{.isGroup = true, .index = 3, .transform = kMoved}, {.index = Sprites}}},
        {{{.isGroup = true, .index = 1, .transform = kTurned}}}};
    return package;
}

// The same objects without groups: the figure is the root.
inline K8Package onlyObjects() {
    K8Package package = everyRecord();
    package.groups.clear();
    return package;
}

}  // namespace encode
