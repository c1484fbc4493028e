// Turns geometry in F numbers into the 16-bit integers and bytes of vertex arrays.
#pragma once

#include <cstdint>
#include <span>

// Where 16-bit integers lie among F numbers: an F number is near (integer + origin) << shift. Grids of one shift share
// their points, whatever the origins: geometry that meets in F numbers meets on them.
struct FixedGrid {
    uint32_t shift;
    int64_t origin[3];
};

// The finest grid on which all the vectors have their place. Up to 16 units across it is exact.
FixedGrid FixedGrid_fit(std::span<const int32_t> vectors, uint32_t componentCount);
// The integers of the nearest points.
void FixedGrid_place(const FixedGrid& grid, std::span<const int32_t> vectors, uint32_t componentCount, int16_t* out);
// Back to real numbers: integer x scale + bias.
float FixedGrid_scale(const FixedGrid& grid);
void FixedGrid_bias(const FixedGrid& grid, float out[3]);

// The two below write every value `repeat` times.

// Normals of three components, each shortened by itself: their length does not count.
void FixedGeometry_shortenNormals(std::span<const int32_t> normals, uint32_t repeat, int16_t* out);
// 0xRRGGBB to r, g, b, alpha.
void FixedGeometry_expandColors(std::span<const int32_t> colors, uint8_t alpha, uint32_t repeat, uint8_t* out);
