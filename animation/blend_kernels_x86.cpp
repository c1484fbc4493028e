#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <array>
#include <cstring>

#include "animation/blend_kernels.h"

static const BoneFactors& factorsOf(const BlendTask& task, uint32_t vertex) {
    return *reinterpret_cast<const BoneFactors*>(reinterpret_cast<const uint8_t*>(task.factors) +
                                                 task.factorOffsets[vertex]);
}

// --- SSE2: one vertex at a time ---

static __m128i sumSse2(__m128i xy, __m128i z, const BoneFactors& factors, int half) {
    const auto* xyFactors = reinterpret_cast<const __m128i*>(factors.xy[half]);
    const auto* zFactors = reinterpret_cast<const __m128i*>(factors.z[half]);
    const auto* constants = reinterpret_cast<const __m128i*>(factors.constants[half]);
    const __m128i products = _mm_add_epi32(_mm_madd_epi16(xy, *xyFactors), _mm_madd_epi16(z, *zFactors));
    return _mm_slli_epi32(_mm_add_epi32(products, *constants), 4);
}

// Stores 8 and 4 bytes where 6 and 3 are meant; the next vertex writes over the excess.
static uint32_t blendSse2(const BlendTask& task) {
    constexpr uint32_t kReach = 2;  // vertices that the stores touch
    uint32_t v = 0;
    for (; v + kReach <= task.vertexCount; ++v) {
        const BoneFactors& factors = factorsOf(task, v);
        const RestPair& pair = task.rest[v / 2];
        const __m128i position = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(pair.positions[v % 2]));
        __m128i sum = sumSse2(_mm_shuffle_epi32(position, 0x00), _mm_shuffle_epi32(position, 0x55), factors, 0);
        sum = _mm_srai_epi32(sum, 16);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(task.positions + 3 * v), _mm_packs_epi32(sum, sum));
        if (!task.normals) continue;
        const __m128i normal = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(pair.normals[v % 2]));
        sum = sumSse2(_mm_shuffle_epi32(normal, 0x00), _mm_shuffle_epi32(normal, 0x55), factors, 1);
        sum = _mm_srli_epi32(sum, 24);
        sum = _mm_packs_epi32(sum, sum);
        const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(sum, sum));
        std::memcpy(task.normals + 3 * v, &bytes, sizeof bytes);
    }
    return v;
}

// --- AVX2: four vertices at a time, a vertex's position in the lower half of a register and its normal in the upper ---

// The sums of an even and of an odd vertex, words 0 and 1 of each 32 bits, in the order of memory; unused bytes are 0.
// A second pair's normals go behind those of the first.
[[gnu::target("avx2")]] static inline __m256i packPair(__m256i even, __m256i odd, bool second) {
    const __m256i words = _mm256_blend_epi16(_mm256_srli_epi32(even, 12), _mm256_slli_epi32(odd, 4), 0xAA);
    const __m256i order = second ? _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 2, 3, 6, 7, 10, 11, -1, -1, -1, -1,  //
                                                    -1, -1, -1, -1, -1, -1, 1, 5, 9, 3, 7, 11, -1, -1, -1, -1)
                                 : _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 2, 3, 6, 7, 10, 11, -1, -1, -1, -1,  //
                                                    1, 5, 9, 3, 7, 11, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1);
    return _mm256_shuffle_epi8(words, order);
}

constexpr uint32_t kFourReach = 6;  // vertices that storeFour touches: 28 bytes of positions, 16 of normals

[[gnu::target("avx2")]] static inline void storeFour(const BlendTask& task, uint32_t vertex, __m256i first,
                                                     __m256i second) {
    int16_t* positions = task.positions + 3 * vertex;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(positions), _mm256_castsi256_si128(first));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(positions + 6), _mm256_castsi256_si128(second));
    if (!task.normals) return;
    const __m256i both = _mm256_or_si256(first, second);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(task.normals + 3 * vertex), _mm256_extracti128_si256(both, 1));
}

[[gnu::target("avx2")]] static inline __m256i load256(const void* address) {
    return _mm256_load_si256(static_cast<const __m256i*>(address));
}

[[gnu::target("avx2")]] static inline __m256i sumAvx2(__m256i xy, __m256i z, const BoneFactors& factors) {
    const __m256i products =
        _mm256_add_epi32(_mm256_madd_epi16(xy, load256(factors.xy)), _mm256_madd_epi16(z, load256(factors.z)));
    return _mm256_add_epi32(products, load256(factors.constants));
}

[[gnu::target("avx2")]] static inline __m256i blendPairAvx2(const BlendTask& task, uint32_t vertex, bool second) {
    const __m256i rest = load256(&task.rest[vertex / 2]);
    const __m256i even =
        sumAvx2(_mm256_shuffle_epi32(rest, 0x00), _mm256_shuffle_epi32(rest, 0x55), factorsOf(task, vertex));
    const __m256i odd =
        sumAvx2(_mm256_shuffle_epi32(rest, 0xAA), _mm256_shuffle_epi32(rest, 0xFF), factorsOf(task, vertex + 1));
    return packPair(even, odd, second);
}

[[gnu::target("avx2")]] static uint32_t blendAvx2(const BlendTask& task) {
    uint32_t v = 0;
    for (; v + kFourReach <= task.vertexCount; v += 4)
        storeFour(task, v, blendPairAvx2(task, v, false), blendPairAvx2(task, v + 2, true));
    return v;
}

// --- AVX-512 VNNI: the same with multiplication and addition in one instruction ---

[[gnu::target("avx2,avx512vl,avx512vnni")]] static inline __m256i sumVnni(__m256i xy, __m256i z,
                                                                          const BoneFactors& factors) {
    const __m256i sum = _mm256_dpwssd_epi32(load256(factors.constants), xy, load256(factors.xy));
    return _mm256_dpwssd_epi32(sum, z, load256(factors.z));
}

[[gnu::target("avx2,avx512vl,avx512vnni")]] static inline __m256i blendPairVnni(const BlendTask& task, uint32_t vertex,
                                                                                bool second) {
    const __m256i rest = load256(&task.rest[vertex / 2]);
    const __m256i even =
        sumVnni(_mm256_shuffle_epi32(rest, 0x00), _mm256_shuffle_epi32(rest, 0x55), factorsOf(task, vertex));
    const __m256i odd =
        sumVnni(_mm256_shuffle_epi32(rest, 0xAA), _mm256_shuffle_epi32(rest, 0xFF), factorsOf(task, vertex + 1));
    return packPair(even, odd, second);
}

[[gnu::target("avx2,avx512vl,avx512vnni")]] static uint32_t blendVnni(const BlendTask& task) {
    uint32_t v = 0;
    for (; v + kFourReach <= task.vertexCount; v += 4)
        storeFour(task, v, blendPairVnni(task, v, false), blendPairVnni(task, v + 2, true));
    return v;
}

// --- Choice ---

static constexpr std::array<BlendKernelChoice, 3> kKernels = {{
    {"AVX-512 VNNI", blendVnni},
    {"AVX2", blendAvx2},
    {"SSE2", blendSse2},
}};

std::span<const BlendKernelChoice> BlendKernels_supported() {
    const std::span all(kKernels);
    if (!__builtin_cpu_supports("avx2")) return all.last(1);
    const bool hasVnni = __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vnni");
    return hasVnni ? all : all.last(2);
}

#endif
