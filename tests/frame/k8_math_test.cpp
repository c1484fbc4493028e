#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "k8.h"

namespace {

constexpr long double kDegree = std::numbers::pi_v<long double> / 180;

TEST(K8Math, TakesJAndGivesF) {
    EXPECT_EQ(K8Math_J2F(-1.5f), -6144);
    EXPECT_EQ(K8Math_J2I(-1.5f), -6144);
    EXPECT_EQ(K8Math_F2J(1), 1.0f / 4096);
    EXPECT_EQ(K8Math_I2J(1), 1.0f / 4096);
    EXPECT_EQ(K8Math_F2I(INT32_MIN), INT32_MIN);
    EXPECT_EQ(K8Math_I2F(-3), -3);
    EXPECT_EQ(K8Math_add(1.5f, 2.25f), 15360);
    EXPECT_EQ(K8Math_add(524287.0f, 524287.0f), -8192) << "wraps";
    EXPECT_EQ(K8Math_sub(-524288.0f, 1.0f), INT32_MAX - 4095) << "wraps";
    EXPECT_EQ(K8Math_mul(2.0f, 3.0f), 24576);
    EXPECT_EQ(K8Math_div(1.0f, 0.0f), 0);
    EXPECT_EQ(K8Math_div(-3.0f, 2.0f), -6144);
    EXPECT_EQ(K8Math_abs(-0.5f), 2048);
    EXPECT_EQ(K8Math_abs(-524288.0f), INT32_MIN) << "has no positive";
    EXPECT_EQ(K8Math_sqrt(4.0f), 8192);
    EXPECT_EQ(K8Math_sqrt(0.25f), 2048);
    EXPECT_EQ(K8Math_sqrt(-1.0f / 4096), 65536 << 6) << "the unsigned pattern of -1";
}

TEST(K8Math, ConvertsAngles) {
    struct Case {
        float degrees;
        int32_t angle;
    };
    for (const Case& c : {Case{90, 1024}, Case{-90, 3072}, Case{0, 0}, Case{360, 0}, Case{-360, 4096}, Case{-720, 4096},
                          Case{450, 1024}, Case{-0.0001f, 0}, Case{-1.0f / 4096, 4095}, Case{359.9999f, 4095},
                          Case{0.0878f, 0}, Case{0.0880f, 1}})
        EXPECT_EQ(K8Math_convAngleF2I(c.degrees), c.angle) << c.degrees;
    EXPECT_EQ(K8Math_convAngleI2F(1024), 368640);
    EXPECT_EQ(K8Math_convAngleI2F(4096), 0);
    EXPECT_EQ(K8Math_convAngleI2F(-1), 4095 * 360);
}

TEST(K8Math, SineCosineTangent) {
    EXPECT_EQ(K8Math_sin(90.0f), 4096);
    EXPECT_EQ(K8Math_sin(45.0f), 2896);
    EXPECT_EQ(K8Math_sin(-90.0f), -4096);
    EXPECT_EQ(K8Math_cos(180.0f), -4096);
    EXPECT_EQ(K8Math_cos(-360.0f), 4096);
    EXPECT_EQ(K8Math_tan(90.0f), 0) << "zero cosine";
    EXPECT_EQ(K8Math_tan(45.0f), 4096);
    EXPECT_EQ(K8Math_tan(-60.0f), -3548 * 4096 / 2046) << "of the angle 3413, in 12 bits";
    for (int degrees = -720; degrees <= 720; ++degrees) {
        // The angle is up to 1/4096 of a turn short, which is 6.3 units where the sine is steepest.
        EXPECT_NEAR(K8Math_sin(float(degrees)), double(4096 * std::sin(kDegree * degrees)), 7) << degrees;
        EXPECT_NEAR(K8Math_cos(float(degrees)), double(4096 * std::cos(kDegree * degrees)), 7) << degrees;
    }
}

// Angles come in steps of 90 / 4096 degree, cut toward zero; the kernel misses by up to 1.2 / 64 of a step.
TEST(K8Math, ArcsineAndArccosineOfEveryNumber) {
    for (int32_t f = -4096; f <= 4096; ++f) {
        const float x = K8Math_F2J(f);
        const double arcsine = double(std::asin((long double)f / 4096) / kDegree * 4096);
        const double arccosine = 90 * 4096 - arcsine;
        ASSERT_NEAR(K8Math_asin(x) + (f < 0 ? -45 : 45), arcsine, 48) << f;
        ASSERT_NEAR(K8Math_acos(x) + 45, arccosine, 48) << f;
    }
    struct Case {
        float in;
        int32_t asin, acos;
    };
    for (const Case& c : {Case{1, 368640, 0}, Case{-1, -368640, 737280}, Case{0, 0, 368640}, Case{-0.0f, 0, 368640},
                          Case{2, 0, 0}, Case{-1.001f, 0, 0}, Case{NAN, 0, 368640}, Case{INFINITY, 0, 368640},
                          Case{-INFINITY, 0, 368640}, Case{0.5f, 122850, 245700}, Case{-0.5f, -122851, 491490}}) {
        EXPECT_EQ(K8Math_asin(c.in), c.asin) << c.in;
        EXPECT_EQ(K8Math_acos(c.in), c.acos) << c.in;
    }
}

TEST(K8Math, Arctangent) {
    for (int i = -4096; i <= 4096; ++i) {
        const float x = float(i) / 4096;
        EXPECT_NEAR(K8Math_atan(x), double(std::atan((long double)x) / kDegree * 4096), 1.02) << x;
    }
    // Beyond 1 the angle is taken from 1.57075, which is 0.00266 degrees short of a right angle.
    for (const float x : {1.001f, 2.0f, 100.0f, 524287.0f, 1e30f}) {
        const double angle =
            double((std::atan((long double)x) - std::numbers::pi_v<long double> / 2 + 1.57075f) / kDegree);
        EXPECT_NEAR(K8Math_atan(x), angle * 4096, 1.1) << x;
        EXPECT_EQ(K8Math_atan(-x), -K8Math_atan(x)) << x;
    }
    EXPECT_EQ(K8Math_atan(INFINITY), 368629);
    EXPECT_EQ(K8Math_atan(-INFINITY), -368629);
    EXPECT_EQ(K8Math_atan(NAN), 0);
}

TEST(K8Math, ArctangentOfTwo) {
    struct Case {
        float a, b;
        int32_t out;
    };
    for (const Case& c :
         {Case{0, 5, 368640}, Case{0, 0, 368640}, Case{1.0f / 8192, 1, 368640}, Case{5, 0, 0}, Case{-5, 0, 0},
          Case{1, 1, 184320}, Case{-1, -1, 184320}, Case{-1, 1, 552960}, Case{1, -1, 552960}, Case{NAN, 1, 368640}})
        EXPECT_EQ(K8Math_atan2(c.a, c.b), c.out) << c.a << ", " << c.b;
    EXPECT_NEAR(K8Math_atan2(2, -1), 4096 * (180 - 26.5651), 1.1);
    EXPECT_NEAR(K8Math_atan2(-1, 2), 4096 * (180 - 63.4349), 12) << "beyond 1, with its short right angle";
}

TEST(FloatVectors, SumInDoublesAndInTheStatedOrder) {
    const float a[3] = {1, 1e30f, 1e30f}, b[3] = {1, 1, -1}, c[3] = {1e30f, 1e30f, 1}, d[3] = {1, -1, 1};
    EXPECT_EQ(_qel_dot3(a, b), 0.0f) << "x is lost in y before z takes it away";
    EXPECT_EQ(_qel_dot3(c, d), 1.0f);
    EXPECT_EQ(_qel_dot2(3, 4, 5, 6), 39.0f);
    EXPECT_EQ(_qel_det2(3, 4, 5, 6), -2.0f);
    EXPECT_EQ(_qel_det2(16777215, 16777214, 16777216, 16777215), 1.0f) << "products of 48 bits cancel";

    float v[3] = {1, 2, 3};
    const float w[3] = {4, 6, 5};
    _qel_cross3(v, w, v);
    EXPECT_TRUE(v[0] == -8 && v[1] == 7 && v[2] == -2) << "into its first operand";
    _qel_add3(v, w, v);
    EXPECT_TRUE(v[0] == -4 && v[1] == 13 && v[2] == 3);
    _qel_sub3(w, v, v);
    EXPECT_TRUE(v[0] == 8 && v[1] == -7 && v[2] == 2);
    _qel_scale3(-0.5f, v, v);
    EXPECT_TRUE(v[0] == -4 && v[1] == 3.5f && v[2] == -1);
}

TEST(FloatVectors, NormalizeRefusesLengthsThatAreNone) {
    struct Case {
        const char* what;
        float in[3], out[3];
        bool result;
    };
    for (const Case& c : {Case{"3-4-5", {3, 0, -4}, {0.6f, 0, -0.8f}, true},
                          Case{"squares beyond a float", {0, 1e30f, 0}, {0, 1, 0}, true},
                          Case{"squares below a float", {0, 0, -1e-40f}, {0, 0, -1}, true},
                          Case{"zero", {0, -0.0f, 0}, {0, -0.0f, 0}, false}}) {
        float v[3] = {c.in[0], c.in[1], c.in[2]};
        EXPECT_EQ(_qel_normalize3(v), c.result) << c.what;
        for (int i = 0; i < 3; ++i) EXPECT_EQ(v[i], c.out[i]) << c.what;
    }
    float broken[3] = {5, NAN, 7};
    EXPECT_FALSE(_qel_normalize3(broken));
    EXPECT_TRUE(broken[0] == 5 && broken[2] == 7);
}

TEST(FloatVectors, ComparesFloatsByTheNumbersBetweenThem) {
    constexpr int32_t kOne = 0x3f800000, kMinus = INT32_MIN, kTwo = 0x40000000;
    struct Case {
        const char* what;
        int32_t a, b, maxUlps, out;
    };
    for (const Case& c :
         {Case{"both zeros", 0, kMinus, 0, 0}, Case{"both zeros, the other way round", kMinus, 0, 0, 0},
          Case{"neighbours", kOne + 1, kOne, 1, 0}, Case{"neighbours, exactly", kOne + 1, kOne, 0, 1},
          Case{"below", kOne, kOne + 2, 1, -1}, Case{"negative neighbours", kMinus | (kOne + 1), kMinus | kOne, 1, 0},
          Case{"negative, the larger magnitude is less", kMinus | (kOne + 2), kMinus | kOne, 1, -1},
          Case{"negative, the smaller magnitude is more", kMinus | kOne, kMinus | (kOne + 2), 1, 1},
          Case{"across zero", 1, kMinus | 1, 2, 0}, Case{"too far across zero", 1, kMinus | 2, 2, 1},
          Case{"too far the other way", kMinus | 2, 1, 2, -1},
          Case{"two and above is never near a negative", kTwo, kMinus, INT32_MAX, 1},
          Case{"nor minus two near a positive", kMinus | kTwo, 0, INT32_MAX, -1}, Case{"same", kTwo, kTwo, 0, 0},
          Case{"farthest of one sign", INT32_MAX, 0, INT32_MAX, 0}})
        EXPECT_EQ(_ieee_float_cmp_ulps(c.a, c.b, c.maxUlps), c.out) << c.what;
}

}  // namespace
