// Turns prepared scene state and geometry into OpenGL ES 1.1 calls. It remembers the values it last sent of each
// component and sends what differs; it never remembers objects, so an object may go, or another take its address, at
// any time. All calls go to the context that is current on the calling thread.
#pragma once

#include "scene/appearance.h"
#include "scene/background.h"
#include "scene/camera.h"
#include "scene/image2d.h"
#include "scene/light.h"
#include "scene/sprite3d.h"
#include "scene/texture2d.h"
#include "scene/triangle_strip_array.h"
#include "scene/vertex_array.h"
#include "scene/vertex_buffer.h"

constexpr int32_t kModeColor = 1;
constexpr int32_t kModeColorDepth = 3;

constexpr uint32_t kClearColor = 1;
constexpr uint32_t kClearDepth = 2;

// A rectangle of the target in pixels, origin at the top left.
struct PixelRect {
    int32_t x, y, width, height;
};

// What one draw consists of; everything is borrowed for the call.
struct SubmeshDraw {
    VertexBuffer* vertexBuffer;  // with positions, and texture coordinates for every unit that the appearance textures
    TriangleStripArray* indexBuffer;
    Appearance* appearance;
    VertexArray* colors;                 // the colour array to use, or null for the buffer's default colour
    const qelTransform* modelTransform;  // model to world
    float alphaFactor;                   // 0..1
};

// What an immediate draw consists of: 16-bit arrays that are no objects; everything is borrowed for the call.
enum class ImmediateKind : int32_t { Points = 0, Lines = 1, Triangles = 2, Sprites = 4 };
struct ImmediateDraw {
    ImmediateKind kind;
    int32_t count;                                   // of points, lines or triangles; a sprite is two triangles
    const int16_t* positions;                        // x, y, z
    const int16_t* normals;                          // or null
    const uint8_t* colors;                           // r, g, b, a; or null for the default colour
    uint32_t defaultColor;                           // 0xAARRGGBB
    Appearance* appearance;                          // its textures do not count
    Texture2D* textures[kMaxTextureUnits];           // a unit is used when it has both texture and coordinates
    TextureBlending blendings[kMaxTextureUnits];     // in place of the textures' own
    const int16_t* textureCoords[kMaxTextureUnits];  // s, t
};

struct GLBackend;

// Disables the eight lights and normalisation. Null when memory runs out.
GLBackend* qelGLBackend_create(int32_t mode, int32_t width, int32_t height);
void qelGLBackend_destroy(GLBackend* backend);

// Sends the default state and the viewport, scissor and depth range set before. What the host did since the last
// release to state that the backend sends does not matter: every component is sent again with the next draw. A side
// beyond kMaxViewportDimension: OUT_OF_MEMORY.
Result qelGLBackend_bind(GLBackend* backend, int32_t targetWidth, int32_t targetHeight);
// The same for an image of any size up to that, whose contents are drawn into the cleared colour buffer. The image is
// referenced until the release.
Result qelGLBackend_bindImage(GLBackend* backend, Image2D* image);
// Reads the frame back into a bound image and counts that as a change of its pixels. OUT_OF_MEMORY: the image is as it
// was.
Result qelGLBackend_release(GLBackend* backend);

// All stored, and sent with the next bind, draw or colour clear.
void qelGLBackend_setMode(GLBackend* backend, int32_t mode);
void qelGLBackend_setViewport(GLBackend* backend, const PixelRect& viewport, const PixelRect& scissor);
void qelGLBackend_setDepthRange(GLBackend* backend, float near, float far);
void qelGLBackend_setCamera(GLBackend* backend, const qelTransform* view, const qelTransform* projection,
                            ProjectionType projectionType);
// Puts a light into one of the eight slots, or empties it for null. Cheap when the slot holds a light of equal values.
void qelGLBackend_setLight(GLBackend* backend, int32_t slotIndex, const Light* light, const qelTransform* lightToWorld);

void qelGLBackend_setTextureMemoryLimit(GLBackend* backend, uint32_t bytes);  // 0: none

// OUT_OF_MEMORY when a background image cannot be uploaded.
Result qelGLBackend_clear(GLBackend* backend, uint32_t flags, Background* background);
// OUT_OF_MEMORY for textures and colour copies, ILLEGAL_STATE for indices beyond one of the arrays used.
Result qelGLBackend_drawSubmesh(GLBackend* backend, const SubmeshDraw& draw);
// Positions are in the coordinates that the camera's view takes. OUT_OF_MEMORY for textures.
Result qelGLBackend_drawImmediate(GLBackend* backend, const ImmediateDraw& draw);
// While set, directional lights shine from this direction, given towards the light in eye coordinates, and their
// transforms do not count. Null: their transforms count.
void qelGLBackend_setEyeSpaceLight(GLBackend* backend, const int32_t direction[3]);
// A sprite without appearance is not drawn.
Result qelGLBackend_drawSprite(GLBackend* backend, Sprite3D* sprite, const qelTransform* modelTransform,
                               float alphaFactor);
