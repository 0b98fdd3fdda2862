// Directions over a surface, for samplers and gathering.
#pragma once

#include <cmath>
#include <numbers>

#include "render/vector.h"

namespace stage {

inline constexpr float two_pi = 2.0f * std::numbers::pi_v<float>;

// Directions stay at least this far (as a cosine) from the tangent plane of the geometry. A ray starts 1e-5
// of its coordinates' size away from a point that is off its surface by some 1e-7 of that: below 0.01 it
// could meet the surface itself from inside.
inline constexpr float least_cosine = 2e-2f;

// The mirror image at the plane across the axis.
inline miVector mirrored(const miVector& v, const miVector& axis) {
    return normalized(v + axis * (-2.0f * dot(v, axis)));
}

// Lifts a direction that points below the plane of the geometry just above it. An interpolated normal leads
// there near silhouettes.
inline miVector lifted(const miVector& v, const miVector& geometric) {
    const float cosine = dot(v, geometric);
    return cosine >= least_cosine ? v : normalized(v + geometric * (least_cosine - cosine));
}

struct Basis {
    miVector u, v, n;
    [[nodiscard]] miVector place(float x, float y, float z) const { return u * x + v * y + n * z; }
};

// Cosine distribution about the basis' normal from two numbers in [0, 1).
inline miVector cosine_direction(const Basis& basis, float first, float second) {
    const float radius = std::sqrt(first);
    const float angle = two_pi * second;
    return normalized(
        basis.place(radius * std::cos(angle), radius * std::sin(angle), std::sqrt(1.0f - first)));
}

// The same on the right side of the geometry: what falls below it is mirrored at its plane.
inline miVector diffuse_direction(const Basis& basis, const miVector& geometric, float first, float second) {
    const miVector v = cosine_direction(basis, first, second);
    return dot(v, geometric) < 0.0f ? mirrored(v, geometric) : v;
}

} // namespace stage
