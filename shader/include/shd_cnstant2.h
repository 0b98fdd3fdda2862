/* The constant model. */
#pragma once

#include "basic_model.h"

namespace orl {

inline constexpr decl::Shader shd_cnstant2[] = {
    {"orl_base_ConstantIllumination", miTYPE_COLOR, 1, false, true, decl::apply(miSHADER_TEXTURE),
     basic_model_fields, "Illumination model: Phong's highlights on flat facets."},
};

} // namespace orl
