#pragma once

#include <array>
#include <cstdint>

namespace encode {

// The 3x4 matrix of a bone as figure and action files carry it: m00 m01 m02 t0 m10 m11 m12 t1 m20 m21 m22 t2, applied
// to column vectors. The m entries are in units of 1/4096, the t entries in model units.
using BoneMatrix = std::array<int16_t, 12>;

constexpr BoneMatrix kIdentityBone = {4096, 0, 0, 0, 0, 4096, 0, 0, 0, 0, 4096, 0};

// No rotation; the bone stands at (x, y, z) of its parent.
BoneMatrix translationBone(int16_t x, int16_t y, int16_t z);

// A counter-clockwise turn (seen against the axis) by `degrees` about the axis, which need not be of unit length, then
// the translation. Throws std::invalid_argument for an axis of length 0.
BoneMatrix rotationBone(std::array<double, 3> axis, double degrees, std::array<int16_t, 3> translation = {});

}  // namespace encode
