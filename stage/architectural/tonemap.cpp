/*
 * Photographic exposure behind the tone-map functions of the renderer's architectural library: what the
 * module's photographic operator loads where the renderer itself is not at hand.
 *
 * Exposure: the luminance that saturates a film or sensor is 78 / (0.65 S) N^2 / t (ISO 12232,
 * saturation-based speed, with the usual factor 0.65 for lens and angle); it becomes 1. Highlights: x (1 + b
 * x) / (1 + x), the operator of Reinhard, Stark, Shirley and Ferwerda, Photographic tone reproduction for
 * digital images, 2002, with b = 1 / white^2, on each channel as on each layer of a film. Vignetting: the
 * cosine of the angle to the axis, for a lens that sees 45 degrees at the corners, raised to a power.
 */
#include "shader.h"

#include <algorithm>
#include <cmath>

#define ARCHITECTURAL_EXPORT extern "C" DLLEXPORT

namespace {

using Parameters = mia_tonemap_parameters;

// Places in `derived`.
enum { red_factor, green_factor, blue_factor, burn, inverse_gamma, gamma_power, inverse_corner };

float exposure(const Parameters& p) {
    if (!(p.film_iso > 0.0f) || !(p.camera_shutter > 0.0f) || !(p.f_number > 0.0f))
        return 1.0f;
    return 0.65f * p.film_iso / (78.0f * p.f_number * p.f_number * p.camera_shutter);
}

float vignette(const Parameters& p, float x, float y) {
    if (!(p.vignetting > 0.0f) || !(p.x_resolution > 0.0f) || !(p.y_resolution > 0.0f))
        return 1.0f;
    const float dx = 2.0f * x - p.x_resolution, dy = 2.0f * y - p.y_resolution;
    const float tangent_squared = (dx * dx + dy * dy) * p.derived[inverse_corner];
    return std::pow(1.0f + tangent_squared, -0.5f * p.vignetting);
}

float power(float base, float exponent) {
    return exponent == 1.0f ? base : std::pow(base, exponent);
}

float compress(const Parameters& p, float x) {
    if (!(x > 0.0f))
        return 0.0f;
    const float b = p.derived[burn];
    // Beyond all that can be told apart the curve is b x, or 1; x squared would leave the range of numbers.
    const float kept = x < 1e15f ? x * (1.0f + b * x) / (1.0f + x) : std::max(b * x, 1.0f);
    return power(kept, p.derived[inverse_gamma]);
}

float expand(const Parameters& p, float y) {
    if (!(y > 0.0f))
        return 0.0f;
    const float kept = power(y, p.derived[gamma_power]);
    const float b = p.derived[burn], rest = 1.0f - kept;
    // The greater root of b x^2 + (1 - y) x - y = 0, in the form that does not cancel.
    const float root = std::sqrt(rest * rest + 4.0f * b * kept);
    if (rest < 0.0f && b > 0.0f)
        return (root - rest) / (2.0f * b);
    return 2.0f * kept / std::max(rest + root, 1e-7f);
}

} // namespace

ARCHITECTURAL_EXPORT void mia_tonemap_api_init(Parameters* p) {
    const float common = p->cm2_factor * exposure(*p);
    const float white[3] = {p->whitepoint.r, p->whitepoint.g, p->whitepoint.b};
    const float mean = (white[0] + white[1] + white[2]) / 3.0f;
    for (int i = 0; i < 3; ++i)
        p->derived[red_factor + i] = white[i] > 0.0f ? common * mean / white[i] : common;
    p->derived[burn] = p->burn_highlights > 0.0f ? std::min(p->burn_highlights, 1.0f) : 0.0f;
    p->derived[inverse_corner] =
        1.0f / (p->x_resolution * p->x_resolution + p->y_resolution * p->y_resolution);
    p->derived[gamma_power] = p->gamma > 0.0f ? p->gamma : 1.0f;
    p->derived[inverse_gamma] = 1.0f / p->derived[gamma_power];
}

ARCHITECTURAL_EXPORT void mia_tonemap_api_exit(Parameters*) {}

ARCHITECTURAL_EXPORT void mia_tonemap_api_transform_color(const Parameters* p, miColor* color, float x,
                                                          float y) {
    const float dimming = vignette(*p, x, y);
    color->r = compress(*p, color->r * p->derived[red_factor] * dimming);
    color->g = compress(*p, color->g * p->derived[green_factor] * dimming);
    color->b = compress(*p, color->b * p->derived[blue_factor] * dimming);
}

ARCHITECTURAL_EXPORT void mia_tonemap_api_untransform_color(const Parameters* p, miColor* color, float x,
                                                            float y) {
    const float dimming = vignette(*p, x, y);
    const auto bring_back = [&](float y_value, float factor) {
        return factor * dimming > 0.0f ? expand(*p, y_value) / (factor * dimming) : 0.0f;
    };
    color->r = bring_back(color->r, p->derived[red_factor]);
    color->g = bring_back(color->g, p->derived[green_factor]);
    color->b = bring_back(color->b, p->derived[blue_factor]);
}
