/*
 * Filtered look-ups of images: a pyramid of ever coarser levels, built at the first look-up, sampled in fixed
 * point and blended between two levels.
 */
#pragma once

#include "mi_binding.h"

#include <cstddef>

namespace orl {

/* One image with its levels. Look-ups run without a lock once the levels are built. */
struct BitmapFilter;

/* A filter of an image, to be called from an init; null for the null tag, and where memory is short. `gamma`,
   above 0, is that of 8-bit images: their red, green and blue, 0 to 1, are raised to it. Of an image that
   tiles, the levels run on across its edges. */
BitmapFilter* create_filter(miState* state, miTag image, float gamma, bool tiles);

/* Colour of the image at (u, v), (0, 0) the lower left corner of its first pixel and (1, 1) the upper right
   one of its last, averaged over a box with the edges du and dv. Coordinates wrap around. Transparent black,
   and false, for the null filter; black without coverage for a tag that is no image. Coordinates and edges
   that are no numbers, or not finite, count as 0, but an infinite edge as the whole image. Colours of fixed
   point images are from 0 to 1; those of float images are negative only where the image is. */
bool look_up(miColor* result, miState* state, BitmapFilter* filter, float u, float v, float du, float dv);

void destroy_filter(BitmapFilter* filter);

/* ---- what tests and benchmarks look into */

/* A level that was built, four components for each texel, rows without gaps. */
struct FilterLevel {
    void* texels; // null for a level that is read from the image, as the first always is
    int width;
    int height;
    int bits; // of a component: 8, 16, or 32 for floats
};

/* Number of levels with the image itself, 0 before the first look-up and for what is no image. */
int level_count(const BitmapFilter* filter);

FilterLevel filter_level(const BitmapFilter* filter, int level);

/* Which level a box `edge` pixels of the image long is taken from, of so many, and how much of the next one
   is blended in. */
struct LevelChoice {
    int level;
    float blend;
};
LevelChoice choose_level(float edge, int levels);

} // namespace orl
