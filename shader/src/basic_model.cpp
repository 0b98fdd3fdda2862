/* What the models of eight channels share: parameters into channels, and Phong shading. */
#include "basic_model.h"

#include "orlshaderapi.h"
#include "shading_terms.h"

namespace orl {

miBoolean run_basic_model(const IllumModel& model, miColor* result, miState* state,
                          const BasicModelParams* params, IllumRecord* record) {
    if (!is_callable(state, model, record))
        return miFALSE;
    miColor* const channel = record->channel;
    channel[basic_channel::ambient] = color_channel(state, params->ambient);
    channel[basic_channel::diffuse] = color_channel(state, params->diffuse);
    channel[basic_channel::specular] = color_channel(state, params->specular);
    channel[basic_channel::specular_level] =
        scalar_channel(state, params->specularLevel, 0, highest_specular_level);
    channel[basic_channel::glossiness] = scalar_channel(state, params->glossiness, 0, 1);
    channel[basic_channel::self_illumination] =
        self_illumination_channel(state, record, params->selfIllumColor, params->selfIllumAmount);
    channel[basic_channel::opacity] = opaque_channel;
    channel[basic_channel::filter] = clear_filter_channel;
    return continue_with(model, eval(state, params->soften), result, state, record, params);
}

void shade_phong(miState* state, IllumRecord* record, const void*) {
    const miColor* const channel = record->channel;
    const Terms<PlainDiffuse, PhongLobe> phong{
        {}, {channel[basic_channel::specular_level].r, *record, channel[basic_channel::glossiness].r}};
    gather_light(state, record, phong);
    add_self_illumination(record);
    multiply_by_channels(record);
    finish(state, record);
}

} // namespace orl
