/*
 * What an image filter holds: the image, its levels and how their texels are kept.
 */
#pragma once

#include "bmm_filter.h"
#include "geoshader.h"

#include <emmintrin.h>

#include <atomic>
#include <cstdint>
#include <cstring>

namespace orl {

struct BitmapFilter {
    /* How the texels of built levels are kept. */
    enum class Texels { bytes, words, floats };
    template <class Component> struct Texel {
        Component c[4]; // red, green, blue, alpha
    };

    struct Level {
        void* texels; // null: read from `image`
        miImg_image* image;
        int width, height;
        std::uint64_t step_x, step_y; // steps of this level for one of the image, 32 bits of them fraction
    };
    static constexpr int most_levels = 13;

    miTag tag;
    bool tiles;
    float gamma;
    miLock lock; // of the build
    std::atomic<bool> built;
    miImg_image* image; // pinned; null until built and for what is no image
    Texels texels;      // floats for float images, else colours are from 0 to 1
    bool decodes;       // red, green and blue of every texel pass the gamma table when it is sampled
    int levels;         // with the image itself
    Level level[most_levels];
    float gamma_table[256];
};

/* Fills an empty filter: pins the image, finds the levels that it has or builds them. */
void build_pyramid(BitmapFilter& filter);

/* Components from 0 to 1 as whole numbers up to `largest`; 0 for what is no number. */
inline __m128i to_fixed_point(const miColor& color, float largest) {
    const __m128 positive = _mm_max_ps(_mm_loadu_ps(&color.r), _mm_setzero_ps());
    return _mm_cvtps_epi32(_mm_mul_ps(_mm_min_ps(positive, _mm_set1_ps(1.0f)), _mm_set1_ps(largest)));
}

inline BitmapFilter::Texel<std::uint8_t> to_bytes(const miColor& color) {
    const __m128i words = _mm_packs_epi32(to_fixed_point(color, 255.0f), _mm_setzero_si128());
    const int bytes = _mm_cvtsi128_si32(_mm_packus_epi16(words, _mm_setzero_si128()));
    BitmapFilter::Texel<std::uint8_t> texel;
    std::memcpy(&texel, &bytes, sizeof texel);
    return texel;
}

} // namespace orl
