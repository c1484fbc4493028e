// The walk over a scene subtree: depth first, parents before children, in child order, without recursion or stack.
#pragma once

#include "scene/names.h"

// One step of the walk. Start with {root, root, 0}; `node` is visited whenever childIndex is 0. False when the walk has ended.
struct SubtreeWalk {
    Node* root;
    Node* node;
    int32_t childIndex;
};
// Moves on to the next node to visit (its childIndex is 0 again).
bool qelSubtreeWalk_next(SubtreeWalk* walk);

int32_t qelObject3D_animateSubtree(Object3D* root, int32_t worldTime, Result* result);
Object3D* qelObject3D_findInSubtree(Object3D* root, int32_t userId);
