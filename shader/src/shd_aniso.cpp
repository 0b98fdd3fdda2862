/*
 * The anisotropic illumination model: highlights of brushed surfaces. It relies on the material that calls it
 * with an illumination record, on anisotropic.h for the highlight and on illumination.h for all that models
 * share.
 */
#include "shd_aniso.h"
#include "anisotropic.h"
#include "orlshaderapi.h"
#include "shading_terms.h"

namespace orl {

namespace {

enum Channel {
    ambient,
    diffuse,
    specular,
    diffuse_level,
    specular_level,
    glossiness,
    anisotropy,
    orientation,
    self_illumination,
    opacity,
    filter,
    own_channels
};

void shade(miState* state, IllumRecord* record, const void*) {
    const miColor* const channel = record->channel;
    context::ChannelCache cache{};
    const TangentFrame frame = tangent_frame(state, record->normal, cache);
    const Terms<PlainDiffuse, BrushedLobe> terms{
        {channel[diffuse_level].r}, {channel[specular_level].r, *record, frame, channel + glossiness}};
    gather_light(state, record, terms);
    add_self_illumination(record);
    multiply_by_channels(record);
    finish(state, record);
}

constexpr IllumModel model{
    .unit = "shd_aniso",
    .features = 0x1E2CFFE,
    .channelCount = own_channels,
    .channelKinds = channel_kinds(channel_color, channel_color, channel_color, channel_scalar, channel_scalar,
                                  channel_scalar, channel_scalar, channel_scalar, channel_color,
                                  channel_scalar, channel_color),
    .slotMap = slot_map(0, 1, 2, 5, 4, 8, 9, 10),
    .shade = shade,
    .combine = combine_conserving,
};

void set_channels(miState* state, const AnisotropicParams* params, IllumRecord* record) {
    miColor* const channel = record->channel;
    channel[ambient] = color_channel(state, params->ambient);
    channel[diffuse] = color_channel(state, params->diffuse);
    channel[specular] = color_channel(state, params->specular);
    channel[diffuse_level] = scalar_channel(state, params->diffuseLevel, 0, highest_diffuse_level);
    channel[specular_level] = scalar_channel(state, params->specularLevel, 0, highest_specular_level);
    channel[glossiness] = scalar_channel(state, params->glossiness, 0.0001f, 1);
    channel[anisotropy] = scalar_channel(state, params->anisotropy, 0, 1);
    channel[orientation] = orientation_channel(state, params->orientation);
    channel[self_illumination] =
        self_illumination_channel(state, record, params->selfIllumColor, params->selfIllumAmount);
    channel[opacity] = opaque_channel;
    channel[filter] = clear_filter_channel;
}

} // namespace

ORL_VERSION(shd_aniso, orl_base_AnisotropicIllumination);

ORL_EXPORT miBoolean orl_base_AnisotropicIllumination(miColor* result, miState* state,
                                                      const AnisotropicParams* params, IllumRecord* record) {
    if (!is_callable(state, model, record))
        return miFALSE;
    set_channels(state, params, record);
    return continue_with(model, 0, result, state, record, params);
}

ORL_EXPORT void orl_base_AnisotropicIllumination_exit(miState* state, const AnisotropicParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
