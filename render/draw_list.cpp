#include "render/draw_list.h"

#include "frame/allocator.h"
#include "frame/error_status.h"
#include "frame/handle_copy.h"
#include "render/call_lights.h"
#include "render/draw_tree.h"
#include "render/figure_walk.h"
#include "scene/duplicate.h"

std::array<uint32_t, kRecordKindCount + 1> K8DrawList_recordSizes() {
    std::array<uint32_t, kRecordKindCount + 1> sizes = {};
    sizes[uint32_t(RecordKind::DrawItem)] = sizeof(DrawItem);
    sizes[uint32_t(RecordKind::SceneWork)] = sizeof(FigureWalkLevel);
    K8DrawTree_setRecordSizes(sizes);
    K8Handle_setCopyRecordSizes(sizes);
    return sizes;
}

// --- Releasing ---

static void releaseItem(K8Render* handle, DrawItem* item) {
    K8Handle_releaseCopy(item->object);
    qelObject3D_unref(item->fog);
    for (int32_t i = 0; i < item->lightCount; ++i) qelObject3D_unref(item->lights[i]);
    K8Allocator_free(handle->header.allocator, item->lights);
    K8Allocator_free(handle->header.allocator, item->lightTransforms);
    RecordPool_giveBack(item);
}

static void releaseItemsFrom(K8Render* handle, DrawItem* first) {
    while (DrawItem* item = first) {
        first = item->next;
        releaseItem(handle, item);
    }
}

void K8DrawList_discard(K8Render* handle) {
    K8RenderContext* context = handle->context;
    releaseItemsFrom(handle, context->head);
    context->head = context->tail = nullptr;
    context->queuedCalls = 0;
    K8CallLights_forgetCollected(context);
    RecordPool_rewind(context->pool);
}

// Takes back what was queued behind `last`, and makes the lights that are lit there the collected ones again.
static void discardBehind(K8Render* handle, DrawItem* last) {
    K8RenderContext* context = handle->context;
    releaseItemsFrom(handle, last->next);
    last->next = nullptr;
    context->tail = last;
    const DrawItem* lit = nullptr;
    for (const DrawItem* item = context->head; item; item = item->next)
        if (item->lightsChanged) lit = item;
    if (lit)
        K8CallLights_collect(context, *lit);
    else
        K8CallLights_forgetCollected(context);
}

bool K8Render_clear3D(K8Render* handle) {
    if (!handle || !K8Render_graphics(handle) || !handle->context->target) return K8ErrStorage_fail();
    K8DrawList_discard(handle);
    return true;
}

// --- Queueing ---

// What the items of one call have in common, beside its lights.
struct QueueCall {
    K8Render* handle;
    const K8RenderParams* params;
    Fog* fog;  // a duplicate, so that the host may change its own; or null
};

static bool fillItem(const QueueCall& call, DrawItem* item, const K8Handle* object) {
    K8RenderContext* context = call.handle->context;
    item->params = *call.params;
    item->params.viewingTransform = nullptr;
    item->params.lights = nullptr;
    item->params.lightTransforms = nullptr;
    item->params.fog = nullptr;
    item->sortKey = context->queuedCalls;
    item->fog = call.fog;
    qelObject3D_ref(item->fog);
    item->object = K8Handle_copyTree(object, context->pool);
    return item->object && K8CallLights_giveTo(call.handle, item);
}

static bool queueObject(void* closure, const K8Handle* object, const K8Transform& place) {
    const auto& call = *static_cast<const QueueCall*>(closure);
    K8RenderContext* context = call.handle->context;
    auto* item = static_cast<DrawItem*>(RecordPool_take(context->pool, RecordKind::DrawItem));
    if (!item) return K8ErrStorage_failOutOfMemory();
    *item = {};
    item->transform = place;
    if (!fillItem(call, item, object)) {
        releaseItem(call.handle, item);
        return false;
    }
    if (item->lightsChanged) K8CallLights_collect(context, *item);
    (context->tail ? context->tail->next : context->head) = item;
    context->tail = item;
    return true;
}

// All of the group or nothing.
static bool queueGroup(QueueCall* call, const K8Group* group, const K8Transform& placed) {
    K8RenderContext* context = call->handle->context;
    DrawItem* last = context->tail;
    if (K8DrawTree_expand(context, group, placed, queueObject, call)) return true;
    if (last)
        discardBehind(call->handle, last);
    else
        K8DrawList_discard(call->handle);
    return false;
}

static bool canBeQueued(const K8Handle* object) {
    switch (object->classId) {
        case K8_CLASS_FIGURE:
        case K8_CLASS_PRIMITIVE:
        case K8_CLASS_GROUP:
        case K8_CLASS_SCENE_GROUP: return true;
        default: return false;
    }
}

// A scene is drawn as one unit, at the place of its group.
static bool queueScene(QueueCall* call, const K8Group* group, const K8Transform& placed) {
    K8Transform place = placed;
    K8Transform_multiply(&place, group->info ? group->info->transform : nullptr);
    return queueObject(call, &group->header, place);
}

static bool queueByClass(QueueCall* call, const K8Handle* object, const K8Transform& placed) {
    switch (object->classId) {
        case K8_CLASS_GROUP: return queueGroup(call, reinterpret_cast<const K8Group*>(object), placed);
        case K8_CLASS_SCENE_GROUP: return queueScene(call, reinterpret_cast<const K8Group*>(object), placed);
        default: return queueObject(call, object, placed);
    }
}

static bool queueTree(QueueCall* call, const K8Handle* object, const K8Transform& placed) {
    K8RenderContext* context = call->handle->context;
    const K8Fog* fog;
    if (!K8DrawTree_gather(context, object, placed, &fog)) return false;
    if (!fog) fog = call->params->fog;
    if (fog && fog->header.classId != K8_CLASS_FOG) return K8ErrStorage_fail();
    if (fog && fog->header.object) {
        call->fog = static_cast<Fog*>(qelObject3D_duplicate(fog->header.object));
        if (!call->fog) return K8ErrStorage_failOutOfMemory();
    }
    const bool queued = queueByClass(call, object, placed);
    qelObject3D_unref(call->fog);
    return queued;
}

bool K8Render_render3D(K8Render* handle, const K8RenderParams* params, K8Handle* object, const K8Transform* transform) {
    if (!handle || !handle->context || !params || !object || !canBeQueued(object)) return K8ErrStorage_fail();
    if (!K8CallLights_start(handle->context, *params)) return K8ErrStorage_fail();
    K8Transform placed;
    K8Transform_create(&placed, handle->header.allocator);
    K8Transform_set(&placed, params->viewingTransform ? params->viewingTransform->elements : nullptr);
    K8Transform_multiply(&placed, transform);  // a null transform is the identity
    QueueCall call = {.handle = handle, .params = params, .fog = nullptr};
    if (!queueTree(&call, object, placed)) return false;
    ++handle->context->queuedCalls;
    return true;
}
