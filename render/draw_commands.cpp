// Points, lines and sprites: commands for the render state.
#include <algorithm>

#include "frame/fixed_point.h"
#include "frame/primitive_handle.h"
#include "render/draw_primitive.h"
#include "render/render_state.h"
#include "scene/texture2d.h"

// --- What the primitive asks for ---

constexpr int32_t kAddsAbove = 50 * kFixedOne;  // sizes up to this hide what is added

static bool isHidden(const K8PrimitiveInfo& info) {
    return (info.size == 0 && info.blendMode != K8_BLEND_NONE) ||
           (info.size <= kAddsAbove && info.blendMode == K8_BLEND_ADDITIVE);
}

static Texture2D* textureOf(const K8PrimitiveInfo& info, uint32_t type) {
    return type == K8_PRIM_SPRITES && info.texture ? static_cast<Texture2D*>(info.texture->header.object) : nullptr;
}

// Everything of a command word but the count.
static uint32_t commandOf(const K8PrimitiveInfo& info, uint32_t type) {
    uint32_t command = type << 24 | (info.params & (kCommandColorMask | kCommandTextureMask));
    if (info.blendMode == K8_BLEND_ALPHA) command |= kCommandHalf;
    if (info.blendMode == K8_BLEND_ADDITIVE) command |= kCommandAdd;
    if (textureOf(info, type) && info.params & K8_PRIM_ALPHA_TEST) command |= kCommandColorKey;
    return command;
}

// Coordinates of sprites count texels of the width in both directions. A sprite shows the texels as they are, with
// nothing of the opposite side at its edges.
static void prepareTexture(Texture2D* texture) {
    const float texel = 1.0f / float(texture->image->width);
    qelTransformable_setScale(texture, texel, texel, 1.0f);
    qelTexture2D_setWrapping(texture, int32_t(TextureWrap::Clamp), int32_t(TextureWrap::Clamp));
    qelTexture2D_setFiltering(texture, int32_t(TextureFilter::BaseLevel), int32_t(TextureFilter::Nearest));
}

// --- What the item asks for ---

static void setFog(RenderState* state, const Fog* fog) {
    K8RenderState_setFog(state, fog != nullptr);
    if (!fog) return;
    K8RenderState_setFogMode(state,
                             fog->mode == FogMode::Linear ? RenderStateFog::Linear : RenderStateFog::Exponential);
    K8RenderState_setFogColor(state, fog->color);
    K8RenderState_setFogLinear(state, j2f(fog->near), j2f(fog->far));
    K8RenderState_setFogDensity(state, j2f(fog->density));
}

static void setProjection(RenderState* state, const K8RenderParams& params) {
    const int32_t near = std::clamp(params.nearDistance / kFixedOne, 1, 32766);
    const int32_t far = std::min(params.farDistance / kFixedOne, 32767);
    switch (params.projection) {
        case K8_PROJECTION_PARALLEL: K8RenderState_setParallel(state, params.screenWidth, params.screenHeight); break;
        case K8_PROJECTION_PERSPECTIVE_SIZE:
            K8RenderState_setPerspectiveSize(state, near, far, params.screenWidth * kFixedOne,
                                             params.screenHeight * kFixedOne);
            break;
        case K8_PROJECTION_PERSPECTIVE_ANGLE:
            K8RenderState_setPerspectiveAngle(state, near, far, K8Math_convAngleF2I(f2j(params.verticalAngle)));
            break;
        default: break;
    }
}

// The frame of a K8 item is the render state's own, but for whole units.
static void setView(RenderState* state, const K8Transform& transform) {
    Atrans3i view;
    Atrans3i_setTransform(&view, &transform);
    for (const int translation : {3, 7, 11}) view.m[translation] >>= 12;
    K8RenderState_setViewTransform(state, &view);
}

// --- Values ---

// The values of one command, in the render state's units.
struct CommandValues {
    int32_t positions[kCommandMaxCount * 6];  // of lines, which need most
    int32_t textureCoords[kCommandMaxCount * kSpriteRecordLength];
};

static std::span<const int32_t> writeWholeUnits(std::span<const int32_t> values, int32_t* out) {
    std::ranges::transform(values, out, [](int32_t value) { return value >> 12; });
    return {out, values.size()};
}

// Sizes and texels of a sprite are F numbers, its angle and flags are not.
static std::span<const int32_t> writeRecords(std::span<const int32_t> records, int32_t* out) {
    constexpr size_t kAngle = 2, kFlags = 7;
    writeWholeUnits(records, out);
    for (size_t i = 0; i < records.size(); i += kSpriteRecordLength)
        for (const size_t member : {i + kAngle, i + kFlags}) out[member] = records[member];
    return {out, records.size()};
}

static bool queueCommand(RenderState* state, uint32_t command, const PrimitiveValues& part) {
    CommandValues values;
    CommandArrays arrays = {};
    arrays.positions = writeWholeUnits(part.arrays[K8_PRIM_POSITIONS], values.positions);
    arrays.textureCoords = writeRecords(part.arrays[K8_PRIM_SPRITE_PARAMS], values.textureCoords);
    arrays.colors = part.arrays[K8_PRIM_COLORS];
    return K8RenderState_render(state, command | part.count << kCommandCountShift, arrays);
}

bool K8DrawList_queueCommands(K8Render* handle, const DrawItem* item) {
    if (!K8DrawList_isDeferred(item)) return false;
    const K8PrimitiveInfo& info = *reinterpret_cast<const K8Primitive*>(item->object)->info;
    if (isHidden(info)) return true;
    PrimitiveValues values;
    if (!K8Primitive_readValues(info, &values)) return false;

    RenderState* state = &handle->context->renderState;
    setFog(state, item->fog);
    setProjection(state, item->params);
    setView(state, item->transform);
    Texture2D* texture = textureOf(info, values.type);
    if (texture) prepareTexture(texture);
    K8RenderState_setTexture(state, texture);
    for (uint32_t first = 0; first < values.count; first += kCommandMaxCount) {
        const uint32_t count = std::min(values.count - first, kCommandMaxCount);
        if (!queueCommand(state, commandOf(info, values.type), K8Primitive_partOf(values, first, count))) return false;
    }
    return true;
}
