#include "render/render_state.h"

#include <algorithm>

#include "frame/fixed_point.h"
#include "render/command_queue.h"
#include "render/render_state_projection.h"

// --- Life ---

void K8RenderState_reset(RenderState* state, K8Allocator* allocator) {
    *state = {};
    state->allocator = allocator;
    Atrans3i_setIdentity(&state->view);
    qelTransform_setIdentity(&state->viewMatrix);
    state->scaleX = state->scaleY = kFixedOne;
    state->projectionChanged = 1;
    state->attributeMask = kMaskBlending;
    state->directionalIntensity = 1;
    state->lightDirection[2] = -kFixedOne;  // from the viewer
    state->fogMode = RenderStateFog::Linear;
    state->fogFar = state->fogDensity = kFixedOne;
}

static bool makeLight(Light** light, LightMode mode) {
    if (*light) return true;
    *light = qelLight_create();
    if (!*light) return false;
    qelLight_setMode(*light, int32_t(mode));
    return true;
}

template <typename T>
static bool make(T** object, T* (*create)()) {
    if (!*object) *object = create();
    return *object != nullptr;
}

static bool makeObjects(RenderState* state) {
    return makeLight(&state->ambientLight, LightMode::Ambient) &&
           makeLight(&state->directionalLight, LightMode::Directional) && make(&state->camera, qelCamera_create) &&
           make(&state->fog, qelFog_create) && make(&state->background, qelBackground_create);
}

static void updateClip(RenderState* state);

bool K8RenderState_bind(RenderState* state, Graphics3D* graphics, void* target, int32_t width, int32_t height,
                        int32_t bufferWidth) {
    state->graphics = graphics;
    state->target = target;
    state->width = width;
    state->height = height;
    state->bufferWidth = bufferWidth >= width && bufferWidth <= kMaxViewportDimension ? bufferWidth : width;
    updateClip(state);
    RenderState_updateScales(state);
    return makeObjects(state);
}

bool K8RenderState_isComplete(const RenderState* state) {
    return state->allocator && state->ambientLight && state->directionalLight && state->camera && state->fog &&
           state->background && state->graphics;
}

static void emptyTextureSlots(RenderState* state) {
    for (Texture2D*& texture : state->textures) {
        qelObject3D_unref(texture);
        texture = nullptr;
    }
}

void K8RenderState_release(RenderState* state) {
    CommandQueue_empty(state);
    CommandQueue_release(state);
    for (int32_t i = 0; i < state->appearanceCount; ++i) qelObject3D_unref(state->appearances[i].appearance);
    emptyTextureSlots(state);
    qelObject3D_unref(state->environmentTexture);
    qelObject3D_unref(state->background);
    qelObject3D_unref(state->fog);
    qelObject3D_unref(state->camera);
    qelObject3D_unref(state->directionalLight);
    qelObject3D_unref(state->ambientLight);
    K8RenderState_reset(state, state->allocator);
}

// --- Clip ---

static void updateClip(RenderState* state) {
    const ClipEdges& clip = state->clip;
    state->effectiveClip = {std::clamp(clip.left, 0, state->width), std::clamp(clip.top, 0, state->height),
                            std::min(clip.right, state->width), std::min(clip.bottom, state->height)};
}

void K8RenderState_setClip(RenderState* state, int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
    const auto cut = [](int32_t value) { return std::clamp<int32_t>(value, INT16_MIN, INT16_MAX); };
    state->clip = {cut(x0), cut(y0), cut(x1), cut(y1)};
    updateClip(state);
}

// --- View, texture, fog ---

void K8RenderState_setViewTransform(RenderState* state, const Atrans3i* view) {
    if (std::equal(std::begin(view->m), std::end(view->m), state->view.m)) return;
    state->view = *view;
    Atrans3i2qelTransform(&state->viewMatrix, view);
}

void K8RenderState_setTexture(RenderState* state, Texture2D* texture) {
    Texture2D* usable = texture && texture->image ? texture : nullptr;
    qelObject3D_ref(usable);  // before the slots, one of which may hold it, let go
    emptyTextureSlots(state);
    state->textures[0] = usable;
    state->selectedSlot = 0;
}

void K8RenderState_setFog(RenderState* state, bool on) {
    state->attributeMask = on ? state->attributeMask | kMaskFog : state->attributeMask & ~kMaskFog;
}

void K8RenderState_setFogMode(RenderState* state, RenderStateFog mode) { state->fogMode = mode; }

void K8RenderState_setFogColor(RenderState* state, uint32_t rgb) { state->fogColor = rgb; }

void K8RenderState_setFogLinear(RenderState* state, int32_t near, int32_t far) {
    state->fogNear = near;
    state->fogFar = far;
}

void K8RenderState_setFogDensity(RenderState* state, int32_t density) {
    if (density >= 0) state->fogDensity = density;
}
