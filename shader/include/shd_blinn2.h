/* The Blinn model. */
#pragma once

#include "basic_model.h"

namespace orl {

inline constexpr decl::Shader shd_blinn2[] = {
    {"orl_base_BlinnIllumination", miTYPE_COLOR, 1, false, true, decl::apply(miSHADER_TEXTURE),
     basic_model_fields,
     "Illumination model: smooth highlights halfway between light and viewer, for most materials."},
};

} // namespace orl
