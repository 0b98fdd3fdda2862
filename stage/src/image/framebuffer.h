// Frame buffers in memory and their data types.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "kit/image.h"
#include "scene/scene.h"

namespace stage {

// A data type of the scene language. A sample's value is a miColor: values with one channel are in r, vectors
// in r, g and b; integers are in the bits of r.
struct FrameBufferType {
    std::string_view name;
    miImg_type type;
    int channels;
    enum class Storage { half, single, integer } storage; // in an EXR file
    bool filtered;                                        // samples may be averaged
    std::string_view letters; // channel names in a file; empty: the buffer's name alone
    [[nodiscard]] bool is_color() const { return channels >= 3 && filtered; }
    [[nodiscard]] bool is_intensity() const { return type >= miIMG_TYPE_S && type <= miIMG_TYPE_S_FP; }
};

[[nodiscard]] const FrameBufferType* find_framebuffer_type(std::string_view name); // null when not known

// One finished frame buffer: rows from the bottom, `channels` floats for each pixel. Integers are kept in the
// bits of the floats.
struct FrameBuffer {
    FramebufferDesc desc;
    const FrameBufferType* type = nullptr;
    const ColorProfile* profile = nullptr; // of the file; null: the format's own
    int width = 0, height = 0, channels = 4;
    std::vector<float> pixels;
    [[nodiscard]] bool filtered() const { return type->filtered && desc.filtering; }
    [[nodiscard]] std::span<float> pixel(int x, int y) {
        return std::span(pixels).subspan(offset(x, y), static_cast<std::size_t>(channels));
    }
    [[nodiscard]] std::span<const float> pixel(int x, int y) const {
        return std::span(pixels).subspan(offset(x, y), static_cast<std::size_t>(channels));
    }

private:
    [[nodiscard]] std::size_t offset(int x, int y) const {
        return (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) *
               static_cast<std::size_t>(channels);
    }
};

// A copy of a buffer in full precision, as the interface's image record; and the way back. Not for buffers of
// integers. With `premultiply` off the colours in the image are divided by alpha.
[[nodiscard]] ImageMemory image_of(const FrameBuffer& buffer, bool premultiply);
void take_image(FrameBuffer& buffer, const miImg_image* image, bool premultiply);

// The buffers of a frame: the main image first (made up when the camera names none), then the others in
// their order. Throws SceneError at `place` for an unknown data type.
std::vector<FrameBuffer> make_framebuffers(std::span<const FramebufferDesc> descs, int width, int height,
                                           const Place& place);

} // namespace stage
