#include "scene/camera.h"

#include "animation/animate.h"
#include "frame/trigonometry.h"
#include "scene/transform.h"

static void destroyCamera(Object3D* object) {
    qelCamera_finalise(static_cast<Camera*>(object));
    qelFree(object);
}

Camera* qelCamera_create() {
    auto* camera = qelObject3D_alloc<Camera>(ClassId::Camera);
    if (camera) qelCamera_init(camera);
    return camera;
}

void qelCamera_init(Camera* camera) {
    qelNode_init(camera);
    camera->classId = ClassId::Camera;
    camera->find = qelObject3D_findCommon;
    camera->animate = qelObject3D_animateCommon;
    camera->destroy = destroyCamera;
    qelTransform_setIdentity(&camera->projection);
    qelCamera_setParallel(camera, 2.0f, 1.0f, -1.0f, 1.0f);
}

void qelCamera_finalise(Camera* camera) {
    qelNode_finalise(camera);
    qelCamera_init(camera);
}

Object3D* qelCamera_duplicate(const Camera* camera) { return qelNode_copy(camera); }

static void setParameters(Camera* camera, ProjectionType type, const float (&parameters)[4]) {
    camera->projectionType = type;
    camera->fovyOrHeight = parameters[0];
    camera->aspectRatio = parameters[1];
    camera->near = parameters[2];
    camera->far = parameters[3];
    camera->projectionDirty = type != ProjectionType::Generic;
    camera->stateChanged = 1;
}

Result qelCamera_setParallel(Camera* camera, float height, float aspectRatio, float near, float far) {
    if (!(height > 0 && aspectRatio > 0)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    setParameters(camera, ProjectionType::Parallel, {height, aspectRatio, near, far});
    return QEL_STATUS_OK;
}

Result qelCamera_setPerspective(Camera* camera, float fovy, float aspectRatio, float near, float far) {
    if (!(fovy > 0 && fovy < 180 && aspectRatio > 0 && near > 0 && far > 0)) return QEL_STATUS_ILLEGAL_ARGUMENT;
    setParameters(camera, ProjectionType::Perspective, {fovy, aspectRatio, near, far});
    return QEL_STATUS_OK;
}

Result qelCamera_setGeneric(Camera* camera, const qelTransform* projection) {
    if (!projection) return QEL_STATUS_NULL_POINTER;
    setParameters(camera, ProjectionType::Generic, {0, 0, 0, 0});
    qelTransform_set_tr(&camera->projection, projection);
    return QEL_STATUS_OK;
}

ProjectionType qelCamera_getProjectionParameters(const Camera* camera, float* out) {
    if (out && camera->projectionType != ProjectionType::Generic) {
        out[0] = camera->fovyOrHeight;
        out[1] = camera->aspectRatio;
        out[2] = camera->near;
        out[3] = camera->far;
    }
    return camera->projectionType;
}

static void computePerspective(Camera* camera) {
    const double halfAngle = double(camera->fovyOrHeight) / 2.0 * kRadiansPerDegree;
    const double h = stableCos(halfAngle) / stableSin(halfAngle);
    const double near = camera->near, far = camera->far;
    float m[16] = {};
    m[0] = float(h / camera->aspectRatio);
    m[5] = float(h);
    m[10] = float((far + near) / (near - far));
    m[11] = float(2.0 * far * near / (near - far));
    m[14] = -1.0f;
    qelTransform_set_fl(&camera->projection, m);
}

static void computeParallel(Camera* camera) {
    const double s = 2.0 / camera->fovyOrHeight;
    const double near = camera->near, far = camera->far;
    float m[16] = {};
    m[0] = float(s / camera->aspectRatio);
    m[5] = float(s);
    m[10] = float(-2.0 / (far - near));
    m[11] = float(-(far + near) / (far - near));
    m[15] = 1.0f;
    qelTransform_set_fl(&camera->projection, m);
}

ProjectionType qelCamera_getProjection(Camera* camera, qelTransform* out, Result* result) {
    const ProjectionType type = camera->projectionType;
    if (type != ProjectionType::Generic && camera->near == camera->far) {
        *result = QEL_STATUS_ARITHMETIC;
        return type;
    }
    if (camera->projectionDirty) {
        if (type == ProjectionType::Perspective) computePerspective(camera);
        if (type == ProjectionType::Parallel) computeParallel(camera);
        camera->projectionDirty = 0;
    }
    *result = QEL_STATUS_OK;
    if (out) qelTransform_set_tr(out, &camera->projection);
    return type;
}
