/*
 * How a map is called: a texture shader whose fourth argument says what is wanted of it.
 */
#pragma once

#include "mi_binding.h"

#include <cstddef>
#include <cstring>

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

/* Calls a shader on a value in place. A scene may have put any shader into the slot: there is room behind the
   value for coordinates, which are two vectors. */
template <class Call> bool with_room(miColor* value, const Call& call) {
    struct {
        miColor value, spare;
    } room{*value, {}};
    const bool done = call(&room.value);
    *value = room.value;
    return done;
}

inline bool call_in_slot(miColor* value, miState* state, miShader_type type, miTag shader) {
    return with_room(value, [=](miColor* result) { return mi_call_shader(result, type, state, shader); });
}

/* The same with an argument, which may be null. Behind it there is room for the longest that shaders read
   without a look at a magic number first, a CurveRequest. */
template <class Argument>
bool call_in_slot(miColor* value, miState* state, miShader_type type, miTag shader, Argument* argument) {
    const auto run = [=](void* handed) {
        return with_room(
            value, [=](miColor* result) { return mi_call_shader_x(result, type, state, shader, handed); });
    };
    constexpr std::size_t longest = 32;
    if constexpr (sizeof(Argument) < longest)
        if (argument != nullptr) {
            alignas(8) unsigned char room[longest] = {};
            std::memcpy(room, argument, sizeof *argument);
            const bool done = run(room);
            std::memcpy(argument, room, sizeof *argument);
            return done;
        }
    return run(argument);
}

/* Runs a map; transparent black, and false, for the null tag and when it fails. The map may change the
   request: some leave another than they were given. */
inline bool call_map(miColor* result, miState* state, miTag map, OutputRequest* request) {
    *result = {0, 0, 0, 0};
    if (map != miNULLTAG && call_in_slot(result, state, miSHADER_TEXTURE, map, request))
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
    if (output != miNULLTAG && !call_in_slot(value, state, miSHADER_TEXTURE, output, request))
        *value = {0, 0, 0, 0};
}

} // namespace orl
