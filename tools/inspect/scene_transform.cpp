#include "tools/inspect/scene_transform.h"

#include <algorithm>
#include <cmath>

namespace inspect {

SceneMatrix product(const SceneMatrix& a, const SceneMatrix& b) {
    if (a == kSceneIdentity) return b;
    if (b == kSceneIdentity) return a;
    SceneMatrix out;
    for (size_t row = 0; row < 4; ++row) {
        const float* left = &a[4 * row];
        for (size_t column = 0; column < 4; ++column)
            out[4 * row + column] =
                left[0] * b[column] + left[1] * b[4 + column] + left[2] * b[8 + column] + left[3] * b[12 + column];
    }
    return out;
}

static SceneMatrix rotationOf(const SceneTransform& transform) {
    if (transform.angle == 0) return kSceneIdentity;
    const double ax = transform.axis[0], ay = transform.axis[1], az = transform.axis[2];
    const double scale = 1.0 / std::sqrt(ax * ax + ay * ay + az * az);
    const double x = float(ax * scale), y = float(ay * scale), z = float(az * scale);
    const double radians = double(transform.angle) * 0.017453292f;
    const double s = std::sin(radians), c = float(std::cos(radians)), u = float(1.0 - c);
    const double block[9] = {u * x * x + c,     u * x * y - s * z, u * x * z + s * y, u * x * y + s * z, u * y * y + c,
                             u * y * z - s * x, u * x * z - s * y, u * y * z + s * x, u * z * z + c};
    SceneMatrix out = kSceneIdentity;
    for (size_t i = 0; i < 9; ++i) out[4 * (i / 3) + i % 3] = float(block[i]);
    return out;
}

SceneMatrix compositeOf(const SceneTransform& transform) {
    SceneMatrix out = rotationOf(transform);
    for (size_t row = 0; row < 3; ++row) {
        for (size_t column = 0; column < 3; ++column) out[4 * row + column] *= transform.scale[column];
        out[4 * row + 3] = transform.translation[row];
    }
    return transform.matrix ? product(out, *transform.matrix) : out;
}

// Gaussian elimination; the pivot of a column is the largest entry in proportion to its row. Entries that overflowed
// count as regular.
bool isSingular(const SceneMatrix& matrix) {
    std::array<std::array<double, 4>, 4> m;
    std::array<double, 4> scales;
    for (size_t row = 0; row < 4; ++row) {
        double largest = 0;
        for (size_t column = 0; column < 4; ++column) {
            m[row][column] = matrix[4 * row + column];
            const double size = std::fabs(m[row][column]);
            if (size > largest || std::isnan(size)) largest = size;
        }
        if (largest == 0) return true;
        scales[row] = 1.0 / largest;
    }
    for (size_t column = 0; column < 4; ++column) {
        const auto weigh = [&](size_t row) { return std::fabs(m[row][column]) * scales[row]; };
        size_t pivot = column;
        for (size_t row = column + 1; row < 4; ++row)
            if (weigh(row) > weigh(pivot)) pivot = row;
        std::swap(m[pivot], m[column]);
        std::swap(scales[pivot], scales[column]);
        if (m[column][column] == 0) return true;
        for (size_t row = column + 1; row < 4; ++row) {
            const double factor = m[row][column] / m[column][column];
            for (size_t right = column + 1; right < 4; ++right) m[row][right] -= factor * m[column][right];
        }
    }
    return false;
}

}  // namespace inspect
