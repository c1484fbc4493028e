#include "scene/transform.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <random>

using Matrix = std::array<float, 16>;
using LongMatrix = std::array<long double, 16>;

static constexpr Matrix kIdentityElements = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

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

static void expectNear(const qelTransform& t, const LongMatrix& expected, long double tolerance, const char* what) {
    for (size_t i = 0; i < 16; ++i)
        EXPECT_NEAR(t.elements[i], double(expected[i]), double(tolerance)) << what << " " << i;
}

// Rodrigues' formula from an axis of any length.
static LongMatrix rotation(long double degrees, long double x, long double y, long double z) {
    const long double length = std::sqrt(x * x + y * y + z * z), radians = degrees * std::acos(-1.0L) / 180;
    const long double c = std::cos(radians), s = std::sin(radians), u = 1 - c;
    x /= length, y /= length, z /= length;
    return {u * x * x + c,
            u * x * y - s * z,
            u * x * z + s * y,
            0,
            u * x * y + s * z,
            u * y * y + c,
            u * y * z - s * x,
            0,
            u * x * z - s * y,
            u * y * z + s * x,
            u * z * z + c,
            0,
            0,
            0,
            0,
            1};
}

static Matrix randomMatrix(std::mt19937& random) {
    std::uniform_real_distribution<float> entry(-10, 10);
    Matrix m;
    for (float& e : m) e = entry(random);
    return m;
}

// --- Products ---

TEST(Transform, ProductsAccumulateInColumnOrderInSinglePrecision) {
    std::mt19937 random(1);
    for (int i = 0; i < 1000; ++i) {
        const Matrix a = randomMatrix(random), b = randomMatrix(random);
        Matrix expected;
        for (size_t r = 0; r < 4; ++r)
            for (size_t c = 0; c < 4; ++c) {
                volatile float sum = a[4 * r] * b[c];  // rounded at every step
                for (size_t k = 1; k < 4; ++k) {
                    volatile float product = a[4 * r + k] * b[4 * k + c];
                    sum = sum + product;
                }
                expected[4 * r + c] = sum;
            }
        qelTransform left = transformOf(a), right = transformOf(b), out;
        ASSERT_EQ(qelTransform_postMultiply_copy(&left, &right, &out), QEL_STATUS_OK);
        ASSERT_EQ(elementsOf(out), expected);
        qelTransform intoLeft = left, intoRight = right;
        qelTransform_postMultiply_copy(&intoLeft, &right, &intoLeft);
        qelTransform_multiplyInto(&intoRight, &left, &intoRight);
        qelTransform_postMultiply(&left, &right);
        ASSERT_EQ(elementsOf(intoLeft), expected) << "result in the left factor";
        ASSERT_EQ(elementsOf(intoRight), expected) << "result in the right factor";
        ASSERT_EQ(elementsOf(left), expected);
    }
}

TEST(Transform, ProductWithItself) {
    qelTransform t = transformOf({1, 2, 0, 0, 0, 1, 0, 3, 0, 0, 1, 0, 0, 0, 0, 1});
    qelTransform_postMultiply(&t, &t);
    EXPECT_EQ(elementsOf(t), (Matrix{1, 4, 0, 6, 0, 1, 0, 6, 0, 0, 1, 0, 0, 0, 0, 1}));
}

// --- What is known of a matrix after each operation ---

TEST(Transform, StatesAndChangedFlag) {
    static const Matrix kMoved = {1, 0, 0, 5, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    enum class Start { Identity, UnknownIdentity, UnknownMoved };
    struct Case {
        const char* what;
        Start start;
        void (*act)(qelTransform*);
        uint32_t identityState, uniformDiagonalState;
        uint8_t changed;
    };
    for (const Case& c : {
             Case{"set_fl of the identity", Start::Identity,
                  [](qelTransform* t) { qelTransform_set_fl(t, kIdentityElements.data()); }, 0, 0, 1},
             Case{"exact test stores nothing", Start::UnknownIdentity,
                  [](qelTransform* t) { EXPECT_TRUE(qelTransform_isIdentityExact(t)); }, 0, 0, 0},
             Case{"cached test, identity", Start::UnknownIdentity,
                  [](qelTransform* t) { EXPECT_TRUE(qelTransform_isIdentity(t)); }, 2, 2, 0},
             Case{"cached test, other", Start::UnknownMoved,
                  [](qelTransform* t) { EXPECT_FALSE(qelTransform_isIdentity(t)); }, 1, 0, 0},
             Case{"uniform scale", Start::Identity, [](qelTransform* t) { qelTransform_postScale(t, 2, 2, 2); }, 1, 2,
                  1},
             Case{"uneven scale", Start::Identity, [](qelTransform* t) { qelTransform_postScale(t, 1, 2, 1); }, 1, 1,
                  1},
             Case{"scale by one", Start::UnknownIdentity, [](qelTransform* t) { qelTransform_postScale(t, 1, 1, 1); },
                  0, 0, 0},
             Case{"scale of another", Start::UnknownMoved, [](qelTransform* t) { qelTransform_postScale(t, 2, 2, 2); },
                  0, 0, 1},
             Case{"NaN is no scale by one", Start::Identity,
                  [](qelTransform* t) { qelTransform_postScale(t, NAN, 1, 1); }, 1, 1, 1},
             Case{"translation", Start::Identity, [](qelTransform* t) { qelTransform_postTranslate(t, 0, 0, 3); }, 1, 2,
                  1},
             Case{"translation of another", Start::UnknownMoved,
                  [](qelTransform* t) { qelTransform_postTranslate(t, 0, 0, 3); }, 0, 0, 1},
             Case{"translation by nothing", Start::UnknownMoved,
                  [](qelTransform* t) { qelTransform_postTranslate(t, 0, 0, 0); }, 0, 0, 0},
             Case{"rotation by nothing", Start::UnknownIdentity,
                  [](qelTransform* t) { qelTransform_postRotate(t, 0, 1, 0, 0); }, 0, 0, 0},
             Case{"rotation", Start::Identity, [](qelTransform* t) { qelTransform_postRotate(t, 30, 1, 0, 0); }, 0, 0,
                  1},
             Case{"quaternion", Start::Identity, [](qelTransform* t) { _qelTransform_postRotateQuat(t, 0, 0, 0, 2); },
                  0, 0, 1},
             Case{"quaternion that turns nothing", Start::UnknownMoved,
                  [](qelTransform* t) { _qelTransform_postRotateQuat(t, 0, 0, 0, 2); }, 0, 0, 0},
             Case{"product of the identity copies the states", Start::Identity,
                  [](qelTransform* t) {
                      qelTransform moved = transformOf(kMoved);
                      qelTransform_isIdentity(&moved);
                      qelTransform_postMultiply(t, &moved);
                  },
                  1, 0, 1},
             Case{"product with the identity stores the test", Start::UnknownMoved,
                  [](qelTransform* t) {
                      qelTransform one = identity();
                      qelTransform_postMultiply(t, &one);
                  },
                  1, 0, 0},
             Case{"product", Start::UnknownMoved,
                  [](qelTransform* t) {
                      qelTransform moved = transformOf(kMoved);
                      qelTransform_postMultiply(t, &moved);
                  },
                  0, 0, 1},
             Case{"transpose of the identity", Start::Identity, qelTransform_transpose, 2, 2, 0},
             Case{"transpose", Start::UnknownMoved, qelTransform_transpose, 1, 0, 1},
             Case{"row", Start::Identity, [](qelTransform* t) { qelTransform_setRow(t, 0, kIdentityElements.data()); },
                  0, 0, 1},
             Case{"inverse of the identity", Start::UnknownIdentity,
                  [](qelTransform* t) { EXPECT_EQ(qelTransform_invert(t), QEL_STATUS_OK); }, 2, 2, 0},
             Case{"inverse", Start::UnknownMoved,
                  [](qelTransform* t) { EXPECT_EQ(qelTransform_invert(t), QEL_STATUS_OK); }, 0, 0, 1},
             Case{"inverse into itself, exact test", Start::UnknownIdentity,
                  [](qelTransform* t) { EXPECT_EQ(qelTransform_invert_copy(t, t), QEL_STATUS_OK); }, 0, 0, 1},
             Case{"rigid inverse keeps the states", Start::UnknownMoved,
                  [](qelTransform* t) { EXPECT_EQ(qelTransform_invertNonScaled_copy(t, t), QEL_STATUS_OK); }, 1, 0, 1},
         }) {
        qelTransform t = c.start == Start::Identity          ? identity()
                         : c.start == Start::UnknownIdentity ? transformOf(kIdentityElements)
                                                             : transformOf(kMoved);
        c.act(&t);
        EXPECT_EQ(t.identityState, c.identityState) << c.what;
        EXPECT_EQ(t.uniformDiagonalState, c.uniformDiagonalState) << c.what;
        EXPECT_EQ(t.changed, c.changed) << c.what;
    }
}

// --- Rotation, scale, translation ---

TEST(Transform, RotatesAboutAxesOfAnyLength) {
    struct Case {
        float degrees, x, y, z;
    };
    for (const Case& c : {Case{90, 0, 0, 2}, Case{-33, 1, 2, 3}, Case{720.5f, -4, 0.1f, 0},
                          Case{180, 1e-20f, 1e-20f, 0}, Case{12, 1e30f, 0, -1e30f}}) {
        qelTransform t = identity();
        ASSERT_EQ(qelTransform_postRotate(&t, c.degrees, c.x, c.y, c.z), QEL_STATUS_OK);
        // Single precision of pi / 180 is off by 8e-9, times the radians of two turns.
        expectNear(t, rotation(c.degrees, c.x, c.y, c.z), 3e-7L, "rotation");
    }
}

TEST(Transform, RotatesByQuaternionsOfAnyLength) {
    const long double half = 25 * std::acos(-1.0L) / 180, s = std::sin(half), length = std::sqrt(14.0L);
    const float factor = 7;
    qelTransform t = identity();
    ASSERT_EQ(_qelTransform_postRotateQuat(&t, float(factor * s * 1 / length), float(factor * s * -2 / length),
                                           float(factor * s * 3 / length), float(factor * std::cos(half))),
              QEL_STATUS_OK);
    expectNear(t, rotation(50, 1, -2, 3), 3e-7L, "quaternion");
}

TEST(Transform, RefusesToTurnAboutNothing) {
    qelTransform t = identity();
    EXPECT_EQ(qelTransform_postRotate(&t, 30, 0, 0, 0), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(qelTransform_postRotate(&t, 0, 0, 0, 0), QEL_STATUS_OK);
    EXPECT_EQ(_qelTransform_postRotateQuat(&t, 0, 0, 0, 0), QEL_STATUS_ILLEGAL_ARGUMENT);
    EXPECT_EQ(elementsOf(t), kIdentityElements);
    EXPECT_EQ(t.changed, 0);
}

TEST(Transform, ScaleAndTranslationMultiplyFromTheRight) {
    const Matrix m = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    qelTransform t = transformOf(m);
    qelTransform_postScale(&t, 2, 3, -1);
    EXPECT_EQ(elementsOf(t), (Matrix{2, 6, -3, 4, 10, 18, -7, 8, 18, 30, -11, 12, 26, 42, -15, 16}));
    t = transformOf(m);
    qelTransform_postTranslate(&t, 1, 10, 100);
    EXPECT_EQ(elementsOf(t), (Matrix{1, 2, 3, 325, 5, 6, 7, 773, 9, 10, 11, 1221, 13, 14, 15, 1669}));
    t = identity();
    qelTransform_postTranslate(&t, INFINITY, 2, 3);
    EXPECT_EQ(elementsOf(t), (Matrix{1, 0, 0, INFINITY, 0, 1, 0, 2, 0, 0, 1, 3, 0, 0, 0, 1}));
}

// --- Inverses ---

// The adjugate over the determinant: another way than the one under test.
static LongMatrix inverseByCofactors(const Matrix& m) {
    const auto minorOf = [&m](size_t row, size_t column) {
        std::array<long double, 9> n;
        size_t i = 0;
        for (size_t r = 0; r < 4; ++r)
            for (size_t c = 0; c < 4; ++c)
                if (r != row && c != column) n[i++] = m[4 * r + c];
        return n[0] * (n[4] * n[8] - n[5] * n[7]) - n[1] * (n[3] * n[8] - n[5] * n[6]) +
               n[2] * (n[3] * n[7] - n[4] * n[6]);
    };
    long double determinant = 0;
    for (size_t c = 0; c < 4; ++c) determinant += (c % 2 ? -1 : 1) * m[c] * minorOf(0, c);
    LongMatrix inverse;
    for (size_t r = 0; r < 4; ++r)
        for (size_t c = 0; c < 4; ++c) inverse[4 * r + c] = ((r + c) % 2 ? -1 : 1) * minorOf(c, r) / determinant;
    return inverse;
}

TEST(Transform, InvertsGeneralMatrices) {
    std::mt19937 random(2);
    for (int i = 0; i < 200; ++i) {
        const Matrix m = randomMatrix(random);
        const LongMatrix expected = inverseByCofactors(m);
        long double largest = 0;
        for (const long double e : expected) largest = std::max(largest, std::fabs(e));
        qelTransform t = transformOf(m), out;
        ASSERT_EQ(qelTransform_invert_copy(&t, &out), QEL_STATUS_OK);
        expectNear(out, expected, largest * 1e-7L, "inverse");  // one rounding to single precision
        ASSERT_EQ(qelTransform_invert(&t), QEL_STATUS_OK);
        EXPECT_EQ(elementsOf(t), elementsOf(out));
    }
}

TEST(Transform, InvertsWherePivotsMustBeChosen) {
    struct Case {
        const char* what;
        Matrix m, inverse;
    };
    for (const Case& c : {Case{"zeros on the diagonal",
                               {0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 1, 0, 0, 0},
                               {0, 0, 0, 1, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}},
                          Case{"a row of large numbers does not win its pivot by size alone",
                               {1e30f, 1e30f, 0, 0, 1, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0.5f},
                               {0, 1, 0, 0, 1e-30f, -1, 0, 0, 0, 0, 0.25f, 0, 0, 0, 0, 2}}}) {
        qelTransform t = transformOf(c.m);
        EXPECT_EQ(qelTransform_invert(&t), QEL_STATUS_OK) << c.what;
        EXPECT_EQ(elementsOf(t), c.inverse) << c.what;
    }
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

TEST(Transform, RigidInverseTurnsTheTranslationBack) {
    qelTransform t = identity(), inverse;
    qelTransform_postRotate(&t, 30, 0, 1, 0);
    qelTransform_postTranslate(&t, 1, 2, 3);
    ASSERT_EQ(qelTransform_invertNonScaled_copy(&t, &inverse), QEL_STATUS_OK);
    qelTransform_postMultiply(&inverse, &t);
    LongMatrix one;
    std::ranges::copy(kIdentityElements, one.begin());
    expectNear(inverse, one, 5e-7L, "rigid inverse times the matrix");
}

TEST(Transform, NullArgumentsAreReportedBeforeAnythingIsWritten) {
    qelTransform t = identity();
    for (const int32_t status :
         {qelTransform_set_fl(&t, nullptr), qelTransform_set_tr(&t, nullptr), qelTransform_get(&t, nullptr),
          qelTransform_invert_copy(&t, nullptr), qelTransform_invertNonScaled_copy(&t, nullptr),
          qelTransform_postMultiply(&t, nullptr), qelTransform_postMultiply_copy(&t, nullptr, &t),
          qelTransform_postMultiply_copy(&t, &t, nullptr), qelTransform_getColumnMajor(&t, nullptr),
          qelTransform_transformVectors(&t, nullptr, 1)})
        EXPECT_EQ(status, QEL_STATUS_NULL_POINTER);
    EXPECT_EQ(t.changed, 0);
}

// --- Vectors and other forms ---

TEST(Transform, AppliesItselfToVectors) {
    const qelTransform t = transformOf({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16});
    float v[3] = {1, -1, 2};
    EXPECT_EQ(qelTransform_affineTransform(&t, v, v), v);
    EXPECT_EQ(std::to_array(v), (std::array<float, 3>{9, 21, 33}));
    float n[3] = {1, -1, 2};
    EXPECT_EQ(qelTransform_transformNormal(&t, n, n), n);
    EXPECT_EQ(std::to_array(n), (std::array<float, 3>{5, 13, 21}));

    float vectors[8] = {1, -1, 2, 1, 0, 0, 0, 2};
    EXPECT_EQ(qelTransform_transformVectors(&t, vectors, 2), QEL_STATUS_OK);
    EXPECT_EQ(std::to_array(vectors), (std::array<float, 8>{9, 21, 33, 45, 8, 16, 24, 32}));

    const int16_t points[6] = {1, -1, 2, -32768, 0, 0};
    float out[6];
    qelTransform_transformPoints16(&t, points, out, 2);
    EXPECT_EQ(std::to_array(out), (std::array<float, 6>{9, 21, 33, -32764, -163832, -294900}));

    float columns[16];
    qelTransform_getColumnMajor(&t, columns);
    EXPECT_EQ(std::to_array(columns), (Matrix{1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15, 4, 8, 12, 16}));
}

TEST(Transform, IntegerNormalsRoundAndKeepTheirLowBits) {
    qelTransform t = identity();
    qelTransform_postScale(&t, 0.5f, 2, 1e30f);
    const int8_t bytes[3] = {5, 100, 1};
    int8_t outBytes[3];
    qelTransform_transformNormalsInt(&t, bytes, outBytes, 1, 1);
    EXPECT_EQ(std::to_array(outBytes), (std::array<int8_t, 3>{3, int8_t(200), int8_t(0xFF)}));
    const int16_t words[6] = {-5, 20000, -1, 1, 0, 0};
    int16_t outWords[6];
    qelTransform_transformNormalsInt(&t, words, outWords, 2, 2);
    EXPECT_EQ(std::to_array(outWords), (std::array<int16_t, 6>{-3, int16_t(40000), 0, 1, 0, 0}));
}

TEST(Transform, FixedRowsTruncateTowardZero) {
    qelTransform t = identity();
    const float row[4] = {1.99999f, -1.99999f, -0.5f, 3.0f};
    qelTransform_setRow(&t, 1, row);
    int32_t fixed[12];
    qelTransform_toFixedRows(&t, fixed);
    EXPECT_EQ(std::to_array(fixed), (std::array<int32_t, 12>{4096, 0, 0, 0, 8191, -8191, -2048, 12288, 0, 0, 4096, 0}));
}
