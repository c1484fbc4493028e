#include "render/render_context.h"

#include <cstring>

#include "frame/allocator.h"
#include "frame/error_status.h"
#include "render/draw_list.h"
#include "scene/texture2d.h"

// The Graphics3D of the process and how many contexts use it beside the first.
static Graphics3D* sharedGraphics;
static uint32_t additionalUsers;

static Graphics3D* acquireGraphics(int32_t width, int32_t height) {
    if (sharedGraphics)
        ++additionalUsers;
    else
        sharedGraphics = qelGraphics3D_create(kHintTrueColor, width, height);
    return sharedGraphics;
}

static void giveBackGraphics() {
    if (additionalUsers) {
        --additionalUsers;
        return;
    }
    qelGraphics3D_destroy(sharedGraphics);
    sharedGraphics = nullptr;
}

// The header's object word serves as the binding: a Graphics3D is no Object3D, and nothing treats it as one.
Graphics3D* K8Render_graphics(const K8Render* handle) { return reinterpret_cast<Graphics3D*>(handle->header.object); }

static void setGraphics(K8Render* handle, Graphics3D* graphics) {
    handle->header.object = reinterpret_cast<Object3D*>(graphics);
}

static bool allocLightTables(K8RenderContext* context, K8Allocator* allocator) {
    const auto n = uint32_t(context->maxLights);
    context->lights = K8Allocator_allocArrayOf<Light*>(allocator, n);
    if (context->lights) context->lightTransforms = K8Allocator_allocArrayOf<K8Transform*>(allocator, n);
    if (context->lightTransforms) context->lightWords = K8Allocator_allocArrayOf<uint32_t>(allocator, n);
    if (!context->lightWords) return false;
    for (uint32_t i = 0; i < n; ++i) {
        context->lightTransforms[i] = K8Transform_create(nullptr, allocator);
        if (!context->lightTransforms[i]) return false;
    }
    context->collectedLights = K8Allocator_allocArrayOf<Light*>(allocator, n);
    if (context->collectedLights)
        context->collectedTransforms = K8Allocator_allocArrayOf<const K8Transform*>(allocator, n);
    if (!context->collectedTransforms) return false;
    context->pool = RecordPool_create(allocator, K8DrawList_recordSizes());
    return context->pool != nullptr;
}

// What textured drawing uses where there is no texture: a texel that changes nothing.
static Texture2D* createWhiteTexture() {
    const uint8_t white = 255;
    Result result;
    Image2D* image = qelImage2D_createFromPixels(int32_t(ImageFormat::Alpha), 1, 1, &white, true, &result);
    if (!image) return nullptr;
    Texture2D* texture = qelTexture2D_create(image, &result);
    if (texture) qelTexture2D_setBlending(texture, int32_t(TextureBlending::Modulate));
    qelObject3D_unref(image);
    return texture;
}

// Frees what hangs off the context, in reverse order of creation; members never made are null.
static void releaseContext(K8RenderContext* context, K8Allocator* allocator) {
    K8GrowingBlock_free(context->sceneChanges, allocator);
    K8GrowingBlock_free(context->sceneTextures, allocator);
    qelObject3D_unref(context->whiteTexture);
    RecordPool_destroy(context->pool);
    K8Allocator_free(allocator, context->collectedTransforms);
    K8Allocator_free(allocator, context->collectedLights);
    for (int32_t i = 0; context->lightTransforms && i < context->maxLights; ++i)
        K8Transform_destroy(context->lightTransforms[i]);
    K8Allocator_free(allocator, context->lightWords);
    K8Allocator_free(allocator, context->lightTransforms);
    K8Allocator_free(allocator, context->lights);
    const bool isOurs = context->isOurs;
    *context = {};
    if (isOurs) K8Allocator_free(allocator, context);
}

static K8RenderContext* createContext(K8RenderContext* memory, K8Allocator* allocator) {
    const FailureMark mark = FailureMark_now();
    void* block = memory ? memory : K8Allocator_alloc(allocator, sizeof(K8RenderContext));
    if (!block) {
        K8ErrStorage_failOutOfMemory();
        return nullptr;
    }
    auto* context = static_cast<K8RenderContext*>(block);
    *context = {};
    context->isOurs = !memory;
    context->maxLights = qelGraphics3D_getProperties().maxLights;
    context->textureUnits = qelGraphics3D_getProperties().numTextureUnits;
    if (!allocLightTables(context, allocator)) {
        K8ErrStorage_failOutOfMemory();
        releaseContext(context, allocator);
        return nullptr;
    }
    context->whiteTexture = createWhiteTexture();
    if (!context->whiteTexture) {
        K8ErrStorage_storeFailure(mark);
        releaseContext(context, allocator);
        return nullptr;
    }
    return context;
}

K8Render* K8Render_create(K8Render* memory, K8Allocator* allocator) {
    if (!allocator) {
        K8ErrStorage_fail();
        return nullptr;
    }
    auto* handle = memory ? memory : static_cast<K8Render*>(K8Allocator_alloc(allocator, sizeof(K8Render)));
    if (!handle) {
        K8ErrStorage_failOutOfMemory();
        return nullptr;
    }
    K8RenderContext* context = createContext(memory ? memory->context : nullptr, allocator);
    if (!context) {
        if (!memory) K8Allocator_free(allocator, handle);
        return nullptr;
    }
    *handle = {};
    handle->header.allocator = allocator;
    handle->header.ownBlock = memory ? nullptr : handle;
    handle->context = context;
    return handle;
}

// --- Binding ---

void K8Render_setClip(K8RenderContext* context, const PixelRect& area) {
    const auto end = [](int32_t start, int32_t length) {
        const int64_t sum = int64_t(start) + length;
        return int32_t(sum < INT32_MIN ? INT32_MIN : sum > INT32_MAX ? INT32_MAX : sum);
    };
    K8RenderState_setClip(&context->renderState, area.x, area.y, end(area.x, area.width), end(area.y, area.height));
}

// Joins an unbound handle to the shared Graphics3D.
static bool attach(K8Render* handle, int32_t width, int32_t height) {
    const FailureMark mark = FailureMark_now();
    Graphics3D* graphics = acquireGraphics(width, height);
    if (!graphics) {
        K8ErrStorage_storeFailure(mark);
        return false;
    }
    handle->context->drawCamera = qelCamera_create();
    if (!handle->context->drawCamera) {
        giveBackGraphics();
        return K8ErrStorage_failOutOfMemory();
    }
    K8RenderState_reset(&handle->context->renderState, handle->header.allocator);
    setGraphics(handle, graphics);
    return true;
}

static void detach(K8Render* handle) {
    K8RenderContext* context = handle->context;
    K8RenderState_release(&context->renderState);
    qelObject3D_unref(context->drawCamera);
    context->drawCamera = nullptr;
    setGraphics(handle, nullptr);
    giveBackGraphics();
}

static bool bindRenderState(K8Render* handle, void* target, int32_t width, int32_t height, int32_t bufferWidth,
                            const PixelRect& rect) {
    const FailureMark mark = FailureMark_now();
    RenderState* state = &handle->context->renderState;
    qelStatus_set(QEL_STATUS_OK);
    K8Render_setClip(handle->context, rect);
    K8RenderState_setCentre(state, int16_t(width / 2), int16_t(height / 2));
    if (K8RenderState_bind(state, K8Render_graphics(handle), target, width, height, bufferWidth)) return true;
    K8ErrStorage_storeFailure(mark);
    return false;
}

bool K8Render_bind(K8Render* handle, void* target, int32_t width, int32_t height, int32_t bufferWidth, int32_t x,
                   int32_t y, int32_t w, int32_t h) {
    if (!handle || !handle->context || !target) return K8ErrStorage_fail();
    if (width <= 0 || height <= 0 || width > kMaxViewportDimension || height > kMaxViewportDimension)
        return K8ErrStorage_fail();
    const bool wasBound = K8Render_graphics(handle) != nullptr;
    if (!wasBound && !attach(handle, width, height)) return false;
    const PixelRect rect = {x, y, w, h};
    if (!bindRenderState(handle, target, width, height, bufferWidth, rect)) {
        if (!wasBound) detach(handle);
        return false;
    }
    K8RenderContext* context = handle->context;
    context->target = target;
    context->targetWidth = width;
    context->targetHeight = height;
    context->bindRect = rect;
    return true;
}

void K8Render_destroy(K8Render* handle) {
    if (!handle) return;
    K8Allocator* allocator = handle->header.allocator;
    void* ownBlock = handle->header.ownBlock;
    if (K8RenderContext* context = handle->context) {
        K8DrawList_discard(handle);
        if (K8Render_graphics(handle)) detach(handle);
        releaseContext(context, allocator);
    }
    *handle = {};
    if (ownBlock && allocator) K8Allocator_free(allocator, ownBlock);
}

int32_t K8Render_getMaxLights(void) { return qelGraphics3D_getProperties().maxLights; }

bool K8Render_limitTexMemory(K8Render* handle, uint32_t bytes) {
    if (!handle || !K8Render_graphics(handle)) return K8ErrStorage_fail();
    qelGLBackend_setTextureMemoryLimit(qelGraphics3D_backend(K8Render_graphics(handle)), bytes);
    return true;
}
