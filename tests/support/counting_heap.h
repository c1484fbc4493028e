// Allocators that count, check and fail on request. One AllocationCounter does the work for both:
//   CountingHeap       stands behind MALK8_malc for its lifetime, and so sees everything that the engine allocates
//   CountingAllocator  a host's own allocator, for handles
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <unordered_map>

#include "k8.h"

constexpr int32_t kNeverFail = -1;

enum class FailMode { Once, FromThenOn };

class AllocationCounter {
public:
    // failAt counts alloc and realloc calls alike, from 0; that call returns null, and every later one too with
    // FromThenOn.
    AllocationCounter(bool zeroFill, int32_t failAt, FailMode mode)
        : zeroFill_(zeroFill), failAt_(failAt), mode_(mode) {}
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    void* allocate(int32_t size);
    void* reallocate(void* block, int32_t size);
    void release(void* block);  // a block that is not live here is a test failure, and is left alone

    // Starts counting calls afresh, with live blocks kept, and arms the next failure.
    void failAfter(int32_t failAt, FailMode mode = FailMode::Once);

    int32_t calls() const { return calls_; }  // alloc and realloc
    int32_t liveBlocks() const { return int32_t(blocks_.size()); }
    int64_t liveBytes() const { return liveBytes_; }
    int64_t peakBytes() const { return peakBytes_; }  // the most that was live at once
    bool hasFailed() const { return calls_ > failAt_ && failAt_ != kNeverFail; }

private:
    bool failsNow();
    void* enter(void* block, int32_t size);

    std::unordered_map<void*, int32_t> blocks_;  // live block to size
    bool zeroFill_;
    int32_t failAt_;
    FailMode mode_;
    int32_t calls_ = 0;
    int64_t liveBytes_ = 0, peakBytes_ = 0;
};

// Blocks come zero-filled, as from the library's own heap; what a realloc adds is filled with 0xA5. On destruction the
// table is put back. Blocks that are live then would be freed by the wrong heap, so they are a test failure.
class CountingHeap : public AllocationCounter {
public:
    explicit CountingHeap(int32_t failAt = kNeverFail, FailMode mode = FailMode::Once);
    ~CountingHeap();

private:
    const K8AllocatorFunctions* previous_;
};

// Every byte of a block starts as 0xA5: code that takes host memory for zeroed shows.
class CountingAllocator : public AllocationCounter {
public:
    explicit CountingAllocator(int32_t failAt = kNeverFail, FailMode mode = FailMode::Once);
    ~CountingAllocator();
    K8Allocator* get() { return &host_.head; }

private:
    struct Host {
        K8Allocator head;
        CountingAllocator* owner;
    };
    static CountingAllocator& ownerOf(K8Allocator* allocator) { return *reinterpret_cast<Host*>(allocator)->owner; }
    static const K8AllocatorFunctions kFunctions;
    Host host_;
};

// Runs scenario(heap) with its 0th, 1st, 2nd... engine allocation failing, until a run ends without reaching the
// failure. A scenario sets up, acts, checks its statuses (heap.hasFailed() says whether it was hit) and tears down;
// after each run nothing may be live. Stops at the first run that fails a check. Returns how many allocations the
// undisturbed scenario makes.
template <typename Scenario>
int32_t sweepEngineAllocations(FailMode mode, Scenario&& scenario) {
    for (int32_t failAt = 0;; ++failAt) {
        SCOPED_TRACE("engine allocation " + std::to_string(failAt) + " fails");
        CountingHeap heap(failAt, mode);
        scenario(heap);
        EXPECT_EQ(heap.liveBlocks(), 0);
        if (!heap.hasFailed() || testing::Test::HasFailure()) return heap.calls();
    }
}

// The same for the allocations that a scenario makes through a host's allocator.
template <typename Scenario>
int32_t sweepHostAllocations(FailMode mode, Scenario&& scenario) {
    for (int32_t failAt = 0;; ++failAt) {
        SCOPED_TRACE("host allocation " + std::to_string(failAt) + " fails");
        CountingAllocator host(failAt, mode);
        scenario(host);
        EXPECT_EQ(host.liveBlocks(), 0);
        if (!host.hasFailed() || testing::Test::HasFailure()) return host.calls();
    }
}
