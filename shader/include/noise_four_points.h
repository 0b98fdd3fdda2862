/*
 * The noise of four points at a time, for one instruction set: that which the including file is compiled
 * for.
 */
#pragma once

#include "noise_lanes.h"

#include <cstddef>

namespace orl {
namespace {

/* Values of four points at two corners that differ in the last coordinate. */
#ifdef __AVX2__
using Pair = __m256;

inline Pair pair(__m128 lower, __m128 upper) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(lower), upper, 1);
}
inline Pair load_pair(const miScalar* gradient) {
    return _mm256_loadu_ps(gradient);
}
inline __m128 lower(Pair pair) {
    return _mm256_castps256_ps128(pair);
}
inline __m128 upper(Pair pair) {
    return _mm256_extractf128_ps(pair, 1);
}
template <int component> inline Pair spread(Pair gradients) {
    return _mm256_permute_ps(gradients, component * 0x55);
}
inline void transpose(Pair& a, Pair& b, Pair& c, Pair& d) {
    const __m256 ab_low = _mm256_unpacklo_ps(a, b), ab_high = _mm256_unpackhi_ps(a, b);
    const __m256 cd_low = _mm256_unpacklo_ps(c, d), cd_high = _mm256_unpackhi_ps(c, d);
    a = _mm256_shuffle_ps(ab_low, cd_low, 0x44);
    b = _mm256_shuffle_ps(ab_low, cd_low, 0xEE);
    c = _mm256_shuffle_ps(ab_high, cd_high, 0x44);
    d = _mm256_shuffle_ps(ab_high, cd_high, 0xEE);
}
#else
struct Pair {
    __m128 lower, upper;
};

inline Pair pair(__m128 lower, __m128 upper) {
    return {lower, upper};
}
inline Pair load_pair(const miScalar* gradient) {
    return {_mm_load_ps(gradient), _mm_load_ps(gradient + 4)};
}
inline __m128 lower(Pair pair) {
    return pair.lower;
}
inline __m128 upper(Pair pair) {
    return pair.upper;
}
template <int component> inline Pair spread(Pair gradients) {
    return {_mm_shuffle_ps(gradients.lower, gradients.lower, component * 0x55),
            _mm_shuffle_ps(gradients.upper, gradients.upper, component * 0x55)};
}
inline void transpose(Pair& a, Pair& b, Pair& c, Pair& d) {
    _MM_TRANSPOSE4_PS(a.lower, b.lower, c.lower, d.lower);
    _MM_TRANSPOSE4_PS(a.upper, b.upper, c.upper, d.upper);
}
inline Pair operator+(Pair a, Pair b) {
    return {a.lower + b.lower, a.upper + b.upper};
}
inline Pair operator-(Pair a, Pair b) {
    return {a.lower - b.lower, a.upper - b.upper};
}
inline Pair operator*(Pair a, Pair b) {
    return {a.lower * b.lower, a.upper * b.upper};
}
#endif

/* Components of the gradients of four points. */
struct Gradients {
    Pair component[4];
};

inline Gradients spread_all(Pair shared) {
    return {{spread<0>(shared), spread<1>(shared), spread<2>(shared), spread<3>(shared)}};
}

/* The noise, from the gradients of all columns of corners along the last axis; `gradients(k)` gives those of
   column k, numbered as entries are. */
template <int n, class Columns> inline __m128 interpolate(const Between (&at)[n], Columns gradients) {
    constexpr int last = n - 1;
    const Pair last_way = pair(at[last].way[0], at[last].way[1]);
    Pair value[1 << last];
    for (int k = 0; k < 1 << last; ++k) {
        const Gradients g = gradients(k);
        const __m128 x = at[0].way[k & 1];
        value[k] = pair(x, x) * g.component[0];
        for (int axis = 1; axis < last; ++axis) {
            const __m128 way = at[axis].way[k >> axis & 1];
            value[k] = value[k] + pair(way, way) * g.component[axis];
        }
        value[k] = value[k] + last_way * g.component[last];
    }
    for (int axis = 0; axis < last; ++axis) {
        const Pair weight = pair(at[axis].weight, at[axis].weight);
        for (int k = 0; k < 1 << (last - 1 - axis); ++k)
            value[k] = mix(weight, value[2 * k], value[2 * k + 1]);
    }
    return mix(at[last].weight, lower(value[0]), upper(value[0]));
}

template <int n> inline bool share_cell(const Between (&at)[n]) {
    __m128i same = _mm_set1_epi32(-1);
    for (const Between& axis : at)
        same = _mm_and_si128(same, _mm_cmpeq_epi32(axis.cell, _mm_shuffle_epi32(axis.cell, 0)));
    return _mm_movemask_epi8(same) == 0xFFFF;
}

template <int n> inline __m128 noise_in_one_cell(const Between (&at)[n]) {
    int cell[n];
    for (int axis = 0; axis < n; ++axis)
        cell[axis] = _mm_cvtsi128_si32(at[axis].cell);
    const Corners<n> corners = find_corners<n>(cell);
    return interpolate<n>(at, [&](int k) { return spread_all(load_pair(corners(k))); });
}

template <int n> inline __m128 noise_in_any_cells(const Between (&at)[n]) {
    alignas(16) int cells[n][4];
    for (int axis = 0; axis < n; ++axis)
        _mm_store_si128(reinterpret_cast<__m128i*>(cells[axis]), at[axis].cell);
    const auto corners_of = [&](int point) {
        int cell[n];
        for (int axis = 0; axis < n; ++axis)
            cell[axis] = cells[axis][point];
        return find_corners<n>(cell);
    };
    const Corners<n> corners[4] = {corners_of(0), corners_of(1), corners_of(2), corners_of(3)};
    return interpolate<n>(at, [&](int k) {
        Gradients g{{load_pair(corners[0](k)), load_pair(corners[1](k)), load_pair(corners[2](k)),
                     load_pair(corners[3](k))}};
        transpose(g.component[0], g.component[1], g.component[2], g.component[3]);
        return g;
    });
}

template <int n>
inline void noise_four_at_a_time(const float* const (&points)[n], std::size_t count, float* noise) {
    for (std::size_t i = 0; i < count; i += 4) {
        Between at[n];
        for (int axis = 0; axis < n; ++axis)
            at[axis] = between(_mm_loadu_ps(points[axis] + i));
        _mm_storeu_ps(noise + i, share_cell(at) ? noise_in_one_cell(at) : noise_in_any_cells(at));
    }
}

} // namespace
} // namespace orl
