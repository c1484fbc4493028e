// From the arrays of a command to vertices in the pools and entries in the queue.
#pragma once

#include "render/command_queue.h"

enum class PrimitiveKind : uint32_t { Points = 1, Lines = 2, Triangles = 3, Quads = 4, Sprites = 5 };

// How often an array has an element, numbered as in the two-bit fields of a command.
enum class ArrayRate : uint32_t { None = 0, PerSet = 1, PerPrimitive = 2, PerVertex = 3 };

struct PrimitiveCommand {
    PrimitiveKind kind;
    uint32_t count;                    // of primitives
    uint32_t vertexCount;              // of each
    std::span<const uint8_t> corners;  // of each, in the order in which they are drawn
    ArrayRate normals, colors, textureCoords;
    uint32_t attributes;
};

// Draw key, beside the bits of a polygon's attribute word.
constexpr uint32_t kDrawEnvironmentTexture = 0x0008;
constexpr uint32_t kDrawPoints = 0x1000, kDrawLines = 0x2000, kDrawSprites = 0x3000;

// Both queue a command whose arrays suffice. `common` is what its entries share; everything that has to do with
// vertices is still to be filled in. False when memory runs out, with the queue to be cut back by the caller.
bool PrimitiveVertices_queue(RenderState* state, const PrimitiveCommand& command, const CommandArrays& arrays,
                             const RenderCommandEntry& common);
bool PrimitiveVertices_queueSprites(RenderState* state, const PrimitiveCommand& command, const CommandArrays& arrays,
                                    const RenderCommandEntry& common);
