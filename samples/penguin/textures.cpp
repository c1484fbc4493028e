#include <algorithm>
#include <cmath>

#include "samples/penguin/penguin.h"

namespace {

constexpr uint32_t kSide = 64;

// The first colour of a palette is transparent wherever a polygon asks for it; the others come in ramps of four, dark
// to light.
constexpr uint8_t kTransparent = 0;
enum Ramp : uint8_t { Navy = 1, White = 5, Gold = 9, Grey = 13 };    // body
enum GearRamp : uint8_t { Red = 1, Cream = 5, Blue = 9, Sun = 13 };  // gear

std::vector<std::array<uint8_t, 3>> paletteOf(std::initializer_list<std::array<uint8_t, 3>> lightest) {
    std::vector<std::array<uint8_t, 3>> palette = {{255, 0, 255}};
    for (const auto& color : lightest)
        for (const double shade : {0.72, 0.82, 0.91, 1.0})
            palette.push_back({uint8_t(color[0] * shade), uint8_t(color[1] * shade), uint8_t(color[2] * shade)});
    return palette;
}

// A shade of a ramp, 0 to 3, dithered: level is its brightness from 0 to 1.
uint8_t shaded(uint8_t ramp, double level, uint32_t x, uint32_t y) {
    static constexpr double kBayer[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};
    const double value = std::clamp(level, 0.0, 1.0) * 3 + (kBayer[y % 4][x % 4] + 0.5) / 16;
    return uint8_t(ramp + std::min(3, int(value)));
}

template <typename Painter>
encode::BmpImage paint(std::vector<std::array<uint8_t, 3>> palette, Painter painter) {
    encode::BmpImage image{.width = kSide, .height = kSide, .palette = std::move(palette)};
    for (uint32_t y = 0; y < kSide; ++y)
        for (uint32_t x = 0; x < kSide; ++x) image.indices.push_back(painter(x, y));
    return image;
}

// Feathers that spread from the bottom of a 32 x 16 field.
uint8_t featherTexel(uint32_t x, uint32_t y) {
    const double across = (x + 0.5 - 16) / 16, up = 1 - (y + 0.5) / 16;
    const double blade = std::abs(std::sin(across * (4 + 3 * up)));
    if (up > 1.02 - 0.45 * blade - 0.35 * std::abs(across)) return kTransparent;
    return shaded(Navy, 0.35 + 0.5 * blade, x, y);
}

// A round eye with a glint in a 16 x 16 field.
uint8_t eyeTexel(uint32_t x, uint32_t y) {
    const auto distance = [x, y](double cx, double cy) { return std::hypot(x + 0.5 - cx, y + 0.5 - cy); };
    if (distance(8, 8) > 7.6) return kTransparent;
    if (distance(10, 5.5) < 1.6) return White + 3;
    if (distance(8.3, 8.3) < 4.8) return Grey;
    return shaded(White, 0.9, x, y);
}

// The head's wrap, 64 x 16: dark, with a golden patch behind each cheek and a pale chin.
uint8_t headTexel(uint32_t x, uint32_t y) {
    const double side = std::abs(x + 0.5 - 32);
    if (std::hypot(side - 17, (y + 0.5 - 11) * 1.2) < 5.5) return shaded(Gold, 0.9 - y * 0.02, x, y);
    if (side < 9 && y > 13) return shaded(Gold, 0.6, x, y);
    return shaded(Navy, 0.25 + 0.2 * std::cos(side / 6), x, y);
}

// The body's wrap, 64 x 32: a white belly that turns golden under the neck.
uint8_t bodyTexel(uint32_t x, uint32_t y) {
    const double side = std::abs(x + 0.5 - 32);
    const double belly = 15.5 * std::sqrt(std::max(0.0, 1 - std::pow((y + 0.5 - 17.0) / 17.5, 2))) + 1.5;
    if (side > belly) return shaded(Navy, 0.3 + 0.25 * std::sin(y * 0.9 + side * 0.4), x, y);
    if (side > belly - 1.2) return Grey + 2;
    if (y < 5) return shaded(Gold, 0.95 - y * 0.08, x, y);
    return side > belly - 3.5 || y > 28 ? White + 2 : White + 3;
}

uint8_t bodyTextureTexel(uint32_t x, uint32_t y) {
    if (y >= 32) return bodyTexel(x, y - 32);
    if (y >= 16) return headTexel(x, y - 16);
    if (x < 32) return featherTexel(x, y);
    return x < 48 ? eyeTexel(x - 32, y) : kTransparent;
}

// Knitted stripes, 64 x 32, with threads hanging down over the last quarter.
uint8_t scarfTexel(uint32_t x, uint32_t y) {
    const bool isThread = (x + y / 5) % 3 != 0;
    if (y >= 25 && (!isThread || y >= 29 + (x * 7) % 4)) return kTransparent;
    const double knit = 0.55 + 0.35 * std::sin(x * 2.1) * std::cos(y * 2.1);
    return shaded(y / 5 % 2 == 0 ? Red : Cream, knit, x, y);
}

// The canopy's wrap, 64 x 32: panels of eight texels, from the tip at the top to a scalloped edge.
uint8_t canopyTexel(uint32_t x, uint32_t y) {
    const double across = (x % 8 + 0.5) / 8;
    if (y + 0.5 > 27.5 + 4.5 * std::sin(across * 3.14159265)) return kTransparent;
    const double fold = 0.35 + 0.65 * std::sin(across * 3.14159265);
    return shaded(x / 8 % 2 == 0 ? Blue : Sun, fold, x, y);
}

uint8_t gearTexel(uint32_t x, uint32_t y) { return y < 32 ? scarfTexel(x, y) : canopyTexel(x, y - 32); }

}  // namespace

encode::BmpImage penguinBodyTexture() {
    return paint(paletteOf({{58, 70, 104}, {255, 255, 255}, {255, 196, 60}, {40, 42, 48}}), bodyTextureTexel);
}

encode::BmpImage penguinGearTexture() {
    return paint(paletteOf({{214, 48, 52}, {250, 240, 215}, {66, 130, 210}, {252, 214, 80}}), gearTexel);
}
