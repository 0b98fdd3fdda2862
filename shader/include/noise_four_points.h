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
inline Pair load_pair(const miScalar* gradients) {
    return _mm256_loadu_ps(gradients);
}
inline Pair load_twice(const float* four) {
    return _mm256_broadcast_ps(reinterpret_cast<const __m128*>(four));
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
inline Pair load_pair(const miScalar* gradients) {
    return {_mm_load_ps(gradients), _mm_load_ps(gradients + 4)};
}
inline Pair load_twice(const float* four) {
    const __m128 lanes = _mm_load_ps(four);
    return {lanes, lanes};
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

/* The gradients of an entry and of the next one. */
template <int n> inline Pair gradients_at(const Corners<n>& corners, int k) {
    const auto* const start = (n == 3 ? noise_tables.corners3 : noise_tables.corners4) + corners.start;
    return load_pair(start[corners.entry[k]]);
}

/* Components of the gradients of four points. */
struct Gradients {
    Pair component[4];
};

inline Gradients spread_all(Pair shared) {
    return {{spread<0>(shared), spread<1>(shared), spread<2>(shared), spread<3>(shared)}};
}

/* Points on their way through the two steps: all are placed in their cells first, then each four get their
   noise. That keeps the registers full in both steps. For each axis: the entry of the plane below the point
   (that of the plane above follows it, as tables repeat), the ways from both, and the upper one's weight. */
constexpr std::size_t points_at_once = 64;

template <int n> struct Places {
    alignas(16) unsigned cell[n][points_at_once];
    alignas(16) float way[2][n][points_at_once];
    alignas(16) float weight[n][points_at_once];
};

template <int n>
inline void find_places(const float* const (&points)[n], std::size_t count, Places<n>& places) {
    for (int axis = 0; axis < n; ++axis) {
        float* const way = places.way[0][axis];
        for (std::size_t i = 0; i < count; i += 4) {
            const Whole whole = split(_mm_loadu_ps(points[axis] + i));
            _mm_store_si128(reinterpret_cast<__m128i*>(&places.cell[axis][i]), whole.part);
            _mm_store_ps(way + i, whole.rest);
        }
        for (std::size_t i = 0; i < count; ++i) {
            places.way[1][axis][i] = way[i] - 1.0f;
            places.weight[axis][i] = fade(way[i]);
        }
    }
}

/* The noise of the four points from i on, from the gradients of all columns of corners along the last axis;
   `gradients(k)` gives those of column k, numbered as corners are. */
template <int n, class Columns>
inline __m128 interpolate(const Places<n>& places, std::size_t i, Columns gradients) {
    constexpr int last = n - 1;
    const Pair last_way = pair(_mm_load_ps(&places.way[0][last][i]), _mm_load_ps(&places.way[1][last][i]));
    Pair value[1 << last];
    for (int k = 0; k < 1 << last; ++k) {
        const Gradients g = gradients(k);
        value[k] = load_twice(&places.way[k & 1][0][i]) * g.component[0];
        for (int axis = 1; axis < last; ++axis)
            value[k] = value[k] + load_twice(&places.way[k >> axis & 1][axis][i]) * g.component[axis];
        value[k] = value[k] + last_way * g.component[last];
    }
    for (int axis = 0; axis < last; ++axis)
        for (int k = 0; k < 1 << (last - 1 - axis); ++k)
            value[k] = mix(load_twice(&places.weight[axis][i]), value[2 * k], value[2 * k + 1]);
    return mix(_mm_load_ps(&places.weight[last][i]), lower(value[0]), upper(value[0]));
}

template <int n> inline bool share_cell(const Places<n>& places, std::size_t i) {
    __m128i same = _mm_set1_epi32(-1);
    for (const auto& cells : places.cell) {
        const __m128i cell = _mm_load_si128(reinterpret_cast<const __m128i*>(&cells[i]));
        same = _mm_and_si128(same, _mm_cmpeq_epi32(cell, _mm_shuffle_epi32(cell, 0)));
    }
    return _mm_movemask_epi8(same) == 0xFFFF;
}

template <int n> inline Corners<n> corners_of(const Places<n>& places, std::size_t i) {
    unsigned cell[n];
    for (int axis = 0; axis < n; ++axis)
        cell[axis] = places.cell[axis][i];
    return find_corners<n>(cell);
}

template <int n> inline __m128 noise_in_one_cell(const Places<n>& places, std::size_t i) {
    const Corners<n> corners = corners_of(places, i);
    return interpolate(places, i, [&](int k) { return spread_all(gradients_at(corners, k)); });
}

template <int n> inline __m128 noise_in_any_cells(const Places<n>& places, std::size_t i) {
    const Corners<n> corners[4] = {corners_of(places, i), corners_of(places, i + 1),
                                   corners_of(places, i + 2), corners_of(places, i + 3)};
    return interpolate(places, i, [&](int k) {
        Gradients g{{gradients_at(corners[0], k), gradients_at(corners[1], k), gradients_at(corners[2], k),
                     gradients_at(corners[3], k)}};
        transpose(g.component[0], g.component[1], g.component[2], g.component[3]);
        return g;
    });
}

template <int n>
inline void noise_four_at_a_time(const float* const (&arrays)[n], std::size_t count, float* noise) {
    const float* points[n];
    for (int axis = 0; axis < n; ++axis)
        points[axis] = arrays[axis];
    Places<n> places;
    while (count > 0) {
        const std::size_t now = count < points_at_once ? count : points_at_once;
        find_places(points, now, places);
        for (std::size_t i = 0; i < now; i += 4)
            _mm_storeu_ps(noise + i, share_cell(places, i) ? noise_in_one_cell(places, i)
                                                           : noise_in_any_cells(places, i));
        for (const float*& coordinates : points)
            coordinates += now;
        noise += now;
        count -= now;
    }
}

} // namespace
} // namespace orl
