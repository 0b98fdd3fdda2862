/*
 * The multi-layer illumination model: two brushed highlights over the diffuse light of a rough surface. It
 * relies on the material that calls it with an illumination record, on shading_terms.h and anisotropic.h for
 * the terms and on illumination.h for all that models share.
 */
#include "shd_mlayer.h"
#include "anisotropic.h"
#include "orlshaderapi.h"
#include "shading_terms.h"

#include <algorithm>

namespace orl {

namespace {

// A layer has its colour first, then the others in this order.
enum LayerChannel { color, level, glossiness, anisotropy, orientation, layer_channels };

enum Channel {
    ambient,
    diffuse,
    diffuse_level,
    roughness,
    layer_1,
    layer_2 = layer_1 + layer_channels,
    self_illumination = layer_2 + layer_channels,
    opacity,
    filter,
    own_channels
};

class LayerLobe {
public:
    LayerLobe(const IllumRecord& record, const TangentFrame& frame, const miColor* settings)
        : color_(settings[color]), brushed_(record, frame, settings + glossiness) {}
    miColor reflected(const LightSample& sample, miScalar its_level) const {
        const miScalar height = brushed_.reflected(sample, its_level);
        return {height * color_.r, height * color_.g, height * color_.b, 0};
    }

private:
    miColor color_;
    BrushedLobe brushed_;
};

struct MultiLayer : RoughDiffuse {
    Highlight<LayerLobe> first, second;

    void highlight(const LightSample& sample, LightSums& sums) const {
        first.highlight(sample, sums);
        second.highlight(sample, sums);
    }
};

void shade(miState* state, IllumRecord* record, const void*) {
    const miColor* const channel = record->channel;
    context::ChannelCache cache{};
    const TangentFrame frame = tangent_frame(state, record->normal, cache);
    const miColor *const first = channel + layer_1, *const second = channel + layer_2;
    const MultiLayer layers{{OrenNayar(channel[roughness].r, record->normal, record->view), channel[diffuse],
                             channel[diffuse_level].r},
                            {first[level].r, *record, frame, first},
                            {second[level].r, *record, frame, second}};
    gather_light(state, record, layers);
    add_self_illumination(record);
    // The specular sum holds the colours of both layers, which no slot has.
    multiply(record->ambient, channel[ambient]);
    finish(state, record);
}

// Reflections have the colour of the highlights: the mean of both layers' colours by their levels, and the
// plain mean where there are no highlights.
void tint(miState*, const IllumRecord* record, miColor* reflection) {
    const miColor *const first = record->channel + layer_1, *const second = record->channel + layer_2;
    const miScalar level_1 = std::max(first[level].r, 0.0f), level_2 = std::max(second[level].r, 0.0f);
    const miScalar sum = level_1 + level_2;
    const miScalar share = sum > 0.0f ? level_2 / sum : 0.5f;
    miColor mean{};
    add(mean, first[color], 1.0f - share);
    add(mean, second[color], share);
    multiply(*reflection, mean);
}

constexpr IllumModel model{
    .unit = "shd_mlayer",
    .features = 0x1E2FFFE,
    .channelCount = own_channels,
    .channelKinds =
        channel_kinds(channel_color, channel_color, channel_scalar, channel_scalar, //
                      channel_color, channel_scalar, channel_scalar, channel_scalar, channel_scalar,
                      channel_color, channel_scalar, channel_scalar, channel_scalar, channel_scalar,
                      channel_color, channel_scalar, channel_color),
    .slotMap = slot_map(0, 1, 4, 6, 5, 14, 15, 16),
    .shade = shade,
    .tintReflection = tint,
    .combine = combine_conserving,
};

void set_layer(miState* state, miColor* channel, const miColor& specular, const miScalar& specular_level,
               const miScalar& gloss, const miScalar& grooves, const miScalar& groove_orientation) {
    channel[color] = color_channel(state, specular);
    channel[level] = scalar_channel(state, specular_level, 0, highest_specular_level);
    channel[glossiness] = scalar_channel(state, gloss, 0, 1);
    channel[anisotropy] = scalar_channel(state, grooves, 0, 1);
    channel[orientation] = orientation_channel(state, groove_orientation);
}

void set_channels(miState* state, const MultiLayerParams* params, IllumRecord* record) {
    miColor* const channel = record->channel;
    channel[ambient] = color_channel(state, params->ambient);
    channel[diffuse] = color_channel(state, params->diffuse);
    channel[diffuse_level] = scalar_channel(state, params->diffuseLevel, 0, highest_diffuse_level);
    channel[roughness] = scalar_channel(state, params->roughness, 0, 1);
    set_layer(state, channel + layer_1, params->specular1, params->specularLevel1, params->glossiness1,
              params->anisotropy1, params->orientation1);
    set_layer(state, channel + layer_2, params->specular2, params->specularLevel2, params->glossiness2,
              params->anisotropy2, params->orientation2);
    channel[self_illumination] =
        self_illumination_channel(state, record, params->selfIllumColor, params->selfIllumAmount);
    channel[opacity] = opaque_channel;
    channel[filter] = clear_filter_channel;
}

} // namespace

ORL_VERSION(shd_mlayer, orl_base_MultiLayerIllumination);

ORL_EXPORT miBoolean orl_base_MultiLayerIllumination(miColor* result, miState* state,
                                                     const MultiLayerParams* params, IllumRecord* record) {
    if (!is_callable(state, model, record))
        return miFALSE;
    set_channels(state, params, record);
    return continue_with(model, 0, result, state, record, params);
}

ORL_EXPORT void orl_base_MultiLayerIllumination_exit(miState* state, const MultiLayerParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
