/*
 * The checker map. Its coordinate generator calls it back at the coordinates that it has placed and with the
 * width of the pixel there, over which the pattern is integrated exactly.
 */
#include "tex_checker.h"
#include "mixing.h"
#include "orlshaderapi.h"
#include "uv_map.h"

#include <algorithm>
#include <cmath>

namespace orl {

// ---- mathematics

namespace {

// Deliberate: one less than the whole number for negative whole numbers, so that their fraction is 1. The
// integral is the same either way; a point on such an edge counts as an upper half.
miScalar integer_part(miScalar x) {
    return std::trunc(x) - (x < 0.0f ? 1.0f : 0.0f);
}

} // namespace

miScalar square_wave_integral(miScalar x) {
    const miScalar whole = integer_part(x);
    return std::max(0.0f, x - whole - 0.5f) + 0.5f * whole;
}

miScalar checker_share(miScalar u, miScalar v, miScalar wu, miScalar wv) {
    if (wu == 0.0f || wv == 0.0f) {
        const bool upper_u = u - integer_part(u) > 0.5f, upper_v = v - integer_part(v) > 0.5f;
        return upper_u != upper_v ? 0.0f : 1.0f;
    }
    const auto upper = [](miScalar x, miScalar width) {
        return (square_wave_integral(x + width / 2) - square_wave_integral(x - width / 2)) / width;
    };
    const miScalar a = upper(u, wu), b = upper(v, wv);
    return (1.0f - b) * (1.0f - a) + b * a;
}

// ---- sampling

namespace {

// What the generator's call back needs, with the parameters as they were on entry.
struct Checker {
    CheckerParams params;
    OutputRequest kind; // what is asked of the squares' maps
};

CheckerParams read(miState* state, const CheckerParams& p) {
    CheckerParams now;
    now.soften = eval(state, p.soften);
    now.color1 = eval(state, p.color1);
    now.color2 = eval(state, p.color2);
    now.map1On = eval(state, p.map1On);
    now.map2On = eval(state, p.map2On);
    now.map1 = active(now.map1On, eval(state, p.map1));
    now.map2 = active(now.map2On, eval(state, p.map2));
    now.coords = eval(state, p.coords);
    now.mtlId = eval(state, p.mtlId);
    return now;
}

miColor square(miState* state, miTag map, const miColor& color, OutputRequest kind) {
    miColor result = color;
    if (map != miNULLTAG)
        call_map(&result, state, map, kind);
    return result;
}

void sample_filtered(miColor* result, miState* state, void* data, miScalar u, miScalar v, miScalar du,
                     miScalar dv) {
    constexpr miScalar least = 0.0005f, most = 0.9995f; // shares beyond are not worth a second map
    const auto& [p, kind] = *static_cast<const Checker*>(data);
    const miScalar share = checker_share(u, v, du + p.soften, dv + p.soften);
    if (!(share > least)) // nor a number, for coordinates that are none
        *result = square(state, p.map1, p.color1, kind);
    else if (share >= most)
        *result = square(state, p.map2, p.color2, kind);
    else
        *result = mixed(square(state, p.map1, p.color1, kind), square(state, p.map2, p.color2, kind), share);
}

void sample(miColor* result, miState* state, void* data, miScalar u, miScalar v) {
    sample_filtered(result, state, data, u, v, 0, 0);
}

} // namespace

// ---- checker map

ORL_MAP(tex_checker, orl_Checker, CheckerParams);

ORL_EXPORT miBoolean orl_Checker(miColor* result, miState* state, const CheckerParams* params,
                                 OutputRequest* request) {
    // For the slope of the pattern the squares' maps give their intensity, as for mono.
    const OutputRequest wanted = request ? *request : OutputRequest::color;
    Checker checker{read(state, *params),
                    wanted == OutputRequest::color ? OutputRequest::color : OutputRequest::mono};
    put_map_id(state, checker.params.mtlId);
    const UvMap map{sample, sample_filtered, miTRUE, &checker};
    const miTag coords = checker.params.coords;
    if (wanted == OutputRequest::vector) {
        const miVector bump = coords != miNULLTAG ? bump_uv_map(state, coords, map) : miVector{};
        answer_vector(result, {bump.x, bump.y, bump.z, 0});
    } else if (wanted == OutputRequest::color || wanted == OutputRequest::mono) {
        *result = {0, 0, 0, 0};
        if (coords != miNULLTAG)
            sample_uv_map(result, state, coords, map, wanted);
    }
    // Deliberate: what is neither stays unanswered, in the caller's own value. The host's checker passes by
    // requests that are not its own.
    return miTRUE;
}

} // namespace orl
