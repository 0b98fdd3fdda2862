// Colour measures of the renderer.
#include "kit/color.h"

namespace stage {

miScalar luminance(const miColor& color, const miColor& weight) {
    return color.r * weight.r + color.g * weight.g + color.b * weight.b;
}

miColor color_of_ciexyz(const miColor& xyz) {
    // IEC 61966-2-1:1999, the inverse of the matrix from the primaries' chromaticities.
    return {3.2406f * xyz.r - 1.5372f * xyz.g - 0.4986f * xyz.b,
            -0.9689f * xyz.r + 1.8758f * xyz.g + 0.0415f * xyz.b,
            0.0557f * xyz.r - 0.2040f * xyz.g + 1.0570f * xyz.b, xyz.a};
}

} // namespace stage
