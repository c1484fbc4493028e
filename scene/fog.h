#pragma once

#include "scene/object3d.h"

enum class FogMode : int32_t { Exponential = 80, Linear = 81 };

struct Fog : Object3D {
    FogMode mode;
    uint32_t color;  // 0xRRGGBB
    float density;
    float near;
    float far;
};

Fog* qelFog_create();
Result qelFog_setMode(Fog* fog, int32_t mode);
void qelFog_setColor(Fog* fog, uint32_t color);
Result qelFog_setDensity(Fog* fog, float density);
void qelFog_setLinear(Fog* fog, float near, float far);
Object3D* qelFog_duplicate(const Fog* fog);
