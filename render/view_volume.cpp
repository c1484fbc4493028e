#include "render/view_volume.h"

#include <algorithm>
#include <cmath>

#include "scene/transform.h"

static float dot(const float a[3], const float b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

static void column(const qelTransform* m, int32_t index, float out[3]) {
    for (int row = 0; row < 3; ++row) out[row] = m->elements[4 * row + index];
}

// Turns a normal of camera space into world space, and lays the plane through a point.
static void setPlane(ViewPlane* plane, const qelTransform* camera, const float normal[3], const float point[3]) {
    qelTransform_transformNormal(camera, normal, plane->n);
    const float length = std::sqrt(dot(plane->n, plane->n));
    if (length > 0.0f)
        for (float& component : plane->n) component /= length;
    plane->d = dot(plane->n, point);
}

static void setPerspective(ViewVolume* volume, const Camera* camera, const qelTransform* m, float m11) {
    const float t = 1.0f / m11;  // tangent of half the vertical opening
    const float at = camera->aspectRatio * t;
    const float normals[6][3] = {{0, 1, t}, {0, -1, t}, {-1, 0, at}, {1, 0, at}, {0, 0, 1}, {0, 0, -1}};
    float position[3], zAxis[3], nearPoint[3], farPoint[3];
    column(m, 3, position);
    column(m, 2, zAxis);
    for (int i = 0; i < 3; ++i) {
        nearPoint[i] = position[i] - camera->near * zAxis[i];
        farPoint[i] = position[i] - camera->far * zAxis[i];
    }
    for (int i = 0; i < kNearPlane; ++i) setPlane(&volume->planes[i], m, normals[i], position);
    setPlane(&volume->planes[kNearPlane], m, normals[kNearPlane], nearPoint);
    setPlane(&volume->planes[kNearPlane + 1], m, normals[kNearPlane + 1], farPoint);
}

static void setParallel(ViewVolume* volume, const Camera* camera, const qelTransform* m) {
    const float height = camera->fovyOrHeight;
    const float halfLengths[3] = {height / 2 * camera->aspectRatio, height / 2, (camera->far - camera->near) / 2};
    for (int axis = 0; axis < 3; ++axis) {
        column(m, axis, volume->halfAxes[axis]);
        for (float& component : volume->halfAxes[axis]) component *= halfLengths[axis];
    }
    float zAxis[3];
    column(m, 2, zAxis);
    column(m, 3, volume->center);
    for (int i = 0; i < 3; ++i) volume->center[i] -= (camera->near + camera->far) / 2 * zAxis[i];
}

void qelViewVolume_set(ViewVolume* volume, Camera* camera, const qelTransform* cameraTransform) {
    ViewParameters source = {camera->projectionType, camera->fovyOrHeight, camera->aspectRatio,
                             camera->near,           camera->far,          {}};
    std::copy_n(cameraTransform->elements, 16, source.cameraToWorld.begin());
    if (volume->source == source) return;
    volume->source = source;
    volume->type = source.type;
    switch (source.type) {
        case ProjectionType::Perspective: {
            qelTransform projection;
            Result result;
            qelCamera_getProjection(camera, &projection, &result);
            // Near equal to far has no projection, and nothing is drawn with it.
            if (result == QEL_STATUS_OK) setPerspective(volume, camera, cameraTransform, projection.elements[5]);
            break;
        }
        case ProjectionType::Parallel: setParallel(volume, camera, cameraTransform); break;
        case ProjectionType::Generic: break;
    }
}

// How far p lies from the centre along a half-axis, and how long that is.
struct AxisReach {
    float along;
    float length;
};

static AxisReach reachAlong(const ViewVolume* volume, int axis, const float p[3]) {
    const float* h = volume->halfAxes[axis];
    const float length = std::sqrt(dot(h, h));
    const float offset[3] = {p[0] - volume->center[0], p[1] - volume->center[1], p[2] - volume->center[2]};
    return {length > 0.0f ? dot(offset, h) / length : 0.0f, length};
}

bool qelViewVolume_containsPoint(const ViewVolume* volume, const float p[3]) {
    switch (volume->type) {
        case ProjectionType::Perspective:
            for (const ViewPlane& plane : volume->planes)
                if (!(dot(plane.n, p) - plane.d <= 0.0f)) return false;
            return true;
        case ProjectionType::Parallel:
            for (int axis = 0; axis < 3; ++axis) {
                const AxisReach reach = reachAlong(volume, axis, p);
                if (!(std::fabs(reach.along) <= reach.length)) return false;
            }
            return true;
        case ProjectionType::Generic: return true;
    }
    return true;
}

static float nearPlaneDepth(const ViewVolume* volume, const float center[3], float radius) {
    const ViewPlane& near = volume->planes[kNearPlane];
    return radius - (dot(near.n, center) - near.d);
}

bool qelViewVolume_testSphere(const ViewVolume* volume, const float center[3], float radius, float* depth) {
    switch (volume->type) {
        case ProjectionType::Perspective:
            for (const ViewPlane& plane : volume->planes)
                if (dot(plane.n, center) - plane.d > radius) return false;
            *depth = nearPlaneDepth(volume, center, radius);
            return true;
        case ProjectionType::Parallel: {
            AxisReach reach = {};
            for (int axis = 0; axis < 3; ++axis) {
                reach = reachAlong(volume, axis, center);
                if (std::fabs(reach.along) > reach.length + radius) return false;
            }
            *depth = reach.length - (radius + reach.along);  // along the last axis, the direction of view
            return true;
        }
        case ProjectionType::Generic: return true;
    }
    return true;
}

void qelViewVolume_sphereDepth(const ViewVolume* volume, const float center[3], float radius, float* depth) {
    switch (volume->type) {
        case ProjectionType::Perspective: *depth = nearPlaneDepth(volume, center, radius); break;
        case ProjectionType::Parallel: {
            const AxisReach reach = reachAlong(volume, 2, center);
            *depth = reach.length - reach.along;
            break;
        }
        case ProjectionType::Generic: break;
    }
}
