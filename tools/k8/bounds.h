// Where content stands, in units of drawing.
#pragma once

#include <array>

#include "tools/inspect/figure_inspector.h"
#include "tools/inspect/package_inspector.h"
#include "tools/inspect/scene_inspector.h"

struct Box {
    std::array<double, 3> least{}, greatest{};
};

// What there is to see, and where.
struct Extent {
    bool isEmpty = true;  // nothing that is drawn
    bool hasLights = false;
    Box box;
};

// Figures at rest.
Extent extentOf(const inspect::FigureSummary& figure);
// Of the tree below the root, each object at the places its groups give it. Throws std::runtime_error for groups that
// hold each other so many times that nobody could draw them.
Extent extentOf(const inspect::PackageSummary& package);
Extent extentOf(const inspect::SceneSummary& scene);  // as the file places it
