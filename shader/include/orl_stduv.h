/* Coordinate generators over (u, v): parameters. */
#pragma once

#include "declaration.h"

namespace orl {

enum EnvironmentMapping {
    mapping_spherical = 1,
    mapping_cylindrical = 2,
    mapping_shrink_wrap = 3,
    mapping_screen_part = 4, // of a picture that is larger than the rendered one
    mapping_screen = 5
};

enum UvwSource { uvw_map_channel = 0, uvw_object_xyz = 1, uvw_vertex_color = 2, uvw_world_xyz = 3 };

struct UVGeneratorParams {
    miBoolean isEnvironment;
    miInteger mappingType;
    miInteger mapChannel;
    miInteger uvwSource;
    miBoolean showMapOnBack;
    miScalar uOffset;
    miScalar uTiling;
    miBoolean uTile;
    miBoolean uMirror;
    miScalar vOffset;
    miScalar vTiling;
    miBoolean vTile;
    miBoolean vMirror;
    miScalar uAngle;
    miScalar vAngle;
    miScalar wAngle;
    miInteger axis;
    miBoolean wrapPlain;
    miScalar blur;
    miScalar blurOffset;
    miBoolean noiseOn;
    miBoolean noiseAnimate;
    miScalar noiseAmount;
    miScalar noiseSize;
    miInteger noiseLevels;
    miScalar noisePhase;
    miBoolean centerAtOrigin;
    miInteger screenParam1;
    miInteger screenParam2;
    miInteger screenParam3;
    miInteger screenParam4;
};

/* What the stand-alone generator gives. */
struct UVCoordinateResult {
    miVector uvw;
    miVector duvw;
};

inline constexpr auto uv_generator_fields = decl::fields<UVGeneratorParams>(
    decl::boolean(&UVGeneratorParams::isEnvironment, "isEnvironment", false,
                  "the map lies around the scene; off: on the surface"),
    decl::integer(&UVGeneratorParams::mappingType, "mappingType", mapping_spherical, {1, 5},
                  "environments: 1 spherical, 2 cylindrical, 3 shrink-wrap, 4 part of the screen, 5 screen"),
    decl::integer(&UVGeneratorParams::mapChannel, "mapChannel", 1, decl::not_negative,
                  "map channel of sources 0 and 2"),
    decl::integer(&UVGeneratorParams::uvwSource, "uvwSource", uvw_map_channel, {0, 3},
                  "surfaces: 0 map channel, 1 planar in object space, 2 vertex colour channel, 3 planar in "
                  "world space"),
    decl::boolean(&UVGeneratorParams::showMapOnBack, "showMapOnBack", true,
                  "a map that neither tiles nor mirrors also shows on faces seen from behind"),
    decl::scalar(&UVGeneratorParams::uOffset, "uOffset", 0, decl::any, "", "moves the map along u"),
    decl::scalar(&UVGeneratorParams::uTiling, "uTiling", 1, decl::any, "",
                 "how often the map fits into the unit square; negative: the other way round"),
    decl::boolean(&UVGeneratorParams::uTile, "uTile", true, "the map repeats along u"),
    decl::boolean(&UVGeneratorParams::uMirror, "uMirror", false,
                  "the map repeats along u, every other one mirrored; `uTile` goes first"),
    decl::scalar(&UVGeneratorParams::vOffset, "vOffset", 0, decl::any, "", "moves the map along v"),
    decl::scalar(&UVGeneratorParams::vTiling, "vTiling", 1, decl::any, "", "see uTiling"),
    decl::boolean(&UVGeneratorParams::vTile, "vTile", true, "the map repeats along v"),
    decl::boolean(&UVGeneratorParams::vMirror, "vMirror", false,
                  "the map repeats along v, every other one mirrored; `vTile` goes first"),
    decl::scalar(&UVGeneratorParams::uAngle, "uAngle", 0, decl::any, "radians",
                 "turn of a surface's coordinates about u, the first"),
    decl::scalar(&UVGeneratorParams::vAngle, "vAngle", 0, decl::any, "radians", "about v, the second turn"),
    decl::scalar(&UVGeneratorParams::wAngle, "wAngle", 0, decl::any, "radians",
                 "about w, the third turn, and the only one of environments"),
    decl::integer(&UVGeneratorParams::axis, "axis", 0, {0, 2},
                  "plane of a surface's coordinates on which the map lies: 0 UV, 1 VW, 2 WU"),
    decl::boolean(&UVGeneratorParams::wrapPlain, "wrapPlain", true,
                  "maps that the generator samples: mirrored ones run up and down once for each tile; off: "
                  "beyond their borders and back"),
    decl::scalar(&UVGeneratorParams::blur, "blur", 1, decl::not_negative, "",
                 "factor of the widths that the map is filtered over"),
    decl::scalar(&UVGeneratorParams::blurOffset, "blurOffset", 0, decl::any, "texture widths",
                 "added to the widths"),
    decl::boolean(&UVGeneratorParams::noiseOn, "noiseOn", false, "noise displaces u and v"),
    decl::boolean(&UVGeneratorParams::noiseAnimate, "noiseAnimate", false,
                  "the noise changes with `noisePhase`"),
    decl::scalar(&UVGeneratorParams::noiseAmount, "noiseAmount", 1, {0, 100}, "", "strength of the noise"),
    decl::scalar(&UVGeneratorParams::noiseSize, "noiseSize", 1, {0.001, 100}, "texture widths",
                 "size of the noise's largest features; none at 0"),
    decl::integer(&UVGeneratorParams::noiseLevels, "noiseLevels", 1, {1, 10},
                  "octaves of the noise, each half as large as the one before; none at 0"),
    decl::scalar(&UVGeneratorParams::noisePhase, "noisePhase", 0, decl::any, "", "time of animated noise"),
    decl::boolean(&UVGeneratorParams::centerAtOrigin, "centerAtOrigin", false,
                  "turns and tilings keep the point (0, 0) where it is; off: the middle of the map"),
    decl::integer(
        &UVGeneratorParams::screenParam1, "screenParam1", 0, decl::any,
        "screen mappings: width in pixels of the picture that the map covers; 0 for the rendered one"),
    decl::integer(&UVGeneratorParams::screenParam2, "screenParam2", 0, decl::any, "its height in pixels"),
    decl::integer(&UVGeneratorParams::screenParam3, "screenParam3", 0, decl::any,
                  "mapping 4: where the rendered part begins in it, pixels from the left"),
    decl::integer(&UVGeneratorParams::screenParam4, "screenParam4", 0, decl::any,
                  "mapping 4: likewise from below"));

inline constexpr auto uv_coordinate_result_fields = decl::fields<UVCoordinateResult>(
    decl::vector(&UVCoordinateResult::uvw, "uvw", {}, "", "texture coordinate"),
    decl::vector(&UVCoordinateResult::duvw, "duvw", {}, "", "widths to filter over"));

inline constexpr decl::Shader orl_stduv[] = {
    {"orl_base_UVGenerator", miTYPE_VECTOR, 4, true, true, decl::apply(miSHADER_TEXTURE), uv_generator_fields,
     "Texture coordinates of a map over (u, v): from the surface, or around the scene. Asked to, it samples "
     "the map itself."},
    {"orl_UVCoordinate", miTYPE_STRUCT, 3, true, true, decl::apply(miSHADER_TEXTURE), uv_generator_fields,
     "Texture coordinates and the widths to filter over, for shaders that take coordinates as an input.",
     uv_coordinate_result_fields},
};

} // namespace orl
