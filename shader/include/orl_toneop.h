/*
 * Tone operators: lens shaders that turn the high dynamic range of a sample into what a display shows. Their
 * parameters with the declaration tables, their mathematics, and what the operators have in common.
 *
 * Luminances are weighted 0.263 r + 0.655 g + 0.082 b, the host's measure of exposure.
 */
#pragma once

#include "declaration.h"
#include "orlshaderapi.h"

namespace orl {

// ---- what all operators share

/* Luminance of a colour, whatever the signs of its components. */
miScalar exposure_luminance(const miColor& color);

/* Runs an operator. As a lens it traces the eye ray with its mapping published for the shaders within and
   maps the result; otherwise it maps the colour in `result`. A background that its sky shader left unmapped
   shows through as it is, unless the operator processes backgrounds. A mapping that is null changes nothing.
 */
miBoolean run_tone_operator(miColor* result, miState* state, bool enabled, const ToneOpHook& hook);

// ---- logarithmic exposure

struct ToneOpLogParams {
    miBoolean enabled;
    miScalar physicalScale;
    miBoolean whiteBalanceOn;
    miBoolean desaturateLowLevels;
    miColor whiteBalance;
    miBoolean processBackground;
    miScalar brightness;
    miScalar contrast;
    miScalar midTones;
    miBoolean exteriorDaylightA;
    miBoolean exteriorDaylightB;
    miBoolean luminanceBased;
};

/* The curve L(x) = A x / (B x + C), applied to colours in units of the scene's physical scale. */
struct LogMapping {
    miScalar a, b, c;
    miScalar scale;
    miScalar white[3]; /* factors of the white balance */
    miBoolean desaturateLowLevels;
    miBoolean enabled;
    miBoolean processBackground;
    miBoolean whiteBalanceOn;
    miBoolean perChannel;
    /* What the inverse divides by: infinite where the factor is 0, since nothing comes back from black. */
    miScalar scaleDivisor;
    miScalar whiteDivisor[3];
};

/* Works the curve out from a parameter block whose values are literals. */
LogMapping log_mapping(const ToneOpLogParams& values);

/* Alpha stays in both directions. The inverse does not bring saturation back; near the curve's upper end,
   where whole decades meet in the last bits of the mapped colour, it brings back the order of magnitude only.
 */
miColor map_log(const LogMapping& mapping, const miColor& color);
miColor unmap_log(const LogMapping& mapping, const miColor& color);

// ---- pseudo-colour exposure

enum PseudoQuantity { pseudo_illuminance = 0, pseudo_luminance = 1 };

struct ToneOpPseudoParams {
    miScalar lowLimit;
    miScalar highLimit;
    miInteger quantity;
    miBoolean greyScale;
    miScalar scale;
    miInteger unused;
    miBoolean linear;
    miBoolean footCandles;
    miBoolean enabled;
    miBoolean processBackground;
    miInteger levels;
};

struct PseudoMapping {
    const miColor* palette; /* `levels` entries; null when there was no memory: colours stay */
    miInteger levels;
    miScalar lastLevel; /* levels - 1 */
    miScalar linearFactor;
    miScalar inverseOfLow; /* 1 / (low limit + 1) */
    miScalar logFactor;
    miScalar
        logError; /* of places from the estimate of the logarithm; infinite: only the exact one will do */
    miScalar lowLimit, highLimit; /* lux or candela per square metre */
};

/* Entry of the palettes from blue to red and from black to white; alpha 1. */
miColor pseudo_color(miInteger entry, miInteger levels);
miColor pseudo_grey(miInteger entry, miInteger levels);

/* Number of levels that a parameter asks for: 100 when it asks for none, and never more than a palette can
   hold. */
miInteger pseudo_levels(miInteger parameter);

/* Limits and factors, from a parameter block whose values are literals; without the palette. */
PseudoMapping pseudo_mapping(const ToneOpPseudoParams& values);

/* Palette entry for a luminance or illuminance. */
miInteger pseudo_level(const PseudoMapping& mapping, bool linear, miScalar value);

// ---- declaration tables

namespace orl_toneop_table {

inline constexpr auto log = decl::fields<ToneOpLogParams>(
    decl::boolean(&ToneOpLogParams::enabled, "enabled", true, "map colours"),
    decl::scalar(&ToneOpLogParams::physicalScale, "physicalScale", 1500, decl::not_negative, "cd",
                 "luminous intensity that a light of multiplier 1 stands for"),
    decl::boolean(&ToneOpLogParams::whiteBalanceOn, "whiteBalanceOn", false, "correct for `whiteBalance`"),
    decl::boolean(&ToneOpLogParams::desaturateLowLevels, "desaturateLowLevels", false,
                  "dim colours turn grey, as in the eye's night vision"),
    decl::color(&ToneOpLogParams::whiteBalance, "whiteBalance", {1, 1, 1, 1}, "colour that is to look white"),
    decl::boolean(&ToneOpLogParams::processBackground, "processBackground", false,
                  "map the background and the environment too"),
    decl::scalar(&ToneOpLogParams::brightness, "brightness", 65, {0, 200}, "", "below 0 counts as 0"),
    decl::scalar(&ToneOpLogParams::contrast, "contrast", 50, {0, 100}, "",
                 "how far shadows and highlights are apart"),
    decl::scalar(&ToneOpLogParams::midTones, "midTones", 1, {0.01, 20}, "", "position of the middle tones"),
    decl::boolean(&ToneOpLogParams::exteriorDaylightA, "exteriorDaylightA", false,
                  "both daylight switches together: exposed for sunlight"),
    decl::boolean(&ToneOpLogParams::exteriorDaylightB, "exteriorDaylightB", false, "see exteriorDaylightA"),
    decl::boolean(&ToneOpLogParams::luminanceBased, "luminanceBased", true,
                  "map the luminance and keep the hue; off: each component on its own"));

inline constexpr auto pseudo = decl::fields<ToneOpPseudoParams>(
    decl::scalar(&ToneOpPseudoParams::lowLimit, "lowLimit", 6, decl::not_negative, "lx or cd/m2",
                 "value of the first colour"),
    decl::scalar(&ToneOpPseudoParams::highLimit, "highLimit", 200, decl::not_negative, "lx or cd/m2",
                 "value of the last colour"),
    decl::integer(&ToneOpPseudoParams::quantity, "quantity", pseudo_luminance, {0, 1},
                  "0 illuminance, 1 luminance"),
    decl::boolean(&ToneOpPseudoParams::greyScale, "greyScale", false, "greys instead of colours"),
    decl::scalar(&ToneOpPseudoParams::scale, "scale", 1, decl::not_negative, "",
                 "physical value that a colour of 1 stands for"),
    decl::integer(&ToneOpPseudoParams::unused, "unused", 0, decl::any, "not read"),
    decl::boolean(&ToneOpPseudoParams::linear, "linear", false, "even steps; off: logarithmic ones"),
    decl::boolean(&ToneOpPseudoParams::footCandles, "footCandles", false, "the limits are in foot-candles"),
    decl::boolean(&ToneOpPseudoParams::enabled, "enabled", true, "map colours"),
    decl::boolean(&ToneOpPseudoParams::processBackground, "processBackground", false,
                  "map the background and the environment too"),
    decl::integer(&ToneOpPseudoParams::levels, "levels", 100, decl::not_negative,
                  "number of colours; 0 means 100"));

} // namespace orl_toneop_table

// clang-format off
inline constexpr decl::Shader orl_toneop[] = {
    {"orl_ToneOpLog", miTYPE_COLOR, 2, true, true, decl::apply(miSHADER_LENS, miSHADER_ENVIRONMENT),
     orl_toneop_table::log, "Logarithmic exposure: a curve that keeps shadows and highlights readable. Read once for each render."},
    {"orl_ToneOpPseudo", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_LENS, miSHADER_ENVIRONMENT),
     orl_toneop_table::pseudo, "Pseudo-colour exposure: shows amounts of light as colours of a scale. Read once for each render."},
};
// clang-format on

} // namespace orl
