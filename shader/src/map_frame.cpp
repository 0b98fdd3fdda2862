/*
 * What the pattern and compositing maps share.
 */
#include "map_frame.h"
#include "orlshaderapi.h"

namespace orl {

void map_init(miState* state, const void* params, miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        return;
    if (auto* const data = new_instance_data<MapInstance>(state))
        data->mtlIdBuffer = frame_buffer_index(state, "fb_mtl_id");
}

void map_exit(miState* state, const void* params) {
    if (params != nullptr)
        delete_instance_data(state);
}

void put_map_id(miState* state, miInteger id) {
    if (state->type != miRAY_EYE || id == 0)
        return;
    // Deliberate: the renderer is left to refuse a buffer that is not there.
    if (const auto* const instance = instance_data<MapInstance>(state))
        mi_fb_put(state, instance->mtlIdBuffer, &id);
}

miScalar call_for_intensity(miState* state, miTag map, OutputRequest* request, OutputRequest asked) {
    const OutputRequest callers = *request;
    *request = asked;
    miColor color;
    call_map(&color, state, map, request);
    *request = callers;
    return intensity(color);
}

} // namespace orl
