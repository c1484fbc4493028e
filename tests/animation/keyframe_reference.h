// What a keyframe sequence yields, calculated a second time: in long double, by walking over a list of all segments of
// one round, with the C library's trigonometry and exact angles. Nothing of it is fast, and nothing of the library's is
// used.
#pragma once

#include <array>
#include <vector>

#include "tests/animation/keyframes.h"

using Real = long double;
using Reals = std::vector<Real>;

class KeyframeReference {
public:
    explicit KeyframeReference(const SequencePlan& plan);
    Reals sample(int64_t time) const;

private:
    struct Point {
        Real time;
        Reals values;
        Reals out, in;  // tangents or guiding quaternions
    };
    struct Factors {
        Real out, in;
    };
    void computeCurves();
    Factors factorsAt(size_t i) const;
    const Point& neighbour(size_t i, int step) const;
    Reals between(const Point& a, const Point& b, Real s) const;

    Interpolation interpolation_;
    bool loops_;
    Real duration_;
    std::vector<Point> points_;  // of the valid range, in its order
};
