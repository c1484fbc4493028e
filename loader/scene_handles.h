// Handles for the nodes of a loaded scene.
#pragma once

#include "scene/world.h"

// Makes a tree of handles that stands for the tree of nodes below a World: groups, figures with their textures, and
// lights. Every handle takes a reference to its object. Returns the World's handle, whose childData lists all others;
// they belong to the caller. Null, with everything given back, when a figure has too many textures or memory runs out.
K8Group* K8SceneHandles_make(World* world, K8Allocator* allocator);
