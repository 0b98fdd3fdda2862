/*
 * The levels of image filters. The renderer's pixel function reads the images, so that any layout is
 * understood.
 */
#include "bmm_pyramid.h"
#include "numeric.h"

#include <emmintrin.h>

#include <algorithm>
#include <bit>
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

void set_texel(Bytes& to, const miColor& color) {
    to = to_bytes(color);
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
        for (int i = 0; i < count; ++i)
            set_texel(*to++, colors[i]);
    }
}

// ---- building levels

/* Means of components. Fixed point rounds down: exact in integers, and a level of one value keeps it. */
template <class Component> Component quarter(Component a, Component b, Component c, Component d) {
    return static_cast<Component>((a + b + c + d) >> 2);
}
template <> float quarter(float a, float b, float c, float d) {
    return ((a + b) + (c + d)) * 0.25f;
}

/* Mean of four texels of one kind. */
struct PlainMean {
    template <class T> T operator()(const T& p, const T& q, const T& r, const T& s) const {
        T mean;
        for (int i = 0; i < 4; ++i)
            mean.c[i] = quarter(p.c[i], q.c[i], r.c[i], s.c[i]);
        return mean;
    }
};

/* Mean of the light of four texels with a gamma, with that gamma again. So kept, bytes do for light: they are
   as fine in the dark as the image itself, where bytes of light would show bands, and words would take twice
   the memory. Coverage has no gamma. */
class LightMean {
public:
    /* Light of the bytes, rising, from 0 to 1. */
    explicit LightMean(const float (&light)[256]) {
        for (int byte = 0; byte < 256; ++byte)
            quarter_[byte] = 0.25f * light[byte] + 0.25f * least;
        int byte = 0;
        for (std::uint32_t slot = 0; slot < slots; ++slot) {
            const std::uint32_t middle = ((first_slot + slot) << slot_bits) + (1u << (slot_bits - 1));
            while (byte < 255 &&
                   std::bit_cast<float>(middle) - least > 0.5f * (light[byte] + light[byte + 1]))
                ++byte;
            nearest_[slot] = static_cast<std::uint8_t>(byte);
        }
    }

    Bytes operator()(const Bytes& p, const Bytes& q, const Bytes& r, const Bytes& s) const {
        Bytes mean;
        for (int i = 0; i < 3; ++i) {
            const float light = (quarter_[p.c[i]] + quarter_[q.c[i]]) + (quarter_[r.c[i]] + quarter_[s.c[i]]);
            mean.c[i] = nearest_[(std::bit_cast<std::uint32_t>(light) >> slot_bits) - first_slot];
        }
        mean.c[3] = quarter(p.c[3], q.c[3], r.c[3], s.c[3]);
        return mean;
    }

private:
    // Numbers from 2^-24 to 1 are looked up in slots, 1024 for each power of two, which tell a byte from the
    // next one by a thousandth. All light is that much brighter, so that none is below.
    static constexpr float least = 0x1p-24f;
    static constexpr unsigned slot_bits = 13;
    static constexpr std::uint32_t first_slot = std::bit_cast<std::uint32_t>(least) >> slot_bits;
    static constexpr std::uint32_t slots = (std::bit_cast<std::uint32_t>(1.0f) >> slot_bits) - first_slot + 1;

    float quarter_[256]; // of the light of a byte
    std::uint8_t nearest_[slots];
};

/* Means of 2 x 2 texels of two rows. Beyond an odd last column lies the first one of an image that tiles, and
   of another the column itself. */
template <class T, class Mean>
void halve_rows(const T* lower, const T* upper, int width, bool tiles, const Mean& mean, T* to) {
    const int last = width - 1, beyond = tiles ? 0 : last;
    for (int x = 0; x < last; x += 2)
        *to++ = mean(lower[x], lower[x + 1], upper[x], upper[x + 1]);
    if (width % 2 == 1)
        *to = mean(lower[last], lower[beyond], upper[last], upper[beyond]);
}

/* Fills a level from the rows of the one before, `row`(y, slot), of which two at a time are in use. Above an
   odd last row lies the first one of an image that tiles, and of another the row itself. */
template <class T, class Mean, class Row>
void halve(const Level& from, bool tiles, const Mean& mean, T* to, Row row) {
    for (int y = 0; y < from.height; y += 2, to += (from.width + 1) / 2) {
        const int above = y + 1 < from.height ? y + 1 : tiles ? 0 : y;
        const T* const lower = row(y, 0);
        halve_rows(lower, above == y ? lower : row(above, 1), from.width, tiles, mean, to);
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

template <class T, class Mean> bool build_first(const BitmapFilter& filter, const Mean& mean, T* to) {
    const Level& image = filter.level[0];
    T* const rows = allocate<T>(image.width, 2);
    if (rows == nullptr)
        return false;
    halve(image, filter.tiles, mean, to, [&](int y, int slot) {
        T* const row = rows + std::ptrdiff_t{slot} * image.width;
        read_row(filter, y, row);
        return row;
    });
    mi_mem_int_release("bmm_filter", __LINE__, rows);
    return true;
}

template <class T, class Mean>
bool build_next(const BitmapFilter& filter, const Level& from, const Mean& mean, T* to) {
    halve(from, filter.tiles, mean, to,
          [&](int y, int) { return static_cast<const T*>(from.texels) + std::ptrdiff_t{y} * from.width; });
    return true;
}

/* Builds levels until memory ends; look-ups make do with what there is. */
template <class T, class Mean> void build_levels(BitmapFilter& filter, const Mean& mean) {
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
        if (!(filter.levels == 1 ? build_first(filter, mean, texels)
                                 : build_next(filter, finer, mean, texels)))
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

Texels texels_for(const miImg_image& image) {
    return image.bits == 8 ? Texels::bytes : image.bits == 32 ? Texels::floats : Texels::words;
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
    filter.texels = texels_for(*filter.image);
    filter.level[0] = {nullptr, filter.image, width, height, std::uint64_t{1} << 32, std::uint64_t{1} << 32};
    filter.levels = 1;
    if (filter.image->filter && filter.image->dirsize > 1)
        find_levels(filter);
    else if (filter.decodes)
        build_levels<Bytes>(filter, LightMean(filter.gamma_table));
    else if (filter.texels == Texels::bytes)
        build_levels<Bytes>(filter, PlainMean{});
    else if (filter.texels == Texels::words)
        build_levels<Words>(filter, PlainMean{});
    else
        build_levels<Floats>(filter, PlainMean{});
}

} // namespace orl
