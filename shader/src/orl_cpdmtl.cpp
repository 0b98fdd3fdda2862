/*
 * Compound materials: materials that run others, here the blend of two. They rely on CallMaterial, so that
 * one shader serves surfaces, shadows and photons.
 */
#include "orl_cpdmtl.h"
#include "hit_visit.h"
#include "mixing.h"
#include "orlshaderapi.h"
#include "output_request.h"

namespace orl {

namespace {

struct BlendInstance {
    miBoolean warned;
    int mtlIdBuffer;
};

struct BlendThread {
    HitVisit visit;
};

BlendChoice choose(miState* state, const BlendMaterialParams* params) {
    const miTag mask = eval(state, params->maskOn) ? eval(state, params->mask) : miNULLTAG;
    if (mask == miNULLTAG)
        return choose_blend(eval(state, params->mixAmount));
    miColor color;
    call_map(&color, state, mask, OutputRequest::mono);
    // Deliberate: this material's third is a little small, so that a white mask just stays below 1. Maps
    // and other materials use 0.33333334.
    const miScalar mix = (color.r + color.g + color.b) * 0.33333f;
    if (!eval(state, params->useCurve))
        return choose_blend(mix);
    return choose_blend(mixing_curve(mix, eval(state, params->lower), eval(state, params->upper)));
}

// Runs a material on the result as it came in; the null tag stands for one that is off.
void run(miColor* result, miState* state, miTag material) {
    if (material == miNULLTAG || !CallMaterial(result, state, material, nullptr))
        *result = transparent_black;
}

// Deliberate: without a second material the first one's colour is not scaled.
void blend(miColor* result, miState* state, miTag first, miTag second, miScalar weight) {
    miState copy = *state;
    const miColor incoming = *result;
    const miScalar importance = state->importance;
    state->importance = (1.0f - weight) * importance;
    copy.importance = weight * importance;
    run(result, state, first);
    if (second != miNULLTAG) {
        miColor other = incoming;
        run(&other, &copy, second);
        *result = mixed(*result, other, weight);
    }
    state->importance = importance;
}

} // namespace

// ---- blend material

ORL_VERSION(orl_cpdmtl, orl_BlendMaterial);

ORL_EXPORT void orl_BlendMaterial_init(miState* state, const BlendMaterialParams* params,
                                       miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    if (auto* const data = new_instance_data<BlendInstance>(state))
        data->mtlIdBuffer = frame_buffer_index(state, "fb_mtl_id");
}

ORL_EXPORT void orl_BlendMaterial_exit(miState* state, const BlendMaterialParams* params) {
    if (params == nullptr)
        return;
    delete_thread_data(state);
    delete_instance_data(state);
}

ORL_EXPORT miBoolean orl_BlendMaterial(miColor* result, miState* state, const BlendMaterialParams* params) {
    auto* const thread = thread_data<BlendThread>(state);
    const ScopedVisit visit(state, thread ? &thread->visit : nullptr);
    if (visit.is_recursive)
        return miFALSE;
    if (const auto* const instance = instance_data<BlendInstance>(state))
        put_material_id(state, instance->mtlIdBuffer, params->mtlId);
    const BlendChoice choice = choose(state, params);
    const miTag first = eval(state, params->material1On) ? eval(state, params->material1) : miNULLTAG;
    const miTag second = eval(state, params->material2On) ? eval(state, params->material2) : miNULLTAG;
    if (choice.which == BlendChoice::both && first != miNULLTAG)
        blend(result, state, first, second, choice.weight);
    else
        run(result, state, choice.which == BlendChoice::first ? first : second);
    // A shadow ray without light is blocked.
    return state->type != miRAY_SHADOW || !is_black(*result);
}

} // namespace orl
