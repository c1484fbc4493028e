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

// Releases what the record owns and zeroes it. What the record to come names again stays. The transform is the record's
// where the loader put it there.
static void clearRecord(K8Group* handle, const K8GroupInfo* next) {
    K8GroupInfo* info = handle->info;
    if (!next || next->childHandles != info->childHandles)
        K8Allocator_free(handle->header.allocator, info->childHandles);
    if (!next || next->childData != info->childData) K8Allocator_free(handle->header.allocator, info->childData);
    if (info->flag && (!next || next->transform != info->transform)) K8Transform_destroy(info->transform);
    *info = {};
}

bool K8Group_setTmpData(K8Group* handle, const K8GroupInfo* info) {
    if (!handle || !info) return K8ErrStorage_fail();
    K8GroupInfo record = *info;  // `info` may be the handle's own
    if (handle->info) {
        if (handle->info->flag && handle->info->transform != record.transform) record.flag = 0;
        clearRecord(handle, &record);
    }
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
