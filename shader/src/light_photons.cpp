/*
 * Photons of the standard lights: where they start and where they go, and the roulette that gives them the
 * shape and the projector of the light.
 */
#include "orl_light.h"

#include "numeric.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace orl {

namespace {

constexpr miScalar two_pi = 2.0f * std::numbers::pi_v<miScalar>;

miVector around_axis(miScalar radius, miScalar turn, miScalar z) {
    const miScalar angle = two_pi * turn;
    return {radius * numeric::cos(angle), radius * numeric::sin(angle), z};
}

miVector in_cone(const LightConeShape& cone, miScalar u, miScalar v) {
    const miScalar down = u * cone.depth;
    return around_axis(std::sqrt(down * (2.0f - down)), v, down - 1.0f);
}

// The rectangle about the axis at distance 1. In the general method a great circle through the y axis cuts
// off the share u of the solid angle, then v divides the arc within the rectangle by height. For a rectangle
// whose middle is the axis the angles fold up to the half arc w and the sine of the direction in x.
miVector in_pyramid(const LightConeShape& cone, miScalar u, miScalar v) {
    const auto [half_width, half_height] = cone.extent;
    const miScalar w = cone.quarterSolidAngle * (2.0f * u - 1.0f);
    const miScalar sine = numeric::sin(w) / cone.sineHalfHeight;
    const miScalar x =
        std::clamp(sine / std::sqrt(std::max(1.0f - sine * sine, 1e-12f)), -half_width, half_width);
    const miScalar squared = 1.0f + x * x; // distance of the arc's middle from the light
    const miScalar height = (2.0f * v - 1.0f) * half_height / std::sqrt(squared + half_height * half_height);
    const miScalar y = height * std::sqrt(squared / std::max(1.0f - height * height, 1e-12f));
    miVector dir{x, std::clamp(y, -half_height, half_height), -1.0f};
    mi_vector_normalize(&dir);
    return dir;
}

constexpr miVector light_origin{0.0f, 0.0f, 0.0f}, light_axis{0.0f, 0.0f, -1.0f};

// ---- one photon

Emission emission_of(const LightInstanceData& data, LightKind kind, miScalar u, miScalar v) {
    switch (kind) {
    case LightKind::spot:
        return emit_from_spot(*data.cone, u, v);
    case LightKind::beam:
        return emit_from_beam(*data.cone, u, v);
    default:
        return emit_from_omni(u, v);
    }
}

// The share that the shape lets through. With overshoot it is 1: the light goes on outside of the shape, but
// photons are for what the light is aimed at, and a lamp that sends them everywhere would leave few there.
miScalar shape_share(const LightInstanceData& data, LightKind kind, const Emission& emission) {
    miBoolean in_shadow_zone;
    switch (kind) {
    case LightKind::spot:
        return data.cone->operations->evaluate(data.cone, &emission.dir, -emission.dir.z, &in_shadow_zone);
    case LightKind::beam:
        return data.cone->operations->evaluate(data.cone, &emission.org, 0.0f, &in_shadow_zone);
    default:
        return 1.0f;
    }
}

// White where the picture does not reach. The picture sees the direction or, of a beam, the point of its
// disc.
miColor projector_filter(miState* state, const LightInstanceData& data, LightKind kind,
                         const Emission& emission, miTag projector) {
    const miColor white{1, 1, 1, 1};
    if (projector == miNULLTAG)
        return white;
    const miVector& point = kind == LightKind::beam ? emission.org : emission.dir;
    const ProjectorCoordinate at = projection(data, kind, point, -emission.dir.z);
    return at.inside ? look_up_projection(state, projector, point, at) : white;
}

// Puts start and direction into the state, in internal space.
void aim(miState* state, LightKind kind, Emission emission) {
    mi_point_from_light(state, &state->org, &emission.org);
    // Deliberate: the omni light's direction stays in light space. Turned or not, the directions cover the
    // sphere evenly, and the host's pictures of such lights are made so.
    state->dir = emission.dir;
    if (kind == LightKind::omni)
        return;
    mi_vector_from_light(state, &state->dir, &emission.dir);
    mi_vector_normalize(&state->dir);
}

} // namespace

Emission emit_from_omni(miScalar u, miScalar v) {
    const miScalar z = 1.0f - 2.0f * u;
    return {light_origin, around_axis(std::sqrt(1.0f - z * z), v, z)};
}

Emission emit_from_spot(const LightConeShape& cone, miScalar u, miScalar v) {
    return {light_origin, cone.circular ? in_cone(cone, u, v) : in_pyramid(cone, u, v)};
}

Emission emit_from_beam(const LightConeShape& cone, miScalar u, miScalar v) {
    if (cone.circular)
        return {around_axis(cone.falloff * std::sqrt(u), v, 0.0f), light_axis};
    return {{(2.0f * u - 1.0f) * cone.falloff, (2.0f * v - 1.0f) * cone.falloff / cone.aspect, 0.0f},
            light_axis};
}

miBoolean emit_photon(miColor* result, miState* state, const LightInstanceData& data, LightKind kind,
                      miTag projector) {
    double uv[2]{}, roulette = 0.0;
    mi_sample(uv, nullptr, state, 2, nullptr);
    const Emission emission =
        emission_of(data, kind, static_cast<miScalar>(uv[0]), static_cast<miScalar>(uv[1]));
    aim(state, kind, emission);
    const miColor filter = projector_filter(state, data, kind, emission, projector);
    const miScalar mean = (filter.r + filter.g + filter.b) / 3.0f;
    mi_sample(&roulette, nullptr, state, 1, nullptr);
    // A filter brighter than white cannot do more than let every photon through that the shape lets through.
    const miScalar survival = std::min(mean, 1.0f) * shape_share(data, kind, emission);
    if (!(roulette < static_cast<double>(survival)))
        return miTRUE;
    miColor energy{result->r * filter.r / mean, result->g * filter.g / mean, result->b * filter.b / mean,
                   result->a};
    state->ior = state->ior_in = 1.0f;
    mi_photon_light(&energy, state);
    return miTRUE;
}

} // namespace orl
