/*
 * The standard lights of the host: omni, spot and directional, and the default light. A material samples them
 * and gets the colour that arrives at its point; how the light is to be used (the cosine as the light shapes
 * it, what it counts for) it finds in the records that it left for the light. They rely on light_cone for the
 * shape of their beams, on orl_attenuv for distances and for the questions of the volume light, and on
 * light_photons for emission.
 *
 * Omni, spot and directional light share one pipeline and differ in their rules.
 */
#include "orl_light.h"
#include "orlshaderapi.h"

#include <algorithm>

namespace orl {

// ---- what lights tell materials

void write_light_flags(miState* state, bool ambientOnly, miInteger affectFlags) {
    auto* const record = find_record(state, keys::architectural_light);
    if (record == nullptr)
        return;
    if (ambientOnly) {
        record->diffuse = 1.0f;
        record->specular = 0.0f;
        return;
    }
    record->diffuse = (affectFlags & affect_diffuse) != 0 ? 1.0f : 0.0f;
    record->specular = (affectFlags & affect_specular) != 0 ? 1.0f : 0.0f;
    record->field_3 = 0;
}

namespace {

// ---- instances

// Of the light that is being sampled; white where the shader runs for none.
miColor light_energy(miState* state) {
    miColor energy{1, 1, 1, 1};
    mi_query(miQ_LIGHT_ENERGY, state, state->light_instance, &energy);
    return energy;
}

// Sets the colour of a new record and tells whether it is black.
template <class Params>
bool init_color(miState* state, const Params* params, const miColor& energy, LightInstanceData& data) {
    const miColor color = eval(state, params->color);
    const miScalar multiplier = eval(state, params->multiplier);
    data.color = {color.r * multiplier * energy.r, color.g * multiplier * energy.g,
                  color.b * multiplier * energy.b, 1.0f};
    guard_nan(state, data.color);
    return is_black(data.color);
}

template <class Params> LightInstanceData* init_light(miState* state, const Params* params) {
    auto* const data = new_instance_data<LightInstanceData>(state);
    if (data == nullptr)
        return nullptr;
    const miColor energy = light_energy(state);
    data->isBlack = init_color(state, params, energy, *data) && !is_black(energy);
    data->affectFlags = (eval(state, params->affectDiffuse) ? affect_diffuse : 0) |
                        (eval(state, params->affectSpecular) ? affect_specular : 0);
    data->soften = percent(eval(state, params->softenDiffuseEdge)) * 0.01f;
    data->contrastA = contrast_weight(eval(state, params->contrast));
    data->contrastB = 1.0f - data->contrastA;
    return data;
}

void init_cone_light(miState* state, const ConeLightParams* params, LightConeKind kind) {
    LightInstanceData* const data = init_light(state, params);
    if (data != nullptr)
        data->cone = light_cone_factory[kind](eval(state, params->hotspot), eval(state, params->falloff),
                                              eval(state, params->overshoot), eval(state, params->circular),
                                              eval(state, params->aspect));
}

void exit_cone_light(miState* state) {
    const auto* const data = instance_data<LightInstanceData>(state);
    if (data != nullptr && data->cone != nullptr)
        data->cone->operations->destroy(data->cone);
    delete_instance_data(state);
}

// ---- rules

// A point as the light sees it, in light space.
struct LitPoint {
    miVector at;
    miScalar cosine; // of the angle with the axis; spots only
};

// How much of the light the shape of the beam lets through, and whether shadows fall there.
struct BeamShare {
    miScalar share;
    miBoolean inShadowZone;
};

struct OmniRules {
    using Params = OmniLightParams;
    static constexpr LightKind kind = LightKind::omni;
    static constexpr ProbeDistance probe_distance = ProbeDistance::from_origin;
    // Deliberate: an omni light whose colour is black still counts as a light that reaches the point.
    static bool is_out(const LightInstanceData&) { return false; }
    static miScalar cosine(const miVector&, miScalar) { return 0.0f; }
    static miVector direction_to(const miVector& point) { return point; }
    static BeamShare share(const LightInstanceData&, const LitPoint&) { return {1.0f, miTRUE}; }
};

struct ConeRules {
    using Params = ConeLightParams;
    static bool is_out(const LightInstanceData& data) { return data.isBlack || data.cone == nullptr; }
    static BeamShare share(const LightInstanceData& data, const LitPoint& point) {
        BeamShare beam{0.0f, miFALSE};
        beam.share = data.cone->operations->evaluate(data.cone, &point.at, point.cosine, &beam.inShadowZone);
        return beam;
    }
};

struct SpotRules : ConeRules {
    static constexpr LightKind kind = LightKind::spot;
    static constexpr ProbeDistance probe_distance = ProbeDistance::from_origin;
    static miScalar cosine(const miVector& point, miScalar distance) { return -point.z / distance; }
    static miVector direction_to(const miVector& point) { return point; }
};

struct BeamRules : ConeRules {
    static constexpr LightKind kind = LightKind::beam;
    // Deliberate: the volume light measures along the beam, surfaces from where the light stands.
    static constexpr ProbeDistance probe_distance = ProbeDistance::along_axis;
    static miScalar cosine(const miVector&, miScalar) { return 0.0f; }
    // A beam comes from no point: all its rays go along the axis, however the light is stretched.
    static miVector direction_to(const miVector&) { return {0, 0, -1}; }
    static BeamShare share(const LightInstanceData& data, const LitPoint& point) {
        if (!data.cone->overshoot && point.at.z >= 0.0f) // behind the light
            return {0.0f, miFALSE};
        return ConeRules::share(data, point);
    }
};

// ---- the way of a light ray

// The distances of a range that is off are not evaluated: shaders would run for nothing.
template <class Params> AttenuationRange attenuation_range(miState* state, const Params* params) {
    AttenuationRange range{};
    range.useNear = eval(state, params->useNearAtten);
    if (range.useNear) {
        range.nearStart = eval(state, params->nearAttenStart);
        range.nearEnd = eval(state, params->nearAttenEnd);
    }
    range.useFar = eval(state, params->useFarAtten);
    if (range.useFar) {
        range.farStart = eval(state, params->farAttenStart);
        range.farEnd = eval(state, params->farAttenEnd);
    }
    return range;
}

template <class Params> miScalar decay_attenuation(miState* state, const Params* params, miScalar distance) {
    const miInteger type = eval(state, params->decayType);
    return type == decay_none ? 1.0f : decay(distance, type, eval(state, params->decayStart));
}

template <class Params> miScalar own_attenuation(miState* state, const Params* params, miScalar distance) {
    return nearFarAttenuation(distance, attenuation_range(state, params)) *
           decay_attenuation(state, params, distance);
}

// By the distances that a volume light brings, of which the light answers the ranges' share.
template <class Params>
miScalar probed_attenuation(miState* state, const Params* params, miScalar distance,
                            LightAttenuationProbe& probe) {
    const LightAttenuationProbe asked = probe;
    const AttenuationRange range{eval(state, params->useNearAtten), asked.nearStart, asked.nearEnd,
                                 eval(state, params->useFarAtten),  asked.farStart,  asked.farEnd};
    const miScalar share = probe.attenuation = nearFarAttenuation(distance, range);
    const miScalar fade = asked.hasDecayStart
                              ? decay(distance, eval(state, params->decayType), asked.decayStart)
                              : decay_attenuation(state, params, distance);
    return share * fade;
}

// The volume light, and whatever samples light where there is no surface.
bool asks_for_air(const miState* state) {
    if (state->pri != nullptr || state->parent == nullptr)
        return false;
    const int caller = call_type(state->parent);
    return caller == miSHADER_LIGHT || caller == miSHADER_VOLUME || caller == miSHADER_PHOTONVOL;
}

template <class Params> bool is_excluded(miState* state, const Params* params) {
    const auto excluded = span(state, params, &Params::excludeList);
    if (excluded.size() == 0)
        return false;
    const orl_NodeData* const node = GetNodeData(state->instance);
    return node != nullptr && node->node_id >= 0 && node->node_id < excluded.size() &&
           excluded[node->node_id];
}

// The axes of the light's space have equal lengths, so that angles there are those of internal space. Asked
// for each sample: the record belongs to the shader, and lights that share one have transforms of their own.
// (The energy in the record is that of the light for which it was made; lights of different energy therefore
// need shaders of their own, which the host gives them.)
bool keeps_angles(miState* state) {
    constexpr miScalar tolerance = 1e-6f; // of squared lengths
    const miScalar* m = nullptr;
    if (!mi_query(miQ_INST_GLOBAL_TO_LOCAL, state, state->light_instance, &m) || m == nullptr)
        return true;
    const auto squared = [m](int row) {
        return m[row] * m[row] + m[row + 1] * m[row + 1] + m[row + 2] * m[row + 2];
    };
    const auto [shortest, longest] = std::minmax({squared(0), squared(4), squared(8)});
    return longest - shortest < tolerance;
}

// Cosine of incidence. The host shades in the light's own space, where a stretched light is a plain one.
template <class Rules> miScalar incidence(miState* state, const miVector& point) {
    if (keeps_angles(state))
        return state->dot_nd;
    miVector normal, ray = Rules::direction_to(point);
    mi_normal_to_light(state, &normal, &state->normal);
    mi_vector_normalize(&normal);
    mi_vector_normalize(&ray);
    return -mi_vector_dot(&ray, &normal);
}

// What a light ray carries from step to step.
struct LightRay {
    miVector at; // light space
    miScalar distance;
    miScalar attenuation; // by ranges and decay
    bool ambient;
};

// Start of a ray for a volume: there is no surface, and the colour is the asker's business.
template <class Rules>
LightRay start_in_air(miColor* result, miState* state, const typename Rules::Params* params,
                      LightAttenuationProbe* probe) {
    *result = {1, 1, 1, 0};
    LightRay ray{};
    if (probe != nullptr && probe->point != nullptr)
        ray.at = *probe->point;
    else
        mi_point_to_light(state, &ray.at, &state->point);
    ray.distance = Rules::probe_distance == ProbeDistance::along_axis ? -ray.at.z : mi_vector_norm(&ray.at);
    ray.attenuation = probe != nullptr ? probed_attenuation(state, params, ray.distance, *probe)
                                       : own_attenuation(state, params, ray.distance);
    ray.ambient = eval(state, params->ambientOnly);
    return ray;
}

// Start of a ray for a surface: tells the material how the light is to be used. False: no light.
template <class Rules>
bool start_at_surface(miColor* result, miState* state, const typename Rules::Params* params,
                      const LightInstanceData& data, LightRay& ray) {
    if (is_excluded(state, params))
        return false;
    auto* const shaping = find_record(state, keys::light_shaping);
    ray.ambient = eval(state, params->ambientOnly);
    if (ray.ambient)
        state->dot_nd = 1.0f;
    else if (shaping != nullptr && state->dot_nd < 0.0f)
        return false;
    mi_point_to_light(state, &ray.at, &state->point);
    if (shaping != nullptr) {
        const miScalar cosine = ray.ambient ? 1.0f : incidence<Rules>(state, ray.at);
        if (cosine < 0.0f)
            return false;
        shaping->shapedCosine =
            shapeCosine(data.soften, cosine, data.contrastA, data.contrastB, eval(state, params->contrast));
        shaping->valid = 1;
        shaping->affectFlags = data.affectFlags;
        shaping->ambientOnly = ray.ambient;
    }
    write_light_flags(state, ray.ambient, data.affectFlags);
    *result = {data.color.r, data.color.g, data.color.b, 0.0f};
    ray.distance = mi_vector_norm(&ray.at);
    return true;
}

template <class Params> miTag projector_of(miState* state, const Params* params) {
    return eval(state, params->projectorOn) ? eval(state, params->projectorMap) : miNULLTAG;
}

void filter(miColor* result, const miColor& by) {
    result->r *= by.r;
    result->g *= by.g;
    result->b *= by.b;
}

template <class Rules>
miColor shadow_color(miState* state, const typename Rules::Params* params, const LightInstanceData& data,
                     const LitPoint& point) {
    const miTag map = eval(state, params->shadowMapOn) ? eval(state, params->shadowMap) : miNULLTAG;
    if (map != miNULLTAG) {
        const ProjectorCoordinate at = projection(data, Rules::kind, point.at, point.cosine);
        if (at.inside)
            return look_up_projection(state, map, point.at, at);
    }
    return light_filter(state, eval(state, params->shadowColor));
}

template <class Rules>
void cast_shadow(miColor* result, miState* state, const typename Rules::Params* params,
                 const LightInstanceData& data, const LitPoint& point) {
    const miColor shadow = shadow_color<Rules>(state, params, data, point);
    miColor passed{1, 1, 1, 0};
    if (!mi_trace_shadow(&passed, state))
        passed = {0, 0, 0, 0};
    if (passed.r != 1.0f || passed.g != 1.0f || passed.b != 1.0f)
        *result = blendShadow(*result, passed, shadow, eval(state, params->shadowDensity),
                              eval(state, params->lightAffectsShadowColor));
}

// From the start on, rays for surfaces and for volumes go the same way.
template <class Rules>
miBoolean finish(miColor* result, miState* state, const typename Rules::Params* params,
                 const LightInstanceData& data, const LightRay& ray) {
    if (ray.attenuation == 0.0f)
        return miFALSE;
    const LitPoint point{ray.at, Rules::cosine(ray.at, ray.distance)};
    const BeamShare beam = Rules::share(data, point);
    const miScalar attenuation = ray.attenuation * beam.share;
    if (attenuation == 0.0f)
        return miFALSE;
    if (const miTag map = projector_of(state, params)) {
        const ProjectorCoordinate at = projection(data, Rules::kind, point.at, point.cosine);
        if (at.inside)
            filter(result, look_up_projection(state, map, point.at, at));
    }
    if (attenuation != 1.0f)
        filter(result, {attenuation, attenuation, attenuation, 1.0f});
    const bool shadows = eval(state, params->shadowOn);
    const bool atmosphere = shadows && eval(state, params->atmosphereShadowsOn);
    if (shadows && beam.inShadowZone && !ray.ambient) {
        cast_shadow<Rules>(result, state, params, data, point);
        if (atmosphere)
            result->a = eval(state, params->atmosphereOpacity) * eval(state, params->atmosphereColorAmount);
    }
    if (!atmosphere)
        state->volume = miNULLTAG; // the ray passes no atmosphere
    return miTRUE;
}

template <class Rules>
miBoolean shade_light_ray(miColor* result, miState* state, const typename Rules::Params* params,
                          const LightInstanceData& data) {
    if (state->dist == 0.0)
        return miFALSE;
    result->a = 0.0f;
    LightAttenuationProbe* const probe = find_record(state, keys::attenuation_probe);
    LightRay ray{};
    if (probe != nullptr || asks_for_air(state)) {
        ray = start_in_air<Rules>(result, state, params, probe);
    } else {
        if (!start_at_surface<Rules>(result, state, params, data, ray))
            return miFALSE;
        if (data.isBlack)
            return miTRUE;
        ray.attenuation = own_attenuation(state, params, ray.distance);
    }
    return finish<Rules>(result, state, params, data, ray);
}

bool emits_photons(miRay_type type) {
    return type == miPHOTON_LIGHT || type == miPHOTON_EMIT_GLOBILLUM || type == miPHOTON_EMIT_CAUSTIC;
}

template <class Rules>
miBoolean shade(miColor* result, miState* state, const typename Rules::Params* params,
                const VolumeLightRequest* argument) {
    const auto* const data = instance_data<LightInstanceData>(state);
    if (data == nullptr || Rules::is_out(*data) || !eval(state, params->on))
        return miFALSE;
    if (emits_photons(state->type))
        return emit_photon(result, state, *data, Rules::kind, projector_of(state, params));
    const bool light_ray = state->type == miRAY_LIGHT;
    if (const VolumeLightRequest* const request = checked(argument)) {
        // Along a light ray the volume light dims other lights, which those without atmosphere shadows
        // ignore.
        if (light_ray && !eval(state, params->atmosphereShadowsOn))
            return miFALSE;
        *result = data->color;
        return sample_light_in_volume(state, *request, attenuation_range(state, params),
                                      eval(state, params->decayType), eval(state, params->decayStart),
                                      Rules::probe_distance);
    }
    if (light_ray)
        return shade_light_ray<Rules>(result, state, params, *data);
    *result = data->color;
    return miTRUE;
}

} // namespace
} // namespace orl

using namespace orl;

// ---- omni light

ORL_VERSION(lights, orl_OmniLight);

ORL_EXPORT void orl_OmniLight_init(miState* state, const OmniLightParams* params,
                                   miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    LightInstanceData* const data = init_light(state, params);
    if (data == nullptr)
        return;
    const bool needs_point = eval(state, params->shadowOn) || projector_of(state, params) != miNULLTAG;
    data->omni = {&omni_shape_operations, needs_point};
}

ORL_EXPORT miBoolean orl_OmniLight(miColor* result, miState* state, const OmniLightParams* params,
                                   const VolumeLightRequest* request) {
    return shade<OmniRules>(result, state, params, request);
}

ORL_EXPORT void orl_OmniLight_exit(miState* state, const OmniLightParams* params) {
    if (params != nullptr)
        delete_instance_data(state);
}

// ---- spot

ORL_VERSION(lights, orl_SpotLight);

ORL_EXPORT void orl_SpotLight_init(miState* state, const ConeLightParams* params,
                                   miBoolean* instance_init_required) {
    if (wants_instance(params, instance_init_required))
        init_cone_light(state, params, light_cone_spot);
}

ORL_EXPORT miBoolean orl_SpotLight(miColor* result, miState* state, const ConeLightParams* params,
                                   const VolumeLightRequest* request) {
    return shade<SpotRules>(result, state, params, request);
}

ORL_EXPORT void orl_SpotLight_exit(miState* state, const ConeLightParams* params) {
    if (params != nullptr)
        exit_cone_light(state);
}

// ---- directional light

ORL_VERSION(lights, orl_DirectionalLight);

ORL_EXPORT void orl_DirectionalLight_init(miState* state, const ConeLightParams* params,
                                          miBoolean* instance_init_required) {
    if (wants_instance(params, instance_init_required))
        init_cone_light(state, params, light_cone_beam);
}

ORL_EXPORT miBoolean orl_DirectionalLight(miColor* result, miState* state, const ConeLightParams* params,
                                          const VolumeLightRequest* request) {
    return shade<BeamRules>(result, state, params, request);
}

ORL_EXPORT void orl_DirectionalLight_exit(miState* state, const ConeLightParams* params) {
    if (params != nullptr)
        exit_cone_light(state);
}

// ---- default light

ORL_VERSION(lights, orl_DefaultLight);

ORL_EXPORT void orl_DefaultLight_init(miState* state, const DefaultLightParams* params,
                                      miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    auto* const data = new_instance_data<LightInstanceData>(state);
    if (data == nullptr)
        return;
    data->isBlack = init_color(state, params, light_energy(state), *data);
    data->affectFlags = affect_diffuse | affect_specular;
}

ORL_EXPORT miBoolean orl_DefaultLight(miColor* result, miState* state, const DefaultLightParams*) {
    const auto* const data = instance_data<LightInstanceData>(state);
    if (data == nullptr || state->dot_nd < 0.0f)
        return miFALSE;
    if (auto* const shaping = find_record(state, keys::light_shaping))
        *shaping = {1, state->dot_nd, 0, data->affectFlags};
    write_light_flags(state, false, data->affectFlags);
    *result = data->color; // with its alpha of 1, which says nothing here: there is no atmosphere on the way
    if (data->isBlack)
        return miFALSE;
    state->volume = miNULLTAG;
    return miTRUE;
}

ORL_EXPORT void orl_DefaultLight_exit(miState* state, const DefaultLightParams* params) {
    if (params != nullptr)
        delete_instance_data(state);
}
