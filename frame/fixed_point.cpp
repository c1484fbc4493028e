#include "frame/fixed_point.h"

#include <algorithm>
#include <bit>
#include <cassert>

#include "frame/fixed_tables.h"
#include "frame/wrap.h"

// --- Conversion ---

int32_t j2f(float value) {
    const uint32_t bits = std::bit_cast<uint32_t>(value);
    const uint32_t significand = (bits & 0x7fffff) | 0x800000;  // wrong for denormals, but they vanish below
    const int32_t shift = int32_t((bits >> 23) & 0xff) - 138;   // exponent bias 127, 23 fraction bits of J, 12 of F
    uint32_t result = 0;
    if (shift < 0) {
        if (shift > -24) result = significand >> -shift;
    } else if (shift < 32) {
        result = significand << shift;
    }
    return int32_t(bits >> 31 ? 0u - result : result);
}

float f2j(int32_t value) {
    if (value == 0) return 0.0f;
    uint32_t significand = magnitude(value);
    const uint32_t leadingZeros = uint32_t(std::countl_zero(significand));
    significand = leadingZeros < 8 ? significand >> (8 - leadingZeros) : significand << (leadingZeros - 8);
    const uint32_t sign = uint32_t(value) & 0x80000000u;
    return std::bit_cast<float>(sign | (146 - leadingZeros) << 23 | (significand & 0x7fffff));
}

int32_t roundToInt(float value) { return roundToInt(double(value)); }

int32_t roundToInt(double value) {
    if (value != value) return 0;
    if (value >= double(INT32_MAX)) return INT32_MAX;
    if (value <= double(INT32_MIN)) return INT32_MIN;
    const int32_t whole = int32_t(value);
    const double rest = value - whole;  // exact, unlike adding one half and truncating
    return whole + (rest >= 0.5) - (rest <= -0.5);
}

uint32_t highestBit(uint32_t value) { return uint32_t(std::bit_width(value | 1)) - 1; }

// --- Arithmetic ---

static int32_t excessOver15Bits(int32_t value) { return int32_t(highestBit(magnitude(value))) + 1 - 15; }

int32_t fixedMul(int32_t a, int32_t b) {
    int32_t excessA = excessOver15Bits(a), excessB = excessOver15Bits(b);
    // The shorter operand lends its spare bits to the longer one, which is shortened less.
    if (excessA > excessB && excessB < 0)
        excessA += excessB;
    else if (excessB > excessA && excessA < 0)
        excessB += excessA;
    excessA = std::max(excessA, 0);
    excessB = std::max(excessB, 0);
    const int32_t product = wrapMul(a >> excessA, b >> excessB);
    const int32_t shift = excessA + excessB - 12;
    return shift >= 0 ? wrapShl(product, shift) : product >> -shift;
}

int32_t fixedDiv(int32_t a, int32_t b) {
    if (b == 0) return 0;
    const int32_t shift = std::max(std::countl_zero(magnitude(a)) - 1, 0);
    const int32_t dividend = wrapShl(a, shift);
    const int32_t quotient = b == -1 ? wrapNeg(dividend) : dividend / b;  // -2^31 / -1 wraps instead of trapping
    return shift <= 12 ? wrapShl(quotient, 12 - shift) : quotient >> (shift - 12);
}

// The table gives the root of the leading 17 bits. Shifted into place it is always less than half a unit above the root
// of the whole argument: its whole part never exceeds the nearest integer, and the last step climbs to it. One
// comparison is enough but for three of the leading bit patterns, which need a second. Every step stays below 2^32, the
// result below 65536 until it climbs.
uint32_t integerSqrt(uint32_t value) {
    if (value == 0) return 0;
    const uint32_t leadingZeros = uint32_t(std::countl_zero(value));
    const uint32_t t = (value << leadingZeros << 1) >> 16;
    const QuadraticRow& row = kSquareRootRows[t >> 13];
    const uint32_t u = t & 0x1fff;
    const uint32_t fraction = (((row.c1 - (row.c2 * u >> 2)) >> 16) * u + row.c0 + 32768) >> 16;
    // times 2^14, or times 2^14 * sqrt(2) = 23170.5 when the octave begins at an odd power of 2
    const uint32_t mantissa = leadingZeros & 1 ? ((1u << 17) + fraction) << 14 : fraction * 5149 * 9 / 2 + 3037000500u;
    uint32_t root = (mantissa + 8192) >> ((leadingZeros >> 1) + 16);
    while (root < 65536 && root * (root + 1) < value) ++root;
    return root;
}

// --- Angles ---

static uint32_t positionInSegment(uint32_t position) { return (position >> 11) & 0xffff; }

static uint32_t sineInOctant(uint32_t position) {
    const QuadraticRow& row = kSineRows[position >> 27];
    const uint32_t u = positionInSegment(position);
    return row.c0 + ((((row.c1 - ((row.c2 * u) >> 6)) >> 16) * u) >> 4);
}

static uint32_t cosineInOctant(uint32_t position) {
    const QuadraticRow& row = kCosineRows[position >> 27];
    const uint32_t u = positionInSegment(position);
    const uint32_t drop = (((((row.c2 * u) >> 5) + row.c1) >> 16) * u) >> 5;
    return 2 * (row.c0 - drop) - 1536;
}

static uint32_t sineInHalfTurn(uint32_t angle) {
    constexpr uint32_t kEighthTurn = 0x80000000u, kSineOfEighthTurn = 0xb504f334u;
    const uint32_t position = angle << 22;  // within the quarter turn, which is 2^32
    if (position == kEighthTurn) return kSineOfEighthTurn;
    switch ((angle >> 9) & 3) {
        case 0: return sineInOctant(position);
        case 1: return cosineInOctant(0 - position);
        case 2: return cosineInOctant(position);
        default: return sineInOctant(0 - position);
    }
}

int32_t sine12(int32_t angle) {
    const int32_t value = int32_t(((sineInHalfTurn(uint32_t(angle)) >> 19) + 1) >> 1);
    return angle & 0x800 ? -value : value;
}

int32_t cosine12(int32_t angle) { return sine12(wrapAdd(angle, 1024)); }

struct ArcsineRange {
    uint32_t end;   // upper half of the first sine beyond the range
    uint32_t base;  // what the segment number of a sine exceeds its row by
    uint32_t curvatureShift;
};
static constexpr std::array<ArcsineRange, 12> kArcsineRanges = {{
    {51200, 0, 5},
    {59392, 25, 5},
    {62976, 83, 4},
    {64512, 206, 4},
    {65024, 458, 3},
    {65280, 966, 3},
    {65408, 1986, 4},
    {65472, 4030, 4},
    {65504, 8122, 4},
    {65520, 16310, 4},
    {65528, 32690, 4},
    {65535, 65454, 4},
}};

// sine: 1.0 = 2^32. Returns an angle, a turn = 2^32.
static uint32_t arcsineOfPositive(uint32_t sine) {
    const uint32_t upperHalf = sine >> 16;
    if (upperHalf == 0xffff) return kArcsineLastAngles[(sine >> 12) & 15];
    if ((sine & 0xfffff000u) == 0xfffed000u) return 0x3fc135e2;  // where the narrowest segment is bent too much
    uint32_t range = 0;
    while (upperHalf >= kArcsineRanges[range].end) ++range;
    const QuadraticRow& row = kArcsineRows[(sine >> (27 - range)) - kArcsineRanges[range].base];
    const uint32_t u = (sine >> (11 - range)) & 0xffff;
    return row.c0 + (((((row.c2 * u) >> kArcsineRanges[range].curvatureShift) + row.c1) >> 16) * u >> 7);
}

int32_t arcsine20(int32_t sine) {
    const uint32_t size = magnitude(sine);
    int32_t angle = 1 << 18;
    if (size < 1u << 20) angle = int32_t(((arcsineOfPositive(size << 12) >> 11) + 1) >> 1);
    return sine < 0 ? -angle : angle;
}

// --- Vectors ---

int32_t dotFixed(const int32_t a[3], const int32_t b[3]) {
    return wrapAdd(fixedMul(a[0], b[0]), wrapAdd(fixedMul(a[2], b[2]), fixedMul(a[1], b[1])));
}

void crossFixed(const int32_t a[3], const int32_t b[3], int32_t out[3]) {
    const int32_t x = wrapSub(fixedMul(a[1], b[2]), fixedMul(a[2], b[1]));
    const int32_t y = wrapSub(fixedMul(a[2], b[0]), fixedMul(a[0], b[2]));
    const int32_t z = wrapSub(fixedMul(a[0], b[1]), fixedMul(a[1], b[0]));
    out[0] = x;
    out[1] = y;
    out[2] = z;
}

bool normalizeFixed(int32_t v[3]) {
    const uint32_t bits = magnitude(v[0]) | magnitude(v[1]) | magnitude(v[2]);
    if (bits == 0) return false;
    // The largest component gets 15 bits: the sum of squares fits 32 bits.
    const int32_t shift = std::countl_zero(bits) - 17;
    uint32_t square = 0;
    for (int i = 0; i < 3; ++i) {
        v[i] = shift >= 0 ? wrapShl(v[i], shift) : v[i] >> -shift;
        square += uint32_t(v[i] * v[i]);
    }
    const int32_t length = int32_t(integerSqrt(square));
    assert(length >= 1 << 14);
    for (int i = 0; i < 3; ++i) v[i] = v[i] * kFixedOne / length;
    return true;
}

void normalizeFixedOrZ(int32_t v[3]) {
    if (!normalizeFixed(v)) v[2] = kFixedOne;
}
