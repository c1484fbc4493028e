// What a keyframe sequence yields, calculated a second time: in long double, by walking over a list of all segments of
// one round, with the C library's trigonometry and exact angles. Nothing of it is fast, and nothing of the library's is
// used.
#pragma once

#include <cmath>
#include <vector>

#include "tests/animation/keyframes.h"

using Real = long double;
using Reals = std::vector<Real>;

// --- Quaternions (x, y, z, w) ---

inline Reals normalized(const Reals& q) {
    const Real length = std::hypot(std::hypot(q[0], q[1]), std::hypot(q[2], q[3]));
    if (length == 0) return {0, 0, 0, 1};
    return {q[0] / length, q[1] / length, q[2] / length, q[3] / length};
}

// (w1, v1)(w2, v2) = (w1 w2 - v1 v2, w1 v2 + w2 v1 + v1 x v2)
inline Reals quaternionProduct(const Reals& a, const Reals& b) {
    Reals q(4);
    q[3] = a[3] * b[3];
    for (size_t i = 0; i < 3; ++i) {
        const size_t j = (i + 1) % 3, k = (i + 2) % 3;
        q[3] -= a[i] * b[i];
        q[i] = a[3] * b[i] + b[3] * a[i] + a[j] * b[k] - a[k] * b[j];
    }
    return q;
}

inline Reals conjugate(const Reals& q) { return {-q[0], -q[1], -q[2], q[3]}; }

inline Reals logarithm(const Reals& q) {
    Real factor = 1;
    if (std::fabs(q[3]) < 1 && std::sin(std::acos(q[3])) >= 0.001L)
        factor = std::acos(q[3]) / std::sin(std::acos(q[3]));
    return {q[0] * factor, q[1] * factor, q[2] * factor, 0};
}

inline Reals exponential(const Reals& q) {
    const Real angle = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2]);
    const Real factor = std::fabs(std::sin(angle)) < 0.0001L ? 1 : std::sin(angle) / angle;
    return {q[0] * factor, q[1] * factor, q[2] * factor, std::cos(angle)};
}

// p a + q b
inline Reals weighted(Real p, const Reals& a, Real q, const Reals& b) {
    Reals sum(a.size());
    for (size_t i = 0; i < a.size(); ++i) sum[i] = p * a[i] + q * b[i];
    return sum;
}

inline Reals slerp(Real s, const Reals& a, Reals b, bool shortest) {
    Real cosine = 0;
    for (size_t i = 0; i < 4; ++i) cosine += a[i] * b[i];
    Real sign = 1;
    if (shortest && cosine < 0) {
        sign = -1;
        cosine = -cosine;
    }
    if (cosine >= 0.9998476L) return weighted(sign * (1 - s), a, s, b);
    const Real angle = std::acos(std::max(cosine, Real(-1)));
    return weighted(sign * std::sin((1 - s) * angle) / std::sin(angle), a, std::sin(s * angle) / std::sin(angle), b);
}

// --- The sequence ---

class KeyframeReference {
public:
    explicit KeyframeReference(const SequencePlan& plan)
        : interpolation_(plan.interpolation),
          loops_(plan.repeatMode == RepeatMode::Loop),
          duration_(Real(plan.duration)) {
        const size_t last = size_t(plan.validLast.value_or(int32_t(plan.keys.size()) - 1));
        for (size_t k = size_t(plan.validFirst);; k = (k + 1) % plan.keys.size()) {
            Point point{Real(plan.keys[k].time), {plan.keys[k].values.begin(), plan.keys[k].values.end()}, {}, {}};
            if (interpolation_ == Interpolation::Slerp || interpolation_ == Interpolation::Squad)
                point.values = normalized(point.values);
            points_.push_back(point);
            if (k == last) break;
        }
        for (size_t i = 0; i < points_.size(); ++i) computeCurve(i);
    }

    Reals sample(int64_t time) const {
        const Point &first = points_.front(), &last = points_.back();
        Real t = Real(time);
        if (loops_) {
            t = t - std::floor(t / duration_) * duration_;
            if (t == last.time) return last.values;
            const Real behindLast = t < first.time ? t + duration_ - last.time : t - last.time;
            const Real wrap = first.time + duration_ - last.time;
            if (t < first.time || t > last.time)
                return between(last, first, points_.size() == 1 ? 0 : behindLast / wrap);
        }
        if (t < first.time) return first.values;
        if (t >= last.time) return last.values;
        size_t i = 0;
        while (points_[i + 1].time <= t) ++i;
        return between(points_[i], points_[i + 1], (t - points_[i].time) / (points_[i + 1].time - points_[i].time));
    }

private:
    struct Point {
        Real time;
        Reals values;
        Reals out, in;  // tangents or guiding quaternions
    };

    const Point& neighbour(size_t i, int step) const {
        const size_t count = points_.size();
        if (loops_) return points_[(i + count + size_t(step)) % count];
        if ((i == 0 && step < 0) || (i == count - 1 && step > 0)) return points_[i];
        return points_[i + size_t(step)];
    }

    void computeCurve(size_t i) {
        Point& point = points_[i];
        const Point &before = neighbour(i, -1), &behind = neighbour(i, 1);
        const bool isFirst = i == 0, isLast = i == points_.size() - 1;
        const Real timeBefore = point.time - before.time + (isFirst ? duration_ : 0);
        const Real timeBehind = behind.time - point.time + (isLast ? duration_ : 0), both = timeBefore + timeBehind;
        const bool isFlat = both == 0 || (!loops_ && (isFirst || isLast));
        const Real out = isFlat ? 0 : 2 * timeBehind / both, in = isFlat ? 0 : 2 * timeBefore / both;
        if (interpolation_ == Interpolation::Spline) {
            const Reals base = weighted(0.5L, behind.values, -0.5L, before.values);
            point.out = weighted(out, base, 0, base);
            point.in = weighted(in, base, 0, base);
        } else if (interpolation_ == Interpolation::Squad) {
            const Reals logBefore = logarithm(quaternionProduct(conjugate(before.values), point.values));
            const Reals logBehind = logarithm(quaternionProduct(conjugate(point.values), behind.values));
            const Reals tangent = weighted(0.5L, logBefore, 0.5L, logBehind);
            const Reals logOut = weighted(0.5L * out, tangent, -0.5L, logBehind);
            const Reals logIn = weighted(0.5L, logBefore, -0.5L * in, tangent);
            point.out = quaternionProduct(point.values, exponential(logOut));
            point.in = quaternionProduct(point.values, exponential(logIn));
        }
    }

    Reals between(const Point& a, const Point& b, Real s) const {
        if (s == 0) return a.values;
        switch (interpolation_) {
            case Interpolation::Step: return a.values;
            case Interpolation::Linear: return weighted(1 - s, a.values, s, b.values);
            case Interpolation::Slerp: return slerp(s, a.values, b.values, true);
            case Interpolation::Squad:
                return slerp(2 * s * (1 - s), slerp(s, a.values, b.values, false), slerp(s, a.out, b.in, false), false);
            case Interpolation::Spline: break;
        }
        const Reals ends = weighted(1 - s * s * (3 - 2 * s), a.values, s * s * (3 - 2 * s), b.values);
        const Reals tangents = weighted(s * (1 - s) * (1 - s), a.out, -s * s * (1 - s), b.in);
        return weighted(1, ends, 1, tangents);
    }

    Interpolation interpolation_;
    bool loops_;
    Real duration_;
    std::vector<Point> points_;  // of the valid range, in its order
};
