/*
 * The metal illumination model: highlights of small mirrors under a Fresnel law that goes from the diffuse
 * colour to white at grazing angles (Robert Cook and Kenneth Torrance, "A Reflectance Model for Computer
 * Graphics", 1982). It relies on the material that calls it with an illumination record, and on
 * illumination.h for all that models share.
 */
#include "shd_metal2.h"
#include "numeric.h"
#include "orlshaderapi.h"
#include "shading_terms.h"

#include <algorithm>
#include <cmath>

namespace orl {

namespace {

class MetalLobe {
public:
    explicit MetalLobe(const IllumRecord& record);
    miColor reflected(const LightSample& sample, miScalar level) const;

private:
    miScalar distribution(miScalar cosine) const;
    miColor highlight_color(miScalar cosine, miScalar factor) const;

    miVector normal_, view_;
    miColor diffuse_;
    miScalar soften_, n_v_;
    miScalar sharpness_;       // 1 / roughness^2
    miScalar reflectance_, n_; // average diffuse colour; index of refraction that it stands for
};

MetalLobe::MetalLobe(const IllumRecord& record)
    : normal_(record.normal), view_(record.view), diffuse_(record.channel[basic_channel::diffuse]),
      soften_(record.soften), n_v_(-mi_vector_dot(&normal_, &view_)) {
    const miScalar roughness = limit(1.0f - record.channel[basic_channel::glossiness].r, 0.00001f, 0.99999f);
    sharpness_ = 1.0f / (roughness * roughness);
    reflectance_ = intensity(diffuse_);
    if (reflectance_ >= 1.0f)
        reflectance_ = 0.9999f;
    reflectance_ = std::max(reflectance_, 0.0f);
    n_ = 2.0f * std::sqrt(reflectance_) / std::sqrt(1.0f - reflectance_);
}

// Where the exponential vanishes the quotient may be beyond all numbers; rounding takes cosines beyond 1.
miScalar MetalLobe::distribution(miScalar cosine) const {
    const miScalar square = std::min(cosine * cosine, 1.0f);
    const miScalar fall = numeric::exp(sharpness_ * (1.0f - 1.0f / square));
    return fall > 0.0f ? sharpness_ * (1.0f / (square * square)) * 0.15915494f * fall : 0.0f;
}

// Deliberate: the middle terms are 2u rather than 2nu. So light from above gives the diffuse colour and
// grazing light white, for any index.
miColor MetalLobe::highlight_color(miScalar u, miScalar factor) const {
    const miScalar n = n_ * n_ + 1.0f, square = u * u;
    const miScalar f = 0.5f * ((n - 2.0f * u + square) / (n + 2.0f * u + square) +
                               (square * n - 2.0f * u + 1.0f) / (square * n + 2.0f * u + 1.0f));
    const miScalar t = (f - reflectance_) / (1.0f - reflectance_);
    // t is 0 from above and 1 at grazing angles. In between, where the average colour is above a half, it
    // falls below 0, for almost white ones far: those darken to black there, which must not become negative.
    const auto component = [t, factor](miScalar c) { return factor * std::max((1.0f - t) * c + t, 0.0f); };
    return {component(diffuse_.r), component(diffuse_.g), component(diffuse_.b), 0};
}

miColor MetalLobe::reflected(const LightSample& sample, miScalar level) const {
    constexpr miColor none{0, 0, 0, 0};
    if (!(n_v_ >= 0.0f))
        return none;
    const miVector half = half_vector(sample.dir, view_);
    const miScalar n_h = mi_vector_dot(&normal_, &half);
    const miScalar geometry = std::min(n_v_, sample.dot_nl) * 2.0f * n_h / -mi_vector_dot(&view_, &half);
    // Softening narrows the distribution only; shadows of the small mirrors are as they are.
    const miScalar cosine = soften_highlight(n_h, sample.diffuse, soften_);
    if (!(geometry > 0.0f) || !(cosine > 0.0f))
        return none;
    const miScalar height = distribution(cosine) * level * std::min(geometry, 1.0f) / (n_v_ + 0.05f);
    return highlight_color(mi_vector_dot(&half, &sample.dir), height);
}

void shade(miState* state, IllumRecord* record, const void*) {
    // A level below 0, which only a map can give, has no highlight, yet takes diffuse light all the same.
    const Terms<PlainDiffuse, MetalLobe> metal{{},
                                               {record->channel[basic_channel::specular_level].r, *record}};
    gather_light(state, record, metal);
    // What the mirrors reflect is gone for the diffuse light.
    const miScalar level = std::fabs(record->channel[basic_channel::specular_level].r);
    const miScalar rest = std::max(1.0f - level, 0.0f);
    multiply(record->diffuse, {rest, rest, rest, 0});
    add_self_illumination(record);
    multiply_by_channels(record);
    finish(state, record);
}

// The codes behind the model's own channels are for the standard ones: reflection and refraction are the
// material's business, and so is displacement.
constexpr ChannelKinds kinds = channel_kinds(
    channel_color, channel_color, channel_color, channel_scalar, channel_scalar, channel_color,
    channel_scalar, channel_color, channel_none, channel_own_16, channel_own_32, channel_displacement);

constexpr IllumModel model{
    .unit = "shd_metal2",
    .features = basic_features,
    .channelCount = basic_channel::count,
    .channelKinds = kinds,
    .slotMap = basic_slot_map,
    .shade = shade,
    .tintReflection = tint_by_diffuse,
};

} // namespace

ORL_VERSION(shd_metal2, orl_base_MetalIllumination);

ORL_EXPORT miBoolean orl_base_MetalIllumination(miColor* result, miState* state,
                                                const BasicModelParams* params, IllumRecord* record) {
    return run_basic_model(model, result, state, params, record);
}

ORL_EXPORT void orl_base_MetalIllumination_exit(miState* state, const BasicModelParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
