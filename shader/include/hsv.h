/*
 * Colours by hue, saturation and value.
 */
#pragma once

#include "shader.h"

#include <cmath>

namespace orl {

/* Colour of a hue (0 to 1, once around from red), saturation and value (0 to 1), with alpha 1. Alvy Ray
   Smith, "Color gamut transform pairs", 1978. */
inline miColor color_of_hsv(miScalar hue, miScalar saturation, miScalar value) {
    const miScalar turn = (hue - std::floor(hue)) * 6.0f;
    const miScalar f = turn - std::floor(turn);
    const miScalar low = value * (1.0f - saturation);
    const miScalar falling = value * (1.0f - saturation * f);
    const miScalar rising = value * (1.0f - saturation * (1.0f - f));
    switch (static_cast<int>(turn)) {
    case 0:
        return {value, rising, low, 1};
    case 1:
        return {falling, value, low, 1};
    case 2:
        return {low, value, rising, 1};
    case 3:
        return {low, falling, value, 1};
    case 4:
        return {rising, low, value, 1};
    default:
        return {value, low, falling, 1};
    }
}

} // namespace orl
