#pragma once

#include "scene/node.h"

enum class LightMode : int32_t { Ambient = 128, Directional = 129, Omni = 130, Spot = 131 };

struct Light : Node {
    LightMode mode;
    uint32_t color;   // 0xRRGGBB
    float spotAngle;  // degrees
    float spotCosine;
    float spotExponent;
    float attenuation[3];  // constant, linear, quadratic
    float intensity;
};

Light* qelLight_create();
void qelLight_init(Light* light);
void qelLight_finalise(Light* light);
Result qelLight_setMode(Light* light, int32_t mode);
void qelLight_setColor(Light* light, uint32_t color);
void qelLight_setIntensity(Light* light, float intensity);
Result qelLight_setSpotAngle(Light* light, float degrees);
Result qelLight_setSpotExponent(Light* light, float exponent);
Result qelLight_setAttenuation(Light* light, float constant, float linear, float quadratic);
bool qelLight_equals(const Light* a, const Light* b);
// Marks the source changed; the copy has no parent.
Object3D* qelLight_duplicate(Light* light);
