#include "tools/encode/bone_matrix.h"

#include <cmath>
#include <numbers>
#include <stdexcept>

namespace encode {

BoneMatrix translationBone(int16_t x, int16_t y, int16_t z) {
    BoneMatrix matrix = kIdentityBone;
    matrix[3] = x;
    matrix[7] = y;
    matrix[11] = z;
    return matrix;
}

BoneMatrix rotationBone(std::array<double, 3> axis, double degrees, std::array<int16_t, 3> translation) {
    const double length = std::sqrt(axis[0] * axis[0] + axis[1] * axis[1] + axis[2] * axis[2]);
    if (length == 0) throw std::invalid_argument("a rotation needs an axis");
    for (double& component : axis) component /= length;

    const double radians = degrees * std::numbers::pi / 180;
    const double sine = std::sin(radians), cosine = std::cos(radians);
    BoneMatrix matrix{};
    for (size_t row = 0; row < 3; ++row) {
        for (size_t column = 0; column < 3; ++column) {
            double element = axis[row] * axis[column] * (1 - cosine);
            if (row == column) element += cosine;
            // The skew-symmetric part: -z at (0, 1), +y at (0, 2), -x at (1, 2), mirrored with the other sign.
            else
                element += (column == (row + 1) % 3 ? -sine : sine) * axis[3 - row - column];
            matrix[row * 4 + column] = int16_t(std::lround(element * 4096));
        }
        matrix[row * 4 + 3] = translation[row];
    }
    return matrix;
}

}  // namespace encode
