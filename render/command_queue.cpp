#include "render/command_queue.h"

#include <algorithm>

#include "frame/allocator.h"

constexpr uint32_t kPoolStep = 100;  // values
constexpr uint32_t kQueueStep = 20;  // entries

// --- Growing ---

// By half at least, so that many small commands copy no block more than a few times.
static uint32_t grownCapacity(uint32_t capacity, uint32_t needed, uint32_t step) {
    return std::max(needed + step, capacity + capacity / 2);
}

// Moves `count` elements to a greater block. Null leaves the old block as it was.
template <typename T>
static T* moveToLarger(K8Allocator* allocator, T* elements, uint32_t count, uint32_t capacity) {
    auto* larger = K8Allocator_allocArrayOf<T>(allocator, capacity);
    if (!larger) return nullptr;
    std::copy_n(elements, count, larger);
    K8Allocator_free(allocator, elements);
    return larger;
}

int16_t* CommandQueue_extendPool(RenderState* state, VertexPool* pool, uint32_t valueCount) {
    const uint32_t needed = pool->count + valueCount;  // no block reaches 2^31 bytes
    if (needed > pool->capacity) {
        const uint32_t capacity = grownCapacity(pool->capacity, needed, kPoolStep);
        int16_t* larger = moveToLarger(state->allocator, pool->values, pool->count, capacity);
        if (!larger) return nullptr;
        pool->values = larger;
        pool->capacity = capacity;
    }
    int16_t* added = pool->values + pool->count;
    pool->count = needed;
    return added;
}

RenderCommandEntry* CommandQueue_append(RenderState* state, const RenderCommandEntry& entry) {
    if (state->queueCount == state->queueCapacity) {
        const uint32_t capacity = grownCapacity(state->queueCapacity, state->queueCount, kQueueStep);
        RenderCommandEntry* larger = moveToLarger(state->allocator, state->queue, state->queueCount, capacity);
        if (!larger) return nullptr;
        state->queue = larger;
        state->queueCapacity = capacity;
    }
    qelObject3D_ref(entry.texture);
    qelObject3D_ref(entry.environmentTexture);
    RenderCommandEntry* added = &state->queue[state->queueCount++];
    *added = entry;
    return added;
}

// --- Shrinking ---

QueueMark CommandQueue_mark(const RenderState* state) {
    return {state->positions.count, state->normals.count, state->textureCoords.count, state->colors.count,
            state->queueCount};
}

void CommandQueue_cutBack(RenderState* state, const QueueMark& mark) {
    while (state->queueCount > mark.entries) {
        const RenderCommandEntry& last = state->queue[--state->queueCount];
        qelObject3D_unref(last.texture);
        qelObject3D_unref(last.environmentTexture);
    }
    state->positions.count = mark.positions;
    state->normals.count = mark.normals;
    state->textureCoords.count = mark.textureCoords;
    state->colors.count = mark.colors;
}

void CommandQueue_empty(RenderState* state) { CommandQueue_cutBack(state, {}); }

void CommandQueue_release(RenderState* state) {
    for (VertexPool* pool : {&state->positions, &state->normals, &state->textureCoords, &state->colors}) {
        K8Allocator_free(state->allocator, pool->values);
        *pool = {};
    }
    K8Allocator_free(state->allocator, state->queue);
    state->queue = nullptr;
    state->queueCapacity = 0;
}
