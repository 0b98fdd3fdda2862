// Colour profiles: matrices from chromaticities, and the curves of stored components.
#include "scene/color_profile.h"

#include <algorithm>
#include <cmath>

namespace stage {

namespace {

using Vector = std::array<double, 3>;

Vector operator*(const Matrix3& m, const Vector& v) {
    return {m[0] * v[0] + m[1] * v[1] + m[2] * v[2], m[3] * v[0] + m[4] * v[1] + m[5] * v[2],
            m[6] * v[0] + m[7] * v[1] + m[8] * v[2]};
}

Matrix3 operator*(const Matrix3& a, const Matrix3& b) {
    Matrix3 product{};
    for (std::size_t row = 0; row < 3; ++row)
        for (std::size_t column = 0; column < 3; ++column)
            for (std::size_t k = 0; k < 3; ++k)
                product[3 * row + column] += a[3 * row + k] * b[3 * k + column];
    return product;
}

// Not finite for a matrix without inverse.
Matrix3 inverse(const Matrix3& m) {
    const auto minor = [&m](std::size_t a, std::size_t b, std::size_t c, std::size_t d) {
        return m[a] * m[d] - m[b] * m[c];
    };
    const Matrix3 adjugate = {minor(4, 5, 7, 8), minor(2, 1, 8, 7), minor(1, 2, 4, 5),
                              minor(5, 3, 8, 6), minor(0, 2, 6, 8), minor(2, 0, 5, 3),
                              minor(3, 4, 6, 7), minor(1, 0, 7, 6), minor(0, 1, 3, 4)};
    const double determinant = m[0] * adjugate[0] + m[1] * adjugate[3] + m[2] * adjugate[6];
    Matrix3 result;
    std::ranges::transform(adjugate, result.begin(), [=](double cofactor) { return cofactor / determinant; });
    return result;
}

// At the luminance Y = 1.
Vector ciexyz_of(Chromaticity c) {
    return {c.x / c.y, 1.0, (1.0 - c.x - c.y) / c.y};
}

Matrix3 scaling(const Vector& s) {
    return {s[0], 0, 0, 0, s[1], 0, 0, 0, s[2]};
}

// CIE XYZ under one white to the same appearance under another.
Matrix3 adaptation(Chromaticity from, Chromaticity to) {
    constexpr Matrix3 cones = {0.8951, 0.2664, -0.1614, -0.7502, 1.7135, 0.0367, 0.0389, -0.0685, 1.0296};
    const Vector old_white = cones * ciexyz_of(from), new_white = cones * ciexyz_of(to);
    return inverse(cones) *
           scaling({new_white[0] / old_white[0], new_white[1] / old_white[1], new_white[2] / old_white[2]}) *
           cones;
}

bool is_finite(const Matrix3& m) {
    return std::ranges::all_of(m, [](double value) { return std::isfinite(value); });
}

// The curves of IEC 61966-2-1:1999, and powers.
double linear_of(double stored, double gamma) {
    const double size = std::fabs(stored);
    if (gamma > 0.0)
        return std::copysign(std::pow(size, gamma), stored);
    return std::copysign(size <= 0.04045 ? size / 12.92 : std::pow((size + 0.055) / 1.055, 2.4), stored);
}

double stored_of(double linear, double gamma) {
    const double size = std::fabs(linear);
    if (gamma > 0.0)
        return std::copysign(std::pow(size, 1.0 / gamma), linear);
    return std::copysign(size <= 0.0031308 ? size * 12.92 : 1.055 * std::pow(size, 1.0 / 2.4) - 0.055,
                         linear);
}

miColor color_of(const Vector& v, miScalar alpha) {
    return {static_cast<miScalar>(v[0]), static_cast<miScalar>(v[1]), static_cast<miScalar>(v[2]), alpha};
}

} // namespace

Matrix3 ciexyz_of_primaries(const std::array<Chromaticity, 3>& primaries, Chromaticity white) {
    Matrix3 columns;
    for (std::size_t k = 0; k < 3; ++k) {
        const Vector primary = ciexyz_of(primaries[k]);
        for (std::size_t row = 0; row < 3; ++row)
            columns[3 * row + k] = primary[row];
    }
    return columns * scaling(inverse(columns) * ciexyz_of(white));
}

bool ColorProfile::settle() {
    const Matrix3 to_ciexyz = has_matrix ? matrix : ciexyz_of_primaries(primaries, white);
    const bool same_white = white.x == render_white.x && white.y == render_white.y;
    const Matrix3 adapted = same_white ? to_ciexyz : adaptation(white, render_white) * to_ciexyz;
    to_render = inverse(ciexyz_of_primaries(render_primaries, render_white)) * adapted;
    from_render = inverse(to_render);
    return is_finite(to_render) && is_finite(from_render);
}

miColor ColorProfile::decoded(const miColor& stored) const {
    const auto linear = [this](miScalar c) { return linear_of(static_cast<double>(c), gamma); };
    return color_of(to_render * Vector{linear(stored.r), linear(stored.g), linear(stored.b)}, stored.a);
}

miColor ColorProfile::encoded(const miColor& color) const {
    const Vector linear = from_render * Vector{static_cast<double>(color.r), static_cast<double>(color.g),
                                               static_cast<double>(color.b)};
    return color_of({stored_of(linear[0], gamma), stored_of(linear[1], gamma), stored_of(linear[2], gamma)},
                    color.a);
}

} // namespace stage
