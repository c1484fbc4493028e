#include "render/gl_state.h"

#include <GLES/gl.h>

#include <algorithm>

static constexpr std::array<float, 4> kNoLight = {0, 0, 0, 0};

static void setEnabled(GLenum capability, bool enabled) {
    if (enabled)
        glEnable(capability);
    else
        glDisable(capability);
}

static float channelOf(uint32_t argb, int shift) { return float(argb >> shift & 0xFF) * (1.0f / 255); }

std::array<float, 4> GLState_channels(uint32_t argb) {
    return {channelOf(argb, 16), channelOf(argb, 8), channelOf(argb, 0), channelOf(argb, 24)};
}

static uint32_t withScaledAlpha(uint32_t argb, uint32_t scale) {
    return (argb & 0xFFFFFF) | GLState_scaleAlpha(argb >> 24, scale) << 24;
}

static Blending blendingOf(const CompositingMode* mode) { return mode ? mode->blending : Blending::Replace; }

uint32_t GLState_alphaScale(const Appearance* appearance, float alphaFactor) {
    if (blendingOf(appearance->compositingMode) == Blending::Replace) return kFullAlpha;
    return uint32_t(alphaFactor * float(kFullAlpha));
}

bool GLState_usesVertexColors(const Appearance* appearance) {
    return !appearance->material || appearance->material->vertexColorTracking;
}

void GLState_forgetComponents(GLBackend* backend) {
    backend->material.known = backend->polygon.known = backend->fog.known = backend->compositing.known = false;
}

void GLState_forgetAll(GLBackend* backend) {
    GLState_forgetComponents(backend);
    backend->lightingInUse = false;  // normalisation matters, and is sent, only with a light
    backend->lightsChanged = true;
    for (LightSlot& slot : backend->lights) {
        slot.parametersChanged = slot.transformChanged = slot.inUse;
        slot.on = 1;  // for all that is known: a slot that is not in use is switched off
    }
}

void GLState_loadMatrix(const qelTransform& matrix) {
    float columns[16];
    qelTransform_getColumnMajor(&matrix, columns);
    glLoadMatrixf(columns);
}

bool GLState_sameElements(const qelTransform& a, const qelTransform& b) {
    return std::equal(std::begin(a.elements), std::end(a.elements), b.elements);
}

void GLState_sendProjection(const GLBackend* backend) {
    glMatrixMode(GL_PROJECTION);
    glLoadMatrixf(backend->projectionColumns.data());
}

// --- Lights ---

void qelGLBackend_setLight(GLBackend* backend, int32_t slotIndex, const Light* light,
                           const qelTransform* lightToWorld) {
    LightSlot& slot = backend->lights[size_t(slotIndex)];
    if (!light) {
        if (slot.inUse) backend->lightsChanged = true;
        slot.inUse = 0;
        return;
    }
    const LightState state = {
        light->mode,      light->color,        light->intensity,
        light->spotAngle, light->spotExponent, {light->attenuation[0], light->attenuation[1], light->attenuation[2]}};
    const bool isNew = !slot.inUse;
    // An ambient light was never placed: its place goes with the mode.
    if (isNew || slot.state.mode != state.mode || !GLState_sameElements(slot.transform, *lightToWorld)) {
        slot.transform = *lightToWorld;
        slot.transformChanged = 1;
    }
    if (isNew || slot.state != state) slot.parametersChanged = 1;
    if (slot.parametersChanged || slot.transformChanged) backend->lightsChanged = true;
    slot.state = state;
    slot.inUse = 1;
}

void qelGLBackend_setEyeSpaceLight(GLBackend* backend, const int32_t direction[3]) {
    EyeSpaceLight wanted = {};
    if (direction) wanted = {true, {direction[0], direction[1], direction[2]}};
    if (backend->eyeSpaceLight == wanted) return;
    backend->eyeSpaceLight = wanted;
    for (LightSlot& slot : backend->lights)
        if (slot.inUse && slot.state.mode == LightMode::Directional)
            slot.transformChanged = backend->lightsChanged = true;
}

static void placeInEyeSpace(GLenum name, const EyeSpaceLight& light) {
    const GLfloat towardLight[] = {GLfloat(light.direction[0]), GLfloat(light.direction[1]),
                                   GLfloat(light.direction[2]), 0};
    glMatrixMode(GL_MODELVIEW);
    glLoadIdentity();
    glLightfv(name, GL_POSITION, towardLight);
}

// A light stands in its own coordinates: at the origin, shining along -z.
static void placeLight(const GLBackend* backend, GLenum name, const LightSlot& slot) {
    static constexpr float kTowardLight[] = {0, 0, 1, 0};
    static constexpr float kOrigin[] = {0, 0, 0, 1};
    static constexpr float kForward[] = {0, 0, -1};
    if (backend->eyeSpaceLight.isSet && slot.state.mode == LightMode::Directional)
        return placeInEyeSpace(name, backend->eyeSpaceLight);
    qelTransform lightToEye;
    qelTransform_multiplyInto(&lightToEye, &backend->view, &slot.transform);
    glMatrixMode(GL_MODELVIEW);
    GLState_loadMatrix(lightToEye);
    if (slot.state.mode == LightMode::Spot) glLightfv(name, GL_SPOT_DIRECTION, kForward);
    glLightfv(name, GL_POSITION, slot.state.mode == LightMode::Directional ? kTowardLight : kOrigin);
}

static void sendAttenuation(GLenum name, float constant, float linear, float quadratic) {
    glLightf(name, GL_CONSTANT_ATTENUATION, constant);
    glLightf(name, GL_LINEAR_ATTENUATION, linear);
    glLightf(name, GL_QUADRATIC_ATTENUATION, quadratic);
}

static void sendLocalLight(GLenum name, const LightState& light, const float* color, float exponent, float cutoff) {
    glLightf(name, GL_SPOT_EXPONENT, exponent);
    glLightf(name, GL_SPOT_CUTOFF, cutoff);
    sendAttenuation(name, light.attenuation[0], light.attenuation[1], light.attenuation[2]);
    glLightfv(name, GL_DIFFUSE, color);
    glLightfv(name, GL_SPECULAR, color);
    glLightfv(name, GL_AMBIENT, kNoLight.data());
}

static void sendLightParameters(GLenum name, const LightState& light) {
    static constexpr float kNoCone = 180;
    const auto bright = [&](int shift) { return float(light.color >> shift & 0xFF) * light.intensity / 255; };
    const float color[] = {bright(16), bright(8), bright(0), bright(24)};
    glEnable(name);
    switch (light.mode) {
        case LightMode::Ambient:
            glLightfv(name, GL_AMBIENT, color);
            glLightfv(name, GL_DIFFUSE, kNoLight.data());
            glLightfv(name, GL_SPECULAR, kNoLight.data());
            sendAttenuation(name, 1, 0, 0);
            glLightf(name, GL_SPOT_CUTOFF, kNoCone);
            break;
        case LightMode::Directional:
            glLightfv(name, GL_DIFFUSE, color);
            glLightfv(name, GL_SPECULAR, color);
            glLightfv(name, GL_AMBIENT, kNoLight.data());
            sendAttenuation(name, 1, 0, 0);
            glLightf(name, GL_SPOT_CUTOFF, kNoCone);
            break;
        case LightMode::Omni: sendLocalLight(name, light, color, 0, kNoCone); break;
        case LightMode::Spot: sendLocalLight(name, light, color, light.spotExponent, light.spotAngle); break;
    }
}

static void sendLight(const GLBackend* backend, GLenum name, LightSlot& slot) {
    if (!slot.inUse) {
        if (slot.on) glDisable(name);
        slot.on = slot.parametersChanged = slot.transformChanged = 0;
        return;
    }
    if ((slot.transformChanged || backend->viewChanged) && slot.state.mode != LightMode::Ambient)
        placeLight(backend, name, slot);
    if (slot.parametersChanged) sendLightParameters(name, slot.state);
    slot.on = 1;
    slot.parametersChanged = slot.transformChanged = 0;
}

void GLState_sendNormalization(bool enabled) {
    setEnabled(GL_NORMALIZE, enabled);
    if (!enabled) glDisable(GL_RESCALE_NORMAL);
}

void GLState_sendLights(GLBackend* backend) {
    if (!backend->lightsChanged && !backend->viewChanged) return;
    backend->lightsChanged = false;
    bool anyOn = false;
    for (uint32_t i = 0; i < kMaxLights; ++i) {
        sendLight(backend, GL_LIGHT0 + i, backend->lights[i]);
        anyOn |= backend->lights[i].on != 0;
    }
    backend->viewChanged = false;
    if (anyOn == backend->lightingInUse) return;
    GLState_sendNormalization(anyOn);
    backend->lightingInUse = anyOn;
}

// --- Viewport ---

// The engine counts rows from the top, OpenGL ES from the bottom.
void GLState_sendViewport(const GLBackend* backend) {
    const int32_t height = backend->targetHeight;
    const PixelRect& view = backend->viewport;
    const PixelRect& clip = backend->scissor;
    glViewport(view.x, height - view.y - view.height, view.width, view.height);
    const bool isEmpty = clip.width < 0 || clip.height < 0;
    glScissor(clip.x, height - clip.y - clip.height, isEmpty ? 0 : clip.width, isEmpty ? 0 : clip.height);
    glDepthRangef(backend->depthNear, backend->depthFar);
}

// --- Material and lighting ---

static void sendMaterialColor(GLenum target, uint32_t argb) {
    glMaterialfv(GL_FRONT_AND_BACK, target, GLState_channels(argb).data());
}

void GLState_sendMaterial(GLBackend* backend, const Appearance* appearance, const SurfaceColor& color) {
    Material* material = appearance->material;
    const bool lit = material && !color.isReplaced;
    setEnabled(GL_LIGHTING, lit);

    MaterialState state = {};
    const bool usesVertexColors = GLState_usesVertexColors(appearance);
    state.hasColorArray = usesVertexColors && color.hasColors;
    state.tracksColor = material ? usesVertexColors : color.hasColors;
    if (material) {
        state.hasMaterial = 1;
        state.ambient = material->ambientColor;
        state.diffuse = withScaledAlpha(material->diffuseColor, color.alphaScale);
        state.emissive = material->emissiveColor;
        state.specular = material->specularColor;
        state.shininess = material->shininess;
        material->stateChanged = 0;
    }
    if (usesVertexColors) {
        state.sendsColor = 1;
        state.color = withScaledAlpha(color.defaultColor, color.alphaScale);
    } else if (!lit) {  // a texture without alpha of its own still fades with the material
        state.sendsColor = 1;
        state.color = state.diffuse;
    }
    if (!backend->material.replace(state)) return;

    setEnabled(GL_COLOR_MATERIAL, state.tracksColor);
    if (state.sendsColor) {
        const std::array<float, 4> channels = GLState_channels(state.color);
        glColor4f(channels[0], channels[1], channels[2], channels[3]);
    }
    if (!material) return;
    sendMaterialColor(GL_AMBIENT, state.ambient);
    sendMaterialColor(GL_DIFFUSE, state.diffuse);
    sendMaterialColor(GL_EMISSION, state.emissive);
    sendMaterialColor(GL_SPECULAR, state.specular);
    glMaterialf(GL_FRONT_AND_BACK, GL_SHININESS, state.shininess);
}

// --- Polygon mode ---

static void sendCulling(Culling culling) {
    switch (culling) {
        case Culling::None: glDisable(GL_CULL_FACE); break;
        case Culling::Back:
            glEnable(GL_CULL_FACE);
            glCullFace(GL_BACK);
            break;
        case Culling::Front:
            glEnable(GL_CULL_FACE);
            glCullFace(GL_FRONT);
            break;
    }
}

void GLState_sendPolygonMode(GLBackend* backend, PolygonMode* mode) {
    PolygonState state = {Culling::Back, Winding::Ccw, Shading::Smooth, 0, 0};
    if (mode) {
        const bool corrects = mode->perspectiveCorrectionEnabled && backend->projectionType != ProjectionType::Parallel;
        state = {mode->culling, mode->winding, mode->shading, mode->twoSidedLightingEnabled, corrects};
        mode->stateChanged = 0;
    }
    if (!backend->polygon.replace(state)) return;
    sendCulling(state.culling);
    glFrontFace(state.winding == Winding::Ccw ? GL_CCW : GL_CW);
    glShadeModel(state.shading == Shading::Flat ? GL_FLAT : GL_SMOOTH);
    glLightModelf(GL_LIGHT_MODEL_TWO_SIDE, state.twoSided ? 1.0f : 0.0f);
    glHint(GL_PERSPECTIVE_CORRECTION_HINT, state.correctsPerspective ? GL_NICEST : GL_FASTEST);
}

// --- Fog ---

void GLState_sendFog(GLBackend* backend, Fog* fog) {
    FogState state = {};
    if (fog) {
        state.enabled = 1;
        state.mode = fog->mode;
        state.color = fog->color;
        if (fog->mode == FogMode::Linear) {
            state.near = fog->near;
            state.far = fog->far;
        } else {
            state.density = fog->density;
        }
        fog->stateChanged = 0;
    }
    if (!backend->fog.replace(state)) return;
    setEnabled(GL_FOG, state.enabled);
    if (!state.enabled) return;
    glFogfv(GL_FOG_COLOR, GLState_channels(0xFF000000 | state.color).data());
    switch (state.mode) {
        case FogMode::Linear:
            glFogf(GL_FOG_MODE, GL_LINEAR);
            glFogf(GL_FOG_START, state.near);
            glFogf(GL_FOG_END, state.far);
            break;
        case FogMode::Exponential:
            glFogf(GL_FOG_MODE, GL_EXP);
            glFogf(GL_FOG_DENSITY, state.density);
            break;
    }
}

// --- Compositing ---

// Without a depth buffer every depth feature is off.
static void sendDepth(const GLBackend* backend, const CompositingState& state) {
    const bool hasDepth = backend->mode == kModeColorDepth;
    setEnabled(GL_DEPTH_TEST, hasDepth && state.depthTest);
    glDepthMask(hasDepth && state.depthWrite ? GL_TRUE : GL_FALSE);
    const bool isOffset = hasDepth && state.offsetFactor != 0;
    setEnabled(GL_POLYGON_OFFSET_FILL, isOffset);
    if (isOffset) glPolygonOffset(state.offsetFactor, state.offsetUnits);
}

struct BlendFactors {
    GLenum source, destination;
};

static BlendFactors blendFactorsOf(Blending blending) {
    switch (blending) {
        case Blending::Alpha: return {GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA};
        case Blending::AlphaAdd: return {GL_SRC_ALPHA, GL_ONE};
        case Blending::Modulate: return {GL_DST_COLOR, GL_ZERO};
        case Blending::ModulateX2: return {GL_DST_COLOR, GL_SRC_COLOR};
        case Blending::Replace: return {GL_ONE, GL_ZERO};
        case Blending::Add: return {GL_ONE, GL_ONE};
        case Blending::AddWeighted: return {GL_SRC_ALPHA, GL_ONE};
    }
    return {GL_ONE, GL_ZERO};
}

static void sendColor(const CompositingState& state) {
    const GLboolean color = state.colorWrite ? GL_TRUE : GL_FALSE;
    glColorMask(color, color, color, state.alphaWrite ? GL_TRUE : GL_FALSE);
    const BlendFactors factors = blendFactorsOf(state.blending);
    glBlendFunc(factors.source, factors.destination);
    setEnabled(GL_BLEND, state.blending != Blending::Replace);
    if (state.alphaThreshold > 0)
        glAlphaFunc(GL_GEQUAL, float(state.alphaThreshold) / 255);
    else
        glAlphaFunc(GL_ALWAYS, 0);
    setEnabled(GL_ALPHA_TEST, state.alphaThreshold > 0);
}

void GLState_sendCompositing(GLBackend* backend, CompositingMode* mode) {
    CompositingState state = {Blending::Replace, 0, 1, 1, 1, 1, 0, 0};
    if (mode) {
        state = {mode->blending,         mode->alphaThresholdByte, mode->alphaWriteEnabled, mode->colorWriteEnabled,
                 mode->depthTestEnabled, mode->depthWriteEnabled,  mode->depthOffsetFactor, mode->depthOffsetUnits};
        mode->stateChanged = 0;
    }
    const bool changed = backend->compositing.replace(state);
    if (changed || backend->modeChanged) sendDepth(backend, state);
    if (changed) sendColor(state);
    backend->modeChanged = false;
}

// --- Clearing ---

void GLState_sendDepthMaskForClear(GLBackend* backend) {
    glDepthMask(GL_TRUE);
    backend->compositing.state.depthWrite = 1;
}

void GLState_sendClearColor(GLBackend* backend, uint32_t argb) {
    GLState_sendViewport(backend);
    const std::array<float, 4> color = GLState_channels(argb);
    glClearColor(color[0], color[1], color[2], color[3]);
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    backend->compositing.state.colorWrite = backend->compositing.state.alphaWrite = 1;
}
