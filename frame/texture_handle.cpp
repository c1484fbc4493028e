#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/handle.h"

static bool isTexture(const K8Texture* handle) { return K8Handle_isOf(handle, K8_CLASS_TEXTURE); }

K8Texture* K8Texture_create(K8Texture* memory, K8Allocator* allocator) {
    return static_cast<K8Texture*>(K8Handle_create(memory, allocator, sizeof(K8Texture), K8_CLASS_TEXTURE));
}

void K8Texture_destroy(K8Texture* handle) {
    if (!isTexture(handle)) return K8Object3D_destroy(reinterpret_cast<K8Handle*>(handle));
    K8Texture_clearTmpData(handle);
    K8Handle_destroy(&handle->header, sizeof *handle);
}

bool K8Texture_setTmpData(K8Texture* handle, const K8TextureInfo* info) {
    if (!isTexture(handle) || !info) return K8ErrStorage_fail();
    auto* own = static_cast<K8TextureInfo*>(K8Handle_ensureInfo(&handle->header, handle->info, sizeof *info));
    if (!own) return false;
    *own = *info;
    handle->info = own;
    return true;
}

void K8Texture_clearTmpData(K8Texture* handle) {
    if (!isTexture(handle) || !handle->info) return;
    K8Allocator_free(handle->header.allocator, handle->info);
    handle->info = nullptr;
}
