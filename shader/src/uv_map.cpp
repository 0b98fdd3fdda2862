/*
 * Maps over (u, v) as callers of their coordinate generators.
 */
#include "uv_map.h"

namespace orl {

bool sample_uv_map(miColor* result, miState* state, miTag generator, const UvMap& map,
                   OutputRequest request) {
    // The caller's own record ends behind the request, so the generator gets one with room for the selector.
    const GeneratorRequest wanted{request, context::selector_of(state)};
    UvBumpRequest ask{
        UvBumpRequest::magic_number, map.plain, &wanted, map.use_filtered, map.filtered, map.data};
    *result = {0, 0, 0, 0};
    if (call_in_slot(result, state, miSHADER_TEXTURE, generator, &ask))
        return true;
    *result = {0, 0, 0, 0};
    return false;
}

miVector bump_uv_map(miState* state, miTag generator, const UvMap& map) {
    // Between the gradient of a map of unit intensity and the change of the normal.
    constexpr miScalar bump_scale = 0.01f;
    UvDerivRecord derivatives{UvDerivRecord::magic_number, UvDerivRecord::tangents, {}, {}, {}, {}};
    void* const user = state->user;
    const int user_size = state->user_size;
    state->user = &derivatives;
    state->user_size = sizeof derivatives;
    miColor gradient;
    const bool sampled = sample_uv_map(&gradient, state, generator, map, OutputRequest::vector);
    state->user = user;
    state->user_size = user_size;
    if (!sampled)
        return {0, 0, 0};
    const miScalar a = gradient.r * bump_scale, b = gradient.g * bump_scale;
    const miVector &u = derivatives.dPdu, &v = derivatives.dPdv;
    return {u.x * a + v.x * b, u.y * a + v.y * b, u.z * a + v.z * b};
}

} // namespace orl
