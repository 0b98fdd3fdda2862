// 4x4 matrices of the interface: row-major, translation in elements 12 to 14, row vectors (p' = p M).
// Results may lie in the same memory as arguments.
#pragma once

#include "shader.h"

namespace stage {

void matrix_identity(miScalar* r);
void matrix_null(miScalar* r);
[[nodiscard]] bool matrix_is_identity(const miScalar* m);
void matrix_copy(miScalar* r, const miScalar* a);

// r = a b: first a, then b.
void matrix_product(miScalar* r, const miScalar* a, const miScalar* b);

// Computed in double precision. False, and r untouched, when the matrix is singular, is not finite or has an
// inverse beyond single precision.
[[nodiscard]] bool matrix_invert(miScalar* r, const miScalar* a);

// Turns about x, then y, then z, by radians, counterclockwise when the axis points at the viewer.
void matrix_rotate(miScalar* r, miScalar x_angle, miScalar y_angle, miScalar z_angle);

// With the translation; divides by the fourth coordinate unless that is 0 or 1.
[[nodiscard]] miVector transform_point(const miVector& v, const miScalar* m);

// Without the translation. Inline: every sample has a direction to transform.
[[nodiscard]] inline miVector transform_vector(const miVector& v, const miScalar* m) {
    return {v.x * m[0] + v.y * m[4] + v.z * m[8], v.x * m[1] + v.y * m[5] + v.z * m[9],
            v.x * m[2] + v.y * m[6] + v.z * m[10]};
}

// By the transposed 3x3 part: a normal is taken to a space with the matrix that leads back from it.
[[nodiscard]] miVector transform_vector_transposed(const miVector& v, const miScalar* m);

} // namespace stage
