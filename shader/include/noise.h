/*
 * The gradient noise behind maps and atmospheres (Ken Perlin, An image synthesizer, 1985), over tables that
 * all instances of the process share.
 */
#pragma once

#include "mi_binding.h"

namespace orl {

/* Builds the tables, once for the process; to be called from the init of every shader that uses noise. */
void noiseTablesInit(miState* state);

/* Gradient noise, about -1 to 1; 0 where all coordinates are whole. */
float perlinNoise1(float x);
float perlinNoise2(float x, float y);
float perlinNoise3(float x, float y, float z);

/* perlinNoise3 stretched to the range -1 to 1 and clamped to it. */
float noise3Scaled(float x, float y, float z);

/* Sum of the noise's absolute values over `levels` octaves, each of twice the frequency and half the height
   of the one before; 0 for fewer than one. */
float fractalAbsNoise1(float x, int levels);
float fractalAbsNoise2(float x, float y, int levels);

/* Entry n of a table of 10000 random numbers from 0 to 1, which repeats. n is not negative. */
float cellRandom(int n);

/* 0 below a, 1 from b on, smooth between. */
float smoothStep(float a, float b, float x);

/* x modulo m, not negative for positive m. */
float positiveMod(float x, float m);

} // namespace orl
