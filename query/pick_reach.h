// How far from a triangle the test of PickRay_hits can find a hit: what lets most triangles be left out without it.
//
// Let e be 2^-24, and A, B, m, t, h, w, u, v the test's floats for a triangle at p0 with edges A = e1 and B = e2, sides
// L = |A| + |B|, and the sine c = |A x B| / |A||B|. When nothing overflows or underflows:
//
// 1. h = o + t d was rounded twice: it lies within r1 = 2e (|o| + |t d|) of the ray, at t >= 0.
// 2. m is off by 3e |A||B|, den by 3e |m||d|, num by 4e |o - p0||m|. Whatever t has become of that, h lies within
//    r2 = 5e (|o - p0| + |t d|) + r1 of the plane through p0 with the normal m, which is tilted by 3e / c.
// 3. With W = h - p0 in the plane, u is (W x B)(A x B) / |A x B|^2. Its numerator is off by 17e |W||A||B|^2, q by
//    15e |A|^2|B|^2, so a passing u is off by K (|W| / |A| + 1), where K = 17e / c^2; v likewise with |W| / |B|.
// 4. Passing u and v put h within K (2 |W| + L) + 3e |W| / c + r2 of p0 + u A + v B. For c > 1/256, K is slightly above
//    1/16 at most, so |W| < 1.24 L + 1.16 r2.
// 5. p0 + u A + v B is no farther than 2 L / 10000 from the triangle, so h is within L (2 / 10000 + 64e / c^2) + 1.4 r2
//    of it, and within 1.3 L + 1.2 r2 of p0.
//
// PickReach::slack is an upper bound of r1 + 1.4 r2, of what positions lose by being rounded, and of what those lose
// who calculate with the ray in floats; it is 256e times the numbers involved, of which some 175e are spoken for.
// Slivers, with c below 1/256, can be hit anywhere along their line: they have to be tested.
#pragma once

#include "query/pick_triangle.h"

// Lengths in steps: the positions' integers, which count as 128 steps each when they are bytes. All positions lie
// within 2^15 steps; with a bias of up to twice that, rounding moves them by less than 1/128 step per component.
struct PickReach {
    float step;       // may be negative
    float slack;      // steps
    float origin[3];  // of the ray, in steps from the bias
};

constexpr int32_t kStepsPerByte = 128;
inline int32_t stepsPerUnit(int32_t componentSize) { return componentSize == 1 ? kStepsPerByte : 1; }

// False when positions or ray are out of the range in which the above holds: numbers that are not finite, or so large
// or small that a product could overflow or vanish.
bool PickReach_of(const VertexBuffer* buffer, const PickRay& ray, PickReach* reach);
