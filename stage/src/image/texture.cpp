// Images that textures look up.
#include "image/texture.h"

#include <OpenImageIO/imageio.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <vector>

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

std::unique_ptr<Image> Image::read(const std::string& path, bool pyramid) {
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

    ImageMemory memory(spec.width, spec.height, format.type,
                       pyramid ? level_count(spec.width, spec.height) : 1);
    build_levels(memory.image(), read_levels(*input, format, memory.image()));
    return std::unique_ptr<Image>(new Image(std::move(memory), static_cast<std::size_t>(bytes)));
}

std::unique_ptr<Image> Image::wrap(miImg_image* record, std::size_t size, bool pyramid) {
    std::unique_ptr<Image> image(new Image);
    image->record_ = record;
    image->size_ = size;
    if (!pyramid)
        return image;
    ImageMemory memory(record->width, record->height, static_cast<miImg_type>(record->type),
                       level_count(record->width, record->height));
    for (int y = 0; y < record->height; ++y)
        for (int x = 0; x < record->width; ++x)
            put_image_color(memory.image(), image_color(record, x, y), x, y);
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

namespace {

std::shared_ptr<Image> load(Element& element) {
    auto* header = element.as<miImg_image>();
    if (header->width > 0 && header->height > 0) // pixels of the scene, or an image that shaders fill
        return Image::wrap(header, element.size, header->filter != miFALSE);
    // The reader of the scene has already told of a file that it did not find, and gave no path.
    if (element.file.empty())
        return Image::missing();
    try {
        std::shared_ptr<Image> image = Image::read(element.file, header->filter != miFALSE);
        image->record()->local = header->local;
        image->record()->writable = header->writable;
        image->record()->real_name = header->real_name;
        image->record()->colorprofile = header->colorprofile;
        return image;
    } catch (const std::exception& problem) {
        send_message(MessageLevel::error, "texture \"%s\" (%s): cannot read \"%s\": %s", element.name.c_str(),
                     element.place.text().c_str(), element.file.c_str(), problem.what());
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

} // namespace stage
