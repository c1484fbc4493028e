#include "scene/group.h"

#include <algorithm>
#include <span>

#include "animation/animate.h"

// --- Life ---

static std::span<Node*> childrenOf(const Group* group) { return {group->children, size_t(group->childCount)}; }

static void destroyGroup(Object3D* object) {
    qelGroup_finalise(static_cast<Group*>(object));
    qelFree(object);
}

Group* qelGroup_create() {
    auto* group = qelObject3D_alloc<Group>(ClassId::Group);
    if (group) qelGroup_init(group);
    return group;
}

void qelGroup_init(Group* group) {
    qelNode_init(group);
    group->classId = ClassId::Group;
    group->find = qelObject3D_findCommon;
    group->getReferences = qelGroup_getReferences;
    group->animate = qelObject3D_animateCommon;
    group->destroy = destroyGroup;
    group->children = nullptr;
    group->childCount = 0;
    group->queue = nullptr;
}

void qelGroup_finalise(Group* group) {
    for (Node* child : childrenOf(group)) {
        if (!child) continue;  // a copy whose children were not copied
        child->parent = nullptr;
        qelObject3D_unref(child);
    }
    qelFree(group->children);
    qelFree(group->queue);
    qelNode_finalise(group);
    qelGroup_init(group);
}

Object3D* qelGroup_duplicate(const Group* group) {
    Group* copy = qelNode_copy(group);
    if (copy && !qelGroup_completeCopy(copy)) {
        qelObject3D_unref(copy);
        return nullptr;
    }
    return copy;
}

bool qelGroup_completeCopy(Group* copy) {
    const int32_t slots = copy->childCount;
    copy->children = nullptr;
    copy->childCount = 0;
    copy->queue = nullptr;
    if (slots == 0) return true;
    copy->children = qelAllocArrayOf<Node*>(uint32_t(slots));
    if (!copy->children) return false;
    copy->childCount = slots;
    return true;
}

// --- Children ---

Result qelGroup_addChild(Group* group, Node* child) {
    if (!child) return QEL_STATUS_NULL_POINTER;
    if (child->classId == ClassId::World || child->parent) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (qelNode_isAncestor(child, group)) return QEL_STATUS_ILLEGAL_ARGUMENT;

    void* grown = qelReallocArray(group->children, uint32_t(group->childCount) + 1, sizeof(Node*));
    if (!grown) return QEL_STATUS_OUT_OF_MEMORY;
    group->children = static_cast<Node**>(grown);
    child->parent = group;
    child->childSlot = group->childCount;
    child->transformChanged = 1;  // its way to the world is another one
    qelObject3D_ref(child);
    group->children[group->childCount++] = child;
    return QEL_STATUS_OK;
}

static bool isBelowSkinnedMesh(const Node* node) {
    while ((node = node->parent))
        if (node->classId == ClassId::SkinnedMesh) return true;
    return false;
}

Result qelGroup_removeChild(Group* group, Node* child) {
    if (isBelowSkinnedMesh(group)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!child || child->parent != group) return QEL_STATUS_OK;
    const std::span<Node*> later = childrenOf(group).subspan(size_t(child->childSlot) + 1);
    for (Node* node : later) group->children[--node->childSlot] = node;
    group->children[--group->childCount] = nullptr;
    child->parent = nullptr;
    qelObject3D_unref(child);
    return QEL_STATUS_OK;
}

Node* qelGroup_getChild(const Group* group, int32_t index, Result* result) {
    const bool exists = index >= 0 && index < group->childCount;
    *result = exists ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
    return exists ? group->children[index] : nullptr;
}

int32_t qelGroup_getChildCount(const Group* group) { return group->childCount; }

int32_t qelGroup_getReferences(const Object3D* object, Object3D** out) {
    int32_t count = qelObject3D_getReferencesCommon(object, out);
    for (Node* child : childrenOf(static_cast<const Group*>(object)))
        count = qelObject3D_appendReference(child, out, count);
    return count;
}
