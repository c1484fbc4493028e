#include "scene/node.h"

#include "scene/subtree.h"
#include "scene/transform.h"
#include "scene/world.h"

// The members that belong to one of a node's two alignments.
struct AlignmentSlot {
    Node* Node::*reference;
    AlignmentTarget Node::*target;
    AlignmentChain Node::*chain;
};
constexpr AlignmentSlot kAlignmentSlots[] = {
    {&Node::zReference, &Node::zTarget, &Node::zChain},
    {&Node::yReference, &Node::yTarget, &Node::yChain},
};

// --- Alignment chains ---

static void setReference(Node* node, Node* reference, const AlignmentSlot& slot) {
    AlignmentChain& own = node->*slot.chain;
    if (Node* old = node->*slot.reference) {
        if (own.previous) (own.previous->*slot.chain).next = own.next;
        if (own.next) (own.next->*slot.chain).previous = own.previous;
        AlignmentChain& chain = old->*slot.chain;
        if (chain.first == node) chain.first = own.next;
    }
    own.previous = own.next = nullptr;
    node->*slot.reference = reference;
    if (!reference) return;
    Node*& first = (reference->*slot.chain).first;
    if (first) (first->*slot.chain).previous = node;
    own.next = first;
    first = node;
}

// Frees every node that is aligned to this one from its alignment.
static void clearAlignmentsTo(Node* node, const AlignmentSlot& slot) {
    while (Node* aligned = (node->*slot.chain).first) {
        setReference(aligned, nullptr, slot);
        aligned->*slot.target = AlignmentTarget::None;
    }
}

void qelNode_setAlignmentReferences(Node* node, Node* zReference, Node* yReference) {
    setReference(node, zReference, kAlignmentSlots[0]);
    setReference(node, yReference, kAlignmentSlots[1]);
}

static bool isAlignmentTarget(int32_t target) {
    return target >= int32_t(AlignmentTarget::None) && target <= int32_t(AlignmentTarget::ZAxis);
}

Result qelNode_setAlignment(Node* node, Node* zReference, int32_t zTarget, Node* yReference, int32_t yTarget) {
    if (zReference == yReference && zTarget == yTarget && zTarget != int32_t(AlignmentTarget::None))
        return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (zReference == node || yReference == node) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!isAlignmentTarget(zTarget) || !isAlignmentTarget(yTarget)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    qelNode_setAlignmentReferences(node, zReference, yReference);
    node->zTarget = AlignmentTarget(zTarget);
    node->yTarget = AlignmentTarget(yTarget);
    return QEL_STATUS_OK;
}

// --- Life ---

void qelNode_init(Node* node) {
    qelTransformable_init(node);
    node->classId = ClassId::Node;
    node->getReferences = qelObject3D_getReferencesCommon;
    node->parent = nullptr;
    node->renderingEnabled = node->pickingEnabled = 1;
    node->scope = -1;
    node->alphaFactor = 1.0f;
    node->zReference = node->yReference = nullptr;
    node->zTarget = node->yTarget = AlignmentTarget::None;
    node->lastDuplicate = nullptr;
    qelTransform_setIdentity(&node->worldTransform);
    node->worldTransformUpdated = 0;
    node->zChain = node->yChain = {};
    node->childSlot = 0;
    node->worldAlpha = 1.0f;
    node->originInView = 0;
}

void qelNode_finalise(Node* node) {
    for (const AlignmentSlot& slot : kAlignmentSlots) {
        setReference(node, nullptr, slot);
        clearAlignmentsTo(node, slot);
    }
    qelTransformable_finalise(node);
}

void qelNode_completeCopy(Node* copy) {
    copy->parent = nullptr;
    copy->lastDuplicate = nullptr;
    copy->transformChanged = 1;  // no traversal has seen it where it is going to stand
    for (const AlignmentSlot& slot : kAlignmentSlots) {
        Node* reference = copy->*slot.reference;
        copy->*slot.reference = nullptr;
        copy->*slot.chain = {};
        setReference(copy, reference, slot);
    }
}

// --- Properties ---

// A subtree that comes back into view has missed the traversals meanwhile.
static void setEnable(Node* node, uint8_t& flag, bool enabled) {
    if (enabled && !flag) node->transformChanged = 1;
    flag = enabled;
}

void qelNode_setRenderingEnable(Node* node, bool enabled) { setEnable(node, node->renderingEnabled, enabled); }

void qelNode_setPickingEnable(Node* node, bool enabled) { setEnable(node, node->pickingEnabled, enabled); }

void qelNode_setScope(Node* node, int32_t mask) { node->scope = mask; }

Result qelNode_setAlphaFactor(Node* node, float alpha) {
    if (!(alpha >= 0 && alpha <= 1)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    node->alphaFactor = alpha;
    return QEL_STATUS_OK;
}

// --- The way to other nodes ---

bool qelNode_isAncestor(const Node* ancestor, const Node* node) {
    while (node && node != ancestor) node = node->parent;
    return node != nullptr;
}

static Node* topOf(Node* node) {
    while (node->parent) node = node->parent;
    return node;
}

static int32_t depthOf(const Node* node) {
    int32_t depth = 0;
    while ((node = node->parent)) ++depth;
    return depth;
}

static Node* climb(Node* node, int32_t levels) {
    for (; levels > 0; --levels) node = node->parent;
    return node;
}

// Null for nodes of different trees.
static Node* nearestCommonAncestor(Node* a, Node* b) {
    const int32_t depthA = depthOf(a), depthB = depthOf(b);
    a = climb(a, depthA - depthB);
    b = climb(b, depthB - depthA);
    while (a != b) {
        a = a->parent;
        b = b->parent;
    }
    return a;
}

// out = the product of the composites from the node up to, but excluding, the ancestor.
static void multiplyUpTo(Node* node, const Node* ancestor, qelTransform* out) {
    qelTransform_setIdentity(out);
    for (; node != ancestor; node = node->parent) {
        qelTransformable_updateComposite(node);
        qelTransform_multiplyInto(out, &node->composite, out);
    }
}

bool qelNode_getTransformTo(Node* node, Node* target, qelTransform* out, Result* result) {
    *result = node && target && out ? QEL_STATUS_OK : QEL_STATUS_NULL_POINTER;
    if (*result != QEL_STATUS_OK) return false;
    const Node* ancestor = nearestCommonAncestor(node, target);
    if (!ancestor) return false;

    qelTransform up, down;
    multiplyUpTo(node, ancestor, &up);
    multiplyUpTo(target, ancestor, &down);
    *result = qelTransform_invert(&down);
    if (*result != QEL_STATUS_OK) return false;
    qelTransform_multiplyInto(out, &down, &up);
    return true;
}

World* qelNode_getRootWorld(Node* node) {
    Node* top = topOf(node);
    return top->classId == ClassId::World ? static_cast<World*>(top) : nullptr;
}

void qelNode_computeToRoot(Node* node, qelTransform* out) {
    multiplyUpTo(node, topOf(node), out);
    qelTransform_set_tr(&node->toWorld, out);
    node->transformChanged = 1;  // for the traversals, whose world may begin elsewhere
}

// --- Transforms within a skeleton ---

void qelNode_updateWorldTransform(Node* node, const qelTransform* parentWorld) {
    if (parentWorld) {
        qelTransform_multiplyInto(&node->worldTransform, parentWorld, &node->composite);
    } else {
        qelTransform_set_tr(&node->worldTransform, &node->composite);
    }
    node->worldTransformUpdated = 1;
}

void qelNode_invalidateWorldTransforms(Node* root) {
    SubtreeWalk walk{root, root, 0};
    do walk.node->worldTransformUpdated = 0;
    while (qelSubtreeWalk_next(&walk));
}
