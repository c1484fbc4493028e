#include "frame/atrans3i.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <numbers>

namespace {

using Vector = std::array<int32_t, 3>;
using Matrix = std::array<int32_t, 12>;

TEST(Atrans3i, TransformsVectorsRoundingHalvesUp) {
    const Atrans3i half = {{2048, 0, 0, 10, 0, 2048, 0, -20, 0, 2049, -2048, 0}};
    const int32_t v[3] = {1, -1, 3};
    int32_t out[3];
    Atrans3i_transformVector(&half, v, out);
    EXPECT_EQ(std::to_array(out), (Vector{11, -20, -2})) << "0.5 to 1, -0.5 to 0, -0.50024 - 1.5 to -2";

    int32_t same[3] = {1, -1, 3};
    Atrans3i_transformVector(&half, same, same);
    EXPECT_EQ(std::to_array(same), std::to_array(out)) << "in place";

    const Atrans3i wide = {{1 << 30, 1 << 30, 0, INT32_MAX, 0, 0, 4096, 1, 0, 0, 0, 0}};
    const int32_t w[3] = {1, 1, INT32_MAX};
    Atrans3i_transformVector(&wide, w, out);
    EXPECT_EQ(std::to_array(out), (Vector{INT32_MAX - 524288, 0, 0})) << "2^31 wraps; so does (2^31 - 1) * 2^12";
}

TEST(Atrans3i, MultipliesIntoEitherOperand) {
    const Atrans3i a = {{4096, 2048, 0, 100, -2048, 4096, 1, 200, 0, 3, -4096, 300}};
    const Atrans3i b = {{2048, 0, 4096, 7, 4096, -4096, 0, -9, 0, 2048, 1, 11}};
    const Atrans3i product = {{4096, -2048, 4096, 103, 3072, -4095, -2048, 188, 3, -2051, -1, 289}};
    Atrans3i out;
    D_Atrans3i_multiply2(&out, &a, &b);
    EXPECT_EQ(std::to_array(out.m), std::to_array(product.m));
    out = a;
    D_Atrans3i_multiply2(&out, &out, &b);
    EXPECT_EQ(std::to_array(out.m), std::to_array(product.m));
    out = b;
    D_Atrans3i_multiply2(&out, &a, &out);
    EXPECT_EQ(std::to_array(out.m), std::to_array(product.m));
    Atrans3i identity;
    Atrans3i_setIdentity(&identity);
    D_Atrans3i_multiply2(&out, &identity, &b);
    EXPECT_EQ(std::to_array(out.m), std::to_array(b.m));
}

TEST(Atrans3i, BuildsFromDirectionRollAndScale) {
    struct Case {
        const char* what;
        int32_t direction[3], roll, scale[3], rows[9];
    };
    for (const Case& c :
         {Case{"against z", {0, 0, -4096}, 0, {4096, 4096, 4096}, {4096, 0, 0, 0, -4096, 0, 0, 0, -4096}},
          Case{"the roll comes before the direction",
               {4096, 0, 0},
               1024,
               {4096, 4096, 4096},
               {0, 0, 4096, 4096, 0, 0, 0, 4096, 0}},
          Case{"the scale comes first, rounding halves up",
               {0, 0, 4096},
               1024,
               {2048, 12288, -1},
               {0, -12288, 0, 2048, 0, 0, 0, 0, -1}},
          Case{"too near z for the arc", {63, 63, 4095}, 0, {4096, 4096, 4096}, {4096, 0, 0, 0, 4095, 0, 0, 0, 4095}},
          Case{"in between, cut downwards",
               {2365, 2365, 2364},
               0,
               {4096, 4096, 4096},
               {3229, -867, 2365, -867, 3229, 2365, -2365, -2365, 2364}}}) {
        Atrans3i out = {{0, 0, 0, 11, 0, 0, 0, 22, 0, 0, 0, 33}};
        Atrans3i_setDirectionRollScale(&out, c.scale, c.direction, c.roll);
        const int32_t* r = c.rows;
        EXPECT_EQ(std::to_array(out.m), (Matrix{r[0], r[1], r[2], 11, r[3], r[4], r[5], 22, r[6], r[7], r[8], 33}))
            << c.what;
    }
}

// For directions and rolls all around: against the rotation by the shortest arc, R = 1 + [n] + [n]^2 / (1 + z) with n =
// z axis x direction, times the roll. Near -z the quotient magnifies the rounding of the direction.
TEST(Atrans3i, DirectionAndRollMakeTheShortestArc) {
    constexpr double kPi = std::numbers::pi;
    for (int i = 1; i < 28; ++i)
        for (int j = 0; j < 40; ++j) {
            const double polar = i * 0.1, around = j * kPi / 20, roll = j * 0.3;
            const double x = std::sin(polar) * std::cos(around), y = std::sin(polar) * std::sin(around),
                         z = std::cos(polar);
            const double cosine = std::cos(roll), sine = std::sin(roll), s = 1 / (1 + z);
            const double arc[3][2] = {{1 - x * x * s, -x * y * s}, {-x * y * s, 1 - y * y * s}, {-x, -y}};
            const int32_t direction[3] = {int32_t(std::lround(x * 4096)), int32_t(std::lround(y * 4096)),
                                          int32_t(std::lround(z * 4096))};
            Atrans3i out;
            Atrans3i_setDirectionRoll(&out, direction, int32_t(std::lround(roll / (2 * kPi) * 4096)));
            for (int row = 0; row < 3; ++row) {
                const int32_t* m = &out.m[4 * row];
                const double tolerance = 10 + 12 * s;
                EXPECT_NEAR(m[0], 4096 * (arc[row][0] * cosine + arc[row][1] * sine), tolerance) << i << " " << j;
                EXPECT_NEAR(m[1], 4096 * (arc[row][1] * cosine - arc[row][0] * sine), tolerance) << i << " " << j;
                EXPECT_EQ(m[2], direction[row]);
            }
        }
}

TEST(Atrans3i, ConvertsToAndFromFloats) {
    const Atrans3i a = {{4096, 1, -2048, 10, 0, 4096, 0, 20, 0, 0, 4096, 30}};
    qelTransform t;
    qelTransform_setIdentity(&t);
    Atrans3i2qelTransform(&t, &a);
    EXPECT_EQ(std::to_array(t.elements),
              (std::array<float, 16>{1, 1 / 4096.0f, -0.5f, 10, 0, 1, 0, 20, 0, 0, 1, 30, 0, 0, 0, 1}));
    EXPECT_EQ(t.identityState, 0u);
    EXPECT_EQ(t.uniformDiagonalState, 0u);
    EXPECT_EQ(t.changed, 1);
    Atrans3i2qelTransform(nullptr, &a);
    Atrans3i2qelTransform(&t, nullptr);
    EXPECT_EQ(t.elements[3], 10);

    const K8Transform source = {{1, -0.0001f, 0.5f, 2, 3, 4, 5, 6, 7, 8, 9, -10, 11, 12, 13, 14}, nullptr, nullptr};
    Atrans3i back;
    Atrans3i_setTransform(&back, &source);
    EXPECT_EQ(std::to_array(back.m),
              (Matrix{4096, 0, 2048, 8192, 12288, 16384, 20480, 24576, 28672, 32768, 36864, -40960}));
}

}  // namespace
