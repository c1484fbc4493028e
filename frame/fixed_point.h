// The number kernels behind the K8 interface. F numbers are 20.12 fixed point (4096 = 1.0), J numbers are single
// floats, angles are in 1/4096 of a turn unless said otherwise. All of it is pure, takes every bit pattern and wraps
// around in 32 bits instead of overflowing.
#pragma once

#include <cstdint>

constexpr int32_t kFixedOne = 4096;
constexpr int32_t kFixedQuarterTurn = 90 * kFixedOne;  // degrees

// --- Conversion ---

// J to F: truncates toward zero. NaN and the infinities give 0; magnitudes of 524288 and above wrap around.
int32_t j2f(float value);

// F to J: truncates toward zero; exact while |value| < 2^24.
float f2j(int32_t value);

// The nearest integer, halves away from zero; saturates at the limits of 32 bits, NaN gives 0.
int32_t roundToInt(float value);
int32_t roundToInt(double value);

// The index of the highest set bit; 0 for 0 and for 1.
uint32_t highestBit(uint32_t value);

// --- Arithmetic on F numbers ---

// a * b. Operands longer than 15 bits are shortened first so that the product fits 32 bits; every shift rounds toward
// minus infinity.
int32_t fixedMul(int32_t a, int32_t b);

// a / b; 0 when b is 0. The dividend is widened to 31 bits before the division, which cuts toward zero; where the
// quotient has more fraction bits than 12, the rest is cut toward minus infinity.
int32_t fixedDiv(int32_t a, int32_t b);

// The nearest integer to the square root, for every value: 0..65536.
uint32_t integerSqrt(uint32_t value);

// --- Angles ---

// Sine and cosine of an angle in 1/4096 of a turn (any integer; whole turns drop out) as F numbers, -4096..4096: the
// nearest one for every angle.
int32_t sine12(int32_t angle);
int32_t cosine12(int32_t angle);

// Arcsine. sine: 1.0 = 2^20, -2^20..2^20. Returns the angle in 1/2^20 of a turn, -2^18..2^18, at most 1.18 off. Rises
// with the sine everywhere.
int32_t arcsine20(int32_t sine);

// --- Vectors of three F numbers ---

int32_t dotFixed(const int32_t a[3], const int32_t b[3]);

// out may be a or b.
void crossFixed(const int32_t a[3], const int32_t b[3], int32_t out[3]);

// Makes v one unit (4096) long. A zero vector is left alone and false returned.
bool normalizeFixed(int32_t v[3]);

// The same for use inside the engine, where a direction is always needed: a zero vector becomes (0, 0, 4096).
void normalizeFixedOrZ(int32_t v[3]);
