// Two's complement arithmetic on 32-bit words. Signed overflow is undefined in C++, so everything that is meant to wrap
// around goes through these.
#pragma once

#include <cstdint>

static_assert((int32_t(-5) >> 1) == -3, "the kernels rely on an arithmetic right shift of negative numbers");

constexpr int32_t wrapAdd(int32_t a, int32_t b) { return int32_t(uint32_t(a) + uint32_t(b)); }
constexpr int32_t wrapSub(int32_t a, int32_t b) { return int32_t(uint32_t(a) - uint32_t(b)); }
constexpr int32_t wrapMul(int32_t a, int32_t b) { return int32_t(uint32_t(a) * uint32_t(b)); }
constexpr int32_t wrapNeg(int32_t a) { return int32_t(0u - uint32_t(a)); }

// Shifts left by 0..31 bits and keeps the low 32 bits.
constexpr int32_t wrapShl(int32_t a, int32_t bits) { return int32_t(uint32_t(a) << bits); }

// The absolute value; unsigned, because that of -2^31 does not fit a signed word.
constexpr uint32_t magnitude(int32_t a) { return a < 0 ? 0u - uint32_t(a) : uint32_t(a); }
