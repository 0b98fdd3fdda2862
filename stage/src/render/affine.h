// Affine maps in double precision, for products along the instance graph.
#pragma once

#include <array>
#include <optional>

#include "shader.h"

namespace stage {

// Row vectors: p' = p L + t, with the rows of L and t as the first three columns of the interface's matrices.
struct Affine {
    std::array<std::array<double, 3>, 4> rows{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};

    // Nothing for a matrix that is not affine, or has a component that is not finite. A fourth column
    // (0, 0, 0, w) with another w than 0 is divided out.
    static std::optional<Affine> from(const miScalar* m);
    void store(miScalar* m) const;

    // First a, then b.
    friend Affine operator*(const Affine& a, const Affine& b);
    friend bool operator==(const Affine& a, const Affine& b) { return a.rows == b.rows; }

    [[nodiscard]] double determinant() const;
    // Nothing when the map flattens space (its rows are dependent to 12 digits).
    [[nodiscard]] std::optional<Affine> inverse() const;
};

} // namespace stage
