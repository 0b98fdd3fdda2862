/*
 * The Strauss illumination model: plastics and metals by few settings (Paul Strauss, "A Realistic Lighting
 * Model for Computer Animators", 1990). It relies on the material that calls it with an illumination record
 * and on illumination.h for all that models share.
 *
 * Light that meets the surface is split once, by glossiness and opacity, into diffuse light, highlights and
 * what passes. So the sums hold the opacity, reflections follow the law of the highlights, and the model
 * transmits by itself.
 */
#include "shd_strauss.h"
#include "numeric.h"
#include "orlshaderapi.h"
#include "shading_terms.h"

#include <algorithm>

namespace orl {

namespace {

enum Channel { color, glossiness, metalness, opacity, filter, own_channels };

// ---- angles as shares of a right angle

miScalar angle(miScalar cosine) {
    return limit(numeric::acos(limit(cosine, -1, 1)) * 0.63661975f, 0, 1);
}

// Approximate Fresnel law: 0 from above to 1 at grazing angles.
miScalar fresnel(miScalar angle) {
    const miScalar x = angle - 1.12f;
    return limit((1.0f / (x * x) - 0.7971939f) * 0.014567226f, 0, 1);
}

// Light that bumps do not keep away: 1 from above to about 0 at grazing angles.
miScalar unshadowed(miScalar angle) {
    const miScalar x = angle - 1.01f;
    return (10000.02f - 1.0f / (x * x)) * 0.00010000961f;
}

// ---- shading

class Strauss {
public:
    explicit Strauss(const IllumRecord& record);
    void diffuse(const LightSample& sample, LightSums& sums) const {
        add(sums.diffuse, sample.color, dimming_ * diffuse_share_ * sample.diffuse);
    }
    void highlight(const LightSample& sample, LightSums& sums) const;

    /* Share of the diffuse light; ambient light meets half of it. */
    miScalar diffuse_share() const { return diffuse_share_; }
    /* By which reflections in the viewer's mirror direction are tinted. */
    miColor mirror_tint() const;

private:
    miScalar reflected(miScalar angle) const;
    miScalar own_color(miScalar angle) const { return metalness_ * (1.0f - fresnel(angle)); }

    miColor color_;
    miScalar metalness_, diffuse_share_, dimming_;
    miScalar reflected_above_; // highlights of light from above
    miVector mirrored_view_;
    miScalar view_angle_, view_unshadowed_;
    miScalar exponent_;
};

Strauss::Strauss(const IllumRecord& record)
    : color_(record.channel[color]), metalness_(limit(record.channel[metalness].r, 0, 1)),
      mirrored_view_(mirrored(record.view, record.normal)),
      view_angle_(angle(-mi_vector_dot(&record.normal, &record.view))),
      view_unshadowed_(unshadowed(view_angle_)) {
    const miScalar s = limit(record.channel[glossiness].r, 0, 1), cube = s * s * s;
    const miScalar surface = limit(record.channel[opacity].r, 0, 1);
    // A reflection map takes its share of any surface's light, not of metals' alone.
    const bool reflects = (record.mapFlags & map_reflection_present) != 0;
    diffuse_share_ = (1.0f - cube * (reflects ? 1.0f : metalness_)) * surface;
    reflected_above_ = surface - (1.0f - cube) * surface;
    dimming_ = 1.0f - metalness_ * s;
    // Deliberate: a perfect mirror has the highlight of glossiness 0.995, wider than those just below it, so
    // that lamps, which have no size, still show in it.
    exponent_ = s < 1.0f ? 3.0f / (1.0f - s) : 600.0f;
}

miScalar Strauss::reflected(miScalar angle) const {
    if (reflected_above_ <= 0.0f)
        return 0.0f;
    const miScalar grazing = fresnel(angle) * unshadowed(angle) * view_unshadowed_;
    return limit(reflected_above_ + (reflected_above_ + 0.1f) * grazing, 0, 1);
}

// The highlight stands where a mirror would show the light. Its colour goes from the light's to the surface's
// of the same intensity, so that it stays in proportion to the light; in the paper it starts from white.
// Deliberate: it is 1.3 times as high as what is reflected, to stand out as in the host's other models.
void Strauss::highlight(const LightSample& sample, LightSums& sums) const {
    const miScalar cosine = mi_vector_dot(&mirrored_view_, &sample.dir);
    if (!(cosine > 0.0f))
        return;
    const miScalar base = std::min(soften_highlight(cosine, sample.dot_nl, 0.15f), 1.0f);
    const miScalar theta = angle(sample.dot_nl);
    const miScalar height = reflected(theta) * (numeric::pow(base, exponent_) * 1.3f);
    const miScalar own = own_color(theta);
    add(sums.specular, sample.color, height * (1.0f - own));
    add(sums.specular, color_, height * own * intensity(sample.color));
}

// A surface whose material has a reflection map shows it: dull ones 0.3 of it, mirrors all.
constexpr miScalar least_reflection = 0.3f;
// What it shows it takes from the light that shines through: 0.3 of that, by the amount of the map.
constexpr miScalar reflection_from_transmission = 0.3f;

miColor Strauss::mirror_tint() const {
    const miScalar share = least_reflection + (1.0f - least_reflection) * reflected(view_angle_);
    const miScalar own = own_color(view_angle_);
    const auto component = [&](miScalar c) { return share * (1.0f + own * (c - 1.0f)); };
    return {component(color_.r), component(color_.g), component(color_.b), 0};
}

void tint(miState*, const IllumRecord* record, miColor* reflection) {
    multiply(*reflection, Strauss(*record).mirror_tint());
}

void reflect(IllumRecord* record, const Strauss& model) {
    const int channel = channel_of(*record, slot_reflection);
    if ((record->mapFlags & map_reflection) == 0 || channel < 0)
        return;
    multiply(record->channel[channel], model.mirror_tint());
    add(record->reflection, record->channel[channel], record->reflectionAmount);
    const miScalar rest = 1.0f - reflection_from_transmission * limit(record->reflectionAmount, 0, 1);
    for (miColor* const through : {&record->transmission, &record->additiveTransmission, &record->refraction,
                                   &record->filter[0], &record->filter[1], &record->elementTransparency})
        multiply(*through, {rest, rest, rest, 1});
}

void shade(miState* state, IllumRecord* record, const void*) {
    const Strauss model(*record);
    gather_light(state, record, model);
    miColor ambient{};
    add(ambient, record->channel[color], 0.5f * model.diffuse_share());
    multiply(record->ambient, ambient);
    record->diffuseLightLevel = intensity(record->diffuse);
    multiply(record->diffuse, record->channel[color]);
    transmit_with(record->features | feature_traced_transparency, state, record);
    reflect(record, model);
    finish(state, record);
}

// The sums hold the opacity channel already: of the factor there remain visibility, falloff and refraction.
void combine(IllumRecord* record) {
    const miScalar held = limit(record->channel[opacity].r, 0, 1);
    if (held > 0.0f)
        record->opacityFactor = std::min(record->opacityFactor / held, 1.0f);
    combine_simple(record);
}

constexpr IllumModel model{
    .unit = "shd_strauss",
    .features = 0xA01480,
    .channelCount = own_channels,
    .channelKinds =
        channel_kinds(channel_color, channel_scalar, channel_scalar, channel_scalar, channel_color),
    .slotMap = slot_map(-1, color, -1, glossiness, -1, -1, opacity, filter),
    .shade = shade,
    .tintReflection = tint,
    .combine = combine,
    .transmit = leave_alone,
    .reflect = leave_alone,
};

} // namespace

ORL_VERSION(shd_strauss, orl_base_StraussIllumination);

ORL_EXPORT miBoolean orl_base_StraussIllumination(miColor* result, miState* state,
                                                  const StraussParams* params, IllumRecord* record) {
    if (!is_callable(state, model, record))
        return miFALSE;
    miColor* const channel = record->channel;
    channel[color] = color_channel(state, params->color);
    channel[glossiness] = scalar_channel(state, params->glossiness, 0, 1);
    channel[metalness] = scalar_channel(state, params->metalness, 0, 1);
    channel[opacity] = opaque_channel;
    channel[filter] = color_channel(state, params->filter);
    return continue_with(model, 0, result, state, record, params);
}

ORL_EXPORT void orl_base_StraussIllumination_exit(miState* state, const StraussParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
