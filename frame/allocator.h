// Memory: the engine's own allocations, and blocks from a host's allocator.
#pragma once

#include <cstdint>
#include <cstring>
#include <span>

#include "k8.h"

// Engine blocks come zero-filled from MALK8_malc, through its table pointer, and write the engine status. The tag is
// the class id of the object the block is for; it tells a reader of the call what is being made.
constexpr uint32_t kScratchTag = 0xFFFFFFFFu;  // a block that is no object

void* qelAlloc(uint32_t tag, int32_t size);
void* qelRealloc(void* block, int32_t size);  // bytes added at the end are not cleared
void qelFree(void* block);

// count elements of elementSize bytes, zero-filled; null when there is no room or the product leaves the allocator's
// 31-bit sizes. Both failures leave the engine status at QEL_STATUS_OUT_OF_MEMORY. A count of 0 gives a valid block.
void* qelAllocArray(uint32_t count, uint32_t elementSize);
// The same around qelRealloc: null leaves the old block as it was, and elements added at the end are not cleared.
void* qelReallocArray(void* block, uint32_t count, uint32_t elementSize);

template <typename T>
T* qelAllocArrayOf(uint32_t count) {
    return static_cast<T*>(qelAllocArray(count, sizeof(T)));
}

// A block of a host's allocator, zero-filled; null (noted as an exhaustion) for sizes beyond 31 bits or when the
// allocator has none.
void* K8Allocator_alloc(K8Allocator* allocator, uint64_t size);
void K8Allocator_free(K8Allocator* allocator, void* block);  // ignores null

template <typename T>
T* K8Allocator_allocArrayOf(K8Allocator* allocator, uint32_t count) {
    return static_cast<T*>(K8Allocator_alloc(allocator, uint64_t(count) * sizeof(T)));
}

// An engine array bound to its scope, zero-filled; span() is empty when it could not be had.
template <typename T>
struct Scratch {
    explicit Scratch(uint32_t wanted) : data(qelAllocArrayOf<T>(wanted)), count(data ? wanted : 0) {}
    ~Scratch() { qelFree(data); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    std::span<T> span() const { return {data, count}; }
    T* release() {  // hands the block to the caller
        T* block = data;
        data = nullptr;
        count = 0;
        return block;
    }
    T* data;
    uint32_t count;
};
