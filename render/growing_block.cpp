#include "render/growing_block.h"

void* K8GrowingBlock_enlarge(K8Allocator* allocator, void* records, uint32_t recordSize, uint32_t firstBytes,
                             uint32_t* capacity) {
    const uint64_t wanted = *capacity ? uint64_t(*capacity) * 2 : firstBytes / recordSize;
    void* larger = K8Allocator_alloc(allocator, wanted * recordSize);  // null beyond 31 bits
    if (!larger) return nullptr;
    if (records) memcpy(larger, records, size_t(*capacity) * recordSize);
    K8Allocator_free(allocator, records);
    *capacity = uint32_t(wanted);
    return larger;
}
