// K8RenderState_render: turns a command into vertices and queue entries.
#include "loader/figure_appearance.h"
#include "render/primitive_vertices.h"
#include "render/render_state_projection.h"
#include "scene/appearance.h"
#include "scene/material.h"

static ArrayRate rateAt(uint32_t word, uint32_t mask, int shift) { return ArrayRate((word & mask) >> shift); }

// False for a kind that there is not.
static bool readCommand(uint32_t word, PrimitiveCommand* out) {
    static constexpr uint8_t kInOrder[] = {0, 1, 2};
    static constexpr uint8_t kTwoTriangles[] = {0, 1, 3, 3, 1, 2};
    const uint32_t kind = word >> 24;
    if (kind < uint32_t(PrimitiveKind::Points) || kind > uint32_t(PrimitiveKind::Sprites)) return false;
    out->kind = PrimitiveKind(kind);
    out->count = word >> kCommandCountShift & kCommandMaxCount;
    out->vertexCount = out->kind == PrimitiveKind::Sprites ? 1 : kind;
    if (out->kind == PrimitiveKind::Quads || out->kind == PrimitiveKind::Sprites)
        out->corners = kTwoTriangles;
    else
        out->corners = std::span(kInOrder).first(out->vertexCount);
    out->normals = rateAt(word, kCommandNormalMask, 8);
    if (out->normals == ArrayRate::PerSet) out->normals = ArrayRate::None;
    out->colors = rateAt(word, kCommandColorMask, 10);
    out->textureCoords = rateAt(word, kCommandTextureMask, 12);
    const bool isSet = out->kind == PrimitiveKind::Sprites || out->textureCoords == ArrayRate::PerVertex;
    if (!isSet) out->textureCoords = ArrayRate::None;
    out->attributes = word & 0xFF;
    return true;
}

// --- Arrays ---

static size_t elementCount(const PrimitiveCommand& command, ArrayRate rate) {
    switch (rate) {
        case ArrayRate::None: return 0;
        case ArrayRate::PerSet: return 1;
        case ArrayRate::PerPrimitive: return command.count;
        case ArrayRate::PerVertex: return command.count * command.vertexCount;
    }
    return 0;
}

static bool arraysSuffice(const PrimitiveCommand& command, const CommandArrays& arrays) {
    const auto suffices = [&](std::span<const int32_t> array, ArrayRate rate, size_t width) {
        return array.size() >= elementCount(command, rate) * width;
    };
    const bool areSprites = command.kind == PrimitiveKind::Sprites;
    if (areSprites && command.textureCoords == ArrayRate::None)
        return false;  // they have no size without their records
    return suffices(arrays.positions, ArrayRate::PerVertex, 3) && suffices(arrays.normals, command.normals, 3) &&
           suffices(arrays.colors, command.colors, 1) &&
           suffices(arrays.textureCoords, command.textureCoords, areSprites ? kSpriteRecordLength : 2);
}

// --- Keys and appearances ---

static uint32_t drawKeyOf(const RenderState& state, const PrimitiveCommand& command) {
    constexpr uint32_t kLighting = kWordLit | kWordEnvironment | kDrawEnvironmentTexture;
    const uint32_t allowed = command.attributes & state.attributeMask;
    uint32_t key = 0;
    if (command.normals != ArrayRate::None && allowed & kMaskLighting) {
        key |= kWordLit;
        if (allowed & kMaskSpecular) key |= kWordEnvironment;
        if (allowed & kMaskSpecular && state.attributeMask & kMaskEnvironment) key |= kDrawEnvironmentTexture;
    }
    if (state.attributeMask & kMaskBlending) key |= command.attributes >> 4 & kWordBlendMask;
    if (command.attributes & kCommandColorKey) key |= kWordColorKey;
    if (command.normals != ArrayRate::PerVertex) key |= kWordFlat;
    switch (command.kind) {
        case PrimitiveKind::Points: return (key & ~(kLighting | kWordColorKey)) | kDrawPoints;
        case PrimitiveKind::Lines: return (key & ~(kLighting | kWordColorKey)) | kDrawLines;
        case PrimitiveKind::Triangles: return key | kWordTwoSided;
        case PrimitiveKind::Quads: return key | kWordTwoSided | kWordQuad;
        case PrimitiveKind::Sprites: return (key & ~kLighting) | kDrawSprites;
    }
    return key;
}

// Colours matter to an appearance only by its material.
static bool serves(const AppearanceCacheEntry& cached, uint16_t key, bool hasColors) {
    const Material* material = cached.appearance->material;
    return cached.key == key && (!material || qelMaterial_isVertexColorTrackingEnabled(material) == hasColors);
}

// The index of the appearance for a key, or -1 when memory runs out.
static int32_t findAppearance(RenderState* state, uint16_t key, bool hasColors) {
    for (int32_t i = 0; i < state->appearanceCount; ++i)
        if (serves(state->appearances[i], key, hasColors)) return i;
    if (state->appearanceCount == kAppearanceCacheSize) return 0;
    Appearance* appearance = qelFigureAppearance_create(key, hasColors);
    if (!appearance) return -1;
    if (key & kKeyFog) qelAppearance_setFog(appearance, state->fog);
    state->appearances[state->appearanceCount] = {key, appearance};
    return state->appearanceCount++;
}

// --- Command ---

static bool drawsNothing(const RenderState& state) {
    const ProjectionSetting& projection = state.projection;
    return state.width == 0 || state.height == 0 ||
           (projection.kind == RenderStateProjection::Perspective && projection.near == projection.far);
}

static CommandState stateOf(RenderState* state) {
    const int32_t* direction = state->lightDirection;
    return {RenderState_projectionMatrix(state),
            state->viewMatrix,
            state->attributeMask,
            state->ambientIntensity,
            state->directionalIntensity,
            {direction[0], direction[1], direction[2]},
            state->fogMode,
            state->fogColor,
            state->fogNear,
            state->fogFar,
            state->fogDensity};
}

static bool queueCommand(RenderState* state, const PrimitiveCommand& command, const CommandArrays& arrays) {
    const uint32_t drawKey = drawKeyOf(*state, command);
    const AppearanceKey key = qelFigureAppearance_key(drawKey, state->attributeMask & kMaskFog ? kKeyFog : 0);
    RenderCommandEntry entry = {};
    entry.normals = entry.textureCoords[0] = entry.textureCoords[1] = entry.colors = kNoArray;
    entry.appearance = findAppearance(state, key.key, command.colors != ArrayRate::None);
    if (entry.appearance < 0) return false;
    entry.texture = state->textures[state->selectedSlot];
    entry.environmentTexture = state->environmentTexture;
    entry.drawKey = drawKey;
    entry.vertexAlpha = key.vertexAlpha;
    entry.state = stateOf(state);
    return command.kind == PrimitiveKind::Sprites ? PrimitiveVertices_queueSprites(state, command, arrays, entry)
                                                  : PrimitiveVertices_queue(state, command, arrays, entry);
}

bool K8RenderState_render(RenderState* state, uint32_t word, const CommandArrays& arrays) {
    PrimitiveCommand command;
    if (!K8RenderState_isComplete(state) || !readCommand(word, &command)) return false;
    if (command.count == 0) return true;
    if (!arraysSuffice(command, arrays)) return false;
    if (drawsNothing(*state)) return true;
    const QueueMark mark = CommandQueue_mark(state);
    if (queueCommand(state, command, arrays)) return true;
    CommandQueue_cutBack(state, mark);
    return false;
}
