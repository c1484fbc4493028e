// K8Render_flush: draws the queued items in two passes. What is a mesh is drawn at once; points, lines and sprites go
// through the render state afterwards, over a depth buffer that is cleared for every call that queued some.
#include "frame/error_status.h"
#include "render/draw_figure.h"
#include "render/draw_list.h"
#include "render/draw_primitive.h"
#include "render/draw_scene.h"

// The part of the bind rectangle that a flush may draw to; width or height is not positive when there is none.
static PixelRect visibleArea(const PixelRect& bind, const PixelRect& flush) {
    const auto end = [](int32_t start, int32_t length) { return int64_t(start) + length; };
    const auto least = [](int64_t a, int64_t b) { return a < b ? a : b; };
    const int32_t left = bind.x > flush.x ? bind.x : flush.x;
    const int32_t top = bind.y > flush.y ? bind.y : flush.y;
    const int64_t width = least(end(bind.x, bind.width), end(flush.x, flush.width)) - left;
    const int64_t height = least(end(bind.y, bind.height), end(flush.y, flush.height)) - top;
    const auto clamp = [](int64_t length) { return int32_t(length < 0 ? 0 : length > INT32_MAX ? INT32_MAX : length); };
    return {left, top, clamp(width), clamp(height)};
}

static bool bindTarget(K8Render* handle, const PixelRect& area) {
    const K8RenderContext* context = handle->context;
    Graphics3D* graphics = K8Render_graphics(handle);
    if (qelGraphics3D_bindTarget(graphics, context->target, area, context->targetWidth, context->targetHeight, true,
                                 kHintTrueColor) != QEL_STATUS_OK)
        return false;
    qelGraphics3D_clear(graphics, kClearDepth, nullptr);
    qelGraphics3D_setViewport(graphics, {0, 0, context->targetWidth, context->targetHeight});
    return true;
}

// --- Meshes ---

static bool setLights(Graphics3D* graphics, const DrawItem* item) {
    qelGraphics3D_resetLights(graphics);
    for (int32_t i = 0; i < item->lightCount; ++i) {
        qelTransform transform;
        qelTransform_set_fl(&transform, item->lightTransforms[i].elements);
        Result result;
        if (qelGraphics3D_addLight(graphics, item->lights[i], &transform, &result) < 0) return false;
    }
    return true;
}

static bool drawItem(K8Render* handle, const DrawItem* item) {
    switch (item->object->classId) {
        case K8_CLASS_FIGURE: return K8DrawList_drawFigure(handle, item);
        case K8_CLASS_PRIMITIVE: return K8DrawList_drawFaces(handle, item);
        case K8_CLASS_SCENE_GROUP: return K8DrawList_drawScene(handle, item);
        default: return false;
    }
}

static bool drawItems(K8Render* handle, bool* hasDeferred) {
    for (const DrawItem* item = handle->context->head; item; item = item->next) {
        if (item->lightsChanged && !setLights(K8Render_graphics(handle), item)) return false;
        if (K8DrawList_isDeferred(item))
            *hasDeferred = true;
        else if (!drawItem(handle, item))
            return false;
    }
    return true;
}

// The lights are the items' own duplicates and leave with them, so that no later flush is lit by them.
static bool drawMeshes(K8Render* handle, const PixelRect& area, bool* hasDeferred) {
    if (!bindTarget(handle, area)) return false;
    const bool drawn = drawItems(handle, hasDeferred);
    qelGraphics3D_releaseTarget(K8Render_graphics(handle));
    qelGraphics3D_resetLights(K8Render_graphics(handle));
    return drawn;
}

// --- Points, lines and sprites ---

static bool drawDeferred(K8Render* handle, const PixelRect& area) {
    RenderState* state = &handle->context->renderState;
    K8Render_setClip(handle->context, area);
    const DrawItem* previous = nullptr;
    for (const DrawItem* item = handle->context->head; item; item = item->next) {
        if (!K8DrawList_isDeferred(item)) continue;
        if (previous && previous->sortKey != item->sortKey && !K8RenderState_flush(state)) return false;
        if (!K8DrawList_queueCommands(handle, item)) return false;
        previous = item;
    }
    return K8RenderState_flush(state);
}

static bool drawList(K8Render* handle, const PixelRect& area) {
    if (area.width == 0 || area.height == 0) return true;
    bool hasDeferred = false;
    return drawMeshes(handle, area, &hasDeferred) && (!hasDeferred || drawDeferred(handle, area));
}

bool K8Render_flush(K8Render* handle, int32_t x, int32_t y, int32_t w, int32_t h) {
    if (!handle || !handle->context) return K8ErrStorage_fail();
    K8RenderContext* context = handle->context;
    if (w == 0 || h == 0) {
        K8DrawList_discard(handle);
        return K8ErrStorage_fail();
    }
    if (!context->head) return true;
    if (!K8Render_graphics(handle) || !context->target) {
        K8DrawList_discard(handle);
        return K8ErrStorage_fail();
    }
    qelStatus_set(QEL_STATUS_OK);  // what follows is judged by its own failures
    const FailureMark mark = FailureMark_now();
    const bool drawn = drawList(handle, visibleArea(context->bindRect, {x, y, w, h}));
    if (!drawn) {
        K8ErrStorage_storeFailure(mark);
        K8RenderState_flush(&context->renderState);  // draws what was queued before the failure
    }
    K8RenderState_setTexture(&context->renderState, nullptr);  // no texture of the host's is kept beyond its flush
    K8DrawList_discard(handle);
    return drawn;
}
