/*
 * The mask map.
 */
#include "tex_mask.h"
#include "orlshaderapi.h"

namespace orl {
namespace {

// The parameters as they were on entry; maps that are off are null.
MaskParams read(miState* state, const MaskParams& p) {
    MaskParams now;
    now.map1On = eval(state, p.map1On);
    now.maskOn = eval(state, p.maskOn);
    now.map1 = active(now.map1On, eval(state, p.map1));
    now.mask = active(now.maskOn, eval(state, p.mask));
    now.invertMask = eval(state, p.invertMask);
    now.mtlId = eval(state, p.mtlId);
    return now;
}

} // namespace

ORL_MAP(tex_mask, orl_Mask, MaskParams);

ORL_EXPORT miBoolean orl_Mask(miColor* result, miState* state, const MaskParams* params,
                              OutputRequest* callers_request) {
    const MaskParams p = read(state, *params);
    put_map_id(state, p.mtlId);
    const CallerRequest request(callers_request);
    miScalar m = 1.0f;
    if (p.mask != miNULLTAG)
        m = call_for_intensity(state, p.mask, request, OutputRequest::mono);
    if (p.invertMask)
        m = 1.0f - m;
    // Deliberate: requests beyond the three are colours here, where tint and falloff take them for vectors.
    // The host's mask only knows the one.
    if (*request == OutputRequest::vector) {
        miColor vector;
        call_map(&vector, state, p.map1, request);
        answer_vector(result, m == 1.0f ? vector : scaled(vector, m));
        return miTRUE;
    }
    if (p.map1 != miNULLTAG)
        call_map(result, state, p.map1, request);
    else
        *result = {1, 1, 1, 1};
    if (m != 1.0f)
        *result = scaled(*result, m);
    return miTRUE;
}

} // namespace orl
