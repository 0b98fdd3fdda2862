// Shader state records of the interface: kept by the thread that renders the state's sample.
#include "kit/shader_state.h"
#include "api/api.h"

STAGE_API miBoolean mi_shaderstate_set(miState* state, const char* key, void* value, int size, int lifetime) {
    return stage::context_of(state).records.set(key, value, size, lifetime) ? miTRUE : miFALSE;
}

STAGE_API void* mi_shaderstate_get(miState* state, const char* key, int* size) {
    return stage::context_of(state).records.get(key, size);
}
