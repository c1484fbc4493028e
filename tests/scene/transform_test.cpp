#include "scene/transform.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/scene/matrices.h"

static constexpr Matrix kIdentityElements = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
static constexpr Matrix kCounted = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

static qelTransform transformOf(const Matrix& elements) {
    qelTransform t;
    qelTransform_set_fl(&t, elements.data());
    t.changed = 0;
    return t;
}

static qelTransform identity() {
    qelTransform t;
    qelTransform_setIdentity(&t);
    t.changed = 0;
    return t;
}

static Matrix elementsOf(const qelTransform& t) { return std::to_array(t.elements); }

static void expectNear(const qelTransform& t, const LongMatrix& expected, long double tolerance) {
    for (size_t i = 0; i < 16; ++i) EXPECT_NEAR(t.elements[i], double(expected[i]), double(tolerance)) << i;
}

// Rodrigues' formula from an axis of any length.
static LongMatrix rotation(long double degrees, std::array<long double, 3> axis) {
    const long double length = std::sqrt(axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2]);
    const long double radians = degrees * std::acos(-1.0L) / 180, c = std::cos(radians), s = std::sin(radians);
    for (long double& component : axis) component /= length;
    LongMatrix m = {};
    for (size_t row = 0; row < 3; ++row)
        for (size_t column = 0; column < 3; ++column) {
            m[4 * row + column] = (1 - c) * axis[row] * axis[column];
            if (row == column) m[4 * row + column] += c;
            if (row != column) m[4 * row + column] += (column == (row + 1) % 3 ? -s : s) * axis[3 - row - column];
        }
    m[15] = 1;
    return m;
}

static Matrix randomMatrix(std::mt19937& random) {
    std::uniform_real_distribution<float> entry(-10, 10);
    Matrix m;
    for (float& e : m) e = entry(random);
    return m;
}

TEST(Transform, ProductsAccumulateInColumnOrderInSinglePrecision) {
    std::mt19937 random(1);
    for (int i = 0; i < 1000; ++i) {
        const Matrix a = randomMatrix(random), b = i % 10 == 0 ? a : randomMatrix(random);
        const Matrix expected = product(a, b);
        qelTransform left = transformOf(a), right = transformOf(b), intoLeft = left, intoRight = right;
        qelTransform_postMultiply_copy(&intoLeft, &right, &intoLeft);
        qelTransform_multiplyInto(&intoRight, &left, &intoRight);
        qelTransform_postMultiply(&left, a == b ? &left : &right);
        ASSERT_EQ(elementsOf(intoLeft), expected) << "result in the left factor";
        ASSERT_EQ(elementsOf(intoRight), expected) << "result in the right factor";
        ASSERT_EQ(elementsOf(left), expected);
    }
}

// What is known of a matrix after each operation.
TEST(Transform, StatesAndChangedFlag) {
    using T = qelTransform;
    static const Matrix kMoved = {1, 0, 0, 5, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    static T known = identity(), knownNot = transformOf(kMoved);
    qelTransform_isIdentity(&knownNot);
    const T one = identity(), unknown = transformOf(kIdentityElements), moved = transformOf(kMoved);
    struct Case {
        const char* what;
        const T& start;
        void (*act)(T*);
        std::array<uint32_t, 3> after;  // identityState, uniformDiagonalState, changed
    };
    for (const Case& c : {
             Case{"exact test stores nothing", unknown, [](T* t) { qelTransform_isIdentityExact(t); }, {0, 0, 0}},
             Case{"cached test", unknown, [](T* t) { EXPECT_TRUE(qelTransform_isIdentity(t)); }, {2, 2, 0}},
             Case{"of another", moved, [](T* t) { EXPECT_FALSE(qelTransform_isIdentity(t)); }, {1, 0, 0}},
             Case{"uniform scale", one, [](T* t) { qelTransform_postScale(t, 2, 2, 2); }, {1, 2, 1}},
             Case{"uneven scale", one, [](T* t) { qelTransform_postScale(t, 1, 2, 1); }, {1, 1, 1}},
             Case{"scale by one", unknown, [](T* t) { qelTransform_postScale(t, 1, 1, 1); }, {0, 0, 0}},
             Case{"NaN is no scale by one", one, [](T* t) { qelTransform_postScale(t, NAN, 1, 1); }, {1, 1, 1}},
             Case{"translation", one, [](T* t) { qelTransform_postTranslate(t, 0, 0, 3); }, {1, 2, 1}},
             Case{"translation by nothing", moved, [](T* t) { qelTransform_postTranslate(t, 0, 0, 0); }, {0, 0, 0}},
             Case{"rotation", one, [](T* t) { qelTransform_postRotate(t, 30, 1, 0, 0); }, {0, 0, 1}},
             Case{"no turn", moved, [](T* t) { _qelTransform_postRotateQuat(t, 0, 0, 0, 2); }, {0, 0, 0}},
             Case{"identity times", one, [](T* t) { qelTransform_postMultiply(t, &knownNot); }, {1, 0, 1}},
             Case{"times identity", moved, [](T* t) { qelTransform_postMultiply(t, &known); }, {1, 0, 0}},
             Case{"transpose", moved, qelTransform_transpose, {1, 0, 1}},
             Case{"inverse of the identity", unknown, [](T* t) { qelTransform_invert(t); }, {2, 2, 0}},
             Case{"inverse into itself", unknown, [](T* t) { qelTransform_invert_copy(t, t); }, {0, 0, 1}},
             Case{"rigid inverse", moved, [](T* t) { qelTransform_invertNonScaled_copy(t, t); }, {1, 0, 1}},
         }) {
        T t = c.start;
        c.act(&t);
        EXPECT_EQ((std::array<uint32_t, 3>{t.identityState, t.uniformDiagonalState, t.changed}), c.after) << c.what;
    }
}

TEST(Transform, RotatesAboutAxesAndQuaternionsOfAnyLength) {
    for (const auto& [degrees, x, y, z] : std::vector<std::array<float, 4>>{
             {90, 0, 0, 2}, {-33, 1, 2, 3}, {720.5f, -4, 0.1f, 0}, {180, 1e-20f, 1e-20f, 0}, {12, 1e30f, 0, -1e30f}}) {
        qelTransform t = identity();
        ASSERT_EQ(qelTransform_postRotate(&t, degrees, x, y, z), QEL_STATUS_OK);
        // Single precision of pi / 180 is off by 8e-9, times the radians of two turns.
        expectNear(t, rotation(degrees, {x, y, z}), 3e-7L);
    }
    const long double half = 25 * std::acos(-1.0L) / 180, s = 7 * std::sin(half) / std::sqrt(14.0L);
    qelTransform t = identity();
    ASSERT_EQ(_qelTransform_postRotateQuat(&t, float(s), float(-2 * s), float(3 * s), float(7 * std::cos(half))),
              QEL_STATUS_OK);
    expectNear(t, rotation(50, {1, -2, 3}), 3e-7L);

    t = identity();
    EXPECT_EQ(qelTransform_postRotate(&t, 30, 0, 0, 0), QEL_STATUS_ILLEGAL_ARGUMENT) << "about nothing";
    EXPECT_EQ(qelTransform_postRotate(&t, 0, 0, 0, 0), QEL_STATUS_OK);
    EXPECT_EQ(_qelTransform_postRotateQuat(&t, 0, 0, 0, 0), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(elementsOf(t), kIdentityElements);
    EXPECT_EQ(t.changed, 0);
}

TEST(Transform, ScaleAndTranslationMultiplyFromTheRight) {
    qelTransform t = transformOf(kCounted);
    qelTransform_postScale(&t, 2, 3, -1);
    EXPECT_EQ(elementsOf(t), (Matrix{2, 6, -3, 4, 10, 18, -7, 8, 18, 30, -11, 12, 26, 42, -15, 16}));
    t = transformOf(kCounted);
    qelTransform_postTranslate(&t, 1, 10, 100);
    EXPECT_EQ(elementsOf(t), (Matrix{1, 2, 3, 325, 5, 6, 7, 773, 9, 10, 11, 1221, 13, 14, 15, 1669}));
    t = identity();
    qelTransform_postTranslate(&t, INFINITY, 2, 3);
    EXPECT_EQ(elementsOf(t), (Matrix{1, 0, 0, INFINITY, 0, 1, 0, 2, 0, 0, 1, 3, 0, 0, 0, 1}));
}

// --- Inverses ---

TEST(Transform, InvertsGeneralMatrices) {
    std::mt19937 random(2);
    for (int i = 0; i < 200; ++i) {
        const Matrix m = randomMatrix(random);
        const LongMatrix expected = *inverse(m);
        long double largest = 0;
        for (const long double e : expected) largest = std::max(largest, std::fabs(e));
        qelTransform t = transformOf(m), out;
        ASSERT_EQ(qelTransform_invert_copy(&t, &out), QEL_STATUS_OK);
        expectNear(out, expected, largest * 1e-7L);  // one rounding to single precision
        ASSERT_EQ(qelTransform_invert(&t), QEL_STATUS_OK);
        EXPECT_EQ(elementsOf(t), elementsOf(out));
    }
    // A row of large numbers does not win its pivot by size alone.
    qelTransform t = transformOf({1e30f, 1e30f, 0, 0, 1, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0.5f, 0});
    EXPECT_EQ(qelTransform_invert(&t), QEL_STATUS_OK);
    EXPECT_EQ(elementsOf(t), (Matrix{0, 1, 0, 0, 1e-30f, -1, 0, 0, 0, 0, 0, 2, 0, 0, 0.25f, 0}));

    qelTransform rigid = identity(), out;
    qelTransform_postRotate(&rigid, 30, 0, 1, 0);
    qelTransform_postTranslate(&rigid, 1, 2, 3);
    ASSERT_EQ(qelTransform_invertNonScaled_copy(&rigid, &out), QEL_STATUS_OK);
    expectNear(out, *inverse(elementsOf(rigid)), 5e-7L);
}

TEST(Transform, SingularMatricesStayAsTheyAre) {
    for (const Matrix& m : {Matrix{1, 2, 3, 4, 0, 0, 0, 0, 9, 10, 1, 12, 0, 0, 0, 1},   // a row of zeros
                            Matrix{1, 0, 3, 4, 5, 0, 7, 8, 9, 0, 1, 12, 0, 0, 0, 1},    // a column of zeros
                            Matrix{1, 2, 3, 4, 2, 4, 6, 8, 0, 0, 1, 0, 0, 0, 0, 1}}) {  // two rows alike
        qelTransform t = transformOf(m), out = identity();
        EXPECT_EQ(qelTransform_invert(&t), QEL_STATUS_ARITHMETIC);
        EXPECT_EQ(elementsOf(t), m);
        EXPECT_EQ(qelTransform_invert_copy(&t, &out), QEL_STATUS_ARITHMETIC);
        EXPECT_EQ(elementsOf(out), kIdentityElements);
        EXPECT_EQ(out.changed, 0);
    }
}

TEST(Transform, RefusesNullArguments) {
    qelTransform t = transformOf(kCounted), out = identity();
    for (const int32_t result :
         {qelTransform_set_fl(&t, nullptr), qelTransform_set_tr(&t, nullptr), qelTransform_get(&t, nullptr),
          qelTransform_getColumnMajor(&t, nullptr), qelTransform_postMultiply(&t, nullptr),
          qelTransform_postMultiply_copy(&t, nullptr, &out), qelTransform_postMultiply_copy(&t, &t, nullptr),
          qelTransform_invert_copy(&t, nullptr), qelTransform_invertNonScaled_copy(&t, nullptr),
          qelTransform_transformVectors(&t, nullptr, 1)})
        EXPECT_EQ(result, QEL_STATUS_NULL_POINTER);
    EXPECT_EQ(elementsOf(t), kCounted);
    EXPECT_EQ(elementsOf(out), kIdentityElements);
    EXPECT_EQ(t.changed + out.changed, 0);
}

// --- Vectors and other forms ---

TEST(Transform, AppliesItselfToVectors) {
    const qelTransform t = transformOf(kCounted);
    float v[3] = {1, -1, 2}, n[3] = {1, -1, 2};
    qelTransform_affineTransform(&t, v, v);
    EXPECT_EQ(std::to_array(v), (std::array<float, 3>{9, 21, 33}));
    qelTransform_transformNormal(&t, n, n);
    EXPECT_EQ(std::to_array(n), (std::array<float, 3>{5, 13, 21}));

    float vectors[8] = {1, -1, 2, 1, 0, 0, 0, 2};
    EXPECT_EQ(qelTransform_transformVectors(&t, vectors, 2), QEL_STATUS_OK);
    EXPECT_EQ(std::to_array(vectors), (std::array<float, 8>{9, 21, 33, 45, 8, 16, 24, 32}));
    const int16_t points[6] = {1, -1, 2, -32768, 0, 0};
    float out[6];
    qelTransform_transformPoints16(&t, points, out, 2);
    EXPECT_EQ(std::to_array(out), (std::array<float, 6>{9, 21, 33, -32764, -163832, -294900}));
}

TEST(Transform, IntegerFormsRoundNormalsAndTruncateRows) {
    qelTransform t = identity();
    qelTransform_postScale(&t, 0.5f, 2, 1e30f);
    const int8_t bytes[3] = {5, 100, 1};
    int8_t outBytes[3];
    qelTransform_transformNormalsInt(&t, bytes, outBytes, 1, 1);
    EXPECT_EQ(std::to_array(outBytes), (std::array<int8_t, 3>{3, int8_t(200), int8_t(0xFF)})) << "the low bits";
    const int16_t words[6] = {-5, 20000, -1, 1, 0, 0};
    int16_t outWords[6];
    qelTransform_transformNormalsInt(&t, words, outWords, 2, 2);
    EXPECT_EQ(std::to_array(outWords), (std::array<int16_t, 6>{-3, int16_t(40000), 0, 1, 0, 0}));

    t = identity();
    const float row[4] = {1.99999f, -1.99999f, -0.5f, 3.0f};
    qelTransform_setRow(&t, 1, row);
    int32_t fixed[12];
    qelTransform_toFixedRows(&t, fixed);
    EXPECT_EQ(std::to_array(fixed), (std::array<int32_t, 12>{4096, 0, 0, 0, 8191, -8191, -2048, 12288, 0, 0, 4096, 0}));
}
