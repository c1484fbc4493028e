// A camera, and the ray through a pixel of its picture.
#pragma once

#include "k8.h"

struct Ray {
    float origin[3];
    float direction[3];  // of any length: distances along the ray count in it
};

// The same ray in other coordinates.
Ray transformRay(const K8Transform& transform, const Ray& ray);

struct Camera {
    K8Transform view;  // world to viewer
    K8RenderParams params;
};

// A camera for a picture of this size, which stands at `position` and looks along `look`. Units, in a world with y up.
void placeCamera(Camera* camera, int width, int height, const float position[3], const float look[3]);

// In the world, from the camera through the middle of the pixel; 0, 0 is at the top left. False for a camera that
// cannot see.
bool rayThroughPixel(const Camera& camera, int x, int y, Ray* ray);
