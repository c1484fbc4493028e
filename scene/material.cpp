#include "scene/material.h"

#include "animation/animate.h"

constexpr uint32_t kAllTargets =
    QEL_MATERIAL_AMBIENT | QEL_MATERIAL_DIFFUSE | QEL_MATERIAL_EMISSIVE | QEL_MATERIAL_SPECULAR;

static void destroyMaterial(Object3D* object) {
    qelObject3D_finalise(object);
    qelFree(object);
}

Material* qelMaterial_create() {
    auto* material = qelObject3D_alloc<Material>(ClassId::Material);
    if (!material) return nullptr;
    qelObject3D_init(material);
    material->classId = ClassId::Material;
    material->find = qelObject3D_findCommon;
    material->getReferences = qelObject3D_getReferencesCommon;
    material->animate = qelObject3D_animateCommon;
    material->destroy = destroyMaterial;
    material->ambientColor = 0x333333;
    material->diffuseColor = 0xFFCCCCCC;
    return material;
}

Result qelMaterial_setColor(Material* material, uint32_t targets, uint32_t argb) {
    if (targets == 0 || (targets & ~kAllTargets)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    const uint32_t rgb = argb & 0xFFFFFF;
    if (targets & QEL_MATERIAL_AMBIENT) material->ambientColor = rgb;
    if (targets & QEL_MATERIAL_DIFFUSE) material->diffuseColor = argb;
    if (targets & QEL_MATERIAL_EMISSIVE) material->emissiveColor = rgb;
    if (targets & QEL_MATERIAL_SPECULAR) material->specularColor = rgb;
    material->stateChanged = 1;
    return QEL_STATUS_OK;
}

uint32_t qelMaterial_getColor(const Material* material, int32_t target) {
    switch (target) {
        case QEL_MATERIAL_AMBIENT: return material->ambientColor;
        case QEL_MATERIAL_DIFFUSE: return material->diffuseColor;
        case QEL_MATERIAL_EMISSIVE: return material->emissiveColor;
        case QEL_MATERIAL_SPECULAR: return material->specularColor;
        default: return 0;
    }
}

Result qelMaterial_setShininess(Material* material, float shininess) {
    if (!(shininess >= 0 && shininess <= 128)) return QEL_STATUS_ILLEGAL_ARGUMENT;  // NaN included
    material->shininess = shininess;
    material->stateChanged = 1;
    return QEL_STATUS_OK;
}

void qelMaterial_setVertexColorTrackingEnable(Material* material, bool enabled) {
    material->vertexColorTracking = enabled ? kTracksAmbientAndDiffuse : 0;
    material->stateChanged = 1;
}

bool qelMaterial_isVertexColorTrackingEnabled(const Material* material) { return material->vertexColorTracking != 0; }

Object3D* qelMaterial_duplicate(const Material* material) { return qelObject3D_copy(material); }
