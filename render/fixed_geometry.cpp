#include "render/fixed_geometry.h"

#include <algorithm>

#include "frame/fixed_point.h"
#include "frame/wrap.h"

// --- Grids ---

// The nearest multiple of 2^shift, counted in those; halves go up.
static int64_t roundToStep(int32_t value, uint32_t shift) {
    return (int64_t(value) + (int64_t(1) << shift >> 1)) >> shift;
}

// The number in first..last with the most trailing zeros. As an origin it leaves a bias that a float holds exactly, 0
// wherever it can.
static int64_t roundestIn(int64_t first, int64_t last) {
    int64_t roundest = last;
    for (int64_t step = 2; step <= int64_t(1) << 32 && (last & -step) >= first; step *= 2) roundest = last & -step;
    return roundest;
}

FixedGrid FixedGrid_fit(std::span<const int32_t> vectors, uint32_t componentCount) {
    int32_t least[3], greatest[3];
    std::fill_n(least, 3, INT32_MAX);
    std::fill_n(greatest, 3, INT32_MIN);
    for (size_t i = 0; i < vectors.size(); i += componentCount) {
        for (uint32_t k = 0; k < componentCount; ++k) {
            least[k] = std::min(least[k], vectors[i + k]);
            greatest[k] = std::max(greatest[k], vectors[i + k]);
        }
    }
    FixedGrid grid = {};
    const auto fits = [&](uint32_t k) {
        return roundToStep(greatest[k], grid.shift) - roundToStep(least[k], grid.shift) <= UINT16_MAX;
    };
    for (uint32_t k = 0; k < componentCount; ++k)
        while (!fits(k)) ++grid.shift;
    for (uint32_t k = 0; k < componentCount; ++k)
        grid.origin[k] =
            roundestIn(roundToStep(greatest[k], grid.shift) - INT16_MAX, roundToStep(least[k], grid.shift) - INT16_MIN);
    return grid;
}

void FixedGrid_place(const FixedGrid& grid, std::span<const int32_t> vectors, uint32_t componentCount, int16_t* out) {
    for (size_t i = 0; i < vectors.size(); i += componentCount)
        for (uint32_t k = 0; k < componentCount; ++k)
            *out++ = int16_t(roundToStep(vectors[i + k], grid.shift) - grid.origin[k]);
}

float FixedGrid_scale(const FixedGrid& grid) { return float(1 << grid.shift) / kFixedOne; }

void FixedGrid_bias(const FixedGrid& grid, float out[3]) {
    for (int k = 0; k < 3; ++k) out[k] = float(grid.origin[k]) * FixedGrid_scale(grid);
}

// --- Normals and colours ---

static void shorten(const int32_t normal[3], int16_t out[3]) {
    const uint32_t longest = std::max({magnitude(normal[0]), magnitude(normal[1]), magnitude(normal[2])});
    const uint32_t bits = highestBit(longest) + 1;
    const int32_t divisor = 1 << (bits > 15 ? bits - 15 : 0);
    for (int k = 0; k < 3; ++k) out[k] = int16_t(normal[k] / divisor);
}

void FixedGeometry_shortenNormals(std::span<const int32_t> normals, uint32_t repeat, int16_t* out) {
    for (size_t i = 0; i < normals.size(); i += 3) {
        int16_t normal[3];
        shorten(&normals[i], normal);
        for (uint32_t n = 0; n < repeat; ++n) out = std::copy_n(normal, 3, out);
    }
}

void FixedGeometry_expandColors(std::span<const int32_t> colors, uint8_t alpha, uint32_t repeat, uint8_t* out) {
    for (const int32_t color : colors) {
        const uint8_t rgba[] = {uint8_t(color >> 16), uint8_t(color >> 8), uint8_t(color), alpha};
        for (uint32_t n = 0; n < repeat; ++n) out = std::copy_n(rgba, 4, out);
    }
}
