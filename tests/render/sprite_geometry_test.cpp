// Where the corners of sprites stand, against the geometry of the screen.
#include "render/sprite_geometry.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>

namespace {

constexpr int32_t kWidth = 160, kHeight = 120;
constexpr int32_t kOwnDepth = kSpriteInPixels | kSpriteAtOwnDepth;

struct SpriteTest : testing::Test {
    SpriteTest() {
        K8RenderState_reset(&state, nullptr);
        state.width = kWidth;
        state.height = kHeight;
    }
    RenderState state;
};

using Corner = std::array<int, 2>;
using Record = std::array<int32_t, kSpriteRecordLength>;

constexpr Record recordOf(int32_t width, int32_t height, int32_t angle = 0, int32_t flags = 0) {
    return {width, height, angle, 0, 0, 0, 0, flags};
}

TEST_F(SpriteTest, SizesAndAnglesGiveTheseCorners) {
    const auto pixels = [](RenderState*) {};
    const auto flat = [](RenderState* s) { K8RenderState_setParallel(s, 80, 240); };  // 2 and 1/2 pixels a unit
    const auto deep = [](RenderState* s) { K8RenderState_setPerspectiveAngle(s, 2, 9000, 1024); };  // 80 at depth 1
    struct Case {
        const char* what;
        std::function<void(RenderState*)> project;
        std::array<int32_t, 3> centre;
        Record record;
        std::array<Corner, 4> corners;
    };
    for (const Case& c : {
             Case{"odd sizes lose their half", pixels, {0, 0, 0}, recordOf(7, 1), {{{-3, 0}, {3, 0}, {3, 0}, {-3, 0}}}},
             Case{"back", pixels, {0, 0, 0}, recordOf(8, 4, -1024), {{{-2, 4}, {-2, -4}, {2, -4}, {2, 4}}}},
             Case{"an eighth: 7.07 and 3.54",
                  pixels,
                  {0, 0, 0},
                  recordOf(20, 10, 512),
                  {{{-3, -11}, {11, 3}, {3, 11}, {-11, -3}}}},
             Case{"parallel, in pixels",
                  flat,
                  {0, 0, 0},
                  recordOf(8, 4, 0, kSpriteInPixels),
                  {{{-2, -4}, {2, -4}, {2, 4}, {-2, 4}}}},
             Case{"perspective, in pixels at near",
                  deep,
                  {0, 0, 40},
                  recordOf(800, 400, 0, kSpriteInPixels),
                  {{{-10, -5}, {10, -5}, {10, 5}, {-10, 5}}}},
             Case{"perspective, in pixels at its depth",
                  deep,
                  {0, 0, 40},
                  recordOf(80, 40, 0, kOwnDepth),
                  {{{-20, -10}, {20, -10}, {20, 10}, {-20, 10}}}},
             Case{"low 16 bits",
                  pixels,
                  {0x30001, 0xFFFE, 0x10000},
                  recordOf(8, 4),
                  {{{-3, -4}, {5, -4}, {5, 0}, {-3, 0}}}},
             Case{"as far as 16 bits go",
                  pixels,
                  {32767, -32768, 0},
                  recordOf(8, INT32_MAX),
                  {{{32763, -32768}, {32767, -32768}, {32767, 32767}, {32763, 32767}}}},
         }) {
        c.project(&state);
        SpriteShape shape;
        ASSERT_TRUE(SpriteGeometry_make(state, c.centre.data(), c.record.data(), &shape)) << c.what;
        EXPECT_FALSE(shape.isPlaced) << c.what;
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_EQ((Corner{shape.corners[i][0], shape.corners[i][1]}), c.corners[i]) << c.what << ", corner " << i;
            EXPECT_EQ(shape.corners[i][2], int16_t(c.centre[2])) << c.what;
        }
        K8RenderState_setParallel(&state, kWidth, kHeight);
    }
}

TEST_F(SpriteTest, WhatLiesOutsideTheDepthsIsLeftOut) {
    struct Case {
        bool perspective;
        int32_t depth;  // behind a view that doubles it
        bool isDrawn;
    };
    const Atrans3i view = {{4096, 0, 0, 0, 0, 4096, 0, 0, 0, 0, 4096 * 4, 0}};
    K8RenderState_setViewTransform(&state, &view);
    const Record record = recordOf(4, 4, 0, kOwnDepth);
    for (const Case& c : {Case{false, -16384, true}, Case{false, 16384, true}, Case{false, -16385, false},
                          Case{false, 16385, false}, Case{true, 2, true}, Case{true, 1, false}, Case{true, -2, false},
                          Case{true, 250, true}, Case{true, 251, false}, Case{true, 0, false}}) {
        K8RenderState_setParallel(&state, kWidth, kHeight);
        if (c.perspective) K8RenderState_setPerspectiveAngle(&state, 8, 1000, 1024);
        const std::array<int32_t, 3> centre = {0, 0, c.depth};
        SpriteShape shape;
        EXPECT_EQ(SpriteGeometry_make(state, centre.data(), record.data(), &shape), c.isDrawn)
            << c.perspective << ", " << c.depth;
    }
}

// On the screen a sprite given in pixels covers them, however deep it is, whatever the view: to the part of a pixel
// that rounding to units costs, and exactly where a unit is many pixels.
TEST_F(SpriteTest, PixelsOfASpriteArePixelsOfTheScreen) {
    std::mt19937 random(5);
    const auto upTo = [&](int32_t n) { return int32_t(random() % uint32_t(n)); };
    int placed = 0;
    for (int round = 0; round < 4000; ++round) {
        const int32_t near = 1 + upTo(20), opening = 200 + upTo(1600), depth = near + upTo(400);
        K8RenderState_setPerspectiveAngle(&state, near, 1000, opening);
        const Atrans3i view = {{0, 4096, 0, upTo(9), -4096, 0, 0, upTo(9), 0, 0, 4096, 3}};
        K8RenderState_setViewTransform(&state, &view);
        const std::array<int32_t, 3> centre = {upTo(200) - 100, upTo(200) - 100, depth - 3};
        const bool atOwnDepth = round % 2;
        const Record record = recordOf(1 + upTo(200), 1 + upTo(200), upTo(4096), atOwnDepth ? kOwnDepth : 1);
        SpriteShape shape;
        ASSERT_TRUE(SpriteGeometry_make(state, centre.data(), record.data(), &shape));
        placed += shape.isPlaced;

        const double pi = std::numbers::pi, scale = kWidth / (2 * std::tan(opening * pi / 4096));  // at depth 1
        const double unit = scale / depth;                                                         // in pixels
        const double shrink = atOwnDepth ? 1 : double(near) / depth;  // from the pixels asked for to those covered
        const double turn = record[2] * 2 * pi / 4096;
        const double tolerance = shape.isPlaced ? shrink * 0.5 + 1e-3 : 3 * unit;
        for (size_t i = 0; i < 4; ++i) {
            const double across = (i == 1 || i == 2 ? 0.5 : -0.5) * record[0];
            const double down = (i < 2 ? -0.5 : 0.5) * record[1];
            const double x = shrink * (across * std::cos(turn) - down * std::sin(turn));
            const double y = shrink * (across * std::sin(turn) + down * std::cos(turn));
            const double middleX = centre[1] + view.m[3], middleY = -centre[0] + view.m[7];
            const double gotX = shape.isPlaced ? shape.corners[i][0] * double(shape.unitX) + shape.centre[0] - middleX
                                               : shape.corners[i][0] - middleX;
            const double gotY = shape.isPlaced ? shape.corners[i][1] * double(shape.unitY) + shape.centre[1] - middleY
                                               : shape.corners[i][1] - middleY;
            ASSERT_NEAR(gotX * unit, x, tolerance) << "round " << round << ", corner " << i;
            ASSERT_NEAR(gotY * unit, y, tolerance) << "round " << round << ", corner " << i;
        }
    }
    EXPECT_GT(placed, 400);
    EXPECT_LT(placed, 3600);
}

}  // namespace
