#include "frame/handle.h"

#include <cstring>

#include "frame/allocator.h"
#include "frame/error_status.h"

void* K8Handle_create(void* memory, K8Allocator* allocator, size_t size, int16_t classId) {
    if (!allocator) {
        K8ErrStorage_fail();
        return nullptr;
    }
    void* block = memory ? memset(memory, 0, size) : K8Allocator_alloc(allocator, size);
    if (!block) {
        K8ErrStorage_failOutOfMemory();
        return nullptr;
    }
    auto* handle = static_cast<K8Handle*>(block);
    handle->ownBlock = memory ? nullptr : block;
    handle->allocator = allocator;
    handle->classId = classId;
    return block;
}

void K8Handle_destroy(K8Handle* handle, size_t size) {
    K8Allocator* allocator = handle->allocator;
    void* ownBlock = handle->ownBlock;
    qelObject3D_unref(handle->object);
    memset(static_cast<void*>(handle), 0, size);
    if (allocator && ownBlock) K8Allocator_free(allocator, ownBlock);
}

void* K8Handle_ensureInfo(const K8Handle* handle, void* present, size_t size) {
    if (present) return present;
    if (!handle->allocator) {  // a destroyed handle
        K8ErrStorage_fail();
        return nullptr;
    }
    void* info = K8Allocator_alloc(handle->allocator, size);
    if (!info) K8ErrStorage_failOutOfMemory();
    return info;
}

int32_t K8Object3D_getClassId(const K8Handle* handle) {
    if (handle) return handle->classId;
    K8ErrStorage_fail();
    return 0;
}

void K8Object3D_destroy(K8Handle* handle) {
    if (!handle) return;
    switch (handle->classId) {
        case K8_CLASS_ACTION_TABLE: K8ActionTable_destroy(reinterpret_cast<K8ActionTable*>(handle)); break;
        case K8_CLASS_FIGURE: K8Figure_destroy(reinterpret_cast<K8Figure*>(handle)); break;
        case K8_CLASS_TEXTURE: K8Texture_destroy(reinterpret_cast<K8Texture*>(handle)); break;
        case K8_CLASS_FOG: K8Fog_destroy(reinterpret_cast<K8Fog*>(handle)); break;
        case K8_CLASS_LIGHT: K8Light_destroy(reinterpret_cast<K8Light*>(handle)); break;
        case K8_CLASS_PRIMITIVE: K8Primitive_destroy(reinterpret_cast<K8Primitive*>(handle)); break;
        case K8_CLASS_GROUP:
        case K8_CLASS_SCENE_GROUP: K8Group_destroy(reinterpret_cast<K8Group*>(handle)); break;
        default: break;
    }
}

int32_t K8Object3D_getTime(const K8Handle* handle) {
    switch (handle ? handle->classId : 0) {
        case K8_CLASS_FIGURE: {
            const K8FigureInfo* info = reinterpret_cast<const K8Figure*>(handle)->info;
            return info ? info->frame : 0;
        }
        case K8_CLASS_GROUP:
        case K8_CLASS_SCENE_GROUP: {
            const K8GroupInfo* info = reinterpret_cast<const K8Group*>(handle)->info;
            return info ? info->frame : 0;
        }
        case K8_CLASS_ACTION_TABLE:
        case K8_CLASS_TEXTURE:
        case K8_CLASS_FOG:
        case K8_CLASS_LIGHT:
        case K8_CLASS_PRIMITIVE: return 0;
        default: K8ErrStorage_fail(); return 0;
    }
}
