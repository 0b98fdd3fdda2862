// The least that a material and a light can do, so that a benchmark times the stage around them.
#include "shader.h"

struct trivial_material_params {
    int i_lights;
    int n_lights;
    miTag lights[1];
};

extern "C" DLLEXPORT int trivial_material_version() {
    return 1;
}

extern "C" DLLEXPORT miBoolean trivial_material(miColor* result, miState* state,
                                                trivial_material_params* params) {
    miScalar sum = 0.0f;
    const miTag* lights = params->lights + params->i_lights;
    for (int i = 0; i < params->n_lights; ++i) {
        miColor color;
        miVector dir;
        miScalar dot_nl;
        miInteger samples = 0;
        while (mi_sample_light(&color, &dir, &dot_nl, state, lights[i], &samples))
            sum += color.r * dot_nl;
    }
    *result = {sum, sum, sum, 1.0f};
    return miTRUE;
}

extern "C" DLLEXPORT int trivial_light_version() {
    return 1;
}

extern "C" DLLEXPORT miBoolean trivial_light(miColor* result, miState* state, void*) {
    *result = {1.0f, 1.0f, 1.0f, 1.0f};
    return mi_trace_shadow(result, state);
}
