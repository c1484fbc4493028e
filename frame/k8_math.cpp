// The exported K8Math family: conversions around the kernels.
#include "frame/fixed_point.h"
#include "frame/wrap.h"
#include "k8.h"

static constexpr int32_t kFullTurnDegrees = 360 * kFixedOne;
static constexpr int32_t kDegreesPerAngle = kFullTurnDegrees / 4096;

// --- Conversion ---

int32_t K8Math_J2F(float j) { return j2f(j); }
int32_t K8Math_J2I(float j) { return j2f(j); }
float K8Math_F2J(int32_t f) { return f2j(f); }
float K8Math_I2J(int32_t f) { return f2j(f); }
int32_t K8Math_F2I(int32_t f) { return f; }
int32_t K8Math_I2F(int32_t f) { return f; }

int32_t K8Math_convAngleF2I(float degrees) {
    const int32_t fixedDegrees = j2f(degrees);
    const int32_t rest = int32_t(magnitude(fixedDegrees) % uint32_t(kFullTurnDegrees));
    return (fixedDegrees < 0 ? kFullTurnDegrees - rest : rest) / kDegreesPerAngle;
}

int32_t K8Math_convAngleI2F(int32_t angle) { return (angle & 4095) * kDegreesPerAngle; }

// --- Arithmetic ---

int32_t K8Math_add(float a, float b) { return wrapAdd(j2f(a), j2f(b)); }
int32_t K8Math_sub(float a, float b) { return wrapSub(j2f(a), j2f(b)); }
int32_t K8Math_mul(float a, float b) { return fixedMul(j2f(a), j2f(b)); }
int32_t K8Math_div(float a, float b) { return fixedDiv(j2f(a), j2f(b)); }
int32_t K8Math_abs(float a) { return int32_t(magnitude(j2f(a))); }

// The root of a number with 12 fraction bits has 6: six more make it an F number.
int32_t K8Math_sqrt(float a) { return int32_t(integerSqrt(uint32_t(j2f(a))) << 6); }

// --- Angles ---

int32_t K8Math_sin(float degrees) { return sine12(K8Math_convAngleF2I(degrees)); }
int32_t K8Math_cos(float degrees) { return cosine12(K8Math_convAngleF2I(degrees)); }

int32_t K8Math_tan(float degrees) {
    const int32_t angle = K8Math_convAngleF2I(degrees);
    const int32_t cosine = cosine12(angle) * 64;
    return cosine ? sine12(angle) * (1 << 18) / cosine : 0;
}

// angle: 1/2^20 of a turn. Cut to 1/16384 of a turn, of which 90 make 1/4096 of a degree; negative angles round the
// same way as positive ones, in ones' complement.
static int32_t degreesOfAngle20(int32_t angle) { return angle >= 0 ? (angle >> 6) * 90 : ~((~angle >> 6) * 90); }

static bool isOutsideUnit(int32_t sine) { return sine < -kFixedOne || sine > kFixedOne; }

int32_t K8Math_asin(float a) {
    const int32_t sine = j2f(a);  // NaN, the infinities and -0 become 0
    if (isOutsideUnit(sine) || sine == 0) return 0;
    if (sine == kFixedOne) return kFixedQuarterTurn;
    if (sine == -kFixedOne) return -kFixedQuarterTurn;
    return degreesOfAngle20(arcsine20(sine * 256));
}

int32_t K8Math_acos(float a) {
    const int32_t cosine = j2f(a);
    if (isOutsideUnit(cosine)) return 0;
    if (cosine == 0) return kFixedQuarterTurn;
    if (cosine == kFixedOne) return 0;
    if (cosine == -kFixedOne) return 2 * kFixedQuarterTurn;
    return degreesOfAngle20((1 << 18) - arcsine20(cosine * 256));
}

// z / (1 + z^2 / (3 + 4 z^2 / (5 + ... + 64 z^2 / 17))), at most 1.7e-7 off for |z| up to 1
static double arctangentUpToOne(double z) {
    double fraction = 0;
    for (int n = 8; n > 0; --n) fraction = n * n * z * z / (2 * n + 1 + fraction);
    return z / (1 + fraction);
}

int32_t K8Math_atan(float a) {
    constexpr float kQuarterTurn = 1.57075f;  // radians; the interface rounds half pi to this
    constexpr float kDegreesPerRadian = 57.29578f;
    double radians;
    if (a >= -1 && a <= 1)
        radians = arctangentUpToOne(a);
    else if (a > 1)
        radians = kQuarterTurn - arctangentUpToOne(1.0 / a);
    else
        radians = -kQuarterTurn - arctangentUpToOne(1.0 / a);  // NaN comes here too and stays one
    return j2f(float(radians * kDegreesPerRadian));
}

int32_t K8Math_atan2(float a, float b) {
    const int32_t fixedA = j2f(a), fixedB = j2f(b);
    if (fixedA == 0) return kFixedQuarterTurn;
    if (fixedB == 0) return 0;
    const int32_t degrees = K8Math_atan(f2j(K8Math_div(b, a)));
    return (fixedA ^ fixedB) < 0 ? K8Math_add(f2j(degrees), 180.0f) : degrees;
}

// --- Vectors ---

bool K8Math_normalizeVector(int32_t* v) { return normalizeFixed(v); }
bool K8Math_normalize(int32_t* v) { return normalizeFixed(v); }
int32_t K8Math_dotVectors(const int32_t* a, const int32_t* b) { return dotFixed(a, b); }
void K8Math_crossVectors(const int32_t* a, const int32_t* b, int32_t* out) { crossFixed(a, b, out); }
