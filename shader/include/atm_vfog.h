/*
 * Volume fog: its parameters with the declaration table, and the march through it.
 */
#pragma once

#include "declaration.h"
#include "gizmo.h"
#include "march.h"

namespace orl {

// ---- parameters

struct VolumeFogParams {
    miColor color;
    miScalar size, density, bias, phase, stepSize;
    miInteger maxSteps;
    miInteger windDirection;
    miScalar windStrength;
    miBoolean exponential;
    miInteger noiseType;
    miBoolean invert;
    miScalar levels, lowThreshold, highThreshold, softEdges;
    miBoolean fogBackground, on;
    decl::Array<miTag> gizmos;
};

// ---- mathematics

enum FogNoiseType { fog_noise_plain = 0, fog_noise_fractal = 1, fog_noise_turbulence = 2 };

/* What fog is made of. */
struct FogTexture {
    NoiseSum noise;
    bool turbulence = false; // the sum of absolute values comes to the range of the others
    float frequency = 0.0f;
    float bias = 0.0f, range = 1.0f; // range: bias + 1, at least 0.0001
    bool invert = false, thresholds = false;
    float lowThreshold = 0.0f, highThreshold = 1.0f; // in order
    float hardPart = 1.0f, softEdges = 0.0f; // of a gizmo's falloff: where edges begin, and how wide they are
};

/* A way through fog: of the points of the march, and what a step along it takes away. */
struct FogWay {
    MarchWay march;
    miVector offset;   // of the noise
    float density;     // of a whole step in the densest fog
    const Gizmo* soft; // the gizmo whose edges are soft, points being in its space; null for none
};

/* Adds the fog along a way to `sum`, the fog so far. A march stops where fog has become opaque: with linear
   fog where the sum comes to 1, which it does not exceed; with exponential fog far behind what can be seen.
 */
float march_fog(const FogTexture& fog, bool exponential, const FogWay& way, float sum);

/* Number of steps along a way of `length`, with the share of a last partial one, which does not count when it
   is the limit that ends the march. */
float count_fog_steps(float length, float step, miInteger limit);

/* The fog's share of the light for a sum of fog. */
float fog_amount(float sum, bool exponential);

/* Direction of the wind: 0 down to 5, see the declaration; the null vector for others. */
miVector wind_vector(miInteger direction);

// ---- declaration table

namespace volume_fog_table {

using P = VolumeFogParams;

inline constexpr auto fields = decl::fields<P>(
    decl::color(&P::color, "color", {1, 1, 1, 1}, "colour of the fog"),
    decl::scalar(&P::size, "size", 20, decl::not_negative, "world units, in gizmos with soft edges theirs",
                 "size of the fog's features; 0 makes even fog, whose density the bias decides"),
    decl::scalar(&P::density, "density", 20, decl::not_negative, "",
                 "how much fog there is: 1 takes at most 0.002 of the light in each unit"),
    decl::scalar(&P::bias, "bias", 0, decl::any, "", "added to the noise: more fog in fewer lumps"),
    decl::scalar(&P::phase, "phase", 0, decl::any, "",
                 "time: the fog changes with it, and drifts with the wind; 0 is a still of its own"),
    decl::scalar(&P::stepSize, "stepSize", 4, decl::not_negative, "world units",
                 "length of the steps in which a ray is followed; 0 makes no fog"),
    decl::integer(
        &P::maxSteps, "maxSteps", 50, {0, most_steps},
        "most steps along a ray; in each gizmo, where they are as long as that takes, their number"),
    decl::integer(&P::windDirection, "windDirection", 0, {0, 5},
                  "where the fog's pattern is looked up with time: 0 -y, 1 y, 2 -x, 3 x, 4 z, 5 -z"),
    decl::scalar(&P::windStrength, "windStrength", 0, decl::any, "world units",
                 "how far it has gone at phase 1"),
    decl::boolean(&P::exponential, "exponential", false,
                  "every step takes its share of what is left; off: fog adds up until it is opaque"),
    decl::integer(&P::noiseType, "noiseType", fog_noise_turbulence, {0, 2},
                  "0 plain noise, one level; 1 fractal noise; 2 turbulence"),
    decl::boolean(&P::invert, "invert", false, "fog where there was none, and the other way round"),
    decl::scalar(&P::levels, "levels", 3, {0, most_octaves}, "", "levels of detail; fractions blend them in"),
    decl::scalar(&P::lowThreshold, "lowThreshold", 0, decl::unit_interval, "", "below it there is no fog"),
    decl::scalar(&P::highThreshold, "highThreshold", 1, decl::unit_interval, "",
                 "above it fog is as dense as it gets; both thresholds 0 leave the noise as it is"),
    decl::scalar(&P::softEdges, "softEdges", 0.2, decl::unit_interval, "",
                 "share of a gizmo, from its surface inwards, in which fog thins out. With 0, fog has its "
                 "place in the world, and gizmos only show it"),
    decl::boolean(&P::fogBackground, "fogBackground", true,
                  "fog before what rays without a hit see; it takes gizmos to do so"),
    decl::boolean(&P::on, "on", true, "there is fog"),
    decl::array(&P::gizmos, miTYPE_GEOMETRY, "gizmos",
                "instances with data of type orl_GizmoData, which fog fills; without any it is everywhere"));

} // namespace volume_fog_table

inline constexpr decl::Shader atm_vfog[] = {
    {"orl_VolumeFog", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_VOLUME), volume_fog_table::fields,
     "Fog of uneven density, everywhere or in gizmos. Rays of lights lose light to it where their lights "
     "have shadows of the atmosphere. Ways of more than 100000 units, of a ray or of the part of it in a "
     "gizmo, have no fog. Not in the material editor."},
};

} // namespace orl
