/*
 * The tint map.
 */
#include "tex_tint.h"
#include "orlshaderapi.h"

namespace orl {
namespace {

// The parameters as they were on entry; a map that is off is null.
TintParams read(miState* state, const TintParams& p) {
    TintParams now;
    now.tintRed = eval(state, p.tintRed);
    now.tintGreen = eval(state, p.tintGreen);
    now.tintBlue = eval(state, p.tintBlue);
    now.map1On = eval(state, p.map1On);
    now.map1 = active(now.map1On, eval(state, p.map1));
    now.mtlId = eval(state, p.mtlId);
    return now;
}

} // namespace

ORL_MAP(tex_tint, orl_Tint, TintParams);

ORL_EXPORT miBoolean orl_Tint(miColor* result, miState* state, const TintParams* params,
                              OutputRequest* request) {
    const TintParams p = read(state, *params);
    put_map_id(state, p.mtlId);
    miColor c{1, 1, 1, 1};
    // Deliberate: a bump has no colour, so it passes as it is.
    if (request != nullptr && *request >= OutputRequest::vector) {
        call_map(&c, state, p.map1, request);
        answer_vector(result, c);
        return miTRUE;
    }
    if (p.map1 != miNULLTAG)
        call_map(&c, state, p.map1, request);
    result->r = c.r * p.tintRed.r + c.g * p.tintGreen.r + c.b * p.tintBlue.r;
    result->g = c.r * p.tintRed.g + c.g * p.tintGreen.g + c.b * p.tintBlue.g;
    result->b = c.r * p.tintRed.b + c.g * p.tintGreen.b + c.b * p.tintBlue.b;
    result->a = c.a;
    return miTRUE;
}

} // namespace orl
