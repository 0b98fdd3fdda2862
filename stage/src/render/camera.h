// The projection of a camera: raster positions to rays in camera space and back.
#pragma once

#include "geoshader.h"
#include "shader.h"

namespace stage {

// The ray of a raster position, in camera space; the direction is normalised.
struct CameraRay {
    miVector org, dir;
};

// Camera space: eye at the origin, looking down -z, +y up. Raster space: pixels, (0, 0) the lower left corner
// of the picture, pixel centres at .5. `aperture` is the width of the image plane at distance `focal` (of the
// visible slab for an orthographic camera), width / aspect its height; the picture shows the image plane
// shifted to the right and up by the offsets.
class Projection {
public:
    explicit Projection(const miCamera& camera);

    [[nodiscard]] CameraRay ray(double raster_x, double raster_y) const;
    // False, and nothing written, for a point that a pinhole camera cannot see: in the plane of the eye.
    bool raster(const miVector& camera_point, miVector& result) const;

private:
    bool orthographic_;
    double focal_;
    double pixel_width_, pixel_height_; // on the image plane
    double centre_x_, centre_y_;        // raster position of the view axis
};

} // namespace stage
