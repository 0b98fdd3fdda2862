/*
 * The Phong illumination model: round highlights in the mirror direction of the viewer. It relies on the
 * material that calls it with an illumination record; basic_model.h shades with it.
 */
#include "shd_phong2.h"
#include "orlshaderapi.h"

namespace orl {

namespace {

constexpr IllumModel model{
    .unit = "shd_phong2",
    .features = basic_features,
    .channelCount = basic_channel::count,
    .channelKinds = basic_channel_kinds,
    .slotMap = basic_slot_map,
    .shade = shade_phong,
};

} // namespace

ORL_VERSION(shd_phong2, orl_base_PhongIllumination);

ORL_EXPORT miBoolean orl_base_PhongIllumination(miColor* result, miState* state,
                                                const BasicModelParams* params, IllumRecord* record) {
    return run_basic_model(model, result, state, params, record);
}

ORL_EXPORT void orl_base_PhongIllumination_exit(miState* state, const BasicModelParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
