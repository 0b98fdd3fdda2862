/*
 * How a map is called: a texture shader whose fourth argument says what is wanted of it.
 */
#pragma once

#include "mi_binding.h"

namespace orl {

enum class OutputRequest : miInteger {
    color,  /* also without a request */
    mono,   /* the map's intensity, in all components */
    vector, /* bump: the change of the normal, in the first three components */
};

/* What a map amounts to as a single value. */
constexpr miScalar intensity(const miColor& color) {
    return (color.r + color.g + color.b) * 0.33333334f;
}

/* Calls a texture shader on a value in place. There is room behind the value: coordinates, which are two
   vectors, may stand in the slot of a map by mistake. */
inline bool call_texture(miColor* value, miState* state, miTag shader, void* argument) {
    struct {
        miColor value, spare;
    } room{*value, {}};
    const bool done = mi_call_shader_x(&room.value, miSHADER_TEXTURE, state, shader, argument);
    *value = room.value;
    return done;
}

/* Runs a map; transparent black, and false, for the null tag and when it fails. The map may change the
   request: some leave another than they were given. */
inline bool call_map(miColor* result, miState* state, miTag map, OutputRequest* request) {
    *result = {0, 0, 0, 0};
    if (map != miNULLTAG && call_texture(result, state, map, request))
        return true;
    *result = {0, 0, 0, 0};
    return false;
}

inline bool call_map(miColor* result, miState* state, miTag map, OutputRequest request) {
    return call_map(result, state, map, &request);
}

/* Runs an output stage on a map's value in place, by the request that the value answers; the null tag leaves
   it alone. A stage that fails makes the value transparent black, as a map that fails does. */
inline void run_output(miColor* value, miState* state, miTag output, OutputRequest* request) {
    if (output != miNULLTAG && !call_texture(value, state, output, request))
        *value = {0, 0, 0, 0};
}

} // namespace orl
