/* The Oren-Nayar-Blinn model: parameters. */
#pragma once

#include "basic_model.h"

namespace orl {

struct OrenNayarBlinnParams {
    miColor ambient;
    miColor diffuse;
    miColor specular;
    miScalar glossiness;
    miScalar specularLevel;
    miColor selfIllumColor;
    miScalar selfIllumAmount;
    miScalar diffuseLevel;
    miScalar roughness;
    miScalar soften;
};

inline constexpr auto oren_nayar_blinn_fields =
    decl::fields<OrenNayarBlinnParams>(model_field::ambient(&OrenNayarBlinnParams::ambient),
                                       model_field::diffuse(&OrenNayarBlinnParams::diffuse),
                                       model_field::specular(&OrenNayarBlinnParams::specular),
                                       model_field::glossiness(&OrenNayarBlinnParams::glossiness),
                                       model_field::specular_level(&OrenNayarBlinnParams::specularLevel),
                                       model_field::self_illum_color(&OrenNayarBlinnParams::selfIllumColor),
                                       model_field::self_illum_amount(&OrenNayarBlinnParams::selfIllumAmount),
                                       model_field::diffuse_level(&OrenNayarBlinnParams::diffuseLevel),
                                       model_field::roughness(&OrenNayarBlinnParams::roughness),
                                       model_field::soften(&OrenNayarBlinnParams::soften));

inline constexpr decl::Shader shd_onb[] = {
    {"orl_base_OrenNayarBlinnIllumination", miTYPE_COLOR, 1, false, true, decl::apply(miSHADER_TEXTURE),
     oren_nayar_blinn_fields,
     "Illumination model: rough surfaces such as cloth and clay, with Blinn's highlights."},
};

} // namespace orl
