// The collision part of a primitive: its triangles, halves of quadrilaterals, or lines as triangles without area.

#include <algorithm>
#include <span>

#include "frame/primitive_handle.h"
#include "query/collision_set.h"
#include "scene/transform.h"

struct PrimitiveShape {
    PartShape shape;
    uint32_t values;  // positions per primitive, three to a vertex
    uint32_t triangles, vertices;
};

// Null for primitives that have nothing to touch.
static const PrimitiveShape* shapeOf(uint32_t type) {
    static constexpr PrimitiveShape kLines = {PartShape::Lines, 6, 1, 3}, kTriangles = {PartShape::Triangles, 9, 1, 3},
                                    kQuads = {PartShape::Quads, 12, 2, 4};
    switch (type) {
        case K8_PRIM_LINES: return &kLines;
        case K8_PRIM_TRIANGLES: return &kTriangles;
        case K8_PRIM_QUADS: return &kQuads;
        default: return nullptr;
    }
}

// Values that no primitive uses count too.
static void measure(CollisionPart* part, std::span<const int32_t> values) {
    int32_t least[3] = {INT32_MAX, INT32_MAX, INT32_MAX}, greatest[3] = {INT32_MIN, INT32_MIN, INT32_MIN};
    for (size_t i = 0; i < values.size(); ++i) {
        least[i % 3] = std::min(least[i % 3], values[i]);
        greatest[i % 3] = std::max(greatest[i % 3], values[i]);
    }
    CollisionPart_setBounds(part, least, greatest);
}

CollisionResult CollisionSet_addPrimitiveParts(CollisionSet* set, const K8PrimitiveInfo& info) {
    const PrimitiveShape* shape = shapeOf(K8Primitive_plainType(info.type));
    const uint32_t count = info.primitiveCount, valueCount = info.counts[K8_PRIM_POSITIONS];
    const int32_t* values = info.values[K8_PRIM_POSITIONS];
    if (!shape || count == 0 || !values || uint64_t(count) * shape->values > valueCount) return CollisionResult::Ok;
    CollisionPart* part = CollisionSet_addPart(set);
    if (!part) return CollisionResult::OutOfMemory;
    part->shape = shape->shape;
    part->componentSize = sizeof(int32_t);
    part->coordinates = values;
    part->triangleCount = count * shape->triangles;
    part->vertexCount = count * shape->vertices;
    measure(part, {values, valueCount});
    set->work->steps += valueCount / 32;
    const auto scale = float(1u << part->shift);
    qelTransform_setIdentity(&part->place);
    qelTransform_postScale(&part->place, scale, scale, scale);
    return CollisionResult::Ok;
}
