// Rays that are spread by the cosine over the hemisphere of a point: the mean of what they find is the light
// that arrives there.
#include "render/gather.h"

#include <algorithm>
#include <limits>

#include "kit/matrix.h"
#include "render/hemisphere.h"
#include "render/sample_points.h"
#include "render/shading.h"

namespace stage {

namespace {

// The side of a surface that light is gathered on.
struct Side {
    miVector normal, geometric;
    miTag volume; // that its rays start in
};

Side side_of(const miState* state, bool backside) {
    if (backside)
        return {-state->normal, -state->normal_geom, volume_behind(state)};
    return {state->normal, state->normal_geom, state->volume};
}

// Turned in world space, and by a vector that no wall or floor stands across: then the rays, and the noise of
// the picture, are the same in every internal space.
Basis gathering_basis(const World& world, const miVector& normal) {
    const miVector n = normalized(transform_vector(normal, world.internal_to_world.m));
    miVector u = cross({0.36f, 0.48f, 0.8f}, n);
    if (dot(u, u) < 1e-2f)
        u = cross({0.8f, -0.36f, 0.48f}, n);
    u = normalized(u);
    const miVector v = cross(n, u);
    return {normalized(transform_vector(u, world.world_to_internal.m)),
            normalized(transform_vector(v, world.world_to_internal.m)), normal};
}

// A gathering ray counts as a reflection for what is cast below it, and for the samples of area lights.
miBoolean gather_ray(miColor* found, miState* state, const miVector& dir, miTag volume) {
    ++context_of(state).statistics.gathering_rays;
    RayFrame& frame = new_ray(state, miRAY_FINALGATHER);
    const RayInFlight in_flight(frame);
    frame.state.org = state->point;
    frame.state.dir = dir;
    frame.state.volume = volume;
    ++frame.state.reflection_level;
    if (state->options->trace)
        cast(frame, start_distance(state), std::numeric_limits<double>::infinity(),
             mask_of(miRAY_FINALGATHER));
    else
        set_intersection(frame, false);
    return shade(found, frame);
}

} // namespace

bool is_below_gathering(const miState* state) {
    while (state && state->type != miRAY_FINALGATHER)
        state = state->parent;
    return state != nullptr;
}

bool gathers_at(const miState* state) {
    const WorldInstance* surface = instance_of(state);
    return state->options->finalgather && (!surface || surface->receives_finalgather) &&
           !is_below_gathering(state);
}

miBoolean gather_irradiance(miColor* result, miState* state, bool backside, miVector* dominant) {
    *result = {};
    if (dominant)
        *dominant = {};
    if (!gathers_at(state))
        return miFALSE;
    ThreadContext& context = context_of(state);
    const Side side = side_of(state, backside);
    const Basis basis = gathering_basis(*context.world, side.normal);
    const auto rays = static_cast<std::uint32_t>(std::max(state->options->finalgather_rays, 1));
    const float share = 1.0f / static_cast<float>(rays);
    const std::uint32_t set = context.sample_dimension++;
    miBoolean lit = miFALSE;
    for (std::uint32_t k = 0; k < rays; ++k) {
        // The pixel's samples continue each other's points.
        double at[2];
        sample_point(at, context, set, context.sample * rays + k, 2);
        const miVector dir = lifted(
            diffuse_direction(basis, side.geometric, static_cast<float>(at[0]), static_cast<float>(at[1])),
            side.geometric);
        miColor found{};
        if (!gather_ray(&found, state, dir, side.volume))
            continue;
        lit = miTRUE;
        result->r += share * found.r;
        result->g += share * found.g;
        result->b += share * found.b;
        if (dominant)
            *dominant = *dominant + dir * (share * mi_luminance(state, &found));
    }
    result->a = lit ? 1.0f : 0.0f;
    return lit;
}

} // namespace stage
