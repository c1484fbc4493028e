#include "frame/group_handle.h"

#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/handle.h"

static bool isGroup(const K8Group* handle) {
    return K8Handle_isOf(handle, K8_CLASS_GROUP) || K8Handle_isOf(handle, K8_CLASS_SCENE_GROUP);
}

K8Group* K8Group_create(K8Group* memory, K8Allocator* allocator) {
    return static_cast<K8Group*>(K8Handle_create(memory, allocator, sizeof(K8Group), K8_CLASS_GROUP));
}

void K8Group_destroy(K8Group* handle) {
    if (!isGroup(handle)) return K8Object3D_destroy(reinterpret_cast<K8Handle*>(handle));
    K8Group_clearTmpData(handle);
    K8Handle_destroy(&handle->header, sizeof *handle);
}

// A record with what the host cannot see: the transform that the loader made, whatever the host names since.
struct GroupRecord {
    K8GroupInfo info;
    K8Transform* ownTransform;
};

static GroupRecord* recordOf(K8Group* handle) { return reinterpret_cast<GroupRecord*>(handle->info); }

// Releases what the record owns and zeroes it. What the record to come names again stays.
static void clearRecord(K8Group* handle, const K8GroupInfo* next) {
    K8GroupInfo* info = handle->info;
    const auto isGivenUp = [next](K8Handle** array) {
        return !next || (array != next->childHandles && array != next->childData);
    };
    if (isGivenUp(info->childHandles)) K8Allocator_free(handle->header.allocator, info->childHandles);
    if (info->childData != info->childHandles && isGivenUp(info->childData))
        K8Allocator_free(handle->header.allocator, info->childData);
    K8Transform* own = recordOf(handle)->ownTransform;
    const bool keepsOwn = next && next->transform == own;
    if (!keepsOwn) K8Transform_destroy(own);
    *recordOf(handle) = {{}, keepsOwn ? own : nullptr};
}

bool K8Group_setTmpData(K8Group* handle, const K8GroupInfo* info) {
    if (!isGroup(handle) || !info) return K8ErrStorage_fail();
    const K8GroupInfo record = *info;  // `info` may be the handle's own
    if (handle->info) clearRecord(handle, &record);
    auto* own = static_cast<K8GroupInfo*>(K8Handle_ensureInfo(&handle->header, handle->info, sizeof(GroupRecord)));
    if (!own) return false;
    *own = record;
    handle->info = own;
    return true;
}

K8Transform* K8Group_makeOwnTransform(K8Group* handle) {
    GroupRecord* record = recordOf(handle);
    if (!record->ownTransform) record->ownTransform = K8Transform_create(nullptr, handle->header.allocator);
    return record->info.transform = record->ownTransform;
}

void K8Group_clearTmpData(K8Group* handle) {
    if (!isGroup(handle) || !handle->info) return;
    clearRecord(handle, nullptr);
    K8Allocator_free(handle->header.allocator, handle->info);
    handle->info = nullptr;
}

void K8Group_clearLoadedInfo(K8Group* handle) {
    if (isGroup(handle) && handle->info) clearRecord(handle, nullptr);
}
