#include "render/record_pool.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <vector>

#include "frame/error_status.h"
#include "tests/support/counting_heap.h"

namespace {

constexpr RecordKind kKind = RecordKind::Light;

std::array<uint32_t, kRecordKindCount + 1> sizesOf(uint32_t size) {
    std::array<uint32_t, kRecordKindCount + 1> sizes;
    sizes.fill(size);
    return sizes;
}

TEST(RecordPool, HoldsRecordsApartAndAligned) {
    CountingAllocator host;
    std::array<uint32_t, kRecordKindCount + 1> sizes;
    for (uint32_t kind = 0; kind <= kRecordKindCount; ++kind) sizes[kind] = 3 * kind;
    RecordPool* pool = RecordPool_create(host.get(), sizes);
    ASSERT_NE(pool, nullptr);
    std::vector<uint8_t*> records;
    for (uint32_t i = 0; i < kRecordKindCount * 70; ++i) {
        const uint32_t kind = i % kRecordKindCount + 1;
        auto* record = static_cast<uint8_t*>(RecordPool_take(pool, RecordKind(kind)));
        ASSERT_NE(record, nullptr);
        ASSERT_EQ(reinterpret_cast<uintptr_t>(record) % alignof(void*), 0u);
        std::memset(record, int(i & 255), sizes[kind]);
        records.push_back(record);
    }
    for (uint32_t i = 0; i < records.size(); ++i)
        for (uint32_t k = 0; k < sizes[i % kRecordKindCount + 1]; ++k) ASSERT_EQ(records[i][k], i & 255) << i;
    for (uint8_t* record : records) RecordPool_giveBack(record);
    RecordPool_rewind(pool);
    EXPECT_EQ(RecordPool_take(pool, RecordKind::DrawItem), records[0]);
    RecordPool_destroy(pool);
}

TEST(RecordPool, EndsAt2048RecordsOfAKind) {
    CountingAllocator host;
    RecordPool* pool = RecordPool_create(host.get(), sizesOf(8));
    ASSERT_NE(pool, nullptr);
    for (int i = 0; i < 32; ++i) RecordPool_take(pool, RecordKind::Fog);
    host.failAfter(0);
    EXPECT_EQ(RecordPool_take(pool, RecordKind::Fog), nullptr);
    EXPECT_NE(RecordPool_take(pool, RecordKind::Fog), nullptr) << "the next attempt gets its block";

    std::set<void*> records;
    for (uint32_t i = 0; i < kMaxRecordsPerKind; ++i) records.insert(RecordPool_take(pool, kKind));
    EXPECT_EQ(records.size(), kMaxRecordsPerKind);
    K8ErrStorage_setErrorStatus(9);
    qelStatus_set(QEL_STATUS_OK);
    const FailureMark mark = FailureMark_now();
    EXPECT_EQ(RecordPool_take(pool, kKind), nullptr);
    K8ErrStorage_storeFailure(mark);
    EXPECT_EQ(K8ErrStorage_getErrorStatus(), K8_ERR_OUT_OF_MEMORY);
    EXPECT_NE(RecordPool_take(pool, RecordKind::Fog), nullptr) << "the other kinds have room";

    void* middle = *std::next(records.begin(), 100);
    RecordPool_giveBack(middle);
    EXPECT_EQ(RecordPool_take(pool, kKind), middle) << "found below the cursor";
    for (const uint32_t kind : {0u, 19u, UINT32_MAX}) EXPECT_EQ(RecordPool_take(pool, RecordKind(kind)), nullptr);
    RecordPool_destroy(pool);
}

TEST(RecordPool, SurvivesWithoutMemory) {
    const int32_t calls = sweepHostAllocations(FailMode::Once, [](CountingAllocator& host) {
        RecordPool* pool = RecordPool_create(host.get(), sizesOf(16));
        EXPECT_EQ(pool == nullptr, host.hasFailed());
        RecordPool_destroy(pool);
    });
    EXPECT_EQ(calls, 1 + 64 + 17);
}

}  // namespace
