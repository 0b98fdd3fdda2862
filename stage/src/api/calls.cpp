// Calling shaders from shaders.
#include "api/api.h"
#include "render/shading.h"

namespace {

// Runs the shader that the state's material has for a type of call.
miBoolean call_slot(void* result, miShader_type type, miState* state, void* arg = nullptr) {
    const miTag shader = stage::material_slot(stage::context_of(state).world->scene, state->material, type);
    return stage::call_shader(result, type, state, shader, arg);
}

// What a contour shader receives as its fourth argument.
struct ContourPair {
    void* near_side;
    void* far_side;
};

} // namespace

STAGE_API miBoolean mi_call_shader(miColor* result, miShader_type type, miState* state, miTag tag) {
    return stage::call_shader(result, type, state, tag, nullptr);
}

STAGE_API miBoolean mi_call_shader_x(miColor* result, miShader_type type, miState* state, miTag tag,
                                     void* arg) {
    return stage::call_shader(result, type, state, tag, arg);
}

STAGE_API miBoolean mi_call_material(miColor* result, miState* state) {
    return call_slot(result, miSHADER_MATERIAL, state);
}

STAGE_API miBoolean mi_call_shadow_material(miColor* result, miState* state) {
    return call_slot(result, miSHADER_SHADOW, state);
}

STAGE_API miBoolean mi_call_photon_material(miColor* result, miState* state) {
    return call_slot(result, miSHADER_PHOTON, state);
}

STAGE_API miBoolean mi_call_photonvol_material(miColor* result, miState* state) {
    return call_slot(result, miSHADER_PHOTONVOL, state);
}

STAGE_API miBoolean mi_call_volume_material(miColor* result, miState* state) {
    return call_slot(result, miSHADER_VOLUME, state);
}

STAGE_API miBoolean mi_call_environment_material(miColor* result, miState* state) {
    return call_slot(result, miSHADER_ENVIRONMENT, state);
}

STAGE_API miBoolean mi_call_contour_material(void* result, void* info_near, void* info_far, miState* state) {
    ContourPair pair{info_near, info_far};
    return call_slot(result, miSHADER_CONTOUR, state, &pair);
}

STAGE_API void* mi_phen_eval(miState* state, void* param) {
    return stage::evaluate_parameter(state, param);
}

// Every use of a connected parameter evaluates it again, so there are no results to forget; what the state
// remembers of its intersection stays valid.
STAGE_API void mi_flush_cache(miState*) {}
