#include "scene/polygon_mode.h"

static void destroyPolygonMode(Object3D* object) {
    qelObject3D_finalise(object);
    qelFree(object);
}

PolygonMode* qelPolygonMode_create() {
    auto* mode = qelObject3D_alloc<PolygonMode>(ClassId::PolygonMode);
    if (!mode) return nullptr;
    qelObject3D_init(mode);
    mode->classId = ClassId::PolygonMode;
    mode->find = qelObject3D_findCommon;
    mode->getReferences = qelObject3D_getReferencesCommon;
    mode->destroy = destroyPolygonMode;
    mode->culling = Culling::Back;
    mode->winding = Winding::Ccw;
    mode->shading = Shading::Smooth;
    return mode;
}

Result qelPolygonMode_setCulling(PolygonMode* mode, int32_t culling) {
    if (culling < int32_t(Culling::Back) || culling > int32_t(Culling::None)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    mode->culling = Culling(culling);
    mode->stateChanged = 1;
    return QEL_STATUS_OK;
}

Result qelPolygonMode_setWinding(PolygonMode* mode, int32_t winding) {
    if (winding != int32_t(Winding::Ccw) && winding != int32_t(Winding::Cw)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    mode->winding = Winding(winding);
    mode->stateChanged = 1;
    return QEL_STATUS_OK;
}

Result qelPolygonMode_setShading(PolygonMode* mode, int32_t shading) {
    if (shading != int32_t(Shading::Flat) && shading != int32_t(Shading::Smooth)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    mode->shading = Shading(shading);
    mode->stateChanged = 1;
    return QEL_STATUS_OK;
}

void qelPolygonMode_setTwoSidedLightingEnable(PolygonMode* mode, bool enabled) {
    mode->twoSidedLightingEnabled = enabled;
    mode->stateChanged = 1;
}

void qelPolygonMode_setLocalCameraLightingEnable(PolygonMode* mode, bool enabled) {
    mode->localCameraLightingEnabled = enabled;
    mode->stateChanged = 1;
}

void qelPolygonMode_setPerspectiveCorrectionEnable(PolygonMode* mode, bool enabled) {
    mode->perspectiveCorrectionEnabled = enabled;
    mode->stateChanged = 1;
}

Object3D* qelPolygonMode_duplicate(const PolygonMode* mode) { return qelObject3D_copy(mode); }
