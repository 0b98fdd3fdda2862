/*
 * What the marches through volume fog and fire share: the points at which the steps end, many at a time, and
 * the sums of noise there. Marching many steps at once gives the same bits as step by step.
 */
#pragma once

#include "mi_binding.h"

#include <algorithm>
#include <cmath>

namespace orl {

/* Steps whose noise is computed together: a multiple of four. */
inline constexpr int steps_at_once = 64;

/* No march has more steps. Scenes ask for some hundred; whoever asks for a milliard gets a march that ends,
   and for a march that fits its steps to its way, one that looks the same. It is enough for the longest way
   through fog, 100000 units, in steps of one unit. */
inline constexpr int most_steps = 1 << 17;

/* No sum of noise has more octaves: what they would add is less than half a last digit of 1. */
inline constexpr int most_octaves = 32;

struct MarchPoints {
    alignas(16) float x[steps_at_once];
    alignas(16) float y[steps_at_once];
    alignas(16) float z[steps_at_once];
};

/* A march that ends `steps` steps from its start, the last one perhaps a partial one. */
struct MarchWay {
    miVector start, step;
    float steps;

    int points() const { return static_cast<int>(std::ceil(steps)); }
};

/* Where steps first + 1 to first + count end, and as many more as make the count a multiple of four. */
void place_points(const MarchWay& way, int first, int count, MarchPoints& points);

/* (point + offset) * frequency, of all `count` points and those that fill up. */
void scale_points(const MarchPoints& points, const miVector& offset, const miVector& frequency, int count,
                  MarchPoints& scaled);

/* Sum of the noise of points, or of its absolute values, over octaves of twice the frequency and half the
   height of the one before; what `levels` is beyond a whole number weights one octave more. */
struct NoiseSum {
    float levels = 1.0f;
    bool absolute = false;
    bool moving = false; // noise of a space that changes with the phase
    float phase = 0.0f;
};

/* The sums of `count` points, which are used up. */
void sum_noise(const NoiseSum& noise, MarchPoints& points, int count, float (&sum)[steps_at_once]);

/* Steps of a march, from a setting. */
constexpr int limited_steps(miInteger steps) {
    return std::clamp(steps, 0, most_steps);
}

/* Whether atmospheres act on a ray of a light. A light whose settings leave them out has taken the volume off
   its ray; what volume shader runs nevertheless, in another's name, keeps to that. */
inline bool light_passes_atmosphere(const miState* state) {
    return state->volume != miNULLTAG;
}

} // namespace orl
