#include "frame/atrans3i.h"

#include "frame/fixed_point.h"
#include "frame/wrap.h"

static int32_t roundProduct(int32_t product) { return wrapAdd(product, 2048) >> 12; }

// The first three entries of a row applied to (x, y, z).
static int32_t applyRow(const int32_t* row, int32_t x, int32_t y, int32_t z) {
    return roundProduct(wrapAdd(wrapAdd(wrapMul(row[0], x), wrapMul(row[1], y)), wrapMul(row[2], z)));
}

void Atrans3i_setIdentity(Atrans3i* out) {
    *out = {{kFixedOne, 0, 0, 0,  //
             0, kFixedOne, 0, 0,  //
             0, 0, kFixedOne, 0}};
}

void Atrans3i_transformVector(const Atrans3i* a, const int32_t v[3], int32_t out[3]) {
    const int32_t x = v[0], y = v[1], z = v[2];
    for (int i = 0; i < 3; ++i) out[i] = wrapAdd(applyRow(&a->m[4 * i], x, y, z), a->m[4 * i + 3]);
}

void D_Atrans3i_multiply2(Atrans3i* out, const Atrans3i* a, const Atrans3i* b) {
    Atrans3i product;
    const int32_t* column = b->m;
    for (int i = 0; i < 12; i += 4) {
        for (int j = 0; j < 4; ++j) product.m[i + j] = applyRow(&a->m[i], column[j], column[4 + j], column[8 + j]);
        product.m[i + 3] = wrapAdd(product.m[i + 3], a->m[i + 3]);
    }
    *out = product;
}

void Atrans3i2qelTransform(qelTransform* out, const Atrans3i* a) {
    if (!out || !a) return;
    float elements[16] = {};
    for (int i = 0; i < 12; ++i) elements[i] = i % 4 == 3 ? float(a->m[i]) : float(a->m[i]) * 0.000244140625f;
    elements[15] = 1;
    qelTransform_set_fl(out, elements);
}

// The rotation of the z axis onto d by the shortest arc.
static void setDirection(Atrans3i* out, const int32_t d[3]) {
    const int32_t x = d[0], y = d[1], z = d[2];
    const int32_t p = wrapMul(x, x) >> 12, q = wrapMul(y, y) >> 12;
    int32_t* m = out->m;
    m[10] = z;
    if (p > 0 || q > 0) {
        const int32_t k = wrapShl(kFixedOne - z, 12) / (p + q);
        m[0] = wrapAdd(wrapMul(k, q) >> 12, z);
        m[1] = m[4] = wrapMul(wrapNeg(wrapMul(x, y)) >> 12, k) >> 12;
        m[5] = wrapAdd(wrapMul(k, p) >> 12, z);
        m[2] = x;
        m[6] = y;
        m[8] = wrapNeg(x);
        m[9] = wrapNeg(y);
    } else {  // on the z axis; the opposite direction is a half turn about x
        m[0] = kFixedOne;
        m[5] = z;
        m[1] = m[2] = m[4] = m[6] = m[8] = m[9] = 0;
    }
}

void Atrans3i_setDirectionRoll(Atrans3i* out, const int32_t direction[3], int32_t roll) {
    setDirection(out, direction);
    if (roll == 0) return;
    const int32_t cosine = cosine12(roll), sine = sine12(roll);
    for (int row = 0; row < 12; row += 4) {
        const int32_t m0 = out->m[row], m1 = out->m[row + 1];
        out->m[row] = roundProduct(wrapAdd(wrapMul(m1, sine), wrapMul(m0, cosine)));
        out->m[row + 1] = roundProduct(wrapSub(wrapMul(m1, cosine), wrapMul(m0, sine)));
    }
}

void Atrans3i_setDirectionRollScale(Atrans3i* out, const int32_t scale[3], const int32_t direction[3], int32_t roll) {
    Atrans3i_setDirectionRoll(out, direction, roll);
    for (int row = 0; row < 12; row += 4)
        for (int i = 0; i < 3; ++i) out->m[row + i] = roundProduct(wrapMul(out->m[row + i], scale[i]));
}

void Atrans3i_setTransform(Atrans3i* out, const K8Transform* transform) {
    for (int i = 0; i < 12; ++i) out->m[i] = j2f(transform->elements[i]);
}
