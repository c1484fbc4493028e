#include "tests/support/counting_heap.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

constexpr int kHostFill = 0xA5;

bool AllocationCounter::failsNow() {
    const int32_t call = calls_++;
    if (failAt_ == kNeverFail) return false;
    return mode_ == FailMode::Once ? call == failAt_ : call >= failAt_;
}

void AllocationCounter::failAfter(int32_t failAt, FailMode mode) {
    calls_ = 0;
    failAt_ = failAt;
    mode_ = mode;
}

void* AllocationCounter::allocate(int32_t size) {
    if (failsNow() || size < 0) return nullptr;
    void* block = std::malloc(size_t(size));
    std::memset(block, zeroFill_ ? 0 : kHostFill, size_t(size));
    return enter(block, size);
}

// Always moves the block, so that a pointer kept into the old one is caught.
void* AllocationCounter::reallocate(void* block, int32_t size) {
    if (!block) return allocate(size);
    const auto old = blocks_.find(block);
    if (old == blocks_.end()) {
        ADD_FAILURE() << "realloc of a block that is not live in this heap";
        return nullptr;
    }
    if (failsNow() || size < 0) return nullptr;
    void* moved = std::malloc(size_t(size));
    std::memset(moved, kHostFill, size_t(size));
    std::memcpy(moved, block, size_t(std::min(size, old->second)));
    release(block);
    return enter(moved, size);
}

void AllocationCounter::release(void* block) {
    if (!block) return;
    const auto live = blocks_.find(block);
    if (live == blocks_.end()) {
        ADD_FAILURE() << "free of a block that is not live in this heap";
        return;
    }
    liveBytes_ -= live->second;
    std::memset(block, kHostFill, size_t(live->second));
    blocks_.erase(live);
    std::free(block);
}

void* AllocationCounter::enter(void* block, int32_t size) {
    blocks_.emplace(block, size);
    liveBytes_ += size;
    peakBytes_ = std::max(peakBytes_, liveBytes_);
    return block;
}

// MALK8_malc has no room for state of a heap, and there is one MALK8_malc: so one CountingHeap at a time.
static CountingHeap* currentHeap = nullptr;

static const K8AllocatorFunctions kHeapFunctions = {
    [](K8Allocator*, int32_t size) { return currentHeap->allocate(size); },
    [](K8Allocator*, void* block, int32_t size) { return currentHeap->reallocate(block, size); },
    [](K8Allocator*, void* block) { currentHeap->release(block); },
};

CountingHeap::CountingHeap(int32_t failAt, FailMode mode) : AllocationCounter(true, failAt, mode) {
    if (currentHeap) std::abort();
    MALK8_touchMA();
    previous_ = MALK8_malc.functions;
    MALK8_malc.functions = &kHeapFunctions;
    currentHeap = this;
}

CountingHeap::~CountingHeap() {
    EXPECT_EQ(liveBlocks(), 0) << "live when the heap ends";
    MALK8_malc.functions = previous_;
    currentHeap = nullptr;
}

const K8AllocatorFunctions CountingAllocator::kFunctions = {
    [](K8Allocator* host, int32_t size) { return ownerOf(host).allocate(size); },
    [](K8Allocator* host, void* block, int32_t size) { return ownerOf(host).reallocate(block, size); },
    [](K8Allocator* host, void* block) { ownerOf(host).release(block); },
};

CountingAllocator::CountingAllocator(int32_t failAt, FailMode mode)
    : AllocationCounter(false, failAt, mode), host_{{&kFunctions}, this} {}

CountingAllocator::~CountingAllocator() { EXPECT_EQ(liveBlocks(), 0) << "live when the allocator ends"; }
