// Coefficients of the piecewise quadratics in frame/fixed_point.cpp. c0 is the value at the start of a segment, c1 the
// slope there and c2 the curvature, each in the format that its kernel evaluates.
#pragma once

#include <array>
#include <cstdint>

struct QuadraticRow {
    uint32_t c0, c1, c2;
};

// The root minus 1, over eighths of the argument's octave from 1 to 2; 1.0 = 2^33.
extern const std::array<QuadraticRow, 8> kSquareRootRows;

// Over sixteenths of the first eighth of a turn; 1.0 = 2^32.
extern const std::array<QuadraticRow, 16> kSineRows;
extern const std::array<QuadraticRow, 16> kCosineRows;

// Over 12 ranges of segments that get narrower towards a sine of 1, and the angles of the last 16 sines below 1; a turn
// = 2^32.
constexpr uint32_t kArcsineRowCount = 81;
extern const std::array<QuadraticRow, kArcsineRowCount> kArcsineRows;
extern const std::array<uint32_t, 16> kArcsineLastAngles;
