// Colour measures of the renderer.
#include "kit/color.h"

namespace stage {

miScalar luminance(const miColor& color, const miColor& weight) {
    return color.r * weight.r + color.g * weight.g + color.b * weight.b;
}

miColor color_of_ciexyz(const miColor& xyz) {
    // The inverse of the matrix that the chromaticities of the primaries and of white give.
    return {3.24096994f * xyz.r - 1.53738318f * xyz.g - 0.49861076f * xyz.b,
            -0.96924364f * xyz.r + 1.87596750f * xyz.g + 0.04155506f * xyz.b,
            0.05563008f * xyz.r - 0.20397696f * xyz.g + 1.05697151f * xyz.b, xyz.a};
}

} // namespace stage
