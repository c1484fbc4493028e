// The records that queueing an object needs between two flushes come from fixed-size blocks, so that a frame costs no
// allocator call once the blocks exist. A pool set holds one pool per record kind.
#pragma once

#include <array>
#include <cstdint>

#include "k8.h"

enum class RecordKind : uint32_t {
    DrawItem = 1,
    TreeLevel = 2,      // of walking a tree of groups
    WorkListEntry = 3,  // of copying a handle tree
    SceneWork = 4,      // of walking the figures of a scene group
    ReleaseWork = 5,    // kept for releasing handle copies, which links the copies themselves instead
    Transform = 6,
    ActionTable = 7,
    Figure = 8,
    FigureInfo = 9,
    Texture = 10,
    TextureInfo = 11,
    Primitive = 12,
    PrimitiveInfo = 13,
    Group = 14,
    GroupInfo = 15,
    Light = 16,
    LightInfo = 17,
    Fog = 18,
};
constexpr uint32_t kRecordKindCount = 18;
constexpr uint32_t kMaxRecordsPerKind = 2048;

struct RecordPool;

// recordSizes[kind] is the byte size of a record of that kind; entry 0 is not used. The draw items get room for all
// 2048 records at once, the other kinds for their first 32. Returns null, with everything given back, when memory runs
// out.
RecordPool* RecordPool_create(K8Allocator* allocator, const std::array<uint32_t, kRecordKindCount + 1>& recordSizes);

// Gives back all memory, records still in use included. Null is ignored.
void RecordPool_destroy(RecordPool* pool);

// Returns a record, aligned for pointers and with whatever its last user left in it. Null when 2048 records of the kind
// are in use, when memory runs out, or when kind is none of the enumerators.
void* RecordPool_take(RecordPool* pool, RecordKind kind);

// The allocator of the blocks, for what hangs off a record and has no fixed size.
K8Allocator* RecordPool_allocator(const RecordPool* pool);

// The record must have come from RecordPool_take; null is not allowed. Its memory stays with the pool.
void RecordPool_giveBack(void* record);

// Lets the next takes search from the first block again. Records still in use stay in use.
void RecordPool_rewind(RecordPool* pool);
