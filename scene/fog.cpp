#include "scene/fog.h"

#include "animation/animate.h"

static void destroyFog(Object3D* object) {
    qelObject3D_finalise(object);
    qelFree(object);
}

Fog* qelFog_create() {
    auto* fog = qelObject3D_alloc<Fog>(ClassId::Fog);
    if (!fog) return nullptr;
    qelObject3D_init(fog);
    fog->classId = ClassId::Fog;
    fog->find = qelObject3D_findCommon;
    fog->getReferences = qelObject3D_getReferencesCommon;
    fog->animate = qelObject3D_animateCommon;
    fog->destroy = destroyFog;
    fog->mode = FogMode::Linear;
    fog->density = 1;
    fog->far = 1;
    return fog;
}

Result qelFog_setMode(Fog* fog, int32_t mode) {
    if (mode != int32_t(FogMode::Exponential) && mode != int32_t(FogMode::Linear)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    fog->mode = FogMode(mode);
    fog->stateChanged = 1;
    return QEL_STATUS_OK;
}

void qelFog_setColor(Fog* fog, uint32_t color) {
    fog->color = color & 0xFFFFFF;
    fog->stateChanged = 1;
}

Result qelFog_setDensity(Fog* fog, float density) {
    if (!(density >= 0)) return QEL_STATUS_ILLEGAL_ARGUMENT;  // NaN included
    fog->density = density;
    fog->stateChanged = 1;
    return QEL_STATUS_OK;
}

void qelFog_setLinear(Fog* fog, float near, float far) {
    fog->near = near;
    fog->far = far;
    fog->stateChanged = 1;
}

Object3D* qelFog_duplicate(const Fog* fog) { return qelObject3D_copy(fog); }
