/*
 * What the pattern and compositing maps share: sub-maps that are on or off, the material id that a map
 * carries into a frame buffer, and init and exit.
 */
#pragma once

#include "declaration.h"
#include "output_request.h"

namespace orl {

/* Instance data of a map. */
struct MapInstance {
    miInteger mtlIdBuffer; // index of fb_mtl_id, -1 when the camera has none
};

/* Init and exit of every map. */
void map_init(miState* state, const void* params, miBoolean* instance_init_required);
void map_exit(miState* state, const void* params);

/* Writes a map's material id on eye rays, unless it is 0. */
void put_map_id(miState* state, miInteger id);

/* A sub-map counts when it is switched on. */
constexpr miTag active(miBoolean on, miTag map) {
    return on ? map : miNULLTAG;
}

constexpr miColor scaled(const miColor& color, miScalar by) {
    return {color.r * by, color.g * by, color.b * by, color.a * by};
}

/* What the caller asked for, with a place of its own when there was no request. */
class CallerRequest {
public:
    explicit CallerRequest(OutputRequest* request) : request_(request ? request : &color_) {}
    CallerRequest(const CallerRequest&) = delete;
    CallerRequest& operator=(const CallerRequest&) = delete;

    OutputRequest& operator*() const { return *request_; }
    operator OutputRequest*() const { return request_; }

private:
    OutputRequest color_ = OutputRequest::color;
    OutputRequest* request_;
};

/* Intensity of a map that is asked for it by another request than the caller's, whose record the map sees and
   the caller gets back as it was. */
miScalar call_for_intensity(miState* state, miTag map, OutputRequest* request, OutputRequest asked);

/* Answers a vector: callers give room for three numbers, so the fourth is not written. */
inline void answer_vector(miColor* result, const miColor& vector) {
    result->r = vector.r;
    result->g = vector.g;
    result->b = vector.b;
}

} // namespace orl

/* Version, init and exit of a map, which all maps have in common. */
#define ORL_MAP(unit, shader, Params)                                                                        \
    ORL_VERSION(unit, shader);                                                                               \
    ORL_EXPORT void shader##_init(miState* state, const Params* params, miBoolean* instance_init_required) { \
        orl::map_init(state, params, instance_init_required);                                                \
    }                                                                                                        \
    ORL_EXPORT void shader##_exit(miState* state, const Params* params) {                                    \
        orl::map_exit(state, params);                                                                        \
    }                                                                                                        \
    static_assert(orl::decl::version(unit, #shader) == 1)
