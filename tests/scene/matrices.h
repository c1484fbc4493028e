// Matrices by rows, calculated in other ways than the engine does.
#pragma once

#include <array>
#include <cstddef>
#include <optional>

using Matrix = std::array<float, 16>;
using LongMatrix = std::array<long double, 16>;

// Every sum in single precision, column by column.
inline Matrix product(const Matrix& a, const Matrix& b) {
    Matrix out{};
    for (size_t row = 0; row < 4; ++row)
        for (size_t column = 0; column < 4; ++column) {
            volatile float sum = a[4 * row] * b[column];  // rounded at every step
            for (size_t k = 1; k < 4; ++k) {
                volatile float term = a[4 * row + k] * b[4 * k + column];
                sum = sum + term;
            }
            out[4 * row + column] = sum;
        }
    return out;
}

// The adjugate over the determinant; nothing for a singular matrix.
inline std::optional<LongMatrix> inverse(const Matrix& m) {
    const auto minorOf = [&m](size_t row, size_t column) {
        std::array<long double, 9> n;
        size_t i = 0;
        for (size_t r = 0; r < 4; ++r)
            for (size_t c = 0; c < 4; ++c)
                if (r != row && c != column) n[i++] = m[4 * r + c];
        return n[0] * (n[4] * n[8] - n[5] * n[7]) - n[1] * (n[3] * n[8] - n[5] * n[6]) +
               n[2] * (n[3] * n[7] - n[4] * n[6]);
    };
    long double determinant = 0;
    for (size_t c = 0; c < 4; ++c) determinant += (c % 2 ? -1 : 1) * m[c] * minorOf(0, c);
    if (determinant == 0) return {};
    LongMatrix out;
    for (size_t r = 0; r < 4; ++r)
        for (size_t c = 0; c < 4; ++c) out[4 * r + c] = ((r + c) % 2 ? -1 : 1) * minorOf(c, r) / determinant;
    return out;
}
