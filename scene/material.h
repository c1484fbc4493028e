#pragma once

#include "scene/object3d.h"

constexpr uint32_t kTracksAmbientAndDiffuse = QEL_MATERIAL_AMBIENT | QEL_MATERIAL_DIFFUSE;

struct qelMaterial : Object3D {
    uint32_t ambientColor;   // 0xRRGGBB
    uint32_t diffuseColor;   // 0xAARRGGBB
    uint32_t emissiveColor;  // 0xRRGGBB
    uint32_t specularColor;  // 0xRRGGBB
    float shininess;
    uint32_t vertexColorTracking;  // kTracksAmbientAndDiffuse, or 0
    uint8_t environmentMap;        // carried for figures whose polygons ask for it
};

Material* qelMaterial_create();
Result qelMaterial_setColor(Material* material, uint32_t targets, uint32_t argb);
Result qelMaterial_setShininess(Material* material, float shininess);
void qelMaterial_setVertexColorTrackingEnable(Material* material, bool enabled);
bool qelMaterial_isVertexColorTrackingEnabled(const Material* material);
Object3D* qelMaterial_duplicate(const Material* material);
