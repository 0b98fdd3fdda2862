// Reflection models: how much light a surface or a medium turns from one direction into another.
//
// Directions: `in` leads to the surface, `out` leaves it. Values are for each steradian; a surface's light is
// that value times the cosine to the light.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "api/api.h"
#include "kit/color.h"
#include "render/vector.h"

namespace {

using namespace stage;

constexpr float pi = std::numbers::pi_v<float>;

// A cosine of the direction to a surface that is too flat for a model which divides by it.
constexpr float grazing = 1e-4f;

// Gaussian of slopes: Ward, "Measuring and Modeling Anisotropic Reflection", 1992, equation 5, with the
// inverse squares of his two widths. `u` and `v` may have any length; without them the lobe is round.
float ward(const miVector& in, const miVector& out, const miVector& n, const miVector* u, const miVector* v,
           float shiny_u, float shiny_v) {
    const float cos_in = -dot(in, n);
    const float cos_out = dot(out, n);
    if (!(cos_in > grazing && cos_out > grazing && shiny_u > 0.0f && shiny_v > 0.0f))
        return 0.0f;
    const miVector h = out - in;
    const float along = dot(h, n);
    float slopes = 0.0f; // squared slope of the facet, each part weighted by its shininess
    if (u && v) {
        const float slope_u = dot(h, *u) / (along * length(*u));
        const float slope_v = dot(h, *v) / (along * length(*v));
        slopes = shiny_u * slope_u * slope_u + shiny_v * slope_v * slope_v;
    } else {
        const miVector flat = h - n * along; // the difference of squares would lose a narrow lobe
        slopes = shiny_u * dot(flat, flat) / (along * along);
    }
    return std::sqrt(shiny_u * shiny_v) * std::exp(-slopes) / (4.0f * pi * std::sqrt(cos_in * cos_out));
}

// Unpolarised light at a smooth surface, for a cosine of the incoming angle.
float fresnel_at(float ior_in, float ior_out, float cosine) {
    if (!(ior_in > 0.0f && ior_out > 0.0f))
        return 0.0f;
    const float ratio = ior_in / ior_out;
    const float squared = 1.0f - ratio * ratio * (1.0f - cosine * cosine);
    return squared <= 0.0f ? 1.0f : mi_fresnel(ior_in, ior_out, cosine, std::sqrt(squared));
}

} // namespace

// Part of the light that is reflected between two media; the factors are the cosines of the incoming and the
// refracted ray with the normal. Born and Wolf, "Principles of Optics", 1999, section 1.5.2.
STAGE_API miScalar mi_fresnel(miScalar ior_in, miScalar ior_out, miScalar factor1, miScalar factor2) {
    const float across = ior_in * factor1 + ior_out * factor2;
    const float along = ior_out * factor1 + ior_in * factor2;
    if (across == 0.0f || along == 0.0f)
        return 1.0f;
    const float s = (ior_in * factor1 - ior_out * factor2) / across;
    const float p = (ior_out * factor1 - ior_in * factor2) / along;
    return 0.5f * (s * s + p * p);
}

// At the state's own angle; 1 on total reflection.
STAGE_API miScalar mi_fresnel_reflection(miState* state, miScalar ior_in, miScalar ior_out) {
    return fresnel_at(ior_in, ior_out, std::min(std::fabs(state->dot_nd), 1.0f));
}

// The highlight of a light along dir (ns) and how much of it the facet between light and eye reflects (ks).
STAGE_API void mi_fresnel_specular(miScalar* ns, miScalar* ks, miScalar exponent, miState* state,
                                   miVector* dir, miScalar ior_in, miScalar ior_out) {
    const miVector facet = normalized(*dir - state->dir);
    *ns = mi_phong_specular(exponent, state, dir);
    *ks = fresnel_at(ior_in, ior_out, std::clamp(dot(facet, *dir), 0.0f, 1.0f));
}

// Power of the cosine between the light and the mirror direction, without a factor of normalisation. Phong,
// "Illumination for Computer Generated Pictures", 1975.
STAGE_API miScalar mi_phong_specular(miScalar exponent, miState* state, miVector* dir) {
    const miVector mirror = state->dir - state->normal * (2.0f * dot(state->dir, state->normal));
    const float cosine = dot(mirror, *dir);
    return cosine > 0.0f ? std::pow(std::min(cosine, 1.0f), exponent) : 0.0f;
}

STAGE_API miScalar mi_ward_glossy(miVector* in, miVector* out, miVector* normal, miScalar shiny) {
    return ward(*in, *out, *normal, nullptr, nullptr, shiny, shiny);
}

STAGE_API miScalar mi_ward_anisglossy(miVector* in, miVector* out, miVector* normal, miVector* u, miVector* v,
                                      miScalar shiny_u, miScalar shiny_v) {
    return ward(*in, *out, *normal, u, v, shiny_u, shiny_v);
}

// Phase function for each steradian, which integrates to 1 over the sphere: Blasi, Le Saec and Schlick,
// "A Rendering Algorithm for Discrete Volume Density Objects", 1993.
STAGE_API miScalar mi_schlick_scatter(miVector* in, miVector* out, miScalar directionality) {
    const float k = std::clamp(directionality, -0.9999f, 0.9999f);
    const float denominator = 1.0f - k * dot(*in, *out);
    return (1.0f - k * k) / (4.0f * pi * denominator * denominator);
}

// By the weights of the options; by the usual ones where these are all 0.
STAGE_API miScalar mi_luminance(miState* state, miColor* color) {
    const miOptions* options = state ? state->options : nullptr;
    const bool weighted =
        options && (options->luminance_weight.r != 0.0f || options->luminance_weight.g != 0.0f ||
                    options->luminance_weight.b != 0.0f);
    return weighted ? stage::luminance(*color, options->luminance_weight) : stage::luminance(*color);
}
