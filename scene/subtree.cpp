#include "scene/subtree.h"

#include <algorithm>
#include <cassert>

#include "scene/group.h"
#include "scene/skinned_mesh.h"

// The node's next child at or behind childIndex, or null. Leaves childIndex at its slot.
static Node* nextChild(SubtreeWalk* walk) {
    if (walk->node->classId == ClassId::SkinnedMesh)
        return walk->childIndex == 0 ? static_cast<SkinnedMesh*>(walk->node)->skeleton : nullptr;
    if (!qelObject3D_isGroup(walk->node)) return nullptr;
    const auto* group = static_cast<const Group*>(walk->node);
    for (; walk->childIndex < group->childCount; ++walk->childIndex)
        if (Node* child = group->children[walk->childIndex]) return child;
    return nullptr;
}

// Moves to the parent, behind the child that the walk comes from. False at the root.
static bool climb(SubtreeWalk* walk) {
    const Node* child = walk->node;
    if (child == walk->root || !child->parent) return false;
    walk->node = child->parent;
    const bool inGroup = qelObject3D_isGroup(walk->node);
    assert(!inGroup || static_cast<const Group*>(walk->node)->children[child->childSlot] == child);
    walk->childIndex = inGroup ? child->childSlot + 1 : 1;
    return true;
}

bool qelSubtreeWalk_next(SubtreeWalk* walk) {
    if (!qelObject3D_isNode(walk->node)) return false;
    for (;;) {
        if (Node* child = nextChild(walk)) {
            walk->node = child;
            walk->childIndex = 0;
            return true;
        }
        if (!climb(walk)) return false;
    }
}

int32_t qelObject3D_animateSubtree(Object3D* root, int32_t worldTime, Result* result) {
    *result = QEL_STATUS_OK;
    if (!root) return kValidForever;
    if (!qelObject3D_isNode(root)) return root->animate ? root->animate(root, worldTime, result) : kValidForever;

    int32_t validity = kValidForever;
    SubtreeWalk walk{static_cast<Node*>(root), static_cast<Node*>(root), 0};
    do {
        if (!walk.node->animate) continue;
        const int32_t own = walk.node->animate(walk.node, worldTime, result);
        if (*result != QEL_STATUS_OK) return validity;
        validity = std::min(validity, own);
    } while (qelSubtreeWalk_next(&walk));
    return validity;
}

Object3D* qelObject3D_findInSubtree(Object3D* root, int32_t userId) {
    if (!qelObject3D_isNode(root)) return qelObject3D_findIn(root, userId);
    SubtreeWalk walk{static_cast<Node*>(root), static_cast<Node*>(root), 0};
    do
        if (Object3D* found = walk.node->find(walk.node, userId)) return found;
    while (qelSubtreeWalk_next(&walk));
    return nullptr;
}
