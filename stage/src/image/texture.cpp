// Images that textures look up.
#include "image/texture.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include "image/picture_file.h"
#include "kit/message.h"

namespace stage {

namespace {

// Bytes of pixels beyond which a file is taken for damaged.
constexpr double largest_image = 1e10;

// How the pixels of a file are kept.
struct Format {
    OIIO::TypeDesc sample;
    std::size_t bytes; // of a component
    int channels;      // of the file that are read
    miImg_type type;
};

Format format_of(const OIIO::ImageSpec& spec) {
    static constexpr miImg_type types[3][3] = {{miIMG_TYPE_S, miIMG_TYPE_RGB, miIMG_TYPE_RGBA},
                                               {miIMG_TYPE_S_16, miIMG_TYPE_RGB_16, miIMG_TYPE_RGBA_16},
                                               {miIMG_TYPE_S_FP, miIMG_TYPE_RGB_FP, miIMG_TYPE_RGBA_FP}};
    const bool byte = spec.format.basetype == OIIO::TypeDesc::UINT8;
    const bool word = spec.format.basetype == OIIO::TypeDesc::UINT16;
    const int channels = std::min(spec.nchannels, 4);
    // Grey with alpha has no layout of its own in all widths: it is kept as a colour.
    const std::size_t layout = channels == 1 ? 0 : channels == 3 ? 1 : 2;
    return {byte   ? OIIO::TypeDesc::UINT8
            : word ? OIIO::TypeDesc::UINT16
                   : OIIO::TypeDesc::FLOAT,
            byte   ? 1u
            : word ? 2u
                   : 4u,
            channels,
            types[byte   ? 0
                  : word ? 1
                         : 2][layout]};
}

// The component of the file that a component of the record comes from.
int source_channel(int component, int channels) {
    if (channels == 2)
        return component == 3 ? 1 : 0;
    return component;
}

char* scanline(miImg_image* image, int y, int component) {
    miIntptr offset;
    std::memcpy(&offset,
                reinterpret_cast<const char*>(image) + offsetof(miImg_image, c) +
                    (static_cast<std::size_t>(y) * static_cast<std::size_t>(image->comp) +
                     static_cast<std::size_t>(component)) *
                        sizeof(miIntptr),
                sizeof offset);
    return reinterpret_cast<char*>(image) + offset;
}

// Splits interleaved rows from the top into scanlines from the bottom.
void fill(miImg_image* image, const std::vector<char>& pixels, const Format& format) {
    const std::size_t pixel = format.bytes * static_cast<std::size_t>(format.channels);
    const std::size_t row = pixel * static_cast<std::size_t>(image->width);
    for (int y = 0; y < image->height; ++y)
        for (int component = 0; component < image->comp; ++component) {
            const char* from =
                pixels.data() + row * static_cast<std::size_t>(image->height - 1 - y) +
                format.bytes * static_cast<std::size_t>(source_channel(component, format.channels));
            char* to = scanline(image, y, component);
            for (int x = 0; x < image->width; ++x, from += pixel, to += format.bytes)
                std::memcpy(to, from, format.bytes);
        }
}

// Fills the image, and those of its levels that the file has, finest first. Returns how many these are.
int read_levels(OIIO::ImageInput& file, const Format& format, miImg_image* image) {
    for (int i = 0; i < image->dirsize; ++i) {
        miImg_image* level = image_level(image, i);
        const OIIO::ImageSpec size = file.spec_dimensions(0, i);
        if (size.width != level->width || size.height != level->height)
            return i;
        std::vector<char> pixels(static_cast<std::size_t>(size.image_pixels()) *
                                 static_cast<std::size_t>(format.channels) * format.bytes);
        if (!file.read_image(0, i, 0, format.channels, format.sample, pixels.data()))
            throw std::runtime_error(file.geterror());
        fill(level, pixels, format);
    }
    return image->dirsize;
}

int level_count(int width, int height) {
    return std::bit_width(static_cast<unsigned>(std::max(width, height)));
}

// The pixels of a longer row that one of a shorter row covers, and how much of the first and last.
struct Span {
    int first, last;
    float first_weight, last_weight;
    [[nodiscard]] float weight(int i) const {
        return i == first ? first_weight : i == last ? last_weight : 1.0f;
    }
};

Span covered(int i, int from, int to) {
    // Exact in integers: pixel i covers [i from / to, (i + 1) from / to).
    const long long start = static_cast<long long>(i) * from;
    const long long end = start + from;
    const int first = static_cast<int>(start / to);
    const int last = static_cast<int>((end - 1) / to);
    const auto part = [to](long long length) { return static_cast<float>(length) / static_cast<float>(to); };
    if (first == last)
        return {first, last, part(end - start), part(end - start)};
    return {first, last, part((first + 1LL) * to - start), part(end - static_cast<long long>(last) * to)};
}

miColor box_average(const miImg_image* image, const Span& across, const Span& up) {
    std::array<double, 5> sum{};
    for (int y = up.first; y <= up.last; ++y)
        for (int x = across.first; x <= across.last; ++x) {
            const double weight = static_cast<double>(across.weight(x) * up.weight(y));
            const miColor c = image_color(image, x, y);
            sum[0] += weight * static_cast<double>(c.r);
            sum[1] += weight * static_cast<double>(c.g);
            sum[2] += weight * static_cast<double>(c.b);
            sum[3] += weight * static_cast<double>(c.a);
            sum[4] += weight;
        }
    const auto mean = [&sum](std::size_t i) { return static_cast<float>(sum[i] / sum[4]); };
    return {mean(0), mean(1), mean(2), mean(3)};
}

// Fills each level, beginning with `first`, from the one before it.
void build_levels(miImg_image* image, int first) {
    for (int i = first; i < image->dirsize; ++i) {
        const miImg_image* from = image_level(image, i - 1);
        miImg_image* to = image_level(image, i);
        for (int y = 0; y < to->height; ++y)
            for (int x = 0; x < to->width; ++x) {
                const miColor c = box_average(from, covered(x, from->width, to->width),
                                              covered(y, from->height, to->height));
                put_image_color(to, c, x, y);
            }
    }
}

bool same_size(const miImg_image* a, const miImg_image* b) {
    return a->width == b->width && a->height == b->height;
}

// Pixels of one image to another of its size, out of the profile's colours on the way.
void copy_pixels(miImg_image* to, const miImg_image* from, const ColorProfile* profile) {
    for (int y = 0; y < from->height; ++y)
        for (int x = 0; x < from->width; ++x) {
            const miColor c = image_color(from, x, y);
            put_image_color(to, profile ? profile->decoded(c) : c, x, y);
        }
}

// What pixels of a profile become: colours, with alpha where there is one.
miImg_type render_type(const miImg_image* image) {
    return image->comp % 2 == 0 ? miIMG_TYPE_RGBA_FP : miIMG_TYPE_RGB_FP;
}

miColor mix(const miColor& a, const miColor& b, float t) {
    const auto blend = [t](float x, float y) { return (1.0f - t) * x + t * y; };
    return {blend(a.r, b.r), blend(a.g, b.g), blend(a.b, b.b), blend(a.a, b.a)};
}

// The two pixels around a coordinate and the weight of the second.
struct Neighbours {
    int first, second;
    float weight;
};

Neighbours neighbours(float coordinate, int size) {
    float fraction = coordinate - std::floor(coordinate);
    if (!std::isfinite(fraction))
        fraction = 0.0f;
    const float place = fraction * static_cast<float>(size) - 0.5f;
    const float below = std::floor(place);
    const int first = static_cast<int>(below) + size; // not negative
    return {first % size, (first + 1) % size, place - below};
}

} // namespace

Image::Image(ImageMemory memory, std::size_t size)
    : memory_(std::move(memory)), record_(memory_->image()), size_(size) {}

std::unique_ptr<Image> Image::read(const std::string& path, bool pyramid, const ColorProfile* profile) {
    OIIO::ImageSpec wish;
    wish["oiio:UnassociatedAlpha"] = 1; // the values of the file as they are
    const std::unique_ptr<OIIO::ImageInput> input = OIIO::ImageInput::open(path, &wish);
    if (!input)
        throw std::runtime_error(OIIO::geterror());
    const OIIO::ImageSpec spec = input->spec();
    if (spec.width <= 0 || spec.height <= 0 || spec.nchannels <= 0 || spec.depth > 1)
        throw std::runtime_error("the file has no flat picture");
    const Format format = format_of(spec);
    const double bytes =
        static_cast<double>(spec.width) * spec.height * format.channels * static_cast<double>(format.bytes);
    if (bytes > largest_image)
        throw std::runtime_error("the picture is too large");

    const int levels = pyramid ? level_count(spec.width, spec.height) : 1;
    ImageMemory memory(spec.width, spec.height, format.type, levels);
    const int found = read_levels(*input, format, memory.image());
    if (profile) {
        ImageMemory colors(spec.width, spec.height, render_type(memory.image()), levels);
        for (int i = 0; i < found; ++i)
            copy_pixels(image_level(colors.image(), i), image_level(memory.image(), i), profile);
        memory = std::move(colors);
    }
    build_levels(memory.image(), found);
    return std::unique_ptr<Image>(new Image(std::move(memory), static_cast<std::size_t>(bytes)));
}

std::unique_ptr<Image> Image::wrap(miImg_image* record, std::size_t size, bool pyramid,
                                   const ColorProfile* profile) {
    std::unique_ptr<Image> image(new Image);
    image->record_ = record;
    image->size_ = size;
    if (!pyramid && !profile)
        return image;
    ImageMemory memory(record->width, record->height,
                       profile ? render_type(record) : static_cast<miImg_type>(record->type),
                       pyramid ? level_count(record->width, record->height) : 1);
    copy_pixels(memory.image(), record, profile);
    build_levels(memory.image(), 1);
    return std::unique_ptr<Image>(new Image(std::move(memory), size));
}

std::unique_ptr<Image> Image::missing() {
    std::unique_ptr<Image> image(new Image(ImageMemory(1, 1, miIMG_TYPE_RGBA), sizeof(miImg_image)));
    image->valid_ = false;
    return image;
}

miColor Image::bilinear(const miImg_image* image, float u, float v) {
    const Neighbours x = neighbours(u, image->width);
    const Neighbours y = neighbours(v, image->height);
    return mix(mix(image_color(image, x.first, y.first), image_color(image, x.second, y.first), x.weight),
               mix(image_color(image, x.first, y.second), image_color(image, x.second, y.second), x.weight),
               y.weight);
}

miColor Image::lookup(float u, float v, float level) const {
    const float highest = static_cast<float>(levels() - 1);
    if (!(level > 0.0f) || highest <= 0.0f)
        return bilinear(record_, u, v);
    const float bounded = std::min(level, highest);
    const int lower = static_cast<int>(bounded);
    const miColor fine = bilinear(image_level(record_, lower), u, v);
    const float rest = bounded - static_cast<float>(lower);
    return rest > 0.0f ? mix(fine, bilinear(image_level(record_, lower + 1), u, v), rest) : fine;
}

bool Image::begin_edit() {
    if (edited_.exchange(true, std::memory_order_acquire))
        return false;
    for (int y = 0; y < record_->height; ++y)
        for (int component = 0; component < record_->comp; ++component)
            std::memset(scanline(record_, y, component), 0,
                        static_cast<std::size_t>(record_->width) *
                            static_cast<std::size_t>(record_->bits / 8));
    return true;
}

bool Image::end_edit() {
    if (!edited_.load(std::memory_order_relaxed))
        return false;
    build_levels(record_, 1);
    edited_.store(false, std::memory_order_release);
    return true;
}

namespace {

void report(const Element& element, const std::string& problem) {
    send_message(MessageLevel::error, "texture \"%s\" (%s): %s", element.name.c_str(),
                 element.place.text().c_str(), problem.c_str());
}

// Pixels that the scene holds, whose file, if there is one, has been written by an earlier frame or program.
std::unique_ptr<Image> load_held(Element& element) {
    auto* header = element.as<miImg_image>();
    std::error_code ignored;
    if (header->writable && std::filesystem::exists(element.file, ignored)) {
        try {
            const std::unique_ptr<Image> written = Image::read(element.file, false);
            if (same_size(header, written->record()))
                copy_pixels(header, written->record(), nullptr);
        } catch (const std::exception& problem) {
            report(element, "it begins black, for its file cannot be read: " + std::string(problem.what()));
        }
    }
    return Image::wrap(header, element.size, header->filter != miFALSE, element.color_profile);
}

std::shared_ptr<Image> load(Element& element) {
    auto* header = element.as<miImg_image>();
    const bool held = header->width > 0 && header->height > 0;
    // The reader of the scene has already told of a file that it did not find, and gave no path.
    if (!held && element.file.empty())
        return Image::missing();
    try {
        std::shared_ptr<Image> image =
            held ? load_held(element)
                 : Image::read(element.file, header->filter != miFALSE, element.color_profile);
        image->record()->local = header->local;
        image->record()->writable = header->writable;
        image->record()->real_name = header->real_name;
        image->record()->colorprofile = header->colorprofile;
        return image;
    } catch (const std::exception& problem) {
        report(element, "cannot read \"" + element.file + "\": " + problem.what());
        return Image::missing();
    }
}

} // namespace

Image& image_of(Element& element) {
    if (Image* image = element.loaded_image.load(std::memory_order_acquire))
        return *image;
    const std::lock_guard guard(element.image_guard);
    if (!element.image) {
        element.image = load(element);
        element.loaded_image.store(element.image.get(), std::memory_order_release);
    }
    return *element.image;
}

miImg_image* edit_texture(Element& element) {
    if (element.type != miSCENE_IMAGE || !element.as<miImg_image>()->writable) {
        report(element, "a light map needs a writable texture");
        return nullptr;
    }
    Image& image = image_of(element);
    if (!image.valid())
        return nullptr;
    if (!image.begin_edit()) {
        report(element, "two light maps write it at the same time");
        return nullptr;
    }
    return image.record();
}

void finish_texture(Element& element, bool write) {
    Image& image = image_of(element);
    if (!image.end_edit() || element.file.empty() || !write)
        return;
    try {
        const miImg_image* pixels = image.record();
        if (!element.color_profile)
            return write_image(element.file, element.texture_file_type, *pixels);
        ImageMemory stored(pixels->width, pixels->height,
                           static_cast<miImg_type>(element.as<miImg_image>()->type));
        for (int y = 0; y < pixels->height; ++y)
            for (int x = 0; x < pixels->width; ++x)
                put_image_color(stored.image(), element.color_profile->encoded(image_color(pixels, x, y)), x,
                                y);
        write_image(element.file, element.texture_file_type, *stored.image());
    } catch (const std::exception& problem) {
        report(element, problem.what());
    }
}

} // namespace stage
