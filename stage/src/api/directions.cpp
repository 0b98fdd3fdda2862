// Directions of secondary rays and photons: mirror, refraction, and samples of glossy, diffuse and scattering
// distributions. Random samples come from the sample's own stream, so that they do not depend on threads.
#include <cmath>
#include <limits>

#include "api/api.h"
#include "render/hemisphere.h"

namespace {

using namespace stage;

// A glossy direction that points to the wrong side is drawn again this often before the centre is taken.
constexpr int most_draws = 16;

// Duff et al., "Building an Orthonormal Basis, Revisited", 2017.
Basis basis_of(const miVector& n) {
    const float sign = std::copysign(1.0f, n.z);
    const float a = -1.0f / (sign + n.z);
    const float b = n.x * n.y * a;
    return {{1.0f + sign * n.x * n.x * a, sign * b, -sign * n.x}, {b, sign + n.y * n.y * a, -n.y}, n};
}

// u made perpendicular to n; any basis of n when that leaves nothing.
Basis basis_of(const miVector& n, const miVector& u, const miVector& v) {
    const miVector flat = u - n * dot(u, n);
    if (!(dot(flat, flat) > 1e-12f * dot(u, u)))
        return basis_of(n);
    Basis basis = {normalized(flat), cross(n, normalized(flat)), n};
    if (dot(basis.v, v) < 0.0f)
        basis.v = -basis.v;
    return basis;
}

// A facet's normal for the elliptical Gaussian of slopes whose inverse squared widths are the two
// shininesses: the facets of Ward, "Measuring and Modeling Anisotropic Reflection", 1992.
miVector facet_normal(const Basis& basis, float shiny_u, float shiny_v, float first, float second) {
    const float angle = two_pi * second;
    const float x = std::cos(angle) / std::sqrt(shiny_u);
    const float y = std::sin(angle) / std::sqrt(shiny_v);
    const float length = std::sqrt(-std::log1p(-first));
    return normalized(basis.place(length * x, length * y, 1.0f));
}

// Two numbers in [0, 1): those that a caller has from mi_sample, or else of the sample's own stream.
struct Pair {
    float first, second;
    Pair(miState* state, const miScalar* given)
        : first(given ? given[0] : context_of(state).next_random()),
          second(given ? given[1] : context_of(state).next_random()) {}
};

// How shiny a lobe is along two axes.
struct Gloss {
    float u, v;
};

// A direction of the lobe about `centre`, which leaves on the side of basis.n: the mirror images at random
// facets of the direction of which `centre` is the mirror image at the plain surface. Numbers that are given
// serve the first draw.
miVector lobe_direction(miState* state, const miVector& centre, const Basis& basis, const miVector& geometric,
                        const Gloss& shiny, const miScalar* given) {
    if (!(shiny.u > 0.0f && shiny.v > 0.0f)) {
        const Pair pair(state, given);
        return diffuse_direction(basis, geometric, pair.first, pair.second);
    }
    const miVector incoming = mirrored(centre, basis.n);
    for (int draw = 0; draw < most_draws; ++draw) {
        const Pair pair(state, draw == 0 ? given : nullptr);
        const miVector facet = facet_normal(basis, shiny.u, shiny.v, pair.first, pair.second);
        const miVector v = mirrored(incoming, facet);
        if (dot(incoming, facet) < 0.0f && dot(v, basis.n) > 0.0f && dot(v, geometric) > 0.0f)
            return v;
    }
    return centre;
}

miVector reflection(const miState* state) {
    return lifted(mirrored(state->dir, state->normal), state->normal_geom);
}

// Snell's law. Indices that are not positive count as equal. False on total reflection.
bool refraction(const miState* state, float ior_in, float ior_out, miVector& v) {
    const float ratio = ior_in > 0.0f && ior_out > 0.0f ? ior_in / ior_out : 1.0f;
    const miVector dir = normalized(state->dir);
    const float cosine = -dot(dir, state->normal);
    const float squared = 1.0f - ratio * ratio * (1.0f - cosine * cosine);
    if (squared < 0.0f)
        return false;
    v = normalized(dir * ratio + state->normal * (ratio * cosine - std::sqrt(squared)));
    v = lifted(v, -state->normal_geom);
    return true;
}

// The basis on the far side of the surface.
Basis far_side(const Basis& basis) {
    return {basis.u, basis.v, -basis.n};
}

miBoolean transmission_lobe(miVector* dir, miState* state, float ior_in, float ior_out, const Basis& basis,
                            const Gloss& shiny, const miScalar* given) {
    miVector centre;
    if (!refraction(state, ior_in, ior_out, centre)) {
        *dir = reflection(state);
        return miFALSE;
    }
    *dir = lobe_direction(state, centre, far_side(basis), -state->normal_geom, shiny, given);
    return miTRUE;
}

miVector reflection_lobe(miState* state, const Basis& basis, const Gloss& shiny, const miScalar* given) {
    return lobe_direction(state, reflection(state), basis, state->normal_geom, shiny, given);
}

// On the side that both normals point to.
miVector diffuse_sample(miState* state, const miVector& normal, const miVector& geometric,
                        const miScalar* given) {
    const Pair pair(state, given);
    return diffuse_direction(basis_of(normal), geometric, pair.first, pair.second);
}

// Cosine of the scattering angle for Schlick's phase function, by inversion of its integral: Blasi, Le Saec
// and Schlick, "A Rendering Algorithm for Discrete Volume Density Objects", 1993.
float schlick_cosine(float k, float sample) {
    return (2.0f * sample - 1.0f + k) / (1.0f - k + 2.0f * k * sample);
}

// Directionality from -1, straight back, over 0, even, to 1, straight on.
miVector scattered(miState* state, float directionality, const miScalar* given) {
    const Pair pair(state, given);
    const float k = std::clamp(directionality, -0.9999f, 0.9999f);
    const float cosine = std::clamp(schlick_cosine(k, pair.first), -1.0f, 1.0f);
    const float sine = std::sqrt(1.0f - cosine * cosine);
    const float angle = two_pi * pair.second;
    return normalized(
        basis_of(normalized(state->dir)).place(sine * std::cos(angle), sine * std::sin(angle), cosine));
}

} // namespace

STAGE_API void mi_reflection_dir(miVector* dir, miState* state) {
    *dir = reflection(state);
}

STAGE_API void mi_reflection_dir_specular(miVector* dir, miState* state) {
    *dir = reflection(state);
}

STAGE_API void mi_reflection_dir_glossy(miVector* dir, miState* state, miScalar shiny) {
    mi_reflection_dir_glossy_x(dir, state, shiny, nullptr);
}

STAGE_API void mi_reflection_dir_glossy_x(miVector* dir, miState* state, miScalar shiny, miScalar* samples) {
    *dir = reflection_lobe(state, basis_of(state->normal), {shiny, shiny}, samples);
}

STAGE_API void mi_reflection_dir_anisglossy(miVector* dir, miState* state, miVector* u, miVector* v,
                                            miScalar shiny_u, miScalar shiny_v) {
    mi_reflection_dir_anisglossy_x(dir, state, u, v, shiny_u, shiny_v, nullptr);
}

STAGE_API void mi_reflection_dir_anisglossy_x(miVector* dir, miState* state, miVector* u, miVector* v,
                                              miScalar shiny_u, miScalar shiny_v, miScalar* samples) {
    *dir = reflection_lobe(state, basis_of(state->normal, *u, *v), {shiny_u, shiny_v}, samples);
}

STAGE_API void mi_reflection_dir_diffuse(miVector* dir, miState* state) {
    mi_reflection_dir_diffuse_x(dir, state, nullptr);
}

STAGE_API void mi_reflection_dir_diffuse_x(miVector* dir, miState* state, miScalar* samples) {
    *dir = diffuse_sample(state, state->normal, state->normal_geom, samples);
}

// On total reflection the direction is that of the mirror.
STAGE_API miBoolean mi_refraction_dir(miVector* dir, miState* state, miScalar ior_in, miScalar ior_out) {
    miVector v;
    const bool passes = refraction(state, ior_in, ior_out, v);
    *dir = passes ? v : reflection(state);
    return passes ? miTRUE : miFALSE;
}

STAGE_API miBoolean mi_transmission_dir_specular(miVector* dir, miState* state, miScalar ior_in,
                                                 miScalar ior_out) {
    return mi_refraction_dir(dir, state, ior_in, ior_out);
}

STAGE_API miBoolean mi_transmission_dir_glossy(miVector* dir, miState* state, miScalar ior_in,
                                               miScalar ior_out, miScalar shiny) {
    return mi_transmission_dir_glossy_x(dir, state, ior_in, ior_out, shiny, nullptr);
}

STAGE_API miBoolean mi_transmission_dir_glossy_x(miVector* dir, miState* state, miScalar ior_in,
                                                 miScalar ior_out, miScalar shiny, miScalar* samples) {
    return transmission_lobe(dir, state, ior_in, ior_out, basis_of(state->normal), {shiny, shiny}, samples);
}

STAGE_API miBoolean mi_transmission_dir_anisglossy(miVector* dir, miState* state, miScalar ior_in,
                                                   miScalar ior_out, miVector* u, miVector* v,
                                                   miScalar shiny_u, miScalar shiny_v) {
    return mi_transmission_dir_anisglossy_x(dir, state, ior_in, ior_out, u, v, shiny_u, shiny_v, nullptr);
}

STAGE_API miBoolean mi_transmission_dir_anisglossy_x(miVector* dir, miState* state, miScalar ior_in,
                                                     miScalar ior_out, miVector* u, miVector* v,
                                                     miScalar shiny_u, miScalar shiny_v, miScalar* samples) {
    return transmission_lobe(dir, state, ior_in, ior_out, basis_of(state->normal, *u, *v), {shiny_u, shiny_v},
                             samples);
}

STAGE_API void mi_transmission_dir_diffuse(miVector* dir, miState* state) {
    mi_transmission_dir_diffuse_x(dir, state, nullptr);
}

STAGE_API void mi_transmission_dir_diffuse_x(miVector* dir, miState* state, miScalar* samples) {
    *dir = diffuse_sample(state, -state->normal, -state->normal_geom, samples);
}

STAGE_API void mi_scattering_dir_diffuse(miVector* dir, miState* state) {
    *dir = scattered(state, 0.0f, nullptr);
}

STAGE_API void mi_scattering_dir_diffuse_x(miVector* dir, miState* state, miScalar* samples) {
    *dir = scattered(state, 0.0f, samples);
}

STAGE_API void mi_scattering_dir_directional(miVector* dir, miState* state, miScalar directionality) {
    *dir = scattered(state, directionality, nullptr);
}

STAGE_API void mi_scattering_dir_directional_x(miVector* dir, miState* state, miScalar directionality,
                                               miScalar* samples) {
    *dir = scattered(state, directionality, samples);
}

// The free path in a medium that scatters k times for each unit of length. Nothing scatters at k 0.
STAGE_API miScalar mi_scattering_pathlength(miState* state, miScalar k) {
    if (!(k > 0.0f))
        return std::numeric_limits<miScalar>::max();
    return -std::log1p(-context_of(state).next_random()) / k;
}

// The distances at which rays from the state's object fade, as its `falloff` statement has them. False and 0
// where there is none: rays reach as far as they go.
STAGE_API miBoolean mi_ray_falloff(miState* state, double* start, double* stop) {
    const WorldInstance* instance = current_instance(state);
    const miRange falloff = instance ? instance->object->falloff : miRange{};
    *start = static_cast<double>(falloff.min);
    *stop = static_cast<double>(falloff.max);
    return falloff.max > 0.0f ? miTRUE : miFALSE;
}
