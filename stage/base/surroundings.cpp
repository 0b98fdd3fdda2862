// What surrounds the objects: a sky with a ground below, fog, and what a ray sees of it.
#include "base.h"

using namespace base;

// ---- base_environment: a sky that changes from horizon to zenith, over a ground

struct base_environment_params {
    miVector up; // world space
    miColor zenith;
    miColor horizon;
    miColor ground;
    miScalar haze; // height of the band in which sky and ground run into each
                   // other; sine of its angle
};

BASE_VERSION(base_environment, 1)

BASE_EXPORT miBoolean base_environment(miColor* result, miState* state, base_environment_params* params) {
    miVector up = *mi_eval_vector(&params->up);
    miVector dir;
    mi_vector_to_world(state, &dir, &state->dir);
    mi_vector_normalize(&up);
    mi_vector_normalize(&dir);
    const miScalar height = mi_vector_dot(&up, &dir);
    const miScalar haze = *mi_eval_scalar(&params->haze);

    const miColor horizon = *mi_eval_color(&params->horizon);
    if (height >= 0.0f)
        *result = mix(horizon, *mi_eval_color(&params->zenith), std::sqrt(std::min(height, 1.0f)));
    else
        *result = mix(horizon, *mi_eval_color(&params->ground), smooth_step(0.0f, haze, -height));
    return miTRUE;
}

// ---- base_fog: a volume of constant density

struct base_fog_params {
    miColor color;
    miScalar density; // for each unit of length
};

BASE_VERSION(base_fog, 1)

BASE_EXPORT miBoolean base_fog(miColor* result, miState* state, base_fog_params* params) {
    const miScalar density = *mi_eval_scalar(&params->density);
    // A ray that met nothing has length 0: the fog goes on for ever.
    const auto length = static_cast<miScalar>(state->dist);
    const miScalar clear = length > 0.0f ? std::exp(-density * length) : 0.0f;
    if (state->type == miRAY_LIGHT || state->type == miRAY_SHADOW)
        *result = *result * clear;
    else
        *result = mix(*mi_eval_color(&params->color), *result, clear);
    return miTRUE;
}

// ---- base_raytrace: what the state's ray sees from the surface, as a map of reflection or refraction. The
// caller has turned the ray already.

struct base_raytrace_params {
    miBoolean refraction; // the ray goes through the surface; otherwise it is mirrored
};

BASE_VERSION(base_raytrace, 1)

BASE_EXPORT miBoolean base_raytrace(miColor* result, miState* state, base_raytrace_params* params) {
    // A photon takes the way itself: the map lets all of it through.
    if (miRAY_PHOTON(state->type)) {
        *result = {1, 1, 1, 1};
        return miTRUE;
    }
    const auto trace = *mi_eval_boolean(&params->refraction) ? mi_trace_refraction : mi_trace_reflection;
    miVector dir = state->dir;
    // Beyond the trace depth there is the environment alone.
    return trace(result, state, &dir) || mi_trace_environment(result, state, &dir);
}
