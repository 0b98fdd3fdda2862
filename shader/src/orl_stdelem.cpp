/*
 * The standard render elements. A material hands its components over at each point of the eye ray, and the
 * element makes its share of the picture of them; after the trace it has a last word on what it gathered.
 *
 * Colours of surfaces carry the surface's coverage as alpha, and are the surface's own: the handler adds what
 * lies behind through the surface's transparency.
 */
#include "orl_stdelem.h"
#include "hsv.h"
#include "output_request.h"

#include <algorithm>
#include <array>
#include <limits>

namespace orl {

// ---- mathematics

miScalar coverage(const miColor& transparency) {
    return std::clamp(1.0f - (transparency.r + transparency.g + transparency.b) / 3.0f, 0.0f, 1.0f);
}

namespace {

// Hue of each low byte of an id. The step is odd, so that each hue is there once, and near the golden section
// of the circle, so that ids in sequence differ most.
constexpr auto identity_hues = [] {
    std::array<unsigned char, 256> hues{};
    for (unsigned id = 0; id < 256; ++id)
        hues[id] = static_cast<unsigned char>(id * 159u & 255u);
    return hues;
}();

miColor grey(miScalar value) {
    return {value, value, value, 0};
}

miColor scaled(const miColor& c, miScalar factor) {
    return {c.r * factor, c.g * factor, c.b * factor, c.a};
}

miColor sum(const miColor& x, const miColor& y) {
    return {x.r + y.r, x.g + y.g, x.b + y.b, 0};
}

// A set of element types.
template <class... Types> constexpr unsigned types(Types... all) {
    return (0u | ... | (1u << all));
}
constexpr bool contains(unsigned set, miInteger type) {
    return (set >> type & 1u) != 0;
}

// Made of what the material shades, so black where a material did not fill that in.
constexpr unsigned shaded =
    types(element_blend, element_diffuse, element_refraction, element_lighting, element_reflection,
          element_ink, element_paint, element_self_illumination, element_shadow, element_specular,
          element_illuminance_hdr, element_luminance_hdr);
constexpr unsigned tone_mapped =
    types(element_blend, element_diffuse, element_refraction, element_lighting, element_reflection,
          element_self_illumination, element_specular, element_illuminance_hdr);

/* What a thread has seen, for the result parameters. */
struct ElementRange {
    miScalar largest = 0;
    miScalar smallest = std::numeric_limits<miScalar>::max();
    miScalar squaredSpeed = 0;
};

} // namespace

miColor identity_color(miInteger id) {
    const auto bits = static_cast<miUint>(id); // those above the second byte are left out
    const miScalar hue = static_cast<miScalar>(identity_hues[bits & 255u]) / 255.0f;
    const miScalar saturation = 1.0f - static_cast<miScalar>(bits >> 8 & 255u) / 255.0f;
    miColor color = color_of_hsv(hue, saturation, 1.0f);
    color.a = 0.0f;
    return color;
}

miScalar depth_grey(miScalar distance, miScalar nearest, miScalar farthest) {
    if (distance < nearest)
        return 1.0f;
    if (!(distance <= farthest))
        return 0.0f;
    return distance > nearest ? 1.0f - (distance - nearest) / (farthest - nearest) : 1.0f;
}

namespace {

// ---- what the components are made of

miColor reflection_of(const orl_PostIllumData& data) {
    const bool weight = data.inputs.weightByOpacity & orl_weight_reflection;
    return scaled(data.reflection, weight ? data.inputs.opacity : 1.0f);
}

miColor refraction_of(const orl_PostIllumData& data) {
    const bool weight = data.inputs.weightByOpacity & orl_weight_refraction;
    return scaled(data.refraction, weight ? data.inputs.opacity : 1.0f);
}

miColor blend_of(miState* state, const StdElementParams* params, const orl_PostIllumData& data) {
    const orl_PostIllumOutputs& from = data.outputs;
    const auto opaque = [&](const miColor& c) { return scaled(c, data.inputs.opacity); };
    miColor color{};
    if (eval(state, params->ambient))
        color = sum(color, opaque(from.ambient));
    if (eval(state, params->diffuse))
        color = sum(color, opaque(from.diffuse));
    if (eval(state, params->specular))
        color = sum(color, from.specular);
    if (eval(state, params->selfIllumination))
        color = sum(color, opaque(from.selfIllumination));
    if (eval(state, params->reflection))
        color = sum(color, reflection_of(data));
    if (eval(state, params->refraction))
        color = sum(color, refraction_of(data));
    return color;
}

miColor direct_light(miState* state) {
    orl_Illuminance light{{}, miTRUE, miTRUE};
    ComputeIlluminance(state, &light);
    return light.color;
}

// All light that arrives at the point.
miColor lighting(miState* state) {
    const miColor direct = direct_light(state);
    miColor indirect{};
    return mi_compute_irradiance(&indirect, state) ? sum(direct, indirect) : direct;
}

miScalar luminance(miState* state, miColor color) {
    return mi_luminance(state, &color);
}

// A material that catches shadows knows their colour.
miColor shadow_of(miState* state, const orl_PostIllumData& data) {
    return data.inputs.shadowIsSet ? data.shadow : grey(IllumShadow(state));
}

// Number of the node, or the label of an instance that the host knows nothing of.
miInteger object_id(miState* state) {
    if (const orl_NodeData* const node = GetNodeData(state->instance))
        return node->node_id;
    miUint label = 0;
    const bool known = state->instance && mi_query(miQ_INST_LABEL, state, state->instance, &label);
    return known ? static_cast<miInteger>(label) : 0;
}

bool is_in_matte(miState* state, const StdElementParams* params, const orl_PostIllumData& data) {
    if (eval(state, params->matteMaterial) && data.materialId == eval(state, params->matteMaterialId))
        return true;
    if (eval(state, params->matteObject) && object_id(state) == eval(state, params->matteObjectId))
        return true;
    const auto instances = span(state, params, &StdElementParams::matteInstances);
    for (miInteger k = 0; k < instances.size(); ++k)
        if (const miTag instance = instances[k]; instance != miNULLTAG && instance == state->instance)
            return true;
    return false;
}

miColor matte(miState* state, const StdElementParams* params, const orl_PostIllumData& data) {
    const bool inverted = eval(state, params->matteInverted);
    return grey(is_in_matte(state, params, data) != inverted ? 1.0f : 0.0f);
}

miColor velocity(miState* state) {
    const miScalar squared = mi_vector_dot(&state->motion, &state->motion);
    if (auto* const range = thread_data<ElementRange>(state))
        range->squaredSpeed = std::max(range->squaredSpeed, squared);
    miVector motion{};
    mi_vector_to_camera(state, &motion, &state->motion);
    return {motion.x, motion.y, motion.z, 0};
}

// What the eye would see without any surface.
miColor background(miState* state) {
    const miState* eye = state;
    while (eye->type == miRAY_TRANSPARENT && eye->parent != nullptr)
        eye = eye->parent;
    miVector dir = eye->dir;
    miColor color{};
    const miTag environment = state->camera->environment;
    bool seen = false;
    if (environment != miNULLTAG) {
        std::swap(dir, state->dir);
        seen = call_in_slot(&color, state, miSHADER_ENVIRONMENT, environment);
        std::swap(dir, state->dir);
    } else {
        seen = mi_trace_environment(&color, state, &dir);
    }
    if (!seen)
        return {};
    ToneOpScaledToRGB(state, &color, miFALSE);
    return color;
}

bool is_hair(miState* state) {
    miTag item = miNULLTAG;
    int type = -1;
    return state->instance != miNULLTAG && mi_query(miQ_INST_ITEM, state, state->instance, &item) &&
           mi_query(miQ_OBJ_TYPE, state, item, &type) && type == miOBJECT_HAIR;
}

// ---- phases

miColor surface_color(miState* state, const StdElementParams* params, miInteger type,
                      const orl_PostIllumData& data) {
    const orl_PostIllumOutputs& from = data.outputs;
    switch (type) {
    case element_blend:
        return blend_of(state, params, data);
    case element_diffuse:
        return scaled(sum(from.diffuse, from.ambient), data.inputs.opacity);
    case element_refraction:
        return refraction_of(data);
    case element_lighting:
    case element_illuminance_hdr:
        return lighting(state);
    case element_luminance_hdr:
        return grey(luminance(state, direct_light(state)));
    case element_matte:
        return matte(state, params, data);
    case element_reflection:
        return reflection_of(data);
    case element_ink:
        return from.ink;
    case element_paint:
        return from.paint;
    case element_self_illumination:
        return scaled(from.selfIllumination, data.inputs.opacity);
    case element_shadow:
        return shadow_of(state, data);
    case element_specular:
        return from.specular;
    case element_velocity:
        return velocity(state);
    case element_material_id:
        return identity_color(data.materialId);
    case element_object_id:
        return identity_color(object_id(state));
    default:
        return {};
    }
}

miColor surface_element(miState* state, const StdElementParams* params, miInteger type,
                        const orl_PostIllumData& data) {
    if (data.kind != 0 && contains(shaded, type))
        return {};
    miColor color = surface_color(state, params, type, data);
    if (contains(tone_mapped, type))
        ToneOpScaledToRGB(state, &color, miFALSE);
    color.a = coverage(data.outputs.transparency);
    return color;
}

miColor post_illumination(miState* state, const StdElementParams* params, miInteger type,
                          orl_PostIllumData& data) {
    switch (type) {
    case element_alpha:
        return {0, 0, 0, coverage(data.outputs.transparency)};
    case element_atmosphere:
        return {};
    case element_background:
        data.outputs.elementReplace = miTRUE;
        return background(state);
    case element_z_depth:
        data.outputs.elementReplace = miTRUE;
        return {};
    case element_hair_and_fur:
        data.outputs.elementReplace = miTRUE;
        return {0, 0, 0, is_hair(state) ? coverage(data.outputs.transparency) : 0.0f};
    default:
        return surface_element(state, params, type, data);
    }
}

miColor final_depth(miState* state, const StdElementParams* params, const orl_ElementFinal& gathered) {
    miColor color = gathered.color;
    const miScalar distance = gathered.distance;
    if (!(distance > 0.0f) && state->pri == nullptr)
        return color;
    color.r = color.g = color.b =
        depth_grey(distance, eval(state, params->nearDepth), eval(state, params->farDepth));
    // Deliberate: a new largest distance is not looked at for the smallest. The host reads the two as a range
    // for the next render, and has always got it so.
    if (auto* const range = thread_data<ElementRange>(state)) {
        if (distance > range->largest)
            range->largest = distance;
        else if (distance < range->smallest)
            range->smallest = distance;
    }
    return color;
}

miColor final_atmosphere(miState* state, miColor color) {
    miColor alpha = {color.a, color.a, color.a, color.a};
    ToneOpScaledToRGB(state, &color, miTRUE);
    ToneOpScaledToRGB(state, &alpha, miTRUE);
    color.a = std::min(alpha.r, 1.0f);
    return color;
}

// Deliberate: an operator that processes backgrounds maps the whole of what the eye ray brings home, also the
// blend, whose parts have been mapped at their points. Pictures have been balanced with it on; hosts that
// want the blend mapped once leave it off.
miColor final_blend(miState* state, miColor color) {
    const miScalar alpha = color.a;
    ToneOpScaledToRGB(state, &color, miTRUE);
    color.a = alpha;
    return color;
}

miColor final_color(miState* state, const StdElementParams* params, miInteger type,
                    const orl_ElementFinal& gathered) {
    const miColor& color = gathered.color;
    switch (type) {
    case element_alpha:
    case element_hair_and_fur: // they gathered an alpha and no colour
        return {color.a, color.a, color.a, color.a};
    case element_atmosphere:
        return final_atmosphere(state, color);
    case element_blend:
        return final_blend(state, color);
    case element_specular:
        return {color.r, color.g, color.b, (color.r + color.g + color.b) / 3.0f};
    case element_z_depth:
        return final_depth(state, params, gathered);
    default:
        return color;
    }
}

// Maps and materials are called as textures, with other records than the handler's.
bool is_callable(miState* state, const orl_RenderElementCall* call) {
    if (call == nullptr)
        return false;
    if (call_type(state) != miSHADER_TEXTURE)
        return true;
    report_wrong_caller(state, "orl_stdelem",
                        "\"%s\" is a render element: only orl_RenderElementHandler can call it");
    return false;
}

// ---- end of the render

ElementRange range_of_all_threads(miState* state) {
    ElementRange all;
    void** threads = nullptr;
    int count = 0;
    if (!mi_query(miQ_FUNC_TLS_GETALL, state, miNULLTAG, &threads, &count) || threads == nullptr)
        return all;
    for (int k = 0; k < count; ++k)
        if (const auto* const range = static_cast<const ElementRange*>(threads[k])) {
            all.largest = std::max(all.largest, range->largest);
            all.smallest = std::min(all.smallest, range->smallest);
            all.squaredSpeed = std::max(all.squaredSpeed, range->squaredSpeed);
        }
    return all;
}

} // namespace
} // namespace orl

using namespace orl;

ORL_VERSION(orl_stdelem, orl_StdRenderElements);

ORL_EXPORT miBoolean orl_StdRenderElements(miColor* result, miState* state, const StdElementParams* params,
                                           orl_RenderElementCall* call) {
    if (!is_callable(state, call))
        return miTRUE;
    const miInteger type = eval(state, params->type);
    // A call that is no texture call may bring another's record, which begins like this one.
    if (type < 0 || type >= element_type_count || call->data == nullptr)
        return miTRUE;
    if (call->phase == orl_phase_post_illumination)
        *result = post_illumination(state, params, type, *static_cast<orl_PostIllumData*>(call->data));
    else if (call->phase == orl_phase_final)
        *result = final_color(state, params, type, *static_cast<const orl_ElementFinal*>(call->data));
    return miTRUE;
}

// The host reads the results from the parameter block, which is the renderer's own and stays writable there.
ORL_EXPORT void orl_StdRenderElements_exit(miState* state, StdElementParams* params) {
    if (params == nullptr)
        return;
    const ElementRange range = range_of_all_threads(state);
    const miInteger type = params->type; // no shader runs here, so it is not evaluated
    if (type == element_z_depth) {
        // Where all distances were new largest ones there is no smallest, and the range is one distance.
        params->nearestDepth = std::min(range.smallest, range.largest);
        params->farthestDepth = range.largest;
    } else if (type == element_velocity) {
        params->highestSpeed = std::sqrt(range.squaredSpeed);
    }
    delete_thread_data(state);
    delete_instance_data(state);
}
