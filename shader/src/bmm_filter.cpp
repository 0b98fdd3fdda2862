/*
 * Filtered look-ups of images.
 *
 * The image stays pinned from the first look-up until the filter is destroyed: a pin for each sample would
 * have all threads count in one place, and the levels that an image brings along are read where they lie.
 */
#include "bmm_filter.h"
#include "bmm_pyramid.h"
#include "numeric.h"

#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace orl {

namespace {

using Level = BitmapFilter::Level;
using Texels = BitmapFilter::Texels;
using Bytes = BitmapFilter::Texel<std::uint8_t>;
using Words = BitmapFilter::Texel<std::uint16_t>;
using Floats = BitmapFilter::Texel<float>;

constexpr int fraction_bits = 12; // of a position
constexpr int texel_step = 1 << fraction_bits;

void build_once(BitmapFilter& filter) {
    if (filter.built.load(std::memory_order_acquire))
        return;
    mi_lock(filter.lock);
    if (!filter.built.load(std::memory_order_relaxed)) {
        build_pyramid(filter);
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

/* Of bytes with a gamma, as light. */
__m128 light_of(const BitmapFilter& filter, const Bytes& texel) {
    const float* const light = filter.gamma_table;
    return _mm_setr_ps(light[texel.c[0]], light[texel.c[1]], light[texel.c[2]],
                       static_cast<float>(texel.c[3]) * (1.0f / 255.0f));
}

__m128 sample_light(const BitmapFilter& filter, const Level& level, const Taps& x, const Taps& y) {
    const auto* const texels = static_cast<const Bytes*>(level.texels);
    const auto texel = [&](int column, int line) {
        return light_of(filter, texels[std::ptrdiff_t{line} * level.width + column]);
    };
    return scaled_and_limited(sum_of_texels(x, y, texel), 1.0f);
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
   at what the image itself has below. The order of the operands lets what is no number count as that end.
   What is infinite ends where colours can still be added: times a coverage of 0 it would be no number. */
template <class TexelAt> __m128 sample_floats(const Taps& x, const Taps& y, TexelAt texel) {
    constexpr float both_axes = static_cast<float>(weight_sum) * static_cast<float>(weight_sum);
    __m128 lowest = _mm_setzero_ps();
    const __m128 sum = sum_of_texels(x, y, [&](int column, int line) {
        const __m128 color = texel(column, line);
        lowest = _mm_min_ps(color, lowest);
        return color;
    });
    const __m128 color = _mm_max_ps(_mm_mul_ps(sum, _mm_set1_ps(1.0f / both_axes)), lowest);
    return _mm_min_ps(_mm_max_ps(color, _mm_set1_ps(-0x1p126f)), _mm_set1_ps(0x1p126f));
}

/* Reads the image itself, or one of its own levels. */
__m128 sample_image(const BitmapFilter& filter, const Level& level, const Taps& x, const Taps& y) {
    miColor colors[16];
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i)
            mi_img_get_color(level.image, &(colors[4 * j + i] = {}), x.at[i], y.at[j]);
    const Taps columns{{0, 1, 2, 3}, {x.weight[0], x.weight[1], x.weight[2], x.weight[3]}};
    const Taps rows{{0, 1, 2, 3}, {y.weight[0], y.weight[1], y.weight[2], y.weight[3]}};
    const auto texel = [&](int column, int line) {
        const miColor& color = colors[4 * line + column];
        return filter.decodes ? light_of(filter, to_bytes(color)) : _mm_loadu_ps(&color.r);
    };
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
        return filter.decodes ? sample_light(filter, level, column, row) : sample_bytes(level, column, row);
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
    // Deliberate: steps of 4095, so that the last of the 4096 is the next level alone.
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
    for (int i = BitmapFilter::most_levels - 1; i >= 0; --i)
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
