#include "samples/pointer/camera.h"

#include <cmath>

constexpr float kOpeningDegrees = 50;

static int32_t fixed(float value) { return int32_t(std::lround(value * 4096)); }  // the F numbers of the K8 interface

void placeCamera(Camera* camera, int width, int height, const float position[3], const float look[3]) {
    const int32_t from[3] = {fixed(position[0]), fixed(position[1]), fixed(position[2])};
    const int32_t along[3] = {fixed(look[0]), fixed(look[1]), fixed(look[2])};
    const int32_t up[3] = {0, 4096, 0};
    K8Transform_create(&camera->view, &MALK8_malc);
    K8Transform_lookAt(&camera->view, from, along, up);

    camera->params = {};
    camera->params.projection = K8_PROJECTION_PERSPECTIVE_ANGLE;
    camera->params.screenWidth = uint16_t(width);
    camera->params.screenHeight = uint16_t(height);
    camera->params.nearDistance = fixed(4);
    camera->params.farDistance = fixed(700);
    camera->params.verticalAngle = fixed(kOpeningDegrees);
    camera->params.viewingTransform = &camera->view;
}

static float transformed(const float row[4], const float vector[3], float w) {
    return row[0] * vector[0] + row[1] * vector[1] + row[2] * vector[2] + row[3] * w;
}

Ray transformRay(const K8Transform& transform, const Ray& ray) {
    Ray out;
    for (int i = 0; i < 3; ++i) {
        out.origin[i] = transformed(&transform.elements[4 * i], ray.origin, 1);
        out.direction[i] = transformed(&transform.elements[4 * i], ray.direction, 0);
    }
    return out;
}

bool rayThroughPixel(const Camera& camera, int x, int y, Ray* ray) {
    // Seen from the camera x goes right, y down and z forward, and one unit ahead the picture is `high` units high.
    const float height = camera.params.screenHeight, width = camera.params.screenWidth;
    const float high = 2 * std::tan(kOpeningDegrees / 2 * 3.14159265f / 180);
    const float right = (float(x) + 0.5f - width / 2) / height * high;
    const float down = (float(y) + 0.5f - height / 2) / height * high;
    const Ray seen = {{0, 0, 0}, {right, down, 1}};

    K8Transform toWorld = camera.view;
    if (!K8Transform_invert(&toWorld)) return false;
    *ray = transformRay(toWorld, seen);
    return true;
}
