#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/fixed_point.h"
#include "frame/handle.h"
#include "scene/light.h"

static bool isLight(const K8Light* handle) { return K8Handle_isOf(handle, K8_CLASS_LIGHT); }

K8Light* K8Light_create(K8Light* memory, K8Allocator* allocator) {
    auto* handle = static_cast<K8Light*>(K8Handle_create(memory, allocator, sizeof(K8Light), K8_CLASS_LIGHT));
    if (!handle) return nullptr;
    handle->header.object = qelLight_create();
    if (handle->header.object) return handle;
    K8ErrStorage_failOutOfMemory();
    K8Handle_destroy(&handle->header, sizeof *handle);
    return nullptr;
}

void K8Light_destroy(K8Light* handle) {
    if (!isLight(handle)) return K8Object3D_destroy(reinterpret_cast<K8Handle*>(handle));
    K8Light_clearTmpData(handle);
    K8Handle_destroy(&handle->header, sizeof *handle);
}

bool K8Light_setTmpData(K8Light* handle, const K8LightInfo* info) {
    if (!isLight(handle) || !info) return K8ErrStorage_fail();
    auto* own = static_cast<K8LightInfo*>(K8Handle_ensureInfo(&handle->header, handle->info, sizeof *info));
    if (!own) return false;
    *own = *info;
    handle->info = own;
    return true;
}

void K8Light_clearTmpData(K8Light* handle) {
    if (!isLight(handle) || !handle->info) return;
    K8Allocator_free(handle->header.allocator, handle->info);
    handle->info = nullptr;
}

static Light* lightOf(K8Light* handle) {
    return isLight(handle) ? static_cast<Light*>(handle->header.object) : nullptr;
}

void K8Light_setMode(K8Light* handle, int32_t mode) {
    if (Light* light = lightOf(handle)) qelLight_setMode(light, mode);
}

void K8Light_setIntensity(K8Light* handle, int32_t intensity) {
    if (Light* light = lightOf(handle)) qelLight_setIntensity(light, f2j(intensity));
}

void K8Light_setColor(K8Light* handle, uint32_t color) {
    if (Light* light = lightOf(handle)) qelLight_setColor(light, color);
}

void K8Light_setSpotAngle(K8Light* handle, int32_t degrees) {
    if (Light* light = lightOf(handle)) qelLight_setSpotAngle(light, f2j(degrees));
}

void K8Light_setSpotExponent(K8Light* handle, int32_t exponent) {
    if (Light* light = lightOf(handle)) qelLight_setSpotExponent(light, f2j(exponent));
}

void K8Light_setAttenuation(K8Light* handle, int32_t constant, int32_t linear, int32_t quadratic) {
    Light* light = lightOf(handle);
    if (!light || constant < 0 || linear < 0 || quadratic < 0) return;
    if (constant == 0 && linear == 0 && quadratic == 0) {
        constexpr float kLeast = 0.0001f;  // the divisor must not vanish
        qelLight_setAttenuation(light, kLeast, kLeast, kLeast);
    } else {
        qelLight_setAttenuation(light, f2j(constant), f2j(linear), f2j(quadratic));
    }
}
