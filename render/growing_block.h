// A block of records that drawing keeps from frame to frame: made on first use, grown when a scene needs more.
#pragma once

#include "frame/allocator.h"

template <typename T>
struct GrowingBlock {
    T* records;
    uint32_t count, capacity;
};

// Moves the records to a block of the allocator twice as large, or the first of that many bytes. Null when memory
// runs out.
void* K8GrowingBlock_enlarge(K8Allocator* allocator, void* records, uint32_t recordSize, uint32_t firstBytes,
                             uint32_t* capacity);

// A zeroed record at the end, or null when memory runs out.
template <typename T>
T* K8GrowingBlock_append(GrowingBlock<T>& block, K8Allocator* allocator, uint32_t firstBytes) {
    if (block.count == block.capacity) {
        void* larger = K8GrowingBlock_enlarge(allocator, block.records, sizeof(T), firstBytes, &block.capacity);
        if (!larger) return nullptr;
        block.records = static_cast<T*>(larger);
    }
    T* record = &block.records[block.count++];
    *record = {};
    return record;
}

template <typename T>
void K8GrowingBlock_free(GrowingBlock<T>& block, K8Allocator* allocator) {
    K8Allocator_free(allocator, block.records);
    block = {};
}
