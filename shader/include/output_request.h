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

/* Runs a map; transparent black, and false, for the null tag and when it fails. */
inline bool call_map(miColor* result, miState* state, miTag map, OutputRequest request) {
    *result = {0, 0, 0, 0};
    if (map != miNULLTAG && mi_call_shader_x(result, miSHADER_TEXTURE, state, map, &request))
        return true;
    *result = {0, 0, 0, 0};
    return false;
}

} // namespace orl
