/* The Phong model. */
#pragma once

#include "basic_model.h"

namespace orl {

inline constexpr decl::Shader shd_phong2[] = {
    {"orl_base_PhongIllumination", miTYPE_COLOR, 1, false, true, decl::apply(miSHADER_TEXTURE),
     basic_model_fields,
     "Illumination model: round highlights in the mirror direction, also for light from the side."},
};

} // namespace orl
