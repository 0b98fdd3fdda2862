// Arithmetic with the interface's vectors.
#pragma once

#include <cstring>

#include "shader.h"

namespace stage {

inline miVector operator+(const miVector& a, const miVector& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline miVector operator-(const miVector& a, const miVector& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline miVector operator-(const miVector& a) {
    return {-a.x, -a.y, -a.z};
}
inline miVector operator*(const miVector& a, float f) {
    return {a.x * f, a.y * f, a.z * f};
}
inline float dot(const miVector& a, const miVector& b) {
    return mi_vector_dot(&a, &b);
}
inline miVector cross(const miVector& a, const miVector& b) {
    miVector r;
    mi_vector_prod(&r, &a, &b);
    return r;
}
inline float length(const miVector& a) {
    return mi_vector_norm(&a);
}
// A null vector stays what it is.
inline miVector normalized(miVector a) {
    mi_vector_normalize(&a);
    return a;
}
// A vector in one register, for what every hit computes. Its arithmetic is that of single floats, so the bits
// are those of the functions above; the fourth float means nothing.
using Lanes = float __attribute__((vector_size(16)));

inline Lanes load_four(const float* p) {
    Lanes r;
    std::memcpy(&r, p, sizeof r);
    return r;
}
inline miVector vector_of(const Lanes& a) {
    return {a[0], a[1], a[2]};
}
inline Lanes cross(const Lanes& a, const Lanes& b) {
    const Lanes a_yzx = {a[1], a[2], a[0], a[3]}, a_zxy = {a[2], a[0], a[1], a[3]};
    const Lanes b_yzx = {b[1], b[2], b[0], b[3]}, b_zxy = {b[2], b[0], b[1], b[3]};
    return a_yzx * b_zxy - a_zxy * b_yzx;
}

// The end of a ray, computed in double precision: long rays lose nothing but the last rounding.
inline miVector point_on_ray(const miVector& org, const miVector& dir, double distance) {
    return {static_cast<float>(org.x + distance * dir.x), static_cast<float>(org.y + distance * dir.y),
            static_cast<float>(org.z + distance * dir.z)};
}

} // namespace stage
