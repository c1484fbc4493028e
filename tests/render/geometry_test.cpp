// Vertices on grids of 16 bits, corners of sprites, and what a camera sees, each against plain geometry.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>
#include <string>
#include <vector>

#include "render/fixed_geometry.h"
#include "render/sprite_geometry.h"
#include "render/view_volume.h"
#include "tests/render/scene_parts.h"

namespace {

// --- Grids ---

using Values = std::vector<int32_t>;

// What the integer at `index` of a placed array stands for.
int64_t backFrom(const FixedGrid& grid, std::span<const int16_t> placed, size_t index) {
    return (placed[index] + grid.origin[index % 3]) * (int64_t(1) << grid.shift);
}

TEST(FixedGrid, IsTheFinestThatHoldsEverything) {
    // The origin is the roundest where 0 is too far.
    for (const auto& [least, greatest, shift, origin] :
         {std::tuple<int32_t, int32_t, uint32_t, int64_t>{0, 0, 0, 0},
          {-32768, 32767, 0, 0},
          {0, 32768, 0, 32768},
          {-32769, 0, 0, -16384},
          {0, 65536, 1, 32768},
          {0, 131070, 1, 32768},
          {1, 131073, 2, 32768},
          {-0x12345678, -0x12345678 + 30000, 0, -0x12340000},
          {INT32_MAX - 65535, INT32_MAX, 0, int64_t(INT32_MAX) - INT16_MAX},
          {INT32_MIN, INT32_MIN + 65536, 1, 32768 - (int64_t(1) << 30)},
          {INT32_MIN, INT32_MAX, 17, 0}}) {
        SCOPED_TRACE(std::to_string(least) + " to " + std::to_string(greatest));
        for (size_t axis = 0; axis < 3; ++axis) {
            Values vectors(9, int32_t((int64_t(least) + greatest) / 2));
            vectors[axis] = greatest;
            vectors[3 + axis] = least;
            const FixedGrid grid = FixedGrid_fit(vectors, 3);
            EXPECT_EQ(grid.shift, shift);
            EXPECT_EQ(grid.origin[axis], origin);
            std::array<int16_t, 9> placed;
            FixedGrid_place(grid, vectors, 3, placed.data());
            for (size_t i = 0; i < 9; ++i)
                EXPECT_LE(std::abs(backFrom(grid, placed, i) - vectors[i]), int64_t(1) << shift >> 1) << i;
            float bias[3];
            FixedGrid_bias(grid, bias);
            EXPECT_EQ(FixedGrid_scale(grid), std::ldexp(1.0f, int(shift) - 12));
            EXPECT_EQ(bias[axis], float(std::ldexp(double(origin), int(shift) - 12)));
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
    const int32_t normals[][3] = {{0, 0, 0},     {4096, 0, 0},        {1, -2, 3},
                                  {32768, 1, 0}, {70000, 1, -999999}, {INT32_MIN, INT32_MIN, INT32_MIN}};
    for (const auto& given : normals) {
        int16_t sent[6];
        FixedGeometry_shortenNormals(given, 2, sent);
        const double length = std::hypot(given[0], given[1], given[2]);
        const double sentLength = std::hypot(sent[0], sent[1], sent[2]);
        EXPECT_EQ(sentLength == 0, length == 0);
        for (size_t k = 0; k < 3; ++k) {
            EXPECT_NEAR(sent[k] * length, given[k] * sentLength, 1e-4 * length * sentLength);
            EXPECT_TRUE(length >= 32768 || sent[k] == given[k]) << "short ones are exact";
            EXPECT_EQ(sent[3 + k], sent[k]) << "twice";
        }
    }
}

// --- Sprites ---

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
    using Corners = std::array<Corner, 4>;
    for (const auto& [what, shownWidth, shownHeight, centre, record, corners] :
         {std::tuple{"odd sizes lose their half", kWidth, kHeight, std::array{0, 0, 0}, recordOf(7, 1),
                     Corners{{{-3, 0}, {3, 0}, {3, 0}, {-3, 0}}}},
          {"back", kWidth, kHeight, {0, 0, 0}, recordOf(8, 4, -1024), {{{-2, 4}, {-2, -4}, {2, -4}, {2, 4}}}},
          {"an eighth", kWidth, kHeight, {0, 0, 0}, recordOf(20, 10, 512), {{{-3, -11}, {11, 3}, {3, 11}, {-11, -3}}}},
          {"2 and 1/2 pixels a unit", 80, 240, {0, 0, 0}, recordOf(8, 4, 0, 1), {{{-2, -4}, {2, -4}, {2, 4}, {-2, 4}}}},
          {"as far as 16 bits go",
           kWidth,
           kHeight,
           {32767, -32768, 0},
           recordOf(8, INT32_MAX),
           {{{32763, -32768}, {32767, -32768}, {32767, 32767}, {32763, 32767}}}},
          {"low 16 bits",
           kWidth,
           kHeight,
           {0x30001, 0xFFFE, 65536},
           recordOf(8, 4),
           {{{-3, -4}, {5, -4}, {5, 0}, {-3, 0}}}}}) {
        K8RenderState_setParallel(&state, shownWidth, shownHeight);
        SpriteShape shape;
        ASSERT_TRUE(SpriteGeometry_make(state, centre.data(), record.data(), &shape)) << what;
        EXPECT_FALSE(shape.isPlaced) << what;
        for (size_t i = 0; i < 4; ++i) {
            EXPECT_EQ((Corner{shape.corners[i][0], shape.corners[i][1]}), corners[i]) << what << ", corner " << i;
            EXPECT_EQ(shape.corners[i][2], int16_t(centre[2])) << what;
        }
    }
}

TEST_F(SpriteTest, WhatLiesOutsideTheDepthsIsLeftOut) {
    const Atrans3i view = {{4096, 0, 0, 0, 0, 4096, 0, 0, 0, 0, 4096 * 4, 0}};  // doubles the depth
    K8RenderState_setViewTransform(&state, &view);
    const Record record = recordOf(4, 4, 0, kOwnDepth);
    for (const auto& [perspective, depth, isDrawn] : {std::tuple{false, -16384, true},
                                                      {false, 16384, true},
                                                      {false, -16385, false},
                                                      {false, 16385, false},
                                                      {true, 2, true},
                                                      {true, 1, false},
                                                      {true, -2, false},
                                                      {true, 250, true},
                                                      {true, 251, false},
                                                      {true, 0, false}}) {
        K8RenderState_setParallel(&state, kWidth, kHeight);
        if (perspective) K8RenderState_setPerspectiveAngle(&state, 8, 1000, 1024);
        const int32_t centre[] = {0, 0, depth};
        SpriteShape shape;
        EXPECT_EQ(SpriteGeometry_make(state, centre, record.data(), &shape), isDrawn) << perspective << ", " << depth;
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
        const double middle[] = {double(centre[1] + view.m[3]), double(-centre[0] + view.m[7])};
        for (size_t i = 0; i < 4; ++i) {
            const double across = (i == 1 || i == 2 ? 0.5 : -0.5) * record[0], down = (i < 2 ? -0.5 : 0.5) * record[1];
            const double expected[] = {across * std::cos(turn) - down * std::sin(turn),
                                       across * std::sin(turn) + down * std::cos(turn)};
            for (size_t k = 0; k < 2; ++k) {
                double got = shape.corners[i][k];
                if (shape.isPlaced) got = got * double(k ? shape.unitY : shape.unitX) + shape.centre[k];
                ASSERT_NEAR((got - middle[k]) * unit, shrink * expected[k], tolerance)
                    << "round " << round << ", corner " << i << ", axis " << k;
            }
        }
    }
    EXPECT_GT(placed, 400);
    EXPECT_LT(placed, 3600);
}

// --- What a camera sees ---

using Vector = std::array<double, 3>;

constexpr double kNear = 2, kFar = 30, kAspect = 1.5;

// How far a point of camera space lies outside the volume: the largest of its distances from the six sides.
double outsidePerspective(const Vector& p, double degrees) {
    const double t = std::tan(degrees / 360 * std::numbers::pi), at = t * kAspect;
    const double vertical = (std::abs(p[1]) + t * p[2]) / std::hypot(1, t);
    const double horizontal = (std::abs(p[0]) + at * p[2]) / std::hypot(1, at);
    return std::max({vertical, horizontal, p[2] + kNear, -kFar - p[2]});
}
double outsideParallel(const Vector& p, double height) {
    const double fromMiddle = std::abs(p[2] + (kNear + kFar) / 2);
    return std::max(
        {std::abs(p[0]) - height / 2 * kAspect, std::abs(p[1]) - height / 2, fromMiddle - (kFar - kNear) / 2});
}

constexpr double kMargin = 1e-3;  // single precision, coordinates below 100
constexpr float kUntouched = 12345;

TEST(ViewVolume, AgreesWithDistancesInCameraSpace) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> side(-25, 25), depthOf(-40, 8), radiusOf(0, 9);
    const Held<Camera> camera(qelCamera_create());
    for (const bool isPerspective : {true, false}) {
        int inside = 0, reaching = 0;
        constexpr double kDegrees = 70, kSeenHeight = 20;
        if (isPerspective)
            qelCamera_setPerspective(camera, kDegrees, kAspect, kNear, kFar);
        else
            qelCamera_setParallel(camera, kSeenHeight, kAspect, kNear, kFar);
        for (int round = 0; round < 4000; ++round) {
            qelTransform place;
            qelTransform_setIdentity(&place);
            qelTransform_postTranslate(&place, float(side(random)), float(side(random)), float(side(random)));
            qelTransform_postRotate(&place, float(10 * side(random)), float(side(random)), float(side(random)), 1);
            ViewVolume volume;
            qelViewVolume_set(&volume, camera, &place);
            const Vector p = {side(random), side(random), depthOf(random)};
            std::array<float, 3> world;
            for (size_t row = 0; row < 3; ++row) {
                const float* m = place.elements + 4 * row;
                world[row] = float(m[0] * p[0] + m[1] * p[1] + m[2] * p[2] + m[3]);
            }
            const double radius = radiusOf(random);
            const double outside = isPerspective ? outsidePerspective(p, kDegrees) : outsideParallel(p, kSeenHeight);
            if (std::abs(outside) > kMargin) {
                ASSERT_EQ(qelViewVolume_containsPoint(&volume, world.data()), outside < 0);
                inside += outside < 0;
            }
            // Depth is measured from the near side: in a perspective to the sphere's far point, in a parallel view to
            // its near point, or to its middle when nothing was tested.
            const double fromNear = -p[2] - kNear;
            float depth = kUntouched;
            if (std::abs(outside - radius) > kMargin) {
                const bool reaches = outside < radius;
                ASSERT_EQ(qelViewVolume_testSphere(&volume, world.data(), float(radius), &depth), reaches);
                const double tested = isPerspective ? radius + fromNear : fromNear - radius;
                ASSERT_NEAR(depth, reaches ? tested : kUntouched, kMargin);
                reaching += reaches && outside > 0;
            }
            qelViewVolume_sphereDepth(&volume, world.data(), float(radius), &depth);
            ASSERT_NEAR(depth, isPerspective ? radius + fromNear : fromNear, kMargin);
        }
        EXPECT_GT(inside, 400);
        EXPECT_GT(reaching, 400) << "spheres that reach in from outside";
    }
}

TEST(ViewVolume, AGenericCameraSeesEverything) {
    const Held<Camera> camera(qelCamera_create());
    qelTransform place;
    qelTransform_setIdentity(&place);
    qelCamera_setGeneric(camera, &place);
    ViewVolume volume;
    qelViewVolume_set(&volume, camera, &place);
    const float far[] = {1e9f, -1e9f, 1e9f};
    float depth = kUntouched;
    EXPECT_TRUE(qelViewVolume_containsPoint(&volume, far));
    EXPECT_TRUE(qelViewVolume_testSphere(&volume, far, 0, &depth));
    qelViewVolume_sphereDepth(&volume, far, 1, &depth);
    EXPECT_EQ(depth, kUntouched) << "left as it was";
}

// Half-axes follow the camera's axes, whatever their length.
TEST(ViewVolume, AScaledCameraScalesItsBox) {
    const Held<Camera> camera(qelCamera_create());
    qelCamera_setParallel(camera, 2, 1, -1, 1);
    qelTransform place;
    qelTransform_setIdentity(&place);
    qelTransform_postScale(&place, 10, 20, 30);
    ViewVolume volume;
    qelViewVolume_set(&volume, camera, &place);
    for (const auto& [x, y, z, isInside] :
         {std::tuple{9.9f, 19.9f, -29.9f, true}, {10.1f, 0, 0, false}, {0, -20.1f, 0, false}, {0, 0, 30.1f, false}}) {
        const float p[] = {x, y, z};
        EXPECT_EQ(qelViewVolume_containsPoint(&volume, p), isInside) << x << " " << y << " " << z;
    }
}

}  // namespace
