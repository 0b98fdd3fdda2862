// A light for every kind of light: point, spot, directional, with or without an area.
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

} // namespace

BASE_VERSION(base_light, 1)

BASE_EXPORT miBoolean base_light(miColor* result, miState* state, base_light_params* params) {
    miColor color = *mi_eval_color(&params->color) * spot_cone(state, *mi_eval_scalar(&params->softness));
    const miScalar decay = *mi_eval_scalar(&params->decay);
    int type = miLIGHT_ORIGIN;
    mi_query(miQ_LIGHT_TYPE, state, state->light_instance, &type);
    if (decay != 0.0f && type != miLIGHT_DIRECTION)
        color = color * static_cast<miScalar>(std::pow(state->dist, -static_cast<double>(decay)));
    *result = color;
    if (is_black(color))
        return miTRUE;
    // A shadow ray that meets an opaque surface leaves nothing of the light.
    if (*mi_eval_boolean(&params->shadow) && !mi_trace_shadow(result, state))
        *result = {0, 0, 0, 0};
    return miTRUE;
}
