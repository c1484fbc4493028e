#include "scene/light.h"

#include <algorithm>

#include "animation/animate.h"
#include "frame/trigonometry.h"
#include "scene/transform.h"

static void destroyLight(Object3D* object) {
    qelLight_finalise(static_cast<Light*>(object));
    qelFree(object);
}

Light* qelLight_create() {
    auto* light = qelObject3D_alloc<Light>(ClassId::Light);
    if (light) qelLight_init(light);
    return light;
}

static void storeSpotAngle(Light* light, float degrees) {
    light->spotAngle = degrees;
    light->spotCosine = float(stableCos(double(degrees) * kRadiansPerDegree));
}

void qelLight_init(Light* light) {
    qelNode_init(light);
    light->classId = ClassId::Light;
    light->find = qelObject3D_findCommon;
    light->animate = qelObject3D_animateCommon;
    light->destroy = destroyLight;
    light->mode = LightMode::Directional;
    light->color = 0xFFFFFF;
    storeSpotAngle(light, 45.0f);
    light->spotExponent = 0;
    light->attenuation[0] = 1.0f;
    light->attenuation[1] = light->attenuation[2] = 0;
    light->intensity = 1.0f;
}

void qelLight_finalise(Light* light) {
    qelNode_finalise(light);
    qelLight_init(light);
}

Object3D* qelLight_duplicate(Light* light) {
    light->stateChanged = 1;
    return qelNode_copy(light);
}

// Stores a value and marks the light changed, unless it is what is stored already.
template <typename T>
static void store(Light* light, T& member, T value) {
    if (member == value) return;
    member = value;
    light->stateChanged = 1;
}

Result qelLight_setMode(Light* light, int32_t mode) {
    if (mode < int32_t(LightMode::Ambient) || mode > int32_t(LightMode::Spot)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    store(light, light->mode, LightMode(mode));
    return QEL_STATUS_OK;
}

void qelLight_setColor(Light* light, uint32_t color) { store(light, light->color, color & 0xFFFFFF); }

void qelLight_setIntensity(Light* light, float intensity) { store(light, light->intensity, intensity); }

Result qelLight_setSpotAngle(Light* light, float degrees) {
    if (!(degrees >= 0 && degrees <= 90)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (degrees == light->spotAngle) return QEL_STATUS_OK;
    storeSpotAngle(light, degrees);
    light->stateChanged = 1;
    return QEL_STATUS_OK;
}

Result qelLight_setSpotExponent(Light* light, float exponent) {
    if (!(exponent >= 0 && exponent <= 128)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    store(light, light->spotExponent, exponent);
    return QEL_STATUS_OK;
}

Result qelLight_setAttenuation(Light* light, float constant, float linear, float quadratic) {
    if (!(constant >= 0 && linear >= 0 && quadratic >= 0)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (constant == 0 && linear == 0 && quadratic == 0) return QEL_STATUS_ILLEGAL_ARGUMENT;
    store(light, light->attenuation[0], constant);
    store(light, light->attenuation[1], linear);
    store(light, light->attenuation[2], quadratic);
    return QEL_STATUS_OK;
}

bool qelLight_equals(const Light* a, const Light* b) {
    return a->mode == b->mode && a->color == b->color && a->spotAngle == b->spotAngle &&
           a->spotCosine == b->spotCosine && a->spotExponent == b->spotExponent &&
           std::ranges::equal(a->attenuation, b->attenuation) && a->intensity == b->intensity;
}
