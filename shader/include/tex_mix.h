/*
 * The mix map: two colours or maps by an amount or a third map.
 */
#pragma once

#include "map_frame.h"

namespace orl {

struct MixParams {
    miScalar mixAmount;
    miScalar lower;
    miScalar upper;
    miBoolean useCurve;
    miColor color1;
    miColor color2;
    miTag map1;
    miTag map2;
    miTag mixMap;
    miBoolean map1On;
    miBoolean map2On;
    miBoolean mixMapOn;
    miTag output;
    miInteger mtlId;
};

namespace mix_table {

using P = MixParams;

inline constexpr auto fields = decl::fields<P>(
    decl::scalar(&P::mixAmount, "mixAmount", 0, decl::unit_interval, "",
                 "share of the second input while no mixMap is active"),
    decl::scalar(&P::lower, "lower", 0.3, decl::unit_interval, "", "lower end of the mixing curve"),
    decl::scalar(&P::upper, "upper", 0.7, decl::unit_interval, "", "upper end of the mixing curve"),
    decl::boolean(&P::useCurve, "useCurve", false, "reshape the share between lower and upper"),
    decl::color(&P::color1, "color1", {0, 0, 0, 1}, "first input"),
    decl::color(&P::color2, "color2", {1, 1, 1, 1}, "second input"),
    decl::element(&P::map1, miTYPE_SHADER, "map1", "map in place of color1"),
    decl::element(&P::map2, miTYPE_SHADER, "map2", "map in place of color2"),
    decl::element(&P::mixMap, miTYPE_SHADER, "mixMap", "map whose intensity is the share"),
    decl::boolean(&P::map1On, "map1On", true, "map1 counts"),
    decl::boolean(&P::map2On, "map2On", true, "map2 counts"),
    decl::boolean(&P::mixMapOn, "mixMapOn", true, "mixMap counts"),
    decl::element(&P::output, miTYPE_SHADER, "output", "an orl_base_Output that the result passes"),
    decl::material_id(&P::mtlId, "mtlId"));

} // namespace mix_table

inline constexpr decl::Shader tex_mix[] = {
    {"orl_Mix", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_TEXTURE), mix_table::fields,
     "Map: mixes two colours or maps by an amount or a map."},
};

} // namespace orl
