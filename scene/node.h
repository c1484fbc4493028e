// The base of everything that stands in a scene graph.
#pragma once

#include "scene/transformable.h"

enum class AlignmentTarget : int32_t { None = 144, Origin = 145, XAxis = 146, YAxis = 147, ZAxis = 148 };

// A node knows who is aligned to it, so that no alignment outlives the node it names. One such chain runs through all
// nodes with the same reference.
struct AlignmentChain {
    Node* first;     // of the nodes aligned to this one
    Node* previous;  // this node's neighbours among those aligned to the same reference
    Node* next;
};

struct Node : Transformable {
    Node* parent;  // no reference
    uint8_t renderingEnabled;
    uint8_t pickingEnabled;
    int32_t scope;  // bit mask
    float alphaFactor;
    Node* zReference;  // no references; written by qelNode_setAlignment alone
    Node* yReference;
    AlignmentTarget zTarget, yTarget;
    Node* lastDuplicate;          // most recent copy made by duplicateSubtree; followed only while that runs
    qelTransform worldTransform;  // relative to the skinned mesh, used by skinning
    uint8_t worldTransformUpdated;
    AlignmentChain zChain, yChain;
    int32_t childSlot;  // position among the children of a parent that is a Group
    // Of the last render traversal.
    float worldAlpha;      // product of the alpha factors down to here
    uint8_t originInView;  // groups and skinned meshes: the origin passed the view-volume test
};

// For the init and finalise of classes: after finalise the class runs its own init again.
void qelNode_init(Node* node);
// Clears every alignment that names the node, then what the bases hold.
void qelNode_finalise(Node* node);

// Completes a memberwise copy with a header of its own: no parent, and aligned to what the source is aligned to.
void qelNode_completeCopy(Node* copy);

// qelObject3D_copy for nodes.
template <typename T>
T* qelNode_copy(const T* source) {
    T* copy = qelObject3D_copy(source);
    if (copy) qelNode_completeCopy(copy);
    return copy;
}

void qelNode_setRenderingEnable(Node* node, bool enabled);
void qelNode_setPickingEnable(Node* node, bool enabled);
void qelNode_setScope(Node* node, int32_t mask);
Result qelNode_setAlphaFactor(Node* node, float alpha);
Result qelNode_setAlignment(Node* node, Node* zReference, int32_t zTarget, Node* yReference, int32_t yTarget);
// Exchanges the references under the same targets.
void qelNode_setAlignmentReferences(Node* node, Node* zReference, Node* yReference);

// The transform from a node to another of the same tree. False when there is no common ancestor or the way down cannot
// be inverted.
bool qelNode_getTransformTo(Node* node, Node* target, qelTransform* out, Result* result);
World* qelNode_getRootWorld(Node* node);  // null when the topmost node is none
// The product of composites up to, but excluding, the topmost node; also stored in `toWorld`.
void qelNode_computeToRoot(Node* node, qelTransform* out);

// worldTransform = parentWorld composite, or the composite alone for null; the composite must be up to date.
void qelNode_updateWorldTransform(Node* node, const qelTransform* parentWorld);
void qelNode_invalidateWorldTransforms(Node* root);

bool qelNode_isAncestor(const Node* ancestor, const Node* node);  // of itself too
