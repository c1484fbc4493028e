// k8 pick: tells which triangles of a figure, or of the figures in a package or scene, a ray hits.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/k8/pattern_choice.h"
#include "tools/k8/picking.h"

struct PickOptions {
    std::vector<std::string> files;
    Ray ray;
    bool all = false;  // not the nearest alone
    bool json = false;
    uint32_t action = 0;
    std::optional<double> frame;  // unset: the first
    PatternChoice patterns;
};

// 0 when something is hit, else 1.
int runPick(const PickOptions& options);
