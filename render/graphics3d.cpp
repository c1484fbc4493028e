#include "render/graphics3d.h"

#include "frame/allocator.h"
#include "render/light_selection.h"
#include "scene/transform.h"

constexpr int32_t kLightCapacityStep = 8;
constexpr int32_t kAllHints = 14;

static bool hintsAreValid(int32_t hints) { return hints >= 0 && hints <= kAllHints && hints % 2 == 0; }

Graphics3D* qelGraphics3D_create(int32_t hints, int32_t width, int32_t height) {
    if (!hintsAreValid(hints) || width < 0 || height < 0) return nullptr;
    auto* graphics = static_cast<Graphics3D*>(qelAlloc(kScratchTag, sizeof(Graphics3D)));
    if (!graphics) return nullptr;
    graphics->lights = qelAllocArrayOf<SceneLight>(kLightCapacityStep);
    if (graphics->lights) graphics->backend = qelGLBackend_create(kModeColorDepth, width, height);
    if (!graphics->backend) {
        qelFree(graphics->lights);
        qelFree(graphics);
        return nullptr;
    }
    graphics->lightCapacity = kLightCapacityStep;
    graphics->viewport = graphics->clip = {0, 0, width, height};
    graphics->hints = hints;
    qelTransform_setIdentity(&graphics->cameraTransform);
    qelGLBackend_setDepthRange(graphics->backend, 0.0f, 1.0f);
    return graphics;
}

void qelGraphics3D_destroy(Graphics3D* graphics) {
    if (!graphics) return;
    qelGraphics3D_resetLights(graphics);
    qelObject3D_unref(graphics->camera);
    qelGLBackend_destroy(graphics->backend);
    qelFree(graphics->lights);
    qelFree(graphics);
}

GLBackend* qelGraphics3D_backend(Graphics3D* graphics) { return graphics->backend; }

// --- Target ---

// What of a length from `start` lies between 0 and the largest viewport. OpenGL ES takes no negative sizes.
static int32_t cutLength(int32_t start, int32_t length) {
    const int64_t end = int64_t(start) + length;
    const int64_t cut = end < kMaxViewportDimension ? end : kMaxViewportDimension;
    const int64_t rest = cut - (start > 0 ? start : 0);
    return int32_t(rest < 0 ? 0 : rest);
}

static PixelRect cutArea(const PixelRect& area) {
    return {area.x > 0 ? area.x : 0, area.y > 0 ? area.y : 0, cutLength(area.x, area.width),
            cutLength(area.y, area.height)};
}

static Result checkTarget(const Graphics3D* graphics, const void* target, int32_t width, int32_t height,
                          int32_t hints) {
    if (!hintsAreValid(hints) || width < 0 || height < 0) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (graphics->isBound) return QEL_STATUS_ILLEGAL_STATE;
    if (!target) return QEL_STATUS_NULL_POINTER;
    if (width > kMaxViewportDimension || height > kMaxViewportDimension) return QEL_STATUS_OUT_OF_MEMORY;
    return QEL_STATUS_OK;
}

static void prepareTarget(Graphics3D* graphics, const PixelRect& area, int32_t width, int32_t height, bool depthBuffer,
                          int32_t hints) {
    graphics->viewport = graphics->clip = cutArea(area);
    graphics->targetWidth = width;
    graphics->targetHeight = height;
    graphics->hints = hints;
    qelGLBackend_setMode(graphics->backend, depthBuffer ? kModeColorDepth : kModeColor);
    qelGLBackend_setViewport(graphics->backend, graphics->viewport, graphics->clip);
}

Result qelGraphics3D_bindTarget(Graphics3D* graphics, const void* target, const PixelRect& area, int32_t targetWidth,
                                int32_t targetHeight, bool depthBuffer, int32_t hints) {
    const Result checked = checkTarget(graphics, target, targetWidth, targetHeight, hints);
    if (checked != QEL_STATUS_OK) return checked;
    prepareTarget(graphics, area, targetWidth, targetHeight, depthBuffer, hints);
    const Result bound = qelGLBackend_bind(graphics->backend, targetWidth, targetHeight);
    graphics->isBound = bound == QEL_STATUS_OK;
    return bound;
}

Result qelGraphics3D_bindImageTarget(Graphics3D* graphics, Image2D* image, const PixelRect& area, bool depthBuffer,
                                     int32_t hints) {
    const Result checked = checkTarget(graphics, image, image ? image->width : 0, image ? image->height : 0, hints);
    if (checked != QEL_STATUS_OK) return checked;
    const bool isColor = image->format == ImageFormat::Rgb || image->format == ImageFormat::Rgba;
    if (!image->isMutable || !isColor) return QEL_STATUS_ILLEGAL_ARGUMENT;
    prepareTarget(graphics, area, image->width, image->height, depthBuffer, hints);
    const Result bound = qelGLBackend_bindImage(graphics->backend, image);
    if (bound != QEL_STATUS_OK) return bound;
    graphics->isBound = 1;
    qelImage2D_touch(image);
    return QEL_STATUS_OK;
}

Result qelGraphics3D_releaseTarget(Graphics3D* graphics) {
    graphics->isBound = 0;
    return qelGLBackend_release(graphics->backend);
}

// The part of the viewport inside the clip rectangle and the target; sides may come out negative.
static PixelRect scissorOf(const Graphics3D* graphics) {
    const PixelRect& v = graphics->viewport;
    const PixelRect& c = graphics->clip;
    const auto edge = [](int32_t a, int32_t b, int32_t limit) {
        const int32_t least = a < b ? a : b;
        return least < limit ? least : limit;
    };
    const auto start = [](int32_t a, int32_t b) {
        const int32_t greatest = a > b ? a : b;
        return greatest > 0 ? greatest : 0;
    };
    const int32_t left = start(v.x, c.x);
    const int32_t top = start(v.y, c.y);
    return {left, top, edge(v.x + v.width, c.x + c.width, graphics->targetWidth) - left,
            edge(v.y + v.height, c.y + c.height, graphics->targetHeight) - top};
}

Result qelGraphics3D_setViewport(Graphics3D* graphics, const PixelRect& viewport) {
    const bool fits = viewport.width > 0 && viewport.width <= kMaxViewportDimension && viewport.height > 0 &&
                      viewport.height <= kMaxViewportDimension;
    if (!fits) return QEL_STATUS_ILLEGAL_ARGUMENT;
    if (!graphics->isBound) return QEL_STATUS_OK;
    graphics->viewport = viewport;
    qelGLBackend_setViewport(graphics->backend, viewport, scissorOf(graphics));
    return QEL_STATUS_OK;
}

Result qelGraphics3D_setDepthRange(Graphics3D* graphics, float near, float far) {
    const bool fits = near >= 0.0f && near <= 1.0f && far >= 0.0f && far <= 1.0f;
    if (!fits) return QEL_STATUS_ILLEGAL_ARGUMENT;
    qelGLBackend_setDepthRange(graphics->backend, near, far);
    return QEL_STATUS_OK;
}

Result qelGraphics3D_clear(Graphics3D* graphics, uint32_t flags, Background* background) {
    if (!graphics->isBound) return QEL_STATUS_ILLEGAL_STATE;
    return qelGLBackend_clear(graphics->backend, flags, background);
}

// --- Camera ---

void qelGraphics3D_setCamera(Graphics3D* graphics, Camera* camera, const qelTransform* transform) {
    qelObject3D_exchange(graphics->camera, camera);
    graphics->cameraIsSet = camera != nullptr;
    if (!camera) return;
    if (transform)
        qelTransform_set_tr(&graphics->cameraTransform, transform);
    else
        qelTransform_setIdentity(&graphics->cameraTransform);
    qelViewVolume_set(&graphics->viewVolume, camera, &graphics->cameraTransform);
}

Result qelGraphics3D_prepareCamera(Graphics3D* graphics) {
    qelTransform view;
    qelTransform_setIdentity(&view);
    const bool invertible = qelTransform_invert_copy(&graphics->cameraTransform, &view) == QEL_STATUS_OK;
    qelTransform projection;
    qelTransform_setIdentity(&projection);
    Result result;
    const ProjectionType type = qelCamera_getProjection(graphics->camera, &projection, &result);
    qelGLBackend_setCamera(graphics->backend, &view, &projection, type);
    return invertible ? QEL_STATUS_OK : kResultCameraNotInvertible;
}

// --- Lights ---

static void placeLight(SceneLight* slot, const qelTransform* transform) {
    slot->hasTransform = transform != nullptr;
    if (transform)
        qelTransform_set_tr(&slot->transform, transform);
    else
        qelTransform_setIdentity(&slot->transform);
}

static bool growLights(Graphics3D* graphics) {
    const int32_t capacity = graphics->lightCapacity + kLightCapacityStep;
    void* grown = qelRealloc(graphics->lights, int32_t(sizeof(SceneLight)) * capacity);
    if (!grown) return false;
    graphics->lights = static_cast<SceneLight*>(grown);
    graphics->lightCapacity = capacity;
    return true;
}

int32_t qelGraphics3D_addLight(Graphics3D* graphics, Light* light, const qelTransform* transform, Result* result) {
    *result = light ? QEL_STATUS_OK : QEL_STATUS_NULL_POINTER;
    if (!light) return -1;
    if (graphics->lightCount == graphics->lightCapacity && !growLights(graphics)) {
        *result = QEL_STATUS_OUT_OF_MEMORY;
        return -1;
    }
    SceneLight* slot = &graphics->lights[graphics->lightCount];
    *slot = {};
    slot->light = light;
    qelObject3D_ref(light);
    placeLight(slot, transform);
    return graphics->lightCount++;
}

Result qelGraphics3D_setLight(Graphics3D* graphics, int32_t index, Light* light, const qelTransform* transform) {
    if (index < 0 || index >= graphics->lightCount) return QEL_STATUS_INDEX_OUT_OF_RANGE;
    qelObject3D_exchange(graphics->lights[index].light, light);  // null leaves a place that lights nothing
    placeLight(&graphics->lights[index], transform);
    return QEL_STATUS_OK;
}

void qelGraphics3D_resetLights(Graphics3D* graphics) {
    for (int32_t i = 0; i < graphics->lightCount; ++i) qelObject3D_unref(graphics->lights[i].light);
    graphics->lightCount = 0;
}

// --- Drawing ---

static bool coordinatesSuffice(const VertexBuffer* buffer, const Appearance* appearance) {
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit)
        if (appearance->textures[unit] && !buffer->texCoords[unit]) return false;
    return true;
}

Result qelGraphics3D_drawSubmesh(Graphics3D* graphics, const SubmeshDraw& draw, int32_t scope) {
    if (!graphics->isBound || !graphics->cameraIsSet) return QEL_STATUS_ILLEGAL_STATE;
    if (!draw.vertexBuffer || !draw.indexBuffer || !draw.appearance) return QEL_STATUS_NULL_POINTER;
    if (!draw.vertexBuffer->positions || !coordinatesSuffice(draw.vertexBuffer, draw.appearance))
        return QEL_STATUS_ILLEGAL_STATE;
    qelLightSelection_choose(graphics, scope, draw.modelTransform);
    return qelGLBackend_drawSubmesh(graphics->backend, draw);
}
