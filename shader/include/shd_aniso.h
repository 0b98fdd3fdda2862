/* The anisotropic model: parameters. */
#pragma once

#include "basic_model.h"

namespace orl {

struct AnisotropicParams {
    miColor ambient;
    miColor diffuse;
    miColor specular;
    miScalar diffuseLevel;
    miScalar specularLevel;
    miScalar glossiness;
    miScalar anisotropy;
    miScalar orientation;
    miColor selfIllumColor;
    miScalar selfIllumAmount;
};

inline constexpr auto anisotropic_fields = decl::fields<AnisotropicParams>(
    model_field::ambient(&AnisotropicParams::ambient), model_field::diffuse(&AnisotropicParams::diffuse),
    model_field::specular(&AnisotropicParams::specular),
    model_field::diffuse_level(&AnisotropicParams::diffuseLevel),
    model_field::specular_level(&AnisotropicParams::specularLevel),
    model_field::glossiness(&AnisotropicParams::glossiness),
    model_field::anisotropy(&AnisotropicParams::anisotropy),
    model_field::orientation(&AnisotropicParams::orientation),
    model_field::self_illum_color(&AnisotropicParams::selfIllumColor),
    model_field::self_illum_amount(&AnisotropicParams::selfIllumAmount));

inline constexpr decl::Shader shd_aniso[] = {
    {"orl_base_AnisotropicIllumination", miTYPE_COLOR, 1, false, true, decl::apply(miSHADER_TEXTURE),
     anisotropic_fields,
     "Illumination model: brushed metal and hair, whose highlights are longer one way than the other. They "
     "follow the texture direction of each triangle, so that facets show and the terminator is a hard line, "
     "unless the object carries a bump basis."},
};

} // namespace orl
