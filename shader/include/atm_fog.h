/*
 * Distance fog: fog that grows with the distance from the camera, and fog in a level layer.
 */
#pragma once

#include "declaration.h"

namespace orl {

struct FogParams {
    miColor color;
    miBoolean useColorMap;
    miBoolean useOpacityMap;
    miBoolean fogBackground;
    miInteger type;
    miScalar nearAmount;
    miScalar farAmount;
    miScalar top;
    miScalar bottom;
    miScalar density;
    miInteger falloff;
    miBoolean horizonNoise;
    miScalar noiseSize;
    miScalar noiseAngle;
    miScalar noisePhase;
    miBoolean exponential;
    miBoolean active;
    miTag colorMap;
    miTag opacityMap;
};

/* How standard fog grows with the distance from the plane of the eye: from one value at `near_range` to
   another at `far_range`, level before and behind. */
struct FogRange {
    miScalar nearValue, farValue;
    miScalar rangeNear, rangeFar;
    miScalar slope;
};
miScalar fog_value(const FogRange& range, miScalar depth);

/* The exponent whose fog is the amount x: -ln(1 - x), for at least a thousandth of light left. */
miScalar fog_exponent(miScalar x);

/* A level layer of fog. Whoever crosses one of thickness 0 has all of it. */
struct FogLayer {
    enum { towards_top, towards_bottom, none };
    miScalar bottom, thickness;
    miScalar density;
    miInteger falloff;
};

/* Exponent of the fog, not positive, between two heights of which `low` is below `high`, a horizontal
   `distance` apart. */
miScalar layer_exponent(const FogLayer& layer, miScalar low, miScalar high, miScalar distance);

/* Factor of the horizon's noise for a direction of length 1 in world space. */
miScalar horizon_factor(const miVector& dir, miScalar angle, miScalar scale, miScalar phase);

namespace fog_table {

using P = FogParams;

inline constexpr auto fields = decl::fields<P>(
    decl::color(&P::color, "color", {1, 1, 1, 1}, "colour of the fog"),
    decl::boolean(&P::useColorMap, "useColorMap", true, "colorMap counts, where there is one"),
    decl::boolean(&P::useOpacityMap, "useOpacityMap", true, "opacityMap counts, where there is one"),
    decl::boolean(&P::fogBackground, "fogBackground", true, "rays that hit nothing are fogged as well"),
    decl::integer(&P::type, "type", 0, decl::any, "0 by distance from the camera, otherwise in a layer"),
    decl::scalar(&P::nearAmount, "nearAmount", 0, decl::unit_interval, "",
                 "by distance: amount of fog up to the near_range of the camera's orl_CameraData. Without "
                 "that record the amounts themselves are the ranges: fog within one scene unit"),
    decl::scalar(&P::farAmount, "farAmount", 1, decl::unit_interval, "", "amount from its far_range on"),
    decl::scalar(&P::top, "top", 100, decl::any, "scene units",
                 "layer: height of one of its sides, world space"),
    decl::scalar(&P::bottom, "bottom", 0, decl::any, "scene units", "layer: height of the other"),
    decl::scalar(&P::density, "density", 50, decl::not_negative, "per cent",
                 "layer: density. A path through all of it is fogged by its horizontal length for each scene "
                 "unit of its rise"),
    decl::integer(&P::falloff, "falloff", FogLayer::none, {0, 2},
                  "layer: thins out 0 towards the top, 1 towards the bottom, 2 not at all"),
    decl::boolean(&P::horizonNoise, "horizonNoise", false,
                  "layer: noise near the horizon, on which fog vanishes"),
    decl::scalar(&P::noiseSize, "noiseSize", 20, decl::any, "", "size of the noise"),
    decl::scalar(&P::noiseAngle, "noiseAngle", 0.087, decl::not_negative, "radians",
                 "elevation from the horizon within which the noise acts"),
    decl::scalar(&P::noisePhase, "noisePhase", 0, decl::any, "", "moves the noise: for animation"),
    decl::boolean(&P::exponential, "exponential", false,
                  "by distance: thickens exponentially; for transparent objects"),
    decl::boolean(&P::active, "active", true, "off: no fog"),
    decl::element(&P::colorMap, miTYPE_SHADER, "colorMap", "map in place of color"),
    decl::element(&P::opacityMap, miTYPE_SHADER, "opacityMap", "map that scales the density, by channel"));

} // namespace fog_table

inline constexpr decl::Shader atm_fog[] = {
    {"orl_Fog", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_VOLUME), fog_table::fields,
     "Volume: fog that grows with distance or lies in a level layer. For the camera's volume; acts on eye "
     "rays and on rays through transparent surfaces."},
};

} // namespace orl
