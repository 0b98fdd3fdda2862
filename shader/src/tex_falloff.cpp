/*
 * The falloff map.
 */
#include "tex_falloff.h"
#include "orlshaderapi.h"

#include <cmath>

namespace orl {
namespace {

FalloffParams read(miState* state, const FalloffParams& p) {
    FalloffParams now;
    now.fromValue = eval(state, p.fromValue);
    now.toValue = eval(state, p.toValue);
    now.signedRange = eval(state, p.signedRange);
    now.direction = eval(state, p.direction);
    now.mtlId = eval(state, p.mtlId);
    now.point = eval(state, p.point);
    return now;
}

miScalar axis(const miVector& v, miInteger number) {
    return number == 0 ? v.x : number == 1 ? v.y : v.z;
}

// Cosine with the direction to a point in world space; 0 at the point itself.
miScalar cosine_towards(miState* state, miVector point) {
    miVector to;
    mi_point_from_world(state, &to, &point);
    to = {to.x - state->point.x, to.y - state->point.y, to.z - state->point.z};
    mi_vector_normalize(&to);
    return mi_vector_dot(&state->normal, &to);
}

miScalar cosine(miState* state, const FalloffParams& p) {
    miVector n = state->normal;
    switch (p.direction) {
    case 0:
        return -mi_vector_dot(&state->normal, &state->dir);
    case 1:
        return cosine_towards(state, p.point);
    case 2:
    case 3:
    case 4:
        mi_vector_to_object(state, &n, &state->normal);
        return axis(n, p.direction - 2);
    case 5:
    case 6:
    case 7:
        mi_vector_to_world(state, &n, &state->normal);
        return axis(n, p.direction - 5);
    default:
        return 0;
    }
}

} // namespace

ORL_MAP(tex_falloff, orl_Falloff, FalloffParams);

ORL_EXPORT miBoolean orl_Falloff(miColor* result, miState* state, const FalloffParams* params,
                                 OutputRequest* request) {
    const FalloffParams p = read(state, *params);
    put_map_id(state, p.mtlId);
    if (request != nullptr && *request >= OutputRequest::vector) {
        answer_vector(result, {0, 0, 0, 0});
        return miTRUE;
    }
    const miScalar x = cosine(state, p);
    const miScalar t = p.signedRange ? (x + 1.0f) * 0.5f : std::fabs(x);
    const miScalar value = (1.0f - t) * p.fromValue + t * p.toValue;
    *result = {value, value, value, 1};
    return miTRUE;
}

} // namespace orl
