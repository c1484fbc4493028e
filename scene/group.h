#pragma once

#include "scene/node.h"

struct RenderQueue;

struct Group : Node {
    Node** children;  // a reference each
    int32_t childCount;
    RenderQueue* queue;  // of the traversals that begin here: one block, kept between frames, or null
};

Group* qelGroup_create();
void qelGroup_init(Group* group);
void qelGroup_finalise(Group* group);

// The child array grows by one slot; the child gains a reference and this parent.
Result qelGroup_addChild(Group* group, Node* child);
// A node that is no child is ignored. Below a SkinnedMesh nothing can be removed.
Result qelGroup_removeChild(Group* group, Node* child);
Node* qelGroup_getChild(const Group* group, int32_t index, Result* result);
int32_t qelGroup_getChildCount(const Group* group);

// The class part of duplicate: child slots of the same number, all empty. duplicateSubtree fills them.
Object3D* qelGroup_duplicate(const Group* group);
// The same for a memberwise copy of a Group or World; false leaves it without slots.
bool qelGroup_completeCopy(Group* copy);
int32_t qelGroup_getReferences(const Object3D* object, Object3D** out);
