// Internal operations on qelTransform, beside the exported ones of k8.h.
#pragma once

#include "frame/atrans3i.h"
#include "scene/names.h"

constexpr float kRadiansPerDegree = 0.017453292f;  // of all angles of the engine; pi / 180 in single precision

qelTransform* qelTransform_create();  // identity; null when memory runs out
void qelTransform_destroy(qelTransform* t);

bool qelTransform_isIdentity(qelTransform* t);             // cached: stores the outcome of an exact test
bool qelTransform_isIdentityExact(const qelTransform* t);  // compares elements, stores nothing

// out = a b; out may be a or b.
void qelTransform_multiplyInto(qelTransform* out, const qelTransform* a, const qelTransform* b);
Result qelTransform_getColumnMajor(const qelTransform* t, float* out);
void qelTransform_getRow(const qelTransform* t, int32_t index, float* out);
void qelTransform_getColumn(const qelTransform* t, int32_t index, float* out);
void qelTransform_setRow(qelTransform* t, int32_t index, const float* row);
void qelTransform_setColumn(qelTransform* t, int32_t index, const float* column);
void qelTransform_transpose(qelTransform* t);

// Full 4x4, in place, on vectors of four floats.
Result qelTransform_transformVectors(const qelTransform* t, float* vectors, int32_t count);
// Rows 0 to 2 applied to (x, y, z, 1); three floats out per triple.
void qelTransform_transformPoints16(const qelTransform* t, const int16_t* points, float* out, int32_t count);
// Upper-left 3x3, rounded; stored in the low bits at the component width (1 or 2 bytes), not clamped.
void qelTransform_transformNormalsInt(const qelTransform* t, const void* in, void* out, int32_t count,
                                      int32_t componentWidth);
// Rows 0 to 2 as F numbers, truncated.
void qelTransform_toFixedRows(const qelTransform* t, int32_t out[12]);
