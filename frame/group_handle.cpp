#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/handle.h"

K8Group* K8Group_create(K8Group* memory, K8Allocator* allocator) {
    return static_cast<K8Group*>(K8Handle_create(memory, allocator, sizeof(K8Group), K8_CLASS_GROUP));
}

void K8Group_destroy(K8Group* handle) {
    if (!handle) return;
    K8Group_clearTmpData(handle);
    K8Handle_destroy(&handle->header, sizeof *handle);
}

// Releases the arrays of the record and zeroes it. An array that the record to come names again stays.
static void clearRecord(K8Group* handle, const K8GroupInfo* next) {
    K8GroupInfo* info = handle->info;
    if (!next || next->childHandles != info->childHandles)
        K8Allocator_free(handle->header.allocator, info->childHandles);
    if (!next || next->childData != info->childData) K8Allocator_free(handle->header.allocator, info->childData);
    *info = {};
}

bool K8Group_setTmpData(K8Group* handle, const K8GroupInfo* info) {
    if (!handle || !info) return K8ErrStorage_fail();
    const K8GroupInfo record = *info;  // `info` may be the handle's own
    if (handle->info) clearRecord(handle, &record);
    auto* own = static_cast<K8GroupInfo*>(K8Handle_ensureInfo(&handle->header, handle->info, sizeof record));
    if (!own) return false;
    *own = record;
    handle->info = own;
    return true;
}

void K8Group_clearTmpData(K8Group* handle) {
    if (!handle || !handle->info) return;
    clearRecord(handle, nullptr);
    K8Allocator_free(handle->header.allocator, handle->info);
    handle->info = nullptr;
}

void K8Group_clearLoadedInfo(K8Group* handle) {
    if (handle && handle->info) clearRecord(handle, nullptr);
}
