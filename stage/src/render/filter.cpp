#include "render/filter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace stage {

namespace {

float usual_width(int kind) {
    switch (kind) {
    case 't':
        return 2.0f;
    case 'g':
        return 3.0f;
    case 'm':
    case 'l':
        return 4.0f;
    default:
        return 1.0f;
    }
}

// Don P. Mitchell and Arun N. Netravali, "Reconstruction Filters in Computer Graphics", 1988, with B = C =
// 1/3; t in [0, 2].
float mitchell(float t) {
    if (t < 1.0f)
        return ((7.0f * t - 12.0f) * t * t + 16.0f / 3.0f) / 6.0f;
    return (((-7.0f / 3.0f * t + 12.0f) * t - 20.0f) * t + 32.0f / 3.0f) / 6.0f;
}

float sinc(float t) {
    const float x = std::numbers::pi_v<float> * t;
    return x < 1e-4f ? 1.0f : std::sin(x) / x;
}

} // namespace

PixelFilter::PixelFilter(int kind, float width_x, float width_y)
    : kind_(kind), box_(kind != 't' && kind != 'g' && kind != 'm' && kind != 'l') {
    radius_x_ = 0.5f * (width_x > 0.0f ? width_x : usual_width(kind));
    radius_y_ = 0.5f * (width_y > 0.0f ? width_y : usual_width(kind));
    reach_ = static_cast<int>(std::ceil(std::max(std::max(radius_x_, radius_y_) - 0.5f, 0.0f)));
}

// Within the radius.
float PixelFilter::axis(float distance, float radius) const {
    const float t = std::abs(distance) / radius;
    switch (kind_) {
    case 't':
        return 1.0f - t;
    case 'g': // lowered to reach 0 at the border
        return std::exp(-2.0f * t * t) - std::exp(-2.0f);
    case 'm':
        return mitchell(2.0f * t);
    case 'l': // Claude E. Duchon, "Lanczos Filtering in One and Two Dimensions", 1979, with two lobes
        return sinc(2.0f * t) * sinc(t);
    default:
        return 1.0f;
    }
}

} // namespace stage
