#include "animation/pose_kernel_avx2.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include "frame/fixed_point.h"
#include "frame/fixed_tables.h"

// Eight bones at a time, one in each 32 bits of a register. Integer arithmetic wraps around like that of the scalar
// functions named below; divisions and the root are done in doubles, which hold all operands and give exactly the whole
// numbers that integer arithmetic gives.

struct Vector8 {
    __m256i x, y, z;
};

// The four columns of eight rows of four.
struct Columns8 {
    __m256i x, y, z, w;
};

// --- Rows and columns ---

// Transposes the 4 x 4 words of each half of the registers.
[[gnu::target("avx2")]] static inline Columns8 transpose(const Columns8& r) {
    const __m256i xy01 = _mm256_unpacklo_epi32(r.x, r.y), zw01 = _mm256_unpacklo_epi32(r.z, r.w);
    const __m256i xy23 = _mm256_unpackhi_epi32(r.x, r.y), zw23 = _mm256_unpackhi_epi32(r.z, r.w);
    return {_mm256_unpacklo_epi64(xy01, zw01), _mm256_unpackhi_epi64(xy01, zw01), _mm256_unpacklo_epi64(xy23, zw23),
            _mm256_unpackhi_epi64(xy23, zw23)};
}

[[gnu::target("avx2")]] static inline __m256i loadTwoRows(const int32_t* low, const int32_t* high) {
    return _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(high), reinterpret_cast<const __m128i*>(low));
}

[[gnu::target("avx2")]] static inline void storeTwoRows(int32_t* low, int32_t* high, __m256i rows) {
    _mm256_storeu2_m128i(reinterpret_cast<__m128i*>(high), reinterpret_cast<__m128i*>(low), rows);
}

// Word `first` of each of the eight rows and the three words behind it.
[[gnu::target("avx2")]] static inline Columns8 loadColumns(const int32_t* const rows[8], int first) {
    return transpose({loadTwoRows(rows[0] + first, rows[4] + first), loadTwoRows(rows[1] + first, rows[5] + first),
                      loadTwoRows(rows[2] + first, rows[6] + first), loadTwoRows(rows[3] + first, rows[7] + first)});
}

[[gnu::target("avx2")]] static inline void storeColumns(int32_t* const rows[8], int first, const Columns8& columns) {
    const Columns8 r = transpose(columns);
    storeTwoRows(rows[0] + first, rows[4] + first, r.x);
    storeTwoRows(rows[1] + first, rows[5] + first, r.y);
    storeTwoRows(rows[2] + first, rows[6] + first, r.z);
    storeTwoRows(rows[3] + first, rows[7] + first, r.w);
}

// --- Arithmetic ---

[[gnu::target("avx2")]] static inline __m256i select(__m256i mask, __m256i a, __m256i b) {
    return _mm256_blendv_epi8(b, a, mask);
}

[[gnu::target("avx2")]] static inline __m256i negate(__m256i a) { return _mm256_sub_epi32(_mm256_setzero_si256(), a); }

// All bits of a word where `bit` is set.
[[gnu::target("avx2")]] static inline __m256i maskOfBit(__m256i a, int bit) {
    return _mm256_srai_epi32(_mm256_slli_epi32(a, 31 - bit), 31);
}

[[gnu::target("avx2")]] static inline __m256i roundProduct(__m256i product) {
    return _mm256_srai_epi32(_mm256_add_epi32(product, _mm256_set1_epi32(2048)), 12);
}

[[gnu::target("avx2")]] static inline __m256d lowDoubles(__m256i a) {
    return _mm256_cvtepi32_pd(_mm256_castsi256_si128(a));
}

[[gnu::target("avx2")]] static inline __m256d highDoubles(__m256i a) {
    return _mm256_cvtepi32_pd(_mm256_extracti128_si256(a, 1));
}

// Truncated quotients of whole numbers.
[[gnu::target("avx2")]] static inline __m256i divide(__m256i a, __m256d lowDivisors, __m256d highDivisors) {
    const __m128i low = _mm256_cvttpd_epi32(_mm256_div_pd(lowDoubles(a), lowDivisors));
    const __m128i high = _mm256_cvttpd_epi32(_mm256_div_pd(highDoubles(a), highDivisors));
    return _mm256_set_m128i(high, low);
}

// --- normalizeFixedOrZ, for components below 2^17 ---

// The root of the sum of squares to the nearest integer, at least 1.
[[gnu::target("avx2")]] static inline __m256d lengthOf(__m256d x, __m256d y, __m256d z) {
    const __m256d square = _mm256_add_pd(_mm256_add_pd(_mm256_mul_pd(x, x), _mm256_mul_pd(y, y)), _mm256_mul_pd(z, z));
    const __m256d nearest = _mm256_floor_pd(_mm256_add_pd(_mm256_sqrt_pd(square), _mm256_set1_pd(0.5)));
    return _mm256_max_pd(nearest, _mm256_set1_pd(1.0));
}

[[gnu::target("avx2")]] static inline Vector8 normalize(const Vector8& v) {
    const __m256i bits =
        _mm256_or_si256(_mm256_or_si256(_mm256_abs_epi32(v.x), _mm256_abs_epi32(v.y)), _mm256_abs_epi32(v.z));
    // The float's exponent tells the highest bit. Shifting by two more than to 15 bits, then back, never shifts by less
    // than 0; a zero vector is shifted out altogether.
    const __m256i exponent = _mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(bits)), 23);
    const __m256i shift = _mm256_sub_epi32(_mm256_set1_epi32(127 + 16), exponent);
    const __m256i x = _mm256_srai_epi32(_mm256_sllv_epi32(v.x, shift), 2);
    const __m256i y = _mm256_srai_epi32(_mm256_sllv_epi32(v.y, shift), 2);
    const __m256i z = _mm256_srai_epi32(_mm256_sllv_epi32(v.z, shift), 2);
    const __m256d low = lengthOf(lowDoubles(x), lowDoubles(y), lowDoubles(z));
    const __m256d high = lengthOf(highDoubles(x), highDoubles(y), highDoubles(z));
    const __m256i isZero = _mm256_cmpeq_epi32(bits, _mm256_setzero_si256());
    return {divide(_mm256_slli_epi32(x, 12), low, high), divide(_mm256_slli_epi32(y, 12), low, high),
            select(isZero, _mm256_set1_epi32(kFixedOne), divide(_mm256_slli_epi32(z, 12), low, high))};
}

// --- sine12 and cosine12 ---

struct SineCosine8 {
    __m256i sine, cosine;
};

struct QuadraticRow8 {
    __m256i c0, c1, c2;
};

[[gnu::target("avx2")]] static inline QuadraticRow8 gatherRows(const QuadraticRow* rows, __m256i index) {
    const auto* words = reinterpret_cast<const int*>(rows);
    const __m256i first = _mm256_add_epi32(index, _mm256_add_epi32(index, index));  // three words a row
    return {_mm256_i32gather_epi32(words, first, 4), _mm256_i32gather_epi32(words + 1, first, 4),
            _mm256_i32gather_epi32(words + 2, first, 4)};
}

// A value of 1.0 = 2^32, rounded to 12 bits and negated where `negative` is set.
[[gnu::target("avx2")]] static inline __m256i roundSine(__m256i value, __m256i negative) {
    const __m256i rounded = _mm256_srli_epi32(_mm256_add_epi32(_mm256_srli_epi32(value, 19), _mm256_set1_epi32(1)), 1);
    return _mm256_sub_epi32(_mm256_xor_si256(rounded, negative), negative);
}

// Sine and cosine of an angle lie on the two tables at the same position; which is which depends on the octant.
[[gnu::target("avx2")]] static inline SineCosine8 sineCosine(__m256i angle) {
    const __m256i quarter = _mm256_slli_epi32(angle, 22);
    const __m256i isOdd = maskOfBit(angle, 9);
    const __m256i position = select(isOdd, negate(quarter), quarter);
    const __m256i index = _mm256_and_si256(_mm256_srli_epi32(position, 27), _mm256_set1_epi32(15));
    const __m256i u = _mm256_and_si256(_mm256_srli_epi32(position, 11), _mm256_set1_epi32(0xffff));

    const QuadraticRow8 s = gatherRows(kSineRows.data(), index);
    __m256i slope = _mm256_sub_epi32(s.c1, _mm256_srli_epi32(_mm256_mullo_epi32(s.c2, u), 6));
    __m256i sine = _mm256_srli_epi32(_mm256_mullo_epi32(_mm256_srli_epi32(slope, 16), u), 4);
    sine = _mm256_add_epi32(s.c0, sine);

    const QuadraticRow8 c = gatherRows(kCosineRows.data(), index);
    slope = _mm256_add_epi32(_mm256_srli_epi32(_mm256_mullo_epi32(c.c2, u), 5), c.c1);
    const __m256i drop = _mm256_srli_epi32(_mm256_mullo_epi32(_mm256_srli_epi32(slope, 16), u), 5);
    __m256i cosine = _mm256_slli_epi32(_mm256_sub_epi32(c.c0, drop), 1);
    cosine = _mm256_sub_epi32(cosine, _mm256_set1_epi32(1536));

    const __m256i isEighth = _mm256_cmpeq_epi32(quarter, _mm256_set1_epi32(INT32_MIN));
    const __m256i sineOfEighth = _mm256_set1_epi32(int32_t(0xb504f334));
    sine = select(isEighth, sineOfEighth, sine);
    cosine = select(isEighth, sineOfEighth, cosine);
    const __m256i isSwapped = _mm256_xor_si256(isOdd, maskOfBit(angle, 10));
    const __m256i angleOfCosine = _mm256_add_epi32(angle, _mm256_set1_epi32(1024));
    return {roundSine(select(isSwapped, cosine, sine), maskOfBit(angle, 11)),
            roundSine(select(isSwapped, sine, cosine), maskOfBit(angleOfCosine, 11))};
}

// --- Atrans3i_setDirectionRollScale ---

struct Matrix8 {
    __m256i m[3][3];
};

[[gnu::target("avx2")]] static inline Matrix8 rotationOnto(const Vector8& d) {
    const __m256i p = _mm256_srai_epi32(_mm256_mullo_epi32(d.x, d.x), 12);
    const __m256i q = _mm256_srai_epi32(_mm256_mullo_epi32(d.y, d.y), 12);
    const __m256i sum = _mm256_add_epi32(p, q);
    const __m256i isOffAxis = _mm256_cmpgt_epi32(sum, _mm256_setzero_si256());
    const __m256i divisor = _mm256_max_epi32(sum, _mm256_set1_epi32(1));
    const __m256i rise = _mm256_slli_epi32(_mm256_sub_epi32(_mm256_set1_epi32(kFixedOne), d.z), 12);
    const __m256i k = divide(rise, lowDoubles(divisor), highDoubles(divisor));
    const __m256i xy = _mm256_srai_epi32(negate(_mm256_mullo_epi32(d.x, d.y)), 12);
    const __m256i c = _mm256_and_si256(isOffAxis, _mm256_srai_epi32(_mm256_mullo_epi32(xy, k), 12));
    // On the axis p and q are 0.
    const __m256i kq = _mm256_srai_epi32(_mm256_mullo_epi32(k, q), 12);
    const __m256i kp = _mm256_srai_epi32(_mm256_mullo_epi32(k, p), 12);
    const __m256i x = _mm256_and_si256(isOffAxis, d.x), y = _mm256_and_si256(isOffAxis, d.y);
    return {{{select(isOffAxis, _mm256_add_epi32(kq, d.z), _mm256_set1_epi32(kFixedOne)), c, x},
             {c, _mm256_add_epi32(kp, d.z), y},
             {negate(x), negate(y), d.z}}};
}

// A roll of 0 leaves every entry as it is, and so does a scale of 1.0.
[[gnu::target("avx2")]] static inline void rollAndScale(Matrix8& matrix, __m256i angle, const Columns8& scale) {
    const SineCosine8 roll = sineCosine(angle);
    for (__m256i* row : {matrix.m[0], matrix.m[1], matrix.m[2]}) {
        const __m256i m0 = row[0], m1 = row[1];
        row[0] = roundProduct(_mm256_add_epi32(_mm256_mullo_epi32(m1, roll.sine), _mm256_mullo_epi32(m0, roll.cosine)));
        row[1] = roundProduct(_mm256_sub_epi32(_mm256_mullo_epi32(m1, roll.cosine), _mm256_mullo_epi32(m0, roll.sine)));
        row[0] = roundProduct(_mm256_mullo_epi32(row[0], scale.x));
        row[1] = roundProduct(_mm256_mullo_epi32(row[1], scale.y));
        row[2] = roundProduct(_mm256_mullo_epi32(row[2], scale.z));
    }
}

// --- D_Atrans3i_multiply2 ---

[[gnu::target("avx2")]] static inline __m256i applyRow(const Columns8& row, __m256i x, __m256i y, __m256i z) {
    const __m256i xy = _mm256_add_epi32(_mm256_mullo_epi32(row.x, x), _mm256_mullo_epi32(row.y, y));
    return roundProduct(_mm256_add_epi32(xy, _mm256_mullo_epi32(row.z, z)));
}

[[gnu::target("avx2")]] static inline Columns8 multiplyRow(const Columns8& row, const Matrix8& b, const Columns8& t) {
    return {applyRow(row, b.m[0][0], b.m[1][0], b.m[2][0]), applyRow(row, b.m[0][1], b.m[1][1], b.m[2][1]),
            applyRow(row, b.m[0][2], b.m[1][2], b.m[2][2]), _mm256_add_epi32(applyRow(row, t.x, t.y, t.z), row.w)};
}

// --- The batch ---

// The lanes that a batch leaves over compute its first bone once more.
[[gnu::target("avx2")]] void poseAvx2(const PoseBatch& batch) {
    const int32_t *values[kPoseBatchSize], *rest[kPoseBatchSize];
    int32_t* out[kPoseBatchSize];
    for (uint32_t lane = 0; lane < kPoseBatchSize; ++lane) {
        const uint32_t bone = lane < batch.count ? lane : 0;
        values[lane] = batch.values[bone].translation;
        rest[lane] = batch.rest[bone]->m;
        out[lane] = batch.out[bone]->m;
    }
    const Columns8 translationAndRoll = loadColumns(values, 0);
    const Columns8 scale = loadColumns(values, 4);
    const Columns8 direction = loadColumns(values, 8);
    Matrix8 matrix = rotationOnto(normalize({direction.x, direction.y, direction.z}));
    rollAndScale(matrix, translationAndRoll.w, scale);
    Columns8 product[3];
    for (int row = 0; row < 3; ++row)
        product[row] = multiplyRow(loadColumns(rest, 4 * row), matrix, translationAndRoll);
    for (int row = 0; row < 3; ++row) storeColumns(out, 4 * row, product[row]);
}

#endif
