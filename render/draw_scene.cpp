#include "render/draw_scene.h"

#include "render/draw_camera.h"
#include "render/figure_parameters.h"
#include "render/figure_walk.h"
#include "render/scene_changes.h"
#include "scene/image2d.h"
#include "scene/morphing_mesh.h"
#include "scene/skinned_mesh.h"
#include "scene/subtree.h"

constexpr uint32_t kFirstTextureBlockBytes = 24576;

// --- Textures ---

// A second map is laid over a mesh with the coordinates of its first texture. Targets without coordinates of their
// own take the base's, but a morphed buffer has to be made again with them.
static void ensureSecondCoordinates(Mesh* mesh) {
    K8FigureParameters_ensureSecondCoordinates(mesh->vertexBuffer);
    if (mesh->classId != ClassId::MorphingMesh) return;
    auto* morphing = static_cast<MorphingMesh*>(mesh);
    if (!morphing->morphedBuffer || !morphing->morphedBuffer->texCoords[1]) morphing->weightsChanged = 1;
}

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
// of figures. A texture that came with the scene is put in as its author made it.
static void putTexture(Appearance* appearance, Texture2D* texture, bool isOfScene) {
    if (!isOfScene && texture->image->levelRecord->palette5551)
        qelTexture2D_setImage(appearance->textures[0], texture->image);
    else
        qelAppearance_setTexture(appearance, 0, texture);
}

static void replaceTextures(Appearance* appearance, Mesh* mesh, const SceneTexture& replacement, int32_t textureUnits) {
    putTexture(appearance, replacement.texture, replacement.isOfScene);
    if (textureUnits < 2) return;
    if (replacement.secondMap) ensureSecondCoordinates(mesh);
    qelAppearance_setTexture(appearance, 1, replacement.secondMap);
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

// On top of the opacity that the scene's author gave the mesh.
static void applyTransparency(Mesh* mesh, const K8FigureInfo& info) {
    qelNode_setAlphaFactor(mesh, mesh->alphaFactor * K8FigureParameters_alphaFactor(info.transparency));
}

static bool render(K8Render* handle, const DrawItem* item, Node* node) {
    qelTransform matrix = K8DrawList_sceneMatrix(item->transform, 1);
    K8DrawList_setCamera(handle, item->params);
    return qelGraphics3D_render(K8Render_graphics(handle), node, &matrix) == QEL_STATUS_OK;
}

// --- One mesh ---

static bool isSubmesh(const SceneChange& change) { return change.appearance && K8SceneChanges_isMesh(change.node); }

// Takes the textures off; true when there were any.
static bool clearTextures(const SceneChanges& saved, int32_t textureUnits) {
    bool anyTextured = false;
    for (const SceneChange& change : std::span(saved.records, saved.count)) {
        if (!isSubmesh(change)) continue;
        anyTextured |= change.textures[0] != nullptr;
        for (int32_t unit = 0; unit < textureUnits; ++unit) qelAppearance_setTexture(change.appearance, unit, nullptr);
    }
    return anyTextured;
}

static void bindTexture(const SceneChange& submesh, const K8Texture* texture, int32_t textureUnits) {
    if (!texture || !texture->header.object) return;
    prepareTexture(texture);
    qelAppearance_setTexture(submesh.appearance, 0, static_cast<Texture2D*>(texture->header.object));
    Texture2D* secondMap = textureUnits > 1 ? K8FigureParameters_secondMap(texture) : nullptr;
    if (!secondMap) return;
    ensureSecondCoordinates(static_cast<Mesh*>(submesh.node));
    qelAppearance_setTexture(submesh.appearance, 1, secondMap);
}

// Texture handle j is for the j-th submesh that came with a texture, as the loader lists them; in a mesh that came
// without textures for submesh j.
static void bindTextures(const SceneChanges& saved, const K8FigureInfo& info, int32_t textureUnits) {
    const bool anyTextured = clearTextures(saved, textureUnits);
    uint32_t j = 0;
    for (const SceneChange& change : std::span(saved.records, saved.count)) {
        if (j == info.loadedTextureCount) break;
        if (!isSubmesh(change) || (anyTextured && !change.textures[0])) continue;
        bindTexture(change, info.loadedTextures[j++], textureUnits);
    }
}

// With what is in its skeleton.
static bool saveSubtree(SceneChanges& saved, Mesh* mesh, K8Allocator* allocator) {
    SubtreeWalk walk = {mesh, mesh, 0};
    do {
        if (!K8SceneChanges_save(saved, walk.node, allocator)) return false;
    } while (qelSubtreeWalk_next(&walk));
    return true;
}

static bool applyToAppearances(const SceneChanges& saved, const K8FigureInfo& info, Fog* fog) {
    for (const SceneChange& change : std::span(saved.records, saved.count)) {
        Appearance* appearance = change.appearance;
        if (!appearance) continue;
        qelAppearance_setFog(appearance, fog);
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
    bool drawn = saveSubtree(saved, mesh, handle->header.allocator);
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

// Gives a mesh of the scene, or one of a skeleton, its textures and the parameters of its figure, if it has one.
static bool prepareMesh(ScenePreparation& preparation, Mesh* mesh, const K8FigureInfo* info) {
    for (Appearance* appearance : K8SceneChanges_appearancesOf(mesh)) {
        if (!appearance) continue;
        if (appearance->textures[0])
            replaceTextures(appearance, mesh, takeTexture(preparation), preparation.context->textureUnits);
        if (info && !applyInfo(appearance, *info)) return false;
    }
    return true;
}

static bool saveAndSetFog(ScenePreparation& preparation, Node* node) {
    if (!K8SceneChanges_save(preparation.context->sceneChanges, node, preparation.allocator)) return false;
    for (Appearance* appearance : K8SceneChanges_appearancesOf(node))
        if (appearance) qelAppearance_setFog(appearance, preparation.fog);
    return true;
}

// The mesh and, for a skinned one, everything in its skeleton: one figure stands for all of it.
static bool prepareFigure(ScenePreparation& preparation, Mesh* mesh) {
    const K8Figure* figure = K8FigureWalk_next(&preparation.figures);
    const K8FigureInfo* info = figure ? figure->info : nullptr;
    SubtreeWalk walk = {mesh, mesh, 0};
    do {
        if (!saveAndSetFog(preparation, walk.node)) return false;
        if (K8SceneChanges_isMesh(walk.node) && !prepareMesh(preparation, static_cast<Mesh*>(walk.node), info))
            return false;
    } while (qelSubtreeWalk_next(&walk));
    if (info) applyTransparency(mesh, *info);
    return !preparation.figures.failed;
}

static bool prepareScene(ScenePreparation& preparation, Node* root) {
    SubtreeWalk walk = {root, root, 0};
    do {
        if (!K8SceneChanges_isMesh(walk.node)) {
            if (!saveAndSetFog(preparation, walk.node)) return false;
            continue;
        }
        if (!prepareFigure(preparation, static_cast<Mesh*>(walk.node))) return false;
        if (walk.node->classId == ClassId::SkinnedMesh) walk.childIndex = 1;  // its skeleton is done
    } while (qelSubtreeWalk_next(&walk));
    return true;
}

static bool drawPrepared(K8Render* handle, const DrawItem* item, const K8Group* group, ScenePreparation& preparation) {
    auto* root = static_cast<Node*>(group->header.object);
    if (!K8FigureWalk_begin(&preparation.figures, group, preparation.context->pool)) return false;
    bool drawn = gatherTextures(preparation.context, group, preparation.allocator) && prepareScene(preparation, root);
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
