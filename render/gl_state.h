// What the backend remembers, and the functions that send one component each. Sent states are plain values: what
// differs from the last ones is sent, whichever object it comes from, so nothing has to be forgotten when an object
// goes and components of equal values cost nothing.
#pragma once

#include <array>

#include "render/gl_backend.h"
#include "scene/compositing_mode.h"
#include "scene/fog.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"
#include "scene/texture2d.h"
#include "scene/transform.h"

struct LightState {
    LightMode mode;
    uint32_t color;  // 0xRRGGBB
    float intensity, spotAngle, spotExponent;
    float attenuation[3];
    bool operator==(const LightState&) const = default;
};

// The place of directional lights while it is given in eye coordinates.
struct EyeSpaceLight {
    bool isSet;
    std::array<int32_t, 3> direction;  // towards the light
    bool operator==(const EyeSpaceLight&) const = default;
};

struct LightSlot {
    LightState state;
    qelTransform transform;  // light to world
    uint8_t inUse;
    uint8_t on;  // enabled in OpenGL ES
    uint8_t parametersChanged, transformChanged;
};

// Members that are not sent in a state's case are 0 in it.
struct MaterialState {
    uint8_t hasMaterial;
    uint8_t tracksColor;    // GL_COLOR_MATERIAL
    uint8_t hasColorArray;  // drawing from one leaves the current colour undefined
    uint8_t sendsColor;
    uint32_t ambient, diffuse, emissive, specular;  // 0xAARRGGBB
    float shininess;
    uint32_t color;  // the current colour, 0xAARRGGBB
    bool operator==(const MaterialState&) const = default;
};

struct PolygonState {
    Culling culling;
    Winding winding;
    Shading shading;
    uint8_t twoSided;
    uint8_t correctsPerspective;
    bool operator==(const PolygonState&) const = default;
};

struct FogState {
    uint8_t enabled;
    FogMode mode;
    uint32_t color;  // 0xRRGGBB
    float density, near, far;
    bool operator==(const FogState&) const = default;
};

struct CompositingState {
    Blending blending;
    int32_t alphaThreshold;  // 0..255
    uint8_t alphaWrite, colorWrite, depthTest, depthWrite;
    float offsetFactor, offsetUnits;
    bool operator==(const CompositingState&) const = default;
};

// The last state sent of one component; not known once something else may have touched it.
template <typename State>
struct Sent {
    State state;
    bool known;

    // Takes the wanted state over; false when OpenGL ES has it already.
    bool replace(const State& wanted) {
        if (known && state == wanted) return false;
        state = wanted;
        known = true;
        return true;
    }
};

// What a model-view matrix is made of, beside the view.
struct ModelViewSource {
    bool isKnown;
    std::array<float, 4> scaleBias;  // of the positions
    qelTransform model;
};

struct GLBackend {
    int32_t mode;
    bool modeChanged;  // the depth part of compositing has to be sent again
    int32_t targetWidth, targetHeight;
    PixelRect viewport, scissor;
    float depthNear, depthFar;
    Image2D* targetImage;  // a reference while an image is bound

    qelTransform view;  // world to camera
    qelTransform projection;
    std::array<float, 16> projectionColumns;  // as OpenGL ES takes it
    ProjectionType projectionType;
    ModelViewSource modelViewSource;
    std::array<float, 16> modelView;  // columns
    bool viewChanged;                 // lights have to be placed again
    std::array<LightSlot, kMaxLights> lights;
    EyeSpaceLight eyeSpaceLight;
    bool lightsChanged;  // some slot differs from what was sent
    bool lightingInUse;  // some light is on

    Sent<MaterialState> material;
    Sent<PolygonState> polygon;
    Sent<FogState> fog;
    Sent<CompositingState> compositing;

    uint32_t textureMemoryLimit;      // bytes, 0 for none
    RendererTexture* targetContents;  // what a bound image looked like
    uint8_t* readBack;                // RGBA rows, kept between image targets
    uint32_t readBackBytes;
};

// Material, polygon mode, fog and compositing count as unknown; forgetAll adds the lights.
void GLState_forgetComponents(GLBackend* backend);
void GLState_forgetAll(GLBackend* backend);

void GLState_loadMatrix(const qelTransform& matrix);
bool GLState_sameElements(const qelTransform& a, const qelTransform& b);

// What of a draw its material state depends on, beside the material.
struct SurfaceColor {
    bool hasColors;         // a colour array
    bool isReplaced;        // by a texture that leaves nothing for lights to do
    uint32_t defaultColor;  // 0xAARRGGBB
    uint32_t alphaScale;
};

// In the order of a draw. What absent components stand for is part of each.
void GLState_sendProjection(const GLBackend* backend);
void GLState_sendLights(GLBackend* backend);
void GLState_sendViewport(const GLBackend* backend);
void GLState_sendMaterial(GLBackend* backend, const Appearance* appearance, const SurfaceColor& color);
void GLState_sendPolygonMode(GLBackend* backend, PolygonMode* mode);
void GLState_sendFog(GLBackend* backend, Fog* fog);
void GLState_sendCompositing(GLBackend* backend, CompositingMode* mode);

// Normals are scaled back to unit length while lights are on.
void GLState_sendNormalization(bool enabled);
// Sends the clear colour with what a clear of the colour buffer depends on.
void GLState_sendClearColor(GLBackend* backend, uint32_t argb);
void GLState_sendDepthMaskForClear(GLBackend* backend);

// Whether a draw takes its colours from the vertices when there are any.
bool GLState_usesVertexColors(const Appearance* appearance);

// The factor that scales alpha, in 1/16384: blended draws fade with their node, opaque ones do not.
constexpr uint32_t kFullAlpha = 16384;
uint32_t GLState_alphaScale(const Appearance* appearance, float alphaFactor);
inline uint32_t GLState_scaleAlpha(uint32_t alpha, uint32_t scale) { return (alpha * scale) >> 14; }

// Four channels in 0..1, in the order r, g, b, a, from 0xAARRGGBB.
std::array<float, 4> GLState_channels(uint32_t argb);
