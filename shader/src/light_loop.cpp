/*
 * The light loop: walks the lights of a node, and adds up what they bring to the point at hand. Illumination
 * models, light meters and render elements stand on it.
 */
#include "light_samples.h"

namespace orl {
namespace {

// ---- walking the lights

// Rays that carry light, and displaced points, are not lit themselves.
bool can_be_lit(const miState* state) {
    return state != nullptr && state->instance != miNULLTAG && state->type != miRAY_LIGHT &&
           state->type != miRAY_SHADOW && state->type != miRAY_DISPLACE;
}

struct LightVisitor {
    miState* state;
    LightShapingRecord* record;
    orl_LightFunction function;
    void* context;

    // Deliberate: `ambientOnly` is not reset, so that a light that does not write the record is taken as the
    // one before it: lights of other libraries join those that they stand behind in the list.
    void visit_light(miTag light) const {
        record->valid = 0;
        record->shapedCosine = 1.0f;
        record->affectFlags = affects_all;
        function(state, light, record, context);
    }

    // A light, or a group of lights, which stands for its members.
    void visit(miTag element) const {
        int members = 0;
        if (element == miNULLTAG)
            return;
        if (!mi_query(miQ_GROUP_NKIDS, state, element, &members) || members < 1)
            return visit_light(element);
        for (int k = 0; k < members; ++k) {
            miTag member = miNULLTAG;
            if (mi_query(miQ_GROUP_KID, state, element, &member, k) && member != miNULLTAG)
                visit_light(member);
        }
    }

    void visit_all_of_scene() const {
        int count = 0;
        const miTag* lights = nullptr;
        if (!mi_query(miQ_NUM_GLOBAL_LIGHTS, state, miNULLTAG, &count) ||
            !mi_query(miQ_GLOBAL_LIGHTS, state, miNULLTAG, &lights) || lights == nullptr)
            return;
        for (int k = 0; k < count; ++k)
            visit(lights[k]);
    }
};

// ---- adding up samples

// Weight of a sample in diffuse light: the light's own shape of the cosine, or the cosine.
miScalar diffuse_factor(const LightShapingRecord& record, miScalar dot_nl) {
    return record.valid ? record.shapedCosine : dot_nl;
}

/* Mean of a light's samples, each times weight(cosine of incidence). A weight that is not positive leaves the
   sample out of the sum, not out of the number. */
template <class Weight> miColor weighted_mean(miState* state, miTag light, Weight weight) {
    return mean_of_samples<miColor>(state, light, [&weight](const LightSample& sample, miColor& sum) {
        const miScalar factor = weight(sample.dot_nl);
        if (factor > 0.0f)
            add(sum, sample.color, factor);
    });
}

void add_illuminance(miState* state, miTag light, LightShapingRecord* record, void* context) {
    auto& total = *static_cast<orl_Illuminance*>(context);
    add(total.color, weighted_mean(state, light, [&](miScalar dot_nl) {
            if (record->ambientOnly)
                return total.ambient ? 1.0f : 0.0f;
            const bool counts = total.diffuse && (record->affectFlags & affects_diffuse) != 0;
            return counts ? diffuse_factor(*record, dot_nl) : 0.0f;
        }));
    total.color.a = 1.0f;
}

void add_shaped_light(miState* state, miTag light, LightShapingRecord* record, void* context) {
    add(*static_cast<miColor*>(context),
        weighted_mean(state, light, [record](miScalar dot_nl) { return diffuse_factor(*record, dot_nl); }));
}

miScalar average_light(miState* state) {
    miColor light{};
    IllumAccumulate(state, add_shaped_light, &light);
    const miScalar average = (light.r + light.g + light.b) / 3.0f;
    return average > 0.0f ? average : 0.0f;
}

} // namespace
} // namespace orl

using namespace orl;

ORL_EXPORT void IllumAccumulate(miState* state, orl_LightFunction function, void* context) {
    if (function == nullptr || !can_be_lit(state))
        return;
    // The functions are given the record itself, so its place is theirs for the whole loop: lights write to
    // it, and none sets the key anew.
    const ScopedRecord shaping(state, keys::light_shaping, {0, 1.0f, 0, affects_all});
    LightShapingRecord* const record = shaping.get();
    if (record == nullptr)
        return;
    const LightVisitor visitor{state, record, function, context};
    const orl_NodeData* const node = GetNodeData(state->instance);
    if (node != nullptr)
        for (const miTag light : elements(node, &orl_NodeData::lights))
            visitor.visit(light);
    // In addition to the list: a light that is in both counts twice. To be lit by the list alone, a node has
    // all_lights off.
    if (node == nullptr || node->all_lights)
        visitor.visit_all_of_scene();
}

ORL_EXPORT void ComputeIlluminance(miState* state, orl_Illuminance* data) {
    if (data != nullptr)
        IllumAccumulate(state, add_illuminance, data);
}

ORL_EXPORT miScalar IllumShadow(miState* state) {
    constexpr miScalar unlit = 0.005f; // below, noise of the light would show as shadow
    if (!can_be_lit(state))
        return 1.0f;
    // `shadow_sort` is the other switch of shadows: renderers that still read it sort none in the first pass.
    ScopedOptions options(state);
    options->shadow_sort = miFALSE;
    const miScalar shadowed = average_light(state);
    miScalar unshadowed = shadowed;
    if (options->shadow) {
        options->shadow = 0;
        options->shadow_sort = miTRUE;
        unshadowed = average_light(state);
    }
    if (!(unshadowed > unlit))
        return 1.0f;
    const miScalar ratio = shadowed / unshadowed;
    return ratio > 1.0f ? 1.0f / ratio : ratio;
}
