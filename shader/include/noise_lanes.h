/*
 * The arithmetic of gradient noise in vector registers, the same for every instruction set: SSE2, and AVX2
 * where a file is compiled for it. Lanes are points, or corners of the cell of one point. No operation is
 * left out, joined with another or put in another order, so all forms of the noise give the same bits.
 *
 * All is local to the including file: code for one instruction set must not stand in for the other's.
 */
#pragma once

#include "noise_tables.h"

#include <immintrin.h>

#include <cstddef>

namespace orl {
namespace {

inline float fade(float t) {
    return t * t * (3.0f - 2.0f * t);
}
inline __m128 fade(__m128 t) {
    return t * t * (_mm_set1_ps(3.0f) - _mm_set1_ps(2.0f) * t);
}

template <class Lanes> inline Lanes mix(Lanes weight, Lanes a, Lanes b) {
    return a + weight * (b - a);
}

/* The whole part and the rest of coordinates plus 10000, which are positive for all practical inputs. */
struct Whole {
    __m128i part;
    __m128 rest;
};

#ifdef __AVX2__
inline Whole split_in_range(__m128 q) {
    const __m256d t = _mm256_cvtps_pd(q) + _mm256_set1_pd(10000.0);
    const __m128i part = _mm256_cvttpd_epi32(t);
    return {part, _mm256_cvtpd_ps(t - _mm256_cvtepi32_pd(part))};
}
#else
inline Whole split_in_range(__m128 q) {
    const __m128d offset = _mm_set1_pd(10000.0);
    const __m128d low = _mm_cvtps_pd(q) + offset, high = _mm_cvtps_pd(_mm_movehl_ps(q, q)) + offset;
    const __m128i low_part = _mm_cvttpd_epi32(low), high_part = _mm_cvttpd_epi32(high);
    return {_mm_unpacklo_epi64(low_part, high_part),
            _mm_movelh_ps(_mm_cvtpd_ps(low - _mm_cvtepi32_pd(low_part)),
                          _mm_cvtpd_ps(high - _mm_cvtepi32_pd(high_part)))};
}
#endif

/* For all coordinates; the part becomes the entry of the lower plane.
   Deliberate: below -10000 the whole part is rounded up, so that the rest is negative and the weight leaves
   0 to 1. The host's noise does so, and scenes do not reach there. */
inline Whole split(__m128 q) {
    // The numbers between which the whole part fits an int; beyond, numbers have no digits behind the point.
    // What is not a number becomes the first bound.
    q = _mm_max_ps(_mm_min_ps(q, _mm_set1_ps(2147473536.0f)), _mm_set1_ps(-2147493376.0f));
    const Whole whole = split_in_range(q);
    return {_mm_and_si128(whole.part, _mm_set1_epi32(NoiseTables::mask)), whole.rest};
}

/* The entries of the gradients at the corners of one cell, for noise in n dimensions, 3 or 4, counted from
   the cell's number on the last axis. Bit a of an index says which plane of axis a. The last axis has no bit:
   its upper plane's entry follows the lower one's. */
template <int n> struct Corners {
    std::ptrdiff_t start;
    std::ptrdiff_t entry[1 << (n - 1)];
};

template <int n> inline Corners<n> find_corners(const unsigned* cell) {
    Corners<n> corners;
    corners.start = cell[n - 1];
    corners.entry[0] = 0;
    for (int axis = 0; axis < n - 1; ++axis)
        for (int k = 0; k < 1 << axis; ++k) {
            const miInteger* const perm = noise_tables.perm + cell[axis] + corners.entry[k];
            corners.entry[k] = perm[0];
            corners.entry[k | 1 << axis] = perm[1];
        }
    return corners;
}

} // namespace
} // namespace orl
