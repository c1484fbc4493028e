#include "render/light_selection.h"

static bool takesPart(const Light* light, int32_t scope) {
    return light && light->renderingEnabled && light->color != 0 && (light->scope & scope) != 0;
}

// Between the origins of two transforms.
static float squaredDistance(const qelTransform* a, const qelTransform* b) {
    float sum = 0.0f;
    for (int axis = 3; axis < 12; axis += 4) {
        const float d = a->elements[axis] - b->elements[axis];
        sum += d * d;
    }
    return sum;
}

// The slot that a further light takes: that of the farthest light, or kMaxLights when the further light is itself the
// farthest.
static int32_t slotToYield(const SceneLight* const slots[kMaxLights], const SceneLight* further,
                           const qelTransform* model) {
    int32_t farthest = 0;
    float greatest = squaredDistance(&slots[0]->transform, model);
    for (int32_t i = 1; i <= kMaxLights; ++i) {
        const float distance = squaredDistance(i < kMaxLights ? &slots[i]->transform : &further->transform, model);
        if (distance < greatest) continue;  // of equally far ones the later yields
        greatest = distance;
        farthest = i;
    }
    return farthest;
}

void qelLightSelection_choose(Graphics3D* graphics, int32_t scope, const qelTransform* modelTransform) {
    // Only where lights compete for slots does it matter where the node stands.
    if (graphics->lightsAreChosen && graphics->chosenScope == scope && graphics->lightCount <= kMaxLights) return;
    graphics->lightsAreChosen = graphics->isRendering;
    graphics->chosenScope = scope;
    const SceneLight* slots[kMaxLights] = {};
    int32_t filled = 0;
    for (int32_t i = 0; i < graphics->lightCount; ++i) {
        const SceneLight* light = &graphics->lights[i];
        if (!takesPart(light->light, scope)) continue;
        if (filled < kMaxLights) {
            slots[filled++] = light;
            continue;
        }
        const int32_t slot = slotToYield(slots, light, modelTransform);
        if (slot < kMaxLights) slots[slot] = light;
    }
    for (int32_t i = 0; i < kMaxLights; ++i)
        qelGLBackend_setLight(graphics->backend, i, slots[i] ? slots[i]->light : nullptr,
                              slots[i] ? &slots[i]->transform : nullptr);
}
