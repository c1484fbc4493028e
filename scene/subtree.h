// The walk over a scene subtree: depth first, parents before children, in child order, without recursion or stack.
#pragma once

#include "scene/names.h"

// The place of a walk. It starts at {root, root, 0} with a visit of the root.
struct SubtreeWalk {
    Node* root;
    Node* node;
    int32_t childIndex;
};
// Moves on to the next node to visit. False at the end; a FigureMesh, which is no part of scenes, ends the walk too.
bool qelSubtreeWalk_next(SubtreeWalk* walk);

int32_t qelObject3D_animateSubtree(Object3D* root, int32_t worldTime, Result* result);
Object3D* qelObject3D_findInSubtree(Object3D* root, int32_t userId);
