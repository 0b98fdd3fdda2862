// Lights: one for every kind of light (point, spot, directional, with or without an area), a measured lamp, a
// ring.
#include "base.h"

using namespace base;

struct base_light_params {
    miColor color;
    miScalar decay;    // falls off with distance ^ -decay: 0 not at all, 2 as in nature
    miScalar softness; // of a spot light's rim: 0 sharp, 1 fades from the axis on
    miBoolean shadow;
};

namespace {

// The part of a spot light that leaves in the direction of the state's ray; 1 for other lights.
miScalar spot_cone(miState* state, miScalar softness) {
    int type = miLIGHT_ORIGIN;
    miVector axis;
    miScalar rim; // cosine
    if (!mi_query(miQ_LIGHT_TYPE, state, state->light_instance, &type) || type != miLIGHT_SPOT ||
        !mi_query(miQ_LIGHT_DIRECTION, state, state->light_instance, &axis) ||
        !mi_query(miQ_LIGHT_SPREAD, state, state->light_instance, &rim))
        return 1.0f;
    miVector dir;
    mi_vector_to_light(state, &dir, &state->dir);
    mi_vector_normalize(&dir);
    mi_vector_normalize(&axis);
    return smooth_step(rim, rim + softness * (1.0f - rim), mi_vector_dot(&dir, &axis));
}

miScalar decayed(const miState* state, miScalar decay) {
    return decay == 0.0f ? 1.0f : static_cast<miScalar>(std::pow(state->dist, -static_cast<double>(decay)));
}

// What arrives of a colour. A shadow ray that meets an opaque surface leaves nothing of the light.
miBoolean send(miColor* result, miState* state, const miColor& color, bool shadow) {
    *result = color;
    if (!is_black(color) && shadow && !mi_trace_shadow(result, state))
        *result = {0, 0, 0, 0};
    return miTRUE;
}

} // namespace

BASE_VERSION(base_light, 1)

BASE_EXPORT miBoolean base_light(miColor* result, miState* state, base_light_params* params) {
    if (state->type != miRAY_LIGHT) { // a visible light that is looked at
        *result = *mi_eval_color(&params->color);
        return miTRUE;
    }
    miColor color = *mi_eval_color(&params->color) * spot_cone(state, *mi_eval_scalar(&params->softness));
    const miScalar decay = *mi_eval_scalar(&params->decay);
    int type = miLIGHT_ORIGIN;
    mi_query(miQ_LIGHT_TYPE, state, state->light_instance, &type);
    if (type != miLIGHT_DIRECTION)
        color = color * decayed(state, decay);
    return send(result, state, color, *mi_eval_boolean(&params->shadow));
}

// ---- base_profile_light: a lamp that was measured

struct base_profile_light_params {
    miColor color;  // for each candela of the profile
    miTag profile;  // a light profile; without one the lamp gives 1 candela everywhere
    miScalar decay; // as above
    miBoolean shadow;
};

BASE_VERSION(base_profile_light, 1)

BASE_EXPORT miBoolean base_profile_light(miColor* result, miState* state, base_profile_light_params* params) {
    miColor color = *mi_eval_color(&params->color);
    const miTag profile = *mi_eval_tag(&params->profile);
    const bool lights = state->type == miRAY_LIGHT; // otherwise the lamp is looked at, against its light
    miVector dir = state->dir;
    if (!lights)
        mi_vector_neg(&dir);
    if (profile != miNULLTAG)
        color = color * mi_lightprofile_value(state, profile, &dir);
    if (!lights) {
        *result = color;
        return miTRUE;
    }
    return send(result, state, color * decayed(state, *mi_eval_scalar(&params->decay)),
                *mi_eval_boolean(&params->shadow));
}

// ---- base_ring_light: a thin ring about the light's z axis, for lights with a `user` area

struct base_ring_light_params {
    miColor color; // of the whole ring
    miScalar radius;
    miScalar decay;
    miBoolean shadow;
};

BASE_VERSION(base_ring_light, 1)

// The renderer leaves the numbers of the sample in `tex`; the first one turns around the ring.
BASE_EXPORT miBoolean base_ring_light(miColor* result, miState* state, base_ring_light_params* params) {
    const miScalar radius = *mi_eval_scalar(&params->radius);
    const miScalar angle = 6.2831853f * state->tex.x;
    miVector place{radius * std::cos(angle), radius * std::sin(angle), 0.0f};
    mi_point_from_light(state, &state->org, &place);
    state->dir = {state->point.x - state->org.x, state->point.y - state->org.y,
                  state->point.z - state->org.z};
    state->dist = mi_vector_norm(&state->dir);
    mi_vector_normalize(&state->dir);
    state->dot_nd = -mi_vector_dot(&state->normal, &state->dir);
    return send(result, state,
                *mi_eval_color(&params->color) * decayed(state, *mi_eval_scalar(&params->decay)),
                *mi_eval_boolean(&params->shadow));
}
