// Clipping, gamma, premultiplication and dithering.
#include "image/grading.h"

#include <algorithm>
#include <cmath>

namespace stage {

namespace {

miColor scaled(const miColor& c, float factor) {
    return {c.r * factor, c.g * factor, c.b * factor, c.a};
}

template <class Change> miColor each_color(const miColor& c, const Change& change) {
    return {change(c.r), change(c.g), change(c.b), c.a};
}

float within(float value, float limit) {
    return value > 0.0f ? std::min(value, limit) : 0.0f; // a NaN is not above 0
}

// Moves a colour towards the grey of its brightness until no channel is outside of [0, limit].
miColor desaturated(const miColor& c, float limit, const miColor& weight) {
    const float grey = luminance(c, weight);
    if (!(grey > 0.0f))
        return {0.0f, 0.0f, 0.0f, c.a};
    if (grey >= limit)
        return {limit, limit, limit, c.a};
    const float most = std::max({c.r, c.g, c.b}), least = std::min({c.r, c.g, c.b});
    float keep = 1.0f;
    if (most > limit)
        keep = (limit - grey) / (most - grey);
    if (least < 0.0f)
        keep = std::min(keep, grey / (grey - least));
    return each_color(c, [&](float v) { return grey + keep * (v - grey); });
}

} // namespace

Grading grading_of(const miOptions& options) {
    Grading g;
    g.gamma = options.gamma > 0.0f ? options.gamma : 1.0f;
    g.clip = options.colorclip == 1   ? Grading::Clip::alpha
             : options.colorclip == 2 ? Grading::Clip::raw
                                      : Grading::Clip::rgb;
    g.premultiply = !options.nopremult;
    g.dither = options.dither != miFALSE;
    g.desaturate = options.desaturate != miFALSE;
    g.luminance_weight = options.luminance_weight;
    return g;
}

miColor clipped(const miColor& color, bool premultiplied, const Grading& grading) {
    miColor c = color;
    c.a = within(c.a, 1.0f);
    const bool below_alpha = premultiplied && grading.clip == Grading::Clip::alpha;
    const float limit = below_alpha ? c.a : 1.0f;
    if (grading.desaturate)
        c = desaturated(c, limit, grading.luminance_weight);
    c = each_color(c, [&](float v) { return within(v, limit); });
    if (premultiplied && grading.clip == Grading::Clip::rgb)
        c.a = std::max({c.a, c.r, c.g, c.b});
    return c;
}

float gamma_encoded(float linear, float gamma) {
    return gamma == 1.0f || !(linear > 0.0f) ? linear : std::pow(linear, 1.0f / gamma);
}

float gamma_decoded(float encoded, float gamma) {
    return gamma == 1.0f || !(encoded > 0.0f) ? encoded : std::pow(encoded, gamma);
}

// The bits of x ^ y and y, taken in turn, the lowest first, make up the number from its highest bit down.
float rounding_offset(int x, int y, bool dither) {
    if (!dither)
        return 0.5f;
    unsigned number = 0;
    for (int bit = 0; bit < 3; ++bit)
        number = number << 2 | ((static_cast<unsigned>(x ^ y) >> bit) & 1u) << 1 |
                 ((static_cast<unsigned>(y) >> bit) & 1u);
    return (static_cast<float>(number) + 0.5f) / 64.0f;
}

void put_graded_color(miImg_image* image, const miColor& color, int x, int y, const Grading& g) {
    if (!image)
        return;
    const bool fixed_point = image->bits != 32;
    miColor c = fixed_point ? clipped(color, true, g) : color;
    if (!g.premultiply && c.a > 0.0f)
        c = scaled(c, 1.0f / c.a);
    if (fixed_point) {
        c = each_color(c, [&](float v) { return gamma_encoded(v, g.gamma); });
        // The image rounds to the nearest.
        const float largest = image->bits == 8 ? 255.0f : 65535.0f;
        const float shift = (rounding_offset(x, y, g.dither) - 0.5f) / largest;
        if (shift != 0.0f)
            c = each_color(c, [&](float v) { return v + shift; });
    }
    put_image_color(image, c, x, y);
}

miColor graded_color(const miImg_image* image, int x, int y, const Grading& g) {
    miColor c = image_color(image, x, y);
    if (image && image->bits != 32)
        c = each_color(c, [&](float v) { return gamma_decoded(v, g.gamma); });
    return g.premultiply || !(c.a > 0.0f) ? c : scaled(c, c.a);
}

} // namespace stage
