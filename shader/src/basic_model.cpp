/* What the models of eight channels share: parameters into channels, and Phong shading. */
#include "basic_model.h"

#include "orlshaderapi.h"
#include "shading_terms.h"

namespace orl {

miBoolean run_basic_model(const IllumModel& model, miColor* result, miState* state,
                          const BasicModelParams* params, IllumRecord* record) {
    if (record == nullptr)
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

namespace {

struct Phong {
    miVector mirrored_view;
    miScalar level;
    Lobe lobe;

    void operator()(const LightSample& sample, LightSums& sums) const {
        if (sample.affectsDiffuse)
            add(sums.diffuse, sample.color, sample.diffuse);
        if (sample.affectsSpecular && level > 0.0f)
            add(sums.specular, sample.color, level * phong_highlight(sample, mirrored_view, lobe));
    }
};

} // namespace

void shade_phong(miState* state, IllumRecord* record, const void*) {
    const miColor* const channel = record->channel;
    const Phong phong{mirrored(record->view, record->normal),
                      channel[basic_channel::specular_level].r,
                      {glossy_exponent(channel[basic_channel::glossiness].r), record->soften}};
    gather_light(state, record, phong);
    add_self_illumination(record);
    multiply_by_channels(record);
    finish(state, record);
}

} // namespace orl
