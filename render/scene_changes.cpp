#include "render/scene_changes.h"

#include "scene/fog.h"
#include "scene/sprite3d.h"
#include "scene/texture2d.h"

constexpr uint32_t kFirstBlockBytes = 32768;

bool K8SceneChanges_isMesh(const Node* node) {
    switch (node->classId) {
        case ClassId::Mesh:
        case ClassId::MorphingMesh:
        case ClassId::SkinnedMesh: return true;
        default: return false;
    }
}

std::span<Appearance* const> K8SceneChanges_appearancesOf(const Node* node) {
    if (node->classId == ClassId::Sprite3D) return {&static_cast<const Sprite3D*>(node)->appearance, 1};
    if (!K8SceneChanges_isMesh(node)) return {};
    const auto* mesh = static_cast<const Mesh*>(node);
    return {mesh->appearances, size_t(mesh->submeshCount)};
}

template <typename T>
static T* takeReference(T* object) {
    qelObject3D_ref(object);
    return object;
}

static void fill(SceneChange* change, Node* node, Appearance* appearance) {
    change->node = node;
    change->appearance = appearance;
    change->alphaFactor = node->alphaFactor;
    if (!appearance) return;
    change->fog = takeReference(appearance->fog);
    change->compositingMode = takeReference(appearance->compositingMode);
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit)
        change->textures[unit] = takeReference(appearance->textures[unit]);
    if (change->textures[0]) change->image = takeReference(change->textures[0]->image);
    if (const CompositingMode* mode = appearance->compositingMode) {
        change->blending = mode->blending;
        change->depthTest = mode->depthTestEnabled;
        change->depthWrite = mode->depthWriteEnabled;
    }
    if (const PolygonMode* mode = appearance->polygonMode) {
        change->culling = mode->culling;
        change->perspectiveCorrection = mode->perspectiveCorrectionEnabled;
    }
}

bool K8SceneChanges_save(SceneChanges& changes, Node* node, const K8FigureInfo* info, K8Allocator* allocator) {
    for (Appearance* appearance : K8SceneChanges_appearancesOf(node)) {
        SceneChange* change = K8GrowingBlock_append(changes, allocator, kFirstBlockBytes);
        if (!change) return false;
        fill(change, node, appearance);
        change->info = info;
    }
    return true;
}

static void putBack(const SceneChange& change) {
    Appearance* appearance = change.appearance;
    qelNode_setAlphaFactor(change.node, change.alphaFactor);
    if (!appearance) return;
    qelAppearance_setCompositingMode(appearance, change.compositingMode);
    qelAppearance_setFog(appearance, change.fog);
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit)
        qelAppearance_setTexture(appearance, unit, change.textures[unit]);
    if (change.image && change.textures[0]->image != change.image)
        qelTexture2D_setImage(change.textures[0], change.image);
    if (CompositingMode* mode = appearance->compositingMode) {
        qelCompositingMode_setBlending(mode, int32_t(change.blending));
        qelCompositingMode_setDepthTestEnable(mode, change.depthTest);
        qelCompositingMode_setDepthWriteEnable(mode, change.depthWrite);
    }
    if (PolygonMode* mode = appearance->polygonMode) {
        qelPolygonMode_setCulling(mode, int32_t(change.culling));
        qelPolygonMode_setPerspectiveCorrectionEnable(mode, change.perspectiveCorrection);
    }
}

// What is shared was saved several times, each time as it was before all changes.
void K8SceneChanges_restore(SceneChanges& changes) {
    while (changes.count > 0) {
        const SceneChange& change = changes.records[--changes.count];
        putBack(change);
        qelObject3D_unref(change.fog);
        qelObject3D_unref(change.compositingMode);
        for (Texture2D* texture : change.textures) qelObject3D_unref(texture);
        qelObject3D_unref(change.image);
    }
}
