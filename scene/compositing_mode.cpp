#include "scene/compositing_mode.h"

#include "frame/fixed_point.h"

static void destroyCompositingMode(Object3D* object) {
    qelObject3D_finalise(object);
    qelFree(object);
}

CompositingMode* qelCompositingMode_create() {
    auto* mode = qelObject3D_alloc<CompositingMode>(ClassId::CompositingMode);
    if (!mode) return nullptr;
    qelObject3D_init(mode);
    mode->classId = ClassId::CompositingMode;
    mode->find = qelObject3D_findCommon;
    mode->getReferences = qelObject3D_getReferencesCommon;
    mode->destroy = destroyCompositingMode;
    mode->blending = Blending::Replace;
    mode->alphaWriteEnabled = 1;
    mode->colorWriteEnabled = 1;
    mode->depthTestEnabled = 1;
    mode->depthWriteEnabled = 1;
    return mode;
}

int32_t qelCompositingMode_getBlending(const CompositingMode* mode) { return int32_t(mode->blending); }

Result qelCompositingMode_setBlending(CompositingMode* mode, int32_t blending) {
    const bool isStandard = blending >= QEL_BLENDING_ALPHA && blending <= QEL_BLENDING_REPLACE;
    if (!isStandard && blending != QEL_BLENDING_ADD && blending != QEL_BLENDING_ADD_WEIGHTED)
        return QEL_STATUS_ILLEGAL_ARGUMENT;
    mode->blending = Blending(blending);
    mode->stateChanged = 1;
    return QEL_STATUS_OK;
}

Result qelCompositingMode_setAlphaThreshold(CompositingMode* mode, float threshold) {
    if (!(threshold >= 0 && threshold <= 1)) return QEL_STATUS_ILLEGAL_ARGUMENT;  // NaN included
    mode->alphaThreshold = threshold;
    mode->alphaThresholdByte = roundToInt(threshold * 255);
    mode->stateChanged = 1;
    return QEL_STATUS_OK;
}

void qelCompositingMode_setDepthOffset(CompositingMode* mode, float factor, float units) {
    mode->depthOffsetFactor = factor;
    mode->depthOffsetUnits = units;
    mode->stateChanged = 1;
}

void qelCompositingMode_setDepthTestEnable(CompositingMode* mode, bool enabled) {
    mode->depthTestEnabled = enabled;
    mode->stateChanged = 1;
}

void qelCompositingMode_setDepthWriteEnable(CompositingMode* mode, bool enabled) {
    mode->depthWriteEnabled = enabled;
    mode->stateChanged = 1;
}

void qelCompositingMode_setColorWriteEnable(CompositingMode* mode, bool enabled) {
    mode->colorWriteEnabled = enabled;
    mode->stateChanged = 1;
}

void qelCompositingMode_setAlphaWriteEnable(CompositingMode* mode, bool enabled) {
    mode->alphaWriteEnabled = enabled;
    mode->stateChanged = 1;
}

Object3D* qelCompositingMode_duplicate(const CompositingMode* mode) { return qelObject3D_copy(mode); }
