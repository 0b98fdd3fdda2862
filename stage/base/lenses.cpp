// Lenses: what bends the rays of the camera.
#include <numbers>

#include "base.h"

using namespace base;

// ---- base_depth_of_field: a round lens, which shows one plane sharp. Points at distance d from the camera's
// plane are blurred to circles of radius |d - focus| / d * radius, as large as that length is at the distance
// `focus`.

struct base_depth_of_field_params {
    miScalar focus;  // distance of the sharp plane from the camera, in units of camera space
    miScalar radius; // of the lens; 0 shows everything sharp
};

BASE_VERSION(base_depth_of_field, 1)

namespace {

// A point of the unit disc, all parts of which are equally likely; neighbours in the unit square stay
// neighbours.
miVector on_disc(const double* sample) {
    const auto r = static_cast<miScalar>(std::sqrt(sample[0]));
    const auto angle = static_cast<miScalar>(sample[1] * 2.0 * std::numbers::pi);
    return {r * std::cos(angle), r * std::sin(angle), 0.0f};
}

} // namespace

BASE_EXPORT miBoolean base_depth_of_field(miColor* result, miState* state,
                                          base_depth_of_field_params* params) {
    const miScalar focus = *mi_eval_scalar(&params->focus);
    const miScalar radius = *mi_eval_scalar(&params->radius);
    miVector org;
    miVector dir;
    mi_point_to_camera(state, &org, &state->org);
    mi_vector_to_camera(state, &dir, &state->dir);
    const miScalar depth = -dir.z; // of the unit of length along the ray
    if (radius <= 0.0f || depth <= 0.0f || focus <= 0.0f)
        return mi_trace_eye(result, state, &state->org, &state->dir);

    double sample[2];
    mi_sample(sample, nullptr, state, 2, nullptr);
    const miVector shift = on_disc(sample);
    const miScalar length = focus / depth;
    dir = {dir.x * length - radius * shift.x, dir.y * length - radius * shift.y, dir.z * length};
    org = {org.x + radius * shift.x, org.y + radius * shift.y, org.z};
    mi_point_from_camera(state, &org, &org);
    mi_vector_from_camera(state, &dir, &dir);
    mi_vector_normalize(&dir);
    return mi_trace_eye(result, state, &org, &dir);
}
