/*
 * The arithmetic of gradient noise in vector registers, the same for every instruction set: SSE2, and AVX2
 * where a file is compiled for it. Lanes are points, or corners of the cell of one point; each holds what a
 * plain evaluation gives, to the bit, as no operation is left out, joined or put in another order.
 *
 * All is local to the including file: code for one instruction set must not stand in for the other's.
 */
#pragma once

#include "noise_tables.h"

#include <immintrin.h>

#include <cstddef>

namespace orl {
namespace {

/* Where four coordinates lie between two planes of the lattice: the entry of the lower plane in a table
   (that of the upper one follows it, as tables repeat), the ways from both, and the upper one's weight. */
struct Between {
    __m128i cell;
    __m128 way[2];
    __m128 weight;
};

inline __m128 fade(__m128 t) {
    return t * t * (_mm_set1_ps(3.0f) - _mm_set1_ps(2.0f) * t);
}

template <class Lanes> inline Lanes mix(Lanes weight, Lanes a, Lanes b) {
    return a + weight * (b - a);
}

/* The coordinate's whole part, counted from -10000 to stay positive for all practical inputs, and the rest.
 */
struct Whole {
    __m128i part;
    __m128 rest;
};

#ifdef __AVX2__
inline Whole split(__m128 q) {
    const __m256d t = _mm256_cvtps_pd(q) + _mm256_set1_pd(10000.0);
    const __m128i part = _mm256_cvttpd_epi32(t);
    return {part, _mm256_cvtpd_ps(t - _mm256_cvtepi32_pd(part))};
}
#else
inline Whole split(__m128 q) {
    const __m128d offset = _mm_set1_pd(10000.0);
    const __m128d low = _mm_cvtps_pd(q) + offset, high = _mm_cvtps_pd(_mm_movehl_ps(q, q)) + offset;
    const __m128i low_part = _mm_cvttpd_epi32(low), high_part = _mm_cvttpd_epi32(high);
    return {_mm_unpacklo_epi64(low_part, high_part),
            _mm_movelh_ps(_mm_cvtpd_ps(low - _mm_cvtepi32_pd(low_part)),
                          _mm_cvtpd_ps(high - _mm_cvtepi32_pd(high_part)))};
}
#endif

/* Deliberate: below -10000 the whole part is rounded up, so that the rest is negative and the weight leaves
   0 to 1. The host's noise does so, and scenes do not reach there. */
inline Between between(__m128 q) {
    // The numbers between which the whole part fits an int; beyond, numbers have no digits behind the point.
    // What is not a number becomes the first bound.
    q = _mm_max_ps(_mm_min_ps(q, _mm_set1_ps(2147473536.0f)), _mm_set1_ps(-2147493376.0f));
    const Whole whole = split(q);
    return {_mm_and_si128(whole.part, _mm_set1_epi32(NoiseTables::mask)),
            {whole.rest, whole.rest - _mm_set1_ps(1.0f)},
            fade(whole.rest)};
}

/* The gradients at the corners of one cell for noise in n dimensions, 3 or 4. */
template <int n> struct Corners {
    using Gradient = const miScalar[4];
    Gradient* plane; // by entry, for the lower plane of the last axis
    std::ptrdiff_t entry[1 << (n - 1)];

    /* Bit a of k says which plane of axis a. The last axis has no bit: the gradient at its upper plane
       follows that at the lower one. */
    const miScalar* operator()(int k) const { return plane[entry[k]]; }
};

template <int n> inline Corners<n> find_corners(const int* cell) {
    Corners<n> corners;
    corners.plane = (n == 3 ? noise_tables.corners3 : noise_tables.corners4) + cell[n - 1];
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
