// The queue of a render state: vertices in pools that all commands share, and one entry per draw.
#pragma once

#include "render/render_state.h"

constexpr int32_t kNoArray = -2;  // in place of an offset into a pool

// The part of the render state that a command is drawn with, as it was when the command was given.
struct CommandState {
    qelTransform projection, view;
    uint32_t attributeMask;
    float ambientIntensity, directionalIntensity;
    int32_t lightDirection[3];
    RenderStateFog fogMode;
    uint32_t fogColor;
    int32_t fogNear, fogFar, fogDensity;
};

struct RenderCommandEntry {
    int32_t positions, normals, textureCoords[kMaxTextureUnits], colors;  // first value in the pool, or kNoArray
    int32_t appearance;                                                   // index into the cache
    ImmediateKind kind;
    int32_t count;       // of points, lines or triangles
    Texture2D* texture;  // both: one reference, or null
    Texture2D* environmentTexture;
    uint32_t drawKey;
    uint8_t vertexAlpha;
    CommandState state;
};

// How far pools and queue are filled.
struct QueueMark {
    uint32_t positions, normals, textureCoords, colors, entries;
    bool operator==(const QueueMark&) const = default;
};

// Room for further values at the end of a pool; valid until the next call. Null when memory runs out.
int16_t* CommandQueue_extendPool(RenderState* state, VertexPool* pool, uint32_t valueCount);
// Adds a copy of the entry, which takes references to its textures. Null when memory runs out.
RenderCommandEntry* CommandQueue_append(RenderState* state, const RenderCommandEntry& entry);

QueueMark CommandQueue_mark(const RenderState* state);
// Drops everything that was added since the mark.
void CommandQueue_cutBack(RenderState* state, const QueueMark& mark);
void CommandQueue_empty(RenderState* state);
// Gives back the memory of an empty queue.
void CommandQueue_release(RenderState* state);
