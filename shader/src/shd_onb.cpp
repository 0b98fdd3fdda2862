/*
 * The Oren-Nayar-Blinn illumination model: the diffuse light of rough surfaces with Blinn's highlights. It
 * relies on the material that calls it with an illumination record, on shading_terms.h for both terms and on
 * illumination.h for all that models share.
 */
#include "shd_onb.h"
#include "orlshaderapi.h"
#include "shading_terms.h"

namespace orl {

namespace {

enum Channel {
    ambient,
    diffuse,
    specular,
    glossiness,
    specular_level,
    self_illumination,
    opacity,
    filter,
    diffuse_level,
    roughness,
    own_channels
};

void shade(miState* state, IllumRecord* record, const void*) {
    const miColor* const channel = record->channel;
    const Terms<RoughDiffuse, BlinnLobe> terms{{OrenNayar(channel[roughness].r, record->normal, record->view),
                                                channel[diffuse], channel[diffuse_level].r},
                                               {channel[specular_level].r, *record, channel[glossiness].r}};
    gather_light(state, record, terms);
    add_self_illumination(record);
    multiply_ambient_and_specular(record);
    finish(state, record);
}

constexpr IllumModel model{
    .unit = "shd_onb",
    .features = 0x1E23FFE,
    .channelCount = own_channels,
    .channelKinds =
        channel_kinds(channel_color, channel_color, channel_color, channel_scalar, channel_scalar,
                      channel_color, channel_scalar, channel_color, channel_scalar, channel_scalar),
    .slotMap = slot_map(0, 1, 2, 3, 4, 5, 6, 7),
    .shade = shade,
    .combine = combine_conserving,
};

void set_channels(miState* state, const OrenNayarBlinnParams* params, IllumRecord* record) {
    miColor* const channel = record->channel;
    channel[ambient] = color_channel(state, params->ambient);
    channel[diffuse] = color_channel(state, params->diffuse);
    channel[specular] = color_channel(state, params->specular);
    channel[glossiness] = scalar_channel(state, params->glossiness, 0, 1);
    channel[specular_level] = scalar_channel(state, params->specularLevel, 0, highest_specular_level);
    channel[self_illumination] =
        self_illumination_channel(state, record, params->selfIllumColor, params->selfIllumAmount);
    channel[opacity] = opaque_channel;
    channel[filter] = clear_filter_channel;
    channel[diffuse_level] = scalar_channel(state, params->diffuseLevel, 0, highest_diffuse_level);
    channel[roughness] = scalar_channel(state, params->roughness, 0, 1);
}

} // namespace

ORL_VERSION(shd_onb, orl_base_OrenNayarBlinnIllumination);

ORL_EXPORT miBoolean orl_base_OrenNayarBlinnIllumination(miColor* result, miState* state,
                                                         const OrenNayarBlinnParams* params,
                                                         IllumRecord* record) {
    if (!is_callable(state, model, record))
        return miFALSE;
    set_channels(state, params, record);
    return continue_with(model, eval(state, params->soften), result, state, record, params);
}

ORL_EXPORT void orl_base_OrenNayarBlinnIllumination_exit(miState* state, const OrenNayarBlinnParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
