#include "image/picture_file.h"

#include <OpenImageIO/half.h>
#include <OpenImageIO/imageio.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace stage {

namespace {

using OIIO::ImageOutput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

[[noreturn]] void fail(const std::string& path, const std::string& cause) {
    throw std::runtime_error("cannot write picture \"" + path + "\": " + cause);
}

// Writes rows that run from the top to a file beside `path`, and gives it its name when it is complete.
void write_rows(const std::string& path, const std::string& format, const ImageSpec& spec, TypeDesc type,
                const std::vector<std::byte>& pixels) {
    namespace fs = std::filesystem;
    const fs::path target(path);
    std::string name(1, '.');
    name += target.filename().string() + "." + std::to_string(getpid()) + "." + format;
    const fs::path part = target.parent_path() / name;
    std::error_code ignored;
    const auto give_up = [&](const std::string& cause) {
        fs::remove(part, ignored);
        fail(path, cause);
    };
    auto output = ImageOutput::create(format);
    if (!output)
        fail(path, OIIO::geterror());
    if (!output->open(part.string(), spec))
        give_up(output->geterror());
    if (!output->write_image(type, pixels.data()))
        give_up(output->geterror());
    if (!output->close())
        give_up(output->geterror());
    std::error_code error;
    fs::rename(part, target, error);
    if (error)
        give_up(error.message());
}

std::string layer_channel(const FrameBuffer& buffer, std::size_t channel, bool first) {
    const std::string_view letters = buffer.type->letters;
    if (letters.empty())
        return first && buffer.desc.name.empty() ? "Y" : buffer.desc.name;
    const std::string letter(1, letters[channel]);
    return first ? letter : buffer.desc.name + "." + letter;
}

TypeDesc storage_type(FrameBufferType::Storage storage) {
    switch (storage) {
    case FrameBufferType::Storage::half:
        return TypeDesc::HALF;
    case FrameBufferType::Storage::integer:
        return TypeDesc::UINT32;
    default:
        return TypeDesc::FLOAT;
    }
}

std::byte* store(std::byte* to, float value, FrameBufferType::Storage storage) {
    if (storage == FrameBufferType::Storage::half) {
        // Finite values end at 65504; larger ones would turn into infinity.
        const half rounded(std::clamp(value, -65504.0f, 65504.0f));
        std::memcpy(to, &rounded, sizeof rounded);
        return to + sizeof rounded;
    }
    std::memcpy(to, &value, sizeof value); // integers are in the bits already
    return to + sizeof value;
}

void write_exr(const std::string& path, std::span<const FrameBuffer* const> buffers,
               const std::string& compression) {
    const int width = buffers.front()->width, height = buffers.front()->height;
    ImageSpec spec(width, height, 0, TypeDesc::FLOAT);
    spec.channelnames.clear();
    std::size_t pixel_bytes = 0;
    for (const FrameBuffer* buffer : buffers)
        for (std::size_t c = 0; c < static_cast<std::size_t>(buffer->channels); ++c) {
            spec.channelnames.push_back(layer_channel(*buffer, c, buffer == buffers.front()));
            spec.channelformats.push_back(storage_type(buffer->type->storage));
            pixel_bytes += spec.channelformats.back().size();
        }
    spec.nchannels = static_cast<int>(spec.channelnames.size());
    spec.attribute("compression", compression.empty() ? "zip" : compression);
    spec.attribute("oiio:ColorSpace", "Linear");
    // The format's writer puts in the time of day otherwise, and the same picture would not be the same file.
    spec.attribute("DateTime", "2000:01:01 00:00:00");

    std::vector<std::byte> packed(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                  pixel_bytes);
    std::byte* to = packed.data();
    for (int y = height - 1; y >= 0; --y)
        for (int x = 0; x < width; ++x)
            for (const FrameBuffer* buffer : buffers) {
                const std::span<const float> pixel = buffer->pixel(x, y);
                for (const float value : pixel)
                    to = store(to, value, buffer->type->storage);
            }
    write_rows(path, "exr", spec, TypeDesc::UNKNOWN, packed);
}

std::byte eight_bits(float value) {
    return static_cast<std::byte>(std::lrintf(std::clamp(value, 0.0f, 1.0f) * 255.0f));
}

void write_png(const std::string& path, const FrameBuffer& buffer) {
    const auto channels = static_cast<std::size_t>(buffer.channels);
    ImageSpec spec(buffer.width, buffer.height, buffer.channels, TypeDesc::UINT8);
    spec.attribute("oiio:ColorSpace", "sRGB");
    spec.attribute("oiio:UnassociatedAlpha", 1);
    std::vector<std::byte> bytes;
    bytes.reserve(buffer.pixels.size());
    for (int y = buffer.height - 1; y >= 0; --y)
        for (int x = 0; x < buffer.width; ++x) {
            const std::span<const float> pixel = buffer.pixel(x, y);
            const float alpha = channels == 4 ? pixel[3] : 1.0f;
            const float scale =
                alpha > 0.0f && alpha < 1.0f && buffer.desc.premultiplied ? 1.0f / alpha : 1.0f;
            for (std::size_t c = 0; c < channels; ++c)
                bytes.push_back(eight_bits(c == 3 ? alpha : srgb_of_linear(pixel[c] * scale)));
        }
    write_rows(path, "png", spec, TypeDesc::UINT8, bytes);
}

} // namespace

void write_picture(const std::string& path, std::span<const FrameBuffer* const> buffers,
                   const std::string& format, const std::string& compression) {
    const std::string wanted = format.empty() ? format_of(path) : format;
    if (wanted == "exr")
        write_exr(path, buffers, compression);
    else if (wanted == "png" && buffers.front()->type->storage != FrameBufferType::Storage::integer)
        write_png(path, *buffers.front());
    else if (wanted == "png")
        fail(path, "PNG files cannot hold tags");
    else
        fail(path, "unknown picture format \"" + wanted + "\", known are png and exr");
}

std::string format_of(const std::string& path) {
    std::string extension = std::filesystem::path(path).extension().string();
    if (!extension.empty())
        extension.erase(0, 1);
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool is_picture_format(const std::string& format) {
    return format == "png" || format == "exr";
}

float srgb_of_linear(float linear) {
    if (!(linear > 0.0f))
        return 0.0f;
    if (linear >= 1.0f)
        return 1.0f;
    return linear <= 0.0031308f ? 12.92f * linear : 1.055f * std::pow(linear, 1.0f / 2.4f) - 0.055f;
}

} // namespace stage
