#include "scene/transform.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "frame/allocator.h"
#include "frame/fixed_point.h"
#include "frame/trigonometry.h"

// Precision: elements are single floats. What runs over many nodes and vertices (products, scales, translations,
// transformed points) is computed in single precision, left to right. What is made once and then multiplied with others
// (rotations, inverses) is computed in double precision and rounded when it is stored.

enum CachedState : uint32_t { kUnknown = 0, kNo = 1, kYes = 2 };

constexpr float kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

static void setStates(qelTransform* t, CachedState identity, CachedState uniformDiagonal) {
    t->identityState = identity;
    t->uniformDiagonalState = uniformDiagonal;
    t->changed = 1;
}

static void forgetStates(qelTransform* t) { setStates(t, kUnknown, kUnknown); }

// --- Storage ---

qelTransform* qelTransform_create() {
    auto* t = static_cast<qelTransform*>(qelAlloc(kScratchTag, int32_t(sizeof(qelTransform))));
    if (t) qelTransform_setIdentity(t);
    return t;
}

void qelTransform_destroy(qelTransform* t) { qelFree(t); }

void qelTransform_setIdentity(qelTransform* t) {
    std::copy_n(kIdentity, 16, t->elements);
    setStates(t, kYes, kYes);
}

int32_t qelTransform_set_fl(qelTransform* t, const float* elements) {
    if (!elements) return QEL_STATUS_NULL_POINTER;
    std::copy_n(elements, 16, t->elements);
    forgetStates(t);
    return QEL_STATUS_OK;
}

int32_t qelTransform_set_tr(qelTransform* t, const qelTransform* source) {
    if (!source) return QEL_STATUS_NULL_POINTER;
    *t = *source;
    t->changed = 1;
    return QEL_STATUS_OK;
}

int32_t qelTransform_get(const qelTransform* t, float* out) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    std::copy_n(t->elements, 16, out);
    return QEL_STATUS_OK;
}

Result qelTransform_getColumnMajor(const qelTransform* t, float* out) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    for (int32_t column = 0; column < 4; ++column) qelTransform_getColumn(t, column, out + 4 * column);
    return QEL_STATUS_OK;
}

void qelTransform_getRow(const qelTransform* t, int32_t index, float* out) {
    std::copy_n(t->elements + 4 * index, 4, out);
}

void qelTransform_getColumn(const qelTransform* t, int32_t index, float* out) {
    for (int32_t row = 0; row < 4; ++row) out[row] = t->elements[4 * row + index];
}

void qelTransform_setRow(qelTransform* t, int32_t index, const float* row) {
    std::copy_n(row, 4, t->elements + 4 * index);
    forgetStates(t);
}

void qelTransform_setColumn(qelTransform* t, int32_t index, const float* column) {
    for (int32_t row = 0; row < 4; ++row) t->elements[4 * row + index] = column[row];
    forgetStates(t);
}

// --- Identity ---

bool qelTransform_isIdentityExact(const qelTransform* t) { return std::equal(kIdentity, kIdentity + 16, t->elements); }

bool qelTransform_isIdentity(qelTransform* t) {
    if (t->identityState == kUnknown) {
        if (qelTransform_isIdentityExact(t)) {
            t->identityState = t->uniformDiagonalState = kYes;
        } else {
            t->identityState = kNo;
        }
    }
    return t->identityState == kYes;
}

// --- Products ---

// out = a b; out may be a or b.
static void multiply(qelTransform* out, const qelTransform* a, const qelTransform* b) {
    float product[16];
    for (int32_t row = 0; row < 4; ++row) {
        const float* left = a->elements + 4 * row;
        const float* right = b->elements;
        for (int32_t column = 0; column < 4; ++column)
            product[4 * row + column] = left[0] * right[column] + left[1] * right[4 + column] +
                                        left[2] * right[8 + column] + left[3] * right[12 + column];
    }
    std::copy_n(product, 16, out->elements);
    forgetStates(out);
}

void qelTransform_multiplyInto(qelTransform* out, const qelTransform* a, const qelTransform* b) {
    if (qelTransform_isIdentityExact(a)) {
        qelTransform_set_tr(out, b);
    } else if (qelTransform_isIdentityExact(b)) {
        qelTransform_set_tr(out, a);
    } else {
        multiply(out, a, b);
    }
}

int32_t qelTransform_postMultiply(qelTransform* t, qelTransform* other) {
    if (!other) return QEL_STATUS_NULL_POINTER;
    if (qelTransform_isIdentity(t)) return qelTransform_set_tr(t, other);
    if (!qelTransform_isIdentity(other)) multiply(t, t, other);
    return QEL_STATUS_OK;
}

int32_t qelTransform_postMultiply_copy(const qelTransform* a, const qelTransform* b, qelTransform* out) {
    if (!b || !out) return QEL_STATUS_NULL_POINTER;
    qelTransform_multiplyInto(out, a, b);
    return QEL_STATUS_OK;
}

// --- Rotation, scale, translation ---

static qelTransform makeRotation(const double (&block)[9]) {
    qelTransform rotation;
    std::copy_n(kIdentity, 16, rotation.elements);
    for (int32_t i = 0; i < 9; ++i) rotation.elements[4 * (i / 3) + i % 3] = float(block[i]);
    forgetStates(&rotation);
    return rotation;
}

int32_t _qelTransform_postRotate(qelTransform* t, float degrees, float ax, float ay, float az) {
    if (ax == 0 && ay == 0 && az == 0) return degrees == 0 ? QEL_STATUS_OK : QEL_STATUS_ILLEGAL_ARGUMENT;
    if (degrees == 0) return QEL_STATUS_OK;

    const double scale = 1.0 / std::sqrt(double(ax) * ax + double(ay) * ay + double(az) * az);
    const double x = float(ax * scale), y = float(ay * scale), z = float(az * scale);
    const double radians = double(degrees) * kRadiansPerDegree;
    const double s = stableSin(radians), c = float(stableCos(radians)), u = float(1.0 - c);
    qelTransform rotation = makeRotation({u * x * x + c, u * x * y - s * z, u * x * z + s * y,  //
                                          u * x * y + s * z, u * y * y + c, u * y * z - s * x,  //
                                          u * x * z - s * y, u * y * z + s * x, u * z * z + c});
    return qelTransform_postMultiply(t, &rotation);
}

int32_t _qelTransform_postRotateQuat(qelTransform* t, float qx, float qy, float qz, float qw) {
    if (qx == 0 && qy == 0 && qz == 0 && qw == 0) return QEL_STATUS_ILLEGAL_ARGUMENT;

    const double squared = double(qx) * qx + double(qy) * qy + double(qz) * qz + double(qw) * qw;
    const double scale = 1.0 / std::sqrt(squared);
    const double x = qx * scale, y = qy * scale, z = qz * scale, w = qw * scale;
    qelTransform rotation = makeRotation({1 - 2 * y * y - 2 * z * z, 2 * x * y - 2 * w * z, 2 * x * z + 2 * w * y,  //
                                          2 * x * y + 2 * w * z, 1 - 2 * x * x - 2 * z * z, 2 * y * z - 2 * w * x,  //
                                          2 * x * z - 2 * w * y, 2 * y * z + 2 * w * x, 1 - 2 * x * x - 2 * y * y});
    const int32_t result = qelTransform_postMultiply(t, &rotation);
    t->identityState = t->uniformDiagonalState = kUnknown;  // also where the quaternion turned nothing
    return result;
}

void _qelTransform_postScale(qelTransform* t, float sx, float sy, float sz) {
    if (sx == 1 && sy == 1 && sz == 1) return;
    const float factors[3] = {sx, sy, sz};
    if (qelTransform_isIdentity(t)) {
        for (int32_t i = 0; i < 3; ++i) t->elements[5 * i] = factors[i];
        const bool uniform = sx == sy && sy == sz;
        setStates(t, kNo, uniform ? kYes : kNo);
        return;
    }
    for (int32_t row = 0; row < 4; ++row)
        for (int32_t column = 0; column < 3; ++column) t->elements[4 * row + column] *= factors[column];
    forgetStates(t);
}

// Leaves the diagonal alone, and so what is known of it.
void _qelTransform_postTranslate(qelTransform* t, float tx, float ty, float tz) {
    if (tx == 0 && ty == 0 && tz == 0) return;
    t->changed = 1;
    if (qelTransform_isIdentity(t)) {
        t->elements[3] = tx;
        t->elements[7] = ty;
        t->elements[11] = tz;
        t->identityState = kNo;
        return;
    }
    for (int32_t row = 0; row < 4; ++row) {
        float* m = t->elements + 4 * row;
        m[3] = m[0] * tx + m[1] * ty + m[2] * tz + m[3];
    }
    t->identityState = kUnknown;
}

int32_t qelTransform_postRotate(qelTransform* t, float degrees, float x, float y, float z) {
    return _qelTransform_postRotate(t, degrees, x, y, z);
}

void qelTransform_postScale(qelTransform* t, float sx, float sy, float sz) { _qelTransform_postScale(t, sx, sy, sz); }

void qelTransform_postTranslate(qelTransform* t, float tx, float ty, float tz) {
    _qelTransform_postTranslate(t, tx, ty, tz);
}

void qelTransform_transpose(qelTransform* t) {
    if (qelTransform_isIdentity(t)) return;
    for (int32_t row = 0; row < 4; ++row)
        for (int32_t column = row + 1; column < 4; ++column)
            std::swap(t->elements[4 * row + column], t->elements[4 * column + row]);
    t->changed = 1;
}

// --- Inverses ---

// A matrix as the product of a lower triangle with ones on its diagonal and an upper triangle, both kept in one.
struct LuMatrix {
    double m[4][4];
    int32_t sourceRow[4];  // row i comes from this row of the original
};

// 1 / the largest absolute entry of a row; infinite for a row of zeros. A NaN in the row stays.
static double rowScale(const double (&row)[4]) {
    double largest = 0;
    for (const double entry : row) {
        const double size = std::fabs(entry);
        if (size > largest || std::isnan(size)) largest = size;
    }
    return 1.0 / largest;
}

// The row from `column` down whose scaled entry in that column is largest, the first of equals.
static int32_t pivotRow(const LuMatrix& lu, const double (&scales)[4], int32_t column) {
    int32_t best = column;
    for (int32_t row = column + 1; row < 4; ++row)
        if (std::fabs(lu.m[row][column]) * scales[row] > std::fabs(lu.m[best][column]) * scales[best]) best = row;
    return best;
}

static bool decompose(const qelTransform* t, LuMatrix* lu) {
    double scales[4];
    for (int32_t row = 0; row < 4; ++row) {
        std::copy_n(t->elements + 4 * row, 4, lu->m[row]);
        lu->sourceRow[row] = row;
        scales[row] = rowScale(lu->m[row]);
        if (std::isinf(scales[row])) return false;
    }
    for (int32_t column = 0; column < 4; ++column) {
        const int32_t pivot = pivotRow(*lu, scales, column);
        if (pivot != column) {
            std::swap(lu->m[pivot], lu->m[column]);
            std::swap(lu->sourceRow[pivot], lu->sourceRow[column]);
            std::swap(scales[pivot], scales[column]);
        }
        if (lu->m[column][column] == 0) return false;
        for (int32_t row = column + 1; row < 4; ++row) {
            const double factor = lu->m[row][column] / lu->m[column][column];
            lu->m[row][column] = factor;
            for (int32_t right = column + 1; right < 4; ++right) lu->m[row][right] -= factor * lu->m[column][right];
        }
    }
    return true;
}

// Solves for one column of the inverse: forward substitution of the unit vector, then back substitution.
static void solveColumn(const LuMatrix& lu, int32_t column, float* inverse) {
    double v[4];
    for (int32_t row = 0; row < 4; ++row) {
        v[row] = lu.sourceRow[row] == column ? 1.0 : 0.0;
        for (int32_t left = 0; left < row; ++left) v[row] -= lu.m[row][left] * v[left];
    }
    for (int32_t row = 3; row >= 0; --row) {
        for (int32_t right = row + 1; right < 4; ++right) v[row] -= lu.m[row][right] * v[right];
        v[row] /= lu.m[row][row];
        inverse[4 * row + column] = float(v[row]);
    }
}

// out may be t; untouched when t is singular.
static Result invertInto(const qelTransform* t, qelTransform* out) {
    LuMatrix lu;
    if (!decompose(t, &lu)) return QEL_STATUS_ARITHMETIC;
    for (int32_t column = 0; column < 4; ++column) solveColumn(lu, column, out->elements);
    forgetStates(out);
    return QEL_STATUS_OK;
}

int32_t qelTransform_invert(qelTransform* t) { return qelTransform_isIdentity(t) ? QEL_STATUS_OK : invertInto(t, t); }

int32_t qelTransform_invert_copy(const qelTransform* t, qelTransform* out) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    return qelTransform_isIdentityExact(t) ? qelTransform_set_tr(out, t) : invertInto(t, out);
}

int32_t qelTransform_invertNonScaled_copy(const qelTransform* t, qelTransform* out) {
    if (!out) return QEL_STATUS_NULL_POINTER;
    qelTransform_set_tr(out, t);
    if (qelTransform_isIdentity(out)) return QEL_STATUS_OK;
    float* m = out->elements;
    std::swap(m[1], m[4]);
    std::swap(m[2], m[8]);
    std::swap(m[6], m[9]);
    const float x = m[3], y = m[7], z = m[11];
    if (x == 0 && y == 0 && z == 0) return QEL_STATUS_OK;
    for (int32_t row = 0; row < 3; ++row) {
        float* r = m + 4 * row;
        r[3] = -(r[0] * x + r[1] * y + r[2] * z);
    }
    return QEL_STATUS_OK;
}

// --- Vectors ---

float* qelTransform_affineTransform(const qelTransform* t, const float* v, float* out) {
    const float x = v[0], y = v[1], z = v[2];
    for (int32_t row = 0; row < 3; ++row) {
        const float* m = t->elements + 4 * row;
        out[row] = m[0] * x + m[1] * y + m[2] * z + m[3];
    }
    return out;
}

float* qelTransform_transformNormal(const qelTransform* t, const float* v, float* out) {
    const float x = v[0], y = v[1], z = v[2];
    for (int32_t row = 0; row < 3; ++row) {
        const float* m = t->elements + 4 * row;
        out[row] = m[0] * x + m[1] * y + m[2] * z;
    }
    return out;
}

Result qelTransform_transformVectors(const qelTransform* t, float* vectors, int32_t count) {
    if (!vectors) return QEL_STATUS_NULL_POINTER;
    for (float* v = vectors; count > 0; --count, v += 4) {
        const float x = v[0], y = v[1], z = v[2], w = v[3];
        for (int32_t row = 0; row < 4; ++row) {
            const float* m = t->elements + 4 * row;
            v[row] = m[0] * x + m[1] * y + m[2] * z + m[3] * w;
        }
    }
    return QEL_STATUS_OK;
}

void qelTransform_transformPoints16(const qelTransform* t, const int16_t* points, float* out, int32_t count) {
    for (; count > 0; --count, points += 3, out += 3) {
        const float point[3] = {float(points[0]), float(points[1]), float(points[2])};
        qelTransform_affineTransform(t, point, out);
    }
}

template <typename Component>
static void transformNormals(const qelTransform* t, const Component* in, Component* out, int32_t count) {
    for (; count > 0; --count, in += 3, out += 3) {
        const float normal[3] = {float(in[0]), float(in[1]), float(in[2])};
        float transformed[3];
        qelTransform_transformNormal(t, normal, transformed);
        for (int32_t i = 0; i < 3; ++i) out[i] = Component(roundToInt(transformed[i]));
    }
}

void qelTransform_transformNormalsInt(const qelTransform* t, const void* in, void* out, int32_t count,
                                      int32_t componentWidth) {
    if (componentWidth == 1) {
        transformNormals(t, static_cast<const int8_t*>(in), static_cast<int8_t*>(out), count);
    } else {
        transformNormals(t, static_cast<const int16_t*>(in), static_cast<int16_t*>(out), count);
    }
}

void qelTransform_toFixedRows(const qelTransform* t, int32_t out[12]) {
    std::transform(t->elements, t->elements + 12, out, j2f);
}
