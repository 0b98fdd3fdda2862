/*
 * The mix map.
 */
#include "tex_mix.h"
#include "mixing.h"
#include "orlshaderapi.h"

namespace orl {
namespace {

// The parameters as they were on entry; maps that are off are null.
MixParams read(miState* state, const MixParams& p) {
    MixParams now;
    now.mixAmount = eval(state, p.mixAmount);
    now.lower = eval(state, p.lower);
    now.upper = eval(state, p.upper);
    now.useCurve = eval(state, p.useCurve);
    now.color1 = eval(state, p.color1);
    now.color2 = eval(state, p.color2);
    now.map1On = eval(state, p.map1On);
    now.map2On = eval(state, p.map2On);
    now.mixMapOn = eval(state, p.mixMapOn);
    now.map1 = active(now.map1On, eval(state, p.map1));
    now.map2 = active(now.map2On, eval(state, p.map2));
    now.mixMap = active(now.mixMapOn, eval(state, p.mixMap));
    now.output = eval(state, p.output);
    now.mtlId = eval(state, p.mtlId);
    return now;
}

// Share of the second input, for which a mix map is asked by `asked`.
miScalar share(miState* state, const MixParams& p, OutputRequest* request, OutputRequest asked) {
    const miScalar m =
        p.mixMap != miNULLTAG ? call_for_intensity(state, p.mixMap, request, asked) : p.mixAmount;
    return p.useCurve ? mixing_curve(m, p.lower, p.upper) : m;
}

miColor color_input(miState* state, miTag map, const miColor& color, OutputRequest* request) {
    miColor result = color;
    if (map != miNULLTAG)
        call_map(&result, state, map, request);
    return result;
}

miColor mix_colors(miState* state, const MixParams& p, OutputRequest* request) {
    const BlendChoice choice = choose_blend(share(state, p, request, OutputRequest::mono));
    // Deliberate: the caller's record is left asking for colour, also where it asked for intensity: scenes
    // are graded by what output stages further out make of that.
    *request = OutputRequest::color;
    if (choice.which == BlendChoice::first)
        return color_input(state, p.map1, p.color1, request);
    if (choice.which == BlendChoice::second)
        return color_input(state, p.map2, p.color2, request);
    const miColor first = color_input(state, p.map1, p.color1, request);
    return mixed(first, color_input(state, p.map2, p.color2, request), choice.weight);
}

miColor mix_vectors(miState* state, const MixParams& p, OutputRequest* request) {
    const miScalar weight = share(state, p, request, OutputRequest::color);
    miColor first, second;
    // Deliberate: thresholds are exact here, not those of colours, so that bumps fade in from the first
    // trace of the other map. What is no number leaves the first.
    if (weight == 1.0f) {
        call_map(&second, state, p.map2, request);
        return second;
    }
    call_map(&first, state, p.map1, request);
    if (!(weight < 0.0f || weight > 0.0f))
        return first;
    call_map(&second, state, p.map2, request);
    return mixed(first, second, weight);
}

} // namespace

// ---- mix map

ORL_MAP(tex_mix, orl_Mix, MixParams);

ORL_EXPORT miBoolean orl_Mix(miColor* result, miState* state, const MixParams* params,
                             OutputRequest* callers_request) {
    const MixParams p = read(state, *params);
    put_map_id(state, p.mtlId);
    const CallerRequest request(callers_request);
    if (*request == OutputRequest::vector) {
        miColor vector = mix_vectors(state, p, request);
        run_output(&vector, state, p.output, request);
        answer_vector(result, vector);
    } else {
        *result = mix_colors(state, p, request);
        run_output(result, state, p.output, request);
    }
    return miTRUE;
}

} // namespace orl
