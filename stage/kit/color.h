// Colour measures of the renderer.
#pragma once

#include <cmath>

#include "shader.h"

namespace stage {

// Weights of red, green and blue that stand in the options by default.
inline constexpr miColor default_luminance_weight = {0.299f, 0.587f, 0.114f, 0.0f};

// Inline: every shader's colour is looked at.
[[nodiscard]] inline bool is_finite(const miColor& c) {
    return std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.b) && std::isfinite(c.a);
}

[[nodiscard]] inline bool is_black(const miColor& c) {
    return c.r == 0.0f && c.g == 0.0f && c.b == 0.0f;
}

[[nodiscard]] miScalar luminance(const miColor& color, const miColor& weight = default_luminance_weight);

// CIE 1931 XYZ (in r, g, b) to the linear colours that the renderer computes in: the primaries of
// ITU-R BT.709 with white D65. Alpha is handed on.
[[nodiscard]] miColor color_of_ciexyz(const miColor& xyz);

} // namespace stage
