/*
 * The translucent illumination model: a thin sheet with Blinn's shading in front, through which light from
 * behind shines. It relies on the material that calls it with an illumination record, on shading_terms.h for
 * the highlight and on illumination.h for all that models share.
 *
 * Light that arrives at the back leaves the front evenly in all directions, in the translucent colour, as a
 * plain diffuse surface on the other side would send it back: cosine of the angle of incidence at the back
 * times translucent colour times its level. Where the material lets the ray pass, the model traces what lies
 * behind by itself.
 */
#include "shd_trnslcnt.h"
#include "orlshaderapi.h"
#include "shading_terms.h"

namespace orl {

namespace {

// What shines through comes last; no slot leads to its colour, and the last one to its level.
enum Channel {
    ambient,
    diffuse,
    specular,
    glossiness,
    specular_level,
    self_illumination,
    opacity,
    filter,
    translucent,
    translucent_level,
    own_channels
};

// Shows the lights the other side of the surface while it lives.
class OtherSide {
public:
    explicit OtherSide(miState* state)
        : state_(state), normal_(state->normal), normal_geom_(state->normal_geom), dot_nd_(state->dot_nd),
          inv_normal_(state->inv_normal) {
        mi_vector_neg(&state->normal);
        mi_vector_neg(&state->normal_geom);
        state->dot_nd = -dot_nd_;
        state->inv_normal = inv_normal_ ? miFALSE : miTRUE;
    }
    ~OtherSide() {
        state_->normal = normal_;
        state_->normal_geom = normal_geom_;
        state_->dot_nd = dot_nd_;
        state_->inv_normal = inv_normal_;
    }
    OtherSide(const OtherSide&) = delete;
    OtherSide& operator=(const OtherSide&) = delete;

private:
    miState* state_;
    miVector normal_, normal_geom_;
    miScalar dot_nd_;
    miCBoolean inv_normal_;
};

struct BackLight : PlainDiffuse {
    void highlight(const LightSample&, LightSums&) const {}
};

// A second walk over the lights, as renderers pass over those behind the surface in the first. Ambient light
// has no direction and counts in front.
void add_back_light(miState* state, IllumRecord* record) {
    const miColor& color = record->channel[translucent];
    const miScalar level = record->channel[translucent_level].r;
    if (!(intensity(color) > 0.0f && level > 0.0f))
        return;
    const OtherSide other_side(state);
    for_each_light(state, BackLight{}, [&](const LightSums& sums) {
        miColor through = sums.diffuse;
        multiply(through, color);
        add(record->extraDiffuse, through, level);
    });
}

void shade(miState* state, IllumRecord* record, const void*) {
    const miColor* const channel = record->channel;
    const Terms<PlainDiffuse, BlinnLobe> blinn{{},
                                               {channel[specular_level].r, *record, channel[glossiness].r}};
    gather_light(state, record, blinn);
    add_back_light(state, record);
    add_self_illumination(record);
    multiply_by_channels(record);
    transmit_with(feature_traced_transparency, state, record);
    finish(state, record);
}

// The shared callback does nothing under these features: no refraction, and transparency is the model's own.
constexpr IllumModel model{
    .unit = "shd_trnslcnt",
    .features = 0x6435FE,
    .channelCount = own_channels,
    .channelKinds =
        channel_kinds(channel_color, channel_color, channel_color, channel_scalar, channel_scalar,
                      channel_color, channel_scalar, channel_color, channel_color, channel_scalar),
    .slotMap = slot_map(0, 1, 2, 3, 4, 5, 6, 7, 10, 11, 12, 13, -1, -1, -1, translucent_level),
    .shade = shade,
    .combine = combine_conserving,
};

void set_channels(miState* state, const TranslucentParams* params, IllumRecord* record) {
    miColor* const channel = record->channel;
    channel[ambient] = color_channel(state, params->ambient);
    channel[diffuse] = color_channel(state, params->diffuse);
    channel[specular] = color_channel(state, params->specular);
    channel[glossiness] = scalar_channel(state, params->glossiness, 0, 1);
    channel[specular_level] = scalar_channel(state, params->specularLevel, 0, highest_specular_level);
    channel[self_illumination] =
        self_illumination_channel(state, record, params->selfIllumColor, params->selfIllumAmount);
    channel[opacity] = opaque_channel;
    channel[filter] = color_channel(state, params->filter);
    channel[translucent] = color_channel(state, params->translucent);
    channel[translucent_level] = scalar_channel(state, params->translucentLevel, 0, highest_diffuse_level);
}

} // namespace

ORL_VERSION(shd_trnslcnt, orl_base_TranslucentIllumination);

ORL_EXPORT void orl_base_TranslucentIllumination_init(miState*, const TranslucentParams* params,
                                                      miBoolean* instance_init_required) {
    wants_instance(params, instance_init_required);
}

ORL_EXPORT miBoolean orl_base_TranslucentIllumination(miColor* result, miState* state,
                                                      const TranslucentParams* params, IllumRecord* record) {
    if (!is_callable(state, model, record))
        return miFALSE;
    set_channels(state, params, record);
    return continue_with(model, 0, result, state, record, params);
}

ORL_EXPORT void orl_base_TranslucentIllumination_exit(miState* state, const TranslucentParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
