#include "render/view_volume.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <random>

#include "tests/render/scene_parts.h"

namespace {

using Vector = std::array<double, 3>;

// A camera somewhere in the world, rotated but neither scaled nor sheared.
struct PlacedCamera {
    Held<Camera> camera{qelCamera_create()};
    qelTransform place;

    explicit PlacedCamera(std::mt19937& random) {
        std::normal_distribution<double> normal;
        const double q[4] = {normal(random), normal(random), normal(random), normal(random)};
        const double s = 2 / (q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
        const double x = q[0], y = q[1], z = q[2], w = q[3];
        const double m[16] = {1 - s * (y * y + z * z),
                              s * (x * y - z * w),
                              s * (x * z + y * w),
                              7 * normal(random),
                              s * (x * y + z * w),
                              1 - s * (x * x + z * z),
                              s * (y * z - x * w),
                              7 * normal(random),
                              s * (x * z - y * w),
                              s * (y * z + x * w),
                              1 - s * (x * x + y * y),
                              7 * normal(random),
                              0,
                              0,
                              0,
                              1};
        float elements[16];
        std::copy(std::begin(m), std::end(m), elements);
        qelTransform_set_fl(&place, elements);
    }
    std::array<float, 3> toWorld(const Vector& p) const {
        std::array<float, 3> out{};
        for (size_t row = 0; row < 3; ++row)
            out[row] = float(place.elements[4 * row] * p[0] + place.elements[4 * row + 1] * p[1] +
                             place.elements[4 * row + 2] * p[2] + place.elements[4 * row + 3]);
        return out;
    }
    ViewVolume volume() const {
        ViewVolume volume;
        qelViewVolume_set(&volume, camera, &place);
        return volume;
    }
};

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
    for (const bool isPerspective : {true, false}) {
        int inside = 0, reaching = 0;
        for (int round = 0; round < 4000; ++round) {
            const PlacedCamera placed(random);
            constexpr double kDegrees = 70, kHeight = 20;
            if (isPerspective)
                qelCamera_setPerspective(placed.camera, kDegrees, kAspect, kNear, kFar);
            else
                qelCamera_setParallel(placed.camera, kHeight, kAspect, kNear, kFar);
            const ViewVolume volume = placed.volume();
            const Vector p = {side(random), side(random), depthOf(random)};
            const double radius = radiusOf(random);
            const double outside = isPerspective ? outsidePerspective(p, kDegrees) : outsideParallel(p, kHeight);
            const auto world = placed.toWorld(p);
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
    std::mt19937 random(4);
    const PlacedCamera placed(random);
    qelCamera_setGeneric(placed.camera, &placed.place);
    const ViewVolume volume = placed.volume();
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
    struct Case {
        float p[3];
        bool isInside;
    };
    for (const Case& c : {Case{{9.9f, 19.9f, -29.9f}, true}, Case{{10.1f, 0, 0}, false}, Case{{0, -20.1f, 0}, false},
                          Case{{0, 0, 30.1f}, false}})
        EXPECT_EQ(qelViewVolume_containsPoint(&volume, c.p), c.isInside) << c.p[0] << " " << c.p[1] << " " << c.p[2];
}

}  // namespace
