/*
 * The standard material for photons: what it keeps, and how it sends the rest on. A photon goes one way,
 * which the renderer draws by the colours of the surface: reflected diffusely, mirrored as far as the surface
 * has highlights or a reflection map, refracted into the direction of a refraction map, or straight through.
 */
#include "material_call.h"
#include "output_request.h"

#include <algorithm>

namespace orl {

namespace {

constexpr miColor black{0, 0, 0, 0};

miColor scaled(const miColor& color, miScalar factor) {
    return {color.r * factor, color.g * factor, color.b * factor, 0};
}

// Shares of the energy that go each way, and the maps that have a say in the direction.
struct PhotonWays {
    miColor reflect_diffuse, reflect_specular;
    miColor refract, straight;
    miTag reflection, refraction; // null when off
};

miColor mirrored(miState* state, const IllumRecord* record, miTag reflection) {
    miColor sum = scaled(slot_value(*record, slot_specular, black),
                         limit(slot_value(*record, slot_specular_level, black).r, 0, 1));
    if (reflection != miNULLTAG) {
        const miScalar amount = map_amount(call_of(*record), channel_of(*record, slot_reflection));
        miColor tinted{amount, amount, amount, 0};
        record->tintReflection(state, record, &tinted);
        add(sum, tinted);
    }
    return {std::min(sum.r, 1.0f), std::min(sum.g, 1.0f), std::min(sum.b, 1.0f), 0};
}

// No surface sends on more than it gets: shares that come to more than 1 all shrink by the same factor.
void share_out(PhotonWays& ways) {
    miColor* const shares[] = {&ways.reflect_diffuse, &ways.reflect_specular, &ways.refract, &ways.straight};
    miColor sum = black;
    for (const miColor* share : shares)
        add(sum, *share);
    const miScalar whole = std::max({1.0f, sum.r, sum.g, sum.b});
    for (miColor* share : shares)
        *share = scaled(*share, 1.0f / whole);
}

PhotonWays ways_of(miState* state, IllumRecord* record) {
    const MaterialCall& call = call_of(*record);
    const int refraction_channel = channel_of(*record, slot_refraction);
    PhotonWays ways{};
    ways.reflection = active_map(call, channel_of(*record, slot_reflection));
    ways.refraction = active_map(call, refraction_channel);
    if (ways.refraction != miNULLTAG)
        record->refractionAmount = refraction_amount(call, refraction_channel);
    record->opacityFactor = record->opacity * (1.0f - record->refractionAmount);
    ways.reflect_diffuse = scaled(slot_value(*record, slot_diffuse, black), record->opacityFactor);
    ways.reflect_specular = mirrored(state, record, ways.reflection);
    const miColor through = filter_of(*record);
    if (ways.refraction != miNULLTAG)
        ways.refract = through;
    else if ((record->mapFlags & map_transparent) != 0)
        ways.straight = through;
    share_out(ways);
    return ways;
}

// The map's colour is a filter; a map that bends the ray leaves its direction in the state.
void ask_map(miColor& energy, miState* state, miTag map) {
    miColor color;
    if (map != miNULLTAG && call_map(&color, state, map, OutputRequest::color))
        multiply(energy, color);
}

// Direction of the way, found while the record tells maps which way it is.
miVector leave(miColor& energy, miState* state, const PhotonWays& ways, miRay_type type) {
    const KeepsHit hit(state);
    const miVector incoming = state->dir;
    const ScopedRecord ray(state, keys::incoming_ray, {incoming, type});
    miVector dir;
    if (type == miPHOTON_REFLECT_DIFFUSE)
        mi_reflection_dir_diffuse(&dir, state);
    else if (type == miPHOTON_TRANSMIT_DIFFUSE)
        dir = refracted_dir(state);
    else
        mi_reflection_dir_specular(&dir, state);
    state->dir = dir;
    if (type == miPHOTON_REFLECT_SPECULAR)
        ask_map(energy, state, ways.reflection);
    else if (type == miPHOTON_TRANSMIT_DIFFUSE)
        ask_map(energy, state, ways.refraction);
    dir = state->dir;
    state->dir = incoming;
    return dir;
}

miBoolean send(miColor* energy, miState* state, PhotonWays ways) {
    const miRay_type type = mi_choose_simple_scatter_type(
        state, &ways.reflect_diffuse, &ways.reflect_specular, &ways.refract, &ways.straight);
    miVector dir;
    switch (type) {
    case miPHOTON_REFLECT_DIFFUSE:
        multiply(*energy, ways.reflect_diffuse);
        dir = leave(*energy, state, ways, type);
        return mi_photon_reflection_diffuse(energy, state, &dir);
    case miPHOTON_REFLECT_SPECULAR:
        multiply(*energy, ways.reflect_specular);
        dir = leave(*energy, state, ways, type);
        return mi_photon_reflection_specular(energy, state, &dir);
    case miPHOTON_TRANSMIT_DIFFUSE:
        multiply(*energy, ways.refract);
        dir = leave(*energy, state, ways, type);
        return mi_photon_transmission_diffuse(energy, state, &dir);
    case miPHOTON_TRANSMIT_SPECULAR:
        multiply(*energy, ways.straight);
        return mi_photon_transparent(energy, state);
    default: // absorbed
        return miTRUE;
    }
}

bool is_worth_storing(const miColor& diffuse) {
    constexpr miScalar least = 1e-6f;
    return diffuse.r > least || diffuse.g > least || diffuse.b > least;
}

} // namespace

miBoolean shade_photon(miColor* result, miState* state, IllumRecord* record, const void*) {
    const ActsAsMaterial material(state, *record);
    set_own_channels(state, record);
    set_normal(state, record);
    bend_normal(state, record);
    map_all_channels(state, record);
    set_opacity(state, record, GetNodeData(state->instance));
    const PhotonWays ways = ways_of(state, record);
    if (is_worth_storing(slot_value(*record, slot_diffuse, black)))
        mi_store_photon(result, state);
    return send(result, state, ways);
}

} // namespace orl
