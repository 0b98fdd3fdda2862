/*
 * Filtered look-ups of images: a pyramid of ever coarser levels, built at the first look-up, sampled in fixed
 * point and blended between two levels.
 */
#pragma once

#include "mi_binding.h"

namespace orl {

/* One image with its levels. Look-ups run without a lock once the levels are built. */
struct BitmapFilter;

/* A filter of an image, to be called from an init; null for the null tag. `gamma` is that of the levels of
   8-bit images. Of an image that tiles, the levels run on across its edges. */
BitmapFilter* create_filter(miState* state, miTag image, float gamma, bool tiles);

/* Colour of the image at (u, v), (0, 0) the lower left corner of its first pixel and (1, 1) the upper right
   one of its last, averaged over a box with the edges du and dv. Coordinates wrap around. Transparent black,
   and false, for the null filter; black for a tag that is no image. Coordinates and edges that are no numbers
   count as 0. */
bool look_up(miColor* result, miState* state, BitmapFilter* filter, float u, float v, float du, float dv);

void destroy_filter(BitmapFilter* filter);

} // namespace orl
