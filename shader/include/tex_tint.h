/*
 * The tint map: what a map's red, green and blue turn into.
 */
#pragma once

#include "map_frame.h"

namespace orl {

struct TintParams {
    miColor tintRed;
    miColor tintGreen;
    miColor tintBlue;
    miTag map1;
    miBoolean map1On;
    miInteger mtlId;
};

namespace tint_table {

using P = TintParams;

inline constexpr auto fields = decl::fields<P>(
    decl::color(&P::tintRed, "tintRed", {1, 0, 0, 1},
                "what the map's red is mapped to; alpha does not count"),
    decl::color(&P::tintGreen, "tintGreen", {0, 1, 0, 1}, "the same for green"),
    decl::color(&P::tintBlue, "tintBlue", {0, 0, 1, 1}, "the same for blue"),
    decl::element(&P::map1, miTYPE_SHADER, "map1", "the map to tint; opaque white without"),
    decl::boolean(&P::map1On, "map1On", true, "map1 counts"), decl::material_id(&P::mtlId, "mtlId"));

} // namespace tint_table

inline constexpr decl::Shader tex_tint[] = {
    {"orl_Tint", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_TEXTURE), tint_table::fields,
     "Map: mixes the channels of a map anew. Bumps pass untinted."},
};

} // namespace orl
