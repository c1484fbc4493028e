#include "frame/error_status.h"
#include "frame/fixed_point.h"
#include "frame/handle.h"
#include "scene/fog.h"

static bool isFog(const K8Fog* handle) { return K8Handle_isOf(handle, K8_CLASS_FOG); }

K8Fog* K8Fog_create(K8Fog* memory, K8Allocator* allocator) {
    auto* handle = static_cast<K8Fog*>(K8Handle_create(memory, allocator, sizeof(K8Fog), K8_CLASS_FOG));
    if (!handle) return nullptr;
    handle->header.object = qelFog_create();
    if (handle->header.object) return handle;
    K8ErrStorage_failOutOfMemory();
    K8Handle_destroy(&handle->header, sizeof *handle);
    return nullptr;
}

void K8Fog_destroy(K8Fog* handle) {
    if (!isFog(handle)) return K8Object3D_destroy(reinterpret_cast<K8Handle*>(handle));
    K8Handle_destroy(&handle->header, sizeof *handle);
}

static Fog* fogOf(K8Fog* handle) { return isFog(handle) ? static_cast<Fog*>(handle->header.object) : nullptr; }

void K8Fog_setMode(K8Fog* handle, int32_t mode) {
    if (Fog* fog = fogOf(handle)) qelFog_setMode(fog, mode);
}

void K8Fog_setLinear(K8Fog* handle, int32_t nearDistance, int32_t farDistance) {
    if (Fog* fog = fogOf(handle)) qelFog_setLinear(fog, f2j(nearDistance), f2j(farDistance));
}

void K8Fog_setDensity(K8Fog* handle, int32_t density) {
    Fog* fog = fogOf(handle);
    if (fog && density >= 0) qelFog_setDensity(fog, f2j(density));
}

void K8Fog_setColor(K8Fog* handle, uint32_t color) {
    if (Fog* fog = fogOf(handle)) qelFog_setColor(fog, color);
}
