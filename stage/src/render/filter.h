// Weights by which a pixel gathers the samples around its centre.
#pragma once

#include "geoshader.h"

namespace stage {

// Separable; each axis has its own width in pixels. Not normalised.
class PixelFilter {
public:
    // `kind` as in miOptions::filter; a width of 0 or less stands for the usual one of the kind: 1 box,
    // 2 triangle, 3 Gauss, 4 Mitchell and Lanczos.
    PixelFilter(int kind, float width_x, float width_y);

    // At a distance from the pixel's centre, in pixels.
    [[nodiscard]] float weight(float dx, float dy) const {
        // Half open, so that a sample on a border belongs to one pixel of a box filter of width 1.
        if (dx < -radius_x_ || dx >= radius_x_ || dy < -radius_y_ || dy >= radius_y_)
            return 0.0f;
        return box_ ? 1.0f : axis(dx, radius_x_) * axis(dy, radius_y_);
    }
    // How many pixels beyond its own one a pixel gathers from.
    [[nodiscard]] int reach() const { return reach_; }

private:
    [[nodiscard]] float axis(float distance, float radius) const;
    int kind_;
    bool box_;
    float radius_x_, radius_y_;
    int reach_;
};

} // namespace stage
