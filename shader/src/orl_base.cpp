/*
 * The shared part of the entry protocol: running a material for whatever call is in progress, named frame
 * buffers, checks and messages.
 */
#include "orlshaderapi.h"
#include "output_request.h"

namespace orl {
namespace {

constexpr const char* missing_input_formats[] = {
    "\"%s\" requires uv coordinate shader", "\"%s\" requires xyz coordinate shader",
    "\"%s\" requires illumination shader",  "\"%s\" requires image file",
    "\"%s\" requires object user data",     "\"%s\" requires vector texture",
};

// ---- CallMaterial

miTag material_slot(miState* state, miTag material, miQ_type slot) {
    miTag shader = miNULLTAG;
    return mi_query(slot, state, material, &shader) ? shader : miNULLTAG;
}

miTag camera_environment(const miState* state) {
    return state->camera ? state->camera->environment : miNULLTAG;
}

// The flag in the running instance's data; instances that keep none share one.
miBoolean& instance_warned_flag(miState* state) {
    miBoolean* const flag = instance_data<miBoolean>(state);
    return flag ? *flag : shared_warned_flag;
}

miBoolean report_call(miState* state, const char* format, miBoolean& warned) {
    if (!test_and_set(warned))
        mi_error(format, shader_name(state));
    return miFALSE;
}

// The slot of a material that a call type runs; miQ_type(0) for a call type that materials do not answer.
miQ_type slot_of(int type) {
    switch (type) {
    case miSHADER_MATERIAL:
    case miSHADER_TEXTURE:
        return miQ_MTL_SHADER;
    case miSHADER_SHADOW:
        return miQ_MTL_SHADOW;
    case miSHADER_ENVIRONMENT:
        return miQ_MTL_ENVIRONMENT;
    case miSHADER_VOLUME:
        return miQ_MTL_VOLUME;
    case miSHADER_PHOTON:
        return miQ_MTL_PHOTON;
    case miSHADER_DISPLACE:
        return miQ_MTL_DISPLACE;
    case miSHADER_LIGHTMAP:
        return miQ_MTL_LIGHTMAP;
    case miSHADER_PHOTONVOL:
        return miQ_MTL_PHOTONVOL;
    case miSHADER_CONTOUR:
        return miQ_MTL_CONTOUR;
    default:
        return miQ_type{};
    }
}

// Prepares the state for a material's shader. Deliberate: the volume stays installed when the shader returns,
// because the renderer runs it on the ray afterwards.
void install_material(miState* state, miTag material, int type) {
    if (type == miSHADER_MATERIAL || type == miSHADER_TEXTURE) {
        state->volume = material_slot(state, material, miQ_MTL_VOLUME);
        if (const miTag environment = material_slot(state, material, miQ_MTL_ENVIRONMENT))
            state->environment = environment;
    } else if (type == miSHADER_PHOTON) {
        state->volume = material_slot(state, material, miQ_MTL_PHOTONVOL);
    }
}

miBoolean run_material(miColor* result, miState* state, miTag material, miBoolean* warned) {
    const int type = call_type(state);
    const miQ_type slot = slot_of(type);
    if (slot == miQ_type{})
        return report_call(state, "Shader '%s' called with unsupported call type",
                           warned ? *warned : instance_warned_flag(state));

    miTag shader = material_slot(state, material, slot);
    if (shader == miNULLTAG && type == miSHADER_ENVIRONMENT)
        shader = camera_environment(state);
    if (shader == miNULLTAG && type == miSHADER_DISPLACE) {
        *result = transparent_black;
        return miTRUE;
    }
    const miTag environment = state->environment;
    install_material(state, material, type);
    const miBoolean done =
        shader ? mi_call_shader(result, static_cast<miShader_type>(type), state, shader) : miFALSE;
    state->environment = environment;
    return done;
}

miBoolean call_installed_material(miColor* result, miState* state, int type) {
    switch (type) {
    case miSHADER_MATERIAL:
    case miSHADER_TEXTURE:
        return mi_call_material(result, state);
    case miSHADER_SHADOW:
        return mi_call_shadow_material(result, state);
    case miSHADER_ENVIRONMENT:
        if (mi_call_environment_material(result, state))
            return miTRUE;
        if (const miTag environment = camera_environment(state))
            return mi_call_shader(result, miSHADER_ENVIRONMENT, state, environment);
        return miFALSE;
    case miSHADER_VOLUME:
        return mi_call_volume_material(result, state);
    case miSHADER_PHOTON:
        return mi_call_photon_material(result, state);
    case miSHADER_PHOTONVOL:
        return mi_call_photonvol_material(result, state);
    default:
        return report_call(
            state, "Shader '%s' does not support material phenomena in contour/displacement/lightmap modes.",
            instance_warned_flag(state));
    }
}

miBoolean run_function(miColor* result, miState* state, miTag function) {
    const miTag material = state->material;
    state->material = function;
    const miBoolean done = call_installed_material(result, state, call_type(state));
    state->material = material;
    return done;
}

// Rays whose result holds a value already: the light that arrives, a photon's energy, a light map's texel.
bool brings_a_value(miRay_type type) {
    return type == miRAY_SHADOW || is_photon(type) || type == miRAY_LM_VERTEX || type == miRAY_LM_MESH;
}

} // namespace

const char* shader_name(miState* state) {
    for (const miQ_type code : {miQ_FUNC_NAME, miQ_DECL_NAME}) {
        const char* name = nullptr;
        if (mi_query(code, state, miNULLTAG, &name) && name != nullptr && name[0] != '\0')
            return name;
    }
    return "unnamed";
}

void delete_thread_data(miState* state) {
    void** data = nullptr;
    int count = 0;
    if (!mi_query(miQ_FUNC_TLS_GETALL, state, miNULLTAG, &data, &count) || data == nullptr)
        return;
    for (int i = count; i-- > 0;) {
        if (data[i] != nullptr)
            mi_mem_int_release("orlshaderapi", __LINE__, data[i]);
        data[i] = nullptr;
    }
}

void guard_nan(miState* state, miColor& color) {
    const bool bad_color = std::isnan(color.r) || std::isnan(color.g) || std::isnan(color.b);
    if (!bad_color && (is_photon(state->type) || !std::isnan(color.a)))
        return;
    mi_error("A ray encountered an invalid color (NaN), using black instead.");
    color = {0, 0, 0, 1};
}

int frame_buffer_index(miState* state, const char* name) {
    if (state == nullptr || state->camera == nullptr || state->camera->framebuffers == miNULLTAG)
        return -1;
    miShader_interface* const renderer = mi_get_shader_interface(3);
    if (renderer == nullptr)
        return -1;
    std::size_t index = 0;
    bool found = false;
    if (mi::shader_v3::Framebuffer* const buffers =
            renderer->accessFramebuffer(state->camera->framebuffers)) {
        found = buffers->get_index(name, index);
        renderer->releaseFramebuffer(buffers);
    }
    renderer->release();
    return found ? static_cast<int>(index) : -1;
}

void put_material_id(miState* state, int buffer, const miInteger& parameter) {
    if (state->type != miRAY_EYE || buffer == -1)
        return;
    if (miInteger id = eval(state, parameter); id != 0)
        mi_fb_put(state, buffer, &id);
}

bool comes_from_rasterizer(const miState* state) {
    constexpr int rasterizer = 'r';
    return state->options->scanline == rasterizer && state->scanline;
}

miBoolean pass_through(miColor* result, miState* state) {
    if (comes_from_rasterizer(state)) {
        *result = transparent_black;
        return miTRUE;
    }
    return mi_trace_continue(result, state);
}

void report_wrong_caller(miState* state, const char* unit, const char* format) {
    auto* const warned = instance_data_once<miBoolean>(state, unit, [](miBoolean&) {});
    if (warned != nullptr && !test_and_set(*warned))
        mi_error(format, shader_name(state));
}

const char* missing_input_format(MissingInput input) {
    return missing_input_formats[static_cast<int>(input)];
}

void report_missing(miState* state, MissingInput input, miBoolean& warned) {
    if (!test_and_set(warned))
        mi_error(missing_input_format(input), shader_name(state));
}

} // namespace orl

ORL_EXPORT miBoolean CallMaterial(miColor* result, miState* state, miTag material, miBoolean* warned) {
    using namespace orl;
    if (result == nullptr || state == nullptr)
        return miFALSE;
    if (!brings_a_value(state->type))
        *result = transparent_black;
    const int type = material ? mi_db_type(material) : 0;
    if (type != miSCENE_MATERIAL && type != miSCENE_FUNCTION)
        return miFALSE;
    return with_room(result, [=](miColor* value) {
        return type == miSCENE_MATERIAL ? run_material(value, state, material, warned)
                                        : run_function(value, state, material);
    });
}
