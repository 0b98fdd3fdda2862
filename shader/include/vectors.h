/*
 * Arithmetic of vectors as values, where the renderer's own functions write to places.
 */
#pragma once

#include "mi_binding.h"

namespace orl {

inline miVector sum(const miVector& a, const miVector& b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}

inline miVector difference(const miVector& a, const miVector& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}

inline miVector scaled(const miVector& v, miScalar factor) {
    return {v.x * factor, v.y * factor, v.z * factor};
}

/* The point that lies `way` lengths of `dir` from `org`. */
inline miVector along(const miVector& org, const miVector& dir, miScalar way) {
    return {org.x + dir.x * way, org.y + dir.y * way, org.z + dir.z * way};
}

inline miScalar dot(const miVector& a, const miVector& b) {
    return mi_vector_dot(&a, &b);
}

/* A null vector stays as it is. */
inline miVector normalized(miVector v) {
    mi_vector_normalize(&v);
    return v;
}

/* What one of the renderer's transforms makes of a point, direction or normal. */
inline miVector transformed(void (*transform)(miState*, miVector*, miVector*), miState* state, miVector v) {
    miVector result;
    transform(state, &result, &v);
    return result;
}

} // namespace orl
