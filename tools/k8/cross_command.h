// k8 cross: tells whether two contents touch.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/k8/placements.h"

// Where the second content stands: scaled, then turned about the y axis, then moved.
struct CrossPlace {
    std::array<double, 3> at{};
    double turnDegrees = 0;
    double scale = 1;
};

struct CrossOptions {
    std::vector<std::string> files;  // two
    CrossPlace place;
    std::array<double, 3> step{};  // from one place to the next
    uint32_t steps = 0;
    bool json = false;
};

struct Touch {
    size_t first, second;  // objects of the placements
};

// The first objects found whose triangles meet. Throws std::runtime_error when memory runs out.
std::optional<Touch> findTouch(const Placements& first, const Placements& second, const CrossPlace& place);

// 0 when they touch somewhere on the way, else 1.
int runCross(const CrossOptions& options);
