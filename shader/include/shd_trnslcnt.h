/* The translucent model: parameters. */
#pragma once

#include "basic_model.h"

namespace orl {

struct TranslucentParams {
    miColor ambient;
    miColor diffuse;
    miColor specular;
    miScalar glossiness;
    miScalar specularLevel;
    miColor selfIllumColor;
    miScalar selfIllumAmount;
    miColor filter;
    miColor translucent;
    miScalar translucentLevel;
};

inline constexpr auto translucent_fields = decl::fields<TranslucentParams>(
    model_field::ambient(&TranslucentParams::ambient), model_field::diffuse(&TranslucentParams::diffuse),
    model_field::specular(&TranslucentParams::specular),
    model_field::glossiness(&TranslucentParams::glossiness),
    model_field::specular_level(&TranslucentParams::specularLevel),
    model_field::self_illum_color(&TranslucentParams::selfIllumColor),
    model_field::self_illum_amount(&TranslucentParams::selfIllumAmount),
    model_field::filter(&TranslucentParams::filter),
    decl::color(&TranslucentParams::translucent, "translucent", {0, 0, 0, 1},
                "colour in light from the other side; black for an opaque sheet"),
    decl::scalar(&TranslucentParams::translucentLevel, "translucentLevel", 1, {0, 4}, "",
                 "multiplies the light from the other side"));

inline constexpr decl::Shader shd_trnslcnt[] = {
    {"orl_base_TranslucentIllumination", miTYPE_COLOR, 1, true, true, decl::apply(miSHADER_TEXTURE),
     translucent_fields,
     "Illumination model: thin sheets that light shines through, such as lamp shades. Under a light that "
     "casts shadows, an opaque solid shadows itself from behind: then only sheets shine through."},
};

} // namespace orl
