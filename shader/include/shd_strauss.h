/* The Strauss model: parameters. */
#pragma once

#include "basic_model.h"

namespace orl {

struct StraussParams {
    miColor color;
    miScalar glossiness;
    miScalar metalness;
    miColor filter;
};

inline constexpr auto strauss_fields = decl::fields<StraussParams>(
    decl::color(&StraussParams::color, "color", {0.588f, 0.588f, 0.588f, 1}, "colour of the surface"),
    decl::scalar(&StraussParams::glossiness, "glossiness", 0.2, decl::unit_interval, "",
                 "from 0 for dull to 1 for a mirror"),
    decl::scalar(&StraussParams::metalness, "metalness", 0, decl::unit_interval, "",
                 "from 0 for plastic to 1 for a metal, whose highlights have its colour"),
    model_field::filter(&StraussParams::filter));

inline constexpr decl::Shader shd_strauss[] = {
    {"orl_base_StraussIllumination", miTYPE_COLOR, 1, false, true, decl::apply(miSHADER_TEXTURE),
     strauss_fields, "Illumination model: from plastic to metal by few, independent settings."},
};

} // namespace orl
