/*
 * The Blinn illumination model: smooth highlights halfway between light and viewer. It relies on the material
 * that calls it with an illumination record, and on illumination.h for all that models share.
 */
#include "shd_blinn2.h"
#include "orlshaderapi.h"
#include "shading_terms.h"

namespace orl {

namespace {

void shade(miState* state, IllumRecord* record, const void*) {
    const miColor* const channel = record->channel;
    const Terms<PlainDiffuse, BlinnLobe> blinn{
        {}, {channel[basic_channel::specular_level].r, *record, channel[basic_channel::glossiness].r}};
    gather_light(state, record, blinn);
    add_self_illumination(record);
    multiply_by_channels(record);
    finish(state, record);
}

constexpr IllumModel model{
    .unit = "shd_blinn2",
    .features = basic_features,
    .channelCount = basic_channel::count,
    .channelKinds = basic_channel_kinds,
    .slotMap = basic_slot_map,
    .shade = shade,
};

} // namespace

ORL_VERSION(shd_blinn2, orl_base_BlinnIllumination);

ORL_EXPORT miBoolean orl_base_BlinnIllumination(miColor* result, miState* state,
                                                const BasicModelParams* params, IllumRecord* record) {
    return run_basic_model(model, result, state, params, record);
}

ORL_EXPORT void orl_base_BlinnIllumination_exit(miState* state, const BasicModelParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
