#include "image/framebuffer.h"

#include <algorithm>
#include <array>

#include "image/grading.h"

namespace stage {

namespace {

using enum FrameBufferType::Storage;

constexpr std::array<FrameBufferType, 24> types{{
    {"rgba", miIMG_TYPE_RGBA, 4, half, true, "RGBA"},
    {"rgba_16", miIMG_TYPE_RGBA_16, 4, half, true, "RGBA"},
    {"rgba_h", miIMG_TYPE_RGBA_FP, 4, half, true, "RGBA"},
    {"rgba_fp", miIMG_TYPE_RGBA_FP, 4, single, true, "RGBA"},
    {"rgb", miIMG_TYPE_RGB, 3, half, true, "RGB"},
    {"rgb_16", miIMG_TYPE_RGB_16, 3, half, true, "RGB"},
    {"rgb_h", miIMG_TYPE_RGB_FP, 3, half, true, "RGB"},
    {"rgb_fp", miIMG_TYPE_RGB_FP, 3, single, true, "RGB"},
    {"a", miIMG_TYPE_A, 1, half, true, ""},
    {"a_16", miIMG_TYPE_A_16, 1, half, true, ""},
    {"a_fp", miIMG_TYPE_A_FP, 1, single, true, ""},
    {"s", miIMG_TYPE_S, 1, half, true, ""},
    {"s_16", miIMG_TYPE_S_16, 1, half, true, ""},
    {"s_fp", miIMG_TYPE_S_FP, 1, single, true, ""},
    {"vta", miIMG_TYPE_VTA, 2, single, true, "XY"},
    {"vts", miIMG_TYPE_VTS, 2, single, true, "XY"},
    {"z", miIMG_TYPE_Z, 1, single, false, ""},
    {"n", miIMG_TYPE_N, 3, single, false, "XYZ"},
    {"m", miIMG_TYPE_M, 3, single, false, "XYZ"},
    {"tag", miIMG_TYPE_TAG, 1, integer, false, ""},
    {"bit", miIMG_TYPE_BIT, 1, integer, false, ""},
    {"coverage", miIMG_TYPE_COVERAGE, 1, single, true, ""},
    {"depth", miIMG_TYPE_Z, 1, single, false, ""},
    {"normal", miIMG_TYPE_N, 3, single, false, "XYZ"},
}};

// Which of the named buffers is the main image; the number of buffers when none is.
std::size_t main_buffer(std::span<const FramebufferDesc> descs) {
    const auto color = [](const FramebufferDesc& d) {
        const FrameBufferType* type = find_framebuffer_type(d.datatype);
        return type && type->is_color();
    };
    auto found = std::ranges::find_if(descs, [&](const auto& d) { return d.primary && color(d); });
    if (found == descs.end())
        found = std::ranges::find_if(descs, [&](const auto& d) { return !d.user && color(d); });
    return static_cast<std::size_t>(found - descs.begin());
}

// The image type in floats that has the buffer's channels.
miImg_type image_type(const FrameBuffer& buffer) {
    switch (buffer.channels) {
    case 1:
        return buffer.type->type <= miIMG_TYPE_A_FP ? miIMG_TYPE_A_FP : miIMG_TYPE_S_FP;
    case 2:
    case 3:
        return miIMG_TYPE_RGB_FP;
    default:
        return miIMG_TYPE_RGBA_FP;
    }
}

} // namespace

ImageMemory image_of(const FrameBuffer& buffer, bool premultiply) {
    const Grading grading{.premultiply = premultiply || buffer.channels < 4};
    ImageMemory memory(buffer.width, buffer.height, image_type(buffer));
    for (int y = 0; y < buffer.height; ++y)
        for (int x = 0; x < buffer.width; ++x) {
            const std::span<const float> p = buffer.pixel(x, y);
            const miColor color = p.size() == 1   ? miColor{p[0], p[0], p[0], p[0]}
                                  : p.size() == 2 ? miColor{p[0], p[1], 0.0f, 1.0f}
                                  : p.size() == 3 ? miColor{p[0], p[1], p[2], 1.0f}
                                                  : miColor{p[0], p[1], p[2], p[3]};
            put_graded_color(memory.image(), color, x, y, grading);
        }
    return memory;
}

void take_image(FrameBuffer& buffer, const miImg_image* image, bool premultiply) {
    const Grading grading{.premultiply = premultiply || buffer.channels < 4};
    for (int y = 0; y < buffer.height; ++y)
        for (int x = 0; x < buffer.width; ++x) {
            const miColor color = graded_color(image, x, y, grading);
            const std::array channels = {color.r, color.g, color.b, color.a};
            std::ranges::copy_n(channels.begin(), buffer.channels, buffer.pixel(x, y).begin());
        }
}

const FrameBufferType* find_framebuffer_type(std::string_view name) {
    const auto found = std::ranges::find(types, name, &FrameBufferType::name);
    return found == types.end() ? nullptr : &*found;
}

std::vector<FrameBuffer> make_framebuffers(std::span<const FramebufferDesc> descs, int width, int height,
                                           const Place& place) {
    std::vector<FrameBuffer> buffers;
    const auto add = [&](const FramebufferDesc& desc) {
        FrameBuffer buffer;
        buffer.desc = desc;
        buffer.type = find_framebuffer_type(desc.datatype);
        if (!buffer.type)
            throw SceneError(place, "frame buffer \"" + desc.name + "\" has the unknown data type \"" +
                                        desc.datatype + "\"");
        buffer.width = width;
        buffer.height = height;
        buffer.channels = buffer.type->channels;
        buffer.pixels.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                 static_cast<std::size_t>(buffer.channels),
                             0.0f);
        buffers.push_back(std::move(buffer));
    };
    const std::size_t main = main_buffer(descs);
    add(main < descs.size() ? descs[main] : FramebufferDesc{});
    for (std::size_t i = 0; i < descs.size(); ++i)
        if (i != main)
            add(descs[i]);
    return buffers;
}

} // namespace stage
