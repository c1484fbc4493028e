#pragma once

#include "scene/node.h"

enum class ProjectionType : int32_t { Generic = 48, Parallel = 49, Perspective = 50 };

struct Camera : Node {
    ProjectionType projectionType;
    qelTransform projection;
    float fovyOrHeight;  // degrees for Perspective, height of the view for Parallel
    float aspectRatio;
    float near;
    float far;
    uint8_t projectionDirty;
};

Camera* qelCamera_create();
void qelCamera_init(Camera* camera);
void qelCamera_finalise(Camera* camera);
Result qelCamera_setParallel(Camera* camera, float height, float aspectRatio, float near, float far);
Result qelCamera_setPerspective(Camera* camera, float fovy, float aspectRatio, float near, float far);
Result qelCamera_setGeneric(Camera* camera, const qelTransform* projection);
ProjectionType qelCamera_getProjectionParameters(const Camera* camera, float* out);  // four floats, or null
// Recomputes the matrix when parameters changed. ARITHMETIC, with nothing written, when near equals far and the type is
// not Generic.
ProjectionType qelCamera_getProjection(Camera* camera, qelTransform* out, Result* result);
Object3D* qelCamera_duplicate(const Camera* camera);
