// k8 render: plays an action of a figure, or of those in a package, and writes what it looks like.
#pragma once

#include <string>
#include <vector>

#include "tools/k8/pattern_choice.h"
#include "tools/k8/stage.h"

struct RenderOptions {
    std::vector<std::string> files;
    std::string out;
    std::string size = "480x480";
    std::string frames;
    double step = 1;
    double framesPerSecond = 24;
    uint32_t action = 0;
    PatternChoice patterns;
    std::string background = "dce6f0", lightColor = "ffffff";
    bool unlit = false;
    int columns = 6;
    StageOptions stage;
};

int runRender(const RenderOptions& options);
