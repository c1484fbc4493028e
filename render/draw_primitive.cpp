#include "render/draw_primitive.h"

#include "frame/primitive_handle.h"

uint32_t K8DrawList_primitiveType(const DrawItem* item) {
    if (item->object->classId != K8_CLASS_PRIMITIVE) return 0;
    const K8PrimitiveInfo* info = reinterpret_cast<const K8Primitive*>(item->object)->info;
    return info ? K8Primitive_plainType(info->type) : 0;
}

bool K8DrawList_isDeferred(const DrawItem* item) {
    const uint32_t type = K8DrawList_primitiveType(item);
    return type == K8_PRIM_POINTS || type == K8_PRIM_LINES || type == K8_PRIM_SPRITES;
}
