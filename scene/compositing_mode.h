#pragma once

#include "scene/object3d.h"

enum class Blending : int32_t {
    Alpha = QEL_BLENDING_ALPHA,
    AlphaAdd = QEL_BLENDING_ALPHA_ADD,
    Modulate = QEL_BLENDING_MODULATE,
    ModulateX2 = QEL_BLENDING_MODULATE_X2,
    Replace = QEL_BLENDING_REPLACE,
    Add = QEL_BLENDING_ADD,
    AddWeighted = QEL_BLENDING_ADD_WEIGHTED,
};

struct qelCompositingMode : Object3D {
    float alphaThreshold;
    Blending blending;
    uint8_t alphaWriteEnabled;
    uint8_t colorWriteEnabled;
    uint8_t depthTestEnabled;
    uint8_t depthWriteEnabled;
    float depthOffsetFactor;
    float depthOffsetUnits;
    int32_t alphaThresholdByte;  // alphaThreshold x 255, rounded
};

CompositingMode* qelCompositingMode_create();
Result qelCompositingMode_setBlending(CompositingMode* mode, int32_t blending);
Result qelCompositingMode_setAlphaThreshold(CompositingMode* mode, float threshold);
void qelCompositingMode_setDepthOffset(CompositingMode* mode, float factor, float units);
void qelCompositingMode_setDepthTestEnable(CompositingMode* mode, bool enabled);
void qelCompositingMode_setDepthWriteEnable(CompositingMode* mode, bool enabled);
void qelCompositingMode_setColorWriteEnable(CompositingMode* mode, bool enabled);
void qelCompositingMode_setAlphaWriteEnable(CompositingMode* mode, bool enabled);
Object3D* qelCompositingMode_duplicate(const CompositingMode* mode);
