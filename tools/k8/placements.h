// Where the figures and primitives of content stand.
#pragma once

#include <string>
#include <vector>

#include "tools/k8/content.h"

struct PlacedObject {
    K8Handle* handle;       // a figure or a primitive
    uint32_t number;        // of the object in the file
    size_t group;           // of the placements, when the content has groups
    bool isPickable;        // a figure that the file does not keep from being picked
    qelTransform placing;   // with it K8Util_getCrossStatus has the object where it is drawn
    qelTransform fromMesh;  // of figures: the coordinates that picking works in to those of the content
};

struct PlacedGroup {
    uint32_t number;  // in the file
    size_t above;     // of the placements; its own index: it is the root
    qelTransform placing;
};

// In units of drawing. Scenes are as their files place them, without the meshes of skeletons.
struct Placements {
    std::vector<PlacedGroup> groups;  // as often as each stands somewhere
    std::vector<PlacedObject> objects;
};

// Throws std::runtime_error for more places than could be drawn.
Placements placementsOf(const StageContent& content);

std::vector<int64_t> groupsAbove(const Placements& placements, const PlacedObject& object);  // from the root down

// "object 3 in groups 0/1/4", "Mesh 8", "the figure": the numbers are those of k8 info.
std::string nameOf(const StageContent& content, const Placements& placements, const PlacedObject& object);
