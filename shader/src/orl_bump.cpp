/*
 * The bump shader: bends the normal of the state, in a list of shaders in front of the one that shades. It
 * relies on maps that answer a vector request with the change of the normal.
 */
#include "orl_bump.h"
#include "orlshaderapi.h"
#include "output_request.h"

namespace orl {
namespace {

// ---- instance record

struct BumpInstance {
    miBoolean warned; // a map is missing; nothing is said about it
    OutputRequest request;
    miInteger reserved[2];
};
static_assert(sizeof(BumpInstance) == 16);

// ---- shading

// The geometric normal stays. So does the normal when the map gives what no surface has; one that the bump
// takes away altogether is kept as it is, of length 0.
void bend(miState* state, const miColor& bump, miScalar amount) {
    miVector normal = state->normal;
    normal.x += bump.r * amount;
    normal.y += bump.g * amount;
    normal.z += bump.b * amount;
    const miScalar length = mi_vector_norm(&normal);
    if (!std::isfinite(length))
        return;
    if (length > 0.0f)
        mi_vector_div(&normal, length);
    state->normal = normal;
    state->dot_nd = mi_vector_dot(&state->normal, &state->dir);
}

} // namespace

// ---- entry points

ORL_VERSION(orl_bump, orl_Bump);

ORL_EXPORT void orl_Bump_init(miState* state, const BumpParams* params, miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    if (auto* const instance = new_instance_data<BumpInstance>(state))
        instance->request = OutputRequest::vector;
}

// Deliberate: the bend is the same on both sides of a surface. The standard material, which turns it around
// on back sides, has a slot of its own for bump maps.
ORL_EXPORT miBoolean orl_Bump(miColor*, miState* state, const BumpParams* params) {
    auto* const instance = instance_data<BumpInstance>(state);
    const miTag map = instance ? eval(state, params->bumpMap) : miNULLTAG;
    if (map == miNULLTAG) {
        if (instance != nullptr)
            test_and_set(instance->warned);
        return miTRUE;
    }
    miColor bump;
    if (call_map(&bump, state, map, instance->request))
        bend(state, bump, eval(state, params->bumpAmount));
    return miTRUE;
}

ORL_EXPORT void orl_Bump_exit(miState* state, const BumpParams* params) {
    if (params != nullptr)
        delete_instance_data(state);
}

} // namespace orl
