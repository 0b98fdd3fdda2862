/*
 * The constant illumination model: Phong's shading on flat facets, as it has the material shade with the
 * normals of the triangles. It relies on the material that calls it with an illumination record.
 */
#include "shd_cnstant2.h"
#include "orlshaderapi.h"

namespace orl {

namespace {

constexpr IllumModel model{
    .unit = "shd_cnstant2",
    .features = basic_features,
    .channelCount = basic_channel::count,
    .channelKinds = basic_channel_kinds,
    .slotMap = basic_slot_map,
    .faceted = true,
    .shade = shade_phong,
};

} // namespace

ORL_VERSION(shd_cnstant2, orl_base_ConstantIllumination);

ORL_EXPORT miBoolean orl_base_ConstantIllumination(miColor* result, miState* state,
                                                   const BasicModelParams* params, IllumRecord* record) {
    return run_basic_model(model, result, state, params, record);
}

ORL_EXPORT void orl_base_ConstantIllumination_exit(miState* state, const BasicModelParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
