/* The bump shader: parameters. */
#pragma once

#include "declaration.h"

namespace orl {

struct BumpParams {
    miScalar bumpAmount;
    miTag bumpMap;
};

inline constexpr auto bump_fields = decl::fields<BumpParams>(
    decl::scalar(&BumpParams::bumpAmount, "bumpAmount", 1, decl::any, "",
                 "height of the bumps; negative turns them into dents"),
    decl::element(&BumpParams::bumpMap, miTYPE_SHADER, "bumpMap", "map whose intensity is the height"));

inline constexpr decl::Shader orl_bump[] = {
    {"orl_Bump", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_MATERIAL, miSHADER_TEXTURE), bump_fields,
     "Bends the normal by a map, for the shaders that run after it; its result is left as it is."},
};

} // namespace orl
