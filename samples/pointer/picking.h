// What a ray hits in a tree of handles.
#pragma once

#include "samples/pointer/camera.h"

struct Hit {
    int figure;  // counted as the tree is walked; one handle in several places counts in each
    int32_t submesh;
    float distance;   // along the ray, in lengths of its direction
    float point[3];   // in the world
    float normal[3];  // of the triangle, in the world, of any length
};

// The nearest hit with a figure of the tree; false if there is none. Figures are hit in the pose that they were drawn
// in last.
bool pickTree(K8Handle* root, const Ray& ray, Hit* hit);
