/*
 * The one table of everything that the module shows to others. The linker's lists, the scene declarations and
 * the tests are written from it.
 */
#pragma once

#include "atm_combust.h"
#include "atm_fog.h"
#include "atm_vfog.h"
#include "orl_bump.h"
#include "orl_color.h"
#include "orl_cpdmtl.h"
#include "orl_light.h"
#include "orl_material.h"
#include "orl_output.h"
#include "orl_rendelem.h"
#include "orl_rtt.h"
#include "orl_stdelem.h"
#include "orl_stduv.h"
#include "orl_stdxyz.h"
#include "orl_support.h"
#include "orl_toneop.h"
#include "orl_toneopphoto.h"
#include "shd_aniso.h"
#include "shd_blinn2.h"
#include "shd_cnstant2.h"
#include "shd_lightmeter.h"
#include "shd_metal2.h"
#include "shd_mlayer.h"
#include "shd_onb.h"
#include "shd_phong2.h"
#include "shd_strauss.h"
#include "shd_trnslcnt.h"
#include "shd_ward.h"
#include "tex_bitmap.h"
#include "tex_checker.h"
#include "tex_falloff.h"
#include "tex_mask.h"
#include "tex_mix.h"
#include "tex_tint.h"
#include "utilshaders.h"
#include "utl_curve.h"

#include <span>

namespace orl {

/* One unit's shaders, under the unit's name. */
struct Unit {
    const char* name;
    std::span<const decl::Shader> shaders;
};

// clang-format off
inline constexpr Unit units[] = {
    {"atm_combust", atm_combust},
    {"atm_fog", atm_fog},
    {"atm_vfog", atm_vfog},
    {"orl_bump", orl_bump},
    {"orl_color", color_shaders},
    {"orl_cpdmtl", orl_cpdmtl},
    {"orl_light", lights},
    {"orl_material", orl_material},
    {"orl_output", orl_output},
    {"orl_rendelem", orl_rendelem},
    {"orl_rtt", orl_rtt},
    {"orl_stdelem", orl_stdelem},
    {"orl_stduv", orl_stduv},
    {"orl_stdxyz", orl_stdxyz},
    {"orl_toneop", orl_toneop},
    {"orl_toneopphoto", orl_toneopphoto},
    {"shd_aniso", shd_aniso},
    {"shd_blinn2", shd_blinn2},
    {"shd_cnstant2", shd_cnstant2},
    {"shd_lightmeter", shd_lightmeter},
    {"shd_metal2", shd_metal2},
    {"shd_mlayer", shd_mlayer},
    {"shd_onb", shd_onb},
    {"shd_phong2", shd_phong2},
    {"shd_strauss", shd_strauss},
    {"shd_trnslcnt", shd_trnslcnt},
    {"shd_ward", shd_ward},
    {"tex_bitmap", tex_bitmap},
    {"tex_checker", tex_checker},
    {"tex_falloff", tex_falloff},
    {"tex_mask", tex_mask},
    {"tex_mix", tex_mix},
    {"tex_tint", tex_tint},
    {"utilshaders", utilshaders},
    {"utl_curve", utl_curve},
};
// clang-format on

/* Plain functions for other shader libraries and for the renderer. */
inline constexpr const char* exported_functions[] = {
    "miSetModuleHandle",
    "CallMaterial",
    "GetSceneData",
    "GetNodeData",
    "GetObjectData",
    "GetObjectDataFromInstance",
    "GetParticleData",
    "GetMaterialID",
    "GetEdgeVisibility",
    "GetFaceSmoothingGroup",
    "GetParticleID",
    "GetTangentBasisVectors",
    "GetUVChannelIndexFromID",
    "IsInstanceShadowMakerForLight",
    "ToneOpScaledToRGB",
    "ApplyInverseToneOperator",
    "IllumAccumulate",
    "ComputeIlluminance",
    "IllumShadow",
    "RenderElementsAreBeingUsed",
    "InitializeRenderElementPostIllumData",
    "ClearInputs",
    "ClearOutputs",
    "orl_CallRenderElementShaders_PostIllum",
    "orl_GetRenderElementResults",
};

} // namespace orl
