// The base of nodes and textures: an orientation R, a scale S, a translation T, a general matrix M, and the composite
// T R S M.
#pragma once

#include "scene/object3d.h"

struct Transformable : Object3D {
    float orientationAngle;    // degrees
    float orientationAxis[3];  // as given, not normalised
    float scale[3];
    float translation[3];
    qelTransform matrix;
    qelTransform orientationMatrix;
    uint8_t transformChanged;  // the composite was recomputed; cleared by the traversals once toWorld is fresh
    qelTransform toWorld;      // node to world, cached by the traversals
    qelTransform composite;
    uint8_t compositeOverridden;  // the composite was written directly and takes the place of T R S
    uint8_t translationChanged, orientationChanged, scaleChanged, matrixChanged;
    uint8_t compositeChanged;  // the composite was rebuilt or written; cleared by skinning
};

// For the init and finalise of classes: after finalise the class runs its own init again.
void qelTransformable_init(Transformable* t);
void qelTransformable_finalise(Transformable* t);

Result qelTransformable_setOrientation(Transformable* t, float degrees, float ax, float ay, float az);
Result qelTransformable_setOrientationQuat(Transformable* t, const float q[4]);
Result qelTransformable_postRotate(Transformable* t, float degrees, float ax, float ay, float az);
Result qelTransformable_preRotate(Transformable* t, float degrees, float ax, float ay, float az);
void qelTransformable_setScale(Transformable* t, float sx, float sy, float sz);
void qelTransformable_scale(Transformable* t, float fx, float fy, float fz);
void qelTransformable_setTranslation(Transformable* t, float x, float y, float z);
void qelTransformable_translate(Transformable* t, float dx, float dy, float dz);
Result qelTransformable_setTransform(Transformable* t, const qelTransform* matrix);
void qelTransformable_setComposite(Transformable* t, const qelTransform* composite);

Result qelTransformable_getOrientation(const Transformable* t, float out[4]);  // angle, ax, ay, az
Result qelTransformable_getScale(const Transformable* t, float out[3]);
Result qelTransformable_getTranslation(const Transformable* t, float out[3]);
Result qelTransformable_getTransform(const Transformable* t, qelTransform* out);
Result qelTransformable_getCompositeTransform(Transformable* t, qelTransform* out);

// Brings the composite up to date; true when that changed it. Call it before any use of `composite`.
bool qelTransformable_updateComposite(Transformable* t);
