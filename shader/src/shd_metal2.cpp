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

class Metal {
public:
    explicit Metal(const IllumRecord& record);
    void operator()(const LightSample& sample, LightSums& sums) const;

private:
    miScalar distribution(miScalar cosine) const;
    miColor highlight_color(miScalar cosine) const;

    miVector normal_, view_;
    miColor diffuse_;
    miScalar level_, soften_, n_v_;
    double sharpness_; // 1 / roughness^2
    miScalar reflectance_,
        n2_; // average diffuse colour; square of the index of refraction that it stands for
};

Metal::Metal(const IllumRecord& record)
    : normal_(record.normal), view_(record.view), diffuse_(record.channel[basic_channel::diffuse]),
      level_(record.channel[basic_channel::specular_level].r), soften_(record.soften),
      n_v_(-mi_vector_dot(&normal_, &view_)) {
    const miScalar roughness = limit(1.0f - record.channel[basic_channel::glossiness].r, 0.00001f, 0.99999f);
    sharpness_ = 1.0 / (static_cast<double>(roughness) * static_cast<double>(roughness));
    reflectance_ = average(diffuse_);
    if (reflectance_ >= 1.0f)
        reflectance_ = 0.9999f;
    reflectance_ = std::max(reflectance_, 0.0f);
    n2_ = 4.0f * reflectance_ / (1.0f - reflectance_);
}

// In double precision: grazing cosines overflow the quotient before the exponential takes it back.
miScalar Metal::distribution(miScalar cosine) const {
    const double square = static_cast<double>(cosine) * static_cast<double>(cosine);
    return static_cast<miScalar>(sharpness_ / (square * square) * 0.15915494 *
                                 numeric::exp(sharpness_ * (1.0 - 1.0 / square)));
}

// Deliberate: the middle terms are 2u rather than 2nu. So light from above gives the diffuse colour and
// grazing light white, for any index.
miColor Metal::highlight_color(miScalar u) const {
    const miScalar n = n2_ + 1.0f, square = u * u;
    const miScalar f = 0.5f * ((n - 2.0f * u + square) / (n + 2.0f * u + square) +
                               (square * n - 2.0f * u + 1.0f) / (square * n + 2.0f * u + 1.0f));
    const miScalar t = (f - reflectance_) / (1.0f - reflectance_);
    // Between the two ends it dips a little, which must not make dark components negative.
    const auto component = [t](miScalar c) { return std::max((1.0f - t) * c + t, 0.0f); };
    return {component(diffuse_.r), component(diffuse_.g), component(diffuse_.b), 0};
}

void Metal::operator()(const LightSample& sample, LightSums& sums) const {
    if (sample.affectsDiffuse)
        add(sums.diffuse, sample.color, sample.diffuse);
    if (!sample.affectsSpecular || !(level_ > 0.0f) || !(n_v_ >= 0.0f))
        return;
    const miVector half = half_vector(sample.dir, view_);
    const miScalar n_h = mi_vector_dot(&normal_, &half);
    const miScalar geometry = std::min(n_v_, sample.dot_nl) * 2.0f * n_h / -mi_vector_dot(&view_, &half);
    // Softening narrows the distribution only; shadows of the small mirrors are as they are.
    const miScalar cosine = soften_highlight(n_h, sample.diffuse, soften_);
    if (!(geometry > 0.0f) || !(cosine > 0.0f))
        return;
    miColor color = highlight_color(mi_vector_dot(&half, &sample.dir));
    multiply(color, sample.color);
    add(sums.specular, color, distribution(cosine) * level_ * std::min(geometry, 1.0f) / (n_v_ + 0.05f));
}

void shade(miState* state, IllumRecord* record, const void*) {
    gather_light(state, record, Metal(*record));
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
constexpr ChannelKinds kinds =
    channel_kinds(channel_color, channel_color, channel_color, channel_scalar, channel_scalar, channel_color,
                  channel_scalar, channel_color, channel_none, channel_own_16, channel_own_32,
                  channel_own_128 | channel_none);

constexpr IllumModel model{
    .features = basic_features,
    .channelCount = basic_channel::count,
    .channelKinds = kinds,
    .slotMap = basic_slot_map,
    .faceted = false,
    .shade = shade,
    .tintReflection = tint_by_diffuse,
    .combine = combine_simple,
    .transmit = transmit_light,
    .reflect = reflect_channel,
};

} // namespace

ORL_VERSION(shd_metal2, orl_base_MetalIllumination);

ORL_EXPORT miBoolean orl_base_MetalIllumination(miColor* result, miState* state,
                                                const BasicModelParams* params, IllumRecord* record) {
    return run_basic_model(model, result, state, params, record);
}

ORL_EXPORT void orl_base_MetalIllumination_exit(miState* state, const BasicModelParams* params) {
    exit_model(state, params, "shd_metal2");
}

} // namespace orl
