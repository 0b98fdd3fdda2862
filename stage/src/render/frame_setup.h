// What the command line and the scene together ask of a frame.
#pragma once

#include <cstdint>

#include "render/film.h"
#include "render/renderer.h"

namespace stage {

// Samples of a pixel along one axis, at most.
[[nodiscard]] std::uint32_t sample_grid(const RenderSettings& settings, const miOptions& options);
// Of the samples that every pixel takes before it is known whether it needs more: less than one is one.
[[nodiscard]] std::uint32_t first_grid(const RenderSettings& settings, const miOptions& options);

// The camera of the frame: other resolutions keep the width of the view and the shape of the pixels.
[[nodiscard]] miCamera frame_camera(const miCamera& camera, const RenderSettings& settings);

// The pixels to render: the given region, or the camera's window; a window without extent is none. Throws
// std::runtime_error for a region outside of the picture.
[[nodiscard]] PixelRect frame_region(const miCamera& camera, const RenderSettings& settings);

// Whether a matrix turns and shifts only, to the precision of its elements.
[[nodiscard]] bool keeps_lengths(const miScalar* matrix);

} // namespace stage
