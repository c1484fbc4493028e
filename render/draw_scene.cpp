#include "render/draw_scene.h"

#include "render/draw_camera.h"
#include "render/figure_parameters.h"
#include "render/figure_walk.h"
#include "render/scene_changes.h"
#include "scene/image2d.h"
#include "scene/skinned_mesh.h"
#include "scene/subtree.h"

constexpr uint32_t kFirstTextureBlockBytes = 24576;

// --- Textures ---

// A texture of the host's own gets the blending of its info, and loses the scale that figures and sprites give it: the
// coordinates are the scene's.
static void prepareTexture(const K8Texture* handle) {
    if (handle->keepsBlending) return;
    K8FigureParameters_applyTextureMode(handle);
    qelTransformable_setScale(static_cast<Texture2D*>(handle->header.object), 1, 1, 1);
    if (Texture2D* secondMap = K8FigureParameters_secondMap(handle)) qelTransformable_setScale(secondMap, 1, 1, 1);
}

// A palette image that was loaded as a K8 texture takes the place of the image that the scene's texture has, whose
// settings stay; its coordinates are the scene's. So are those of any other texture, which therefore loses the scale
// of figures. A texture that came with the scene is put in as its author made it. The scene's own texture is the saved
// one: another submesh may have put a host's into the appearance that both share.
static void putTexture(const SceneChange& submesh, Texture2D* texture, bool isOfScene) {
    Texture2D* own = submesh.textures[0];
    const bool takesImage = !isOfScene && texture->image->levelRecord->palette5551;
    if (takesImage) qelTexture2D_setImage(own, texture->image);
    qelAppearance_setTexture(submesh.appearance, 0, takesImage ? own : texture);
}

static void replaceTextures(const SceneChange& submesh, const SceneTexture& replacement, int32_t textureUnits) {
    putTexture(submesh, replacement.texture, replacement.isOfScene);
    if (textureUnits > 1) qelAppearance_setTexture(submesh.appearance, 1, replacement.secondMap);
}

// --- Parameters of a figure ---

// Without a compositing mode there would be nothing to blend by. False when memory runs out.
static bool ensureCompositingMode(Appearance* appearance) {
    if (appearance->compositingMode) return true;
    CompositingMode* mode = qelCompositingMode_create();
    if (!mode) return false;
    qelAppearance_setCompositingMode(appearance, mode);
    qelObject3D_unref(mode);
    return true;
}

static bool applyInfo(Appearance* appearance, const K8FigureInfo& info) {
    const Blending blending = K8FigureParameters_blending(info.blendMode);
    if (blending != Blending::Replace && !ensureCompositingMode(appearance)) return false;
    K8FigureParameters_applyCompositing(appearance->compositingMode, blending);
    if (appearance->polygonMode)
        qelPolygonMode_setPerspectiveCorrectionEnable(appearance->polygonMode, info.perspectiveCorrection);
    return true;
}

// On top of the opacity that the mesh has; when a scene is animated afterwards, a track takes the place of both.
static void applyTransparency(Mesh* mesh, const K8FigureInfo& info) {
    qelNode_setAlphaFactor(mesh, mesh->alphaFactor * K8FigureParameters_alphaFactor(info.transparency));
}

// Saves a mesh and, for a skinned one, everything in its skeleton: one figure stands for all of it. Textures of the
// second unit, also those of the mesh's author, are laid over it with the coordinates of the first, which stay.
static bool saveFigure(K8RenderContext* context, Mesh* mesh, const K8FigureInfo* info, K8Allocator* allocator) {
    SubtreeWalk walk = {mesh, mesh, 0};
    do {
        if (!K8SceneChanges_save(context->sceneChanges, walk.node, info, allocator)) return false;
        if (context->textureUnits > 1 && K8SceneChanges_isMesh(walk.node))
            K8FigureParameters_ensureSecondCoordinates(static_cast<Mesh*>(walk.node)->vertexBuffer);
    } while (qelSubtreeWalk_next(&walk));
    return true;
}

static bool render(K8Render* handle, const DrawItem* item, Node* node) {
    qelTransform matrix = K8DrawList_sceneMatrix(item->transform, 1);
    K8DrawList_setCamera(handle, item->params);
    return qelGraphics3D_render(K8Render_graphics(handle), node, &matrix) == QEL_STATUS_OK;
}

// --- One mesh ---

// Takes the textures off; true when there were any.
static bool clearTextures(const SceneChanges& saved, int32_t textureUnits) {
    bool anyTextured = false;
    for (const SceneChange& change : std::span(saved.records, saved.count)) {
        if (!change.appearance || !K8SceneChanges_isMesh(change.node)) continue;
        anyTextured |= change.textures[0] != nullptr;
        for (int32_t unit = 0; unit < textureUnits; ++unit) qelAppearance_setTexture(change.appearance, unit, nullptr);
    }
    return anyTextured;
}

static void bindTexture(const SceneChange& submesh, const K8Texture* texture, int32_t textureUnits) {
    if (!submesh.appearance || !texture || !texture->header.object) return;
    prepareTexture(texture);
    qelAppearance_setTexture(submesh.appearance, 0, static_cast<Texture2D*>(texture->header.object));
    if (textureUnits > 1) qelAppearance_setTexture(submesh.appearance, 1, K8FigureParameters_secondMap(texture));
}

// Texture handle j is for the j-th submesh that came with a texture, as the loader lists them; in a mesh that came
// without textures for submesh j.
static void bindTextures(const SceneChanges& saved, const K8FigureInfo& info, int32_t textureUnits) {
    const bool anyTextured = clearTextures(saved, textureUnits);
    uint32_t j = 0;
    for (const SceneChange& change : std::span(saved.records, saved.count)) {
        if (j == info.loadedTextureCount) break;
        if (!K8SceneChanges_isMesh(change.node) || (anyTextured && !change.textures[0])) continue;
        bindTexture(change, info.loadedTextures[j++], textureUnits);
    }
}

static bool applyToAppearances(const SceneChanges& saved, const K8FigureInfo& info, Fog* fog) {
    for (const SceneChange& change : std::span(saved.records, saved.count)) {
        Appearance* appearance = change.appearance;
        if (!appearance) continue;
        qelAppearance_setFog(appearance, fog);
        if (!K8SceneChanges_isMesh(change.node)) continue;
        if (!applyInfo(appearance, info)) return false;
        if (PolygonMode* mode = appearance->polygonMode; mode && mode->culling != Culling::None)
            qelPolygonMode_setCulling(mode, int32_t(Culling::Back));
    }
    return true;
}

bool K8DrawList_drawMeshFigure(K8Render* handle, const DrawItem* item, const K8FigureInfo& info) {
    auto* mesh = static_cast<Mesh*>(item->object->object);
    if (!mesh->vertexBuffer) return false;
    SceneChanges& saved = handle->context->sceneChanges;
    bool drawn = saveFigure(handle->context, mesh, &info, handle->header.allocator);
    if (drawn) {
        Result ignored = QEL_STATUS_OK;  // an invalid sequence leaves what it has written
        qelObject3D_animateSubtree(mesh, info.frame, &ignored);
        drawn = applyToAppearances(saved, info, item->fog);
        bindTextures(saved, info, handle->context->textureUnits);
        applyTransparency(mesh, info);
        drawn = drawn && render(handle, item, mesh);
    }
    K8SceneChanges_restore(saved);
    return drawn;
}

// --- Whole scenes ---

// A scene being prepared: where its textures and figures are taken from next.
struct ScenePreparation {
    K8RenderContext* context;
    K8Allocator* allocator;
    Fog* fog;
    FigureWalk figures;  // one for every mesh, in the order of both walks
    uint32_t nextTexture;
};

// A handle without object stands for the white texture, so that those behind it keep their places.
static bool addTexture(K8RenderContext* context, const K8Texture* handle, K8Allocator* allocator) {
    SceneTexture* entry = K8GrowingBlock_append(context->sceneTextures, allocator, kFirstTextureBlockBytes);
    if (!entry) return false;
    *entry = {context->whiteTexture, nullptr, 0};
    if (!handle || !handle->header.object) return true;
    prepareTexture(handle);
    *entry = {static_cast<Texture2D*>(handle->header.object), K8FigureParameters_secondMap(handle),
              handle->keepsBlending};
    return true;
}

static bool addTextures(K8RenderContext* context, const K8FigureInfo* info, K8Allocator* allocator) {
    for (uint32_t j = 0; info && j < info->loadedTextureCount; ++j)
        if (!addTexture(context, info->loadedTextures[j], allocator)) return false;
    return true;
}

static bool gatherTextures(K8RenderContext* context, const K8Group* group, K8Allocator* allocator) {
    FigureWalk walk;
    if (!K8FigureWalk_begin(&walk, group, context->pool)) return false;
    bool ok = true;
    while (const K8Figure* figure = ok ? K8FigureWalk_next(&walk) : nullptr)
        ok = addTextures(context, figure->info, allocator);
    K8FigureWalk_end(&walk);
    return ok && !walk.failed;
}

// The next texture of the list; where it is used up, the white one.
static SceneTexture takeTexture(ScenePreparation& preparation) {
    const auto& textures = preparation.context->sceneTextures;
    if (preparation.nextTexture < textures.count) return textures.records[preparation.nextTexture++];
    return {preparation.context->whiteTexture, nullptr, 0};
}

static bool saveScene(ScenePreparation& preparation, Node* root) {
    K8RenderContext* context = preparation.context;
    SubtreeWalk walk = {root, root, 0};
    do {
        if (!K8SceneChanges_isMesh(walk.node)) {
            if (!K8SceneChanges_save(context->sceneChanges, walk.node, nullptr, preparation.allocator)) return false;
            continue;
        }
        auto* mesh = static_cast<Mesh*>(walk.node);
        const K8Figure* figure = K8FigureWalk_next(&preparation.figures);
        const K8FigureInfo* info = figure ? figure->info : nullptr;
        if (preparation.figures.failed || !saveFigure(context, mesh, info, preparation.allocator)) return false;
        if (info) applyTransparency(mesh, *info);
        if (mesh->classId == ClassId::SkinnedMesh) walk.childIndex = 1;  // its skeleton is done
    } while (qelSubtreeWalk_next(&walk));
    return true;
}

// Gives the fog to every appearance; to those of meshes also textures, and the parameters of the figure if there is
// one.
static bool prepareScene(ScenePreparation& preparation) {
    const SceneChanges& saved = preparation.context->sceneChanges;
    for (const SceneChange& change : std::span(saved.records, saved.count)) {
        if (!change.appearance) continue;
        qelAppearance_setFog(change.appearance, preparation.fog);
        if (!K8SceneChanges_isMesh(change.node)) continue;
        if (change.textures[0]) replaceTextures(change, takeTexture(preparation), preparation.context->textureUnits);
        if (change.info && !applyInfo(change.appearance, *change.info)) return false;
    }
    return true;
}

static bool drawPrepared(K8Render* handle, const DrawItem* item, const K8Group* group, ScenePreparation& preparation) {
    auto* root = static_cast<Node*>(group->header.object);
    if (!K8FigureWalk_begin(&preparation.figures, group, preparation.context->pool)) return false;
    bool drawn = gatherTextures(preparation.context, group, preparation.allocator) && saveScene(preparation, root) &&
                 prepareScene(preparation);
    K8FigureWalk_end(&preparation.figures);
    if (drawn) {
        Result ignored = QEL_STATUS_OK;  // an invalid sequence leaves what it has written
        qelObject3D_animateSubtree(root, group->info->frame, &ignored);
        drawn = render(handle, item, root);
    }
    K8SceneChanges_restore(preparation.context->sceneChanges);
    preparation.context->sceneTextures.count = 0;
    return drawn;
}

bool K8DrawList_drawScene(K8Render* handle, const DrawItem* item) {
    const auto* group = reinterpret_cast<const K8Group*>(item->object);
    if (!qelObject3D_isNode(group->header.object) || !group->info) return false;
    ScenePreparation preparation = {handle->context, handle->header.allocator, item->fog, {}, 0};
    return drawPrepared(handle, item, group, preparation);
}
