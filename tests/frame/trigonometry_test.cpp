#include "frame/trigonometry.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <numbers>
#include <random>

namespace {

// The distance of a double from what long double arithmetic gives, in units of the double's last place.
double missInUlps(double got, long double wanted) {
    const double rounded = std::abs(double(wanted));
    const double ulp = std::nextafter(rounded, INFINITY) - rounded;
    return double(std::abs(got - wanted) / ulp);
}

class Uniform {
public:
    double operator()(double low, double high) { return low + (high - low) * double(generator_() >> 11) * 0x1p-53; }

private:
    std::mt19937_64 generator_{3};
};

TEST(Trigonometry, SineAndCosineWithinOneUlp) {
    if (std::numeric_limits<long double>::digits < 64) GTEST_SKIP() << "no wider float to compare with";
    Uniform random;
    for (const double range : {0.1, 1.0, 10.0, 1e3, 1e6})
        for (int i = 0; i < 50000; ++i) {
            const double x = random(-range, range);
            ASSERT_LT(missInUlps(stableSin(x), std::sin((long double)x)), 0.8) << x;
            ASSERT_LT(missInUlps(stableCos(x), std::cos((long double)x)), 0.8) << x;
        }
    for (int quarter = 1; quarter < 600000; quarter += 7) {  // where the reduction cancels most
        const double x = quarter * (std::numbers::pi / 2);
        ASSERT_LT(missInUlps(stableSin(x), std::sin((long double)x)), 0.8) << quarter;
        ASSERT_LT(missInUlps(stableCos(x), std::cos((long double)x)), 0.8) << quarter;
    }
}

TEST(Trigonometry, ArccosineAndArctangentWithinOneUlp) {
    if (std::numeric_limits<long double>::digits < 64) GTEST_SKIP() << "no wider float to compare with";
    Uniform random;
    for (int i = 0; i < 100000; ++i) {
        const double cosine = random(-1, 1), nearOne = 1 - std::exp2(-random(0, 53));
        for (const double x : {cosine, nearOne, -nearOne})
            ASSERT_LT(missInUlps(stableAcos(x), std::acos((long double)x)), 1.0) << x;
        for (const double x : {random(-2, 2), std::exp2(random(-60, 60))})
            ASSERT_LT(missInUlps(stableAtan(x), std::atan((long double)x)), 1.0) << x;
    }
}

TEST(Trigonometry, SpecialArguments) {
    constexpr double kPi = std::numbers::pi;
    EXPECT_TRUE(std::signbit(stableSin(-0.0)) && std::signbit(stableAtan(-0.0)));
    const std::pair<double, double> kCases[] = {{stableCos(0), 1},
                                                {stableSin(1e-310), 1e-310},
                                                {stableAcos(1), 0},
                                                {stableAcos(0), kPi / 2},
                                                {stableAcos(-1), kPi},
                                                {stableAtan(1), kPi / 4},
                                                {stableAtan(INFINITY), kPi / 2},
                                                {stableAtan(-INFINITY), -kPi / 2}};
    for (const auto& [got, wanted] : kCases) EXPECT_EQ(got, wanted);
    for (const double x : {1e7, -1e15, 1e100, -1.7e308})
        EXPECT_NEAR(stableSin(x) * stableSin(x) + stableCos(x) * stableCos(x), 1, 1e-15) << x;
    for (const double nothing : {stableSin(INFINITY), stableCos(-INFINITY), stableSin(NAN), stableCos(NAN),
                                 stableAcos(1.0000000000000002), stableAcos(-2), stableAcos(NAN), stableAtan(NAN)})
        EXPECT_TRUE(std::isnan(nothing));
}

// The sum is the same for every compiler and machine that keeps to IEEE arithmetic; a fused multiply-add anywhere
// changes it.
TEST(Trigonometry, GivesTheSameBitsEverywhere) {
    uint64_t sum = 0xcbf29ce484222325;
    const auto add = [&sum](double value) { sum = (sum ^ std::bit_cast<uint64_t>(value)) * 0x100000001b3; };
    for (int i = -5000; i <= 5000; ++i) {
        add(stableSin(i * 0.01));
        add(stableCos(i * 17.0));
        add(stableAcos(i * 0.0002));
        add(stableAtan(i * 0.001));
    }
    EXPECT_EQ(sum, 3029092905139765162u);
}

}  // namespace
