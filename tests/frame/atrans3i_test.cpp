#include "frame/atrans3i.h"

#include <gtest/gtest.h>

#include <array>

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
    Atrans3i a = {{4096, 2048, 0, 100, -2048, 4096, 1, 200, 0, 3, -4096, 300}}, identity, out;
    Atrans3i b = {{2048, 0, 4096, 7, 4096, -4096, 0, -9, 0, 2048, 1, 11}};
    const Matrix product = {4096, -2048, 4096, 103, 3072, -4095, -2048, 188, 3, -2051, -1, 289};
    Atrans3i_setIdentity(&identity);
    D_Atrans3i_multiply2(&out, &identity, &b);
    EXPECT_EQ(std::to_array(out.m), std::to_array(b.m));
    D_Atrans3i_multiply2(&out, &a, &b);
    EXPECT_EQ(std::to_array(out.m), product);
    D_Atrans3i_multiply2(&out, &a, &(out = b));
    EXPECT_EQ(std::to_array(out.m), product);
    D_Atrans3i_multiply2(&a, &a, &b);
    EXPECT_EQ(std::to_array(a.m), product);
}

TEST(Atrans3i, BuildsFromDirectionRollAndScale) {
    constexpr Vector kUnit = {4096, 4096, 4096};
    struct Case {
        const char* what;
        Vector direction;
        int32_t roll;
        Vector scale;
        int32_t r[9];
    };
    for (const Case& c :
         {Case{"against z", {0, 0, -4096}, 0, kUnit, {4096, 0, 0, 0, -4096, 0, 0, 0, -4096}},
          {"the roll comes before the direction", {4096, 0, 0}, 1024, kUnit, {0, 0, 4096, 4096, 0, 0, 0, 4096, 0}},
          {"the scale comes first", {0, 0, 4096}, 1024, {2048, 12288, -1}, {0, -12288, 0, 2048, 0, 0, 0, 0, -1}},
          {"too near z for the arc", {63, 63, 4095}, 0, kUnit, {4096, 0, 0, 0, 4095, 0, 0, 0, 4095}},
          {"cut downwards", {2365, 2365, 2364}, 0, kUnit, {3229, -867, 2365, -867, 3229, 2365, -2365, -2365, 2364}}}) {
        Atrans3i out = {{0, 0, 0, 11, 0, 0, 0, 22, 0, 0, 0, 33}};
        Atrans3i_setDirectionRollScale(&out, c.scale.data(), c.direction.data(), c.roll);
        EXPECT_EQ(std::to_array(out.m),
                  (Matrix{c.r[0], c.r[1], c.r[2], 11, c.r[3], c.r[4], c.r[5], 22, c.r[6], c.r[7], c.r[8], 33}))
            << c.what;
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
