/*
 * Coordinates for maps over three dimensions: parameters with the declaration tables, and the transform that
 * places a map.
 */
#pragma once

#include "declaration.h"
#include "uv_map.h"

namespace orl {

// ---- mathematics

namespace xyz {

struct Placement {
    miVector offset;
    miVector angle; // about x, y and z, radians
    miVector tiling;
};

/* Exact, so that not a number equals nothing. */
bool operator==(const Placement& a, const Placement& b);

/* Where the axes x, y, z and the origin go: point p becomes p.x axis[0] + p.y axis[1] + p.z axis[2] + origin.
 */
struct Transform {
    miVector axis[3];
    miVector origin;
};

/* Moves by the offset, turns about x, then y, then z, counterclockwise when the axis points at the viewer,
   and scales by the tiling. */
Transform transform_of(const Placement& placement);

miVector transformed_point(const Transform& transform, const miVector& point);
miVector transformed_vector(const Transform& transform, const miVector& vector);

} // namespace xyz

// ---- parameters

/* Where coordinates come from. */
enum XyzSource : miInteger { xyz_object, xyz_map_channel, xyz_vertex_color, xyz_world };

struct XyzParams {
    miInteger coordSource;
    miInteger mapChannel;
    miVector offset;
    miVector angle;
    miVector tiling;
    miScalar blur;
    miScalar blurOffset;
};

/* The generator's argument, if any, is a GeneratorRequest, of which it takes the selector. More than the
   result is asked for by an XyzDerivRecord. */
struct XyzGeneratorResult {
    miVector point;
    miScalar w;
};
static_assert(sizeof(XyzGeneratorResult) == 16);

struct XyzCoordinateResult {
    miVector point;
    miVector width;
};

// ---- declaration tables

namespace orl_stdxyz_table {

inline constexpr auto parameters = decl::fields<XyzParams>(
    decl::integer(
        &XyzParams::coordSource, "coordSource", xyz_object, {0, 3},
        "0 object space, 1 map channel, 2 vertex colours, 3 world space; others give the zero vector"),
    decl::integer(&XyzParams::mapChannel, "mapChannel", 1, decl::any,
                  "channel of the map or the vertex colours"),
    decl::vector(&XyzParams::offset, "offset", {0, 0, 0}, "", "added to the coordinates"),
    decl::vector(&XyzParams::angle, "angle", {0, 0, 0}, "rad", "then turned about x, y and z, right-handed"),
    decl::vector(&XyzParams::tiling, "tiling", {1, 1, 1}, "", "then scaled, one factor for each axis"),
    decl::scalar(&XyzParams::blur, "blur", 1, decl::any, "", "factor of the filter's width"),
    decl::scalar(&XyzParams::blurOffset, "blurOffset", 0, decl::any, "",
                 "added to the filter's width, in units of the coordinates"));

inline constexpr auto generated =
    decl::fields<XyzGeneratorResult>(decl::vector(&XyzGeneratorResult::point, "point", {}, "", ""),
                                     decl::scalar(&XyzGeneratorResult::w, "w", 1, decl::any, "", ""));

inline constexpr auto coordinates =
    decl::fields<XyzCoordinateResult>(decl::vector(&XyzCoordinateResult::point, "point", {}, "", ""),
                                      decl::vector(&XyzCoordinateResult::width, "width", {}, "", ""));

} // namespace orl_stdxyz_table

inline constexpr decl::Shader orl_stdxyz[] = {
    {"orl_base_XYZGenerator", miTYPE_STRUCT, 2, false, true, decl::apply(miSHADER_TEXTURE),
     orl_stdxyz_table::parameters,
     "Coordinates for a map over three dimensions: the point, and w, which is always 1. Maps that call it "
     "may ask for the filter's width as well.",
     orl_stdxyz_table::generated},
    {"orl_XYZCoordinate", miTYPE_STRUCT, 2, false, true, decl::apply(miSHADER_TEXTURE),
     orl_stdxyz_table::parameters,
     "The same coordinates as a shader to connect to: the point, and the width of the filter along each "
     "axis.",
     orl_stdxyz_table::coordinates},
};

} // namespace orl
