#include "render/draw_tree.h"

#include "frame/error_status.h"
#include "render/call_lights.h"
#include "scene/group.h"
#include "scene/subtree.h"

// A group on the way down to where a walk is.
struct TreeLevel {
    const K8GroupInfo* group;
    const Object3D* scene;  // of a scene group, else null
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
    for (const Node* node = root; node; node = node->parent)
        if (node->classId == ClassId::SkinnedMesh) return;
    SubtreeWalk walk = {root, root, 0};
    do {
        Node* node = walk.node;
        if (node->classId == ClassId::SkinnedMesh) walk.childIndex = 1;  // behind its skeleton
        if (qelObject3D_isGroup(node)) qelGroup_removeChildrenOfClass(static_cast<Group*>(node), ClassId::Light);
    } while (qelSubtreeWalk_next(&walk));
}

// Whether a group to be entered is of the scene that the innermost level is of, and has lost its lights with that.
static bool isInScene(const Object3D* scene, const TreeLevel* level) {
    return level && level->scene && qelObject3D_isNode(scene) &&
           static_cast<const Node*>(scene)->parent == level->scene;
}

// --- The walk ---

static bool enterGroup(TreeWalk* walk, const K8Group* group, const K8Transform& outside) {
    if (++walk->groupVisits > kMaxGroupVisits) return K8ErrStorage_fail();
    Object3D* scene = group->header.classId == K8_CLASS_SCENE_GROUP ? group->header.object : nullptr;
    if (!isInScene(scene, walk->level)) removeLights(scene);
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
    *level = {info, scene, 0, place, walk->level};
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
