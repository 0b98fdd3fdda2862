#include "render/frame_setup.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace stage {

namespace {

constexpr int most_samples_power = 8; // 4^8 samples for each pixel

} // namespace

std::uint32_t sample_grid(const RenderSettings& settings, const miOptions& options) {
    if (settings.samples)
        return static_cast<std::uint32_t>(std::max(1L, std::lround(std::sqrt(*settings.samples))));
    return 1u << std::clamp(options.max_samples, 0, most_samples_power);
}

std::uint32_t first_grid(const RenderSettings& settings, const miOptions& options) {
    const std::uint32_t most = sample_grid(settings, options);
    return settings.samples ? most
                            : std::min(most, 1u << std::clamp(options.min_samples, 0, most_samples_power));
}

miCamera frame_camera(const miCamera& camera, const RenderSettings& settings) {
    miCamera result = camera;
    if (settings.resolution) {
        const auto [width, height] = *settings.resolution;
        result.aspect *= static_cast<float>(width) / static_cast<float>(height) *
                         static_cast<float>(camera.y_resolution) / static_cast<float>(camera.x_resolution);
        result.x_resolution = width;
        result.y_resolution = height;
        result.x_offset *= static_cast<float>(width) / static_cast<float>(camera.x_resolution);
        result.y_offset *= static_cast<float>(height) / static_cast<float>(camera.y_resolution);
        result.window = {0, 0, width - 1, height - 1};
    }
    return result;
}

PixelRect frame_region(const miCamera& camera, const RenderSettings& settings) {
    if (settings.region) {
        const auto [xl, yl, xh, yh] = *settings.region;
        const PixelRect region{std::max(xl, 0), std::max(yl, 0), std::min(xh, camera.x_resolution - 1) + 1,
                               std::min(yh, camera.y_resolution - 1) + 1};
        if (region.x0 >= region.x1 || region.y0 >= region.y1)
            throw std::runtime_error("the region has no pixel of the picture, which is " +
                                     std::to_string(camera.x_resolution) + " by " +
                                     std::to_string(camera.y_resolution));
        return region;
    }
    const auto& w = camera.window;
    if (w.xh <= w.xl && w.yh <= w.yl)
        return {0, 0, camera.x_resolution, camera.y_resolution};
    return {w.xl, w.yl, w.xh < INT32_MAX ? w.xh + 1 : w.xh, w.yh < INT32_MAX ? w.yh + 1 : w.yh};
}

bool keeps_lengths(const miScalar* m) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const double dot = double{m[4 * i]} * m[4 * j] + double{m[4 * i + 1]} * m[4 * j + 1] +
                               double{m[4 * i + 2]} * m[4 * j + 2];
            if (std::fabs(dot - (i == j ? 1.0 : 0.0)) > 2e-7)
                return false;
        }
    return true;
}

} // namespace stage
