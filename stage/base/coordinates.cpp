// Coordinates made visible.
#include "base.h"

using namespace base;

// ---- base_vector_color: the components of a vector as red, green and blue, as they are

struct base_vector_color_params {
    miVector vector;
};

BASE_VERSION(base_vector_color, 1)

BASE_EXPORT miBoolean base_vector_color(miColor* result, miState* state, base_vector_color_params* params) {
    const miVector v = *mi_eval_vector(&params->vector);
    *result = {v.x, v.y, v.z, 1.0f};
    return miTRUE;
}
