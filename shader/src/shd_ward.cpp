/*
 * The Ward illumination model: a plain diffuse surface with anisotropic highlights, as reflectances (Gregory
 * Ward, "Measuring and Modeling Anisotropic Reflection", 1992). It relies on the material that calls it with
 * an illumination record, on anisotropic.h for the highlight and on illumination.h for all that models share.
 */
#include "shd_ward.h"
#include "anisotropic.h"
#include "numeric.h"
#include "orlshaderapi.h"
#include "shading_terms.h"

namespace orl {

namespace {

// Bump, reflection, refraction and displacement follow from 9 on: the count is the material's.
enum Channel {
    ambient,
    diffuse,
    specular,
    diffuse_level,
    specular_level,
    glossiness_u,
    glossiness_v,
    opacity,
    filter
};
static_assert(filter + 1 == preset_channel_count);

// ---- instance record

// Where the first call of an instance found its grooves. Nothing changes them from then on, so threads share
// them.
struct WardInstance {
    miBoolean warned;
    context::ChannelCache grooves;
    miInteger reserved[3];
};
static_assert(sizeof(WardInstance) == 32);

// Without a slot there is nothing to keep.
context::ChannelCache known_grooves(miState* state, const char* unit) {
    const auto* const instance = instance_data_once<WardInstance>(
        state, unit, [state](WardInstance& made) { find_groove_space(state, made.grooves); });
    return instance ? instance->grooves : context::ChannelCache{};
}

// ---- shading

struct WardDiffuse {
    miScalar level;

    void diffuse(const LightSample& sample, LightSums& sums) const {
        add(sums.diffuse, sample.color, sample.diffuse * inverse_pi * level);
    }
};

// A reflectance, so the cosine of the light belongs to it. That dims grazing light again, and the gain may go
// higher than for the host's brushed highlights.
class WardLobe {
public:
    WardLobe(const IllumRecord& record, const TangentFrame& frame)
        : lobe_(record, frame, highlight_width(record.channel[glossiness_u].r),
                highlight_width(record.channel[glossiness_v].r), 6.0f) {}
    miScalar reflected(const LightSample& sample, miScalar level) const {
        return lobe_.height(sample, sample.diffuse) * level;
    }

private:
    AnisotropicLobe lobe_;
};

// The argument is what the entry point found out about the grooves: while shading, the running shader may be
// the material, and its instance record another.
void shade(miState* state, IllumRecord* record, const void* known) {
    const miColor* const channel = record->channel;
    context::ChannelCache grooves = *static_cast<const context::ChannelCache*>(known);
    const TangentFrame frame = tangent_frame(state, record->normal, grooves);
    const Terms<WardDiffuse, WardLobe> terms{{channel[diffuse_level].r},
                                             {channel[specular_level].r, *record, frame}};
    gather_light(state, record, terms);
    multiply_by_channels(record);
    finish(state, record);
}

constexpr IllumModel model{
    .unit = "shd_ward",
    .features = 0x1E00BCE,
    .channelCount = 0,
    .channelKinds = channel_kinds(channel_color, channel_color, channel_color, channel_scalar, channel_scalar,
                                  channel_scalar, channel_scalar, channel_scalar, channel_color, channel_none,
                                  channel_own_16, channel_own_32, channel_displacement),
    .slotMap = slot_map(0, 1, 2, 5, 4, -1, 7, 8, -1, 10, 11),
    .shade = shade,
};

void set_channels(miState* state, const WardParams* params, IllumRecord* record) {
    miColor* const channel = record->channel;
    channel[ambient] = color_channel(state, params->ambient);
    channel[diffuse] = color_channel(state, params->diffuse);
    channel[specular] = color_channel(state, params->specular);
    channel[diffuse_level] = scalar_channel(state, params->diffuseLevel, 0, 2);
    channel[specular_level] = scalar_channel(state, params->specularLevel, 0, 4);
    channel[glossiness_u] = scalar_channel(state, params->glossinessU, 0.0001f, 1);
    channel[glossiness_v] = scalar_channel(state, params->glossinessV, 0.0001f, 1);
    channel[opacity] = opaque_channel;
    channel[filter] = clear_filter_channel;
}

} // namespace

ORL_VERSION(shd_ward, orl_base_WardIllumination);

ORL_EXPORT miBoolean orl_base_WardIllumination(miColor* result, miState* state, const WardParams* params,
                                               IllumRecord* record) {
    // The instance's data comes first: it holds the warned flag.
    const context::ChannelCache grooves = known_grooves(state, model.unit);
    if (!is_callable(state, model, record))
        return miFALSE;
    set_channels(state, params, record);
    return continue_with(model, 0, result, state, record, &grooves);
}

ORL_EXPORT void orl_base_WardIllumination_exit(miState* state, const WardParams* params) {
    exit_model(state, params, {model.unit, __LINE__});
}

} // namespace orl
