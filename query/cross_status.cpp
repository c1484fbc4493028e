// The collision query of the public header.

#include "frame/error_status.h"
#include "frame/k8_transform.h"
#include "query/record_crossing.h"

// Where the two objects stand: between the two placements, so that coordinates stay small.
struct CrossPlacement {
    K8Transform *identity, *a, *b;
};

static bool placesDiffer(const K8Transform* a, const K8Transform* b, const K8Transform* identity) {
    return !K8Transform_equal((a ? a : identity)->elements, (b ? b : identity)->elements);
}

// False when a transform could not be had.
static bool placeBetween(CrossPlacement* placement, const K8Transform* a, const K8Transform* b,
                         K8Allocator* allocator) {
    placement->identity = K8Transform_create(nullptr, allocator);
    if (!placement->identity) return false;
    if (!placesDiffer(a, b, placement->identity)) return true;
    placement->a = K8Transform_createT(nullptr, allocator, a ? a->elements : nullptr);
    placement->b = K8Transform_createT(nullptr, allocator, b ? b->elements : nullptr);
    if (!placement->a || !placement->b) return false;
    for (int i = 3; i < 12; i += 4) {
        const float difference = placement->a->elements[i] - placement->b->elements[i];
        placement->a->elements[i] = difference / 2;
        placement->b->elements[i] = -difference / 2;
    }
    return true;
}

static void releasePlacement(CrossPlacement* placement) {
    for (K8Transform* transform : {placement->identity, placement->a, placement->b}) K8Transform_destroy(transform);
}

static CollisionResult crossSets(CollisionSet* a, CollisionSet* b, bool* out) {
    CrossingScratch scratch{};
    scratch.allocator = a->allocator;
    scratch.work = a->work;
    CollisionResult result = CollisionResult::Ok;
    *out = false;
    for (uint32_t i = 0; i < a->records.count && !*out && result == CollisionResult::Ok; ++i) {
        a->work->steps += b->records.count / 16;  // for those that are not near each other
        for (uint32_t j = 0; j < b->records.count && !*out && result == CollisionResult::Ok; ++j)
            result = CollisionRecord_cross(&scratch, *a, &a->records.records[i], *b, &b->records.records[j], out);
    }
    CrossingScratch_release(&scratch);
    return result;
}

static CollisionResult crossObjects(const K8Handle* objectA, const K8Handle* objectB, const CrossPlacement& placement,
                                    K8Allocator* allocator, bool* out) {
    CollisionWork work{};
    CollisionSet a{}, b{};
    a.allocator = b.allocator = allocator;
    a.work = b.work = &work;
    CollisionResult result = CollisionSet_gather(&a, objectA, placement.a ? placement.a : placement.identity);
    if (result == CollisionResult::Ok)
        result = CollisionSet_gather(&b, objectB, placement.b ? placement.b : placement.identity);
    if (result == CollisionResult::Ok) result = crossSets(&a, &b, out);
    CollisionSet_release(&a);
    CollisionSet_release(&b);
    return result;
}

int32_t K8Util_getCrossStatus(const K8Handle* objectA, const K8Transform* transformA, const K8Handle* objectB,
                              const K8Transform* transformB) {
    K8ErrStorage_setErrorStatus(K8_ERR_FAILURE);
    if (!objectA || !objectB) return 0;
    K8Allocator* allocator = objectA->allocator ? objectA->allocator : objectB->allocator;
    CrossPlacement placement{};
    CollisionResult result = CollisionResult::Failed;
    bool crosses = false;
    if (placeBetween(&placement, transformA, transformB, allocator))
        result = crossObjects(objectA, objectB, placement, allocator, &crosses);
    releasePlacement(&placement);
    const bool outOfMemory = result == CollisionResult::OutOfMemory;
    K8ErrStorage_setErrorStatus(outOfMemory ? K8_ERR_OUT_OF_MEMORY : K8_ERR_FAILURE);
    return crosses;
}
