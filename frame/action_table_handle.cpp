#include "animation/figure_pose.h"
#include "frame/error_status.h"
#include "frame/handle.h"

static bool isActionTable(const K8ActionTable* handle) { return K8Handle_isOf(handle, K8_CLASS_ACTION_TABLE); }

K8ActionTable* K8ActionTable_create(K8ActionTable* memory, K8Allocator* allocator) {
    return static_cast<K8ActionTable*>(
        K8Handle_create(memory, allocator, sizeof(K8ActionTable), K8_CLASS_ACTION_TABLE));
}

void K8ActionTable_destroy(K8ActionTable* handle) {
    if (!isActionTable(handle)) return K8Object3D_destroy(reinterpret_cast<K8Handle*>(handle));
    K8Handle_destroy(&handle->header, sizeof *handle);
}

int32_t K8ActionTable_getNumActions(const K8ActionTable* handle) {
    if (!isActionTable(handle)) {
        K8ErrStorage_fail();
        return 0;
    }
    if (!handle->header.object) return 1;
    return D_ActTable_getNumActions(static_cast<const ActTable*>(handle->header.object));
}

int32_t K8ActionTable_getMaxFrame(const K8ActionTable* handle, int32_t action) {
    if (!isActionTable(handle)) {
        K8ErrStorage_fail();
        return 0;
    }
    if (!handle->header.object) return INT32_MAX;
    return D_ActTable_getFrameCount(static_cast<const ActTable*>(handle->header.object), action);
}
