/*
 * What an image filter holds: the image, its levels and how their texels are kept.
 */
#pragma once

#include "bmm_filter.h"
#include "geoshader.h"

#include <atomic>
#include <cstdint>

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
    bool decodes;       // components pass the gamma table
    int levels;         // with the image itself
    Level level[most_levels];
    float gamma_table[256];
};

/* Fills an empty filter: pins the image, finds the levels that it has or builds them. */
void build_pyramid(BitmapFilter& filter);

/* Turns colours of an 8-bit image into linear light. */
void decode(const BitmapFilter& filter, miColor* colors, int count);

} // namespace orl
