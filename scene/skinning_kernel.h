// The arithmetic of skinning a vertex, in two kernels that give the same bits: one in plain integers, one in SSE2.
#pragma once

#include <algorithm>

#include "frame/fixed_point.h"
#include "frame/wrap.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

// Slightly more than one half of 4096: what is added before twelve bits are dropped.
constexpr int32_t kSkinRounding = 2253;

// What a kernel makes of a bone's matrix of 12 entries of 20.12.
constexpr int32_t kSkinMatrixWords = 16;

// The bones that move a vertex.
struct SkinInfluences {
    const int32_t* bones;
    const int32_t* weights;  // 20.12
    int32_t count;
};

// position: every bone's row products and row constants, rounded to integers, weighted and summed; less the bias, rounded
// again. normal: the same without constants and bias, and with a rounding that is not alike on both sides of 0. `bias` and
// `out` have four entries.
struct PlainSkinKernel {
    static void setMatrix(const int32_t rows[12], int32_t* matrix) { std::copy_n(rows, 12, matrix); }

    template <typename T>
    static void position(const int32_t* matrices, const SkinInfluences& influences, const int32_t bias[3], const T* in,
                         int32_t* out) {
        int32_t sum[3] = {};
        for (int32_t k = 0; k < influences.count; ++k) {
            const int32_t* row = matrices + influences.bones[k] * kSkinMatrixWords;
            for (int32_t r = 0; r < 3; ++r, row += 4)
                sum[r] =
                    wrapAdd(sum[r], wrapMul(roundFixed(wrapAdd(rowProduct(row, in), row[3])), influences.weights[k]));
        }
        for (int32_t r = 0; r < 3; ++r) out[r] = roundFixed(wrapSub(sum[r], bias[r]));
    }

    template <typename T>
    static void normal(const int32_t* matrices, const SkinInfluences& influences, const T* in, int32_t* out) {
        int32_t sum[3] = {};
        for (int32_t k = 0; k < influences.count; ++k) {
            const int32_t* row = matrices + influences.bones[k] * kSkinMatrixWords;
            for (int32_t r = 0; r < 3; ++r, row += 4)
                sum[r] =
                    wrapAdd(sum[r], wrapMul(wrapAdd(rowProduct(row, in), kSkinRounding) >> 12, influences.weights[k]));
        }
        for (int32_t r = 0; r < 3; ++r) out[r] = wrapAdd(sum[r], kSkinRounding) >> 12;
    }

private:
    // From 20.12 to an integer, alike on both sides of 0.
    static int32_t roundFixed(int32_t value) {
        return value > 0 ? wrapAdd(value, kSkinRounding) >> 12 : wrapNeg(wrapSub(kSkinRounding, value) >> 12);
    }

    template <typename T>
    static int32_t rowProduct(const int32_t* row, const T* v) {
        return wrapAdd(wrapAdd(wrapMul(row[0], v[0]), wrapMul(row[1], v[1])), wrapMul(row[2], v[2]));
    }
};

#ifdef __SSE2__

// A lane for every row. Modulo 2^32, a 32-bit entry times a 16-bit component is two products of 16 bits: that of its signed
// lower half, and 65536 times that of what is left. _mm_madd_epi16 makes two such products at once and adds them.
struct Sse2SkinKernel {
    // Lower halves of columns 0 and 1, upper halves of columns 0 and 1, both halves of column 2, column 3.
    static void setMatrix(const int32_t rows[12], int32_t* matrix) {
        for (int32_t r = 0; r < 4; ++r) {
            const int32_t* row = rows + 4 * std::min(r, 2);  // the last lane is not used
            matrix[r] = pair(lower(row[0]), lower(row[1]));
            matrix[4 + r] = pair(upper(row[0]), upper(row[1]));
            matrix[8 + r] = pair(lower(row[2]), upper(row[2]));
            matrix[12 + r] = row[3];
        }
    }

    template <typename T>
    static void position(const int32_t* matrices, const SkinInfluences& influences, const int32_t bias[4], const T* in,
                         int32_t* out) {
        const Vector v = loadVector(in);
        __m128i sum = _mm_setzero_si128();
        for (int32_t k = 0; k < influences.count; ++k) {
            const int32_t* matrix = matrices + influences.bones[k] * kSkinMatrixWords;
            const __m128i moved = roundFixed(_mm_add_epi32(rowProducts(matrix, v), load(matrix + 12)));
            sum = _mm_add_epi32(sum, weighted(moved, influences.weights[k]));
        }
        store(out, roundFixed(_mm_sub_epi32(sum, load(bias))));
    }

    template <typename T>
    static void normal(const int32_t* matrices, const SkinInfluences& influences, const T* in, int32_t* out) {
        const __m128i rounding = _mm_set1_epi32(kSkinRounding);
        const Vector v = loadVector(in);
        __m128i sum = _mm_setzero_si128();
        for (int32_t k = 0; k < influences.count; ++k) {
            const __m128i products = rowProducts(matrices + influences.bones[k] * kSkinMatrixWords, v);
            const __m128i moved = _mm_srai_epi32(_mm_add_epi32(products, rounding), 12);
            sum = _mm_add_epi32(sum, weighted(moved, influences.weights[k]));
        }
        store(out, _mm_srai_epi32(_mm_add_epi32(sum, rounding), 12));
    }

private:
    // (x, y), (z, 0) and (0, z) in every lane.
    struct Vector {
        __m128i xy, zLower, zUpper;
    };

    static int32_t lower(int32_t entry) { return int16_t(entry); }
    static int32_t upper(int32_t entry) { return wrapSub(entry, int16_t(entry)) >> 16; }
    static int32_t pair(int32_t first, int32_t second) {
        return int32_t((uint32_t(first) & 0xFFFF) | uint32_t(second) << 16);
    }
    static __m128i load(const int32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
    static void store(int32_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

    template <typename T>
    static Vector loadVector(const T* in) {
        return {_mm_set1_epi32(pair(in[0], in[1])), _mm_set1_epi32(pair(in[2], 0)), _mm_set1_epi32(pair(0, in[2]))};
    }

    static __m128i rowProducts(const int32_t* matrix, const Vector& v) {
        const __m128i column2 = load(matrix + 8);
        const __m128i lowerHalf = _mm_add_epi32(_mm_madd_epi16(load(matrix), v.xy), _mm_madd_epi16(column2, v.zLower));
        const __m128i upperHalf =
            _mm_add_epi32(_mm_madd_epi16(load(matrix + 4), v.xy), _mm_madd_epi16(column2, v.zUpper));
        return _mm_add_epi32(lowerHalf, _mm_slli_epi32(upperHalf, 16));
    }

    static __m128i roundFixed(__m128i value) {
        const __m128i isPositive = _mm_cmpgt_epi32(value, _mm_setzero_si128());
        const __m128i sign = _mm_xor_si128(isPositive, _mm_set1_epi32(-1));
        const __m128i size = _mm_sub_epi32(_mm_xor_si128(value, sign), sign);
        const __m128i rounded = _mm_srai_epi32(_mm_add_epi32(size, _mm_set1_epi32(kSkinRounding)), 12);
        return _mm_sub_epi32(_mm_xor_si128(rounded, sign), sign);
    }

    // value times a weight of 0..4096.
    static __m128i weighted(__m128i value, int32_t weight) {
        const __m128i w = _mm_set1_epi32(weight);  // its upper half is 0
        const __m128i upperHalf = _mm_srli_epi32(_mm_add_epi32(value, _mm_set1_epi32(0x8000)), 16);
        return _mm_add_epi32(_mm_madd_epi16(value, w), _mm_slli_epi32(_mm_madd_epi16(upperHalf, w), 16));
    }
};

using SkinKernel = Sse2SkinKernel;

#else

using SkinKernel = PlainSkinKernel;

#endif
