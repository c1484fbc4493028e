// Four floats at once, in the compiler's own vectors: SSE2, NEON or what else there is, with the same outcome.
#pragma once

#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

using Float4 = float __attribute__((vector_size(16)));
using Int4 = int32_t __attribute__((vector_size(16)));  // of comparisons: -1 for yes, 0 for no
using Short8 = int16_t __attribute__((vector_size(16)));

// At any address.
inline Float4 Float4_load(const float* values) {
    Float4 vector;
    std::memcpy(&vector, values, sizeof vector);
    return vector;
}

inline Float4 Float4_ofOne(float value) { return Float4{value, value, value, value}; }

inline void Float4_store(Float4 vector, float* values) { std::memcpy(values, &vector, sizeof vector); }

// Four 16-bit integers in a row, at any address.
inline Float4 Float4_loadShorts(const void* values) {
    int64_t bits;
    std::memcpy(&bits, values, sizeof bits);
    using Long2 = int64_t __attribute__((vector_size(16)));
    const auto shorts = Short8(Long2{bits, 0});
    const auto doubled = Int4(__builtin_shufflevector(shorts, shorts, 0, 0, 1, 1, 2, 2, 3, 3));
    return __builtin_convertvector(doubled >> 16, Float4);
}

inline Float4 Float4_loadBytes(const int8_t* values) {
    return __builtin_convertvector(Int4{values[0], values[1], values[2], values[3]}, Float4);
}

// Of numbers that are none of them NaN.
inline Float4 Float4_min(Float4 a, Float4 b) { return a < b ? a : b; }
inline Float4 Float4_max(Float4 a, Float4 b) { return a > b ? a : b; }

// Bit k for lane k of a comparison.
inline uint32_t laneBits(Int4 mask) {
#ifdef __SSE2__
    return uint32_t(_mm_movemask_ps(__m128(mask)));
#else
    const Int4 bits = mask & Int4{1, 2, 4, 8};
    return uint32_t(bits[0] | bits[1] | bits[2] | bits[3]);
#endif
}

inline bool isAny(Int4 mask) { return laneBits(mask) != 0; }
