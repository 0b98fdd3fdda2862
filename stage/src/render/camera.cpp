#include "render/camera.h"

#include <cmath>

namespace stage {

Projection::Projection(const miCamera& camera)
    : orthographic_(camera.orthographic != miFALSE), focal_(camera.focal),
      pixel_width_(double{camera.aperture} / camera.x_resolution),
      pixel_height_(double{camera.aperture} / camera.aspect / camera.y_resolution),
      centre_x_(0.5 * camera.x_resolution + camera.x_offset),
      centre_y_(0.5 * camera.y_resolution + camera.y_offset) {}

CameraRay Projection::ray(double raster_x, double raster_y) const {
    const double x = (raster_x - centre_x_) * pixel_width_;
    const double y = (raster_y - centre_y_) * pixel_height_;
    if (orthographic_)
        return {{static_cast<float>(x), static_cast<float>(y), 0.0f}, {0.0f, 0.0f, -1.0f}};
    const double length = std::sqrt(x * x + y * y + focal_ * focal_);
    return {{0.0f, 0.0f, 0.0f},
            {static_cast<float>(x / length), static_cast<float>(y / length),
             static_cast<float>(-focal_ / length)}};
}

bool Projection::raster(const miVector& p, miVector& result) const {
    if (!orthographic_ && p.z == 0.0f)
        return false;
    const double scale = orthographic_ ? 1.0 : focal_ / -double{p.z};
    result.x = static_cast<float>(centre_x_ + p.x * scale / pixel_width_);
    result.y = static_cast<float>(centre_y_ + p.y * scale / pixel_height_);
    result.z = 0.0f;
    return true;
}

} // namespace stage
