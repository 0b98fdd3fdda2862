/*
 * The falloff map: grey by how a surface is turned.
 */
#pragma once

#include "map_frame.h"

namespace orl {

struct FalloffParams {
    miScalar fromValue;
    miScalar toValue;
    miBoolean signedRange;
    miInteger direction;
    miInteger mtlId;
    miVector point;
};

namespace falloff_table {

using P = FalloffParams;

inline constexpr auto fields = decl::fields<P>(
    decl::scalar(&P::fromValue, "fromValue", 0, decl::any, "", "grey where the term is 0"),
    decl::scalar(&P::toValue, "toValue", 1, decl::any, "", "grey where the term is 1"),
    decl::boolean(&P::signedRange, "signedRange", false,
                  "the term is 0 for a cosine of -1 and 1 for 1; otherwise the cosine's absolute value"),
    decl::integer(&P::direction, "direction", 0, {0, 7},
                  "cosine of the normal with: 0 the viewer, 1 the direction to point, 2 to 4 the object's x, "
                  "y, z axis, 5 to 7 the world's"),
    decl::material_id(&P::mtlId, "mtlId"),
    decl::vector(&P::point, "point", {0, 0, 0}, "world space", "where direction 1 points"));

} // namespace falloff_table

inline constexpr decl::Shader tex_falloff[] = {
    {"orl_Falloff", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_TEXTURE), falloff_table::fields,
     "Map: grey by the angle between the surface and the viewer, a point or an axis."},
};

} // namespace orl
