// Stripes across an object, with soft borders: a first shader.
#include "shader.h"

#include <cmath>

struct StripesParams {
    miColor odd, even;
    miScalar width;    // of a stripe, in units of the object
    miScalar softness; // of its borders: 0 hard, 1 as wide as the stripe
};

extern "C" DLLEXPORT int stripes_version() {
    return 1;
}

static miScalar clamped(miScalar x) {
    return x < 0.0f ? 0.0f : x > 1.0f ? 1.0f : x;
}

// 0 in the middle of an odd stripe, 1 in that of an even one.
static miScalar stripe(miScalar y, miScalar width, miScalar softness) {
    const miScalar wave = std::fabs(std::remainder(y / width, 2.0f)); // 0 to 1 and back
    const miScalar edge = softness > 0.001f ? softness : 0.001f;
    return clamped((wave - 0.5f) / edge + 0.5f);
}

extern "C" DLLEXPORT miBoolean stripes(miColor* result, miState* state, StripesParams* params) {
    const miScalar width = *mi_eval_scalar(&params->width);
    if (!(width > 0.0f))
        return miFALSE;
    miVector point;
    mi_point_to_object(state, &point, &state->point);
    const miScalar share = stripe(point.y, width, *mi_eval_scalar(&params->softness));
    const miColor* odd = mi_eval_color(&params->odd);
    const miColor* even = mi_eval_color(&params->even);
    *result = {odd->r + share * (even->r - odd->r), odd->g + share * (even->g - odd->g),
               odd->b + share * (even->b - odd->b), 1.0f};
    return miTRUE;
}
