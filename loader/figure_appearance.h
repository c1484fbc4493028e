// From polygon attributes to render state.
#pragma once

#include "scene/names.h"

// Polygon attribute word.
constexpr uint32_t kWordColorKey = 0x0001;   // texels of alpha 0 are cut out
constexpr uint32_t kWordBlendMask = 0x0006;  // 0 none, 2 half, 4 add, 6 weighted add
constexpr uint32_t kWordTwoSided = 0x0010;
constexpr uint32_t kWordEnvironment = 0x0020;  // counts on lit polygons
constexpr uint32_t kWordFlat = 0x0040;
constexpr uint32_t kWordLit = 0x0800;
constexpr uint32_t kWordColored = 0x2000;
constexpr uint32_t kWordPolygon = 0x4000;  // always set
constexpr uint32_t kWordQuad = 0x8000;

constexpr uint32_t kKeyFog = 0x2000;  // appearance key: fog asked for by the caller

struct AppearanceKey {
    uint16_t key;
    uint8_t vertexAlpha;  // 128 for half-transparent polygons, else 255
};
// extra: kKeyFog or 0.
AppearanceKey qelFigureAppearance_key(uint32_t word, uint32_t extra);

// A new appearance for a key; forColors: its polygons take their colours from the vertices. Null when memory runs out,
// or for a colour key without blending bits.
Appearance* qelFigureAppearance_create(uint16_t key, bool forColors);
