#include "render/draw_tree.h"

#include "frame/error_status.h"
#include "render/call_lights.h"
#include "scene/group.h"
#include "scene/subtree.h"

// A group on the way down to where a walk is.
struct TreeLevel {
    const K8GroupInfo* group;
    uint32_t nextChild;
    K8Transform* place;  // of the children; a pool record
    TreeLevel* above;
};

struct TreeWalk {
    RecordPool* pool;
    TreeLevel* level;  // the innermost
    uint32_t depth;    // number of levels
    uint32_t groupVisits, childVisits;
    bool entersScenes;  // scene groups are entered like groups; otherwise they are leaves
};

void K8DrawTree_setRecordSizes(std::array<uint32_t, kRecordKindCount + 1>& sizes) {
    sizes[uint32_t(RecordKind::TreeLevel)] = sizeof(TreeLevel);
}

// --- Lights of scenes ---

// Takes the lights out of a scene, so that they never light it beside the handles made for them. What is in skeletons
// stays.
static void removeLights(Object3D* scene) {
    if (!qelObject3D_isGroup(scene)) return;
    auto* root = static_cast<Node*>(scene);
    SubtreeWalk walk = {root, root, 0};
    while (qelSubtreeWalk_next(&walk)) {
        Node* node = walk.node;
        if (node->classId == ClassId::SkinnedMesh) walk.childIndex = 1;  // behind its skeleton
        if (node->classId != ClassId::Light) continue;
        walk.node = node->parent;
        walk.childIndex = node->childSlot;  // where the next child moves up to
        if (qelGroup_removeChild(static_cast<Group*>(walk.node), node) != QEL_STATUS_OK) ++walk.childIndex;
    }
}

// --- The walk ---

static bool enterGroup(TreeWalk* walk, const K8Group* group, const K8Transform& outside) {
    if (++walk->groupVisits > kMaxGroupVisits) return K8ErrStorage_fail();
    if (group->header.classId == K8_CLASS_SCENE_GROUP) removeLights(group->header.object);
    const K8GroupInfo* info = group->info;
    if (!info || info->childHandleCount == 0) return true;
    if (!info->childHandles) return K8ErrStorage_fail();
    auto* level = static_cast<TreeLevel*>(RecordPool_take(walk->pool, RecordKind::TreeLevel));
    if (!level) return K8ErrStorage_failOutOfMemory();
    auto* place = static_cast<K8Transform*>(RecordPool_take(walk->pool, RecordKind::Transform));
    if (!place) {
        RecordPool_giveBack(level);
        return K8ErrStorage_failOutOfMemory();
    }
    *place = outside;
    K8Transform_multiply(place, info->transform);  // a null transform is the identity
    *level = {info, 0, place, walk->level};
    walk->level = level;
    ++walk->depth;
    return true;
}

static void leaveGroup(TreeWalk* walk) {
    TreeLevel* level = walk->level;
    walk->level = level->above;
    --walk->depth;
    RecordPool_giveBack(level->place);
    RecordPool_giveBack(level);
}

// What a walk does with a handle that is no group. False ends the walk.
using VisitLeaf = bool (*)(void* closure, const TreeWalk& walk, const K8Handle* leaf);

static bool visitNextChild(TreeWalk* walk, VisitLeaf visit, void* closure) {
    if (++walk->childVisits > kMaxChildVisits) return K8ErrStorage_fail();
    TreeLevel* level = walk->level;
    const K8Handle* child = level->group->childHandles[level->nextChild++];
    if (!child) return true;
    if (child->classId == K8_CLASS_GROUP || (walk->entersScenes && child->classId == K8_CLASS_SCENE_GROUP))
        return enterGroup(walk, reinterpret_cast<const K8Group*>(child), *level->place);
    return visit(closure, *walk, child);
}

static bool walkTree(RecordPool* pool, const K8Group* root, const K8Transform& placed, bool entersScenes,
                     VisitLeaf visit, void* closure) {
    TreeWalk walk = {
        .pool = pool, .level = nullptr, .depth = 0, .groupVisits = 0, .childVisits = 0, .entersScenes = entersScenes};
    bool ok = enterGroup(&walk, root, placed);
    while (walk.level) {  // after a failure this only gives the records back
        if (ok && walk.level->nextChild < walk.level->group->childHandleCount)
            ok = visitNextChild(&walk, visit, closure);
        else
            leaveGroup(&walk);
    }
    return ok;
}

// --- Lights and fog ---

struct Gathering {
    K8RenderContext* context;
    const K8Fog* fog;
    uint32_t fogDepth;
};

static void gatherFog(Gathering* gathering, const K8Fog* fog, uint32_t depth) {
    if (!fog->header.object || (gathering->fog && gathering->fogDepth <= depth)) return;
    gathering->fog = fog;
    gathering->fogDepth = depth;
}

static bool gatherLeaf(void* closure, const TreeWalk& walk, const K8Handle* leaf) {
    auto* gathering = static_cast<Gathering*>(closure);
    switch (leaf->classId) {
        case K8_CLASS_LIGHT:
            K8CallLights_add(gathering->context, reinterpret_cast<const K8Light*>(leaf), *walk.level->place,
                             K8CallLights_orderWord(walk.groupVisits, walk.depth));
            return true;
        case K8_CLASS_FOG: gatherFog(gathering, reinterpret_cast<const K8Fog*>(leaf), walk.depth); return true;
        default: return true;
    }
}

bool K8DrawTree_gather(K8RenderContext* context, const K8Handle* object, const K8Transform& placed, const K8Fog** fog) {
    *fog = nullptr;
    if (object->classId != K8_CLASS_GROUP && object->classId != K8_CLASS_SCENE_GROUP) return true;
    Gathering gathering = {.context = context, .fog = nullptr, .fogDepth = 0};
    const auto* root = reinterpret_cast<const K8Group*>(object);
    if (!walkTree(context->pool, root, placed, true, gatherLeaf, &gathering)) return false;
    *fog = gathering.fog;
    return true;
}

// --- Items ---

struct Expansion {
    K8QueueLeaf queueLeaf;
    void* closure;
};

static bool expandLeaf(void* closure, const TreeWalk& walk, const K8Handle* leaf) {
    const auto* expansion = static_cast<const Expansion*>(closure);
    switch (leaf->classId) {
        case K8_CLASS_FIGURE:
        case K8_CLASS_PRIMITIVE: return expansion->queueLeaf(expansion->closure, leaf, *walk.level->place);
        case K8_CLASS_SCENE_GROUP: {
            const K8GroupInfo* info = reinterpret_cast<const K8Group*>(leaf)->info;
            K8Transform place = *walk.level->place;
            K8Transform_multiply(&place, info ? info->transform : nullptr);
            return expansion->queueLeaf(expansion->closure, leaf, place);
        }
        default: return true;
    }
}

bool K8DrawTree_expand(K8RenderContext* context, const K8Group* group, const K8Transform& placed, K8QueueLeaf queueLeaf,
                       void* closure) {
    Expansion expansion = {queueLeaf, closure};
    return walkTree(context->pool, group, placed, false, expandLeaf, &expansion);
}
