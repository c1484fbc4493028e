#include "frame/k8_transform.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "frame/allocator.h"
#include "frame/atrans3i.h"
#include "frame/error_status.h"
#include "frame/fixed_point.h"
#include "frame/wrap.h"
#include "scene/transform.h"

bool K8Transform_equal(const float a[16], const float b[16]) {
    for (int i = 0; i < 16; ++i)
        if (a[i] < b[i] || a[i] > b[i]) return false;
    return true;
}

// --- Life and elements ---

K8Transform* K8Transform_create(K8Transform* memory, K8Allocator* allocator) {
    if (!allocator) {
        K8ErrStorage_fail();
        return nullptr;
    }
    K8Transform* transform = memory;
    if (!transform) transform = static_cast<K8Transform*>(K8Allocator_alloc(allocator, sizeof(K8Transform)));
    if (!transform) {
        K8ErrStorage_failOutOfMemory();
        return nullptr;
    }
    transform->allocator = allocator;
    transform->ownBlock = memory ? nullptr : transform;
    K8Transform_setIdentity(transform);
    return transform;
}

K8Transform* K8Transform_createT(K8Transform* memory, K8Allocator* allocator, const float* elements) {
    K8Transform* transform = K8Transform_create(memory, allocator);
    K8Transform_set(transform, elements);
    return transform;
}

void K8Transform_destroy(K8Transform* transform) {
    if (!transform) return;
    std::fill_n(transform->elements, 16, 0.0f);
    if (transform->allocator && transform->ownBlock) K8Allocator_free(transform->allocator, transform->ownBlock);
}

void K8Transform_setIdentity(K8Transform* transform) {
    if (!transform) return;
    for (int i = 0; i < 16; ++i) transform->elements[i] = i % 5 == 0 ? 1.0f : 0.0f;
}

void K8Transform_set(K8Transform* transform, const float* elements) {
    if (elements)
        K8Transform_setAll(transform, elements);
    else
        K8Transform_setIdentity(transform);
}

void K8Transform_setAll(K8Transform* transform, const float* elements) {
    if (transform && elements) std::memmove(transform->elements, elements, sizeof transform->elements);
}

void K8Transform_getAll(const K8Transform* transform, float* out) {
    if (transform && out) std::memmove(out, transform->elements, sizeof transform->elements);
}

void K8Transform_setElement(K8Transform* transform, int32_t index, float value) {
    if (transform && index >= 0 && index < 16) transform->elements[index] = value;
}

float K8Transform_getElement(const K8Transform* transform, int32_t index) {
    return transform && index >= 0 && index < 16 ? transform->elements[index] : 0.0f;
}

// --- Operations of the engine's matrix ---

bool K8Transform_invert(K8Transform* transform) {
    if (!transform) return K8ErrStorage_fail();
    qelTransform matrix;
    qelTransform_set_fl(&matrix, transform->elements);
    if (qelTransform_invert(&matrix) != QEL_STATUS_OK) return K8ErrStorage_fail();
    qelTransform_get(&matrix, transform->elements);
    return true;
}

void K8Transform_transpose(K8Transform* transform) {
    if (!transform) return;
    qelTransform matrix;
    qelTransform_set_fl(&matrix, transform->elements);
    qelTransform_transpose(&matrix);
    qelTransform_get(&matrix, transform->elements);
}

void K8Transform_rotate(K8Transform* transform, int32_t x, int32_t y, int32_t z, int32_t degrees) {
    if (!transform) return;
    qelTransform matrix;
    qelTransform_set_fl(&matrix, transform->elements);
    qelTransform_postRotate(&matrix, f2j(degrees), f2j(x), f2j(y), f2j(z));
    qelTransform_get(&matrix, transform->elements);
}

void K8Transform_rotateQuat(K8Transform* transform, int32_t qx, int32_t qy, int32_t qz, int32_t qw) {
    if (!transform) return;
    qelTransform matrix;
    qelTransform_set_fl(&matrix, transform->elements);
    _qelTransform_postRotateQuat(&matrix, f2j(qx), f2j(qy), f2j(qz), f2j(qw));
    qelTransform_get(&matrix, transform->elements);
}

// --- Operations of its own ---

void K8Transform_multiply(K8Transform* a, const K8Transform* b) {
    if (!a || !b) return;
    float product[16];
    for (int row = 0; row < 16; row += 4)
        for (int column = 0; column < 4; ++column) {
            const float* left = &a->elements[row];
            const float* right = &b->elements[column];
            product[row + column] = float(double(left[0]) * right[0] + double(left[1]) * right[4] +
                                          double(left[2]) * right[8] + double(left[3]) * right[12]);
        }
    K8Transform_setAll(a, product);
}

void K8Transform_scale(K8Transform* transform, int32_t sx, int32_t sy, int32_t sz) {
    if (!transform) return;
    const float factors[3] = {f2j(sx), f2j(sy), f2j(sz)};
    for (int row = 0; row < 16; row += 4)
        for (int column = 0; column < 3; ++column) transform->elements[row + column] *= factors[column];
}

void K8Transform_translate(K8Transform* transform, int32_t tx, int32_t ty, int32_t tz) {
    if (!transform) return;
    const double x = f2j(tx), y = f2j(ty), z = f2j(tz);
    for (int i = 0; i < 16; i += 4) {
        float* row = &transform->elements[i];
        row[3] = float(row[0] * x + row[1] * y + row[2] * z + row[3]);
    }
}

void K8Transform_transVector(const K8Transform* transform, const int32_t* v, int32_t* out) {
    if (!transform || !v || !out) return;
    Atrans3i matrix;
    Atrans3i_setTransform(&matrix, transform);
    Atrans3i_transformVector(&matrix, v, out);
}

// --- Viewing ---

// The unit vector along a x b. Both are unit vectors: their products need no shift.
static void setUnitCross(const int32_t a[3], const int32_t b[3], int32_t out[3]) {
    out[0] = a[1] * b[2] - a[2] * b[1];
    out[1] = a[2] * b[0] - a[0] * b[2];
    out[2] = a[0] * b[1] - a[1] * b[0];
    normalizeFixedOrZ(out);
}

// What the components must be divided by to fit 18 bits, so that their products with a unit vector fit 32.
static int32_t divisorTo18Bits(const int32_t v[3]) {
    const uint32_t bits = magnitude(v[0]) | magnitude(v[1]) | magnitude(v[2]);
    return 1 << std::max(14 - std::countl_zero(bits), 0);
}

void K8Transform_lookAt(K8Transform* transform, const int32_t* position, const int32_t* look, const int32_t* up) {
    if (!transform || !position || !look || !up) return;
    int32_t forward[3] = {look[0], look[1], look[2]};
    int32_t upward[3] = {up[0], up[1], up[2]};
    normalizeFixedOrZ(forward);
    normalizeFixedOrZ(upward);
    int32_t rows[3][3] = {{}, {}, {forward[0], forward[1], forward[2]}};
    setUnitCross(forward, upward, rows[0]);
    setUnitCross(forward, rows[0], rows[1]);
    normalizeFixedOrZ(rows[2]);  // takes the rounding of the first normalisation out

    const int32_t divisor = divisorTo18Bits(position);
    const int32_t x = position[0] / divisor, y = position[1] / divisor, z = position[2] / divisor;
    for (int i = 0; i < 3; ++i) {
        const int32_t* row = rows[i];
        const int32_t along = wrapSub(wrapSub(wrapMul(row[0], -x), wrapMul(y, row[1])), wrapMul(row[2], z));
        float* elements = &transform->elements[4 * i];
        for (int column = 0; column < 3; ++column) elements[column] = f2j(row[column]);
        elements[3] = f2j(wrapMul(wrapAdd(along, 2048) >> 12, divisor));
    }
}
