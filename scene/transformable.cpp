#include "scene/transformable.h"

#include <algorithm>
#include <cmath>

#include "frame/trigonometry.h"
#include "scene/transform.h"

constexpr float kDegreesPerRadian = 57.295776f;

static void setVector(float (&out)[3], float x, float y, float z) {
    out[0] = x;
    out[1] = y;
    out[2] = z;
}

void qelTransformable_init(Transformable* t) {
    qelObject3D_init(t);
    t->orientationAngle = 0;
    setVector(t->orientationAxis, 0, 0, 1);
    setVector(t->scale, 1, 1, 1);
    setVector(t->translation, 0, 0, 0);
    qelTransform_setIdentity(&t->matrix);
    qelTransform_setIdentity(&t->orientationMatrix);
    t->transformChanged = 0;
    qelTransform_setIdentity(&t->toWorld);
    qelTransform_setIdentity(&t->composite);
    t->compositeOverridden = 0;
    t->translationChanged = t->orientationChanged = t->scaleChanged = t->matrixChanged = 0;
    t->compositeChanged = 0;
}

void qelTransformable_finalise(Transformable* t) { qelObject3D_finalise(t); }

// --- Orientation ---

static Result makeRotation(qelTransform* out, float degrees, float ax, float ay, float az) {
    qelTransform_setIdentity(out);
    return _qelTransform_postRotate(out, degrees, ax, ay, az);
}

static void setOrientationMatrix(Transformable* t, const qelTransform* rotation) {
    qelTransform_set_tr(&t->orientationMatrix, rotation);
    t->orientationChanged = 1;
}

Result qelTransformable_setOrientation(Transformable* t, float degrees, float ax, float ay, float az) {
    qelTransform rotation;
    const Result result = makeRotation(&rotation, degrees, ax, ay, az);
    if (result != QEL_STATUS_OK) return result;
    t->orientationAngle = degrees;
    setVector(t->orientationAxis, ax, ay, az);
    setOrientationMatrix(t, &rotation);
    return QEL_STATUS_OK;
}

Result qelTransformable_setOrientationQuat(Transformable* t, const float q[4]) {
    qelTransform rotation;
    qelTransform_setIdentity(&rotation);
    const Result result = _qelTransform_postRotateQuat(&rotation, q[0], q[1], q[2], q[3]);
    if (result != QEL_STATUS_OK) return result;

    const double x = q[0], y = q[1], z = q[2], squared = x * x + y * y + z * z;
    if (squared == 0) {
        t->orientationAngle = 0;
        setVector(t->orientationAxis, 1, 0, 0);
    } else {
        const double length = std::sqrt(squared);
        t->orientationAngle = float(2.0 * stableAcos(std::clamp(q[3], -1.0f, 1.0f)) * kDegreesPerRadian);
        setVector(t->orientationAxis, float(x / length), float(y / length), float(z / length));
    }
    setOrientationMatrix(t, &rotation);
    return QEL_STATUS_OK;
}

// Reads angle and axis back out of the orientation matrix. A rotation by nothing has no axis and keeps the one before.
static void deriveAngleAndAxis(Transformable* t) {
    const float* m = t->orientationMatrix.elements;
    const double k = (m[0] + m[5] + m[10] - 1.0f) / 2.0f;  // the cosine; rounding can take it just beyond 1
    const double s = std::sqrt(std::fabs(1.0 - k * k));
    double axis[3] = {double(m[9]) - m[6], double(m[2]) - m[8], double(m[4]) - m[1]};
    for (int32_t i = 0; i < 3; ++i)
        axis[i] = s == 0 ? std::sqrt(std::max((m[5 * i] - k) / (1.0 - k), 0.0)) : axis[i] / (2.0 * s);

    t->orientationAngle = float(stableAcos(std::clamp(k, -1.0, 1.0)) * 180.0 * 0.31830987f);
    const double squared = axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2];
    if (squared > 0 && std::isfinite(squared))
        setVector(t->orientationAxis, float(axis[0]), float(axis[1]), float(axis[2]));
}

Result qelTransformable_postRotate(Transformable* t, float degrees, float ax, float ay, float az) {
    qelTransform given;
    const Result result = makeRotation(&given, degrees, ax, ay, az);
    if (result != QEL_STATUS_OK) return result;
    qelTransform_postMultiply(&t->orientationMatrix, &given);
    t->orientationChanged = 1;
    deriveAngleAndAxis(t);
    return QEL_STATUS_OK;
}

Result qelTransformable_preRotate(Transformable* t, float degrees, float ax, float ay, float az) {
    qelTransform given;
    const Result result = makeRotation(&given, degrees, ax, ay, az);
    if (result != QEL_STATUS_OK) return result;
    qelTransform_postMultiply_copy(&given, &t->orientationMatrix, &t->orientationMatrix);
    t->orientationChanged = 1;
    deriveAngleAndAxis(t);
    return QEL_STATUS_OK;
}

Result qelTransformable_getOrientation(const Transformable* t, float out[4]) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    out[0] = t->orientationAngle;
    std::ranges::copy(t->orientationAxis, out + 1);
    return QEL_STATUS_OK;
}

// --- Scale, translation, general matrix ---

void qelTransformable_setScale(Transformable* t, float sx, float sy, float sz) {
    setVector(t->scale, sx, sy, sz);
    t->scaleChanged = 1;
}

void qelTransformable_scale(Transformable* t, float fx, float fy, float fz) {
    qelTransformable_setScale(t, t->scale[0] * fx, t->scale[1] * fy, t->scale[2] * fz);
}

void qelTransformable_setTranslation(Transformable* t, float x, float y, float z) {
    setVector(t->translation, x, y, z);
    t->translationChanged = 1;
}

void qelTransformable_translate(Transformable* t, float dx, float dy, float dz) {
    qelTransformable_setTranslation(t, t->translation[0] + dx, t->translation[1] + dy, t->translation[2] + dz);
}

Result qelTransformable_setTransform(Transformable* t, const qelTransform* matrix) {
    if (!matrix) {
        qelTransform_setIdentity(&t->matrix);
    } else {
        const float* bottom = matrix->elements + 12;
        const bool affine = bottom[0] == 0 && bottom[1] == 0 && bottom[2] == 0 && bottom[3] == 1;
        if (!affine && t->classId != ClassId::Texture2D) return QEL_STATUS_ILLEGAL_ARGUMENT;
        qelTransform_set_tr(&t->matrix, matrix);
    }
    t->matrixChanged = 1;
    return QEL_STATUS_OK;
}

Result qelTransformable_getScale(const Transformable* t, float out[3]) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    std::ranges::copy(t->scale, out);
    return QEL_STATUS_OK;
}

Result qelTransformable_getTranslation(const Transformable* t, float out[3]) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    std::ranges::copy(t->translation, out);
    return QEL_STATUS_OK;
}

Result qelTransformable_getTransform(const Transformable* t, qelTransform* out) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    return qelTransform_set_tr(out, &t->matrix);
}

// --- Composite ---

void qelTransformable_setComposite(Transformable* t, const qelTransform* composite) {
    qelTransform_set_tr(&t->composite, composite);
    t->compositeOverridden = 1;
    t->compositeChanged = 1;
}

// T R S M.
static void composeFromParts(Transformable* t) {
    float trs[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    for (int32_t row = 0; row < 3; ++row) {
        for (int32_t column = 0; column < 3; ++column)
            trs[4 * row + column] = t->orientationMatrix.elements[4 * row + column] * t->scale[column];
        trs[4 * row + 3] = t->translation[row];
    }
    qelTransform_set_fl(&t->composite, trs);
    qelTransform_postMultiply(&t->composite, &t->matrix);
    t->translationChanged = t->orientationChanged = t->scaleChanged = t->matrixChanged = 0;
}

bool qelTransformable_updateComposite(Transformable* t) {
    if (t->compositeOverridden) {
        t->compositeOverridden = 0;
        qelTransform_multiplyInto(&t->composite, &t->matrix, &t->composite);
    } else if (t->translationChanged || t->orientationChanged || t->scaleChanged || t->matrixChanged) {
        composeFromParts(t);
    } else {
        return false;
    }
    t->transformChanged = 1;
    t->compositeChanged = 1;
    return true;
}

Result qelTransformable_getCompositeTransform(Transformable* t, qelTransform* out) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    qelTransformable_updateComposite(t);
    return qelTransform_set_tr(out, &t->composite);
}
