// Casting rays from shaders.
#include <limits>

#include "api/api.h"
#include "render/shading.h"
#include "render/vector.h"

using stage::operator-;

namespace {

constexpr double far_away = std::numeric_limits<double>::infinity();

bool reflection_allowed(const miState* state) {
    const miOptions& options = *state->options;
    return state->reflection_level < options.reflection_depth &&
           state->reflection_level + state->refraction_level < options.trace_depth;
}

bool refraction_allowed(const miState* state) {
    const miOptions& options = *state->options;
    return state->refraction_level < options.refraction_depth &&
           state->reflection_level + state->refraction_level < options.trace_depth;
}

// Casts from the state's point and shades what is met. Without ray tracing only the environment can be.
miBoolean trace(miColor* result, stage::RayFrame& frame, const miState* from) {
    const stage::RayInFlight in_flight(frame);
    frame.state.org = from->point;
    if (from->options->trace)
        stage::cast(frame, stage::start_distance(from), far_away, stage::mask_of(frame.state.type));
    else
        stage::set_intersection(frame, false);
    return stage::shade(result, frame);
}

// A ray through the surface: refracted, or straight on.
miBoolean trace_through(miColor* result, miState* state, miRay_type type, const miVector& dir) {
    stage::RayFrame& frame = stage::new_ray(state, type);
    frame.state.dir = dir;
    frame.state.volume = state->refraction_volume;
    frame.state.refraction_level = state->refraction_level + 1;
    return trace(result, frame, state);
}

} // namespace

STAGE_API miBoolean mi_trace_eye(miColor* result, miState* state, miVector* org, miVector* dir) {
    state->org = *org;
    state->dir = *dir;
    return stage::continue_eye_ray(result, state);
}

STAGE_API miBoolean mi_trace_reflection(miColor* result, miState* state, miVector* dir) {
    *result = {};
    const stage::WorldInstance* surface = stage::instance_of(state);
    if (!reflection_allowed(state) || (surface && !surface->receives_reflection))
        return miFALSE;
    ++stage::context_of(state).statistics.reflection_rays;
    const miVector along = *dir;
    stage::RayFrame& frame = stage::new_ray(state, miRAY_REFLECT);
    frame.state.dir = along;
    frame.state.reflection_level = state->reflection_level + 1;
    return trace(result, frame, state);
}

STAGE_API miBoolean mi_trace_refraction(miColor* result, miState* state, miVector* dir) {
    *result = {};
    const stage::WorldInstance* surface = stage::instance_of(state);
    if (!refraction_allowed(state) || (surface && !surface->receives_refraction))
        return miFALSE;
    ++stage::context_of(state).statistics.refraction_rays;
    return trace_through(result, state, miRAY_REFRACT, *dir);
}

// What lies behind a hit of the rasterizer is put there by the rasterizer, so this brings nothing.
STAGE_API miBoolean mi_trace_transparent(miColor* result, miState* state) {
    *result = {};
    if (stage::from_rasterizer(state))
        return miFALSE;
    const stage::WorldInstance* surface = stage::instance_of(state);
    if (!refraction_allowed(state) || (surface && !surface->receives_transparency))
        return miFALSE;
    ++stage::context_of(state).statistics.transparent_rays;
    return trace_through(result, state, miRAY_TRANSPARENT, state->dir);
}

STAGE_API miBoolean mi_trace_environment(miColor* result, miState* state, miVector* dir) {
    *result = {};
    ++stage::context_of(state).statistics.environment_rays;
    const miVector along = *dir;
    stage::RayFrame& frame = stage::new_ray(state, miRAY_ENVIRONMENT);
    const stage::RayInFlight in_flight(frame);
    frame.state.org = state->point;
    frame.state.dir = along;
    stage::set_intersection(frame, false);
    return stage::shade(result, frame);
}

// The surface is as if it were not there: the rest of the ray has the same start, parent and depth, and the
// state is left as if its ray had ended at the next surface. The volume acts on the whole ray when the shader
// has returned, so it is not called here. The rasterizer goes on by itself behind a surface that is clear.
STAGE_API miBoolean mi_trace_continue(miColor* result, miState* state) {
    *result = {};
    if (stage::from_rasterizer(state))
        return miTRUE;
    ++stage::context_of(state).statistics.continued_rays;
    const double next = state->dist + stage::start_distance(state);
    stage::RayFrame& frame = stage::new_ray(state, state->type);
    const stage::RayInFlight in_flight(frame);
    frame.state.parent = state->parent;
    frame.state.scanline = 0;
    stage::cast(frame, next, far_away, stage::mask_of(state->type));
    const miBoolean lit = stage::shade_surface(result, frame);
    stage::hand_back(state, frame.state);
    return lit;
}

STAGE_API miBoolean mi_trace_probe(miState* state, miVector* dir, miVector* org) {
    ++stage::context_of(state).statistics.probe_rays;
    const miVector along = *dir;
    const miVector start = *org;
    const bool from_surface = stage::length(start - state->point) == 0.0f;
    const double near = from_surface ? stage::start_distance(state) : 0.0;
    stage::RayFrame& frame = stage::new_ray(state, miRAY_PROBE);
    frame.state.org = start;
    frame.state.dir = along;
    return stage::cast(frame, near, far_away, stage::RayMask::trace) ? miTRUE : miFALSE;
}
