/* The standard material as a wire frame. */
#include "material_call.h"

namespace orl {

miScalar raster_line_distance(const miVector& point, const miVector& a, const miVector& b) {
    const miScalar dx = b.x - a.x, dy = b.y - a.y;
    const miScalar length = std::sqrt(dx * dx + dy * dy);
    return length > 0.0f ? std::fabs((point.x - a.x) * dy - (point.y - a.y) * dx) / length : 0.0f;
}

miScalar squared_line_distance(const miVector& point, const miVector& a, const miVector& b) {
    constexpr miScalar null_length = 1e-6f; // in place of a length that cannot divide
    miVector edge, to, cross;
    mi_vector_sub(&edge, &b, &a);
    mi_vector_sub(&to, &point, &a);
    mi_vector_prod(&cross, &to, &edge);
    const miScalar squared = mi_vector_dot(&edge, &edge);
    return mi_vector_dot(&cross, &cross) / (squared > 0.0f ? squared : null_length);
}

namespace {

using Distance = miScalar (*)(const miVector& point, const miVector& a, const miVector& b);

// The triangle at hand, internal space.
bool get_corners(miState* state, miVector (&corner)[3]) {
    miVector* at[3] = {};
    if (!mi_tri_vectors(state, 'p', 0, &at[0], &at[1], &at[2]))
        return false;
    for (int k = 0; k < 3; ++k) {
        if (at[k] == nullptr)
            return false;
        mi_point_from_object(state, &corner[k], at[k]);
    }
    return true;
}

void to_raster(miState* state, miVector& point) {
    miVector at = point;
    mi_point_to_raster(state, &point, &at);
}

// Edges count as endless lines, which makes no difference inside of their triangle.
bool is_near_edge(miState* state, const miVector& point, const miVector (&corner)[3], Distance distance,
                  miScalar limit) {
    miBoolean visible[3] = {};
    GetEdgeVisibility(state, &visible[0], &visible[1], &visible[2]);
    for (int k = 0; k < 3; ++k)
        if (visible[k] && distance(point, corner[k], corner[(k + 1) % 3]) <= limit)
            return true;
    return false;
}

} // namespace

bool is_on_wire(miState* state, const StandardMaterialParams* params) {
    miVector corner[3];
    if (!get_corners(state, corner))
        return true;
    miVector point = state->point;
    const miScalar half = 0.5f * eval(state, params->wireSize);
    if (eval(state, params->wireUnits) == wire_world)
        return is_near_edge(state, point, corner, squared_line_distance, half * half);
    to_raster(state, point);
    for (miVector& c : corner)
        to_raster(state, c);
    return is_near_edge(state, point, corner, raster_line_distance, half);
}

} // namespace orl
