// K8RenderState_flush: draws the queue.
#include "render/command_queue.h"
#include "scene/appearance.h"
#include "scene/compositing_mode.h"
#include "scene/transform.h"

static float toFloat(int32_t fixed) { return float(fixed) * 0.000244140625f; }

// --- State of an entry ---

static void setLights(const RenderState* state, const CommandState& given) {
    GLBackend* backend = qelGraphics3D_backend(state->graphics);
    const bool lit = given.attributeMask & kMaskLighting;
    qelTransform identity;
    qelTransform_setIdentity(&identity);
    if (lit) {
        qelLight_setIntensity(state->ambientLight, given.ambientIntensity);
        qelLight_setIntensity(state->directionalLight, given.directionalIntensity);
    }
    qelGLBackend_setEyeSpaceLight(backend, lit ? given.lightDirection : nullptr);
    qelGLBackend_setLight(backend, 0, lit ? state->ambientLight : nullptr, &identity);
    qelGLBackend_setLight(backend, 1, lit ? state->directionalLight : nullptr, &identity);
}

// No lights, the scene's included: those are chosen again for every node.
static void clearLights(const RenderState* state) {
    GLBackend* backend = qelGraphics3D_backend(state->graphics);
    qelGLBackend_setEyeSpaceLight(backend, nullptr);
    for (int32_t i = 0; i < kMaxLights; ++i) qelGLBackend_setLight(backend, i, nullptr, nullptr);
}

static void setFog(const RenderState* state, const CommandState& given) {
    if (!(given.attributeMask & kMaskFog)) return;
    const bool isLinear = given.fogMode == RenderStateFog::Linear;
    qelFog_setMode(state->fog, int32_t(isLinear ? FogMode::Linear : FogMode::Exponential));
    qelFog_setColor(state->fog, given.fogColor);
    qelFog_setDensity(state->fog, toFloat(given.fogDensity));
    qelFog_setLinear(state->fog, toFloat(given.fogNear), toFloat(given.fogFar));
}

// --- Drawing ---

static Appearance* appearanceOf(const RenderState* state, const RenderCommandEntry& entry) {
    return state->appearances[entry.appearance].appearance;
}

template <typename T = int16_t>
static const T* arrayAt(const VertexPool& pool, int32_t offset) {
    return offset == kNoArray ? nullptr : reinterpret_cast<const T*>(pool.values + offset);
}

static ImmediateDraw drawOf(const RenderState* state, const RenderCommandEntry& entry) {
    const bool modulates = entry.state.attributeMask & (kMaskLighting | kMaskBlending);
    ImmediateDraw draw = {};
    draw.kind = entry.kind;
    draw.count = entry.count;
    draw.positions = arrayAt(state->positions, entry.positions);
    draw.normals = arrayAt(state->normals, entry.normals);
    draw.colors = arrayAt<uint8_t>(state->colors, entry.colors);
    draw.defaultColor = uint32_t(entry.vertexAlpha) << 24 | 0xFFFFFF;
    draw.appearance = appearanceOf(state, entry);
    draw.textures[0] = entry.texture;
    draw.textures[1] = entry.environmentTexture;
    draw.blendings[0] = modulates ? TextureBlending::Modulate : TextureBlending::Replace;
    if (entry.environmentTexture) draw.blendings[1] = entry.environmentTexture->blending;
    for (int32_t unit = 0; unit < kMaxTextureUnits; ++unit)
        draw.textureCoords[unit] = arrayAt(state->textureCoords, entry.textureCoords[unit]);
    return draw;
}

static bool drawEntry(const RenderState* state, const RenderCommandEntry& entry) {
    GLBackend* backend = qelGraphics3D_backend(state->graphics);
    qelGLBackend_setCamera(backend, &entry.state.view, &entry.state.projection, ProjectionType::Generic);
    setLights(state, entry.state);
    setFog(state, entry.state);
    return qelGLBackend_drawImmediate(backend, drawOf(state, entry)) == QEL_STATUS_OK;
}

static bool blends(const RenderState* state, const RenderCommandEntry& entry) {
    return appearanceOf(state, entry)->compositingMode->blending != Blending::Replace;
}

static bool drawEntries(const RenderState* state, bool blended) {
    for (const RenderCommandEntry& entry : std::span(state->queue, state->queueCount))
        if (blends(state, entry) == blended && !drawEntry(state, entry)) return false;
    return true;
}

// --- Target ---

static bool bindTarget(const RenderState* state, const PixelRect& area) {
    constexpr int32_t kNoHints = 0;
    return qelGraphics3D_bindTarget(state->graphics, state->target, area, state->bufferWidth, state->height, true,
                                    kNoHints) == QEL_STATUS_OK;
}

static bool prepareTarget(const RenderState* state) {
    return qelGraphics3D_setViewport(state->graphics, {0, 0, state->width, state->height}) == QEL_STATUS_OK &&
           qelGraphics3D_clear(state->graphics, kClearDepth, state->background) == QEL_STATUS_OK;
}

static bool drawQueue(const RenderState* state) {
    const ClipEdges& clip = state->effectiveClip;
    const PixelRect area = {clip.left, clip.top, clip.right - clip.left, clip.bottom - clip.top};
    if (area.width <= 0 || area.height <= 0) return true;  // nothing of it is seen
    if (!bindTarget(state, area)) return false;
    clearLights(state);
    const bool drawn = prepareTarget(state) && drawEntries(state, false) && drawEntries(state, true);
    clearLights(state);
    return qelGraphics3D_releaseTarget(state->graphics) == QEL_STATUS_OK && drawn;
}

bool K8RenderState_flush(RenderState* state) {
    if (!K8RenderState_isComplete(state)) return false;
    const bool drawn = state->queueCount == 0 || drawQueue(state);
    CommandQueue_empty(state);
    return drawn;
}
