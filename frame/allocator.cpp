#include "frame/allocator.h"

#include <cstdlib>

#include "frame/error_status.h"

// In front of every block of the default allocator: its first word keeps the requested size, the rest the alignment.
constexpr size_t kBlockHeaderSize = 16;

static void* enterSize(void* heapBlock, int32_t size) {
    if (!heapBlock) return nullptr;
    std::memcpy(heapBlock, &size, sizeof size);
    return static_cast<uint8_t*>(heapBlock) + kBlockHeaderSize;
}

static void* heapBlockOf(void* block) { return static_cast<uint8_t*>(block) - kBlockHeaderSize; }

static void* allocFromHeap(K8Allocator*, int32_t size) {
    if (size < 0) return nullptr;
    return enterSize(std::calloc(1, size_t(size) + kBlockHeaderSize), size);
}

static void* reallocFromHeap(K8Allocator* allocator, void* block, int32_t size) {
    if (size < 0) return nullptr;
    if (!block) return allocFromHeap(allocator, size);
    return enterSize(std::realloc(heapBlockOf(block), size_t(size) + kBlockHeaderSize), size);
}

static void freeToHeap(K8Allocator*, void* block) {
    if (block) std::free(heapBlockOf(block));
}

static constexpr K8AllocatorFunctions kHeapFunctions = {allocFromHeap, reallocFromHeap, freeToHeap};

K8Allocator MALK8_malc;

void MALK8_touchMA() {
    static bool installed;  // not the pointer itself: a table that the host put there afterwards stays
    if (installed) return;
    installed = true;
    MALK8_malc.functions = &kHeapFunctions;
}

static void* noteOutcome(void* block) {
    qelStatus_set(block ? QEL_STATUS_OK : QEL_STATUS_OUT_OF_MEMORY);
    return block;
}

void* qelAlloc(uint32_t /*tag*/, int32_t size) {
    MALK8_touchMA();
    return noteOutcome(MALK8_malc.functions->alloc(&MALK8_malc, size));
}

void* qelRealloc(void* block, int32_t size) {
    MALK8_touchMA();
    return noteOutcome(MALK8_malc.functions->realloc(&MALK8_malc, block, size));
}

void qelFree(void* block) {
    MALK8_touchMA();
    MALK8_malc.functions->free(&MALK8_malc, block);
}

// The byte size of an array, or -1 when it leaves 31 bits. Never 0, which an allocator may answer with null.
static int32_t arraySize(uint32_t count, uint32_t elementSize) {
    const uint64_t size = uint64_t(count) * elementSize;
    if (size > uint64_t(INT32_MAX)) return -1;
    return size ? int32_t(size) : 1;
}

void* qelAllocArray(uint32_t count, uint32_t elementSize) {
    const int32_t size = arraySize(count, elementSize);
    return size < 0 ? noteOutcome(nullptr) : qelAlloc(kScratchTag, size);
}

void* qelReallocArray(void* block, uint32_t count, uint32_t elementSize) {
    const int32_t size = arraySize(count, elementSize);
    return size < 0 ? noteOutcome(nullptr) : qelRealloc(block, size);
}

void* K8Allocator_alloc(K8Allocator* allocator, uint64_t size) {
    void* block = size <= uint64_t(INT32_MAX) ? allocator->functions->alloc(allocator, int32_t(size)) : nullptr;
    if (!block) {
        FailureMark_noteExhaustion();
        return nullptr;
    }
    return std::memset(block, 0, size_t(size));
}

void K8Allocator_free(K8Allocator* allocator, void* block) {
    if (block) allocator->functions->free(allocator, block);
}
