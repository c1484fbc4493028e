// The order in which the submeshes and sprites of a group are drawn.
#pragma once

#include "scene/group.h"
#include "scene/mesh.h"
#include "scene/triangle_strip_array.h"

struct RenderQueueEntry {
    Node* node;
    VertexBuffer* vertexBuffer;
    TriangleStripArray* indexBuffer;
    Appearance* appearance;
    VertexArray* colors;  // see SubmeshDraw
    const qelTransform* worldTransform;
    float alphaFactor;  // product of the node's and its ancestors'
    int32_t scope;
    float depth;
    uint8_t isSubmesh;  // 0: a sprite
};

// Inserts by layer, opacity, depth and shared state. OUT_OF_MEMORY when the queue of the group cannot grow; it is as it
// was then. What an appearance says of its order stays the same until the queue is cleared.
Result qelRenderQueue_insert(Group* owner, const RenderQueueEntry& entry);
// In the order of drawing; null behind the last one.
const RenderQueueEntry* qelRenderQueue_first(const Group* owner);
const RenderQueueEntry* qelRenderQueue_next(const Group* owner, const RenderQueueEntry* entry);
// Keeps the memory.
void qelRenderQueue_clear(Group* owner);
