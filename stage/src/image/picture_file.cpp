#include "image/picture_file.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/half.h>
#include <OpenImageIO/imageio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "scene/color_profile.h"

namespace stage {

namespace {

using OIIO::ImageOutput;
using OIIO::ImageSpec;
using OIIO::TypeDesc;

[[noreturn]] void fail(const std::string& path, const std::string& cause) {
    throw std::runtime_error("cannot write picture \"" + path + "\": " + cause);
}

namespace fs = std::filesystem;

// The file that is being written, for remove_unfinished_picture: a signal handler must not touch a string.
char unfinished[4096];
std::atomic<bool> is_unfinished{false};

// A file beside the picture that takes its name once it is complete, and is removed when it never is.
class PartFile {
public:
    explicit PartFile(const fs::path& picture) : picture_(picture) {
        std::string name(1, '.');
        name += picture.filename().string() + "." + std::to_string(getpid()) + ".part";
        path_ = (picture.parent_path() / name).string();
        if (path_.size() >= sizeof unfinished)
            fail(picture.string(), "the path is too long");
        std::strcpy(unfinished, path_.c_str());
        is_unfinished = true;
    }
    ~PartFile() { remove_unfinished_picture(); }
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;
    void finish(const std::vector<unsigned char>& bytes) {
        std::FILE* file = std::fopen(path_.c_str(), "wb");
        if (!file)
            fail(picture_.string(), std::generic_category().message(errno));
        const bool full = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        if (const bool closed = std::fclose(file) == 0; !full || !closed)
            fail(picture_.string(), std::generic_category().message(errno));
        std::error_code error;
        fs::rename(path_, picture_, error);
        if (error)
            fail(picture_.string(), error.message());
        is_unfinished = false;
    }

private:
    fs::path picture_;
    std::string path_;
};

// Writes rows that run from the top. The file is made in memory: the formats' writers lose the error of a
// disk that is full when they close it.
void write_rows(const std::string& path, const std::string& format, const ImageSpec& spec, TypeDesc type,
                const std::vector<std::byte>& pixels) {
    OIIO::Filesystem::IOVecOutput memory;
    auto output = ImageOutput::create(format);
    if (!output)
        fail(path, OIIO::geterror());
    if (!output->set_ioproxy(&memory) || !output->open(path, spec) ||
        !output->write_image(type, pixels.data()) || !output->close())
        fail(path, output->geterror());
    PartFile(path).finish(memory.buffer());
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

// A pixel in the colours of the buffer's profile, if it has one.
std::array<float, 4> profiled(const FrameBuffer& buffer, int x, int y, float scale = 1.0f) {
    std::array<float, 4> values{};
    std::ranges::copy(buffer.pixel(x, y), values.begin());
    if (!buffer.profile)
        return values;
    const miColor stored =
        buffer.profile->encoded({values[0] * scale, values[1] * scale, values[2] * scale, values[3]});
    return {stored.r, stored.g, stored.b, stored.a};
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
    if (!buffers.front()->profile)
        spec.attribute("oiio:ColorSpace", "Linear");
    // The format's writer puts in the time of day otherwise, and the same picture would not be the same file.
    spec.attribute("DateTime", "2000:01:01 00:00:00");

    std::vector<std::byte> packed(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                                  pixel_bytes);
    std::byte* to = packed.data();
    for (int y = height - 1; y >= 0; --y)
        for (int x = 0; x < width; ++x)
            for (const FrameBuffer* buffer : buffers) {
                const std::array<float, 4> values = profiled(*buffer, x, y);
                for (int c = 0; c < buffer->channels; ++c)
                    to = store(to, values[static_cast<std::size_t>(c)], buffer->type->storage);
            }
    write_rows(path, "exr", spec, TypeDesc::UNKNOWN, packed);
}

std::byte eight_bits(float value) {
    return static_cast<std::byte>(std::lrintf(std::clamp(value, 0.0f, 1.0f) * 255.0f));
}

void write_png(const std::string& path, const FrameBuffer& buffer) {
    const auto channels = static_cast<std::size_t>(buffer.channels);
    ImageSpec spec(buffer.width, buffer.height, buffer.channels, TypeDesc::UINT8);
    if (!buffer.profile)
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
            const std::array<float, 4> values = profiled(buffer, x, y, scale);
            for (std::size_t c = 0; c < channels; ++c)
                bytes.push_back(eight_bits(c == 3           ? alpha
                                           : buffer.profile ? values[c]
                                                            : srgb_of_linear(pixel[c] * scale)));
        }
    write_rows(path, "png", spec, TypeDesc::UINT8, bytes);
}

// The format that a file name asks for, in small letters; empty without an extension.
std::string format_of(const std::string& path) {
    std::string extension = fs::path(path).extension().string();
    if (!extension.empty())
        extension.erase(0, 1);
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

} // namespace

bool is_picture_format(const std::string& format) {
    return format == "png" || format == "exr";
}

std::vector<Picture> pictures_of(std::span<const FrameBuffer> buffers, std::span<const std::string> outputs,
                                 const std::string& default_output) {
    std::vector<const FrameBuffer*> all;
    for (const FrameBuffer& buffer : buffers)
        all.push_back(&buffer);
    std::vector<Picture> pictures;
    for (const std::string& path : outputs)
        pictures.push_back({path, format_of(path), "", all});
    if (!outputs.empty())
        return pictures;
    for (const FrameBuffer* buffer : all) {
        const FramebufferDesc& desc = buffer->desc;
        if (desc.filename.empty())
            continue;
        // The main image's file takes the other buffers along as layers, where the format can.
        pictures.push_back({desc.filename,
                            is_picture_format(desc.filetype) ? desc.filetype : format_of(desc.filename),
                            desc.compression, buffer == all.front() ? all : std::vector{buffer}});
    }
    if (pictures.empty())
        pictures.push_back({default_output, format_of(default_output), "", all});
    return pictures;
}

void check_picture_path(const std::string& path) {
    check_picture({path, format_of(path), "", {}});
}

void check_picture(const Picture& picture) {
    const std::string& path = picture.path;
    if (picture.format.empty())
        fail(path, "its name must end in .png or .exr");
    if (!is_picture_format(picture.format))
        fail(path, "unknown picture format \"" + picture.format + "\", known are png and exr");
    if (picture.format == "png" && !picture.buffers.empty() &&
        picture.buffers.front()->type->storage == FrameBufferType::Storage::integer)
        fail(path, "PNG files cannot hold tags");
    std::error_code ignored;
    const fs::path parent = fs::path(path).parent_path();
    const std::string folder = (parent.empty() ? fs::current_path() : parent).string();
    if (!fs::is_directory(folder, ignored))
        fail(path, "there is no folder \"" + folder + "\"");
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        fail(path,
             "the folder \"" + folder + "\" cannot be written to: " + std::generic_category().message(errno));
    if (fs::is_directory(path, ignored))
        fail(path, "there is a folder of this name");
}

void write_picture(const Picture& picture) {
    check_picture(picture);
    if (picture.format == "exr")
        write_exr(picture.path, picture.buffers, picture.compression);
    else
        write_png(picture.path, *picture.buffers.front());
}

void write_image(const std::string& path, const std::string& format, const miImg_image& image) {
    const TypeDesc type = image.bits == 8    ? TypeDesc::UINT8
                          : image.bits == 16 ? TypeDesc::UINT16
                                             : TypeDesc::FLOAT;
    ImageSpec spec(image.width, image.height, image.comp, type);
    spec.attribute("oiio:UnassociatedAlpha", 1);
    spec.attribute("DateTime", "2000:01:01 00:00:00");
    std::vector<float> values;
    for (int y = image.height - 1; y >= 0; --y)
        for (int x = 0; x < image.width; ++x) {
            const miColor c = image_color(&image, x, y);
            const float components[] = {c.r, c.g, c.b, c.a};
            values.insert(values.end(), components, components + image.comp);
        }
    std::vector<std::byte> bytes(values.size() * sizeof(float));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    write_rows(path, format.empty() ? format_of(path) : format, spec, TypeDesc::FLOAT, bytes);
}

std::string before_ending(const std::string& path, const std::string& mark) {
    const std::string ending = fs::path(path).extension().string();
    return fs::path(path).replace_extension().string() + mark + ending;
}

void remove_unfinished_picture() {
    if (is_unfinished.exchange(false))
        unlink(unfinished);
}

float srgb_of_linear(float linear) {
    if (!(linear > 0.0f))
        return 0.0f;
    if (linear >= 1.0f)
        return 1.0f;
    return linear <= 0.0031308f ? 12.92f * linear : 1.055f * std::pow(linear, 1.0f / 2.4f) - 0.055f;
}

} // namespace stage
