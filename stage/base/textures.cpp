// Patterns for connected parameters.
#include "base.h"

using namespace base;

// ---- base_checker: squares of two colours in texture space 0

struct base_checker_params {
    miColor odd;
    miColor even;
    miVector repeat; // squares for each unit of the texture coordinate
};

BASE_VERSION(base_checker, 1)

BASE_EXPORT miBoolean base_checker(miColor* result, miState* state, base_checker_params* params) {
    const miVector repeat = *mi_eval_vector(&params->repeat);
    miScalar uvw[3] = {0, 0, 0};
    if (!mi_texture_interpolate(state, 0, uvw))
        return miFALSE;
    const miScalar cell =
        std::floor(uvw[0] * repeat.x) + std::floor(uvw[1] * repeat.y) + std::floor(uvw[2] * repeat.z);
    *result = *mi_eval_color(std::fmod(cell, 2.0f) != 0.0f ? &params->odd : &params->even);
    return miTRUE;
}
