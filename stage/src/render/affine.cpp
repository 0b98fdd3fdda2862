#include "render/affine.h"

#include <cmath>

namespace stage {

std::optional<Affine> Affine::from(const miScalar* m) {
    for (int i = 0; i < 16; ++i)
        if (!std::isfinite(m[i]))
            return std::nullopt;
    const double w = m[15];
    if (m[3] != 0.0f || m[7] != 0.0f || m[11] != 0.0f || w == 0.0)
        return std::nullopt;
    Affine a;
    for (std::size_t row = 0; row < 4; ++row)
        for (std::size_t column = 0; column < 3; ++column)
            a.rows[row][column] = m[4 * row + column] / w;
    return a;
}

void Affine::store(miScalar* m) const {
    for (std::size_t row = 0; row < 4; ++row) {
        for (std::size_t column = 0; column < 3; ++column)
            m[4 * row + column] = static_cast<miScalar>(rows[row][column]);
        m[4 * row + 3] = row == 3 ? 1.0f : 0.0f;
    }
}

Affine operator*(const Affine& a, const Affine& b) {
    Affine r;
    for (std::size_t row = 0; row < 4; ++row)
        for (std::size_t column = 0; column < 3; ++column) {
            double sum = row == 3 ? b.rows[3][column] : 0.0;
            for (std::size_t k = 0; k < 3; ++k)
                sum += a.rows[row][k] * b.rows[k][column];
            r.rows[row][column] = sum;
        }
    return r;
}

double Affine::determinant() const {
    const auto& [x, y, z, t] = rows;
    return x[0] * (y[1] * z[2] - y[2] * z[1]) - x[1] * (y[0] * z[2] - y[2] * z[0]) +
           x[2] * (y[0] * z[1] - y[1] * z[0]);
}

std::optional<Affine> Affine::inverse() const {
    const auto& [x, y, z, t] = rows;
    const double det = determinant();
    const double size =
        std::hypot(x[0], x[1], x[2]) * std::hypot(y[0], y[1], y[2]) * std::hypot(z[0], z[1], z[2]);
    if (!(std::abs(det) > 1e-12 * size))
        return std::nullopt;
    Affine r;
    for (std::size_t column = 0; column < 3; ++column) {
        // Columns of the inverse of L are cross products of its rows.
        const auto& p = rows[(column + 1) % 3];
        const auto& q = rows[(column + 2) % 3];
        r.rows[0][column] = (p[1] * q[2] - p[2] * q[1]) / det;
        r.rows[1][column] = (p[2] * q[0] - p[0] * q[2]) / det;
        r.rows[2][column] = (p[0] * q[1] - p[1] * q[0]) / det;
    }
    for (std::size_t column = 0; column < 3; ++column)
        r.rows[3][column] = -(t[0] * r.rows[0][column] + t[1] * r.rows[1][column] + t[2] * r.rows[2][column]);
    return r;
}

} // namespace stage
