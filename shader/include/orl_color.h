/*
 * Colours by temperature, and plain colours: parameters with the declaration tables, and the light of a black
 * body.
 */
#pragma once

#include "declaration.h"

namespace orl {

// ---- mathematics

struct CieXyz {
    double x, y, z;
};

/* Light of a black body of that temperature (K), in relative units: its spectrum (Max Planck, "Ueber das
   Gesetz der Energieverteilung im Normalspectrum", 1901) seen by the CIE 1931 2 degree standard observer, by
   the trapezoidal rule over 380 to 780 nm in steps of 10 nm. Temperatures are not checked: below some 28 K
   the exponentials overflow, and what comes out is no light at all. */
CieXyz black_body_xyz(double temperature);

/* Colour of a black body of that temperature (K; 0 stands for 6500) and luminance Y (0 stands for 1), as CIE
   XYZ in r, g and b with alpha 1, adapted so that 6500 K is the white of D65 displays. Linear in the
   luminance, which the adaptation changes by less than 0.01 of it above 1000 K. Not a number where there is
   no light. */
miColor black_body_color(miScalar temperature, miScalar luminance);

// ---- parameters

struct KelvinToColorParams {
    miScalar temperature;
    miScalar intensity;
};

struct ColorParams {
    miColor color;
};

// ---- declaration tables

namespace color_table {

inline constexpr auto kelvin_to_color = decl::fields<KelvinToColorParams>(
    decl::scalar(&KelvinToColorParams::temperature, "temperature", 6500, decl::not_negative, "K",
                 "colour temperature, 0 for 6500; below 28 there is no light to make a colour of: black"),
    decl::scalar(&KelvinToColorParams::intensity, "intensity", 1, decl::not_negative, "",
                 "luminance (CIE Y) of the colour, 0 for 1"));

inline constexpr auto color =
    decl::fields<ColorParams>(decl::color(&ColorParams::color, "color", {1, 1, 1, 1}, "colour to return"));

} // namespace color_table

// Not called as the unit is: one of its shaders is.
inline constexpr decl::Shader color_shaders[] = {
    {"zant_KelvinToColor", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_TEXTURE),
     color_table::kelvin_to_color,
     "Colour of a black body by its temperature, for the colours of lights. It is computed once for each "
     "instance: what the parameters are connected to is read then and not again."},
    {"orl_color", miTYPE_COLOR, 1, false, false, decl::apply(miSHADER_TEXTURE), color_table::color,
     "A plain colour."},
};

} // namespace orl
