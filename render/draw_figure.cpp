#include "render/draw_figure.h"

#include "animation/figure_pose.h"
#include "frame/fixed_point.h"
#include "render/draw_camera.h"
#include "scene/compositing_mode.h"
#include "scene/figure_mesh.h"
#include "scene/fog.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"

constexpr uint32_t kActionIndexBits = 0x7FFFFFFF;
constexpr uint32_t kActionKeepsPattern = 0x80000000;  // draw the info's pattern, not the action's

static Blending blendingOf(int16_t blendMode) {
    switch (blendMode) {
        case K8_BLEND_ALPHA: return Blending::Alpha;
        case K8_BLEND_ADDITIVE: return Blending::AlphaAdd;
        default: return Blending::Replace;
    }
}

static void pose(FigureMesh* figure, const K8FigureInfo& info) {
    const bool keepsPattern = info.action & kActionKeepsPattern;
    if (keepsPattern) D_Figure_setPattern(figure, info.pattern);
    const Object3D* table = info.loadedAction ? info.loadedAction->header.object : nullptr;
    if (!table) return;
    D_Figure_applyAction(figure, static_cast<const ActTable*>(table), int32_t(info.action & kActionIndexBits),
                         info.frame);
    if (keepsPattern) D_Figure_setPattern(figure, info.pattern);  // posing put the action's in its place
}

// --- Appearances ---

static void applyPolygonMode(PolygonMode* mode, bool perspectiveCorrection) {
    if (!mode) return;
    qelPolygonMode_setPerspectiveCorrectionEnable(mode, perspectiveCorrection);
    if (mode->culling != Culling::None) qelPolygonMode_setCulling(mode, int32_t(Culling::Back));
}

static void applyCompositing(CompositingMode* mode, Blending figureBlending) {
    const bool writesDepth = figureBlending == Blending::Replace && mode->blending == Blending::Replace;
    if (figureBlending != Blending::Replace) qelCompositingMode_setBlending(mode, int32_t(figureBlending));
    qelCompositingMode_setDepthTestEnable(mode, true);
    qelCompositingMode_setDepthWriteEnable(mode, writesDepth);
}

// Gives every visible appearance the figure's parameters. What each blended with is kept in the submesh's first
// renderer word.
static void applyToAppearances(FigureMesh* figure, const K8FigureInfo& info, Fog* fog) {
    const Blending blending = blendingOf(info.blendMode);
    for (int32_t i = 0; i < figure->submeshCount; ++i) {
        Appearance* appearance = figure->appearances[i];
        if (!appearance) continue;
        qelAppearance_setFog(appearance, fog);
        applyPolygonMode(appearance->polygonMode, info.perspectiveCorrection);
        CompositingMode* mode = appearance->compositingMode;
        if (!mode) continue;
        figure->rendererWords[0][i] = uint32_t(mode->blending);
        applyCompositing(mode, blending);
    }
}

// Backwards, because submeshes of several patterns share an appearance: the first to have seen it saw its own blending.
static void restoreAppearances(FigureMesh* figure) {
    for (int32_t i = figure->submeshCount - 1; i >= 0; --i) {
        Appearance* appearance = figure->appearances[i];
        if (appearance && appearance->compositingMode)
            qelCompositingMode_setBlending(appearance->compositingMode, int32_t(figure->rendererWords[0][i]));
    }
}

// --- Textures ---

// The second map is laid over the figure with the coordinates of the first.
static void ensureSecondCoordinates(VertexBuffer* buffer) {
    if (!buffer->texCoords[1])
        qelVertexBuffer_setTexCoords(buffer, 1, buffer->texCoords[0], buffer->texCoordScale[0],
                                     buffer->texCoordBias[0]);
}

static void setTextureBlending(Texture2D* texture, TextureBlending blending) {
    if (texture) qelTexture2D_setBlending(texture, int32_t(blending));
}

static bool hasSecondMap(const K8Texture* handle) {
    return handle->info && handle->info->hasSecondMap == 1 && handle->info->secondMap;
}

static void applyTexture(FigureMesh* figure, int32_t slot, const K8Texture* handle) {
    auto* texture = static_cast<Texture2D*>(handle->header.object);
    const bool replaces = handle->info && handle->info->textureMode == 1;
    setTextureBlending(texture, replaces ? TextureBlending::Replace : TextureBlending::Modulate);
    D_Figure_setTexture(figure, slot, texture);
}

static void applySecondMap(FigureMesh* figure, int32_t slot, const K8Texture* handle) {
    ensureSecondCoordinates(figure->vertexBuffer);
    ensureSecondCoordinates(figure->skinnedBuffer);
    auto* map = static_cast<Texture2D*>(handle->info->secondMap->header.object);
    setTextureBlending(map, TextureBlending::Add);
    D_Figure_setSecondTexture(figure, slot, map);
}

// The slots are empty before: every drawing empties those that it fills.
static void applyTextures(FigureMesh* figure, const K8FigureInfo& info, int32_t textureUnits) {
    for (int32_t slot = 0; slot < info.loadedTextureCount; ++slot) {
        const K8Texture* handle = info.loadedTextures[slot];
        if (!handle) continue;
        applyTexture(figure, slot, handle);
        if (textureUnits > 1 && hasSecondMap(handle)) applySecondMap(figure, slot, handle);
    }
}

static void clearTextures(FigureMesh* figure, const K8FigureInfo& info, int32_t textureUnits) {
    for (int32_t slot = 0; slot < info.loadedTextureCount; ++slot) {
        const K8Texture* handle = info.loadedTextures[slot];
        if (!handle) continue;
        D_Figure_setTexture(figure, slot, nullptr);
        if (textureUnits > 1 && hasSecondMap(handle)) D_Figure_setSecondTexture(figure, slot, nullptr);
    }
}

// --- Drawing ---

// Opacity in percent of a little more than a hundred: a figure at 100 blends with 0.997.
static float alphaFactorOf(int32_t transparency) {
    const float alpha = f2j(transparency) / 100.3f;
    return alpha < 0.0f ? 0.0f : alpha > 1.0f ? 1.0f : alpha;
}

static bool renderMesh(K8Render* handle, const DrawItem* item, FigureMesh* figure, int32_t transparency) {
    constexpr float kFigureUnit = 1.0f / 64.0f;  // figure vertices are in 1/64 of a unit
    qelTransform matrix = K8DrawList_sceneMatrix(item->transform, kFigureUnit);
    K8DrawList_setCamera(handle, item->params);
    qelNode_setAlphaFactor(figure, alphaFactorOf(transparency));
    return qelGraphics3D_render(K8Render_graphics(handle), figure, &matrix) == QEL_STATUS_OK;
}

bool K8DrawList_drawFigure(K8Render* handle, const DrawItem* item) {
    const auto* queued = reinterpret_cast<const K8Figure*>(item->object);
    Object3D* object = queued->header.object;
    if (!object || object->classId != ClassId::FigureMesh || !queued->info) return false;
    auto* figure = static_cast<FigureMesh*>(object);
    if (!figure->vertexBuffer) return true;  // nothing was ever loaded into it
    const K8Handle* fog = item->fog ? item->fog : reinterpret_cast<const K8Handle*>(item->params.fog);
    const int32_t textureUnits = handle->context->textureUnits;

    pose(figure, *queued->info);
    applyToAppearances(figure, *queued->info, fog ? static_cast<Fog*>(fog->object) : nullptr);
    applyTextures(figure, *queued->info, textureUnits);
    const bool drawn = renderMesh(handle, item, figure, queued->info->transparency);
    clearTextures(figure, *queued->info, textureUnits);
    restoreAppearances(figure);
    return drawn;
}
