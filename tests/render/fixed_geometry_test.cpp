#include "render/fixed_geometry.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>
#include <vector>

namespace {

using Values = std::vector<int32_t>;

// What the integer at `index` of a placed array stands for.
int64_t backFrom(const FixedGrid& grid, std::span<const int16_t> placed, size_t index) {
    return (placed[index] + grid.origin[index % 3]) * (int64_t(1) << grid.shift);
}

TEST(FixedGrid, IsTheFinestThatHoldsEverything) {
    struct Case {
        int32_t least, greatest;
        uint32_t shift;
        int64_t origin;
    };
    for (const Case& c : {Case{0, 0, 0, 0},
                          {-32768, 32767, 0, 0},
                          {-30000, 32767, 0, 0},
                          {0, 32768, 0, 32768},  // the roundest where 0 is too far
                          {-32769, 0, 0, -16384},
                          {0, 65535, 0, 32768},
                          {0, 65536, 1, 32768},
                          {-1, 65535, 1, 32768},
                          {0, 131070, 1, 32768},
                          {-131070, 0, 1, -32767},
                          {1, 131073, 2, 32768},
                          {0x12345678, 0x12345678 + 30000, 0, 0x12348000},
                          {-0x12345678, -0x12345678 + 30000, 0, -0x12340000},
                          {INT32_MAX - 65535, INT32_MAX, 0, int64_t(INT32_MAX) - INT16_MAX},
                          {INT32_MIN, INT32_MIN + 65536, 1, 32768 - (int64_t(1) << 30)},
                          {INT32_MIN, INT32_MIN, 0, INT32_MIN},
                          {INT32_MIN, -1, 16, 0},
                          {INT32_MIN, INT32_MAX, 17, 0}}) {
        SCOPED_TRACE(std::to_string(c.least) + " to " + std::to_string(c.greatest));
        for (size_t axis = 0; axis < 3; ++axis) {
            Values vectors(9, int32_t((int64_t(c.least) + c.greatest) / 2));
            vectors[axis] = c.greatest;
            vectors[3 + axis] = c.least;
            const FixedGrid grid = FixedGrid_fit(vectors, 3);
            EXPECT_EQ(grid.shift, c.shift);
            EXPECT_EQ(grid.origin[axis], c.origin);
            std::array<int16_t, 9> placed;
            FixedGrid_place(grid, vectors, 3, placed.data());
            for (size_t i = 0; i < 9; ++i)
                EXPECT_LE(std::abs(backFrom(grid, placed, i) - vectors[i]), int64_t(1) << c.shift >> 1) << i;
            float bias[3];
            FixedGrid_bias(grid, bias);
            EXPECT_EQ(FixedGrid_scale(grid), std::ldexp(1.0f, int(c.shift) - 12));
            EXPECT_EQ(bias[axis], float(std::ldexp(double(c.origin), int(c.shift) - 12)));
        }
    }
}

TEST(FixedGrid, OfOneStepMeetsItsNeighbours) {
    for (int32_t seed = 0; seed < 300; ++seed) {
        const int32_t extent = 40000 << seed % 12, x = seed * 1000003 % 50000000, y = -x / 3, z = seed;
        const Values left = {x, y, z, x - extent, y + extent, z - 5}, right = {x + extent, y, z + 7, x, y, z};
        const FixedGrid a = FixedGrid_fit(left, 3), b = FixedGrid_fit(right, 3);
        ASSERT_EQ(a.shift, b.shift);
        std::array<int16_t, 6> onA, onB;
        FixedGrid_place(a, left, 3, onA.data());
        FixedGrid_place(b, right, 3, onB.data());
        for (size_t i = 0; i < 3; ++i) EXPECT_EQ(backFrom(a, onA, i), backFrom(b, onB, 3 + i)) << "seed " << seed;
    }
}

TEST(FixedGeometry, NormalsKeepTheirDirection) {
    const int32_t normals[][3] = {{0, 0, 0},
                                  {4096, 0, 0},
                                  {1, -2, 3},
                                  {32767, -32767, 1},
                                  {32768, 1, 0},
                                  {-5, 3, -32769},
                                  {70000, 1, -999999},
                                  {INT32_MIN, INT32_MAX, 0},
                                  {INT32_MIN, INT32_MIN, INT32_MIN}};
    for (const auto& given : normals) {
        int16_t out[6];
        FixedGeometry_shortenNormals(given, 2, out);
        const double length = std::hypot(given[0], given[1], given[2]);
        for (const int16_t* sent : {out, out + 3}) {
            const double sentLength = std::hypot(sent[0], sent[1], sent[2]);
            EXPECT_EQ(sentLength == 0, length == 0);
            for (size_t k = 0; k < 3; ++k) {
                EXPECT_NEAR(sent[k] * length, given[k] * sentLength, 1e-4 * length * sentLength);
                EXPECT_TRUE(length >= 32768 || sent[k] == given[k]) << "short ones are exact";
            }
        }
    }
}

TEST(FixedGeometry, ColorsGetTheAlpha) {
    const int32_t colors[] = {0x123456, -1};
    uint8_t out[16];
    FixedGeometry_expandColors(colors, 128, 2, out);
    const uint8_t expected[16] = {0x12, 0x34, 0x56, 128, 0x12, 0x34, 0x56, 128, 255, 255, 255, 128, 255, 255, 255, 128};
    EXPECT_TRUE(std::equal(out, out + 16, expected));
}

}  // namespace
