/*
 * The output stage of maps, and the map that adds one to another: parameters with the declaration tables, and
 * the stage's arithmetic.
 */
#pragma once

#include "declaration.h"
#include "output_request.h"

namespace orl {

// ---- mathematics

struct Grading {
    miScalar amount, offset, level;
    bool invert, clamp, alpha_from_rgb;
};

/* Grades a colour or an intensity in place, in the order amount, offset, level, invert, clamp, alpha from the
   colour. With an intensity alpha stays and does not scale the offset. */
void grade(miColor& value, const Grading& grading, bool mono);

// ---- parameters

struct OutputStageParams {
    miScalar outputAmount;
    miScalar rgbOffset;
    miScalar rgbLevel;
    miScalar bumpAmount;
    miBoolean invert;
    miBoolean clamp;
    miBoolean alphaFromRGB;
    miBoolean useColorMap;
    miBoolean colorMapRGB;
    miTag rgbCurve;
    miTag monoCurve;
};

struct OutputMapParams {
    miTag map;
    miBoolean mapEnabled;
    miTag output;
    miInteger frameBuffer;
};

// ---- declaration tables

namespace orl_output_table {

inline constexpr auto stage = decl::fields<OutputStageParams>(
    decl::scalar(&OutputStageParams::outputAmount, "outputAmount", 1, decl::any, "",
                 "factor of the colour, not of alpha"),
    decl::scalar(&OutputStageParams::rgbOffset, "rgbOffset", 0, decl::any, "",
                 "added to the colour, as far as alpha covers it; to an intensity in full"),
    decl::scalar(&OutputStageParams::rgbLevel, "rgbLevel", 1, decl::any, "",
                 "factor of the colour and of alpha; with an intensity alpha stays"),
    decl::scalar(&OutputStageParams::bumpAmount, "bumpAmount", 1, decl::any, "", "factor of a bump"),
    decl::boolean(&OutputStageParams::invert, "invert", false, "1 minus the colour; the negative of a bump"),
    decl::boolean(&OutputStageParams::clamp, "clamp", false,
                  "colour and alpha no lower than 0 and no higher than 1; with an intensity alpha stays"),
    decl::boolean(&OutputStageParams::alphaFromRGB, "alphaFromRGB", false,
                  "alpha becomes the mean of the components; not with an intensity"),
    decl::boolean(&OutputStageParams::useColorMap, "useColorMap", false,
                  "send the components through a curve before all else"),
    decl::boolean(&OutputStageParams::colorMapRGB, "colorMapRGB", false,
                  "off: monoCurve for all components; on: rgbCurve, which is told the component's number"),
    decl::element(&OutputStageParams::rgbCurve, miTYPE_SHADER, "rgbCurve",
                  "an orl_base_Curve; none leaves the components alone"),
    decl::element(&OutputStageParams::monoCurve, miTYPE_SHADER, "monoCurve",
                  "an orl_base_Curve; none leaves the components alone"));

inline constexpr auto map = decl::fields<OutputMapParams>(
    decl::element(&OutputMapParams::map, miTYPE_SHADER, "map", "the map to show"),
    decl::boolean(&OutputMapParams::mapEnabled, "mapEnabled", true,
                  "off, as without a map: white, and no bump"),
    decl::element(&OutputMapParams::output, miTYPE_SHADER, "output",
                  "an orl_base_Output that the map's value goes through"),
    decl::integer(&OutputMapParams::frameBuffer, "frameBuffer", 0, decl::any,
                  "other than 0: what eye rays see is also written to the camera's frame buffer "
                  "\"fb_output<frameBuffer>\", for instance \"fb_output1\", which should hold colours in "
                  "single precision; it is looked up once, when the instance starts"));

} // namespace orl_output_table

inline constexpr decl::Shader orl_output[] = {
    {"orl_base_Output", miTYPE_COLOR, 1, false, false, decl::apply(miSHADER_TEXTURE), orl_output_table::stage,
     "Output stage of a map: grades the value that the map puts in front of it."},
    {"orl_Output", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_TEXTURE), orl_output_table::map,
     "A map with an output stage of its own behind it."},
};

} // namespace orl
