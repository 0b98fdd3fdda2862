/*
 * The photographic tone operator: its parameters with the declaration table.
 */
#pragma once

#include "declaration.h"

namespace orl {

struct ToneOpPhotoParams {
    miBoolean enabled;
    miBoolean processBackground;
    miScalar physicalScale;
    miColor whitePoint;
    miScalar filmSpeed;
    miScalar shutterSpeed;
    miScalar fNumber;
    miScalar vignetting;
    miScalar burnHighlights;
    miScalar gamma;
};

namespace orl_toneopphoto_table {

inline constexpr auto photo = decl::fields<ToneOpPhotoParams>(
    decl::boolean(&ToneOpPhotoParams::enabled, "enabled", true, "map colours"),
    decl::boolean(&ToneOpPhotoParams::processBackground, "processBackground", false,
                  "map the background and the environment too"),
    decl::scalar(&ToneOpPhotoParams::physicalScale, "physicalScale", 1500, decl::not_negative, "cd",
                 "luminous intensity that a light of multiplier 1 stands for"),
    decl::color(&ToneOpPhotoParams::whitePoint, "whitePoint", {1, 1, 1, 1}, "colour that is to look white"),
    decl::scalar(&ToneOpPhotoParams::filmSpeed, "filmSpeed", 100, decl::not_negative, "ISO",
                 "speed of the film; 0: physicalScale alone is the exposure"),
    decl::scalar(&ToneOpPhotoParams::shutterSpeed, "shutterSpeed", 60, decl::not_negative, "1/s",
                 "1 / exposure time"),
    decl::scalar(&ToneOpPhotoParams::fNumber, "fNumber", 4, decl::not_negative, "",
                 "focal length / aperture"),
    decl::scalar(&ToneOpPhotoParams::vignetting, "vignetting", 0, decl::not_negative, "",
                 "darkening towards the corners: power of the cosine; 4 for a simple lens"),
    decl::scalar(&ToneOpPhotoParams::burnHighlights, "burnHighlights", 0.25, decl::unit_interval, "",
                 "0: all highlights are kept; 1: none"),
    decl::scalar(&ToneOpPhotoParams::gamma, "gamma", 1, {0.01, 10}, "", "gamma of the display"));

} // namespace orl_toneopphoto_table

inline constexpr decl::Shader orl_toneopphoto[] = {
    {"orl_ToneOpPhoto", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_LENS, miSHADER_ENVIRONMENT),
     orl_toneopphoto_table::photo,
     "Photographic exposure: film, shutter and aperture of a camera. Read once for each render. The mapping "
     "is that of the renderer's library \"architectural\"; where that cannot be loaded, colours pass as they "
     "are, and a warning says so."},
};

} // namespace orl
