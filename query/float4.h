// Four floats at once, in the compiler's own vectors: SSE2, NEON or what else there is, with the same outcome.
#pragma once

#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

using Float4 = float __attribute__((vector_size(16)));
using Int4 = int32_t __attribute__((vector_size(16)));  // of comparisons: -1 for yes, 0 for no

// At any address.
inline Float4 Float4_load(const float* values) {
    Float4 vector;
    std::memcpy(&vector, values, sizeof vector);
    return vector;
}

inline void Float4_store(Float4 vector, float* values) { std::memcpy(values, &vector, sizeof vector); }

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
