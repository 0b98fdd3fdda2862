/*
 * The levels of image filters. The renderer's pixel function reads the images, so that any layout is
 * understood.
 */
#include "bmm_pyramid.h"
#include "numeric.h"

#include <emmintrin.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace orl {

namespace {

using Level = BitmapFilter::Level;
using Texels = BitmapFilter::Texels;
using Bytes = BitmapFilter::Texel<std::uint8_t>;
using Words = BitmapFilter::Texel<std::uint16_t>;
using Floats = BitmapFilter::Texel<float>;

constexpr int most_built_levels = 12; // with the image itself

// A longer edge has no place in the positions, and no renderer has such an image.
constexpr int longest_edge = (1 << 19) - 1;

// ---- reading the image

/* Components from 0 to 1 as whole numbers up to `largest`; 0 for what is no number. */
__m128i to_fixed_point(const miColor& color, float largest) {
    const __m128 positive = _mm_max_ps(_mm_loadu_ps(&color.r), _mm_setzero_ps());
    const __m128 limited = _mm_min_ps(positive, _mm_set1_ps(1.0f));
    return _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(limited, _mm_set1_ps(largest)), _mm_set1_ps(0.5f)));
}

void set_texel(Bytes& to, const miColor& color) {
    const __m128i words = _mm_packs_epi32(to_fixed_point(color, 255.0f), _mm_setzero_si128());
    const int bytes = _mm_cvtsi128_si32(_mm_packus_epi16(words, _mm_setzero_si128()));
    std::memcpy(&to, &bytes, sizeof to);
}

// Packing takes signed numbers only: the words are shifted into their range and back.
void set_texel(Words& to, const miColor& color) {
    const __m128i around_zero = _mm_sub_epi32(to_fixed_point(color, 65535.0f), _mm_set1_epi32(0x8000));
    const __m128i words = _mm_packs_epi32(around_zero, around_zero);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(&to), _mm_xor_si128(words, _mm_set1_epi16(-0x8000)));
}

void set_texel(Floats& to, const miColor& color) {
    to = {{color.r, color.g, color.b, color.a}};
}

/* A row of the image as texels, a few pixels at a time: a colour that has just been written part by part is
   slow to load as a whole. */
template <class T> void read_row(const BitmapFilter& filter, int y, T* to) {
    constexpr int some = 64;
    miColor colors[some];
    const Level& image = filter.level[0];
    for (int start = 0; start < image.width; start += some) {
        const int count = std::min(some, image.width - start);
        for (int i = 0; i < count; ++i)
            mi_img_get_color(image.image, &colors[i], start + i, y);
        if (filter.decodes)
            decode(filter, colors, count);
        for (int i = 0; i < count; ++i)
            set_texel(*to++, colors[i]);
    }
}

// ---- building levels

/* Means of texels. Fixed point rounds down: exact in integers, and a level of one value keeps it. */
template <class Component> Component quarter(Component a, Component b, Component c, Component d) {
    return static_cast<Component>((a + b + c + d) >> 2);
}
template <> float quarter(float a, float b, float c, float d) {
    return (a + b + c + d) * 0.25f;
}
template <class Component> Component half(Component a, Component b) {
    return static_cast<Component>((a + b) >> 1);
}
template <> float half(float a, float b) {
    return (a + b) * 0.5f;
}

/* Means of 2 x 2 texels of two rows. Beyond an odd last column lies the first one of an image that tiles, and
   nothing of another. */
template <class T> void halve_rows(const T* lower, const T* upper, int width, bool tiles, T* to) {
    for (int x = 0; x + 1 < width; x += 2, ++to)
        for (int i = 0; i < 4; ++i)
            to->c[i] = quarter(lower[x].c[i], lower[x + 1].c[i], upper[x].c[i], upper[x + 1].c[i]);
    if (width % 2 == 0)
        return;
    const T &p = lower[width - 1], &q = upper[width - 1];
    for (int i = 0; i < 4; ++i)
        to->c[i] = tiles ? quarter(p.c[i], lower[0].c[i], q.c[i], upper[0].c[i]) : half(p.c[i], q.c[i]);
}

/* Fills a level from the rows of the one before, `row`(y, slot), of which two at a time are in use. Above an
   odd last row lies the first one of an image that tiles, and of another the row itself. */
template <class T, class Row> void halve(const Level& from, bool tiles, T* to, Row row) {
    for (int y = 0; y < from.height; y += 2, to += (from.width + 1) / 2) {
        const int above = y + 1 < from.height ? y + 1 : tiles ? 0 : y;
        const T* const lower = row(y, 0);
        halve_rows(lower, above == y ? lower : row(above, 1), from.width, tiles, to);
    }
}

/* Times that an edge can be halved, rounded up, until it is 1, and the edge itself. */
int halvings(int edge) {
    int count = 1;
    for (; edge > 1; edge = (edge + 1) / 2)
        ++count;
    return count;
}

/* Steps of level `n` for one of the image: 2^n times fewer. Where an edge cannot be halved so often, a level
   that has to meet itself across a tile's edge, or that others made to cover the image, is stretched instead.
 */
std::uint64_t step(int edge, int level_edge, int n, bool covers) {
    if (covers)
        return (static_cast<std::uint64_t>(level_edge) << 32) / static_cast<std::uint64_t>(edge);
    return std::uint64_t{1} << (32 - n);
}

Level make_level(const BitmapFilter& filter, int width, int height, bool covers) {
    const Level& first = filter.level[0];
    Level level{nullptr, nullptr, width, height, 0, 0};
    level.step_x = step(first.width, width, filter.levels, covers);
    level.step_y = step(first.height, height, filter.levels, covers);
    return level;
}

/* Memory for texels; null when there is none. */
template <class T> T* allocate(int width, int height) {
    const auto size = static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) * sizeof(T);
    if (size > std::numeric_limits<miUint>::max())
        return nullptr;
    return static_cast<T*>(mi_mem_int_test_allocate("bmm_filter", __LINE__, static_cast<miUint>(size)));
}

template <class T> bool build_first(const BitmapFilter& filter, T* to) {
    const Level& image = filter.level[0];
    T* const rows = allocate<T>(image.width, 2);
    if (rows == nullptr)
        return false;
    halve(image, filter.tiles, to, [&](int y, int slot) {
        T* const row = rows + std::ptrdiff_t{slot} * image.width;
        read_row(filter, y, row);
        return row;
    });
    mi_mem_int_release("bmm_filter", __LINE__, rows);
    return true;
}

template <class T> bool build_next(const BitmapFilter& filter, const Level& from, T* to) {
    halve(from, filter.tiles, to,
          [&](int y, int) { return static_cast<const T*>(from.texels) + std::ptrdiff_t{y} * from.width; });
    return true;
}

/* Builds levels until memory ends; look-ups make do with what there is. */
template <class T> void build_levels(BitmapFilter& filter) {
    const int wanted =
        std::min({halvings(filter.level[0].width), halvings(filter.level[0].height), most_built_levels});
    while (filter.levels < wanted) {
        const Level& finer = filter.level[filter.levels - 1];
        const int width = (finer.width + 1) / 2, height = (finer.height + 1) / 2;
        T* const texels = allocate<T>(width, height);
        if (texels == nullptr)
            return;
        Level& level = filter.level[filter.levels];
        level = make_level(filter, width, height, filter.tiles);
        level.texels = texels; // released with the filter, whether it was filled or not
        if (!(filter.levels == 1 ? build_first(filter, texels) : build_next(filter, finer, texels)))
            return;
        ++filter.levels;
    }
}

bool can_be_sampled(int width, int height) {
    return width >= 1 && width <= longest_edge && height >= 1 && height <= longest_edge;
}

/* Takes the levels that the image has of its own. */
void find_levels(BitmapFilter& filter) {
    const int wanted = std::min(filter.image->dirsize, BitmapFilter::most_levels);
    while (filter.levels < wanted) {
        miImg_image* const image = mi_img_pyramid_get_level(filter.image, filter.levels);
        if (image == nullptr)
            return;
        const Level& finer = filter.level[filter.levels - 1];
        const int width = mi_img_get_width(image), height = mi_img_get_height(image);
        if (!can_be_sampled(width, height) || width > finer.width || height > finer.height)
            return;
        Level& level = filter.level[filter.levels];
        level = make_level(filter, width, height, true);
        level.image = image;
        ++filter.levels;
    }
}

/* 8-bit images with a gamma get levels of 16 bits: linear light in 8 bits shows steps in the dark. */
Texels texels_for(const miImg_image& image, bool decodes) {
    if (image.bits == 32)
        return Texels::floats;
    return image.bits == 8 && !decodes ? Texels::bytes : Texels::words;
}

} // namespace

void build_pyramid(BitmapFilter& filter) {
    if (mi_db_type(filter.tag) != miSCENE_IMAGE)
        return;
    filter.image = static_cast<miImg_image*>(mi_db_access(filter.tag));
    const int width = mi_img_get_width(filter.image), height = mi_img_get_height(filter.image);
    if (!can_be_sampled(width, height))
        return;
    filter.decodes = filter.image->bits == 8 && filter.gamma != 1.0f;
    if (filter.decodes)
        for (int i = 0; i < 256; ++i)
            filter.gamma_table[i] = numeric::pow(static_cast<float>(i) / 255.0f, filter.gamma);
    filter.texels = texels_for(*filter.image, filter.decodes);
    filter.level[0] = {nullptr, filter.image, width, height, std::uint64_t{1} << 32, std::uint64_t{1} << 32};
    filter.levels = 1;
    if (filter.image->filter && filter.image->dirsize > 1)
        find_levels(filter);
    else if (filter.texels == Texels::bytes)
        build_levels<Bytes>(filter);
    else if (filter.texels == Texels::words)
        build_levels<Words>(filter);
    else
        build_levels<Floats>(filter);
}

void decode(const BitmapFilter& filter, miColor* colors, int count) {
    for (miColor* color = colors; color < colors + count; ++color) {
        std::int32_t bytes[4];
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), to_fixed_point(*color, 255.0f));
        color->r = filter.gamma_table[bytes[0]];
        color->g = filter.gamma_table[bytes[1]];
        color->b = filter.gamma_table[bytes[2]];
    }
}

} // namespace orl
