/*
 * The maps of the standard material: amounts, the 24 channels, bump, opacity, and the maps that stand for
 * reflected and refracted rays.
 */
#include "material_call.h"
#include "output_request.h"

#include <algorithm>
#include <utility>

namespace orl {

// ---- mathematics

miScalar fallen_off(miScalar opacity, miScalar cosine, miScalar amount, bool outwards) {
    const miScalar t = std::fabs(cosine);
    return (1.0f - amount * (outwards ? 1.0f - t : t)) * opacity;
}

miColor over_channel(const miColor& channel, const miColor& map, miScalar amount) {
    const miColor own{map.r * amount, map.g * amount, map.b * amount, map.a * amount};
    const miScalar rest = std::max(0.0f, 1.0f - std::fabs(own.a));
    return {rest * channel.r + own.r, rest * channel.g + own.g, rest * channel.b + own.b,
            rest * channel.a + own.a};
}

miScalar mix_into_channel(miScalar channel, miScalar intensity, miScalar amount) {
    if (amount < 0.0f)
        return (intensity - 1.0f) * amount + std::max(0.0f, amount + 1.0f) * channel;
    return intensity * amount + std::max(0.0f, 1.0f - amount) * channel;
}

// ---- channels

miTag active_map(const MaterialCall& call, int channel) {
    const bool on = call.instance->mapsOn && channel >= 0 && channel < call.enabled.size() &&
                    channel < call.map.size() && call.enabled[channel];
    return on ? call.map[channel] : miNULLTAG;
}

miScalar map_amount(const MaterialCall& call, int channel) {
    return channel >= 0 && channel < call.amount.size() ? call.amount[channel] : 1.0f;
}

miScalar refraction_amount(const MaterialCall& call, int channel) {
    return limit(map_amount(call, channel), 0, 1);
}

void set_own_channels(miState* state, IllumRecord* record) {
    const StandardMaterialParams* const params = call_of(*record).params;
    if (const int opacity = channel_of(*record, slot_opacity); opacity >= 0)
        record->channel[opacity].r = eval(state, params->opacity);
    const int filter = channel_of(*record, slot_filter);
    if ((record->features & feature_filter_color) != 0 && filter >= 0)
        record->channel[filter] = eval(state, params->filterColor);
}

namespace {

bool is_ambient_locked(miState* state, const IllumRecord& record) {
    return eval(state, call_of(record).params->lockAmbient) == 1;
}

void map_color_channel(miState* state, IllumRecord* record, int channel, miTag map, miScalar amount) {
    const int ambient = channel_of(*record, slot_ambient);
    const bool locked = is_ambient_locked(state, *record);
    miColor color;
    if ((locked && channel == ambient) || !call_map(&color, state, map, OutputRequest::color))
        return;
    record->channel[channel] = over_channel(record->channel[channel], color, amount);
    if (locked && ambient >= 0 && channel == channel_of(*record, slot_diffuse))
        record->channel[ambient] = over_channel(record->channel[ambient], color, amount);
}

void map_scalar_channel(miState* state, miColor& channel, miTag map, miScalar amount) {
    miColor mono;
    if (call_map(&mono, state, map, OutputRequest::mono))
        channel.r = mix_into_channel(channel.r, intensity(mono), amount);
}

} // namespace

void map_channel(miState* state, IllumRecord* record, int channel) {
    if (channel < 0 || (record->channelKind[channel] & channels_not_evaluated) != 0)
        return;
    const MaterialCall& call = call_of(*record);
    const miTag map = active_map(call, channel);
    if (map == miNULLTAG)
        return;
    const miScalar amount = map_amount(call, channel);
    if ((record->channelKind[channel] & channel_scalar) != 0)
        map_scalar_channel(state, record->channel[channel], map, amount);
    else
        map_color_channel(state, record, channel, map, amount);
}

void map_all_channels(miState* state, IllumRecord* record) {
    const MaterialCall& call = call_of(*record);
    const int mapped = std::min({channel_count, call.enabled.size(), call.map.size()});
    const int displacement =
        channel_of(*record, slot_displacement); // shapes surfaces, it does not shade them
    for (int channel = 0; channel < mapped; ++channel)
        if (channel != displacement)
            map_channel(state, record, channel);
}

// ---- normal

namespace {

void shade_with(const miVector& normal, miState* state, IllumRecord* record) {
    record->normal = state->normal = normal;
    state->dot_nd = mi_vector_dot(&state->normal, &state->dir);
}

} // namespace

void set_normal(miState* state, IllumRecord* record) {
    record->normal = state->normal;
    if (record->faceted || eval(state, call_of(*record).params->faceted))
        shade_with(state->normal_geom, state, record);
}

void bend_normal(miState* state, IllumRecord* record) {
    const MaterialCall& call = call_of(*record);
    const int channel = channel_of(*record, slot_bump);
    const miTag map = active_map(call, channel);
    miColor bump;
    if (map == miNULLTAG || !call_map(&bump, state, map, OutputRequest::vector))
        return;
    // The map knows the front of the surface only.
    const miScalar amount = map_amount(call, channel) * (state->inv_normal ? -1.0f : 1.0f);
    miVector normal = record->normal;
    normal.x += bump.r * amount;
    normal.y += bump.g * amount;
    normal.z += bump.b * amount;
    mi_vector_normalize(&normal);
    shade_with(normal, state, record);
}

// ---- opacity

bool set_opacity(miState* state, IllumRecord* record, const orl_NodeData* node) {
    const StandardMaterialParams* const params = call_of(*record).params;
    const int channel = channel_of(*record, slot_opacity);
    miScalar opacity = channel < 0 ? eval(state, params->opacity) : record->channel[channel].r;
    if (node != nullptr)
        opacity *= node->visibility;
    const miScalar falloff = eval(state, params->falloffAmount);
    // Deliberate: only 1 itself is opaque. What a map drives beyond covers as much as 1, yet counts as
    // transparent, so that a ray is traced behind it.
    const bool opaque = opacity == 1.0f && falloff == 0.0f;
    opacity = limit(opacity, 0, 1);
    if (!opaque) {
        record->mapFlags |= map_transparent;
        if (falloff != 0.0f)
            opacity = limit(fallen_off(opacity, mi_vector_dot(&record->normal, &record->view), falloff,
                                       eval(state, params->falloffType) == 1),
                            0, 1);
    }
    record->opacity = opacity;
    return !opaque;
}

// ---- maps that are rays

bool call_ray_map(miColor* result, miState* state, miTag map, const miVector& dir, miRay_type type) {
    const KeepsHit hit(state);
    const miVector incoming = std::exchange(state->dir, dir);
    const ScopedRecord ray(state, keys::incoming_ray, {incoming, type});
    const bool done = call_map(result, state, map, OutputRequest::color);
    state->dir = incoming;
    return done;
}

miVector refracted_dir(miState* state) {
    miVector dir;
    if (!mi_refraction_dir(&dir, state, state->ior_in, state->ior))
        mi_reflection_dir(&dir, state);
    return dir;
}

} // namespace orl
