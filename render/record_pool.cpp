#include "render/record_pool.h"

#include <bit>
#include <span>

#include "frame/allocator.h"
#include "frame/error_status.h"

constexpr uint32_t kRecordsPerBlock = 32;
constexpr uint32_t kBlockCount = kMaxRecordsPerKind / kRecordsPerBlock;

// In front of every record in use, so that it can be given back without knowing its kind or block.
struct RecordHeader {
    uint32_t clearMask;  // all bits but the record's own
    uint32_t* occupancy;
};

struct RecordBlock {
    uint32_t occupancy;  // bit i: record i is in use
    uint8_t* memory;     // null until the block is needed
};

struct KindPool {
    uint32_t stride;  // bytes from one record to the next, header included
    uint32_t cursor;  // the block where the next search starts
    std::array<RecordBlock, kBlockCount> blocks;
};

struct RecordPool {
    K8Allocator* allocator;
    std::array<KindPool, kRecordKindCount> kinds;
};

static bool ensureMemory(RecordPool* pool, const KindPool& kind, RecordBlock& block) {
    if (!block.memory)
        block.memory =
            static_cast<uint8_t*>(K8Allocator_alloc(pool->allocator, uint64_t(kind.stride) * kRecordsPerBlock));
    return block.memory != nullptr;
}

static uint32_t strideOf(uint32_t recordSize) {
    constexpr uint32_t kAlignment = alignof(RecordHeader);
    return uint32_t(sizeof(RecordHeader)) + (recordSize + kAlignment - 1) / kAlignment * kAlignment;
}

RecordPool* RecordPool_create(K8Allocator* allocator, const std::array<uint32_t, kRecordKindCount + 1>& recordSizes) {
    auto* pool = static_cast<RecordPool*>(K8Allocator_alloc(allocator, sizeof(RecordPool)));
    if (!pool) return nullptr;
    pool->allocator = allocator;
    for (uint32_t i = 0; i < kRecordKindCount; ++i) {
        KindPool& kind = pool->kinds[i];
        kind.stride = strideOf(recordSizes[i + 1]);
        const bool wantsAll = RecordKind(i + 1) == RecordKind::DrawItem;
        for (RecordBlock& block : std::span(kind.blocks).first(wantsAll ? kBlockCount : 1)) {
            if (ensureMemory(pool, kind, block)) continue;
            RecordPool_destroy(pool);
            return nullptr;
        }
    }
    return pool;
}

void RecordPool_destroy(RecordPool* pool) {
    if (!pool) return;
    K8Allocator* allocator = pool->allocator;
    for (KindPool& kind : pool->kinds)
        for (RecordBlock& block : kind.blocks) K8Allocator_free(allocator, block.memory);
    K8Allocator_free(allocator, pool);
}

K8Allocator* RecordPool_allocator(const RecordPool* pool) { return pool->allocator; }

// The first block in [begin, end) with a record to spare, or end.
static uint32_t findRoom(const KindPool& kind, uint32_t begin, uint32_t end) {
    while (begin < end && kind.blocks[begin].occupancy == UINT32_MAX) ++begin;
    return begin;
}

static RecordBlock* chooseBlock(RecordPool* pool, KindPool& kind) {
    uint32_t index = findRoom(kind, kind.cursor, kBlockCount);
    if (index == kBlockCount) {
        index = findRoom(kind, 0, kind.cursor);
        if (index == kind.cursor) {
            FailureMark_noteExhaustion();
            return nullptr;
        }
    }
    if (!ensureMemory(pool, kind, kind.blocks[index])) return nullptr;
    kind.cursor = index;
    return &kind.blocks[index];
}

void* RecordPool_take(RecordPool* pool, RecordKind kind) {
    if (uint32_t(kind) - 1 >= kRecordKindCount) return nullptr;
    KindPool& kindPool = pool->kinds[uint32_t(kind) - 1];
    RecordBlock* block = chooseBlock(pool, kindPool);
    if (!block) return nullptr;
    const uint32_t index = uint32_t(std::countr_one(block->occupancy));
    block->occupancy |= 1u << index;
    auto* header = reinterpret_cast<RecordHeader*>(block->memory + size_t(index) * kindPool.stride);
    *header = {~(1u << index), &block->occupancy};
    return header + 1;
}

void RecordPool_giveBack(void* record) {
    const RecordHeader* header = static_cast<RecordHeader*>(record) - 1;
    *header->occupancy &= header->clearMask;
}

void RecordPool_rewind(RecordPool* pool) {
    for (KindPool& kind : pool->kinds) kind.cursor = 0;
}
