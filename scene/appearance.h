// The render state of a mesh or sprite.
#pragma once

#include "render/capabilities.h"
#include "scene/object3d.h"

constexpr int32_t kMaxLayer = 63;

struct qelAppearance : Object3D {
    Fog* fog;  // every component: one reference, or null
    PolygonMode* polygonMode;
    CompositingMode* compositingMode;
    int32_t layer;  // -kMaxLayer..kMaxLayer
    Texture2D* textures[kMaxTextureUnits];
    Material* material;
    uint8_t textureChanged[kMaxTextureUnits];  // replaced since the renderer last looked
};

Appearance* qelAppearance_create();
void qelAppearance_setCompositingMode(Appearance* appearance, CompositingMode* mode);
void qelAppearance_setFog(Appearance* appearance, Fog* fog);
void qelAppearance_setPolygonMode(Appearance* appearance, PolygonMode* mode);
void qelAppearance_setMaterial(Appearance* appearance, Material* material);
Result qelAppearance_setLayer(Appearance* appearance, int32_t layer);
Result qelAppearance_setTexture(Appearance* appearance, int32_t unit, Texture2D* texture);
Texture2D* qelAppearance_getTexture(const Appearance* appearance, int32_t unit, Result* result);
Object3D* qelAppearance_duplicate(const Appearance* appearance);
