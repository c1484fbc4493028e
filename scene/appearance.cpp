#include "scene/appearance.h"

#include <array>

#include "scene/animate_parts.h"
#include "scene/compositing_mode.h"
#include "scene/fog.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"

// The components in the order in which find and getReferences visit them.
static std::array<Object3D*, 4 + kMaxTextureUnits> componentsOf(const Appearance* appearance) {
    return {appearance->compositingMode, appearance->fog,         appearance->polygonMode,
            appearance->material,        appearance->textures[0], appearance->textures[1]};
}

static Object3D* findInAppearance(Object3D* object, int32_t userId) {
    if (Object3D* found = qelObject3D_findCommon(object, userId)) return found;
    for (Object3D* component : componentsOf(static_cast<Appearance*>(object)))
        if (Object3D* found = qelObject3D_findIn(component, userId)) return found;
    return nullptr;
}

static int32_t getAppearanceReferences(const Object3D* object, Object3D** out) {
    int32_t count = qelObject3D_getReferencesCommon(object, out);
    for (Object3D* component : componentsOf(static_cast<const Appearance*>(object)))
        count = qelObject3D_appendReference(component, out, count);
    return count;
}

static int32_t animateAppearance(Object3D* object, int32_t worldTime, Result* result) {
    const auto* appearance = static_cast<Appearance*>(object);
    *result = QEL_STATUS_OK;
    int32_t validity = kValidForever;
    for (Object3D* part :
         {static_cast<Object3D*>(appearance->fog), static_cast<Object3D*>(appearance->textures[0]),
          static_cast<Object3D*>(appearance->textures[1]), static_cast<Object3D*>(appearance->material)})
        if (!animatePart(part, worldTime, &validity, result)) break;
    return validity;
}

static void destroyAppearance(Object3D* object) {
    for (Object3D* component : componentsOf(static_cast<Appearance*>(object))) qelObject3D_unref(component);
    qelObject3D_finalise(object);
    qelFree(object);
}

Appearance* qelAppearance_create() {
    auto* appearance = qelObject3D_alloc<Appearance>(ClassId::Appearance);
    if (!appearance) return nullptr;
    qelObject3D_init(appearance);
    appearance->classId = ClassId::Appearance;
    appearance->find = findInAppearance;
    appearance->getReferences = getAppearanceReferences;
    appearance->animate = animateAppearance;
    appearance->destroy = destroyAppearance;
    for (uint8_t& changed : appearance->textureChanged) changed = 1;
    return appearance;
}

template <typename T>
static void setComponent(Appearance* appearance, T*& member, T* component) {
    qelObject3D_exchange(member, component);
    appearance->stateChanged = 1;
}

void qelAppearance_setCompositingMode(Appearance* appearance, CompositingMode* mode) {
    setComponent(appearance, appearance->compositingMode, mode);
}

void qelAppearance_setFog(Appearance* appearance, Fog* fog) { setComponent(appearance, appearance->fog, fog); }

void qelAppearance_setPolygonMode(Appearance* appearance, PolygonMode* mode) {
    setComponent(appearance, appearance->polygonMode, mode);
}

void qelAppearance_setMaterial(Appearance* appearance, Material* material) {
    setComponent(appearance, appearance->material, material);
}

CompositingMode* qelAppearance_getCompositingMode(const Appearance* appearance) { return appearance->compositingMode; }

Material* qelAppearance_getMaterial(const Appearance* appearance) { return appearance->material; }

Result qelAppearance_setLayer(Appearance* appearance, int32_t layer) {
    if (layer < -kMaxLayer || layer > kMaxLayer) return QEL_STATUS_INDEX_OUT_OF_RANGE;
    appearance->layer = layer;
    appearance->stateChanged = 1;
    return QEL_STATUS_OK;
}

Result qelAppearance_setTexture(Appearance* appearance, int32_t unit, Texture2D* texture) {
    if (unit < 0 || unit >= kMaxTextureUnits) return QEL_STATUS_INDEX_OUT_OF_RANGE;
    setComponent(appearance, appearance->textures[unit], texture);
    appearance->textureChanged[unit] = 1;
    return QEL_STATUS_OK;
}

Texture2D* qelAppearance_getTexture(const Appearance* appearance, int32_t unit, Result* result) {
    const bool exists = unit >= 0 && unit < kMaxTextureUnits;
    *result = exists ? QEL_STATUS_OK : QEL_STATUS_INDEX_OUT_OF_RANGE;
    return exists ? appearance->textures[unit] : nullptr;
}

Object3D* qelAppearance_duplicate(const Appearance* appearance) {
    Appearance* copy = qelObject3D_copy(appearance);
    if (!copy) return nullptr;
    for (Object3D* component : componentsOf(copy)) qelObject3D_ref(component);
    for (uint8_t& changed : copy->textureChanged) changed = 1;
    return copy;
}
