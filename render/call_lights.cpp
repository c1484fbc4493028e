#include "render/call_lights.h"

#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/fixed_point.h"
#include "frame/k8_transform.h"
#include "scene/duplicate.h"

// --- Placing ---

// Turns the default light direction (0, 0, -1) to d.
static void rotateToDirection(K8Transform* transform, const int32_t direction[3]) {
    int32_t d[3] = {direction[0], direction[1], direction[2]};
    if (!K8Math_normalizeVector(d)) return;
    const int32_t forward[3] = {0, 0, -kFixedOne};
    int32_t axis[3];
    crossFixed(d, forward, axis);
    if (axis[0] || axis[1] || axis[2])
        K8Transform_rotate(transform, axis[0], axis[1], axis[2], -K8Math_acos(f2j(dotFixed(d, forward))));
    else if (d[2] > 0)
        K8Transform_rotate(transform, kFixedOne, 0, 0, 2 * kFixedQuarterTurn);
}

static void placeLight(K8Transform* transform, const K8LightInfo& info) {
    K8Transform_translate(transform, info.position[0], info.position[1], info.position[2]);
    rotateToDirection(transform, info.direction);
}

// --- Gathering ---

bool K8CallLights_start(K8RenderContext* context, const K8RenderParams& params) {
    context->lightCount = 0;
    const int32_t count = params.lightCount < context->maxLights ? params.lightCount : context->maxLights;
    for (int32_t i = 0; i < count; ++i) {
        const K8Light* light = params.lights ? params.lights[i] : nullptr;
        if (!light || light->header.classId != K8_CLASS_LIGHT || !light->header.object || !light->info) return false;
        context->lights[i] = static_cast<Light*>(light->header.object);
        K8Transform* transform = context->lightTransforms[i];
        K8Transform_set(transform, params.viewingTransform ? params.viewingTransform->elements : nullptr);
        if (params.lightTransforms) K8Transform_multiply(transform, params.lightTransforms[i]);
        placeLight(transform, *light->info);
        context->lightWords[i] = 0;
    }
    context->lightCount = count;
    return true;
}

static bool isGathered(const K8RenderContext* context, const Light* light) {
    for (int32_t i = 0; i < context->lightCount; ++i)
        if (context->lights[i] == light) return true;
    return false;
}

static uint32_t depthOf(uint32_t orderWord) { return orderWord & 0xFFFF; }
static uint32_t visitOf(uint32_t orderWord) { return orderWord >> 16; }

// Whether a light is given up rather than another: the deeper one, then the one found later.
static bool yieldsBefore(uint32_t word, uint32_t other) {
    return depthOf(word) != depthOf(other) ? depthOf(word) > depthOf(other) : visitOf(word) >= visitOf(other);
}

// The slot of a full table that goes to a light of this depth; -1 when none lies deeper.
static int32_t findSlotToGiveUp(const K8RenderContext* context, uint32_t depth) {
    int32_t slot = -1;
    for (int32_t i = 0; i < context->maxLights; ++i) {
        const uint32_t word = context->lightWords[i];
        if (depthOf(word) > depth && (slot < 0 || yieldsBefore(word, context->lightWords[slot]))) slot = i;
    }
    return slot;
}

void K8CallLights_add(K8RenderContext* context, const K8Light* handle, const K8Transform& place, uint32_t orderWord) {
    auto* light = static_cast<Light*>(handle->header.object);
    if (!light || !handle->info || isGathered(context, light)) return;
    const bool isFull = context->lightCount == context->maxLights;
    const int32_t slot = isFull ? findSlotToGiveUp(context, depthOf(orderWord)) : context->lightCount++;
    if (slot < 0) return;
    context->lights[slot] = light;
    context->lightWords[slot] = orderWord;
    K8Transform_set(context->lightTransforms[slot], place.elements);
    placeLight(context->lightTransforms[slot], *handle->info);
}

// --- Collecting ---

static bool areCollected(const K8RenderContext* context) {
    if (context->lightCount != context->collectedCount) return false;
    for (int32_t i = 0; i < context->lightCount; ++i)
        if (!qelLight_equals(context->lights[i], context->collectedLights[i]) ||
            !K8Transform_equal(context->lightTransforms[i]->elements, context->collectedTransforms[i]->elements))
            return false;
    return true;
}

bool K8CallLights_giveTo(K8Render* handle, DrawItem* item) {
    const K8RenderContext* context = handle->context;
    if (areCollected(context)) return true;
    item->lightsChanged = 1;
    const int32_t count = context->lightCount;
    if (count == 0) return true;
    item->lights = K8Allocator_allocArrayOf<Light*>(handle->header.allocator, uint32_t(count));
    item->lightTransforms = K8Allocator_allocArrayOf<K8Transform>(handle->header.allocator, uint32_t(count));
    if (!item->lights || !item->lightTransforms) return K8ErrStorage_failOutOfMemory();
    for (int32_t i = 0; i < count; ++i) {
        item->lights[i] = static_cast<Light*>(qelObject3D_duplicate(context->lights[i]));
        if (!item->lights[i]) return K8ErrStorage_failOutOfMemory();
        item->lightCount = i + 1;
        item->lightTransforms[i] = *context->lightTransforms[i];
    }
    return true;
}

void K8CallLights_collect(K8RenderContext* context, const DrawItem& item) {
    K8CallLights_forgetCollected(context);
    for (int32_t i = 0; i < item.lightCount; ++i) {
        context->collectedLights[i] = item.lights[i];
        context->collectedTransforms[i] = &item.lightTransforms[i];
    }
    context->collectedCount = item.lightCount;
}

void K8CallLights_forgetCollected(K8RenderContext* context) {
    for (int32_t i = 0; i < context->collectedCount; ++i) {
        context->collectedLights[i] = nullptr;
        context->collectedTransforms[i] = nullptr;
    }
    context->collectedCount = 0;
}
