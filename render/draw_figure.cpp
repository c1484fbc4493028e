#include "render/draw_figure.h"

#include "animation/figure_pose.h"
#include "render/draw_camera.h"
#include "render/draw_scene.h"
#include "render/figure_parameters.h"
#include "scene/compositing_mode.h"
#include "scene/figure_mesh.h"

constexpr uint32_t kActionIndexBits = 0x7FFFFFFF;
constexpr uint32_t kActionKeepsPattern = 0x80000000;  // draw the info's pattern, not the action's

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

// Gives every visible appearance the figure's parameters. What each blended with is kept in the submesh's first
// renderer word.
static void applyToAppearances(FigureMesh* figure, const K8FigureInfo& info, Fog* fog) {
    const Blending blending = K8FigureParameters_blending(info.blendMode);
    for (int32_t i = 0; i < figure->submeshCount; ++i) {
        Appearance* appearance = figure->appearances[i];
        if (!appearance) continue;
        qelAppearance_setFog(appearance, fog);
        applyPolygonMode(appearance->polygonMode, info.perspectiveCorrection);
        CompositingMode* mode = appearance->compositingMode;
        if (!mode) continue;
        figure->rendererWords[0][i] = uint32_t(mode->blending);
        K8FigureParameters_applyCompositing(mode, blending);
    }
}

// Backwards, because submeshes of several patterns share an appearance: the first to have seen it saw its own blending.
static void restoreAppearances(FigureMesh* figure) {
    for (int32_t i = figure->submeshCount - 1; i >= 0; --i) {
        Appearance* appearance = figure->appearances[i];
        if (!appearance) continue;
        qelAppearance_setFog(appearance, nullptr);  // the item's, which goes with it
        if (appearance->compositingMode)
            qelCompositingMode_setBlending(appearance->compositingMode, int32_t(figure->rendererWords[0][i]));
    }
}

// --- Textures ---

static void applyTexture(FigureMesh* figure, int32_t slot, const K8Texture* handle, int32_t textureUnits) {
    K8FigureParameters_applyTextureMode(handle);
    D_Figure_setTexture(figure, slot, static_cast<Texture2D*>(handle->header.object));
    Texture2D* secondMap = K8FigureParameters_secondMap(handle);
    if (textureUnits < 2 || !secondMap) return;
    K8FigureParameters_ensureSecondCoordinates(figure->vertexBuffer);
    K8FigureParameters_ensureSecondCoordinates(figure->skinnedBuffer);
    D_Figure_setSecondTexture(figure, slot, secondMap);
}

// The slots are empty before: every drawing empties those that it fills.
static void applyTextures(FigureMesh* figure, const K8FigureInfo& info, int32_t textureUnits) {
    for (int32_t slot = 0; slot < info.loadedTextureCount; ++slot)
        if (const K8Texture* handle = info.loadedTextures[slot]) applyTexture(figure, slot, handle, textureUnits);
}

static void clearTextures(FigureMesh* figure, const K8FigureInfo& info, int32_t textureUnits) {
    for (int32_t slot = 0; slot < info.loadedTextureCount; ++slot) {
        const K8Texture* handle = info.loadedTextures[slot];
        if (!handle) continue;
        D_Figure_setTexture(figure, slot, nullptr);
        if (textureUnits > 1 && K8FigureParameters_secondMap(handle)) D_Figure_setSecondTexture(figure, slot, nullptr);
    }
}

// --- Drawing ---

static bool renderMesh(K8Render* handle, const DrawItem* item, FigureMesh* figure, int32_t transparency) {
    constexpr float kFigureUnit = 1.0f / 64.0f;  // figure vertices are in 1/64 of a unit
    qelTransform matrix = K8DrawList_sceneMatrix(item->transform, kFigureUnit);
    K8DrawList_setCamera(handle, item->params);
    qelNode_setAlphaFactor(figure, K8FigureParameters_alphaFactor(transparency));
    return qelGraphics3D_render(K8Render_graphics(handle), figure, &matrix) == QEL_STATUS_OK;
}

bool K8DrawList_drawFigure(K8Render* handle, const DrawItem* item) {
    const auto* queued = reinterpret_cast<const K8Figure*>(item->object);
    Object3D* object = queued->header.object;
    if (!object || !queued->info) return false;
    switch (object->classId) {
        case ClassId::FigureMesh: break;
        case ClassId::Mesh:
        case ClassId::MorphingMesh:
        case ClassId::SkinnedMesh: return K8DrawList_drawMeshFigure(handle, item, *queued->info);
        default: return false;
    }
    auto* figure = static_cast<FigureMesh*>(object);
    if (!figure->vertexBuffer) return true;  // nothing was ever loaded into it
    const int32_t textureUnits = handle->context->textureUnits;

    pose(figure, *queued->info);
    applyToAppearances(figure, *queued->info, item->fog);
    applyTextures(figure, *queued->info, textureUnits);
    const bool drawn = renderMesh(handle, item, figure, queued->info->transparency);
    clearTextures(figure, *queued->info, textureUnits);
    restoreAppearances(figure);
    return drawn;
}
