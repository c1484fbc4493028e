#include "render/figure_walk.h"

static bool enter(FigureWalk* walk, const K8Group* group) {
    auto* level = static_cast<FigureWalkLevel*>(RecordPool_take(walk->pool, RecordKind::SceneWork));
    if (!level) {
        walk->failed = true;
        return false;
    }
    *level = {group, 0, walk->top};
    walk->top = level;
    return true;
}

static void leave(FigureWalk* walk) {
    FigureWalkLevel* level = walk->top;
    walk->top = level->below;
    RecordPool_giveBack(level);
}

bool K8FigureWalk_begin(FigureWalk* walk, const K8Group* group, RecordPool* pool) {
    *walk = {pool, nullptr, false};
    return enter(walk, group);
}

// The next child of the level on top, or null behind the last. Places without child are skipped.
static const K8Handle* nextChild(FigureWalkLevel* level) {
    const K8GroupInfo* info = level->group->info;
    while (info && level->nextChild < info->childHandleCount)
        if (const K8Handle* child = info->childHandles[level->nextChild++]) return child;
    return nullptr;
}

const K8Figure* K8FigureWalk_next(FigureWalk* walk) {
    while (walk->top) {
        const K8Handle* child = nextChild(walk->top);
        if (!child)
            leave(walk);
        else if (child->classId == K8_CLASS_FIGURE)
            return reinterpret_cast<const K8Figure*>(child);
        else if (child->classId == K8_CLASS_SCENE_GROUP && !enter(walk, reinterpret_cast<const K8Group*>(child)))
            break;
    }
    return nullptr;
}

void K8FigureWalk_end(FigureWalk* walk) {
    while (walk->top) leave(walk);
}
