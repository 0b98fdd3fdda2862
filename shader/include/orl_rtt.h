/*
 * Render to texture: the lens that bakes an object's shading into its texture square, and the output shader
 * that fills the border of what was baked.
 */
#pragma once

#include "declaration.h"

namespace orl {

struct RttLensParams {
    miTag object;
    miInteger textureSpace;
    miTag selection;
    miScalar offset;
    miBoolean backSide;
    miInteger border;
};

inline constexpr int rtt_most_border = 250;

namespace rtt_table {

using P = RttLensParams;

inline constexpr auto lens = decl::fields<P>(
    decl::element(&P::object, miTYPE_GEOMETRY, "object", "the instance to bake, a member of the scene"),
    decl::integer(&P::textureSpace, "textureSpace", 0, decl::not_negative,
                  "which of the object's texture spaces the picture shows, counted from 0"),
    decl::element(&P::selection, miTYPE_DATA, "selection",
                  "user data with a bit for each triangle, lowest first: what is baked; without, all are"),
    decl::scalar(&P::offset, "offset", 0, decl::not_negative, "scene units",
                 "how far off the surface rays start; 0 for a ten-thousandth of the object's size. What "
                 "comes nearer to the surface hides it"),
    decl::boolean(&P::backSide, "backSide", false, "bakes what is seen from behind"),
    decl::integer(&P::border, "border", 2, {0, rtt_most_border},
                  "texels that orl_rtt_output adds around what is covered"));

} // namespace rtt_table

inline constexpr decl::Shader orl_rtt[] = {
    {"orl_rtt_lens", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_LENS), rtt_table::lens,
     "Lens: bakes an object, the picture is its texture square. Each sample looks at the point of the "
     "surface with these texture coordinates from just outside, along the normal; so do highlights and "
     "reflections, which depend on where the eye is. Alpha is 1 where a triangle was found, and 0 elsewhere. "
     "Where triangles overlap, the largest third coordinate counts, then the first triangle."},
    {"orl_rtt_output",
     miTYPE_COLOR,
     1,
     false,
     false,
     decl::apply(miSHADER_OUTPUT),
     {},
     "Output: fills the border texels that the camera's orl_rtt_lens asks for, so that lookups between "
     "texels find no background at the edge of a chart. Texels that are covered in part are filled, too."},
};

// ---- mathematics

/* The side from which a surface is seen: the interpolated normal, turned to the side of the geometric one;
   that one where the two are more than 84 degrees apart or there is no other. Both of length 1 or null. */
miVector rtt_view_normal(const miVector& geometric, const miVector& interpolated);

/* Marks which texels a border fills: `map` has width * height entries, 1 for covered texels and 0 for others.
   Afterwards a texel that the k-th step fills has k + 1. A texel is filled in the step after one of its eight
   neighbours. `border` is at most rtt_most_border. */
void rtt_mark_border(unsigned char* map, int width, int height, int border);

} // namespace orl
