// Writes frame buffers to picture files.
#pragma once

#include <span>
#include <string>

#include "image/framebuffer.h"

namespace stage {

// The format comes from `format` ("png" or "exr"), or when that is empty from the file name's extension.
//
// EXR is scene-linear and takes all buffers: the channels of the first are R, G, B and A, those of the others
// have the buffer's name in front ("name.R"), or are called as the buffer when there is one channel only.
// Integers are stored as such. `compression` is the scene language's: none, rle, piz, zip or pxr24.
//
// PNG is display-referred (sRGB), eight bits, with straight alpha, and takes the first buffer alone.
//
// The file appears under its name only when it is complete. Throws std::runtime_error with the path.
void write_picture(const std::string& path, std::span<const FrameBuffer* const> buffers,
                   const std::string& format = {}, const std::string& compression = {});

// The format that a file name asks for, in small letters; empty without an extension.
[[nodiscard]] std::string format_of(const std::string& path);

// Whether write_picture can write it: for a message before rendering rather than after.
[[nodiscard]] bool is_picture_format(const std::string& format);

// Scene-linear to display: the transfer function of sRGB (IEC 61966-2-1), clipped to [0, 1].
[[nodiscard]] float srgb_of_linear(float linear);

} // namespace stage
