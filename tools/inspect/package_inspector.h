// What a "K8" package of objects holds.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <variant>
#include <vector>

#include "tools/inspect/action_inspector.h"
#include "tools/inspect/figure_inspector.h"
#include "tools/inspect/image_inspector.h"

namespace inspect {

// Types and modes are numbered as in k8.h; lengths, intensities and degrees are plain numbers, colours 0xRRGGBB.

struct PackagePrimitive {
    uint32_t type = 0;  // 1 points, 2 lines, 3 triangles, 4 quadrilaterals, 5 sprites
    uint32_t params = 0;
    uint32_t count = 0;                         // of primitives
    std::array<uint32_t, 5> valueCounts{};      // positions, normals, colours, texture coordinates, sprite parameters
    std::array<double, 3> least{}, greatest{};  // the box of the positions, with room for sprites of a size in units
};

struct PackageLight {
    uint32_t mode = 0;
    uint32_t color = 0;
    std::array<float, 3> position{}, direction{};
    std::array<float, 3> attenuation{};  // constant, linear, quadratic
    float intensity = 0, spotAngle = 0, spotExponent = 0;
};

struct PackageFog {
    uint32_t mode = 0;
    uint32_t color = 0;
    float density = 0;        // exponential
    float near = 0, far = 0;  // linear
};

struct PackageFigure {
    uint32_t actionTable = 0;        // an object; 0: none
    std::vector<uint32_t> textures;  // objects; 0: none
    FigureSummary model;
};

struct PackageObject {
    size_t offset = 0;    // of the record's body
    uint32_t length = 0;  // of the body
    // In the order of the file's type bytes, from 0xFA on.
    std::variant<PackagePrimitive, PackageLight, PackageFog, ImageSummary, PackageFigure, ActionTableSummary> content;
};

struct PackageChild {
    bool isGroup;
    uint32_t index;  // of a group or an object
};

struct PackageGroup {
    std::vector<PackageChild> children;
    std::optional<std::array<float, 16>> transform;  // row-major; the last one that an entry of a parent gives
};

struct PackageSummary {
    uint32_t objectSizeLimit = 0;
    std::vector<PackageGroup> groups;    // the first is the root
    std::vector<PackageObject> objects;  // without groups the first is the root
    size_t trailerBytes = 0;             // what nothing reads
};

// Throws ContentProblem for what the library would not load.
PackageSummary inspectPackage(std::span<const uint8_t> bytes);

}  // namespace inspect
