#include "render/draw_camera.h"

#include "frame/fixed_point.h"
#include "frame/trigonometry.h"
#include "scene/transform.h"

// Width over height as an F number. Divided as whole numbers, since the quotient of F numbers has fewer bits left.
static float aspectOf(int32_t width, int32_t height) { return f2j(fixedDiv(width, height)); }

// The opening under which a screen of this height, standing in the near plane, is seen; degrees.
static float angleOfScreen(float height, float near) {
    return float(2.0 * stableAtan(double(height) / 2.0 / double(near)) * 57.29577951308232);
}

// Whether the camera has these parameters already: setting them again would have the projection computed again.
static bool isSetTo(const Camera* camera, ProjectionType type, float fovyOrHeight, float aspect, float near,
                    float far) {
    return camera->projectionType == type && camera->fovyOrHeight == fovyOrHeight && camera->aspectRatio == aspect &&
           camera->near == near && camera->far == far;
}

static void setPerspective(Camera* camera, float fovy, float aspect, float near, float far) {
    if (!isSetTo(camera, ProjectionType::Perspective, fovy, aspect, near, far))
        qelCamera_setPerspective(camera, fovy, aspect, near, far);
}

static void setParallel(Camera* camera, float height, float aspect, float near, float far) {
    if (!isSetTo(camera, ProjectionType::Parallel, height, aspect, near, far))
        qelCamera_setParallel(camera, height, aspect, near, far);
}

void K8DrawList_setCamera(K8Render* handle, const K8RenderParams& params) {
    const K8RenderContext* context = handle->context;
    Camera* camera = context->drawCamera;
    const float near = f2j(params.nearDistance);
    const float far = f2j(params.farDistance);
    const float aspect = aspectOf(params.screenWidth, params.screenHeight);
    switch (params.projection) {
        case K8_PROJECTION_PARALLEL: setParallel(camera, params.screenHeight, aspect, 0.0f, 32768.0f); break;
        case K8_PROJECTION_PERSPECTIVE_SIZE:
            if (near > 0.0f) setPerspective(camera, angleOfScreen(params.screenHeight, near), aspect, near, far);
            break;
        case K8_PROJECTION_PERSPECTIVE_ANGLE:
            setPerspective(camera, f2j(params.verticalAngle), aspectOf(context->targetWidth, context->targetHeight),
                           near, far);
            break;
        default: break;
    }
    qelGraphics3D_setCamera(K8Render_graphics(handle), camera, nullptr);
}

qelTransform K8DrawList_sceneMatrix(const K8Transform& transform, float scale) {
    qelTransform placed;
    qelTransform_set_fl(&placed, transform.elements);
    qelTransform_postScale(&placed, scale, scale, scale);
    qelTransform frame;  // y up and z towards the viewer, as OpenGL ES has them
    qelTransform_setIdentity(&frame);
    qelTransform_postScale(&frame, 1.0f, -1.0f, -1.0f);
    qelTransform matrix;
    qelTransform_multiplyInto(&matrix, &frame, &placed);
    return matrix;
}
