// The only place, with texture_upload.cpp, that calls OpenGL ES 1.1. It keeps what it last sent of each component and sends what changed. All calls go to the context
// that is current on the calling thread.
#pragma once

#include "render/capabilities.h"
#include "scene/appearance.h"
#include "scene/background.h"
#include "scene/camera.h"
#include "scene/compositing_mode.h"
#include "scene/fog.h"
#include "scene/image2d.h"
#include "scene/light.h"
#include "scene/material.h"
#include "scene/polygon_mode.h"
#include "scene/sprite3d.h"
#include "scene/texture2d.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

constexpr int32_t kModeColor = 1;
constexpr int32_t kModeColorDepth = 3;

constexpr uint32_t kClearColor = 1;
constexpr uint32_t kClearDepth = 2;

// A rectangle of the target, origin at the top left.
struct PixelRect {
    int32_t x, y, width, height;
};

struct BackendCamera {
    qelTransform view;        // inverse of the camera transform
    qelTransform projection;
    ProjectionType projectionType;
    uint8_t changed;
    float near, far;
    float fovyOrHeight, aspectRatio;
};

// One of the eight lights, as last given to OpenGL ES.
struct LightSlot {
    qelTransform transform;  // light to world
    uint8_t inUse;
    uint8_t on;              // enabled in OpenGL ES
    uint8_t parametersChanged, transformChanged;
    LightMode mode;
    uint32_t color;
    float intensity, spotAngle, spotExponent;
    float attenuation[3];
    const Light* source;  // identity of the light last loaded; never followed
};

// What one draw consists of. Graphics3D fills it; everything is borrowed for the call.
struct SubmeshDraw {
    VertexBuffer* vertexBuffer;
    TriangleStripArray* indexBuffer;
    Appearance* appearance;
    const VertexArray* colors;  // the colour array to use, or null for the default colour; figures choose per submesh
    const qelTransform* modelTransform;
    float alphaFactor;
};

struct GLBackend;

// Disables the eight lights and normalisation. Null when memory runs out.
GLBackend* qelGLBackend_create(int32_t mode, int32_t hints, int32_t width, int32_t height);
void qelGLBackend_destroy(GLBackend* backend);

// Binding sends the default state, viewport and scissor. A target beyond kMaxViewportDimension: OUT_OF_MEMORY.
Result qelGLBackend_bind(GLBackend* backend, int32_t targetWidth, int32_t targetHeight);
// The same for an image, whose contents are drawn into the cleared colour buffer; release reads the frame back into it.
Result qelGLBackend_bindImage(GLBackend* backend, Image2D* image);
Result qelGLBackend_release(GLBackend* backend);

void qelGLBackend_setMode(GLBackend* backend, int32_t mode);  // a change marks the depth state dirty
void qelGLBackend_setViewport(GLBackend* backend, const PixelRect& viewport, const PixelRect& scissor);
void qelGLBackend_setDepthRange(GLBackend* backend, float near, float far);
void qelGLBackend_setTextureMemoryLimit(GLBackend* backend, uint32_t bytes);  // 0: none
BackendCamera* qelGLBackend_camera(GLBackend* backend);
LightSlot* qelGLBackend_lightSlot(GLBackend* backend, int32_t slot);
// Puts a light into a slot, or empties it for null; what changed is sent at the next draw.
void qelGLBackend_setLight(GLBackend* backend, int32_t slot, Light* light, const qelTransform* transform);

Result qelGLBackend_clear(GLBackend* backend, uint32_t flags, Background* background);
Result qelGLBackend_drawSubmesh(GLBackend* backend, const SubmeshDraw& draw);
Result qelGLBackend_drawSprite(GLBackend* backend, Sprite3D* sprite, const qelTransform* modelTransform, float alphaFactor);

// Objects call this when they go, so that a new object at the same address is not taken for the old one.
// The caches hold identities of: appearance components, textures, lights.
