/*
 * The gradient noise behind maps and atmospheres (Ken Perlin, An image synthesizer, 1985), over tables that
 * all instances of the process share. Any coordinates are good: of those that are not numbers or have no
 * cell of the lattice the fraction counts as 0, so that the result is finite.
 */
#pragma once

#include "mi_binding.h"
#include "numeric.h"

#include <cstddef>

namespace orl {

/* Builds the tables, once for the process; to be called from the init of every shader that uses noise.
   The C run-time's generator is left as after srand(1). */
void noiseTablesInit(miState* state);

/* Gradient noise, about -1 to 1; 0 where all coordinates are whole. It repeats every 512 units. */
float perlinNoise1(float x);
float perlinNoise2(float x, float y);
float perlinNoise3(float x, float y, float z);

/* The same in a space that changes with a phase, which may be time. */
float perlinNoise4(float x, float y, float z, float phase);

/* The noise of `count` points, to the same bits: for the steps of a march and the octaves of a sum. Quicker
   than a call for each, most of all where four points in a row share a cell of the lattice. A result may
   stand in the place of one of its own coordinates. */
void perlinNoise3(const float* x, const float* y, const float* z, std::size_t count, float* noise);
void perlinNoise4(const float* x, const float* y, const float* z, const float* phase, std::size_t count,
                  float* noise);

/* perlinNoise3 stretched to the range -1 to 1 and clamped to it. */
float noise3Scaled(float x, float y, float z);

/* Sum of the noise's absolute values over `levels` octaves, each of twice the frequency and half the height
   of the one before; 0 for fewer than one. */
float fractalAbsNoise1(float x, int levels);
float fractalAbsNoise2(float x, float y, int levels);

/* Entry n of a table of 10000 random numbers from 0 to 1, which repeats. n is not negative. */
float cellRandom(int n);

/* 0 below a, 1 from b on, smooth between. */
inline float smoothStep(float a, float b, float x) {
    if (!(x >= a)) // also what is not a number
        return 0.0f;
    if (!(x < b))
        return 1.0f;
    return smooth_ramp((x - a) / (b - a));
}

/* x modulo m, not negative for positive m. 0 where x holds no digits below m, and where m is 0. */
float positiveMod(float x, float m);

} // namespace orl
