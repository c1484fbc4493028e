// Content files on their way into the library.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "k8.h"
#include "tools/inspect/action_inspector.h"
#include "tools/inspect/figure_inspector.h"

// Destroys a handle of any family.
struct HandleDeleter {
    void operator()(K8Handle* handle) const { K8Object3D_destroy(handle); }
};
using HandleOwner = std::unique_ptr<K8Handle, HandleDeleter>;

// A figure with all that it is drawn with. The textures are given to the figure in the order of the files.
struct FigureContent {
    HandleOwner figure;
    HandleOwner actions;  // null: the figure stays in its rest pose
    std::vector<HandleOwner> textures;
    inspect::FigureSummary figureSummary;
    inspect::ActionTableSummary actionSummary;
};

// Loads one figure, at most one action table and any number of textures, told apart by what is in the files. Throws
// std::runtime_error with a text for the user: which file, what was expected and at which offset it went wrong.
FigureContent loadFigureContent(const std::vector<std::string>& paths);
