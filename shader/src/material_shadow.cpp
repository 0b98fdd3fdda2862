/* The standard material as a filter of light on its way to a point. */
#include "material_call.h"

#include <algorithm>

namespace orl {

namespace {

constexpr miColor black{0, 0, 0, 0};

// Values of miOptions::shadow.
constexpr int shadows_simple = 1, shadows_sorted = 'l', shadows_in_segments = 's';

// Turns the normals of a shadow ray's hit as those of other rays are, as seen from the point that the light
// is to reach; for shadow rays the renderer leaves that to the shader. They are turned back in the end.
class SeenFromPoint {
public:
    explicit SeenFromPoint(miState* state)
        : state_(state), normal_(state->normal), geometric_(state->normal_geom), dot_nd_(state->dot_nd),
          inverted_(state->inv_normal) {
        // Segments run from the point to the light, the other rays come from the light.
        const bool from_light = state->options->shadow != shadows_in_segments;
        const miScalar along = mi_vector_dot(&state->normal, &state->dir);
        const miScalar cosine = from_light ? -along : along;
        state->inv_normal = cosine > 0.0f;
        if (state->inv_normal) {
            mi_vector_neg(&state->normal);
            mi_vector_neg(&state->normal_geom);
        }
        state->dot_nd = -std::fabs(cosine);
    }
    ~SeenFromPoint() {
        state_->normal = normal_;
        state_->normal_geom = geometric_;
        state_->dot_nd = dot_nd_;
        state_->inv_normal = inverted_;
    }
    SeenFromPoint(const SeenFromPoint&) = delete;
    SeenFromPoint& operator=(const SeenFromPoint&) = delete;

private:
    miState* state_;
    miVector normal_, geometric_;
    miScalar dot_nd_;
    miCBoolean inverted_;
};

bool is_probed(const miState* state, ShadowDistanceProbe* probe) {
    if (probe == nullptr || probe->instance == miNULLTAG || probe->instance != state->instance)
        return false;
    probe->largest = std::max(probe->largest, mi_vector_dist(&probe->origin, &state->point));
    return true;
}

// Colour by which the light is multiplied, black where the surface is opaque.
miColor light_filter(miState* state, IllumRecord* record, const orl_NodeData* node) {
    set_normal(state, record);
    state->dot_nd = -std::fabs(state->dot_nd); // of a flat normal, too, as seen from the point
    set_own_channels(state, record);
    map_channel(state, record, channel_of(*record, slot_opacity));
    if (!set_opacity(state, record, node))
        return black;
    record->opacityFactor = record->opacity;
    const int mode = filter_mode(record->values->transparencyType);
    if (mode == 2)
        map_channel(state, record, channel_of(*record, slot_filter));
    else if (mode == 0)
        map_channel(state, record, channel_of(*record, slot_diffuse));
    return filter_of(*record);
}

miBoolean pass_light(miColor* light, const miColor& filter) {
    // Infinite light is blocked like any other: it cannot be multiplied by 0.
    if (is_black(filter)) {
        *light = black;
        return miFALSE;
    }
    multiply(*light, filter);
    light->a = 0.0f;
    return !is_black(*light);
}

} // namespace

// For the light of a node that casts no shadow for it, and between the wires, there is no surface.
miBoolean shade_shadow(miColor* result, miState* state, IllumRecord* record, const void*) {
    const MaterialCall& call = call_of(*record);
    if (is_probed(state, call.probe))
        return miTRUE;
    const int mode = state->options->shadow;
    if (mode == shadows_in_segments) {
        const KeepsHit hit(state);
        if (!mi_trace_shadow_seg(result, state))
            return miFALSE;
    } else if (mode != shadows_simple && mode != shadows_sorted) {
        return miTRUE;
    }
    const ActsAsMaterial material(state, *record);
    const SeenFromPoint side(state);
    if (eval(state, call.params->wire) && !is_on_wire(state, call.params))
        return miTRUE;
    const orl_NodeData* const node = GetNodeData(state->instance);
    if (!IsInstanceShadowMakerForLight(state, node))
        return miTRUE;
    return pass_light(result, light_filter(state, record, node));
}

} // namespace orl
