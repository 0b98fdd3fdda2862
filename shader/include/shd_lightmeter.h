/* Light meters: parameters. */
#pragma once

#include "declaration.h"

namespace orl {

struct LightMeterParams {
    miTag texture;
    miInteger samples;
    miScalar factor;
    miInteger pass;
};

inline constexpr auto light_meter_fields = decl::fields<LightMeterParams>(
    decl::element(
        &LightMeterParams::texture, miTYPE_COLOR_TEX, "texture",
        "writable texture for the measurements: direct, indirect and all light in red, green and blue"),
    decl::integer(&LightMeterParams::samples, "samples", 1, {1, 1e9}, "measurements for each point"),
    decl::scalar(&LightMeterParams::factor, "factor", 1, decl::any, "",
                 "multiplies the measurements, to turn them into the host's units"),
    decl::integer(&LightMeterParams::pass, "pass", 0, decl::any, "number of the meter, for its progress"));

inline constexpr decl::Shader shd_lightmeter[] = {
    {"orl_LightMeterLightMap", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_LIGHTMAP),
     light_meter_fields,
     "Light map: measures the light at each vertex. Texture coordinates of the meter count pixels."},
    {"orl_LightMeterMaterial",
     miTYPE_COLOR,
     1,
     false,
     false,
     decl::apply(miSHADER_MATERIAL),
     {},
     "Material of light meters: does nothing, the light map does the work."},
};

} // namespace orl
