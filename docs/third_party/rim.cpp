// A material around another one: its silhouette glows in the colour that the host draws the node's wires
// with.
#include <cmath>

#include "orlshaders.h"

struct RimParams {
    miTag material;
    miScalar width;    // of the rim: 0 none, 1 all over
    miScalar strength; // of its light
};

extern "C" DLLEXPORT int rim_version() {
    return 1;
}

extern "C" DLLEXPORT miBoolean rim(miColor* result, miState* state, RimParams* params) {
    // The material, whatever kind of ray asks. Only what is seen gets a rim: no shadows, no photons.
    const miBoolean shaded = CallMaterial(result, state, *mi_eval_tag(&params->material), nullptr);
    const orl_NodeData* node = GetNodeData(state->instance);
    const bool seen =
        state->type == miRAY_EYE || state->type == miRAY_REFLECT || state->type == miRAY_REFRACT;
    if (!shaded || !node || !seen)
        return shaded;

    const miScalar width = *mi_eval_scalar(&params->width);
    const miScalar facing = std::fabs(state->dot_nd); // 1 in the middle, 0 at the silhouette
    if (facing >= width)
        return shaded;
    const miScalar rim = *mi_eval_scalar(&params->strength) * (1.0f - facing / width);
    result->r += node->color_r * rim;
    result->g += node->color_g * rim;
    result->b += node->color_b * rim;
    return miTRUE;
}
