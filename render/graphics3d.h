// The engine's graphics context in the JSR 184 sense: target, viewport, camera, lights, and the rendering of nodes.
#pragma once

#include "render/gl_backend.h"
#include "render/view_volume.h"
#include "scene/group.h"
#include "scene/mesh.h"

constexpr int32_t kHintTrueColor = 8;
constexpr Result kResultCameraNotInvertible = 6;

struct SceneLight {
    Light* light;  // one reference
    qelTransform transform;
    uint8_t hasTransform;  // given by the caller
};

struct Graphics3D {
    GLBackend* backend;
    Camera* camera;  // one reference, or null
    qelTransform cameraTransform;
    uint8_t isBound;
    uint8_t cameraIsSet;
    PixelRect viewport, clip;
    int32_t targetWidth, targetHeight;
    int32_t hints;
    SceneLight* lights;
    int32_t lightCount, lightCapacity;
    uint8_t isRendering;      // a node: its lights stay as they are meanwhile
    uint8_t lightsAreChosen;  // the backend holds what this rendering chose for the scope below
    int32_t chosenScope;
    ViewVolume viewVolume;
};

// hints even and within 0..14. Null when refused or when memory runs out.
Graphics3D* qelGraphics3D_create(int32_t hints, int32_t width, int32_t height);
void qelGraphics3D_destroy(Graphics3D* graphics);
GLBackend* qelGraphics3D_backend(Graphics3D* graphics);

// The area, cut to the largest viewport, becomes viewport and clip.
Result qelGraphics3D_bindTarget(Graphics3D* graphics, const void* target, const PixelRect& area, int32_t targetWidth,
                                int32_t targetHeight, bool depthBuffer, int32_t hints);
// A mutable RGB or RGBA image: its contents are drawn first, and the frame goes back into it at release.
Result qelGraphics3D_bindImageTarget(Graphics3D* graphics, Image2D* image, const PixelRect& area, bool depthBuffer,
                                     int32_t hints);
// OUT_OF_MEMORY: a bound image did not get the frame, but is released all the same.
Result qelGraphics3D_releaseTarget(Graphics3D* graphics);
Result qelGraphics3D_setViewport(Graphics3D* graphics, const PixelRect& viewport);
Result qelGraphics3D_setDepthRange(Graphics3D* graphics, float near, float far);
Result qelGraphics3D_clear(Graphics3D* graphics, uint32_t flags, Background* background);

// A null camera leaves none set; a null transform is the identity.
void qelGraphics3D_setCamera(Graphics3D* graphics, Camera* camera, const qelTransform* transform);
// The new index, or -1.
int32_t qelGraphics3D_addLight(Graphics3D* graphics, Light* light, const qelTransform* transform, Result* result);
Result qelGraphics3D_setLight(Graphics3D* graphics, int32_t index, Light* light, const qelTransform* transform);
void qelGraphics3D_resetLights(Graphics3D* graphics);

// Renders a mesh of any class, a group, a world or a sprite. The given transform takes the place of the node's own;
// null is the identity. Nothing is drawn, successfully, while the camera's near equals its far.
Result qelGraphics3D_render(Graphics3D* graphics, Node* node, const qelTransform* transform);

// One submesh with the lights that reach a node of this scope standing at the model transform. The camera must have
// been prepared.
Result qelGraphics3D_drawSubmesh(Graphics3D* graphics, const SubmeshDraw& draw, int32_t scope);

// Hands camera and projection to the backend. kResultCameraNotInvertible, with an identity view, for a singular camera
// transform.
Result qelGraphics3D_prepareCamera(Graphics3D* graphics);
