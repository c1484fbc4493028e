// The order in which the submeshes and sprites of a group are drawn.
#pragma once

#include <span>

#include "scene/group.h"
#include "scene/mesh.h"
#include "scene/triangle_strip_array.h"

// The world transform is a copy: drawing, which goes in another order than the walk, then asks nothing of the node.
struct RenderQueueEntry {
    Node* node;
    VertexBuffer* vertexBuffer;  // null: a sprite
    TriangleStripArray* indexBuffer;
    Appearance* appearance;
    VertexArray* colors;  // see SubmeshDraw
    qelTransform worldTransform;
    float alphaFactor;  // product of the node's and its ancestors'
    int32_t scope;
    float depth;
};

static_assert(sizeof(void*) != 8 || sizeof(RenderQueueEntry) == 128, "two cache lines");

// Inserts by layer, opacity, depth and shared state. OUT_OF_MEMORY when the queue of the group cannot grow; it is as it
// was then. What an appearance says of its order stays the same until the queue is cleared.
Result qelRenderQueue_insert(Group* owner, const RenderQueueEntry& entry);
// In the order of drawing, until the next insertion.
std::span<const RenderQueueEntry* const> qelRenderQueue_sorted(const Group* owner);
// Keeps the memory.
void qelRenderQueue_clear(Group* owner);
