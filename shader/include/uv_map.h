/*
 * How a map over (u, v) meets its coordinate generator. The map hands over how it is sampled; the generator
 * places, tiles and filters the coordinates and calls back.
 */
#pragma once

#include "call_argument.h"
#include "orl_context.h"
#include "output_request.h"

namespace orl {

/* How a map is sampled at (u, v), which lie in the unit square. Only where the generator mirrors without
   plain wrapping they run on to -1 and 1.5. */
struct UvMap {
    using Plain = void(miColor* result, miState* state, void* data, miScalar u, miScalar v);
    using Filtered = void(miColor* result, miState* state, void* data, miScalar u, miScalar v, miScalar du,
                          miScalar dv);
    Plain* plain;
    Filtered* filtered; // over a box with the edges du and dv
    miBoolean use_filtered;
    void* data; // handed to the samplers
};

/* What is wanted of the map, and for which kind of ray. */
struct GeneratorRequest {
    OutputRequest output;
    context::Selector selector;
};

/* Argument of a UV generator that is to sample a map. Without one it gives coordinates alone. For a vector it
   answers with the gradient of the map's intensity in the first two components of the result, for anything
   else with the sampled colour. The result takes four numbers, though the generator is declared a vector. */
struct UvBumpRequest {
    static constexpr miUint magic_number = 0x9165200;
    miUint magic;
    UvMap::Plain* plain;
    const GeneratorRequest* request;
    miBoolean use_filtered;
    UvMap::Filtered* filtered;
    void* data;
};

/* In the state's user pointer: asks a UV generator for more than its result. */
struct UvDerivRecord {
    static constexpr miUint magic_number = 3104;
    enum : miUint { tangents = 1, coordinates = 2, widths = 4 };
    miUint magic;
    miUint flags;
    miVector dPdu; // of length 1, internal space; with `tangents`
    miVector dPdv;
    miVector uvw;   // with `coordinates`
    miVector width; // of the filter; with `widths`
};

/* The same for an XYZ generator. */
struct XyzDerivRecord {
    static constexpr miUint magic_number = 3120;
    enum : miUint { widths = 1, axes = 2 };
    miUint magic;
    miUint flags;
    miVector width;
    miVector axis[3]; // of the generator's transform
};

static_assert(sizeof(UvDerivRecord) == 56 && sizeof(XyzDerivRecord) == 56);

/* The record of that type which the caller put into the state's user pointer; null when there is none. */
template <class Record> Record* requested(miState* state) {
    if (state->user == nullptr || state->user_size != static_cast<int>(sizeof(Record)))
        return nullptr;
    return checked(static_cast<Record*>(state->user));
}

/* Colour or intensity of the map at the state's point: transparent black, and false, when the generator
   fails. */
bool sample_uv_map(miColor* result, miState* state, miTag generator, const UvMap& map, OutputRequest request);

/* The map's bump: by how much the normal changes, internal space. Null when the generator fails. */
miVector bump_uv_map(miState* state, miTag generator, const UvMap& map);

} // namespace orl
