/*
 * Fire: its parameters with the declaration table, its life as an explosion, and the march through it.
 */
#pragma once

#include "declaration.h"
#include "gizmo.h"
#include "march.h"

namespace orl {

// ---- parameters

struct FireEffectParams {
    miColor innerColor, outerColor, smokeColor;
    miInteger flameType;
    miScalar stretch, regularity, flameSize, flameDetail, density;
    miInteger samples;
    miScalar phase, drift;
    miBoolean explosion, smoke;
    miScalar fury;
    miBoolean on;
    decl::Array<miTag> gizmos;
};

// ---- mathematics

/* Settings of a fire that its phase changes. */
struct FireSettings {
    miColor inner, outer, smoke_color;
    miScalar density, phase, fury;
    bool explosion, smoke;
};

/* A fire at one time. */
struct FireMoment {
    miColor inner, outer;
    miScalar density; // factor of a step
    miScalar phase;   // of the noise
    miScalar growth;  // of the gizmos; 0 for no fire
};

/* An explosion lives from phase 0 to 300: it grows with the root of the phase, thins out from 100 to 300, and
   with smoke turns to its colour from 100 to 200. Other fires burn on. */
FireMoment fire_at(const FireSettings& settings);

/* What flames are made of. */
struct Flames {
    NoiseSum noise;
    bool tendrils = false; // the ridges of the noise rather than its lumps
    miVector frequency{};  // of the noise
    float regularity = 1.0f;
    float density = 0.0f;
};

/* Fire along a ray so far: the opacity of its steps, and the part of it that has the inner colour. */
struct FireSums {
    float opacity = 0.0f, inner = 0.0f;
};

/* Adds the fire of a gizmo along a way in its space, in steps of `length`. */
void march_fire(const Flames& flames, const Gizmo& gizmo, const MarchWay& way, float length, FireSums& sums);

/* The colour that a ray carries after it has passed fire. */
miColor burn(const miColor& carried, const FireSums& sums, const miColor& inner, const miColor& outer);

/* The light that gets through fire: `passed` is what became of clear white. The fire tints the light and
   takes up to half of it, deliberately not all: it shines itself. */
miColor light_behind_fire(const miColor& incoming, const miColor& passed);

// ---- declaration table

namespace fire_effect_table {

using P = FireEffectParams;

inline constexpr auto fields = decl::fields<P>(
    decl::color(&P::innerColor, "innerColor", {1, 0.93f, 0.31f, 1}, "colour of dense flames"),
    decl::color(&P::outerColor, "outerColor", {0.88f, 0.12f, 0.04f, 1}, "colour of the flames' edges"),
    decl::color(&P::smokeColor, "smokeColor", {0.1f, 0.1f, 0.1f, 1}, "colour that an explosion turns to"),
    decl::integer(&P::flameType, "flameType", 1, {0, 1}, "0 fireball; 1 tendrils"),
    decl::scalar(&P::stretch, "stretch", 1, decl::not_negative, "",
                 "stretches flames along the gizmo's z axis; 0 stretches them without end"),
    decl::scalar(&P::regularity, "regularity", 0.2, decl::unit_interval, "",
                 "how much of the gizmo flames fill, from its centre: thin further out"),
    decl::scalar(&P::flameSize, "flameSize", 35, decl::not_negative, "units of the gizmo",
                 "size of a flame; 0 makes one even flame"),
    decl::scalar(&P::flameDetail, "flameDetail", 3, {0, most_octaves}, "",
                 "levels of detail; fractions blend them in"),
    decl::scalar(&P::density, "density", 15, decl::not_negative, "",
                 "brightness and opacity: 1 adds at most 0.02 of a flame in each unit"),
    decl::integer(&P::samples, "samples", 15, {0, most_steps}, "steps of a ray through each gizmo"),
    decl::scalar(
        &P::phase, "phase", 0, decl::any, "",
        "time: flames churn with it. An explosion begins at 0, is largest in force at 100, and over at 300"),
    decl::scalar(&P::drift, "drift", 0, decl::any, "units of the gizmo", "how far flames have risen"),
    decl::boolean(&P::explosion, "explosion", false, "the gizmos explode"),
    decl::boolean(&P::smoke, "smoke", true, "an explosion turns to smoke"),
    decl::scalar(&P::fury, "fury", 1, decl::not_negative, "", "how fast an explosion churns"),
    decl::boolean(&P::on, "on", true, "there is fire"),
    decl::array(&P::gizmos, miTYPE_GEOMETRY, "gizmos",
                "instances with data of type orl_GizmoData, in which it burns"));

} // namespace fire_effect_table

inline constexpr decl::Shader atm_combust[] = {
    {"orl_FireEffect", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_VOLUME), fire_effect_table::fields,
     "Flames, fireballs and explosions in gizmos: they glow, and hide what is behind them. They light "
     "nothing; light whose shadows count the atmosphere is tinted by them and dimmed to no less than a "
     "quarter."},
};

} // namespace orl
