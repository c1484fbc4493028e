#include "query/collision_set.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "frame/fixed_point.h"
#include "render/draw_tree.h"
#include "scene/mesh.h"
#include "scene/transform.h"

// The most that one object may be made of. What a tree reaches in several ways counts each time, so that a small tree
// can be as large as one likes; no drawing has nearly as much. Every two records are compared.
constexpr uint32_t kMaxRecords = 16384, kMaxParts = 131072;

// A group on the way down to where the walk is.
struct GroupLevel {
    const K8GroupInfo* info;
    uint32_t nextChild;
    K8Transform place;  // of the children
};

struct GroupWalk {
    GrowingBlock<GroupLevel> levels;
    uint32_t groupVisits, childVisits;
    bool isIncomplete;  // a group without loaded info was met
};

CollisionPart* CollisionSet_addPart(CollisionSet* set) {
    return K8GrowingBlock_append(set->parts, set->allocator, sizeof(CollisionPart));
}

bool CollisionSet_isTooLarge(const CollisionSet* set) {
    return set->parts.count >= kMaxParts || set->work->steps > kMaxCollisionSteps;
}

void CollisionSet_release(CollisionSet* set) {
    K8GrowingBlock_free(set->records, set->allocator);
    K8GrowingBlock_free(set->parts, set->allocator);
}

static bool isGroup(const K8Handle* handle) {
    return handle->classId == K8_CLASS_GROUP || handle->classId == K8_CLASS_SCENE_GROUP;
}

// --- Figures and primitives ---

static CollisionResult addFigureParts(CollisionSet* set, const K8Figure* figure) {
    Object3D* object = figure->header.object;
    if (!object) return CollisionResult::Ok;
    switch (object->classId) {
        case ClassId::FigureMesh:
        case ClassId::Mesh:
        case ClassId::SkinnedMesh:
        case ClassId::MorphingMesh: return CollisionSet_addMeshParts(set, static_cast<Mesh*>(object));
        default: return CollisionResult::Ok;
    }
}

static CollisionResult addParts(CollisionSet* set, const K8Handle* leaf) {
    switch (leaf->classId) {
        case K8_CLASS_FIGURE: return addFigureParts(set, reinterpret_cast<const K8Figure*>(leaf));
        case K8_CLASS_PRIMITIVE: {
            const K8PrimitiveInfo* info = reinterpret_cast<const K8Primitive*>(leaf)->info;
            return info ? CollisionSet_addPrimitiveParts(set, *info) : CollisionResult::Ok;
        }
        default: return CollisionResult::Ok;
    }
}

static void placePart(CollisionRecord* record, CollisionPart* part, const qelTransform& place) {
    qelTransform_multiplyInto(&part->place, &place, &part->place);
    for (int row = 0; row < 12; row += 4) {
        const float* m = part->place.elements + row;
        const int32_t reach = j2f(std::fabs(m[0]) + std::fabs(m[1]) + std::fabs(m[2]));
        record->leastReach = std::min(record->leastReach, reach);
        record->greatestReach = std::max(record->greatestReach, reach);
    }
    record->vertexCount += part->vertexCount;
    record->triangleCount += part->triangleCount;
}

static CollisionResult gatherLeaf(CollisionSet* set, const K8Handle* leaf, const K8Transform& placed) {
    if (CollisionSet_isTooLarge(set)) return CollisionResult::Failed;
    const uint32_t firstPart = set->parts.count;
    const CollisionResult result = addParts(set, leaf);
    if (result != CollisionResult::Ok || set->parts.count == firstPart) return result;
    if (set->records.count == kMaxRecords) return CollisionResult::Failed;

    CollisionRecord* record = K8GrowingBlock_append(set->records, set->allocator, sizeof(CollisionRecord));
    if (!record) return CollisionResult::OutOfMemory;
    record->firstPart = firstPart;
    record->partCount = set->parts.count - firstPart;
    record->leastReach = INT32_MAX;
    record->greatestReach = INT32_MIN;
    qelTransform place;
    qelTransform_set_fl(&place, placed.elements);
    for (CollisionPart& part : std::span(set->parts.records + firstPart, record->partCount))
        placePart(record, &part, place);
    return CollisionResult::Ok;
}

// --- Groups ---

static CollisionResult enterGroup(CollisionSet* set, GroupWalk* walk, const K8Group* group, const K8Transform& place) {
    if (++walk->groupVisits > kMaxGroupVisits) return CollisionResult::Failed;
    if (!group->info) {
        walk->isIncomplete = true;
        return CollisionResult::Ok;
    }
    GroupLevel* level = K8GrowingBlock_append(walk->levels, set->allocator, sizeof(GroupLevel));
    if (!level) return CollisionResult::OutOfMemory;
    level->info = group->info;
    level->place = place;
    K8Transform_multiply(&level->place, group->info->transform);
    return CollisionResult::Ok;
}

static CollisionResult visitNextChild(CollisionSet* set, GroupWalk* walk) {
    GroupLevel* level = &walk->levels.records[walk->levels.count - 1];
    if (!level->info->childHandles || level->nextChild == level->info->childHandleCount) {
        --walk->levels.count;
        return CollisionResult::Ok;
    }
    if (++walk->childVisits > kMaxChildVisits) return CollisionResult::Failed;
    const K8Handle* child = level->info->childHandles[level->nextChild++];
    if (!child) return CollisionResult::Ok;
    const K8Transform place = level->place;  // entering a group may move the levels
    if (isGroup(child)) return enterGroup(set, walk, reinterpret_cast<const K8Group*>(child), place);
    return gatherLeaf(set, child, place);
}

// A group that is its own descendant is followed until the visits are used up.
static CollisionResult gatherGroup(CollisionSet* set, const K8Group* group, const K8Transform& place) {
    GroupWalk walk{};
    CollisionResult result = enterGroup(set, &walk, group, place);
    while (result == CollisionResult::Ok && walk.levels.count > 0 && !walk.isIncomplete)
        result = visitNextChild(set, &walk);
    K8GrowingBlock_free(walk.levels, set->allocator);
    if (walk.isIncomplete) CollisionSet_release(set);
    return result;
}

CollisionResult CollisionSet_gather(CollisionSet* set, const K8Handle* object, const K8Transform* place) {
    if (isGroup(object)) return gatherGroup(set, reinterpret_cast<const K8Group*>(object), *place);
    return gatherLeaf(set, object, *place);
}
