#include "samples/pointer/picking.h"

#include <vector>

struct Place {
    K8Handle* handle;
    K8Transform toWorld;
};

// Picking works in the coordinates of a figure, so the ray goes there. It meets the figure at the same multiple of its
// direction as it does in the world: the distances of all figures can be compared, and tell where the points are.
static bool pickFigure(const K8Figure* figure, const K8Transform& toWorld, const Ray& ray, Hit* hit) {
    K8Transform toFigure = toWorld;
    K8Transform_scale(&toFigure, 4096 / 64, 4096 / 64, 4096 / 64);  // figures count in 1/64 of a unit
    if (!K8Transform_invert(&toFigure)) return false;               // squeezed flat
    const auto [o, d] = transformRay(toFigure, ray);

    qelRayIntersection found;
    qelRayIntersection_initialize(&found);
    int32_t result;
    auto* mesh = reinterpret_cast<qelSkinnedMesh*>(figure->header.object);  // the figures of a package are skinned
    if (!qelSkinnedMesh_pick(mesh, o[0], o[1], o[2], d[0], d[1], d[2], &found, &result)) return false;

    hit->submesh = found.submeshIndex;
    hit->distance = found.distance;
    for (int i = 0; i < 3; ++i) {
        hit->point[i] = ray.origin[i] + found.distance * ray.direction[i];
        // A normal goes back by the transposed matrix.
        const float* m = toFigure.elements;
        hit->normal[i] = m[i] * found.normal[0] + m[4 + i] * found.normal[1] + m[8 + i] * found.normal[2];
    }
    return true;
}

bool pickTree(K8Handle* root, const Ray& ray, Hit* hit) {
    bool isHit = false;
    int figures = 0;
    std::vector<Place> open(1);
    open[0].handle = root;
    K8Transform_create(&open[0].toWorld, &MALK8_malc);
    while (!open.empty()) {
        Place place = open.back();
        open.pop_back();
        if (place.handle->classId == K8_CLASS_FIGURE) {
            Hit found;
            found.figure = figures++;
            const auto* figure = reinterpret_cast<const K8Figure*>(place.handle);
            if (!pickFigure(figure, place.toWorld, ray, &found) || (isHit && hit->distance < found.distance)) continue;
            *hit = found;
            isHit = true;
        } else if (place.handle->classId == K8_CLASS_GROUP) {
            const K8GroupInfo* info = reinterpret_cast<const K8Group*>(place.handle)->info;
            if (info->transform) K8Transform_multiply(&place.toWorld, info->transform);
            for (int i = 0; i < info->childHandleCount; ++i) open.push_back({info->childHandles[i], place.toWorld});
        }
    }
    return isHit;
}
