/*
 * Gradient noise, its tables, and small helpers of maps and atmospheres.
 *
 * The tables come from the C run-time's generator with a fixed seed, so that a scene looks the same in every
 * run; building them restarts that generator, and whoever else draws from it seeds it for himself.
 */
#include "noise.h"

#include "host_random.h"
#include "noise_batch.h"
#include "noise_lanes.h"
#include "noise_tables.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace orl {

NoiseTables noise_tables;

// ---- building the tables

namespace {

std::atomic<bool> tables_not_initialised = true;

#ifdef _WIN32
// The process's own generator: the host counts on its state afterwards.
class TableRandom {
public:
    explicit TableRandom(unsigned seed) { std::srand(seed); }
    int operator()() { return std::rand(); }
};
#else
using TableRandom = HostRandom;
#endif

// 0 to range - 1; range is a power of two.
int draw(TableRandom& random, int range) {
    return random() & (range - 1);
}

miScalar draw_component(TableRandom& random) {
    return static_cast<miScalar>(draw(random, 1024) - 512) * 0.001953125f;
}

// Draws a vector from the unit ball and returns its length. With the seed in use none has length 0.
template <int n> miScalar draw_in_ball(TableRandom& random, miScalar (&vector)[n]) {
    miScalar squared;
    do {
        squared = 0.0f;
        for (miScalar& component : vector) {
            component = draw_component(random);
            squared += component * component;
        }
    } while (squared > 1.0f);
    return std::sqrt(squared);
}

template <int n> void draw_direction(TableRandom& random, miScalar (&vector)[n]) {
    const miScalar length = draw_in_ball(random, vector);
    for (miScalar& component : vector)
        component /= length;
}

// Deliberate: the host multiplies by a reciprocal here, where it divides otherwise, which rounds differently;
// and it refines the reciprocal by a step of Newton's method, which finds nothing to do after a rounded
// division.
void draw_direction(TableRandom& random, miScalar (&vector)[4]) {
    const miScalar length = draw_in_ball(random, vector);
    miScalar reciprocal = 1.0f / length;
    reciprocal = reciprocal * (2.0f - length * reciprocal);
    for (miScalar& component : vector)
        component *= reciprocal;
}

// Deliberate: each partner comes from the whole table, not from the entries that are left, and entry 0 gets
// no turn. Not all orders are equally likely then, but this one is the host's.
void shuffle(TableRandom& random, miInteger* perm) {
    for (int i = NoiseTables::size - 1; i >= 1; --i)
        std::swap(perm[i], perm[draw(random, NoiseTables::size)]);
}

template <class T> void repeat(T (&table)[NoiseTables::entries]) {
    std::copy_n(table, NoiseTables::size, table + NoiseTables::size);
    std::copy_n(table, 2, table + 2 * NoiseTables::size);
}

void build_gradients(NoiseTables& tables) {
    TableRandom random(548485);
    for (int i = 0; i < NoiseTables::size; ++i) {
        tables.perm[i] = i;
        tables.grad1[i] = draw_component(random);
        draw_direction(random, tables.grad2[i]);
        draw_direction(random, tables.grad3[i]);
        draw_direction(random, tables.grad4[i]);
    }
    shuffle(random, tables.perm);
}

void repeat_gradients(NoiseTables& tables) {
    repeat(tables.perm);
    repeat(tables.grad1);
    for (int i = 0; i < NoiseTables::size + 2; ++i) {
        const int from = i % NoiseTables::size, to = NoiseTables::size + i;
        std::copy_n(tables.grad2[from], 2, tables.grad2[to]);
        std::copy_n(tables.grad3[from], 3, tables.grad3[to]);
        std::copy_n(tables.grad4[from], 4, tables.grad4[to]);
    }
}

void order_corners(NoiseTables& tables) {
    for (int i = 0; i < NoiseTables::entries; ++i) {
        const miInteger entry = tables.perm[i];
        for (int axis = 0; axis < 3; ++axis)
            tables.corners3[i][axis] = tables.components3[axis][i] = tables.grad3[entry][axis];
        for (int axis = 0; axis < 4; ++axis)
            tables.corners4[i][axis] = tables.components4[axis][i] = tables.grad4[entry][axis];
    }
}

// The sum of 3^i / (e^3 i!) for i = 0 to k.
void build_poisson(miScalar (&table)[9]) {
    miScalar sum = 0.0f, power = 1.0f, factorial = 1.0f;
    for (int k = 0; k < 9; ++k) {
        if (k > 0) {
            power *= 3.0f;
            factorial *= static_cast<miScalar>(k);
        }
        sum += power / (20.08553629f * factorial);
        table[k] = sum;
    }
}

void build_cell_random(miScalar (&table)[10000]) {
    TableRandom random(1);
    for (miScalar& entry : table)
        entry = static_cast<miScalar>(random()) * 3.051851e-5f;
}

} // namespace

void noiseTablesInit(miState* state) {
    if (!tables_not_initialised.load(std::memory_order_acquire))
        return;
    mi_lock(state->global_lock);
    if (tables_not_initialised.load(std::memory_order_relaxed)) {
        build_gradients(noise_tables);
        repeat_gradients(noise_tables);
        order_corners(noise_tables);
        build_poisson(noise_tables.cellPoissonTable);
        build_cell_random(noise_tables.cellRandomTable);
        // Deliberate: the generator ends in its default state, whatever its user had seeded before. The
        // host's scenes count on the numbers that follow.
        [[maybe_unused]] const TableRandom restarted(1);
        // Last: whoever finds the flag clear reads the tables without the lock.
        tables_not_initialised.store(false, std::memory_order_release);
    }
    mi_unlock(state->global_lock);
}

// ---- noise

namespace {

// A point's place in its cell, by axis: the entry of the plane below it (that of the plane above follows, as
// tables repeat), the ways from both, and the upper one's weight.
struct Place {
    alignas(16) unsigned cell[4];
    alignas(16) float way[2][4];
    alignas(16) float weight[4];
};

Place find_place(__m128 point) {
    const Whole whole = split(point);
    Place place;
    _mm_store_si128(reinterpret_cast<__m128i*>(place.cell), whole.part);
    _mm_store_ps(place.way[0], whole.rest);
    _mm_store_ps(place.way[1], whole.rest - _mm_set1_ps(1.0f));
    _mm_store_ps(place.weight, fade(whole.rest));
    return place;
}

// A component of the gradients at two entries and at those that follow them.
template <int n> __m128 load_components(int axis, const Corners<n>& corners, int lower, int upper) {
    const auto* const components = n == 3 ? noise_tables.components3 : noise_tables.components4;
    const miScalar* const start = components[axis] + corners.start;
    const auto two = [&](int k) { return reinterpret_cast<const __m64*>(start + corners.entry[k]); };
    return _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), two(lower)), two(upper));
}

// The noise of one point in n dimensions, 3 or 4. The four lanes are the corners along the last two axes:
// lower and upper plane of the last for the lower plane of the last but one, then for its upper plane.
template <int n> float noise_of_point(__m128 point) {
    const Place place = find_place(point);
    const auto& way = place.way;
    const Corners<n> corners = find_corners<n>(place.cell);
    constexpr int last = n - 1, before = n - 2;
    constexpr int columns = 1 << before; // corners along the other axes
    const __m128 way_before = _mm_setr_ps(way[0][before], way[0][before], way[1][before], way[1][before]);
    const __m128 way_last = _mm_setr_ps(way[0][last], way[1][last], way[0][last], way[1][last]);
    __m128 value[columns];
    for (int k = 0; k < columns; ++k) {
        const auto gradients = [&](int axis) { return load_components(axis, corners, k, k | columns); };
        value[k] = _mm_set1_ps(way[k & 1][0]) * gradients(0);
        for (int axis = 1; axis < before; ++axis)
            value[k] = value[k] + _mm_set1_ps(way[k >> axis & 1][axis]) * gradients(axis);
        value[k] = value[k] + way_before * gradients(before) + way_last * gradients(last);
    }
    for (int axis = 0; axis < before; ++axis)
        for (int k = 0; k < columns >> (axis + 1); ++k)
            value[k] = mix(_mm_set1_ps(place.weight[axis]), value[2 * k], value[2 * k + 1]);
    const __m128 ends = mix(_mm_set1_ps(place.weight[before]), value[0], _mm_movehl_ps(value[0], value[0]));
    return _mm_cvtss_f32(mix(_mm_set1_ps(place.weight[last]), ends, _mm_shuffle_ps(ends, ends, 1)));
}

template <int n> void noise_of_points(const float* const (&points)[n], std::size_t count, float* noise) {
    const std::size_t fours = count / 4 * 4;
    if (__builtin_cpu_supports("avx2"))
        noise_batch_avx2(points, fours, noise);
    else
        noise_batch_sse2(points, fours, noise);
    for (std::size_t i = fours; i < count; ++i) {
        float point[4] = {};
        for (int axis = 0; axis < n; ++axis)
            point[axis] = points[axis][i];
        noise[i] = noise_of_point<n>(_mm_loadu_ps(point));
    }
}

} // namespace

float perlinNoise1(float x) {
    const Place at = find_place(_mm_set_ss(x));
    const miInteger* const perm = &noise_tables.perm[at.cell[0]];
    return mix(at.weight[0], at.way[0][0] * noise_tables.grad1[perm[0]],
               at.way[1][0] * noise_tables.grad1[perm[1]]);
}

float perlinNoise2(float x, float y) {
    const Place at = find_place(_mm_setr_ps(x, y, 0.0f, 0.0f));
    const auto corner = [&](int upper_x, int upper_y) {
        const unsigned column = noise_tables.perm[at.cell[0] + upper_x] + at.cell[1];
        const miScalar(&g)[2] = noise_tables.grad2[noise_tables.perm[column + upper_y]];
        return at.way[upper_x][0] * g[0] + at.way[upper_y][1] * g[1];
    };
    return mix(at.weight[1], mix(at.weight[0], corner(0, 0), corner(1, 0)),
               mix(at.weight[0], corner(0, 1), corner(1, 1)));
}

float perlinNoise3(float x, float y, float z) {
    return noise_of_point<3>(_mm_setr_ps(x, y, z, 0.0f));
}

float perlinNoise4(float x, float y, float z, float phase) {
    return noise_of_point<4>(_mm_setr_ps(x, y, z, phase));
}

void perlinNoise3(const float* x, const float* y, const float* z, std::size_t count, float* noise) {
    noise_of_points<3>({x, y, z}, count, noise);
}

void perlinNoise4(const float* x, const float* y, const float* z, const float* phase, std::size_t count,
                  float* noise) {
    noise_of_points<4>({x, y, z, phase}, count, noise);
}

// ---- what is made of it

float noise3Scaled(float x, float y, float z) {
    return std::clamp(perlinNoise3(x, y, z) * 1.65f, -1.0f, 1.0f);
}

namespace {

// The sum over octaves of `noise(factor)` / factor, from the coarsest on. More than 128 change nothing: the
// next factor is infinite.
template <class Noise> float sum_octaves(int levels, Noise noise) {
    float sum = 0.0f, factor = 1.0f;
    for (int i = 0; i < std::min(levels, 128); ++i) {
        sum += std::fabs(noise(factor)) / factor;
        factor *= 2.0f;
    }
    return sum;
}

} // namespace

float fractalAbsNoise1(float x, int levels) {
    return sum_octaves(levels, [=](float factor) { return perlinNoise1(factor * x); });
}

float fractalAbsNoise2(float x, float y, int levels) {
    return sum_octaves(levels, [=](float factor) { return perlinNoise2(factor * x, factor * y); });
}

float cellRandom(int n) {
    return noise_tables.cellRandomTable[static_cast<unsigned>(n) % std::size(noise_tables.cellRandomTable)];
}

float positiveMod(float x, float m) {
    const float quotient = x / m;
    if (!(std::fabs(quotient) < 2147483648.0f)) // no int holds it
        return 0.0f;
    const float rest = x - static_cast<float>(static_cast<int>(quotient)) * m;
    return rest < 0.0f ? rest + m : rest;
}

} // namespace orl
