// What a ray hits in content.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "tools/k8/placements.h"

struct Ray {
    std::array<double, 6> numbers{};  // x, y, z of its origin and of its direction, of any length but 0
};

struct PickHit {
    size_t object;  // of the placements
    int32_t submesh;
    double distance;  // in units
    std::array<double, 3> point;
    std::optional<std::array<double, 3>> normal;                // of a mesh with normals
    std::array<std::optional<std::array<double, 2>>, 2> texel;  // by texture unit: s, t
};

// Every hit, the nearest first; or the nearest alone. Ray and hits in the units of the content. Throws
// std::runtime_error when memory runs out.
std::vector<PickHit> pickFigures(const Placements& placements, const Ray& ray, bool wantsAll);
