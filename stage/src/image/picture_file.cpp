#include "image/picture_file.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/half.h>
#include <OpenImageIO/imageio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdint>
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
void write_rows(const std::string& path, const std::string& format, const ImageSpec& spec,
                const TypeDesc& type, const std::vector<std::byte>& pixels) {
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

// What the first buffer says about its file.
void set_attributes(ImageSpec& spec, const FramebufferDesc& desc, const std::string& format) {
    constexpr int tile = 64; // pixels
    if (format == "exr")
        spec.attribute("compression", desc.compression.empty() ? "zip" : desc.compression);
    if (format == "jpg" && desc.quality > 0)
        spec.attribute("Compression", "jpeg:" + std::to_string(desc.quality));
    if (desc.dpi > 0) {
        spec.attribute("XResolution", static_cast<float>(desc.dpi));
        spec.attribute("YResolution", static_cast<float>(desc.dpi));
        spec.attribute("ResolutionUnit", "in");
    }
    if (desc.tiled && (format == "exr" || format == "tif"))
        spec.tile_width = spec.tile_height = tile;
    // The formats' writers put in the time of day otherwise, and the same picture would not be the same file.
    spec.attribute("DateTime", "2000:01:01 00:00:00");
}

struct Window { // pixels from the lower left, half open
    int x0, y0, x1, y1;
};

// The pixels that hold anything: the smallest rectangle around what is not 0, one pixel when all is.
Window occupied_window(std::span<const FrameBuffer* const> buffers) {
    Window w{INT32_MAX, INT32_MAX, 0, 0};
    for (const FrameBuffer* buffer : buffers)
        for (int y = 0; y < buffer->height; ++y)
            for (int x = 0; x < buffer->width; ++x) {
                const std::span<const float> pixel = buffer->pixel(x, y);
                if (std::ranges::all_of(pixel,
                                        [](float v) { return std::bit_cast<std::uint32_t>(v) << 1 == 0; }))
                    continue;
                w = {std::min(w.x0, x), std::min(w.y0, y), std::max(w.x1, x + 1), std::max(w.y1, y + 1)};
            }
    return w.x1 > 0 ? w : Window{0, 0, 1, 1};
}

using Channels = std::array<float, 4>;

// A pixel in the colours of the buffer's profile, if it has one.
Channels profiled(const FrameBuffer& buffer, int x, int y) {
    Channels values{};
    std::ranges::copy(buffer.pixel(x, y), values.begin());
    if (!buffer.profile)
        return values;
    const miColor stored = buffer.profile->encoded({values[0], values[1], values[2], values[3]});
    return {stored.r, stored.g, stored.b, stored.a};
}

void write_exr(const std::string& path, std::span<const FrameBuffer* const> buffers) {
    const FrameBuffer& first = *buffers.front();
    const Window window = first.desc.dod ? occupied_window(buffers) : Window{0, 0, first.width, first.height};
    ImageSpec spec(window.x1 - window.x0, window.y1 - window.y0, 0, TypeDesc::FLOAT);
    spec.x = window.x0;
    spec.y = first.height - window.y1; // files count rows from the top
    spec.full_width = first.width;
    spec.full_height = first.height;
    spec.channelnames.clear();
    std::size_t pixel_bytes = 0;
    for (const FrameBuffer* buffer : buffers)
        for (std::size_t c = 0; c < static_cast<std::size_t>(buffer->channels); ++c) {
            spec.channelnames.push_back(layer_channel(*buffer, c, buffer == buffers.front()));
            spec.channelformats.push_back(storage_type(buffer->type->storage));
            pixel_bytes += spec.channelformats.back().size();
        }
    spec.nchannels = static_cast<int>(spec.channelnames.size());
    if (!first.profile)
        spec.attribute("oiio:ColorSpace", "Linear");
    set_attributes(spec, first.desc, "exr");

    std::vector<std::byte> packed(static_cast<std::size_t>(spec.width) *
                                  static_cast<std::size_t>(spec.height) * pixel_bytes);
    std::byte* to = packed.data();
    for (int y = window.y1 - 1; y >= window.y0; --y)
        for (int x = window.x0; x < window.x1; ++x)
            for (const FrameBuffer* buffer : buffers) {
                const Channels values = profiled(*buffer, x, y);
                for (int c = 0; c < buffer->channels; ++c)
                    to = store(to, values[static_cast<std::size_t>(c)], buffer->type->storage);
            }
    write_rows(path, "exr", spec, TypeDesc::UNKNOWN, packed);
}

bool has_sixteen_bits(miImg_type type) {
    return type == miIMG_TYPE_RGBA_16 || type == miIMG_TYPE_RGB_16 || type == miIMG_TYPE_A_16 ||
           type == miIMG_TYPE_S_16;
}

bool has_eight_bits(miImg_type type) {
    return type == miIMG_TYPE_RGBA || type == miIMG_TYPE_RGB || type == miIMG_TYPE_A ||
           type == miIMG_TYPE_S || type == miIMG_TYPE_BIT;
}

// What a file of one buffer holds for each channel.
TypeDesc::BASETYPE value_type(const std::string& format, miImg_type type) {
    const bool wide = has_sixteen_bits(type) || type == miIMG_TYPE_TAG;
    if (format == "hdr" || (format == "tif" && !wide && !has_eight_bits(type)))
        return TypeDesc::FLOAT;
    return wide && format != "jpg" ? TypeDesc::UINT16 : TypeDesc::UINT8;
}

// Channels of a file that holds a buffer of `channels`: none has two, and alpha has no place in some.
int file_channels(const std::string& format, int channels) {
    if (format == "hdr")
        return 3;
    return channels == 2 ? 3 : format == "jpg" ? std::min(channels, 3) : channels;
}

float display_value(float linear, const Grading& grading) {
    return grading.gamma == 1.0f ? srgb_of_linear(linear) : gamma_encoded(linear, grading.gamma);
}

// A colour in [0, 1] as it is shown, with straight alpha unless the file has none.
Channels display_color(const FrameBuffer& buffer, const Channels& pixel, bool with_alpha, const Grading& g) {
    const bool premultiplied = buffer.channels == 4 && buffer.desc.premultiplied;
    const float alpha = buffer.channels == 4 ? pixel[3] : 1.0f;
    const miColor c = clipped({pixel[0], pixel[1], pixel[2], alpha}, premultiplied, g);
    const float scale = premultiplied && with_alpha && c.a > 0.0f ? 1.0f / c.a : 1.0f;
    if (buffer.profile) {
        const miColor stored = buffer.profile->encoded({c.r * scale, c.g * scale, c.b * scale, c.a});
        return {std::clamp(stored.r, 0.0f, 1.0f), std::clamp(stored.g, 0.0f, 1.0f),
                std::clamp(stored.b, 0.0f, 1.0f), c.a};
    }
    const auto shown = [&](float v) { return display_value(std::min(v * scale, 1.0f), g); };
    return {shown(c.r), shown(c.g), shown(c.b), c.a};
}

// The values of a pixel in [0, 1], as a file for a display shows them.
Channels display_pixel(const FrameBuffer& buffer, const Channels& pixel, bool with_alpha, float largest,
                       const Grading& g) {
    if (buffer.type->is_color())
        return display_color(buffer, pixel, with_alpha, g);
    Channels shown = pixel;
    for (float& v : shown) {
        switch (buffer.type->type) {
        case miIMG_TYPE_TAG:
            v = std::min(static_cast<float>(std::bit_cast<std::uint32_t>(v)) / largest, 1.0f);
            break;
        case miIMG_TYPE_BIT:
            v = std::bit_cast<std::uint32_t>(v) != 0 ? 1.0f : 0.0f;
            break;
        case miIMG_TYPE_N:
            v = std::clamp(0.5f + 0.5f * v, 0.0f, 1.0f);
            break;
        case miIMG_TYPE_S:
        case miIMG_TYPE_S_16:
        case miIMG_TYPE_S_FP:
            v = display_value(std::clamp(v, 0.0f, 1.0f), g);
            break;
        default:
            v = std::clamp(v, 0.0f, 1.0f);
        }
    }
    return shown;
}

std::byte* store_fixed(std::byte* to, float value, float offset, TypeDesc::BASETYPE type) {
    if (type == TypeDesc::UINT8) {
        *to = static_cast<std::byte>(value * 255.0f + offset);
        return to + 1;
    }
    const auto word = static_cast<std::uint16_t>(value * 65535.0f + offset);
    std::memcpy(to, &word, sizeof word);
    return to + sizeof word;
}

// One buffer alone. `grading` is for files of fixed point values; floats are written as they are.
void write_single(const std::string& path, const std::string& format, const FrameBuffer& buffer,
                  const Grading& grading) {
    const TypeDesc::BASETYPE type = value_type(format, buffer.type->type);
    const int channels = file_channels(format, buffer.channels);
    const bool curve = type != TypeDesc::FLOAT && (buffer.type->is_color() || buffer.type->is_intensity());
    const float largest = type == TypeDesc::UINT8 ? 255.0f : 65535.0f;
    ImageSpec spec(buffer.width, buffer.height, channels, type);
    if (format != "tif" && !buffer.profile) // whose writer spoils a file in memory when it notes the curve
        spec.attribute("oiio:ColorSpace", !curve ? "Linear"
                                          : grading.gamma == 1.0f
                                              ? "sRGB"
                                              : "GammaCorrected" + std::to_string(grading.gamma));
    if (type != TypeDesc::FLOAT)
        spec.attribute("oiio:UnassociatedAlpha", 1);
    set_attributes(spec, buffer.desc, format);

    std::vector<std::byte> bytes(spec.image_bytes());
    std::byte* to = bytes.data();
    for (int y = buffer.height - 1; y >= 0; --y)
        for (int x = 0; x < buffer.width; ++x) {
            const std::span<const float> stored = buffer.pixel(x, y);
            Channels values{};
            std::ranges::copy(stored, values.begin());
            if (format == "hdr" && stored.size() == 1)
                values = {stored[0], stored[0], stored[0], 0.0f};
            if (type == TypeDesc::FLOAT) {
                for (int c = 0; c < channels; ++c)
                    to = store(to, values[static_cast<std::size_t>(c)], FrameBufferType::Storage::single);
                continue;
            }
            values = display_pixel(buffer, values, channels == 4, largest, grading);
            const float offset = rounding_offset(x, y, grading.dither && curve);
            for (int c = 0; c < channels; ++c)
                to = store_fixed(to, values[static_cast<std::size_t>(c)], c == 3 ? 0.5f : offset, type);
        }
    write_rows(path, format, spec, type, bytes);
}

// One name for each format.
std::string plain_format(const std::string& format) {
    return format == "jpeg" ? "jpg" : format == "tiff" ? "tif" : format;
}

// The format that a file name asks for, in small letters; empty without an extension.
std::string format_of(const std::string& path) {
    std::string extension = fs::path(path).extension().string();
    if (!extension.empty())
        extension.erase(0, 1);
    std::ranges::transform(extension, extension.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return plain_format(extension);
}

} // namespace

bool is_picture_format(const std::string& format) {
    static constexpr std::array known = {"exr", "hdr", "jpg", "jpeg", "png", "tif", "tiff"};
    return std::ranges::find(known, format) != known.end();
}

std::vector<Picture> pictures_of(std::span<const FrameBuffer> buffers, std::span<const std::string> outputs,
                                 const std::string& default_output) {
    std::vector<const FrameBuffer*> all;
    for (const FrameBuffer& buffer : buffers)
        all.push_back(&buffer);
    std::vector<Picture> pictures;
    for (const std::string& path : outputs)
        pictures.push_back({path, format_of(path), all});
    if (!outputs.empty())
        return pictures;
    for (const FrameBuffer* buffer : all) {
        const FramebufferDesc& desc = buffer->desc;
        if (desc.filename.empty())
            continue;
        // The main image's file takes the other buffers along as layers, where the format can.
        pictures.push_back(
            {desc.filename,
             is_picture_format(desc.filetype) ? plain_format(desc.filetype) : format_of(desc.filename),
             buffer == all.front() ? all : std::vector{buffer}});
    }
    if (pictures.empty())
        pictures.push_back({default_output, format_of(default_output), all});
    return pictures;
}

void check_picture_path(const std::string& path) {
    check_picture({path, format_of(path), {}});
}

void check_picture(const Picture& picture) {
    const std::string& path = picture.path;
    if (picture.format.empty())
        fail(path, "its name must end in .png, .exr, .tif, .jpg or .hdr");
    if (!is_picture_format(picture.format))
        fail(path, "unknown picture format \"" + picture.format + "\", known are png, exr, tif, jpg and hdr");
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
        write_exr(picture.path, picture.buffers);
    else
        write_single(picture.path, picture.format, *picture.buffers.front(), picture.grading);
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
