/* The multi-layer model: parameters. */
#pragma once

#include "basic_model.h"

namespace orl {

struct MultiLayerParams {
    miColor ambient;
    miColor diffuse;
    miScalar diffuseLevel;
    miScalar roughness;
    miColor specular1;
    miScalar specularLevel1;
    miScalar glossiness1;
    miScalar anisotropy1;
    miScalar orientation1;
    miColor specular2;
    miScalar specularLevel2;
    miScalar glossiness2;
    miScalar anisotropy2;
    miScalar orientation2;
    miColor selfIllumColor;
    miScalar selfIllumAmount;
};

inline constexpr auto multi_layer_fields = decl::fields<MultiLayerParams>(
    model_field::ambient(&MultiLayerParams::ambient), model_field::diffuse(&MultiLayerParams::diffuse),
    model_field::diffuse_level(&MultiLayerParams::diffuseLevel),
    model_field::roughness(&MultiLayerParams::roughness),
    model_field::specular(&MultiLayerParams::specular1, "specular1"),
    model_field::specular_level(&MultiLayerParams::specularLevel1, "specularLevel1"),
    model_field::glossiness(&MultiLayerParams::glossiness1, "glossiness1"),
    model_field::anisotropy(&MultiLayerParams::anisotropy1, "anisotropy1"),
    model_field::orientation(&MultiLayerParams::orientation1, "orientation1"),
    model_field::specular(&MultiLayerParams::specular2, "specular2"),
    model_field::specular_level(&MultiLayerParams::specularLevel2, "specularLevel2"),
    model_field::glossiness(&MultiLayerParams::glossiness2, "glossiness2"),
    model_field::anisotropy(&MultiLayerParams::anisotropy2, "anisotropy2"),
    model_field::orientation(&MultiLayerParams::orientation2, "orientation2"),
    model_field::self_illum_color(&MultiLayerParams::selfIllumColor),
    model_field::self_illum_amount(&MultiLayerParams::selfIllumAmount));

inline constexpr decl::Shader shd_mlayer[] = {
    {"orl_base_MultiLayerIllumination", miTYPE_COLOR, 1, false, true, decl::apply(miSHADER_TEXTURE),
     multi_layer_fields,
     "Illumination model: two brushed highlights over a rough surface, for paint, lacquer and satin. "
     "Highlights follow the texture direction of each triangle, so that facets show unless the object "
     "carries a bump basis."},
};

} // namespace orl
