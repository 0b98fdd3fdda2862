/*
 * The checker map: squares of two colours or maps, filtered without sampling.
 */
#pragma once

#include "map_frame.h"

namespace orl {

/* Running integral of a square wave that is 1 on the upper half of every unit interval. */
miScalar square_wave_integral(miScalar x);

/* Share of the second kind of square in the box around (u, v) with the edges wu and wv; at the point itself
   when one of them is 0. */
miScalar checker_share(miScalar u, miScalar v, miScalar wu, miScalar wv);

struct CheckerParams {
    miScalar soften;
    miColor color1;
    miColor color2;
    miTag map1;
    miTag map2;
    miBoolean map1On;
    miBoolean map2On;
    miTag coords;
    miInteger mtlId;
};

namespace checker_table {

using P = CheckerParams;

inline constexpr auto fields =
    decl::fields<P>(decl::scalar(&P::soften, "soften", 0, decl::any, "squares / 2",
                                 "added to the width of the filter in u and in v: blurs the edges"),
                    decl::color(&P::color1, "color1", {0, 0, 0, 1},
                                "colour of the squares where u and v lie in unlike halves"),
                    decl::color(&P::color2, "color2", {1, 1, 1, 1}, "colour of the others"),
                    decl::element(&P::map1, miTYPE_SHADER, "map1", "map in place of color1"),
                    decl::element(&P::map2, miTYPE_SHADER, "map2", "map in place of color2"),
                    decl::boolean(&P::map1On, "map1On", true, "map1 counts"),
                    decl::boolean(&P::map2On, "map2On", true, "map2 counts"),
                    decl::element(&P::coords, miTYPE_SHADER, "coords",
                                  "an orl_base_UVGenerator; without one the map is transparent"),
                    decl::material_id(&P::mtlId, "mtlId"));

} // namespace checker_table

inline constexpr decl::Shader tex_checker[] = {
    {"orl_Checker", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_TEXTURE), checker_table::fields,
     "Map: a checkerboard of two colours or maps, two by two squares for each unit of u and v."},
};

} // namespace orl
