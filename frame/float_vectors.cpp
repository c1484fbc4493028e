// Exported helpers for float vectors. Intermediate results are doubles, rounded to float once at the end.
#include <cmath>

#include "frame/wrap.h"
#include "k8.h"

static void store3(double x, double y, double z, float* out) {
    out[0] = float(x);
    out[1] = float(y);
    out[2] = float(z);
}

static double dot(const float* a, const float* b) {
    return double(a[1]) * b[1] + double(a[0]) * b[0] + double(a[2]) * b[2];
}

static double determinant(double a, double b, double c, double d) { return a * d - b * c; }

void _qel_scale3(float s, const float* a, float* out) {
    store3(double(s) * a[0], double(s) * a[1], double(s) * a[2], out);
}

void _qel_add3(const float* a, const float* b, float* out) {
    store3(double(a[0]) + b[0], double(a[1]) + b[1], double(a[2]) + b[2], out);
}

void _qel_sub3(const float* a, const float* b, float* out) {
    store3(double(a[0]) - b[0], double(a[1]) - b[1], double(a[2]) - b[2], out);
}

bool _qel_normalize3(float* v) {
    const double length = std::sqrt(dot(v, v));
    if (!(length > 0)) return false;
    store3(v[0] / length, v[1] / length, v[2] / length, v);
    return true;
}

float _qel_dot3(const float* a, const float* b) { return float(dot(a, b)); }

void _qel_cross3(const float* a, const float* b, float* out) {
    store3(determinant(a[1], a[2], b[1], b[2]), determinant(a[2], a[0], b[2], b[0]),
           determinant(a[0], a[1], b[0], b[1]), out);
}

float _qel_dot2(float ax, float ay, float bx, float by) { return float(double(ax) * bx + double(ay) * by); }

float _qel_det2(float a, float b, float c, float d) { return float(determinant(a, b, c, d)); }

// Maps the patterns of negative floats, which grow downwards, onto the negative integers.
static int32_t orderedPattern(int32_t bits) { return bits < 0 ? wrapSub(INT32_MIN, bits) : bits; }

int32_t _ieee_float_cmp_ulps(int32_t a, int32_t b, int32_t maxUlps) {
    constexpr int32_t kTwoOrMore = 0x40000000;
    if ((a ^ b) < 0) {
        if ((a | b) & kTwoOrMore) return a > b ? 1 : -1;
        const int32_t distance = wrapAdd(wrapAdd(a, b), INT32_MIN);  // the sum of both magnitudes
        if (distance <= maxUlps) return 0;
        return a > b ? 1 : -1;
    }
    const int32_t distance = wrapSub(orderedPattern(a), orderedPattern(b));
    if (distance >= 0) return distance > maxUlps;
    return wrapNeg(distance) > maxUlps ? -1 : 0;
}
