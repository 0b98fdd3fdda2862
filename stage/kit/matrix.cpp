// Matrix arithmetic of the interface.
#include "kit/matrix.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace stage {

namespace {

constexpr miMatrix identity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

// A pivot this much smaller than its row's largest element is what rounding leaves of a zero.
constexpr double smallest_pivot = 1e-14;

// The matrix to invert and, beside it, what becomes the inverse.
using Row = std::array<double, 8>;
using System = std::array<Row, 4>;

System system_of(const miScalar* a) {
    System rows{};
    for (std::size_t i = 0; i < 4; ++i) {
        for (std::size_t j = 0; j < 4; ++j)
            rows[i][j] = static_cast<double>(a[4 * i + j]);
        rows[i][4 + i] = 1.0;
    }
    return rows;
}

// Divides each row by its largest element, so that pivots of all rows can be compared. False when a row is
// null or not finite.
bool scale_rows(System& rows) {
    for (Row& row : rows) {
        double largest = 0.0;
        for (std::size_t j = 0; j < 4; ++j) {
            if (!std::isfinite(row[j]))
                return false;
            largest = std::max(largest, std::fabs(row[j]));
        }
        if (largest == 0.0)
            return false;
        for (double& value : row)
            value /= largest;
    }
    return true;
}

bool eliminate_column(System& rows, std::size_t column) {
    std::size_t pivot = column;
    for (std::size_t i = column + 1; i < 4; ++i)
        if (std::fabs(rows[i][column]) > std::fabs(rows[pivot][column]))
            pivot = i;
    if (std::fabs(rows[pivot][column]) < smallest_pivot)
        return false;
    std::swap(rows[pivot], rows[column]);
    const double divisor = rows[column][column];
    for (double& value : rows[column])
        value /= divisor;
    for (std::size_t i = 0; i < 4; ++i) {
        const double factor = rows[i][column];
        if (i == column || factor == 0.0)
            continue;
        for (std::size_t j = 0; j < 8; ++j)
            rows[i][j] -= factor * rows[column][j];
    }
    return true;
}

} // namespace

void matrix_identity(miScalar* r) {
    matrix_copy(r, identity);
}

void matrix_null(miScalar* r) {
    std::fill_n(r, 16, 0.0f);
}

bool matrix_is_identity(const miScalar* m) {
    return std::equal(m, m + 16, identity);
}

void matrix_copy(miScalar* r, const miScalar* a) {
    std::memmove(r, a, sizeof(miMatrix));
}

void matrix_product(miScalar* r, const miScalar* a, const miScalar* b) {
    miMatrix result;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double sum = 0.0;
            for (int k = 0; k < 4; ++k)
                sum += static_cast<double>(a[4 * i + k]) * static_cast<double>(b[4 * k + j]);
            result[4 * i + j] = static_cast<miScalar>(sum);
        }
    matrix_copy(r, result);
}

bool matrix_invert(miScalar* r, const miScalar* a) {
    System rows = system_of(a);
    if (!scale_rows(rows))
        return false;
    for (std::size_t column = 0; column < 4; ++column)
        if (!eliminate_column(rows, column))
            return false;
    miMatrix result;
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 4; ++j) {
            const double value = rows[i][4 + j] + 0.0; // no negative zeros
            if (!(std::fabs(value) <= static_cast<double>(std::numeric_limits<miScalar>::max())))
                return false;
            result[4 * i + j] = static_cast<miScalar>(value);
        }
    matrix_copy(r, result);
    return true;
}

void matrix_rotate(miScalar* r, miScalar x_angle, miScalar y_angle, miScalar z_angle) {
    const double sx = std::sin(static_cast<double>(x_angle)), cx = std::cos(static_cast<double>(x_angle));
    const double sy = std::sin(static_cast<double>(y_angle)), cy = std::cos(static_cast<double>(y_angle));
    const double sz = std::sin(static_cast<double>(z_angle)), cz = std::cos(static_cast<double>(z_angle));
    const std::array<double, 9> turn = {cy * cz,
                                        cy * sz,
                                        -sy,
                                        sx * sy * cz - cx * sz,
                                        sx * sy * sz + cx * cz,
                                        sx * cy,
                                        cx * sy * cz + sx * sz,
                                        cx * sy * sz - sx * cz,
                                        cx * cy};
    matrix_identity(r);
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            r[4 * i + j] = static_cast<miScalar>(turn[3 * i + j]);
}

miVector transform_point(const miVector& v, const miScalar* m) {
    const miVector p = {v.x * m[0] + v.y * m[4] + v.z * m[8] + m[12],
                        v.x * m[1] + v.y * m[5] + v.z * m[9] + m[13],
                        v.x * m[2] + v.y * m[6] + v.z * m[10] + m[14]};
    const miScalar w = v.x * m[3] + v.y * m[7] + v.z * m[11] + m[15];
    if (w == 0.0f || w == 1.0f)
        return p;
    return {p.x / w, p.y / w, p.z / w};
}

miVector transform_vector_transposed(const miVector& v, const miScalar* m) {
    return {v.x * m[0] + v.y * m[1] + v.z * m[2], v.x * m[4] + v.y * m[5] + v.z * m[6],
            v.x * m[8] + v.y * m[9] + v.z * m[10]};
}

} // namespace stage
