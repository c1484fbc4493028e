// K8Render_flush: draws the queued items.
#include "frame/error_status.h"
#include "render/draw_figure.h"
#include "render/draw_list.h"

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

static bool drawItems(K8Render* handle) {
    for (const DrawItem* item = handle->context->head; item; item = item->next) {
        if (item->lightsChanged && !setLights(K8Render_graphics(handle), item)) return false;
        if (!K8DrawList_drawFigure(handle, item)) return false;
    }
    return true;
}

// Draws into the visible area. The lights are the items' own duplicates and leave with them, so that no later flush is
// lit by them.
static bool drawVisible(K8Render* handle, const PixelRect& area) {
    if (!bindTarget(handle, area)) return false;
    const bool drawn = drawItems(handle);
    qelGraphics3D_releaseTarget(K8Render_graphics(handle));
    qelGraphics3D_resetLights(K8Render_graphics(handle));
    return drawn;
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
    const FailureMark mark = FailureMark_now();
    const PixelRect area = visibleArea(context->bindRect, {x, y, w, h});
    const bool drawn = area.width == 0 || area.height == 0 || drawVisible(handle, area);
    if (!drawn) K8ErrStorage_storeFailure(mark);
    K8DrawList_discard(handle);
    return drawn;
}
