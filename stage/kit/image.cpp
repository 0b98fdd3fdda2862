// Pixels of the interface's image records.
#include "kit/image.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "kit/color.h"

namespace stage {

namespace {

struct Layout {
    int bits, comp;
};

Layout layout_of(miImg_type type) {
    switch (type) {
    case miIMG_TYPE_RGBA:
        return {8, 4};
    case miIMG_TYPE_RGBA_16:
        return {16, 4};
    case miIMG_TYPE_RGB:
        return {8, 3};
    case miIMG_TYPE_RGB_16:
        return {16, 3};
    case miIMG_TYPE_RGB_FP:
    case miIMG_TYPE_N:
    case miIMG_TYPE_M:
        return {32, 3};
    case miIMG_TYPE_A:
    case miIMG_TYPE_S:
        return {8, 1};
    case miIMG_TYPE_A_16:
    case miIMG_TYPE_S_16:
        return {16, 1};
    case miIMG_TYPE_VTA:
    case miIMG_TYPE_VTS:
        return {16, 2};
    case miIMG_TYPE_A_FP:
    case miIMG_TYPE_S_FP:
    case miIMG_TYPE_Z:
    case miIMG_TYPE_COVERAGE:
        return {32, 1};
    default:
        return {32, 4};
    }
}

bool is_alpha(int type) {
    return type == miIMG_TYPE_A || type == miIMG_TYPE_A_16 || type == miIMG_TYPE_A_FP;
}

bool has_pixel(const miImg_image* image, int x, int y) {
    return image && x >= 0 && y >= 0 && x < image->width && y < image->height && image->comp >= 1 &&
           image->comp <= 4 && (image->bits == 8 || image->bits == 16 || image->bits == 32);
}

// Bytes from the record to a pixel's component.
std::ptrdiff_t place_of(const miImg_image* image, int x, int y, int component) {
    const auto scanline = static_cast<std::ptrdiff_t>(y) * image->comp + component;
    // The list of scanlines runs past the record's own one-element member.
    miIntptr offset;
    std::memcpy(&offset,
                reinterpret_cast<const char*>(image) + offsetof(miImg_image, c) +
                    scanline * static_cast<std::ptrdiff_t>(sizeof(miIntptr)),
                sizeof offset);
    return offset + static_cast<std::ptrdiff_t>(x) * (image->bits / 8);
}

miScalar read(const miImg_image* image, int x, int y, int component) {
    const char* place = reinterpret_cast<const char*>(image) + place_of(image, x, y, component);
    if (image->bits == 8)
        return static_cast<miScalar>(static_cast<unsigned char>(*place)) / 255.0f;
    if (image->bits == 16) {
        std::uint16_t value;
        std::memcpy(&value, place, sizeof value);
        return static_cast<miScalar>(value) / 65535.0f;
    }
    miScalar value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

// Nearest of 0 to `largest`; a NaN becomes 0.
long fixed_point(miScalar value, miScalar largest) {
    return value > 0.0f ? std::lround(std::min(value, 1.0f) * largest) : 0;
}

void write(miImg_image* image, int x, int y, int component, miScalar value) {
    char* place = reinterpret_cast<char*>(image) + place_of(image, x, y, component);
    if (image->bits == 8) {
        const auto byte = static_cast<std::uint8_t>(fixed_point(value, 255.0f));
        std::memcpy(place, &byte, sizeof byte);
    } else if (image->bits == 16) {
        const auto word = static_cast<std::uint16_t>(fixed_point(value, 65535.0f));
        std::memcpy(place, &word, sizeof word);
    } else {
        std::memcpy(place, &value, sizeof value);
    }
}

std::size_t aligned(std::size_t size) {
    return (size + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) * alignof(std::max_align_t);
}

// Bytes of the record with its list of scanlines, then of record and pixels.
std::size_t record_size(int height, Layout layout) {
    return aligned(sizeof(miImg_image) + static_cast<std::size_t>(height * layout.comp) * sizeof(miIntptr));
}

std::size_t level_size(int width, int height, Layout layout) {
    return record_size(height, layout) +
           aligned(static_cast<std::size_t>(width) * static_cast<std::size_t>(height * layout.comp) *
                   static_cast<std::size_t>(layout.bits / 8));
}

void fill_record(miImg_image* image, int width, int height, Layout layout, miImg_type type) {
    image->width = width;
    image->height = height;
    image->bits = layout.bits;
    image->comp = layout.comp;
    image->type = type;
    image->writable = miTRUE;
    const auto pixels = static_cast<miIntptr>(record_size(height, layout));
    const miIntptr line = static_cast<miIntptr>(width) * (layout.bits / 8);
    for (miIntptr i = 0; i < static_cast<miIntptr>(height) * layout.comp; ++i) {
        const miIntptr offset = pixels + i * line;
        std::memcpy(reinterpret_cast<char*>(image) + offsetof(miImg_image, c) +
                        static_cast<std::size_t>(i) * sizeof(miIntptr),
                    &offset, sizeof offset);
    }
}

} // namespace

miColor image_color(const miImg_image* image, int x, int y) {
    if (!has_pixel(image, x, y))
        return {0, 0, 0, 0};
    const miScalar first = read(image, x, y, 0);
    switch (image->comp) {
    case 1:
        return {first, first, first, is_alpha(image->type) ? first : 1.0f};
    case 2:
        return {first, first, first, read(image, x, y, 1)};
    default:
        return {first, read(image, x, y, 1), read(image, x, y, 2),
                image->comp == 4 ? read(image, x, y, 3) : 1.0f};
    }
}

void put_image_color(miImg_image* image, const miColor& color, int x, int y) {
    if (!has_pixel(image, x, y))
        return;
    if (image->comp <= 2) {
        write(image, x, y, 0, is_alpha(image->type) ? color.a : luminance(color));
        if (image->comp == 2)
            write(image, x, y, 1, color.a);
        return;
    }
    const std::array components = {color.r, color.g, color.b, color.a};
    for (int i = 0; i < image->comp; ++i)
        write(image, x, y, i, components[static_cast<std::size_t>(i)]);
}

miImg_image* image_level(miImg_image* image, int level) {
    if (level == 0)
        return image;
    if (!image || level < 0 || level >= std::min(image->dirsize, static_cast<int>(std::size(image->dir))))
        return nullptr;
    return reinterpret_cast<miImg_image*>(reinterpret_cast<char*>(image) + image->dir[level]);
}

ImageMemory::ImageMemory(int width, int height, miImg_type type, int levels) {
    const Layout layout = layout_of(type);
    std::vector<std::size_t> starts;
    std::size_t total = 0;
    const auto edge = [](int size, int level) { return std::max(1, size >> level); };
    levels = std::clamp(levels, 1, static_cast<int>(std::size(miImg_image{}.dir)));
    for (int i = 0; i < levels; ++i) {
        starts.push_back(total);
        total += level_size(edge(width, i), edge(height, i), layout);
    }
    memory_.resize(total);
    for (int i = 0; i < levels; ++i) {
        auto* level = reinterpret_cast<miImg_image*>(memory_.data() + starts[static_cast<std::size_t>(i)]);
        fill_record(level, edge(width, i), edge(height, i), layout, type);
        image()->dir[i] = static_cast<miIntptr>(starts[static_cast<std::size_t>(i)]);
    }
    image()->dirsize = levels;
    image()->filter = levels > 1 ? miTRUE : miFALSE;
}

} // namespace stage
