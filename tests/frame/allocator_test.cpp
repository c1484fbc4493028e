#include "frame/allocator.h"

#include <algorithm>

#include "frame/error_status.h"
#include "tests/support/counting_heap.h"

static K8Allocator* defaultAllocator() {
    MALK8_touchMA();
    return &MALK8_malc;
}

static bool isZero(const void* block, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(block);
    return std::all_of(bytes, bytes + size, [](uint8_t byte) { return byte == 0; });
}

static int32_t sizeInHeader(const void* block) {
    int32_t size;
    std::memcpy(&size, static_cast<const uint8_t*>(block) - 16, sizeof size);
    return size;
}

TEST(DefaultAllocator, HandsOutZeroedBlocksBehindTheirSize) {
    K8Allocator* heap = defaultAllocator();
    for (const int32_t size : {0, 1, 17, 4096, 1 << 20})
        for (const bool throughRealloc : {false, true}) {
            SCOPED_TRACE(size);
            // The heap hands freed memory out again: dirty it first.
            void* dirty = heap->functions->alloc(heap, size);
            std::memset(dirty, 0xEE, size_t(size));
            heap->functions->free(heap, dirty);
            void* block =
                throughRealloc ? heap->functions->realloc(heap, nullptr, size) : heap->functions->alloc(heap, size);
            ASSERT_NE(block, nullptr);
            EXPECT_TRUE(isZero(block, size_t(size)));
            EXPECT_EQ(sizeInHeader(block), size);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u);
            heap->functions->free(heap, block);
        }
}

TEST(DefaultAllocator, ReallocKeepsContentsAndRefusesNegativeSizes) {
    K8Allocator* heap = defaultAllocator();
    auto* block = static_cast<uint8_t*>(heap->functions->alloc(heap, 100));
    std::memset(block, 0x5A, 100);
    EXPECT_EQ(heap->functions->realloc(heap, block, -1), nullptr);

    for (const int32_t size : {100000, 40}) {
        block = static_cast<uint8_t*>(heap->functions->realloc(heap, block, size));
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(sizeInHeader(block), size);
        EXPECT_EQ(std::count(block, block + 40, 0x5A), 40) << size;
    }
    heap->functions->free(heap, block);
    heap->functions->free(heap, nullptr);
    EXPECT_EQ(heap->functions->alloc(heap, -1), nullptr);
    EXPECT_EQ(heap->functions->realloc(heap, nullptr, INT32_MIN), nullptr);
}

TEST(EngineAllocation, EngineStatusFollowsEveryCall) {
    constexpr uint32_t kWrapping = 0x20000001;  // times 8 is 8 in 32 bits
    struct Case {
        const char* what;
        void* (*allocate)();
        int32_t status;
    };
    for (const Case& c :
         {Case{"plain", [] { return qelAlloc(kScratchTag, 8); }, QEL_STATUS_OK},
          Case{"negative", [] { return qelAlloc(kScratchTag, -1); }, QEL_STATUS_OUT_OF_MEMORY},
          Case{"realloc", [] { return qelRealloc(nullptr, 8); }, QEL_STATUS_OK},
          Case{"negative realloc", [] { return qelRealloc(nullptr, -1); }, QEL_STATUS_OUT_OF_MEMORY},
          Case{"empty array", [] { return qelAllocArray(0, 8); }, QEL_STATUS_OK},
          Case{"array of 2^31 bytes", [] { return qelAllocArray(1u << 28, 8); }, QEL_STATUS_OUT_OF_MEMORY},
          Case{"wrapping array", [] { return qelAllocArray(kWrapping, 8); }, QEL_STATUS_OUT_OF_MEMORY},
          Case{"wrapping growth", [] { return qelReallocArray(nullptr, kWrapping, 8); }, QEL_STATUS_OUT_OF_MEMORY}}) {
        SCOPED_TRACE(c.what);
        qelStatus_set(c.status == QEL_STATUS_OK ? QEL_STATUS_OUT_OF_MEMORY : QEL_STATUS_OK);
        void* block = c.allocate();
        EXPECT_EQ(block == nullptr, c.status != QEL_STATUS_OK);
        EXPECT_EQ(qelStatus_get(), c.status);
        qelFree(block);
        EXPECT_EQ(qelStatus_get(), c.status) << "free leaves the status alone";
    }
}

TEST(EngineAllocation, FailedReallocLeavesTheBlock) {
    CountingHeap heap;
    auto* block = qelAllocArrayOf<uint32_t>(4);
    block[3] = 77;
    heap.failAfter(0);
    EXPECT_EQ(qelReallocArray(block, 8, sizeof(uint32_t)), nullptr);
    EXPECT_EQ(block[3], 77u);
    qelFree(block);
}

TEST(HostAllocation, BlocksAreZeroedAndSizesBounded) {
    CountingAllocator host;
    void* block = K8Allocator_alloc(host.get(), 64);
    EXPECT_TRUE(isZero(block, 64));
    K8Allocator_free(host.get(), block);

    const FailureMark mark = FailureMark_now();
    EXPECT_EQ(K8Allocator_alloc(host.get(), uint64_t(INT32_MAX) + 1), nullptr);
    EXPECT_EQ(host.calls(), 1) << "a size that 31 bits cannot hold must not reach the host";
    EXPECT_NE(FailureMark_now().exhaustions, mark.exhaustions);
}

TEST(FailureMark, TellsExhaustionFromOtherFailures) {
    struct Case {
        const char* what;
        void (*act)();
        int32_t status;
    };
    const auto fail = [] { qelAlloc(kScratchTag, -1); };
    const auto succeed = [] { qelFree(qelAlloc(kScratchTag, 8)); };
    const auto failThenSucceed = [] {
        qelAlloc(kScratchTag, -1);
        qelFree(qelAlloc(kScratchTag, 8));
    };
    for (const Case& c :
         {Case{"nothing ran out", [] {}, K8_ERR_FAILURE}, Case{"an allocation that succeeded", succeed, K8_ERR_FAILURE},
          Case{"an allocation that failed", fail, K8_ERR_OUT_OF_MEMORY},
          Case{"failed, and a later one succeeded", failThenSucceed, K8_ERR_OUT_OF_MEMORY},
          Case{"texture memory", [] { qelStatus_set(QEL_STATUS_OUT_OF_MEMORY); }, K8_ERR_OUT_OF_MEMORY},
          Case{"a host's allocator", [] { FailureMark_noteExhaustion(); }, K8_ERR_OUT_OF_MEMORY}}) {
        qelStatus_set(QEL_STATUS_OK);
        K8ErrStorage_setErrorStatus(-1);
        const FailureMark mark = FailureMark_now();
        c.act();
        K8ErrStorage_storeFailure(mark);
        EXPECT_EQ(K8ErrStorage_getErrorStatus(), c.status) << c.what;
    }
    qelStatus_set(QEL_STATUS_OUT_OF_MEMORY);  // from before the mark, it counts too
    K8ErrStorage_storeFailure(FailureMark_now());
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
    qelStatus_set(QEL_STATUS_OK);
}
