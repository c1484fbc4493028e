// The arithmetic of skinning, in two kernels that give the same bits: one in plain integers, one in SSE2.
#pragma once

#include <algorithm>
#include <cstring>
#include <limits>

#include "frame/fixed_point.h"
#include "frame/wrap.h"

#ifdef __SSE2__
#include <emmintrin.h>
#endif

// Slightly more than one half of 4096: what is added before twelve bits are dropped.
constexpr int32_t kSkinRounding = 2253;

// What a kernel makes of a bone's matrix of 12 entries of 20.12.
constexpr int32_t kSkinMatrixWords = 16;

// The bones that move a run of vertices: 1 to 3.
struct SkinInfluences {
    const int32_t* bones;
    const int32_t* weights;  // 20.12
    int32_t count;
};

// Both functions of a kernel go over a run of vertices, three components each.
//   positions  every bone's row products and row constants, rounded to integers, weighted and summed; less the bias (of
//              four entries, the last unused), rounded again. Stops at the first vertex that does not fit T and returns
//              its largest magnitude; 0 when all fit
//   normals    the same without constants and bias, and with a rounding that is not alike on both sides of 0. A normal
//              that does not fit is halved until it does

struct PlainSkinKernel {
    static void setMatrix(const int32_t rows[12], int32_t* matrix) { std::copy_n(rows, 12, matrix); }

    template <typename T>
    static uint32_t positions(const int32_t* matrices, const SkinInfluences& influences, const int32_t bias[4],
                              const T* in, T* out, int32_t vertexCount) {
        for (; vertexCount > 0; --vertexCount, in += 3, out += 3) {
            int32_t position[3] = {};
            for (int32_t k = 0; k < influences.count; ++k) {
                const int32_t* row = matrices + influences.bones[k] * kSkinMatrixWords;
                for (int32_t& component : position) {
                    const int32_t moved = roundFixed(wrapAdd(rowProduct(row, in), row[3]));
                    component = wrapAdd(component, wrapMul(moved, influences.weights[k]));
                    row += 4;
                }
            }
            for (int32_t r = 0; r < 3; ++r) position[r] = roundFixed(wrapSub(position[r], bias[r]));
            if (!fits<T>(position)) return largestMagnitude(position);
            std::transform(position, position + 3, out, [](int32_t component) { return T(component); });
        }
        return 0;
    }

    template <typename T>
    static void normals(const int32_t* matrices, const SkinInfluences& influences, const T* in, T* out,
                        int32_t vertexCount) {
        for (; vertexCount > 0; --vertexCount, in += 3, out += 3) {
            int32_t normal[3] = {};
            for (int32_t k = 0; k < influences.count; ++k) {
                const int32_t* row = matrices + influences.bones[k] * kSkinMatrixWords;
                for (int32_t& component : normal) {
                    const int32_t moved = wrapAdd(rowProduct(row, in), kSkinRounding) >> 12;
                    component = wrapAdd(component, wrapMul(moved, influences.weights[k]));
                    row += 4;
                }
            }
            for (int32_t& component : normal) component = wrapAdd(component, kSkinRounding) >> 12;
            storeHalved(normal, out);
        }
    }

    static uint32_t largestMagnitude(const int32_t* v) {
        return std::max({magnitude(v[0]), magnitude(v[1]), magnitude(v[2])});
    }

    template <typename T>
    static void storeHalved(int32_t* v, T* out) {
        while (!fits<T>(v))
            for (int32_t r = 0; r < 3; ++r) v[r] >>= 1;
        std::transform(v, v + 3, out, [](int32_t component) { return T(component); });
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

    template <typename T>
    static bool fits(const int32_t* v) {
        using Limits = std::numeric_limits<T>;
        return std::all_of(v, v + 3,
                           [](int32_t component) { return component >= Limits::min() && component <= Limits::max(); });
    }
};

#ifdef __SSE2__

// A lane for every row. Modulo 2^32, a 32-bit entry times a 16-bit component is two products of 16 bits: that of its
// signed lower half, and 65536 times that of what is left. _mm_madd_epi16 makes two such products at once and adds
// them.
struct Sse2SkinKernel {
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
    static uint32_t positions(const int32_t* matrices, const SkinInfluences& influences, const int32_t bias[4],
                              const T* in, T* out, int32_t vertexCount) {
        if (influences.count == 1)
            return positionsOf<1>(Bones<1>(matrices, influences), load(bias), in, out, vertexCount);
        if (influences.count == 2)
            return positionsOf<2>(Bones<2>(matrices, influences), load(bias), in, out, vertexCount);
        return positionsOf<3>(Bones<3>(matrices, influences), load(bias), in, out, vertexCount);
    }

    template <typename T>
    static void normals(const int32_t* matrices, const SkinInfluences& influences, const T* in, T* out,
                        int32_t vertexCount) {
        if (influences.count == 1) return normalsOf<1>(Bones<1>(matrices, influences), in, out, vertexCount);
        if (influences.count == 2) return normalsOf<2>(Bones<2>(matrices, influences), in, out, vertexCount);
        normalsOf<3>(Bones<3>(matrices, influences), in, out, vertexCount);
    }

private:
    static int32_t lower(int32_t entry) { return int16_t(entry); }
    static int32_t upper(int32_t entry) { return wrapSub(entry, int16_t(entry)) >> 16; }
    static int32_t pair(int32_t first, int32_t second) {
        return int32_t((uint32_t(first) & 0xFFFF) | uint32_t(second) << 16);
    }
    static __m128i load(const int32_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

    // The bones of a run, as setMatrix wrote them.
    template <int32_t kCount>
    struct Bones {
        Bones(const int32_t* matrices, const SkinInfluences& influences) {
            for (int32_t k = 0; k < kCount; ++k) {
                const int32_t* matrix = matrices + influences.bones[k] * kSkinMatrixWords;
                lower01[k] = load(matrix);
                upper01[k] = load(matrix + 4);
                column2[k] = load(matrix + 8);
                constants[k] = load(matrix + 12);
                weights[k] = _mm_set1_epi32(influences.weights[k]);  // at most 4096: their upper halves are 0
            }
        }
        __m128i lower01[kCount], upper01[kCount], column2[kCount], constants[kCount], weights[kCount];
    };

    // (x, y), (z, 0) and (0, z) in every lane.
    struct Vector {
        template <typename T>
        explicit Vector(const T* in)
            : xy(_mm_set1_epi32(pair(in[0], in[1]))),
              zLower(_mm_set1_epi32(pair(in[2], 0))),
              zUpper(_mm_slli_epi32(zLower, 16)) {}
        __m128i xy, zLower, zUpper;
    };

    template <int32_t kCount>
    static __m128i rowProducts(const Bones<kCount>& bones, int32_t k, const Vector& v) {
        const __m128i lowerHalf =
            _mm_add_epi32(_mm_madd_epi16(bones.lower01[k], v.xy), _mm_madd_epi16(bones.column2[k], v.zLower));
        const __m128i upperHalf =
            _mm_add_epi32(_mm_madd_epi16(bones.upper01[k], v.xy), _mm_madd_epi16(bones.column2[k], v.zUpper));
        return _mm_add_epi32(lowerHalf, _mm_slli_epi32(upperHalf, 16));
    }

    static __m128i roundFixed(__m128i value) {
        const __m128i sign = _mm_cmpgt_epi32(_mm_set1_epi32(1), value);  // what is not above 0
        const __m128i size = _mm_sub_epi32(_mm_xor_si128(value, sign), sign);
        const __m128i rounded = _mm_srai_epi32(_mm_add_epi32(size, _mm_set1_epi32(kSkinRounding)), 12);
        return _mm_sub_epi32(_mm_xor_si128(rounded, sign), sign);
    }

    static __m128i weighted(__m128i value, __m128i weight) {
        const __m128i upperHalf = _mm_srli_epi32(_mm_add_epi32(value, _mm_set1_epi32(0x8000)), 16);
        return _mm_add_epi32(_mm_madd_epi16(value, weight), _mm_slli_epi32(_mm_madd_epi16(upperHalf, weight), 16));
    }

    // Stores three components of T if they fit. With room for a fourth, which the next vertex overwrites, in one go.
    template <typename T>
    static bool storeIfFits(__m128i v, T* out, bool hasRoom) {
        __m128i narrow = _mm_packs_epi32(v, v);
        if constexpr (sizeof(T) == 1) narrow = _mm_packs_epi16(narrow, narrow);
        const __m128i wide = sizeof(T) == 1
                                 ? _mm_srai_epi32(_mm_unpacklo_epi16(narrow, _mm_unpacklo_epi8(narrow, narrow)), 24)
                                 : _mm_srai_epi32(_mm_unpacklo_epi16(narrow, narrow), 16);
        if ((_mm_movemask_epi8(_mm_cmpeq_epi32(wide, v)) & 0xFFF) != 0xFFF) return false;
        T four[4];
        if constexpr (sizeof(T) == 1) {
            const int32_t word = _mm_cvtsi128_si32(narrow);
            std::memcpy(four, &word, sizeof four);
        } else {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(four), narrow);
        }
        std::memcpy(out, four, (hasRoom ? 4 : 3) * sizeof(T));
        return true;
    }

    template <int32_t kCount, typename T>
    static uint32_t positionsOf(const Bones<kCount>& bones, __m128i bias, const T* in, T* out, int32_t vertexCount) {
        for (; vertexCount > 0; --vertexCount, in += 3, out += 3) {
            const Vector v(in);
            __m128i sum = _mm_setzero_si128();
            for (int32_t k = 0; k < kCount; ++k)
                sum =
                    _mm_add_epi32(sum, weighted(roundFixed(_mm_add_epi32(rowProducts(bones, k, v), bones.constants[k])),
                                                bones.weights[k]));
            const __m128i position = roundFixed(_mm_sub_epi32(sum, bias));
            if (storeIfFits(position, out, vertexCount > 1)) continue;
            int32_t components[4];
            _mm_storeu_si128(reinterpret_cast<__m128i*>(components), position);
            return PlainSkinKernel::largestMagnitude(components);
        }
        return 0;
    }

    template <int32_t kCount, typename T>
    static void normalsOf(const Bones<kCount>& bones, const T* in, T* out, int32_t vertexCount) {
        const __m128i rounding = _mm_set1_epi32(kSkinRounding);
        for (; vertexCount > 0; --vertexCount, in += 3, out += 3) {
            const Vector v(in);
            __m128i sum = _mm_setzero_si128();
            for (int32_t k = 0; k < kCount; ++k)
                sum = _mm_add_epi32(sum, weighted(_mm_srai_epi32(_mm_add_epi32(rowProducts(bones, k, v), rounding), 12),
                                                  bones.weights[k]));
            const __m128i normal = _mm_srai_epi32(_mm_add_epi32(sum, rounding), 12);
            if (storeIfFits(normal, out, vertexCount > 1)) continue;
            int32_t components[4];
            _mm_storeu_si128(reinterpret_cast<__m128i*>(components), normal);
            PlainSkinKernel::storeHalved(components, out);
        }
    }
};

using SkinKernel = Sse2SkinKernel;

#else

using SkinKernel = PlainSkinKernel;

#endif
