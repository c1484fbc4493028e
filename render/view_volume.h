// What a camera sees, in world coordinates: six planes for a perspective, a box for a parallel projection, everything
// for a generic one.
#pragma once

#include <array>

#include "scene/camera.h"

struct ViewPlane {
    float n[3];  // outward normal, unit length
    float d;     // n . (a point of the plane)
};

// What a view volume is made of. All zeros is no camera's.
struct ViewParameters {
    ProjectionType type;
    float fovyOrHeight, aspectRatio, near, far;
    std::array<float, 16> cameraToWorld;
    bool operator==(const ViewParameters&) const = default;
};

struct ViewVolume {
    ViewParameters source;
    ProjectionType type;
    ViewPlane planes[6];  // Perspective: four sides, near, far
    float center[3];      // Parallel
    float halfAxes[3][3];
};

constexpr int32_t kNearPlane = 4;

// Costs a comparison while neither the camera's parameters nor its transform change.
void qelViewVolume_set(ViewVolume* volume, Camera* camera, const qelTransform* cameraTransform);
bool qelViewVolume_containsPoint(const ViewVolume* volume, const float p[3]);
// False when the sphere lies outside. Writes the sort depth; unchanged for a generic camera.
bool qelViewVolume_testSphere(const ViewVolume* volume, const float center[3], float radius, float* depth);
// The sort depth of a sphere that is not tested; unchanged for a generic camera.
void qelViewVolume_sphereDepth(const ViewVolume* volume, const float center[3], float radius, float* depth);
