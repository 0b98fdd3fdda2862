// What the options say about colours on their way from scene-linear floats to 8 or 16 bits and back: picture
// files for a display, and images that shaders write.
#pragma once

#include <cstdint>

#include "kit/color.h"
#include "kit/image.h"
#include "scene/scene.h"

namespace stage {

struct Grading {
    enum class Clip : std::uint8_t {
        rgb,   // alpha is raised to the largest colour
        alpha, // colours are cut at alpha
        raw    // each channel by itself
    };
    float gamma = 1.0f; // of the display
    Clip clip = Clip::rgb;
    bool premultiply = true; // images of shaders hold colours times alpha
    bool dither = false;
    bool desaturate = false; // colours too bright for the picture keep their hue
    miColor luminance_weight = default_luminance_weight;
};

[[nodiscard]] Grading grading_of(const miOptions& options);

// A colour within [0, 1]. The modes other than raw are for colours that are multiplied by alpha; others are
// clipped as with raw. NaN becomes 0.
[[nodiscard]] miColor clipped(const miColor& color, bool premultiplied, const Grading& grading);

// A value in [0, 1] for a display, and back: raised to 1 / gamma.
[[nodiscard]] float gamma_encoded(float linear, float gamma);
[[nodiscard]] float gamma_decoded(float encoded, float gamma);

// The place in [0, 1) of pixel (x, y) in a pattern of 8 by 8 whose numbers, added before rounding down,
// give flat areas their mean (Bryce Bayer, "An optimum method for two-level rendition of continuous-tone
// pictures", 1973). 0.5 without dithering, which rounds to the nearest.
[[nodiscard]] float rounding_offset(int x, int y, bool dither);

// What mi_img_put_color and mi_img_get_color do. `color` is multiplied by its alpha, as samples are. Images
// of floats only have alpha taken out, when the options do not want it in.
void put_graded_color(miImg_image* image, const miColor& color, int x, int y, const Grading& grading);
[[nodiscard]] miColor graded_color(const miImg_image* image, int x, int y, const Grading& grading);

} // namespace stage
