#include "render/gl_backend.h"

#include <GLES/gl.h>

#include "frame/allocator.h"
#include "render/gl_geometry.h"
#include "render/gl_image_draw.h"
#include "render/gl_readback.h"
#include "render/gl_state.h"
#include "render/gl_texture_units.h"
#include "render/renderer_texture.h"

// --- Life ---

GLBackend* qelGLBackend_create(int32_t mode, int32_t width, int32_t height) {
    auto* backend = static_cast<GLBackend*>(qelAlloc(kScratchTag, sizeof(GLBackend)));
    if (!backend) return nullptr;
    backend->targetContents = qelRendererTexture_create();
    if (!backend->targetContents) {
        qelFree(backend);
        return nullptr;
    }
    backend->mode = mode;
    backend->targetWidth = width;
    backend->targetHeight = height;
    backend->viewport = backend->scissor = {0, 0, width, height};
    backend->depthFar = 1;
    qelTransform_setIdentity(&backend->view);
    qelTransform_setIdentity(&backend->projection);
    qelTransform_getColumnMajor(&backend->projection, backend->projectionColumns.data());
    backend->projectionType = ProjectionType::Generic;
    for (uint32_t i = 0; i < kMaxLights; ++i) glDisable(GL_LIGHT0 + i);
    GLState_sendNormalization(false);
    return backend;
}

void qelGLBackend_destroy(GLBackend* backend) {
    if (!backend) return;
    qelObject3D_unref(backend->targetImage);
    qelRendererTexture_destroy(backend->targetContents);
    qelFree(backend->readBack);
    qelFree(backend);
}

// --- Target ---

static void sendDefaultState() {
    static constexpr float kNoAmbient[] = {0, 0, 0, 0};  // ambient light comes from lights alone
    glDepthFunc(GL_LEQUAL);
    glDisable(GL_DITHER);
    glEnable(GL_SCISSOR_TEST);
    glLightModelfv(GL_LIGHT_MODEL_AMBIENT, kNoAmbient);
}

Result qelGLBackend_bind(GLBackend* backend, int32_t targetWidth, int32_t targetHeight) {
    if (targetWidth > kMaxViewportDimension || targetHeight > kMaxViewportDimension) return QEL_STATUS_OUT_OF_MEMORY;
    backend->targetWidth = targetWidth;
    backend->targetHeight = targetHeight;
    GLState_forgetAll(backend);
    sendDefaultState();
    GLState_sendViewport(backend);
    return QEL_STATUS_OK;
}

Result qelGLBackend_bindImage(GLBackend* backend, Image2D* image) {
    const Result bound = qelGLBackend_bind(backend, image->width, image->height);
    if (bound != QEL_STATUS_OK) return bound;
    // All of it, whatever part is to be drawn to: the release reads all of it back.
    const PixelRect scissor = backend->scissor;
    backend->scissor = {0, 0, image->width, image->height};
    const BackdropView whole = {0, 0, image->width, image->height, ImageMode::Border, ImageMode::Border, 0};
    const Result drawn = GLImageDraw_backdrop(backend, image, whole, backend->targetContents, true);
    backend->scissor = scissor;
    GLState_sendViewport(backend);
    if (drawn == QEL_STATUS_OK) qelObject3D_exchange(backend->targetImage, image);
    return drawn;
}

Result qelGLBackend_release(GLBackend* backend) {
    if (!backend->targetImage) return QEL_STATUS_OK;
    const Result result = GLReadback_intoTargetImage(backend);
    qelObject3D_unref(backend->targetImage);
    backend->targetImage = nullptr;
    return result;
}

// --- Settings ---

void qelGLBackend_setMode(GLBackend* backend, int32_t mode) {
    if (backend->mode != mode) backend->modeChanged = true;
    backend->mode = mode;
}

void qelGLBackend_setViewport(GLBackend* backend, const PixelRect& viewport, const PixelRect& scissor) {
    backend->viewport = viewport;
    backend->scissor = scissor;
}

void qelGLBackend_setDepthRange(GLBackend* backend, float near, float far) {
    backend->depthNear = near;
    backend->depthFar = far;
}

void qelGLBackend_setTextureMemoryLimit(GLBackend* backend, uint32_t bytes) { backend->textureMemoryLimit = bytes; }

void qelGLBackend_setCamera(GLBackend* backend, const qelTransform* view, const qelTransform* projection,
                            ProjectionType projectionType) {
    if (!GLState_sameElements(backend->view, *view)) {
        backend->view = *view;
        backend->viewChanged = true;
        backend->modelViewSource.isKnown = false;
    }
    backend->projection = *projection;
    qelTransform_getColumnMajor(projection, backend->projectionColumns.data());
    backend->projectionType = projectionType;
}

// --- Drawing ---

// Returns what is left for glClear to do.
static GLbitfield prepareDepthClear(GLBackend* backend, const Background* background) {
    const bool clears = backend->mode == kModeColorDepth && (!background || background->depthClearEnabled);
    if (!clears) return 0;
    GLState_sendDepthMaskForClear(backend);
    return GL_DEPTH_BUFFER_BIT;
}

static Result prepareColorClear(GLBackend* backend, Background* background, GLbitfield* mask) {
    static constexpr uint32_t kOpaqueBlack = 0xFF000000;
    if (background && !background->colorClearEnabled) return QEL_STATUS_OK;
    if (background && background->image) return GLImageDraw_background(backend, background);
    GLState_sendClearColor(backend, background ? background->color : kOpaqueBlack);
    *mask |= GL_COLOR_BUFFER_BIT;
    return QEL_STATUS_OK;
}

Result qelGLBackend_clear(GLBackend* backend, uint32_t flags, Background* background) {
    GLbitfield mask = flags & kClearDepth ? prepareDepthClear(backend, background) : 0;
    if (flags & kClearColor) {
        const Result result = prepareColorClear(backend, background, &mask);
        if (result != QEL_STATUS_OK) return result;
    }
    if (mask) glClear(mask);
    return QEL_STATUS_OK;
}

// Everything that comes before the vertex arrays.
static Result sendState(GLBackend* backend, const Appearance* appearance, const SurfaceColor& color,
                        const TextureUnits& units) {
    GLState_sendProjection(backend);
    GLState_sendLights(backend);
    GLState_sendViewport(backend);
    GLState_sendMaterial(backend, appearance, color);
    GLState_sendPolygonMode(backend, appearance->polygonMode);
    GLState_sendFog(backend, appearance->fog);
    GLState_sendCompositing(backend, appearance->compositingMode);
    return GLTextureUnits_send(backend, units);
}

Result qelGLBackend_drawSubmesh(GLBackend* backend, const SubmeshDraw& draw) {
    const uint32_t alphaScale = GLState_alphaScale(draw.appearance, draw.alphaFactor);
    const TextureUnits units = GLTextureUnits_ofSubmesh(draw);
    const SurfaceColor color = {draw.colors != nullptr, GLTextureUnits_replaceColor(units),
                                draw.vertexBuffer->defaultColor, alphaScale};
    Result result = sendState(backend, draw.appearance, color, units);
    if (result == QEL_STATUS_OK) result = GLGeometry_sendArrays(backend, draw, alphaScale);
    if (result == QEL_STATUS_OK) result = GLGeometry_draw(draw);
    return result;
}

Result qelGLBackend_drawImmediate(GLBackend* backend, const ImmediateDraw& draw) {
    const TextureUnits units = GLTextureUnits_ofImmediate(draw);
    const SurfaceColor color = {draw.colors != nullptr, GLTextureUnits_replaceColor(units), draw.defaultColor,
                                kFullAlpha};
    const Result result = sendState(backend, draw.appearance, color, units);
    if (result == QEL_STATUS_OK) GLGeometry_drawImmediate(backend, draw);
    return result;
}

Result qelGLBackend_drawSprite(GLBackend* backend, Sprite3D* sprite, const qelTransform* modelTransform,
                               float alphaFactor) {
    return GLImageDraw_sprite(backend, sprite, modelTransform, alphaFactor);
}
