// The integer, screen-oriented renderer of points, lines and sprites: it keeps a projection, a view transform and a fog
// of its own, turns commands into vertex arrays, queues them and draws the queue in one go. Its frame is the screen's:
// x to the right, y down, z into the screen; distances are whole units, matrices 20.12. One is embedded in every render
// context.
#pragma once

#include <span>

#include "frame/atrans3i.h"
#include "render/graphics3d.h"
#include "scene/background.h"
#include "scene/fog.h"

constexpr int32_t kTextureSlots = 16;
constexpr int32_t kAppearanceCacheSize = 100;

// A primitive command: kind in bits 24-31, number of primitives in 16-23, what the arrays hold in 8-13, attributes in
// 0-7.
constexpr uint32_t kCommandPoints = 1u << 24, kCommandLines = 2u << 24, kCommandTriangles = 3u << 24,
                   kCommandQuads = 4u << 24, kCommandSprites = 5u << 24;
constexpr uint32_t kCommandMaxCount = 255;
constexpr uint32_t kCommandCountShift = 16;
constexpr uint32_t kCommandNormalMask = 0x300, kCommandNormalPerPrimitive = 0x200, kCommandNormalPerVertex = 0x300;
constexpr uint32_t kCommandColorMask = 0xC00, kCommandColorPerSet = 0x400, kCommandColorPerPrimitive = 0x800,
                   kCommandColorPerVertex = 0xC00;
constexpr uint32_t kCommandTextureMask = 0x3000, kCommandTexturePerSet = 0x1000, kCommandTexturePerVertex = 0x3000;
constexpr uint32_t kCommandBlendMask = 96, kCommandHalf = 32, kCommandAdd = 64;
constexpr uint32_t kCommandColorKey = 16;                  // texels of alpha 0 are cut out
constexpr uint32_t kCommandLit = 1, kCommandSpecular = 2;  // where the attribute mask has the same bit

// Attribute mask: what the renderer lets commands have.
constexpr uint32_t kMaskLighting = 1, kMaskSpecular = 2, kMaskEnvironment = 4, kMaskBlending = 8, kMaskFog = 16;

// Sprite record: width, height, rotation (1/4096 turn), s0, t0, s1, t1, flags.
constexpr uint32_t kSpriteRecordLength = 8;
constexpr uint32_t kSpriteInPixels = 1;    // width and height are pixels of the screen
constexpr uint32_t kSpriteAtOwnDepth = 2;  // under perspective those pixels hold at the sprite's depth, not at near

enum class RenderStateFog : int32_t { Linear = 1, Exponential = 2 };

enum class RenderStateProjection : uint8_t { Parallel = 0, Perspective = 1 };

// A rectangle by its edges; right and bottom lie outside it.
struct ClipEdges {
    int32_t left, top, right, bottom;
};

// A growable array of 16-bit values; colours take two values a vertex.
struct VertexPool {
    int16_t* values;
    uint32_t count, capacity;
};

struct AppearanceCacheEntry {
    uint16_t key;
    Appearance* appearance;  // one reference
};

struct RenderCommandEntry;  // a queued command with the state it was given under

// What a projection was asked for. Members that do not belong to it are 0.
struct ProjectionSetting {
    RenderStateProjection kind;
    int16_t near, far;  // perspective: whole units
    int32_t angle;      // perspective: the full opening over the width, 1/4096 turn; 0 when a size was given
    // Perspective: of the screen in the near plane, F. Parallel: whole units that the surface shows, 0 for pixels.
    int32_t width, height;
    bool operator==(const ProjectionSetting&) const = default;
};

// The arrays of a command, 32-bit values; empty when absent.
struct CommandArrays {
    std::span<const int32_t> positions, normals, textureCoords, colors;
};

struct RenderState {
    K8Allocator* allocator;  // of pools and queue

    // Made by the first bind and kept until release.
    Light* ambientLight;
    Light* directionalLight;
    Camera* camera;
    Fog* fog;  // gets each entry's fog values when that is drawn
    Background* background;

    Atrans3i view;  // world to view; translation in whole units
    qelTransform viewMatrix;

    Graphics3D* graphics;   // borrowed: the shared one
    void* target;           // the host's
    int32_t width, height;  // of the bound surface: what projections and clipping go by
    int32_t bufferWidth;    // of the buffer behind it, which is as high

    ClipEdges clip;           // as given, 16-bit coordinates
    ClipEdges effectiveClip;  // the part of it on the surface

    int16_t centreX, centreY;  // where depth vanishes, pixels
    ProjectionSetting projection;
    int32_t scaleX, scaleY;            // parallel: pixels that a unit covers, F
    float perspectiveX, perspectiveY;  // perspective: pixels that a unit covers at depth 1
    uint8_t projectionChanged;         // the camera's matrix has to be made again

    uint32_t attributeMask;
    float ambientIntensity, directionalIntensity;  // of the lights of lit commands
    int32_t lightDirection[3];                     // towards the light, eye space
    RenderStateFog fogMode;
    uint32_t fogColor;                    // 0xRRGGBB
    int32_t fogNear, fogFar, fogDensity;  // F

    Texture2D* textures[kTextureSlots];  // one reference each, or null
    int32_t selectedSlot;
    Texture2D* environmentTexture;  // one reference, or null

    AppearanceCacheEntry appearances[kAppearanceCacheSize];
    int32_t appearanceCount;

    VertexPool positions, normals, textureCoords, colors;
    RenderCommandEntry* queue;
    uint32_t queueCount, queueCapacity;
};

// A state without objects: identity transforms, parallel projection, blending allowed. Releases nothing.
void K8RenderState_reset(RenderState* state, K8Allocator* allocator);
// Makes the objects that are missing. False, with the engine status set, when memory runs out; what was made is kept
// for K8RenderState_release. A bufferWidth that is no width of a buffer of `width` columns counts as width.
bool K8RenderState_bind(RenderState* state, Graphics3D* graphics, void* target, int32_t width, int32_t height,
                        int32_t bufferWidth);
// Whether a bind has made everything that commands need.
bool K8RenderState_isComplete(const RenderState* state);
// Gives back objects, textures, cache, pools and queue. A state that was never bound has nothing to give back.
void K8RenderState_release(RenderState* state);

// Coordinates are cut to 16 bits.
void K8RenderState_setClip(RenderState* state, int32_t x0, int32_t y0, int32_t x1, int32_t y1);
void K8RenderState_setCentre(RenderState* state, int16_t x, int16_t y);  // pixels
// near and far in whole units; a range that is not 0 < near < far <= 32767 leaves the projection as it was. The angle
// is the full opening over the width of the surface, in 1/4096 of a turn, cut to 2..2046.
void K8RenderState_setPerspectiveAngle(RenderState* state, int32_t near, int32_t far, int32_t angle);
// The size of the screen in the near plane, F numbers above 0.
void K8RenderState_setPerspectiveSize(RenderState* state, int32_t near, int32_t far, int32_t width, int32_t height);
// Whole units that the surface shows, above 0.
void K8RenderState_setParallel(RenderState* state, int32_t width, int32_t height);
void K8RenderState_setViewTransform(RenderState* state, const Atrans3i* view);
// Null, or a texture without image, leaves all slots empty. Coordinates are texels: what brings them into 0..1 is the
// texture's own transform.
void K8RenderState_setTexture(RenderState* state, Texture2D* texture);
void K8RenderState_setFog(RenderState* state, bool on);
void K8RenderState_setFogMode(RenderState* state, RenderStateFog mode);
void K8RenderState_setFogColor(RenderState* state, uint32_t rgb);
void K8RenderState_setFogLinear(RenderState* state, int32_t near, int32_t far);  // F
void K8RenderState_setFogDensity(RenderState* state, int32_t density);           // F; ignored below 0

// Queues a command: positions and normals are whole units, texture coordinates texels, colours 0xRRGGBB. False, with
// nothing queued, for a command or arrays that do not fit each other and when memory runs out; a FailureMark tells
// which.
bool K8RenderState_render(RenderState* state, uint32_t command, const CommandArrays& arrays);
// Draws the queue, opaque entries first, over a cleared depth buffer, and empties it. False when an entry cannot be
// drawn; the rest of the queue is dropped then.
bool K8RenderState_flush(RenderState* state);
