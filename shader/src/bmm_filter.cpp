/*
 * Filtered look-ups of images. The renderer's database holds the images; its pixel function reads them, so
 * that any layout is understood.
 *
 * The image stays pinned from the first look-up until the filter is destroyed: a pin for each sample would
 * have all threads count in one place, and the levels that an image brings along are read where they lie.
 */
#include "bmm_filter.h"
#include "geoshader.h"
#include "numeric.h"

#include <emmintrin.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

namespace orl {

namespace {

constexpr int fraction_bits = 12; // of a position
constexpr int texel_step = 1 << fraction_bits;

constexpr int most_levels = 13;
constexpr int most_built_levels = 12; // with the image itself

// A longer edge has no place in the positions, and no renderer has such an image.
constexpr int longest_edge = (1 << 19) - 1;

/* How the texels of built levels are kept. */
enum class Texels { bytes, words, floats };

template <class Component> struct Texel {
    Component c[4]; // red, green, blue, alpha
};
using Bytes = Texel<std::uint8_t>;
using Words = Texel<std::uint16_t>;
using Floats = Texel<float>;

struct Level {
    void* texels; // null: read from `image`
    miImg_image* image;
    int width, height;
    std::uint64_t step_x, step_y; // steps of this level for one of the image, 32 bits of them fraction
};

} // namespace

struct BitmapFilter {
    miTag tag;
    bool tiles;
    float gamma;
    miLock lock; // of the build
    std::atomic<bool> built;
    miImg_image* image; // pinned; null until built and for what is no image
    Texels texels;      // floats for float images, else colours are from 0 to 1
    bool decodes;       // components pass the gamma table
    int levels;         // with the image itself
    Level level[most_levels];
    float gamma_table[256];
};

namespace {

// ---- reading the image

/* Components from 0 to 1 as whole numbers up to `largest`; 0 for what is no number. */
__m128i to_fixed_point(const miColor& color, float largest) {
    const __m128 positive = _mm_max_ps(_mm_loadu_ps(&color.r), _mm_setzero_ps());
    const __m128 limited = _mm_min_ps(positive, _mm_set1_ps(1.0f));
    return _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(limited, _mm_set1_ps(largest)), _mm_set1_ps(0.5f)));
}

/* Turns components into linear light. */
void decode(const BitmapFilter& filter, miColor& color) {
    std::int32_t bytes[4];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes), to_fixed_point(color, 255.0f));
    color.r = filter.gamma_table[bytes[0]];
    color.g = filter.gamma_table[bytes[1]];
    color.b = filter.gamma_table[bytes[2]];
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
            for (int i = 0; i < count; ++i)
                decode(filter, colors[i]);
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
    const int wanted = std::min(filter.image->dirsize, most_levels);
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

void build(BitmapFilter& filter) {
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

void build_once(BitmapFilter& filter) {
    if (filter.built.load(std::memory_order_acquire))
        return;
    mi_lock(filter.lock);
    if (!filter.built.load(std::memory_order_relaxed)) {
        build(filter);
        filter.built.store(true, std::memory_order_release);
    }
    mi_unlock(filter.lock);
}

// ---- sampling a level

/* Four texels along an axis and what each counts, of weight_sum. */
struct Taps {
    int at[4];
    int weight[4];
};
constexpr int weight_sum = 2 * texel_step;

/* At t of texel_step between the second texel and the third: the cubic of Catmull and Rom, A class of local
   interpolating splines, 1974. Twice its weights are whole numbers, which add up exactly. */
void set_weights(int (&weight)[4], int t) {
    const int t2 = (t * t) >> fraction_bits, t3 = (t2 * t) >> fraction_bits;
    weight[0] = -t + 2 * t2 - t3;
    weight[1] = 2 * texel_step - 5 * t2 + 3 * t3;
    weight[2] = t + 4 * t2 - 3 * t3;
    weight[3] = t3 - t2;
}

int place_of(int texel, int edge, bool tiles) {
    if (!tiles)
        return std::clamp(texel, 0, edge - 1);
    const int rest = texel % edge;
    return rest < 0 ? rest + edge : rest;
}

/* Around a position of which a texel's middle is half a step beyond its start. */
Taps taps_at(std::int64_t position, int edge, bool tiles) {
    Taps taps;
    const int centred = static_cast<int>(position) - texel_step / 2;
    const int first = (centred >> fraction_bits) - 1;
    set_weights(taps.weight, centred & (texel_step - 1));
    if (first >= 0 && first + 3 < edge)
        for (int i = 0; i < 4; ++i)
            taps.at[i] = first + i;
    else
        for (int i = 0; i < 4; ++i)
            taps.at[i] = place_of(first + i, edge, tiles);
    return taps;
}

__m128 weight_of(int weight) {
    return _mm_set1_ps(static_cast<float>(weight));
}

/* Weights of two neighbours side by side, as the integer products take them. */
__m128i pair_of(int first, int second) {
    return _mm_set1_epi32(
        static_cast<int>((static_cast<unsigned>(second) << 16) | (static_cast<unsigned>(first) & 0xffffu)));
}

/* Red, green, blue and alpha of two texels, one beside the other, as 16-bit numbers. */
__m128i side_by_side(const Bytes& first, const Bytes& second) {
    int a, b;
    std::memcpy(&a, &first, sizeof a);
    std::memcpy(&b, &second, sizeof b);
    return _mm_unpacklo_epi8(_mm_unpacklo_epi8(_mm_cvtsi32_si128(a), _mm_cvtsi32_si128(b)),
                             _mm_setzero_si128());
}

/* Weighted sums along four rows are weighted in their turn. `row`(y) gives the sum along a row. */
template <class Row> __m128 sum_of_rows(const Taps& y, Row row) {
    __m128 sum = _mm_mul_ps(weight_of(y.weight[0]), row(y.at[0]));
    for (int i = 1; i < 4; ++i)
        sum = _mm_add_ps(sum, _mm_mul_ps(weight_of(y.weight[i]), row(y.at[i])));
    return sum;
}

/* The cubic swings beyond the texels at sharp edges: what came out below 0 or above 1 would be a colour that
   the image cannot hold. */
__m128 scaled_and_limited(__m128 sum, float one) {
    constexpr float both_axes = static_cast<float>(weight_sum) * static_cast<float>(weight_sum);
    const __m128 color = _mm_mul_ps(sum, _mm_set1_ps(1.0f / (both_axes * one)));
    return _mm_min_ps(_mm_max_ps(color, _mm_setzero_ps()), _mm_set1_ps(1.0f));
}

// Rows of bytes are summed in integers, which is exact and the fastest.
__m128 sample_bytes(const Level& level, const Taps& x, const Taps& y) {
    const auto* const texels = static_cast<const Bytes*>(level.texels);
    const __m128i left = pair_of(x.weight[0], x.weight[1]), right = pair_of(x.weight[2], x.weight[3]);
    const auto row = [&](int line) {
        const Bytes* const start = texels + std::ptrdiff_t{line} * level.width;
        const __m128i sum =
            _mm_add_epi32(_mm_madd_epi16(side_by_side(start[x.at[0]], start[x.at[1]]), left),
                          _mm_madd_epi16(side_by_side(start[x.at[2]], start[x.at[3]]), right));
        return _mm_cvtepi32_ps(sum);
    };
    return scaled_and_limited(sum_of_rows(y, row), 255.0f);
}

/* `texel`(x, y) gives the colour of a texel. */
template <class TexelAt> __m128 sum_of_texels(const Taps& x, const Taps& y, TexelAt texel) {
    return sum_of_rows(y, [&](int line) {
        __m128 sum = _mm_mul_ps(weight_of(x.weight[0]), texel(x.at[0], line));
        for (int i = 1; i < 4; ++i)
            sum = _mm_add_ps(sum, _mm_mul_ps(weight_of(x.weight[i]), texel(x.at[i], line)));
        return sum;
    });
}

__m128 sample_words(const Level& level, const Taps& x, const Taps& y) {
    const auto* const texels = static_cast<const Words*>(level.texels);
    const auto texel = [&](int column, int line) {
        const Words* const words = texels + (std::ptrdiff_t{line} * level.width + column);
        const __m128i loaded = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(words));
        return _mm_cvtepi32_ps(_mm_unpacklo_epi16(loaded, _mm_setzero_si128()));
    };
    return scaled_and_limited(sum_of_texels(x, y, texel), 65535.0f);
}

/* Beside very bright texels the cubic swings far below 0, which would be light that darkens: it ends at 0, or
   at what the image itself has below. Upwards a float image has no limit. The order of the operands lets what
   is no number count as that end. */
template <class TexelAt> __m128 sample_floats(const Taps& x, const Taps& y, TexelAt texel) {
    constexpr float both_axes = static_cast<float>(weight_sum) * static_cast<float>(weight_sum);
    __m128 lowest = _mm_setzero_ps();
    const __m128 sum = sum_of_texels(x, y, [&](int column, int line) {
        const __m128 color = texel(column, line);
        lowest = _mm_min_ps(color, lowest);
        return color;
    });
    return _mm_max_ps(_mm_mul_ps(sum, _mm_set1_ps(1.0f / both_axes)), lowest);
}

/* Reads the image itself, or one of its own levels. */
__m128 sample_image(const BitmapFilter& filter, const Level& level, const Taps& x, const Taps& y) {
    miColor colors[4][4];
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i)
            mi_img_get_color(level.image, &(colors[j][i] = {}), x.at[i], y.at[j]);
    if (filter.decodes)
        for (auto& row : colors)
            for (miColor& color : row)
                decode(filter, color);
    const Taps columns{{0, 1, 2, 3}, {x.weight[0], x.weight[1], x.weight[2], x.weight[3]}};
    const Taps rows{{0, 1, 2, 3}, {y.weight[0], y.weight[1], y.weight[2], y.weight[3]}};
    const auto texel = [&](int column, int line) { return _mm_loadu_ps(&colors[line][column].r); };
    return filter.texels == Texels::floats ? sample_floats(columns, rows, texel)
                                           : scaled_and_limited(sum_of_texels(columns, rows, texel), 1.0f);
}

/* At a position in the image. */
__m128 sample(const BitmapFilter& filter, const Level& level, std::int64_t x, std::int64_t y) {
    const auto on_level = [](std::int64_t position, std::uint64_t level_step) {
        return static_cast<std::int64_t>((static_cast<std::uint64_t>(position) * level_step) >> 32);
    };
    const Taps column = taps_at(on_level(x, level.step_x), level.width, filter.tiles);
    const Taps row = taps_at(on_level(y, level.step_y), level.height, filter.tiles);
    if (level.texels == nullptr)
        return sample_image(filter, level, column, row);
    switch (filter.texels) {
    case Texels::bytes:
        return sample_bytes(level, column, row);
    case Texels::words:
        return sample_words(level, column, row);
    default:
        const auto* const texels = static_cast<const Floats*>(level.texels);
        return sample_floats(column, row, [&](int i, int line) {
            return _mm_loadu_ps(texels[std::ptrdiff_t{line} * level.width + i].c);
        });
    }
}

/* The place on an edge of so many pixels in steps of 1 / texel_step, whatever the coordinate. */
std::int64_t position_of(float coordinate, int edge) {
    const std::int64_t whole = std::int64_t{edge} << fraction_bits;
    const float scaled = coordinate * static_cast<float>(whole);
    if (!(std::fabs(scaled) < 0x1p62f)) // so large a number has no place any more
        return 0;
    const auto position = static_cast<std::int64_t>(scaled);
    if (position >= 0 && position < whole)
        return position;
    const std::int64_t rest = position % whole;
    return rest < 0 ? rest + whole : rest;
}

float box_edge(float width, int pixels) {
    return width > 0.0f ? width * static_cast<float>(pixels) : 0.0f;
}

} // namespace

LevelChoice choose_level(float edge, int levels) {
    // The cubic is sharper than a box: not quite half of the box's edge is one texel.
    const float level = edge > 0.0f ? numeric::log2(0.45f * edge) : 0.0f;
    if (!(level > 0.0f))
        return {0, 0.0f};
    const int last = levels - 1;
    if (level >= static_cast<float>(last))
        return {last, 0.0f};
    const int position = static_cast<int>(level * static_cast<float>(texel_step));
    return {static_cast<int>(level), static_cast<float>(position & (texel_step - 1)) * (1.0f / 4095.0f)};
}

BitmapFilter* create_filter(miState*, miTag image, float gamma, bool tiles) {
    if (image == miNULLTAG)
        return nullptr;
    void* const memory = mi_mem_int_test_allocate("bmm_filter", __LINE__, sizeof(BitmapFilter));
    if (memory == nullptr)
        return nullptr;
    auto* const filter = new (memory) BitmapFilter{};
    filter->tag = image;
    filter->gamma = gamma;
    filter->tiles = tiles;
    mi_init_lock(&filter->lock);
    return filter;
}

bool look_up(miColor* result, miState*, BitmapFilter* filter, float u, float v, float du, float dv) {
    *result = {0, 0, 0, 0};
    if (filter == nullptr)
        return false;
    build_once(*filter);
    if (filter->levels == 0)
        return true;
    const Level& image = filter->level[0];
    const float edge = std::max(box_edge(du, image.width), box_edge(dv, image.height));
    const LevelChoice choice = choose_level(edge, filter->levels);
    const std::int64_t x = position_of(u, image.width), y = position_of(v, image.height);
    __m128 color = sample(*filter, filter->level[choice.level], x, y);
    if (choice.blend > 0.0f) {
        const __m128 coarser = sample(*filter, filter->level[choice.level + 1], x, y);
        color = _mm_add_ps(_mm_mul_ps(color, _mm_set1_ps(1.0f - choice.blend)),
                           _mm_mul_ps(coarser, _mm_set1_ps(choice.blend)));
    }
    _mm_storeu_ps(&result->r, color);
    return true;
}

void destroy_filter(BitmapFilter* filter) {
    if (filter == nullptr)
        return;
    for (int i = most_levels - 1; i >= 0; --i)
        mi_mem_int_release("bmm_filter", __LINE__, filter->level[i].texels);
    if (filter->image != nullptr)
        mi_db_unpin(filter->tag);
    mi_delete_lock(&filter->lock);
    mi_mem_int_release("bmm_filter", __LINE__, filter);
}

int level_count(const BitmapFilter* filter) {
    return filter->levels;
}

FilterLevel filter_level(const BitmapFilter* filter, int level) {
    const Level& found = filter->level[level];
    constexpr int bits[] = {8, 16, 32};
    return {found.texels, found.width, found.height, bits[static_cast<int>(filter->texels)]};
}

} // namespace orl
