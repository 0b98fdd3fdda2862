#include "render/gather.h"

namespace stage {

miBoolean gather_irradiance(miColor* result, miState*, bool) {
    *result = {};
    return miFALSE;
}

bool is_below_gathering(const miState* state) {
    for (const miState* s = state; s; s = s->parent)
        if (s->type == miRAY_FINALGATHER)
            return true;
    return false;
}

} // namespace stage
