/*
 * Render elements: the lens that traces the eye ray for them and writes their pictures, and the way from a
 * material to the element shaders.
 *
 * The lens keeps the list of active elements, read-only after init, and colours for each thread. It shows
 * both to materials under a key of the shader state while the eye ray is traced. A material hands its
 * components to every element of the running pass; after the trace each element gets its final phase and is
 * written to its frame buffer.
 */
#include "orl_rendelem.h"
#include "output_request.h"

#include <charconv>

namespace orl {
namespace {

// ---- from the material to the elements

// What is behind shows through the surface; alpha gathers what is not covered yet.
miColor composite(const miColor& behind, const miColor& transparency, const miColor& own) {
    return {behind.r * transparency.r + own.r, behind.g * transparency.g + own.g,
            behind.b * transparency.b + own.b, (1.0f - behind.a) * own.a + behind.a};
}

bool runs_in_pass(const RenderElementState& elements, miInteger k) {
    return elements.list->without_shadows[k] ? elements.runUnshadowedPass : elements.runNormalPass;
}

// An element whose shader fails adds nothing, but is covered like the others.
miColor call_element(miState* state, miTag shader, orl_PostIllumData* data) {
    orl_RenderElementCall call{orl_phase_post_illumination, data};
    miColor own = transparent_black;
    data->outputs.elementReplace = miFALSE;
    if (call_in_slot(&own, state, miSHADER_DEFAULT, shader, &call))
        return own;
    data->outputs.elementReplace = miFALSE;
    return transparent_black;
}

void gather(miState* state, const RenderElementState& elements, orl_PostIllumData* data) {
    for (miInteger k = 0; k < elements.list->count; ++k) {
        if (!runs_in_pass(elements, k))
            continue;
        miColor& color = elements.results->color[k];
        const miColor own = call_element(state, elements.list->shader[k], data);
        color = data->outputs.elementReplace ? own : composite(color, data->outputs.transparency, own);
    }
}

// ---- the list of elements

// Arrays of another length than the list of shaders read as null beyond their end.
template <class Element> Element at(const ArraySpan<Element>& array, miInteger k) {
    return k < array.size() ? array[k] : Element{};
}

// The parameters of the handler that hold a value for each element.
struct ElementArrays {
    ArraySpan<miTag> shader;
    ArraySpan<miBoolean> enabled, without_shadows, apply_atmosphere;
    ArraySpan<miInteger> aux;
    ArraySpan<miBoolean> beauty_fallback;

    ElementArrays(miState* state, const RenderElementHandlerParams* params)
        : shader(span(state, params, &RenderElementHandlerParams::elementShaders)),
          enabled(span(state, params, &RenderElementHandlerParams::elementEnabled)),
          without_shadows(span(state, params, &RenderElementHandlerParams::elementWithoutShadows)),
          apply_atmosphere(span(state, params, &RenderElementHandlerParams::elementApplyAtmosphere)),
          aux(span(state, params, &RenderElementHandlerParams::elementAux)),
          beauty_fallback(span(state, params, &RenderElementHandlerParams::elementBeautyFallback)) {}

    bool is_active(miInteger k) const { return at(enabled, k) && shader[k] != miNULLTAG; }

    miInteger active_count() const {
        miInteger count = 0;
        for (miInteger k = 0; k < shader.size(); ++k)
            count += is_active(k);
        return count;
    }
};

// Index of the frame buffer of element k, counted among all elements.
int element_buffer(miState* state, miInteger k) {
    char name[24] = "fb_re#";
    constexpr std::size_t prefix = 6;
    *std::to_chars(name + prefix, name + sizeof name - 1, k).ptr = '\0';
    return frame_buffer_index(state, name);
}

// The arrays lie in one block, which the first of them begins.
void allocate_arrays(RenderElementList& list, miInteger count) {
    static_assert(sizeof(miTag) == sizeof(miInteger));
    const auto n = static_cast<std::size_t>(count);
    auto* const block = static_cast<miInteger*>(
        mi_mem_int_allocate("orl_rendelem", __LINE__, static_cast<miUint>(6 * n * sizeof(miInteger))));
    list.without_shadows = block;
    list.apply_atmosphere = block + n;
    list.shader = new (block + 2 * n) miTag[n];
    list.buffer = block + 3 * n;
    list.aux = block + 4 * n;
    list.beauty_fallback = block + 5 * n;
}

void add_element(miState* state, RenderElementList& list, const ElementArrays& elements, miInteger k) {
    const miInteger place = list.count++;
    const bool without_shadows = at(elements.without_shadows, k);
    (without_shadows ? list.needs_unshadowed_pass : list.needs_normal_pass) = miTRUE;
    list.without_shadows[place] = without_shadows;
    list.apply_atmosphere[place] = at(elements.apply_atmosphere, k);
    list.shader[place] = elements.shader[k];
    list.buffer[place] = element_buffer(state, k);
    list.aux[place] = at(elements.aux, k);
    list.beauty_fallback[place] = at(elements.beauty_fallback, k);
}

void make_list(miState* state, const RenderElementHandlerParams* params) {
    auto* const list = new_instance_data<RenderElementList>(state);
    if (list == nullptr)
        return;
    const ElementArrays elements(state, params);
    const miInteger count = elements.active_count();
    if (count > 0)
        allocate_arrays(*list, count);
    // Connected parameters may answer differently this time, so both ends are looked at.
    for (miInteger k = 0; k < elements.shader.size() && list->count < count; ++k)
        if (elements.is_active(k))
            add_element(state, *list, elements, k);
    list->needs_normal_pass |= eval(state, params->renderBeauty) ? miTRUE : miFALSE;
}

// ---- one sample

// This thread's colours, all black; null where there is no place for them.
RenderElementResults* fresh_results(miState* state, miInteger count) {
    const auto n = static_cast<miUint>(count);
    auto* const results = thread_data<RenderElementResults>(state, n * static_cast<miUint>(sizeof(miColor)));
    if (results != nullptr) {
        results->color = new (results + 1) miColor[n]{};
        results->busy = miFALSE;
    }
    return results;
}

/* Traces the eye ray once or, where shadows are on, for each kind of element that there is. Lenses further in
   may bend the ray, so each pass starts it anew; shaders that set the key or take it away may move the
   record, so each pass looks for it. True when every ray succeeded. */
class EyePasses {
public:
    EyePasses(miColor* result, miState* state, const RenderElementList& list)
        : result_(result), state_(state), list_(list), before_(*result), org_(state->org), dir_(state->dir) {}

    bool run() {
        if (!state_->options->shadow)
            return trace(miTRUE, miTRUE);
        bool done = true;
        if (list_.needs_unshadowed_pass) {
            ScopedOptions options(state_);
            options->shadow = 0;
            done = trace(miFALSE, miTRUE);
        }
        if (!list_.needs_normal_pass)
            return done;
        if (list_.needs_unshadowed_pass) {
            state_->pri = nullptr;
            *result_ = before_;
        }
        return trace(miTRUE, miFALSE) && done;
    }

private:
    bool trace(miBoolean normal, miBoolean unshadowed) {
        if (RenderElementState* const elements = find_record(state_, keys::render_elements)) {
            elements->runNormalPass = normal;
            elements->runUnshadowedPass = unshadowed;
        }
        miVector org = org_, dir = dir_;
        return mi_trace_eye(result_, state_, &org, &dir);
    }

    miColor* result_;
    miState* state_;
    const RenderElementList& list_;
    miColor before_;
    miVector org_, dir_;
};

// Last word of an element on its colour; one whose shader fails leaves it as it is.
miColor finish(miState* state, const RenderElementList& list, miInteger k, miColor gathered) {
    const miTag volume = state->camera->volume;
    if (list.apply_atmosphere[k] && volume != miNULLTAG) {
        void* const hit = state->pri; // volume shaders may trace, elements ask what the eye ray hit
        call_in_slot(&gathered, state, miSHADER_VOLUME, volume);
        state->pri = hit;
    }
    orl_ElementFinal final{gathered, static_cast<miScalar>(state->dist), 0};
    orl_RenderElementCall call{orl_phase_final, &final};
    miColor color = gathered;
    return call_in_slot(&color, state, miSHADER_DEFAULT, list.shader[k], &call) ? color : gathered;
}

miBoolean trace_with_elements(miColor* result, miState* state, const RenderElementHandlerParams* params,
                              const RenderElementList& list, RenderElementResults& results) {
    bool done = false, fed = false;
    {
        const ScopedRecord record(state, keys::render_elements, {&list, &results, miTRUE, miTRUE, miFALSE});
        if (record.get() == nullptr)
            return mi_trace_eye(result, state, &state->org, &state->dir);
        done = EyePasses(result, state, list).run();
        const RenderElementState* const elements = record.get();
        fed = elements != nullptr && elements->postIllumDone;
    }
    // Deliberate: the first element stands in for the beauty picture before its final phase.
    if (!eval(state, params->renderBeauty))
        *result = results.color[0];
    for (miInteger k = 0; k < list.count; ++k)
        results.color[k] = finish(state, list, k, results.color[k]);
    for (miInteger k = 0; k < list.count; ++k)
        if (list.buffer[k] != -1)
            mi_fb_put(state, list.buffer[k], !fed && list.beauty_fallback[k] ? result : &results.color[k]);
    return done;
}

bool elements_are_off(miState* state) {
    constexpr int precomputation = 2;
    int final_gather = 0;
    return mi_query(miQ_FINALGATHER_STATE, state, miNULLTAG, &final_gather) &&
           (final_gather & precomputation) != 0;
}

} // namespace
} // namespace orl

using namespace orl;

// ---- helpers for materials

ORL_EXPORT miBoolean RenderElementsAreBeingUsed(miState* state) {
    if (state == nullptr || find_record(state, keys::render_elements) == nullptr)
        return miFALSE;
    const miState* ray = state;
    while (ray != nullptr && ray->type == miRAY_TRANSPARENT)
        ray = ray->parent;
    return ray == nullptr || ray->type == miRAY_EYE;
}

ORL_EXPORT void ClearInputs(orl_PostIllumData* data) {
    if (data != nullptr)
        data->inputs = {};
}

ORL_EXPORT void ClearOutputs(orl_PostIllumData* data) {
    if (data != nullptr)
        data->outputs = {};
}

ORL_EXPORT void InitializeRenderElementPostIllumData(miState*, orl_PostIllumData* data) {
    static constexpr miInteger identity[orl_slot_count] = {0, 1, 2,  3,  4,  5,  6,  7,
                                                           8, 9, 10, 11, 12, 13, 14, 15};
    if (data == nullptr)
        return;
    *data = {};
    data->slots = identity;
}

ORL_EXPORT miBoolean orl_CallRenderElementShaders_PostIllum(miState* state, orl_PostIllumData* data) {
    RenderElementState* const record = state ? find_record(state, keys::render_elements) : nullptr;
    if (record == nullptr || data == nullptr || record->results->busy)
        return miFALSE;
    record->postIllumDone = miTRUE;
    const RenderElementState elements = *record; // which an element shader could move
    elements.results->busy = miTRUE;
    gather(state, elements, data);
    elements.results->busy = miFALSE;
    return miTRUE;
}

ORL_EXPORT miColor* orl_GetRenderElementResults(miState* state, miInteger* count) {
    const RenderElementState* const elements = state ? find_record(state, keys::render_elements) : nullptr;
    if (count != nullptr)
        *count = elements ? elements->list->count : 0;
    return elements ? elements->results->color : nullptr;
}

// ---- the lens

ORL_VERSION(orl_rendelem, orl_RenderElementHandler);

ORL_EXPORT void orl_RenderElementHandler_init(miState* state, const RenderElementHandlerParams* params,
                                              miBoolean* instance_init_required) {
    if (wants_instance(params, instance_init_required))
        make_list(state, params);
}

ORL_EXPORT miBoolean orl_RenderElementHandler(miColor* result, miState* state,
                                              const RenderElementHandlerParams* params) {
    const auto* const list = instance_data<RenderElementList>(state);
    RenderElementResults* const results = list != nullptr && list->count > 0 && !elements_are_off(state)
                                              ? fresh_results(state, list->count)
                                              : nullptr;
    if (results == nullptr)
        return mi_trace_eye(result, state, &state->org, &state->dir);
    return trace_with_elements(result, state, params, *list, *results);
}

ORL_EXPORT void orl_RenderElementHandler_exit(miState* state, const RenderElementHandlerParams* params) {
    if (params == nullptr)
        return;
    delete_thread_data(state);
    const auto* const list = instance_data<RenderElementList>(state);
    if (list != nullptr && list->without_shadows != nullptr)
        mi_mem_int_release("orl_rendelem", __LINE__, list->without_shadows);
    delete_instance_data(state);
}
