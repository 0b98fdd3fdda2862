/*
 * The standard material. It does no lighting of its own: it prepares an illumination record, runs the
 * illumination model that its parameters name, and the model continues here, with what the kind of ray asks
 * for. This file holds the entry and the way of eye rays and their like; material_call.h tells where the rest
 * is.
 */
#include "orl_material.h"
#include "material_call.h"
#include "output_request.h"

#include <algorithm>

namespace orl {

MaterialCall::MaterialCall(miState* state, const StandardMaterialParams* its_params,
                           const StandardMaterialInstance* its_instance, ShadowDistanceProbe* its_probe)
    : params(its_params), instance(its_instance), probe(its_probe),
      shader(state->shader), values{eval(state, params->transparencyType),
                                    eval(state, params->selfIlluminationColorOn),
                                    eval(state, params->dimReflections), eval(state, params->dimLevel),
                                    eval(state, params->reflectionLevel)},
      enabled(span(state, params, &StandardMaterialParams::mapEnabled)),
      map(span(state, params, &StandardMaterialParams::maps)),
      amount(span(state, params, &StandardMaterialParams::mapAmounts)) {}

namespace {

constexpr miColor white{1, 1, 1, 0};
constexpr miColor black{0, 0, 0, 0};

// ---- reflection, refraction, ambient light

void map_reflection_ray(miState* state, IllumRecord* record) {
    const MaterialCall& call = call_of(*record);
    const int channel = channel_of(*record, slot_reflection);
    if (channel >= 0 && channel < call.map.size() && call.map[channel] != miNULLTAG)
        record->mapFlags |= map_reflection_present;
    const miTag map = active_map(call, channel);
    if (map == miNULLTAG)
        return;
    record->mapFlags |= map_reflection;
    miVector dir;
    mi_reflection_dir(&dir, state);
    miColor color;
    if (call_ray_map(&color, state, map, dir, miRAY_REFLECT))
        record->channel[channel] = color;
    // Deliberate: what is mirrored also weighs itself, by its red, so that dim reflections sink into the
    // surface and bright ones stand out. The host's scenes are tuned to that.
    record->reflectionAmount = map_amount(call, channel) * record->channel[channel].r;
}

void map_refraction_ray(miState* state, IllumRecord* record) {
    const MaterialCall& call = call_of(*record);
    const int channel = channel_of(*record, slot_refraction);
    if (channel >= 0 && channel < call.map.size() && call.map[channel] != miNULLTAG)
        record->mapFlags |= map_refraction_present;
    const miTag map = active_map(call, channel);
    if (map == miNULLTAG)
        return;
    record->mapFlags |= map_refraction;
    miColor color;
    if (call_ray_map(&color, state, map, refracted_dir(state), miRAY_REFRACT))
        record->channel[channel] = color;
    record->refractionAmount = refraction_amount(call, channel);
}

// The ambient light term is the indirect light that the renderer finds at the point: gathered, from photons,
// or none. It starts the sum to which ambient lights add theirs; after the lights the model multiplies that
// sum by the ambient channel, and by what its self-illumination leaves.
void add_ambient_light(miState* state, IllumRecord* record) {
    const miColor& color = slot_value(*record, slot_ambient, white);
    miColor light = black;
    const KeepsHit hit(state);
    if (!is_black(color) && mi_compute_irradiance(&light, state))
        add(record->ambient, light);
}

// ---- results

// Transparency as others see it: of what the surface covers, less what was found behind it.
void report_transparency(miState* state, const miColor& transparency, miScalar alpha) {
    if (SubMaterialReport* const report = find_record(state, keys::sub_material_report))
        *report = {1, {transparency.r, transparency.g, transparency.b}, transparency.a};
    if (comes_from_rasterizer(state)) {
        miColor opacity{1.0f - transparency.r, 1.0f - transparency.g, 1.0f - transparency.b, alpha};
        mi_opacity_set(state, &opacity);
    }
}

void call_elements(miState* state, const IllumRecord& record, miInteger material_id) {
    miInteger slots[slot_count];
    for (int slot = 0; slot < slot_count; ++slot)
        slots[slot] = channel_of(record, static_cast<MapSlot>(slot));
    orl_PostIllumData data;
    InitializeRenderElementPostIllumData(state, &data);
    // Deliberate: the factor of the sum, less than the opacity by what refraction takes, and slots as
    // channels, defaults resolved. With them the components add up to the picture, and elements need not know
    // models.
    data.inputs.opacity = record.opacityFactor;
    data.inputs.reflectionAmount = record.reflectionAmount;
    data.inputs.refractionAmount = record.refractionAmount;
    data.outputs.ambient = record.ambient;
    data.outputs.diffuse = record.diffuse;
    add(data.outputs.diffuse, record.extraDiffuse);
    data.outputs.specular = record.specular;
    data.outputs.selfIllumination = record.selfIllumination;
    data.outputs.transparency = record.elementTransparency;
    data.reflection = record.reflection;
    data.refraction = record.refraction;
    std::copy(std::begin(record.channel), std::end(record.channel), data.channel);
    data.slots = slots;
    data.materialId = material_id;
    orl_CallRenderElementShaders_PostIllum(state, &data);
}

// ---- the way of eye rays and their like

void prepare_surface(miState* state, IllumRecord* record) {
    const ActsAsMaterial material(state, *record);
    const MaterialCall& call = call_of(*record);
    put_material_id(state, call.instance->mtlIdBuffer, call.params->materialId);
    set_own_channels(state, record);
    set_normal(state, record);
    bend_normal(state, record);
    map_all_channels(state, record);
    set_opacity(state, record, GetNodeData(state->instance));
    map_reflection_ray(state, record);
    map_refraction_ray(state, record);
    add_ambient_light(state, record);
}

} // namespace

miBoolean shade_surface(miColor* result, miState* state, IllumRecord* record, const void* model_params) {
    prepare_surface(state, record);
    {
        const KeepsHit hit(state);
        record->shade(state, record, model_params);
    }
    const miColor& t = record->filter[0];
    *result = record->result;
    result->a = 1.0f - intensity(t);
    report_transparency(state, t, result->a);
    if (RenderElementsAreBeingUsed(state)) {
        const ActsAsMaterial material(state, *record);
        call_elements(state, *record, eval(state, call_of(*record).params->materialId));
    }
    return miTRUE;
}

// ---- entry

namespace {

bool is_transmitted_photon(miRay_type type) {
    return type == miPHOTON_TRANSMIT_SPECULAR || type == miPHOTON_TRANSMIT_GLOSSY ||
           type == miPHOTON_TRANSMIT_DIFFUSE;
}

bool is_hidden_back(miState* state, const StandardMaterialParams* params, const orl_SceneData* scene) {
    return state->inv_normal && state->type != miRAY_REFRACT && !is_transmitted_photon(state->type) &&
           !(scene != nullptr && scene->force_two_sided) && !eval(state, params->twoSided);
}

// Shadow rays find out by themselves, as seen from the point that the light is to reach.
bool is_skipped(miState* state, const StandardMaterialParams* params, const orl_SceneData* scene) {
    return state->type != miRAY_SHADOW && (is_hidden_back(state, params, scene) ||
                                           (eval(state, params->wire) && !is_on_wire(state, params)));
}

// There is no surface here. Deliberate: the compound material that asks for a report goes on by itself, and a
// photon, which cannot be traced on as a ray, passes as through glass.
miBoolean skip_surface(miColor* result, miState* state) {
    if (find_record(state, keys::sub_material_report) != nullptr) {
        *result = transparent_black;
        return miTRUE;
    }
    return is_photon(state->type) ? mi_photon_transparent(result, state) : pass_through(result, state);
}

Continuation way_of(miRay_type type) {
    return is_photon(type) ? shade_photon : type == miRAY_SHADOW ? shade_shadow : shade_surface;
}

// Tells rays what they leave and what they enter while it lives: air outside, the material inside.
class PushedIndices {
public:
    PushedIndices(miState* state, miScalar inside) : state_(state), ior_in_(state->ior_in), ior_(state->ior) {
        state->ior_in = state->inv_normal ? inside : 1.0f;
        state->ior = state->inv_normal ? 1.0f : inside;
    }
    ~PushedIndices() {
        state_->ior_in = ior_in_;
        state_->ior = ior_;
    }
    PushedIndices(const PushedIndices&) = delete;
    PushedIndices& operator=(const PushedIndices&) = delete;

private:
    miState* state_;
    miScalar ior_in_, ior_;
};

miBoolean run_model(miColor* result, miState* state, const StandardMaterialParams* params,
                    StandardMaterialInstance* instance, StandardMaterialThread* thread) {
    const miTag model = eval(state, params->illumination);
    if (model == miNULLTAG) {
        report_missing(state, MissingInput::illumination, instance->warned);
        return miFALSE;
    }
    MaterialCall call(state, params, instance, thread ? &thread->probe : nullptr);
    IllumRecord record{};
    record.energyConservation = eval(state, params->energyConservation);
    record.values = &call.values;
    record.opacity = record.opacityFactor = 1.0f;
    record.normal = state->normal;
    record.view = state->dir;
    record.channelCount = preset_channel_count;
    record.continuation = way_of(state->type);
    record.material = &call;
    const PushedIndices indices(state, eval(state, params->indexOfRefraction));
    // Where the renderer displaces, the result is a scalar.
    const std::size_t size = state->type == miRAY_DISPLACE ? sizeof(miScalar) : sizeof(miColor);
    miColor value{};
    std::memcpy(&value, result, size);
    const miBoolean done = call_in_slot(&value, state, miSHADER_TEXTURE, model, &record);
    std::memcpy(result, &value, size);
    // Whatever shader it is, what it returns shows. The module's maps take the record for a request that they
    // do not know, and most of them answer with black.
    if (done && record.shade == nullptr && !test_and_set(instance->warnedOfModel))
        mi_warning("\"%s\": the shader in `illumination` is no illumination model; a map belongs into `maps`",
                   shader_name(state));
    return done;
}

} // namespace

ORL_VERSION(orl_material, orl_StandardMaterial);

ORL_EXPORT void orl_StandardMaterial_init(miState* state, const StandardMaterialParams* params,
                                          miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    auto* const data = new_instance_data<StandardMaterialInstance>(state);
    if (data == nullptr)
        return;
    data->scene = GetSceneData(state);
    // One switch of the scene turns all maps off, unless the other takes that back.
    data->mapsOn =
        data->scene == nullptr || !data->scene->material_switch_16 || data->scene->material_switch_22;
    data->mtlIdBuffer = frame_buffer_index(state, "fb_mtl_id");
}

ORL_EXPORT void orl_StandardMaterial_exit(miState* state, const StandardMaterialParams* params) {
    if (params == nullptr)
        return;
    delete_thread_data(state);
    delete_instance_data(state);
}

ORL_EXPORT miBoolean orl_StandardMaterial(miColor* result, miState* state,
                                          const StandardMaterialParams* params) {
    auto* const instance = instance_data<StandardMaterialInstance>(state);
    if (instance == nullptr) // its init found no memory
        return miFALSE;
    {
        // Parameters may be connected to shaders that lead back here, so that the visit comes before them.
        auto* const thread = thread_data<StandardMaterialThread>(state);
        const ScopedVisit visit(state, thread ? &thread->visit : nullptr);
        if (visit.is_recursive)
            return miFALSE;
        if (!is_skipped(state, params, instance->scene))
            return run_model(result, state, params, instance, thread);
    }
    // The ray goes on from this hit, where the same material may follow: the visit is over.
    return skip_surface(result, state);
}

} // namespace orl
