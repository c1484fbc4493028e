#include "animation/quaternion.h"

#include <algorithm>
#include <cmath>

#include "frame/trigonometry.h"
#include "scene/transform.h"

constexpr float kDegreesPerRadian = 57.295776f;

// Angles pass through degrees, in the single-precision constants of all angles of the engine.
static double sineOfDegrees(double degrees) { return stableSin(degrees * kRadiansPerDegree); }

Quaternion Quaternion_load(const float q[4]) { return {q[0], q[1], q[2], q[3]}; }

void Quaternion_normalize(float q[4]) {
    const auto [x, y, z, w] = Quaternion_load(q);
    const double length = std::sqrt(x * x + y * y + z * z + w * w);
    const bool hasDirection = length > 0 && std::isfinite(length);
    q[0] = hasDirection ? float(x / length) : 0.0f;
    q[1] = hasDirection ? float(y / length) : 0.0f;
    q[2] = hasDirection ? float(z / length) : 0.0f;
    q[3] = hasDirection ? float(w / length) : 1.0f;
}

Quaternion Quaternion_conjugate(const Quaternion& q) { return {-q.x, -q.y, -q.z, q.w}; }

Quaternion Quaternion_multiply(const Quaternion& a, const Quaternion& b) {
    return {a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
            a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

Quaternion Quaternion_add(const Quaternion& a, const Quaternion& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z, a.w + b.w};
}

Quaternion Quaternion_scale(double factor, const Quaternion& q) {
    return {factor * q.x, factor * q.y, factor * q.z, factor * q.w};
}

Quaternion Quaternion_log(const Quaternion& q) {
    constexpr double kSmallestSine = 0.001;
    double factor = 1;
    if (std::fabs(q.w) < 1) {
        const double angle = stableAcos(q.w);
        const double sine = sineOfDegrees(angle * kDegreesPerRadian);
        if (std::fabs(sine) >= kSmallestSine) factor = angle / sine;
    }
    return {factor * q.x, factor * q.y, factor * q.z, 0};
}

Quaternion Quaternion_exp(const Quaternion& q) {
    constexpr double kSmallestSine = 0.0001;
    const double angle = std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z);
    const double sine = sineOfDegrees(angle * kDegreesPerRadian);
    const double factor = std::fabs(sine) < kSmallestSine ? 1 : sine / angle;
    return {factor * q.x, factor * q.y, factor * q.z, stableCos(angle)};
}

Quaternion Quaternion_slerp(double s, const Quaternion& a, const Quaternion& b, SlerpPath path) {
    constexpr float kCosineOfOneDegree = 0.9998476f;  // below one degree the chord is as good as the arc
    double cosine = a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
    const bool turns = path == SlerpPath::Shortest && cosine < 0;
    if (turns) cosine = -cosine;

    double weightA = 1 - s, weightB = s;
    if (cosine < kCosineOfOneDegree) {
        // Rounding can take opposite quaternions just beyond -1.
        const double degrees = stableAcos(std::max(cosine, -1.0)) * kDegreesPerRadian;
        const double sine = sineOfDegrees(degrees);
        weightA = sineOfDegrees((1 - s) * degrees) / sine;
        weightB = sineOfDegrees(s * degrees) / sine;
    }
    return Quaternion_add(Quaternion_scale(turns ? -weightA : weightA, a), Quaternion_scale(weightB, b));
}
