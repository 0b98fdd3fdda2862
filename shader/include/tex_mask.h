/*
 * The mask map: a map seen through the intensity of another.
 */
#pragma once

#include "map_frame.h"

namespace orl {

struct MaskParams {
    miTag map1;
    miTag mask;
    miBoolean map1On;
    miBoolean maskOn;
    miBoolean invertMask;
    miInteger mtlId;
};

namespace mask_table {

using P = MaskParams;

inline constexpr auto fields = decl::fields<P>(
    decl::element(&P::map1, miTYPE_SHADER, "map1", "the map to mask; opaque white without"),
    decl::element(&P::mask, miTYPE_SHADER, "mask", "map whose intensity scales map1, alpha included"),
    decl::boolean(&P::map1On, "map1On", true, "map1 counts"),
    decl::boolean(&P::maskOn, "maskOn", true, "the mask counts"),
    decl::boolean(&P::invertMask, "invertMask", false, "dark parts of the mask show map1"),
    decl::material_id(&P::mtlId, "mtlId"));

} // namespace mask_table

inline constexpr decl::Shader tex_mask[] = {
    {"orl_Mask", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_TEXTURE), mask_table::fields,
     "Map: shows a map through a mask."},
};

} // namespace orl
