#include "render/primitive_vertices.h"

#include <cmath>
#include <cstring>

#include "frame/fixed_point.h"
#include "loader/figure_appearance.h"
#include "render/sprite_geometry.h"
#include "scene/texture2d.h"
#include "scene/transform.h"

static size_t elementAt(const PrimitiveCommand& command, ArrayRate rate, uint32_t primitive, uint32_t corner) {
    switch (rate) {
        case ArrayRate::None:
        case ArrayRate::PerSet: return 0;
        case ArrayRate::PerPrimitive: return primitive;
        case ArrayRate::PerVertex: return size_t(primitive) * command.vertexCount + corner;
    }
    return 0;
}

static uint32_t cornerCount(const PrimitiveCommand& command) {
    return command.count * uint32_t(command.corners.size());
}

// Begins an array of an entry; null when memory runs out.
static int16_t* beginArray(RenderState* state, VertexPool* pool, uint32_t valueCount, int32_t* offset) {
    *offset = int32_t(pool->count);
    return CommandQueue_extendPool(state, pool, valueCount);
}

// --- Gathering ---

// The low 16 bits of the values of every corner's element.
static void gather(const PrimitiveCommand& command, ArrayRate rate, std::span<const int32_t> array, uint32_t width,
                   int16_t* out) {
    for (uint32_t primitive = 0; primitive < command.count; ++primitive) {
        for (const uint8_t corner : command.corners) {
            const int32_t* element = &array[elementAt(command, rate, primitive, corner) * width];
            for (uint32_t i = 0; i < width; ++i) *out++ = int16_t(element[i]);
        }
    }
}

// Four bytes, which take the place of two values.
static int16_t* writeColor(int32_t rgb, uint8_t alpha, int16_t* out) {
    const uint8_t bytes[] = {uint8_t(rgb >> 16), uint8_t(rgb >> 8), uint8_t(rgb), alpha};
    std::memcpy(out, bytes, sizeof bytes);
    return out + 2;
}

static void gatherColors(const PrimitiveCommand& command, std::span<const int32_t> colors, uint8_t alpha,
                         int16_t* out) {
    for (uint32_t primitive = 0; primitive < command.count; ++primitive)
        for (const uint8_t corner : command.corners)
            out = writeColor(colors[elementAt(command, command.colors, primitive, corner)], alpha, out);
}

// --- Points, lines, triangles, quadrilaterals ---

// The texel of a picture of the surroundings that a normal looks at: the middle straight ahead, the edges aside.
static void findReflection(const qelTransform& view, const Image2D* image, const int16_t normal[3], int16_t texel[2]) {
    const float given[] = {float(normal[0]), float(normal[1]), float(normal[2])};
    float seen[3];
    qelTransform_transformNormal(&view, given, seen);
    const float length = std::sqrt(seen[0] * seen[0] + seen[1] * seen[1] + seen[2] * seen[2]);
    const float sides[] = {float(image->width), float(image->height)};
    for (int axis = 0; axis < 2; ++axis) {
        const float aside = length > 0 ? seen[axis] / length : 0;
        texel[axis] = int16_t(roundToInt((aside + 1) * sides[axis] / 2));
    }
}

static bool addReflections(RenderState* state, uint32_t vertexCount, RenderCommandEntry* entry) {
    int16_t* texels = beginArray(state, &state->textureCoords, 2 * vertexCount, &entry->textureCoords[1]);
    if (!texels) return false;
    const int16_t* normals = state->normals.values + entry->normals;
    for (uint32_t i = 0; i < vertexCount; ++i)
        findReflection(entry->state.view, entry->environmentTexture->image, normals + 3 * i, texels + 2 * i);
    return true;
}

static bool addNormals(RenderState* state, const PrimitiveCommand& command, const CommandArrays& arrays,
                       RenderCommandEntry* entry) {
    if (!(entry->drawKey & kWordLit)) return true;
    int16_t* normals = beginArray(state, &state->normals, 3 * cornerCount(command), &entry->normals);
    if (!normals) return false;
    gather(command, command.normals, arrays.normals, 3, normals);
    const bool reflects = entry->drawKey & kDrawEnvironmentTexture && entry->environmentTexture;
    return !reflects || addReflections(state, cornerCount(command), entry);
}

static bool addColors(RenderState* state, const PrimitiveCommand& command, const CommandArrays& arrays,
                      RenderCommandEntry* entry) {
    if (command.colors == ArrayRate::None) return true;
    int16_t* colors = beginArray(state, &state->colors, 2 * cornerCount(command), &entry->colors);
    if (colors) gatherColors(command, arrays.colors, entry->vertexAlpha, colors);
    return colors != nullptr;
}

static bool addTextureCoords(RenderState* state, const PrimitiveCommand& command, const CommandArrays& arrays,
                             RenderCommandEntry* entry) {
    if (command.textureCoords == ArrayRate::None) return true;
    int16_t* texels = beginArray(state, &state->textureCoords, 2 * cornerCount(command), &entry->textureCoords[0]);
    if (texels) gather(command, command.textureCoords, arrays.textureCoords, 2, texels);
    return texels != nullptr;
}

static ImmediateKind drawnKind(PrimitiveKind kind) {
    switch (kind) {
        case PrimitiveKind::Points: return ImmediateKind::Points;
        case PrimitiveKind::Lines: return ImmediateKind::Lines;
        case PrimitiveKind::Triangles:
        case PrimitiveKind::Quads: return ImmediateKind::Triangles;
        case PrimitiveKind::Sprites: return ImmediateKind::Sprites;
    }
    return ImmediateKind::Points;
}

bool PrimitiveVertices_queue(RenderState* state, const PrimitiveCommand& command, const CommandArrays& arrays,
                             const RenderCommandEntry& common) {
    RenderCommandEntry entry = common;
    entry.kind = drawnKind(command.kind);
    entry.count = int32_t(command.kind == PrimitiveKind::Quads ? 2 * command.count : command.count);
    int16_t* positions = beginArray(state, &state->positions, 3 * cornerCount(command), &entry.positions);
    if (!positions) return false;
    gather(command, ArrayRate::PerVertex, arrays.positions, 3, positions);
    return addNormals(state, command, arrays, &entry) && addColors(state, command, arrays, &entry) &&
           addTextureCoords(state, command, arrays, &entry) && CommandQueue_append(state, entry);
}

// --- Sprites ---

constexpr uint32_t kSpriteCorners = 6;  // of two triangles

static RenderCommandEntry* beginSprites(RenderState* state, const RenderCommandEntry& common, bool hasColors) {
    RenderCommandEntry entry = common;
    entry.kind = ImmediateKind::Sprites;
    entry.positions = int32_t(state->positions.count);
    entry.textureCoords[0] = int32_t(state->textureCoords.count);
    if (hasColors) entry.colors = int32_t(state->colors.count);
    qelTransform_setIdentity(&entry.state.view);  // corners are in view coordinates
    return CommandQueue_append(state, entry);
}

static void placeSprite(const SpriteShape& shape, qelTransform* view) {
    qelTransform_postTranslate(view, float(shape.centre[0]), float(shape.centre[1]), float(shape.centre[2]));
    qelTransform_postScale(view, shape.unitX, shape.unitY, 1);
}

// Adds the sprite to the entry whose arrays end where the pools do.
static bool addSprite(RenderState* state, const PrimitiveCommand& command, const SpriteShape& shape,
                      const int32_t* record, RenderCommandEntry* entry) {
    int16_t* positions = CommandQueue_extendPool(state, &state->positions, 3 * kSpriteCorners);
    int16_t* texels = CommandQueue_extendPool(state, &state->textureCoords, 2 * kSpriteCorners);
    if (!positions || !texels) return false;
    const int32_t s[] = {record[3], record[5], record[5], record[3]};
    const int32_t t[] = {record[4], record[4], record[6], record[6]};
    for (const uint8_t corner : command.corners) {
        for (const int16_t value : shape.corners[corner]) *positions++ = value;
        *texels++ = int16_t(s[corner]);
        *texels++ = int16_t(t[corner]);
    }
    entry->count += 2;
    return true;
}

static bool addSpriteColor(RenderState* state, int32_t rgb, uint8_t alpha) {
    int16_t* colors = CommandQueue_extendPool(state, &state->colors, 2 * kSpriteCorners);
    for (uint32_t i = 0; colors && i < kSpriteCorners; ++i) colors = writeColor(rgb, alpha, colors);
    return colors != nullptr;
}

bool PrimitiveVertices_queueSprites(RenderState* state, const PrimitiveCommand& command, const CommandArrays& arrays,
                                    const RenderCommandEntry& common) {
    const bool hasColors = command.colors != ArrayRate::None;
    RenderCommandEntry* entry = nullptr;  // that further sprites may join
    for (uint32_t i = 0; i < command.count; ++i) {
        const int32_t* record =
            &arrays.textureCoords[elementAt(command, command.textureCoords, i, 0) * kSpriteRecordLength];
        SpriteShape shape;
        if (!SpriteGeometry_make(*state, &arrays.positions[3 * i], record, &shape)) continue;
        if (!entry || shape.isPlaced) entry = beginSprites(state, common, hasColors);
        if (!entry || !addSprite(state, command, shape, record, entry)) return false;
        if (hasColors &&
            !addSpriteColor(state, arrays.colors[elementAt(command, command.colors, i, 0)], common.vertexAlpha))
            return false;
        if (!shape.isPlaced) continue;
        placeSprite(shape, &entry->state.view);
        entry = nullptr;
    }
    return true;
}
