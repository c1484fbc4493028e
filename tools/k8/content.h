// Content files on their way into the library and to the stage.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "k8.h"
#include "tools/inspect/content_inspector.h"
#include "tools/k8/bounds.h"

// Destroys a handle of any family.
struct HandleDeleter {
    void operator()(K8Handle* handle) const { K8Object3D_destroy(handle); }
};
using HandleOwner = std::unique_ptr<K8Handle, HandleDeleter>;

// Loads any content: the root first, then every other handle that came with it. Empty when the library refuses.
std::vector<HandleOwner> loadHandles(const std::vector<uint8_t>& bytes);

// What a stage shows: a figure, or the tree of a package.
struct StageContent {
    std::vector<HandleOwner> handles;
    K8Handle* root = nullptr;                                // among them
    std::vector<K8Figure*> figures;                          // among them, with their textures and action tables
    std::vector<K8Group*> groups;                            // among them
    K8Group* scene = nullptr;                                // the root, when it is a scene
    double sceneMilliseconds = 0;                            // the length of its longest animation
    std::shared_ptr<const inspect::ContentSummary> summary;  // of the figure, package or scene
    Extent extent;

    uint32_t patternCount() const;  // of the figure that has most
    // Frames of the action in the table where it is longest; 0 for action 0 without action tables. Throws
    // std::runtime_error when there is no such action.
    double actionLength(uint32_t action) const;
    void removeLights();  // from the tree
};

// Loads a package; or one figure, at most one action table and any number of textures, told apart by what is in the
// files. The textures are given to the figure in the order of the files. Throws std::runtime_error with a text for the
// user: which file, what was expected and at which offset it went wrong.
StageContent loadStageContent(const std::vector<std::string>& paths);
