/* The metal model. */
#pragma once

#include "basic_model.h"

namespace orl {

inline constexpr decl::Shader shd_metal2[] = {
    {"orl_base_MetalIllumination", miTYPE_COLOR, 1, false, true, decl::apply(miSHADER_TEXTURE),
     basic_model_fields,
     "Illumination model: metals, whose highlights and reflections have the diffuse colour."},
};

} // namespace orl
