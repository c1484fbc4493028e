// What the number kernels must give, calculated in other ways than they do.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>

// The scaled value is a whole number with 24 significant bits: from 2^62 on, its low 32 bits are zeros.
inline int32_t expectedJ2F(float value) {
    const double scaled = std::trunc(double(value) * 4096);
    if (!(std::abs(scaled) < 0x1p62)) return 0;  // infinities and NaN too
    return int32_t(uint32_t(int64_t(scaled)));
}

// The double is exact; cut to the 24 significant bits of a float.
inline float expectedF2J(int32_t value) {
    const uint64_t cut = std::bit_cast<uint64_t>(double(value) / 4096) & ~((1ull << 29) - 1);
    return float(std::bit_cast<double>(cut));
}

inline uint32_t nearestRoot(uint32_t value) {
    uint64_t root = uint64_t(std::sqrt(double(value)));
    while (root * root > value) --root;
    while ((root + 1) * (root + 1) <= value) ++root;
    return uint32_t(value - root * root > root ? root + 1 : root);
}

// Fills the dividend up to 31 bits, cuts the quotient, and scales it by the rest of 2^12, rounding toward minus
// infinity.
inline int32_t expectedQuotient(int32_t a, int32_t b) {
    if (b == 0 || a == 0) return 0;
    int64_t dividend = a;
    double scale = 4096;  // of the quotient
    for (; std::abs(dividend) < int64_t(1) << 30; scale /= 2) dividend *= 2;
    return int32_t(uint32_t(int64_t(std::floor(double(dividend / b) * scale))));
}
