#pragma once

#include "scene/object3d.h"

enum class Culling : int32_t { Back = 160, Front = 161, None = 162 };
enum class Shading : int32_t { Flat = 164, Smooth = 165 };
enum class Winding : int32_t { Ccw = 168, Cw = 169 };

struct PolygonMode : Object3D {
    uint8_t localCameraLightingEnabled;
    uint8_t perspectiveCorrectionEnabled;
    uint8_t twoSidedLightingEnabled;
    Culling culling;
    Winding winding;
    Shading shading;
};

PolygonMode* qelPolygonMode_create();
Result qelPolygonMode_setCulling(PolygonMode* mode, int32_t culling);
Result qelPolygonMode_setWinding(PolygonMode* mode, int32_t winding);
Result qelPolygonMode_setShading(PolygonMode* mode, int32_t shading);
void qelPolygonMode_setTwoSidedLightingEnable(PolygonMode* mode, bool enabled);
void qelPolygonMode_setLocalCameraLightingEnable(PolygonMode* mode, bool enabled);
void qelPolygonMode_setPerspectiveCorrectionEnable(PolygonMode* mode, bool enabled);
Object3D* qelPolygonMode_duplicate(const PolygonMode* mode);
