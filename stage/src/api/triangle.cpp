// The triangle that a state stands on: its corner values and what lies between them.
#include <array>
#include <new>

#include "api/api.h"

namespace {

using stage::hit_of;
using stage::instance_of;

// The offset in a vertex of the values that a letter names, or -1.
int value_offset(const miTriangles& triangles, int which, int space) {
    const bool has_texture = space >= 0 && space < triangles.texture_count;
    const bool has_bump = space >= 0 && space < triangles.bump_count;
    switch (which) {
    case 'p':
        return 0;
    case 'n':
        return triangles.normal_offset;
    case 'm':
        return triangles.motion_offset;
    case 't':
        return has_texture ? triangles.texture_offset + 3 * space : -1;
    case 'x':
        return has_bump ? triangles.bump_offset + 6 * space : -1;
    case 'y':
        return has_bump ? triangles.bump_offset + 6 * space + 3 : -1;
    default:
        return -1;
    }
}

using Corners = std::array<const float*, 3>;

// The values at the corners of the state's triangle; false when there is no triangle or no such value.
bool corner_values(const miState* state, int which, int space, Corners& corners) {
    const miRc_intersection* hit = hit_of(state);
    const miTriangles* triangles = hit ? instance_of(state)->triangles : nullptr;
    if (!triangles || hit->triangle >= triangles->triangle_count)
        return false;
    const int offset = value_offset(*triangles, which, space);
    if (offset < 0)
        return false;
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t vertex = triangles->indices[std::size_t{3} * hit->triangle + i];
        corners[i] = triangles->vertices + vertex * static_cast<std::size_t>(triangles->vertex_stride) +
                     static_cast<std::size_t>(offset);
    }
    return true;
}

// Shaders read vectors from the run of floats that a vertex is.
miVector* as_vector(const float* values) {
    return reinterpret_cast<miVector*>(const_cast<float*>(values));
}

} // namespace

STAGE_API miBoolean mi_tri_vectors(miState* state, int which, int ntex, miVector** a, miVector** b,
                                   miVector** c) {
    Corners corners;
    if (!corner_values(state, which, ntex, corners))
        return miFALSE;
    *a = as_vector(corners[0]);
    *b = as_vector(corners[1]);
    *c = as_vector(corners[2]);
    return miTRUE;
}

// The three dimensions that a texture space has here.
STAGE_API miBoolean mi_texture_interpolate(miState* state, miUint space, miScalar* result) {
    Corners corners;
    if (!corner_values(state, 't', static_cast<int>(space), corners))
        return miFALSE;
    const std::array weights = {state->bary[0], state->bary[1], 1.0f - state->bary[0] - state->bary[1]};
    for (std::size_t k = 0; k < 3; ++k)
        result[k] = weights[0] * corners[0][k] + weights[1] * corners[1][k] + weights[2] * corners[2][k];
    return miTRUE;
}

// The state's new primitive lives until the running shader returns.
STAGE_API void mi_state_set_pri(miState* state, const miRc_intersection* pri, miUint pri_idx) {
    if (!pri)
        return;
    void* memory = stage::context_of(state).arena.allocate(sizeof(miRc_intersection));
    auto* primitive = new (memory) miRc_intersection(*pri);
    primitive->triangle = pri_idx;
    state->pri = primitive;
}
