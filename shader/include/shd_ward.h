/* The Ward model: parameters. */
#pragma once

#include "basic_model.h"

namespace orl {

struct WardParams {
    miColor ambient;
    miColor diffuse;
    miColor specular;
    miScalar diffuseLevel;
    miScalar specularLevel;
    miScalar glossinessU;
    miScalar glossinessV;
};

inline constexpr auto ward_fields = decl::fields<WardParams>(
    model_field::ambient(&WardParams::ambient), model_field::diffuse(&WardParams::diffuse),
    model_field::specular(&WardParams::specular),
    decl::scalar(&WardParams::diffuseLevel, "diffuseLevel", 1, {0, 2}, "",
                 "share of the light that is scattered; a white surface returns all of it at 1"),
    decl::scalar(&WardParams::specularLevel, "specularLevel", 0, {0, 4}, "",
                 "strength of the highlight; 0 for none"),
    decl::scalar(&WardParams::glossinessU, "glossinessU", 0.1, {0.0001, 1}, "",
                 "size of the highlight along the first texture coordinate, 1 for the smallest"),
    decl::scalar(&WardParams::glossinessV, "glossinessV", 0.1, {0.0001, 1}, "",
                 "size of the highlight along the second texture coordinate"));

inline constexpr decl::Shader shd_ward[] = {
    {"orl_base_WardIllumination", miTYPE_COLOR, 1, false, true, decl::apply(miSHADER_TEXTURE), ward_fields,
     "Illumination model: measured anisotropic surfaces, in physical units of reflectance. Highlights follow "
     "the texture direction of each triangle, so that facets show and the terminator is a hard line, unless "
     "the object carries a bump basis."},
};

} // namespace orl
