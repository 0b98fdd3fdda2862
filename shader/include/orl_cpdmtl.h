/*
 * The compound materials: the blend material's parameters.
 *
 * Both materials of a blend hand their components to the render elements, unweighted, so that the elements
 * show the second alone where both run.
 */
#pragma once

#include "declaration.h"

namespace orl {

struct BlendMaterialParams {
    miScalar mixAmount;
    miScalar lower;
    miScalar upper;
    miBoolean useCurve;
    miInteger field_4;
    miTag material1;
    miTag material2;
    miTag mask;
    miBoolean material1On;
    miBoolean material2On;
    miBoolean maskOn;
    miInteger mtlId;
};

namespace blend_material_table {

using P = BlendMaterialParams;

inline constexpr auto fields = decl::fields<P>(
    decl::scalar(&P::mixAmount, "mixAmount", 0, decl::unit_interval, "",
                 "share of material2 while no mask is active"),
    decl::scalar(&P::lower, "lower", 0.3, decl::unit_interval, "", "lower end of the mixing curve"),
    decl::scalar(&P::upper, "upper", 0.7, decl::unit_interval, "", "upper end of the mixing curve"),
    decl::boolean(&P::useCurve, "useCurve", false, "reshape the mask between lower and upper"),
    decl::host_field(&P::field_4, "field_4"),
    decl::element(&P::material1, miTYPE_MATERIAL, "material1", "first material"),
    decl::element(&P::material2, miTYPE_MATERIAL, "material2", "second material"),
    decl::element(&P::mask, miTYPE_SHADER, "mask", "map whose intensity is the share of material2"),
    decl::boolean(&P::material1On, "material1On", true,
                  "material1 counts; off, it is transparent where it would stand alone, and material2 shows "
                  "unmixed where both would"),
    decl::boolean(&P::material2On, "material2On", true,
                  "material2 counts; off, the same the other way round"),
    decl::boolean(&P::maskOn, "maskOn", true, "the mask counts"), decl::material_id(&P::mtlId, "mtlId"));

} // namespace blend_material_table

inline constexpr decl::Shader orl_cpdmtl[] = {
    {"orl_BlendMaterial", miTYPE_COLOR, 1, true, true,
     decl::apply(miSHADER_MATERIAL, miSHADER_SHADOW, miSHADER_PHOTON), blend_material_table::fields,
     "Mixes two materials by an amount or a mask."},
};

} // namespace orl
