// What the handle families share: the life-cycle pattern over K8Handle.
#pragma once

#include <cstddef>

#include "k8.h"

// Builds the header of a handle of `size` bytes in `memory`, or in a zeroed block of the allocator when memory is null;
// host memory is zeroed first. Null, with the error status stored, for a null allocator or when the allocator has no
// block.
void* K8Handle_create(void* memory, K8Allocator* allocator, size_t size, int16_t classId);

// The end of every destroy: releases the wrapped object, zeroes all `size` bytes of the handle and frees its own block.
void K8Handle_destroy(K8Handle* handle, size_t size);

// The loaded-info record of a handle: the present one, or a new zeroed one through the handle's allocator. Null, with
// K8_ERR_OUT_OF_MEMORY stored, when it cannot be had.
void* K8Handle_ensureInfo(const K8Handle* handle, void* present, size_t size);

// Whether a handle is one of a family, and so has its members. Hosts cast what the loader makes of bytes that may
// hold something else; families treat such a handle as they treat null. A zeroed handle passes, for all its members
// are null; a render context, which has no class either, has an allocator.
template <typename Family>
bool K8Handle_isOf(const Family* handle, int16_t classId) {
    return handle && (handle->header.classId == classId || (handle->header.classId == 0 && !handle->header.allocator));
}
