#include "frame/fixed_point.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <numbers>
#include <random>

#include "tests/frame/number_reference.h"

namespace {

constexpr long double kTurn = 2 * std::numbers::pi_v<long double>;

// Words of every length and sign, with the limits.
class AnyWord {
public:
    int32_t operator()() {
        const uint32_t bits = uint32_t(generator_());
        if (bits % 64 == 0) return INT32_MIN;
        return int32_t(uint32_t(generator_())) >> (bits >> 27);
    }

private:
    std::minstd_rand generator_{7};
};

// --- Numbers ---

TEST(FixedPoint, J2FTruncatesTowardZeroAndWraps) {
    struct Case {
        const char* what;
        float in;
        int32_t out;
    };
    for (const Case& c :
         {Case{"one", 1.0f, 4096}, Case{"negative, toward zero", -1.99994f, -8191}, Case{"smallest", 1.0f / 4096, 1},
          Case{"below 1/4096 vanishes", 1.0f / 8192, 0}, Case{"negative below 1/4096", -1.0f / 8192, 0},
          Case{"greatest before the wrap", 524287.96875f, 0x7fffff80}, Case{"2^19 wraps", 524288.0f, INT32_MIN},
          Case{"2^20 + 1 wraps to one", 1048577.0f, 4096},
          Case{"the last bit that fits", 0x1p19f + 0x1p-4f, INT32_MIN + 256},
          Case{"2^20 and above in whole turns", 0x1.8p43f, 0}, Case{"denormal", 1e-40f, 0},
          Case{"greatest float", 3.4e38f, 0}, Case{"infinity", INFINITY, 0}, Case{"NaN is zero", NAN, 0}})
        EXPECT_EQ(j2f(c.in), c.out) << c.what;
    for (uint64_t bits = 0; bits <= UINT32_MAX; bits += 4099) {
        const float value = std::bit_cast<float>(uint32_t(bits));
        ASSERT_EQ(j2f(value), expectedJ2F(value)) << value;
    }
}

TEST(FixedPoint, F2JKeepsTheLeading24Bits) {
    for (int32_t value = -100000; value <= 100000; ++value) ASSERT_EQ(f2j(value), expectedF2J(value)) << value;
    for (int64_t value = INT32_MIN; value <= INT32_MAX; value += 4099)
        ASSERT_EQ(f2j(int32_t(value)), expectedF2J(int32_t(value))) << value;
    EXPECT_EQ(f2j(INT32_MIN), -524288.0f);
    EXPECT_EQ(f2j(INT32_MAX), 524287.96875f);  // cut, not rounded to 524288
    EXPECT_FALSE(std::signbit(f2j(0)));
}

TEST(FixedPoint, RoundsToTheNearestIntegerAndSaturates) {
    struct Case {
        double in;
        int32_t out;
    };
    for (const Case& c :
         {Case{0.5, 1}, Case{-0.5, -1}, Case{1.5, 2}, Case{2.5, 3}, Case{-2.5, -3}, Case{2.4999999999999996, 2},
          Case{0.49999999999999994, 0}, Case{-0.49999999999999994, 0}, Case{2147483646.5, INT32_MAX},
          Case{2147483647.4, INT32_MAX}, Case{2147483648.0, INT32_MAX}, Case{1e300, INT32_MAX},
          Case{-2147483647.5, INT32_MIN}, Case{-2147483647.4, -INT32_MAX}, Case{-2147483648.0, INT32_MIN},
          Case{-1e300, INT32_MIN}, Case{INFINITY, INT32_MAX}, Case{-INFINITY, INT32_MIN}, Case{NAN, 0}})
        EXPECT_EQ(roundToInt(c.in), c.out) << c.in;
    EXPECT_EQ(roundToInt(0.49999997f), 0);  // the float below one half
    EXPECT_EQ(roundToInt(8388609.0f), 8388609);
    EXPECT_EQ(roundToInt(-2147483648.0f), INT32_MIN);
}

TEST(FixedPoint, MultipliesWithPreshiftedOperands) {
    struct Case {
        const char* what;
        int32_t a, b, out;
    };
    for (const Case& c :
         {Case{"short operands stay whole", 8192, 12288, 24576}, Case{"rounds toward minus infinity", -1, 1, -1},
          Case{"the shorter operand lends its bits", 0x00100000, 3, 768},
          Case{"... and the other way round", 3, 0x00100000, 768},
          Case{"a loan that does not suffice: 29 bits lose 12", 0x12345678, 0x1234, 0x12345 * 0x1234},
          Case{"both too long: 16 bits and 17 lose 1 and 2", 0xffff, 0x1ffff, (0x7fff * 0x7fff) >> 9},
          Case{"equal excess lends nothing", 0x7fff, 0x7fff, (0x7fff * 0x7fff) >> 12},
          Case{"-2^31 has 32 bits", INT32_MIN, 4096, INT32_MIN}, Case{"the product wraps", INT32_MIN, INT32_MIN, 0},
          Case{"zero counts as one bit", 0, INT32_MAX, 0}})
        EXPECT_EQ(fixedMul(c.a, c.b), c.out) << c.what;

    AnyWord word;
    for (int i = 0; i < 200000; ++i) {
        const int32_t a = word(), b = word();
        ASSERT_EQ(fixedMul(a, b), fixedMul(b, a)) << a << " * " << b;
        // Against the real product: each shortened operand loses less than 2^-14 of itself, the last shift less than 1.
        const double product = double(a) * b / 4096;
        if (std::abs(product) > 2147000000.0) continue;
        ASSERT_NEAR(fixedMul(a, b), product, std::abs(product) * 0x1p-13 + 1) << a << " * " << b;
    }
}

TEST(FixedPoint, DividesWithFullQuotients) {
    struct Case {
        const char* what;
        int32_t a, b, out;
    };
    for (const Case& c :
         {Case{"by zero", 4096, 0, 0}, Case{"zero", 0, -5, 0}, Case{"half", 4096, 8192, 2048},
          Case{"a third, cut", 4096, 12288, 1365},
          Case{"minus a third: the quotient is cut toward zero, its shift toward minus infinity", -4096, 12288, -1366},
          Case{"29 bits leave only 2 of the 12 fraction bits", 0x1fffffff, 0x10000000, 7 << 10},
          Case{"-2^31 by -1 wraps", INT32_MIN, -1, 0}, Case{"-2^31 by two", INT32_MIN, 8192, INT32_MIN / 2},
          Case{"-2^31 by itself", INT32_MIN, INT32_MIN, 4096}})
        EXPECT_EQ(fixedDiv(c.a, c.b), c.out) << c.what;

    AnyWord word;
    for (int i = 0; i < 200000; ++i) {
        const int32_t a = word(), b = word();
        ASSERT_EQ(fixedDiv(a, b), expectedQuotient(a, b)) << a << " / " << b;
    }
}

// All arguments with the same leading 17 bits take the same path up to the last comparison, which finds the nearest
// integer from there when it does so at both ends of their range.
TEST(FixedPoint, SquareRootIsTheNearestIntegerEverywhere) {
    EXPECT_EQ(integerSqrt(0), 0u);
    for (uint32_t length = 1; length <= 32; ++length)
        for (uint32_t t = 0; t < 65536; ++t) {
            const uint64_t leading = (65536ull + t) << 16;
            const uint32_t first = uint32_t(leading >> (33 - length));
            const uint32_t last = uint32_t((leading + 0xffff) >> (33 - length));
            ASSERT_EQ(integerSqrt(first), nearestRoot(first)) << first;
            ASSERT_EQ(integerSqrt(last), nearestRoot(last)) << last;
        }
    EXPECT_EQ(integerSqrt(65535u * 65536), 65535u);
    EXPECT_EQ(integerSqrt(65535u * 65536 + 1), 65536u);
    EXPECT_EQ(integerSqrt(2215444479u), 47069u);  // two steps above what the table gives
}

TEST(FixedPoint, SineIsTheNearestNumberForEveryAngle) {
    for (int32_t angle = 0; angle < 4096; ++angle) {
        const int32_t sine = int32_t(std::round(4096 * std::sin(kTurn * angle / 4096)));
        const int32_t cosine = int32_t(std::round(4096 * std::cos(kTurn * angle / 4096)));
        EXPECT_EQ(sine12(angle), sine) << angle;
        EXPECT_EQ(cosine12(angle), cosine) << angle;
        EXPECT_EQ(sine12(angle - 4096 * 77), sine) << "whole turns drop out";
    }
    EXPECT_EQ(cosine12(INT32_MAX), sine12(1023));
}

// The quadratics of the table cannot come closer to the arcsine than 0.675 units, rounding takes another half.
TEST(FixedPoint, ArcsineStaysWithinItsTable) {
    for (int32_t sine = 0, before = 0; sine <= 1 << 20; ++sine) {
        const int32_t angle = arcsine20(sine);
        ASSERT_NEAR(angle, double(0x1p20L * std::asin(0x1p-20L * sine) / kTurn), 1.18) << sine;
        ASSERT_LE(before, angle) << "falls at " << sine;
        ASSERT_EQ(arcsine20(-sine), -angle) << sine;
        before = angle;
    }
    EXPECT_EQ(arcsine20(0), 0);
    EXPECT_EQ(arcsine20(1 << 20), 1 << 18);
    EXPECT_EQ(arcsine20(0xfffed), ((0x3fc135e2 >> 11) + 1) >> 1);
    EXPECT_EQ(arcsine20(0xffff0), ((0x3fc66166 >> 11) + 1) >> 1);
    EXPECT_EQ(arcsine20(0xfffff), ((0x3ff19881 >> 11) + 1) >> 1);
}

using Vector = std::array<int32_t, 3>;

TEST(FixedPoint, NormalizesVectorsOfEveryLength) {
    const std::pair<Vector, Vector> kCases[] = {{{8192, 0, 0}, {4096, 0, 0}},
                                                {{0, -1, 0}, {0, -4096, 0}},
                                                {{300, 0, -400}, {2457, 0, -3276}},
                                                {{0, 0, INT32_MIN}, {0, 0, -4096}},
                                                {{INT32_MIN, INT32_MAX, INT32_MIN}, {-2364, 2364, -2364}}};
    for (const auto& [in, out] : kCases) {
        Vector v = in;
        EXPECT_TRUE(normalizeFixed(v.data()));
        EXPECT_EQ(v, out);
    }
    AnyWord word;
    for (int i = 0; i < 100000; ++i) {
        const Vector in = {word(), word(), word()};
        const double length = std::hypot(double(in[0]), double(in[1]), double(in[2]));
        Vector v = in;
        ASSERT_EQ(normalizeFixed(v.data()), length != 0);
        for (size_t k = 0; k < 3 && length != 0; ++k)
            ASSERT_NEAR(v[k], 4096.0 * in[k] / length, 1.6) << in[0] << " " << in[1] << " " << in[2];
    }
    Vector zero = {};
    EXPECT_FALSE(normalizeFixed(zero.data()));
    EXPECT_EQ(zero, Vector{}) << "left alone";
    normalizeFixedOrZ(zero.data());
    EXPECT_EQ(zero, (Vector{0, 0, 4096}));
}

TEST(FixedPoint, ProductsOfVectors) {
    const Vector a = {4096, 8192, -4096}, b = {2048, 4096, 12288};
    EXPECT_EQ(dotFixed(a.data(), b.data()), 2048 + 8192 - 12288);
    const Vector cross = {3 * 8192 + 4096, -2048 - 12288, 4096 - 4096};
    Vector out;
    crossFixed(a.data(), b.data(), out.data());
    EXPECT_EQ(out, cross);
    out = a;
    crossFixed(out.data(), b.data(), out.data());
    EXPECT_EQ(out, cross) << "into its first operand";
    const Vector huge = {INT32_MAX, INT32_MAX, INT32_MAX};
    dotFixed(huge.data(), huge.data());  // wraps; the sanitizers would speak up
}

}  // namespace
