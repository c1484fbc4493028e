#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <cstring>

#include "animation/blend_kernels.h"

static const BoneFactors& factorsOf(const BlendTask& task, uint32_t vertex) {
    return *reinterpret_cast<const BoneFactors*>(reinterpret_cast<const uint8_t*>(task.factors) +
                                                 task.factorOffsets[vertex]);
}

// Goes on to what is left behind the first vertices, an even number.
static void advance(BlendTask& task, uint32_t vertexCount) {
    task.rest += vertexCount / 2;
    task.factorOffsets += vertexCount;
    task.vertexCount -= vertexCount;
    task.positions += 3 * vertexCount;
    if (task.normals) task.normals += 3 * vertexCount;
}

// --- SSE2: one vertex at a time ---

static __m128i sumSse2(const int16_t* components, const BoneFactors& factors, int half) {
    const __m128i rest = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(components));
    const __m128i xyFactors = _mm_load_si128(reinterpret_cast<const __m128i*>(factors.xy[half]));
    const __m128i zFactors = _mm_load_si128(reinterpret_cast<const __m128i*>(factors.z[half]));
    const __m128i products = _mm_add_epi32(_mm_madd_epi16(_mm_shuffle_epi32(rest, 0x00), xyFactors),
                                           _mm_madd_epi16(_mm_shuffle_epi32(rest, 0x55), zFactors));
    const __m128i constants = _mm_load_si128(reinterpret_cast<const __m128i*>(factors.constants[half]));
    return _mm_slli_epi32(_mm_add_epi32(products, constants), 4);
}

// Stores 8 and 4 bytes where 6 and 3 are meant; the next vertex writes over the excess.
static void blendVertexSse2(const BlendTask& task, uint32_t vertex) {
    const BoneFactors& factors = factorsOf(task, vertex);
    __m128i sum = _mm_srai_epi32(sumSse2(task.rest->positions[vertex], factors, 0), 16);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(task.positions + 3 * vertex), _mm_packs_epi32(sum, sum));
    if (!task.normals) return;
    sum = _mm_srli_epi32(sumSse2(task.rest->normals[vertex], factors, 1), 24);
    sum = _mm_packs_epi32(sum, sum);
    const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(sum, sum));
    std::memcpy(task.normals + 3 * vertex, &bytes, sizeof bytes);
}

static uint32_t blendSse2(const BlendTask& whole) {
    constexpr uint32_t kReach = 3;  // vertices that the stores of two touch
    BlendTask task = whole;
    for (; task.vertexCount >= kReach; advance(task, 2)) {
        blendVertexSse2(task, 0);
        blendVertexSse2(task, 1);
    }
    return whole.vertexCount - task.vertexCount;
}

// --- AVX2: four vertices at a time, a vertex's position in the lower half of a register and its normal in the upper
// ---

[[gnu::target("avx2")]] static inline __m256i load256(const void* address) {
    return _mm256_load_si256(static_cast<const __m256i*>(address));
}

// The results of an even and of an odd vertex in the order of memory; unused bytes are 0. A second pair's normals leave
// room for those of the first.
[[gnu::target("avx2")]] static inline __m256i packPair(__m256i even, __m256i odd, uint32_t pair) {
    const __m256i words = _mm256_blend_epi16(_mm256_srli_epi32(even, 12), _mm256_slli_epi32(odd, 4), 0xAA);
    const __m256i order = pair == 0 ? _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 2, 3, 6, 7, 10, 11, -1, -1, -1, -1,  //
                                                       1, 5, 9, 3, 7, 11, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1)
                                    : _mm256_setr_epi8(0, 1, 4, 5, 8, 9, 2, 3, 6, 7, 10, 11, -1, -1, -1, -1,  //
                                                       -1, -1, -1, -1, -1, -1, 1, 5, 9, 3, 7, 11, -1, -1, -1, -1);
    return _mm256_shuffle_epi8(words, order);
}

constexpr uint32_t kFourReach = 6;  // vertices that storeFour touches: 28 bytes of positions, 16 of normals

[[gnu::target("avx2")]] static inline void storeFour(const BlendTask& task, __m256i pair0, __m256i pair1) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(task.positions), _mm256_castsi256_si128(pair0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(task.positions + 6), _mm256_castsi256_si128(pair1));
    if (!task.normals) return;
    const __m256i normals = _mm256_or_si256(pair0, pair1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(task.normals), _mm256_extracti128_si256(normals, 1));
}

[[gnu::target("avx2")]] static inline __m256i sumAvx2(__m256i xy, __m256i z, const BoneFactors& factors) {
    const __m256i products =
        _mm256_add_epi32(_mm256_madd_epi16(xy, load256(factors.xy)), _mm256_madd_epi16(z, load256(factors.z)));
    return _mm256_add_epi32(products, load256(factors.constants));
}

[[gnu::target("avx2")]] static inline __m256i blendPairAvx2(const BlendTask& task, uint32_t pair) {
    const __m256i rest = load256(&task.rest[pair]);
    const __m256i even =
        sumAvx2(_mm256_shuffle_epi32(rest, 0x00), _mm256_shuffle_epi32(rest, 0x55), factorsOf(task, 2 * pair));
    const __m256i odd =
        sumAvx2(_mm256_shuffle_epi32(rest, 0xAA), _mm256_shuffle_epi32(rest, 0xFF), factorsOf(task, 2 * pair + 1));
    return packPair(even, odd, pair);
}

[[gnu::target("avx2")]] static uint32_t blendAvx2(const BlendTask& whole) {
    BlendTask task = whole;
    for (; task.vertexCount >= kFourReach; advance(task, 4))
        storeFour(task, blendPairAvx2(task, 0), blendPairAvx2(task, 1));
    return whole.vertexCount - task.vertexCount;
}

// --- AVX-512 VNNI: the same with multiplication and addition in one instruction ---

[[gnu::target("avx2,avx512vl,avx512vnni")]] static inline __m256i sumVnni(__m256i xy, __m256i z,
                                                                          const BoneFactors& factors) {
    const __m256i sum = _mm256_dpwssd_epi32(load256(factors.constants), xy, load256(factors.xy));
    return _mm256_dpwssd_epi32(sum, z, load256(factors.z));
}

[[gnu::target("avx2,avx512vl,avx512vnni")]] static inline __m256i blendPairVnni(const BlendTask& task, uint32_t pair) {
    const __m256i rest = load256(&task.rest[pair]);
    const __m256i even =
        sumVnni(_mm256_shuffle_epi32(rest, 0x00), _mm256_shuffle_epi32(rest, 0x55), factorsOf(task, 2 * pair));
    const __m256i odd =
        sumVnni(_mm256_shuffle_epi32(rest, 0xAA), _mm256_shuffle_epi32(rest, 0xFF), factorsOf(task, 2 * pair + 1));
    return packPair(even, odd, pair);
}

[[gnu::target("avx2,avx512vl,avx512vnni")]] static uint32_t blendVnni(const BlendTask& whole) {
    BlendTask task = whole;
    for (; task.vertexCount >= kFourReach; advance(task, 4))
        storeFour(task, blendPairVnni(task, 0), blendPairVnni(task, 1));
    return whole.vertexCount - task.vertexCount;
}

// --- Composing, for processors that have SSE4.1 ---

struct Rows {
    __m128i row[3];
};

[[gnu::target("sse4.1")]] static inline Rows loadRows(const Atrans3i* matrix) {
    const auto* rows = reinterpret_cast<const __m128i*>(matrix->m);
    return {{_mm_loadu_si128(rows), _mm_loadu_si128(rows + 1), _mm_loadu_si128(rows + 2)}};
}

[[gnu::target("sse4.1")]] static inline __m128i multiplyRow(__m128i a, const Rows& b) {
    const __m128i x = _mm_mullo_epi32(b.row[0], _mm_shuffle_epi32(a, 0x00));
    const __m128i y = _mm_mullo_epi32(b.row[1], _mm_shuffle_epi32(a, 0x55));
    const __m128i z = _mm_mullo_epi32(b.row[2], _mm_shuffle_epi32(a, 0xAA));
    const __m128i sum = _mm_add_epi32(_mm_add_epi32(x, y), _mm_add_epi32(z, _mm_set1_epi32(2048)));
    const __m128i translation = _mm_blend_epi16(_mm_setzero_si128(), a, 0xC0);
    return _mm_add_epi32(_mm_srai_epi32(sum, 12), translation);
}

[[gnu::target("sse4.1")]] static inline void storeTwice(void* address, __m128i value) {
    _mm_store_si128(static_cast<__m128i*>(address), value);
    _mm_store_si128(static_cast<__m128i*>(address) + 1, value);
}

[[gnu::target("sse4.1")]] static bool composeSse41(const Atrans3i* parent, const Atrans3i* local, Atrans3i* world,
                                                   BoneFactors* factors) {
    Rows m = loadRows(local);
    if (parent) {
        const Rows a = loadRows(parent);
        m = {{multiplyRow(a.row[0], m), multiplyRow(a.row[1], m), multiplyRow(a.row[2], m)}};
    }
    for (int i = 0; i < 3; ++i) _mm_storeu_si128(reinterpret_cast<__m128i*>(world->m) + i, m.row[i]);

    // Two words of 16 bits per row in each half: m0 m1 and m2 t.
    const __m128 rows01 = _mm_castsi128_ps(_mm_packs_epi32(m.row[0], m.row[1]));
    const __m128 rows2 = _mm_castsi128_ps(_mm_packs_epi32(m.row[2], m.row[2]));
    storeTwice(factors->xy, _mm_castps_si128(_mm_shuffle_ps(rows01, rows2, 0x88)));
    storeTwice(factors->z, _mm_castps_si128(_mm_shuffle_ps(rows01, rows2, 0xDD)));
    const __m128 t01 = _mm_castsi128_ps(_mm_unpackhi_epi32(m.row[0], m.row[1]));
    const __m128i t = _mm_castps_si128(_mm_shuffle_ps(t01, _mm_castsi128_ps(m.row[2]), 0xFE));
    _mm_store_si128(reinterpret_cast<__m128i*>(factors->constants[0]),
                    _mm_add_epi32(_mm_slli_epi32(t, 12), _mm_set1_epi32(kBlendRounding)));
    _mm_store_si128(reinterpret_cast<__m128i*>(factors->constants[1]),
                    _mm_set1_epi32(kBlendRounding * kRestNormalScale));

    __m128i fits = _mm_set1_epi32(-1);
    for (const __m128i& row : m.row)
        fits = _mm_and_si128(fits, _mm_cmpeq_epi32(row, _mm_srai_epi32(_mm_slli_epi32(row, 16), 16)));
    constexpr int kWithoutTranslation = 7;
    return (_mm_movemask_ps(_mm_castsi128_ps(fits)) & kWithoutTranslation) == kWithoutTranslation;
}

// --- Choice ---

static constexpr BlendKernel kKernels[] = {{"AVX-512 VNNI", composeSse41, blendVnni},
                                           {"AVX2", composeSse41, blendAvx2},
                                           {"SSE2", BoneFactors_compose, blendSse2},
                                           {"plain", BoneFactors_compose, blendNothing}};

std::span<const BlendKernel> BlendKernels_supported() {
    const std::span all(kKernels);
    if (!__builtin_cpu_supports("avx2")) return all.last(2);
    const bool hasVnni = __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vnni");
    return hasVnni ? all : all.last(3);
}

#endif
