// Writes frame buffers to picture files.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "image/framebuffer.h"
#include "image/grading.h"

namespace stage {

// A file that a frame writes, with the buffers that may go into it: the first is its image and says how the
// file is made (compression, quality, resolution, tiles, data window).
struct Picture {
    std::string path;
    std::string format; // as is_picture_format knows it
    std::vector<const FrameBuffer*> buffers;
    Grading grading{};
};

// What a frame writes: all buffers to each of `outputs` or, without any, to the files that the buffers name,
// each its own and the main image's (the first) the others too; when they name none, to `default_output`. The
// format is the one that a buffer names, or the path's ending.
[[nodiscard]] std::vector<Picture> pictures_of(std::span<const FrameBuffer> buffers,
                                               std::span<const std::string> outputs,
                                               const std::string& default_output);

// Throws what write_picture would, as far as it can be known before rendering: an unknown format, or a folder
// that does not exist or cannot be written to. The first form knows the path alone.
void check_picture_path(const std::string& path);
void check_picture(const Picture& picture);

// EXR is scene-linear and takes all buffers: the channels of the first are R, G, B and A, those of the others
// have the buffer's name in front ("name.R"), or are called as the buffer when there is one channel only.
// Integers are stored as such. HDR and TIFF files of floating point types are scene-linear too, with the
// first buffer alone.
//
// PNG, JPEG and TIFF of 8 and 16 bits are display-referred: clipped as the grading says, with the curve of
// sRGB, or the grading's gamma when that is not 1; straight alpha, none in JPEG. They take the first buffer
// alone. What is neither a colour nor an intensity has no curve; normals are stored as (n + 1) / 2.
//
// The file appears under its name only when it is complete. One picture at a time. Throws std::runtime_error
// with the path.
void write_picture(const Picture& picture);

// Writes an image as it is: its numbers, in its number of bits where the format has such. The format is the
// one that is named, or the path's ending. As above in everything else.
void write_image(const std::string& path, const std::string& format, const miImg_image& image);

// Whether write_picture knows a format: "exr", "hdr", "jpg", "png" or "tif", also "jpeg" and "tiff".
[[nodiscard]] bool is_picture_format(const std::string& format);

// "name.png" and ".0003": "name.0003.png".
[[nodiscard]] std::string before_ending(const std::string& path, const std::string& mark);

// For a signal handler that ends the program: removes the file of a write_picture that is under way.
void remove_unfinished_picture();

// Scene-linear to display: the transfer function of sRGB (IEC 61966-2-1), clipped to [0, 1].
[[nodiscard]] float srgb_of_linear(float linear);

} // namespace stage
