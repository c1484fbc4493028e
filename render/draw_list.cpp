#include "render/draw_list.h"

#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/fixed_point.h"
#include "frame/handle_copy.h"
#include "frame/k8_transform.h"
#include "scene/duplicate.h"

std::array<uint32_t, kRecordKindCount + 1> K8DrawList_recordSizes() {
    std::array<uint32_t, kRecordKindCount + 1> sizes = {};
    sizes[uint32_t(RecordKind::DrawItem)] = sizeof(DrawItem);
    K8Handle_setCopyRecordSizes(sizes);
    return sizes;
}

// --- Releasing ---

static void releaseItem(K8Render* handle, DrawItem* item) {
    K8Handle_releaseCopy(item->object);
    K8Handle_releaseCopy(item->fog);
    K8Handle_releaseCopy(reinterpret_cast<K8Handle*>(item->params.fog));
    for (int32_t i = 0; item->lights && i < item->lightCount; ++i) qelObject3D_unref(item->lights[i]);
    K8Allocator_free(handle->header.allocator, item->lights);
    K8Allocator_free(handle->header.allocator, item->lightTransforms);
    RecordPool_giveBack(item);
}

static void forgetCollectedLights(K8RenderContext* context) {
    for (int32_t i = 0; i < context->collectedCount; ++i) {
        context->collectedLights[i] = nullptr;
        context->collectedTransforms[i] = nullptr;
    }
    context->collectedCount = 0;
}

void K8DrawList_discard(K8Render* handle) {
    K8RenderContext* context = handle->context;
    while (DrawItem* item = context->head) {
        context->head = item->next;
        releaseItem(handle, item);
    }
    context->tail = nullptr;
    context->queuedCalls = 0;
    forgetCollectedLights(context);
    RecordPool_rewind(context->pool);
}

bool K8Render_clear3D(K8Render* handle) {
    if (!handle || !K8Render_graphics(handle) || !handle->context->target) return K8ErrStorage_fail();
    K8DrawList_discard(handle);
    return true;
}

// --- Lights of a call ---

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

// Fills the context's light tables from the parameter block; the number of lights, or -1 for a light that cannot be
// used.
static int32_t gatherLights(K8RenderContext* context, const K8RenderParams& params) {
    const int32_t count = params.lightCount < context->maxLights ? params.lightCount : context->maxLights;
    for (int32_t i = 0; i < count; ++i) {
        const K8Light* light = params.lights ? params.lights[i] : nullptr;
        if (!light || !light->header.object || !light->info) return -1;
        context->lights[i] = static_cast<Light*>(light->header.object);
        K8Transform* transform = context->lightTransforms[i];
        K8Transform_set(transform, params.viewingTransform ? params.viewingTransform->elements : nullptr);
        if (params.lightTransforms) K8Transform_multiply(transform, params.lightTransforms[i]);
        placeLight(transform, *light->info);
        context->lightWords[i] = 0;
    }
    return count;
}

static bool lightsAreCollected(const K8RenderContext* context, int32_t count) {
    if (count != context->collectedCount) return false;
    for (int32_t i = 0; i < count; ++i)
        if (!qelLight_equals(context->lights[i], context->collectedLights[i]) ||
            !K8Transform_equal(context->lightTransforms[i]->elements, context->collectedTransforms[i]->elements))
            return false;
    return true;
}

// --- Queueing ---

// Gives the item duplicates of the call's lights.
static bool takeLights(K8Render* handle, DrawItem* item, int32_t count) {
    const K8RenderContext* context = handle->context;
    item->lightsChanged = 1;
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

// Makes the lights of an item that stays in the list the collected ones.
static void collectLights(K8RenderContext* context, const DrawItem& item) {
    forgetCollectedLights(context);
    for (int32_t i = 0; i < item.lightCount; ++i) {
        context->collectedLights[i] = item.lights[i];
        context->collectedTransforms[i] = &item.lightTransforms[i];
    }
    context->collectedCount = item.lightCount;
}

// A copy of a fog handle whose Fog is a duplicate, so that the host may change its own.
static bool copyFog(K8RenderContext* context, const K8Fog* source, K8Fog** out) {
    if (!source) return true;
    K8Handle* copy = K8Handle_copyTree(&source->header, context->pool);
    *out = reinterpret_cast<K8Fog*>(copy);
    if (!copy) return false;
    if (!copy->object) return true;
    Object3D* duplicate = qelObject3D_duplicate(copy->object);
    if (!duplicate) return K8ErrStorage_failOutOfMemory();
    qelObject3D_unref(copy->object);
    copy->object = duplicate;
    return true;
}

static bool fillItem(K8Render* handle, DrawItem* item, const K8RenderParams& params, const K8Handle* object,
                     int32_t lightCount) {
    K8RenderContext* context = handle->context;
    item->params = params;
    item->params.viewingTransform = nullptr;
    item->params.lights = nullptr;
    item->params.lightTransforms = nullptr;
    item->params.fog = nullptr;
    item->sortKey = context->queuedCalls;
    item->object = K8Handle_copyTree(object, context->pool);
    if (!item->object) return false;
    if (!lightsAreCollected(context, lightCount) && !takeLights(handle, item, lightCount)) return false;
    return copyFog(context, params.fog, &item->params.fog);
}

static bool queueObject(K8Render* handle, const K8RenderParams& params, const K8Handle* object,
                        const K8Transform& transform, int32_t lightCount) {
    K8RenderContext* context = handle->context;
    auto* item = static_cast<DrawItem*>(RecordPool_take(context->pool, RecordKind::DrawItem));
    if (!item) return K8ErrStorage_failOutOfMemory();
    *item = {};
    item->transform = transform;
    if (!fillItem(handle, item, params, object, lightCount)) {
        releaseItem(handle, item);
        return false;
    }
    if (item->lightsChanged) collectLights(context, *item);
    (context->tail ? context->tail->next : context->head) = item;
    context->tail = item;
    return true;
}

bool K8Render_render3D(K8Render* handle, const K8RenderParams* params, K8Handle* object, const K8Transform* transform) {
    if (!handle || !handle->context || !params || !object) return K8ErrStorage_fail();
    if (object->classId != K8_CLASS_FIGURE) return K8ErrStorage_fail();
    const int32_t lightCount = gatherLights(handle->context, *params);
    if (lightCount < 0) return K8ErrStorage_fail();
    K8Transform placed;
    K8Transform_create(&placed, handle->header.allocator);
    K8Transform_set(&placed, params->viewingTransform ? params->viewingTransform->elements : nullptr);
    K8Transform_multiply(&placed, transform);  // a null transform is the identity
    if (!queueObject(handle, *params, object, placed, lightCount)) return false;
    ++handle->context->queuedCalls;
    return true;
}
