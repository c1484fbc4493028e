#include "frame/trigonometry.h"

#include <cmath>

#include "frame/trigonometry_tables.h"

// Half pi as 0x1.921fb54442d18469898cc51701b839a252049c1 in pieces of at most 33 bits: their products with a whole
// number below 2^20 are exact. The last piece takes what 53 bits can.
static constexpr double kHalfPi1 = 0x1.921fb544p0;
static constexpr double kHalfPi2 = 0x0.42d18469p-32;
static constexpr double kHalfPi3 = 0x0.898cc517p-64;
static constexpr double kHalfPi4 = 0x0.01b839a252049cp-96;
static constexpr SplitDouble kHalfPi = {0x1.921fb54442d18p0, 0x1.1a62633145c07p-54};
static constexpr SplitDouble kPi = {0x1.921fb54442d18p1, 0x1.1a62633145c07p-53};

// a - b with the rounding error of the difference as tail.
static SplitDouble subtractExactly(double a, double b) {
    const double difference = a - b;
    const double taken = a - difference;
    return {difference, (a - (difference + taken)) - (b - taken)};
}

struct ReducedAngle {
    SplitDouble rest;  // -pi/4..pi/4
    int quarterTurns;  // taken off, modulo 4
};

static ReducedAngle reduceAngle(double radians) {
    constexpr double kLimit = 0x1p20 * kHalfPi1;
    if (std::fabs(radians) >= kLimit) radians = std::fmod(radians, 4 * kHalfPi.head);  // exact, but for the period
    const double quarters = std::floor(radians / kHalfPi.head + 0.5);
    const SplitDouble first = subtractExactly(radians - quarters * kHalfPi1, quarters * kHalfPi2);
    const SplitDouble second = subtractExactly(first.head, quarters * kHalfPi3);
    const double tail = (first.tail + second.tail) - quarters * kHalfPi4;
    const double head = second.head + tail;
    return {{head, (second.head - head) + tail}, int(quarters) & 3};
}

// Both use the power series, whose next term is below a fiftieth of the last place at pi/4.
static double sineOfRest(SplitDouble x) {
    constexpr double k3 = -1.0 / 6, k5 = 1.0 / 120, k7 = -1.0 / 5040, k9 = 1.0 / 362880, k11 = -1.0 / 39916800;
    constexpr double k13 = 1.0 / 6227020800, k15 = -1.0 / 1307674368000, k17 = 1.0 / 355687428096000;
    const double z = x.head * x.head;
    const double series = k5 + z * (k7 + z * (k9 + z * (k11 + z * (k13 + z * (k15 + z * k17)))));
    return x.head + (x.head * z * (k3 + z * series) + x.tail * (1 - 0.5 * z));
}

static double cosineOfRest(SplitDouble x) {
    constexpr double k4 = 1.0 / 24, k6 = -1.0 / 720, k8 = 1.0 / 40320, k10 = -1.0 / 3628800, k12 = 1.0 / 479001600;
    constexpr double k14 = -1.0 / 87178291200, k16 = 1.0 / 20922789888000;
    const double z = x.head * x.head;
    const double series = z * z * (k4 + z * (k6 + z * (k8 + z * (k10 + z * (k12 + z * (k14 + z * k16))))));
    const double start = 1 - 0.5 * z;
    return start + ((1 - start) - 0.5 * z + (series - x.head * x.tail));
}

double stableSin(double radians) {
    if (!std::isfinite(radians)) return NAN;
    if (radians == 0) return radians;  // keeps the sign of zero
    const ReducedAngle angle = reduceAngle(radians);
    const double value = angle.quarterTurns & 1 ? cosineOfRest(angle.rest) : sineOfRest(angle.rest);
    return angle.quarterTurns & 2 ? -value : value;
}

double stableCos(double radians) {
    if (!std::isfinite(radians)) return NAN;
    const ReducedAngle angle = reduceAngle(radians);
    const double value = angle.quarterTurns & 1 ? sineOfRest(angle.rest) : cosineOfRest(angle.rest);
    return (angle.quarterTurns + 1) & 2 ? -value : value;
}

// p(z) of asin(s) = s + s * z * p(z), times z
static double arcsineExcess(double z) {
    double sum = 0;
    for (size_t i = kArcsinePolynomial.size(); i-- > 0;) sum = sum * z + kArcsinePolynomial[i];
    return sum * z;
}

double stableAcos(double cosine) {
    if (!(std::fabs(cosine) <= 1)) return NAN;
    if (std::fabs(cosine) < 0.5)  // pi/2 - asin
        return kHalfPi.head - (cosine - (kHalfPi.tail - cosine * arcsineExcess(cosine * cosine)));
    const double z = (1 - std::fabs(cosine)) * 0.5;  // the squared sine of half the angle from 1 or -1
    const double sine = std::sqrt(z);
    const double excess = arcsineExcess(z);
    if (cosine < 0) return kPi.head - 2 * (sine + (sine * excess - kHalfPi.tail));
    if (z == 0) return 0;
    // sine's upper half squares exactly, which gives the error of the root.
    const double upper = double(float(sine));
    const double lower = (z - upper * upper) / (sine + upper);
    return 2 * (upper + (sine * excess + lower));
}

// For 0..1, as an unrounded sum. Around c = i / 16: atan(x) = atan(c) + atan((x - c) / (1 + x c)), and 0 serves up to
// 3/32. The series' next term is below a hundredth of the last place.
static SplitDouble arctangentUpToOne(double x) {
    const size_t i = x < 0.09375 ? 0 : size_t(x * 16 + 0.5);
    const double c = double(i) * 0.0625;
    const double t = (x - c) / (1 + x * c);
    const double z = t * t;
    const double series = 1.0 / 9 + z * (-1.0 / 11 + z * (1.0 / 13 + z * (-1.0 / 15 + z * (1.0 / 17))));
    const double excess = z * (-1.0 / 3 + z * (1.0 / 5 + z * (-1.0 / 7 + z * series)));
    return {kArctangentOfSixteenths[i].head, t + (t * excess + kArctangentOfSixteenths[i].tail)};
}

double stableAtan(double tangent) {
    if (tangent != tangent) return NAN;
    const double size = std::fabs(tangent);
    const SplitDouble angle = arctangentUpToOne(size <= 1 ? size : 1 / size);
    if (size <= 1) return std::copysign(angle.head + angle.tail, tangent);
    const SplitDouble rest = subtractExactly(kHalfPi.head, angle.head);
    return std::copysign(rest.head + (rest.tail - (angle.tail - kHalfPi.tail)), tangent);
}
