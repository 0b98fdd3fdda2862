/*
 * Coordinate generators over (u, v). Maps of the host call one as a sub-shader, once for each look-up: it
 * finds the coordinate at the sample, places it and tells how far to filter. A map may hand over how it is
 * sampled; then the generator wraps the coordinate, samples, and for bumps takes the map's gradient.
 *
 * The coordinate on the surface and the footprint come from the shading context, the mathematics of placement
 * from uv_placement.h. Each thread keeps the turn and where it found the map channel.
 */
#include "orl_stduv.h"
#include "noise.h"
#include "numeric.h"
#include "orlshaderapi.h"
#include "uv_map.h"
#include "uv_placement.h"
#include "vectors.h"

#include <algorithm>
#include <cmath>

namespace orl {

namespace {

// ---- thread's record

struct UvGenCache {
    UvTurn turn;
    miInteger space; // texture space of the last look-up
    context::ChannelCache channel;
    miInteger axis; // that the turn was made for
    miInteger reserved[23];
};
static_assert(offsetof(UvGenCache, space) == 124 && sizeof(UvGenCache) == 240);

// ---- environments

// Width of a sample in pixels.
miScalar sample_width(const miState* state) {
    // The camera takes up to 4^n samples for each pixel, or one for 4^-n pixels. Beyond 16 nothing is
    // sampled.
    const int exponent = state->options ? std::clamp(state->options->max_samples, -16, 16) : 0;
    return std::ldexp(1.0f, -exponent);
}

context::RasterPosition screen_position(miState* state, const UVGeneratorParams* params, miInteger type) {
    const miInteger width = eval(state, params->screenParam1), height = eval(state, params->screenParam2);
    if (width < 1 || height < 1)
        return context::raster_position(state);
    if (type == mapping_screen)
        return context::raster_position(state, width, height, 0, 0);
    const miInteger x = eval(state, params->screenParam3), y = eval(state, params->screenParam4);
    return x >= 0 && y >= 0 ? context::raster_position(state, width, height, x, y)
                            : context::raster_position(state);
}

UvPoint screen_point(miState* state, const UVGeneratorParams* params, miInteger type) {
    const context::RasterPosition at = screen_position(state, params, type);
    UvPoint point{{at.u, at.v, 0}, {0, 0, 0}};
    const miCamera* const camera = state->camera;
    if (camera != nullptr && camera->x_resolution > 0 && camera->y_resolution > 0) {
        const miScalar sample = sample_width(state);
        point.width = {sample / static_cast<miScalar>(camera->x_resolution),
                       sample / static_cast<miScalar>(camera->y_resolution), 0};
    }
    return point;
}

// The angle that a pixel covers.
miScalar spread(miState* state) {
    const context::RayDifferential d = context::ray_differential(state);
    return std::fabs(d.across + d.upwards);
}

UvPoint environment_point(miState* state, const UVGeneratorParams* params, context::Selector selector) {
    const miInteger type = eval(state, params->mappingType);
    if (type == mapping_screen_part || type == mapping_screen)
        return screen_point(state, params, type);
    if (type < mapping_spherical || type > mapping_shrink_wrap)
        return {};
    miVector dir = context::direction(state, selector);
    if (type == mapping_cylindrical)
        return cylindrical_uv(dir, spread(state));
    if (type == mapping_shrink_wrap)
        return shrink_wrap_uv(dir, spread(state));
    // On the direction in the world rather than the state's, so that the picture does not depend on the space
    // that the renderer works in.
    const orl_SceneData* const scene = GetSceneData(state);
    if (scene != nullptr && scene->flip_sky)
        dir = {dir.x, -dir.z, dir.y};
    return spherical_uv(dir, spread(state));
}

// ---- surfaces

// How far the surface's outside looks towards the start of the ray. The renderer turns normals that way, so
// the turn is undone.
miScalar facing(const miState* state) {
    const miScalar towards = -mi_vector_dot(&state->normal_geom, &state->dir);
    return state->inv_normal ? -towards : towards;
}

bool repeats(miState* state, const UVGeneratorParams* params) {
    return eval(state, params->uTile) || eval(state, params->uMirror) || eval(state, params->vTile) ||
           eval(state, params->vMirror);
}

// Whether the map does not show because the surface is seen from behind. Deliberate: edge-on, a channel hides
// and a plane in space does not; the face has no coordinate of its own to show there, the plane has. Without
// a ray, when surfaces are displaced or baked, nobody looks.
bool hidden_behind(miState* state, const UVGeneratorParams* params, miInteger source) {
    if (eval(state, params->showMapOnBack) || repeats(state, params))
        return false;
    const miVector& dir = state->dir;
    if (dir.x == 0.0f && dir.y == 0.0f && dir.z == 0.0f)
        return false;
    const miScalar towards = facing(state);
    return source == uvw_map_channel || source == uvw_vertex_color ? !(towards > 0.0f) : towards < 0.0f;
}

// Deliberate: what lies between -1 and 1 does not quite fill the unit square, so that the sides of the host's
// boxes keep off its border, where a map that tiles starts anew. The widths are not reduced.
UvPoint planar_point(const miVector& p, const miVector& d) {
    constexpr miScalar half = 0.499f;
    return {{p.x * half + 0.5f, p.y * half + 0.5f, p.z * half + 0.5f}, {0.5f * d.x, 0.5f * d.y, 0.5f * d.z}};
}

// An unknown source gives the null vector, as a channel does that the object has not got.
UvPoint surface_point(miState* state, const UVGeneratorParams* params, context::Selector selector,
                      miInteger source, UvGenCache& cache) {
    UvPoint point{};
    if (source == uvw_map_channel || source == uvw_vertex_color) {
        const miInteger channel = eval(state, params->mapChannel);
        context::texture_vertex(state, channel, cache.channel, point.uvw);
        cache.space = cache.channel.space;
        point.width = context::texture_width(state, channel, cache.channel);
    } else if (source == uvw_object_xyz) {
        point = planar_point(context::object_point(state, selector), context::object_width(state, selector));
    } else if (source == uvw_world_xyz) {
        point = {context::world_point(state, selector), context::world_width(state, selector)};
    }
    return point;
}

// ---- coordinates

struct Coordinate {
    UvPoint point;
    miScalar fu, fv; // widths before the blur
};

// Where no map shows that ends at its borders.
constexpr Coordinate nowhere{{{-0.2f, -0.2f, 0}, {0, 0, 0}}, 0, 0};

UvPoint placed(miState* state, const UVGeneratorParams* params, bool environment, UvGenCache& cache,
               UvPoint point) {
    const UvPlacement place{eval(state, params->centerAtOrigin) ? 0.0f : 0.5f, eval(state, params->uOffset),
                            eval(state, params->vOffset), eval(state, params->uTiling),
                            eval(state, params->vTiling)};
    point = moved_to_pivot(place, point);
    const UvTurn& turn = cache.turn;
    if (!environment)
        point = turn.rotated ? turned(turn.matrix, point) : onto_plane(cache.axis, point);
    else if (turn.sine != 0.0f)
        point = turned_in_plane(turn.sine, turn.cosine, point);
    return tiled_from_pivot(place, point);
}

// The axis counts in the turn too, since a shader that is connected to it may change it from sample to
// sample.
void update_cache(miState* state, const UVGeneratorParams* params, bool environment, UvGenCache& cache) {
    const miInteger axis = environment ? 0 : eval(state, params->axis);
    if (axis != cache.axis)
        cache.turn.valid = miFALSE;
    cache.axis = axis;
    update_turn(cache.turn,
                {eval(state, params->uAngle), eval(state, params->vAngle), eval(state, params->wAngle)},
                axis);
}

void add_noise(miState* state, const UVGeneratorParams* params, miVector& uvw) {
    const bool animated = eval(state, params->noiseAnimate);
    const miScalar phase = animated ? eval(state, params->noisePhase) : 0.0f;
    displace({eval(state, params->noiseAmount), eval(state, params->noiseSize),
              eval(state, params->noiseLevels), animated ? &phase : nullptr},
             uvw);
}

Coordinate coordinate(miState* state, const UVGeneratorParams* params, context::Selector selector,
                      UvGenCache& cache) {
    const bool environment = eval(state, params->isEnvironment);
    update_cache(state, params, environment, cache);
    UvPoint point;
    if (environment) {
        point = environment_point(state, params, selector);
    } else {
        const miInteger source = eval(state, params->uvwSource);
        if (hidden_behind(state, params, source))
            return nowhere;
        point = surface_point(state, params, selector, source, cache);
    }
    point = placed(state, params, environment, cache, point);
    if (eval(state, params->noiseOn))
        add_noise(state, params, point.uvw);
    // Deliberate: the blur leaves w alone, along which no map over (u, v) is filtered.
    const miScalar fu = point.width.x, fv = point.width.y;
    const miScalar blur = eval(state, params->blur), offset = eval(state, params->blurOffset);
    point.width.x = blur * fu + offset;
    point.width.y = blur * fv + offset;
    return {point, fu, fv};
}

// ---- sampling a map

// A map as it is on the surface: wrapped, and transparent black where it has ended.
class WrappedMap {
public:
    WrappedMap(miState* state, const UVGeneratorParams* params, const UvBumpRequest& request)
        : state_(state),
          request_(request), u_{eval(state, params->uTile) != 0, eval(state, params->uMirror) != 0},
          v_{eval(state, params->vTile) != 0, eval(state, params->vMirror) != 0},
          plain_(eval(state, params->wrapPlain)) {}

    miColor at(miScalar u, miScalar v) const {
        miColor color{0, 0, 0, 0};
        if (wrap(u_, plain_, u) && wrap(v_, plain_, v))
            request_.plain(&color, state_, request_.data, u, v);
        return color;
    }

    miColor over(miScalar u, miScalar v, const miVector& width) const {
        miColor color{0, 0, 0, 0};
        if (wrap(u_, plain_, u) && wrap(v_, plain_, v))
            request_.filtered(&color, state_, request_.data, u, v, width.x, width.y);
        return color;
    }

private:
    miState* state_;
    const UvBumpRequest& request_;
    UvEdge u_, v_;
    bool plain_;
};

// The renderer may fix samples one by one, and such a sample is not to be blurred.
bool filters(miState* state, const UvBumpRequest& request) {
    void* value = nullptr;
    return request.use_filtered && request.filtered != nullptr &&
           !mi_query(miQ_SAMPLE_OVERRIDE, state, miNULLTAG, &value);
}

// By how much the map falls for each unit of u and v, between this pixel and the next. None without a width:
// the pixel's is what the step is made of, and a blurred width of 0 asks for none.
miColor gradient(const WrappedMap& map, const Coordinate& at) {
    const auto [u, v, w] = at.point.uvw;
    const miScalar here = intensity(map.at(u, v));
    miColor slope{0, 0, 0, 0};
    if (at.point.width.x != 0.0f && at.fu > 0.0f)
        slope.r = -(intensity(map.at(u + at.fu, v)) - here) / at.fu;
    if (at.point.width.y != 0.0f && at.fv > 0.0f)
        slope.g = -(intensity(map.at(u, v + at.fv)) - here) / at.fv;
    return slope;
}

// ---- derivatives

struct SourceTangents {
    miVector u, v, w;
};

// Directions in which the source's coordinates grow, internal space: null where the surface has none. They
// are differences of points and go through the spaces as such, not as normals do, so that those of a map
// channel stay in the surface however the object is scaled. A plane in space has its axes. What lies around
// the scene, or is asked for a light, bumps no surface.
SourceTangents source_tangents(miState* state, const UVGeneratorParams* params, context::Selector selector,
                               UvGenCache& cache) {
    if (eval(state, params->isEnvironment) || selector != context::Selector::surface)
        return {};
    SourceTangents t{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const miInteger source = eval(state, params->uvwSource);
    if (source == uvw_map_channel || source == uvw_vertex_color) {
        context::Tangents along;
        context::texture_tangents(state, eval(state, params->mapChannel), cache.channel, along);
        t = {along.along_u, along.along_v, {0, 0, 0}};
    } else if (source != uvw_object_xyz && source != uvw_world_xyz) {
        return {};
    }
    const auto transform = source == uvw_world_xyz ? mi_vector_from_world : mi_vector_from_object;
    return {transformed(transform, state, t.u), transformed(transform, state, t.v),
            transformed(transform, state, t.w)};
}

// Direction in which a placed coordinate grows, given how the source's coordinates change with it.
miVector placed_tangent(const SourceTangents& t, const miVector& change) {
    miVector sum{change.x * t.u.x + change.y * t.v.x + change.z * t.w.x,
                 change.x * t.u.y + change.y * t.v.y + change.z * t.w.y,
                 change.x * t.u.z + change.y * t.v.z + change.z * t.w.z};
    mi_vector_normalize(&sum);
    return sum;
}

// The turn counts, or the order that the axis gives; deliberate: a negative tiling does not, so that a bump
// stays as the host's artists have set it up.
void answer_tangents(miState* state, const UVGeneratorParams* params, context::Selector selector,
                     UvGenCache& cache, UvDerivRecord& record) {
    const SourceTangents t = source_tangents(state, params, selector, cache);
    record.dPdu = placed_tangent(t, cache.turn.inverse.row[0]);
    record.dPdv = placed_tangent(t, cache.turn.inverse.row[1]);
}

void answer_coordinate(const UvPoint& point, UvDerivRecord& record) {
    if (record.flags & UvDerivRecord::coordinates)
        record.uvw = point.uvw;
    if (record.flags & UvDerivRecord::widths)
        record.width = point.width;
}

// ---- requests

// This thread's cache, or one for this call where the instance has no place for it.
UvGenCache& cache_of(miState* state, UvGenCache& spare) {
    UvGenCache* const kept = thread_data<UvGenCache>(state);
    return kept != nullptr ? *kept : spare;
}

// Only a request that can be sampled counts; with any other the generator gives coordinates.
bool is_valid(const UvBumpRequest* request) {
    return checked(request) != nullptr && request->plain != nullptr;
}

GeneratorRequest wanted(miState* state, const UvBumpRequest* request) {
    if (is_valid(request) && request->request != nullptr)
        return *request->request;
    return {OutputRequest::color, context::selector_of(state)};
}

// The map's colour or gradient at the coordinate.
miColor sampled(miState* state, const UVGeneratorParams* params, const UvBumpRequest& request,
                bool as_gradient, const Coordinate& at) {
    const WrappedMap map(state, params, request);
    if (as_gradient)
        return gradient(map, at);
    const miVector& uvw = at.point.uvw;
    return filters(state, request) ? map.over(uvw.x, uvw.y, at.point.width) : map.at(uvw.x, uvw.y);
}

} // namespace

} // namespace orl

using namespace orl;

// ---- entry points

ORL_VERSION(orl_stduv, orl_base_UVGenerator);

ORL_EXPORT void orl_base_UVGenerator_init(miState* state, const UVGeneratorParams* params,
                                          miBoolean* instance_init_required) {
    if (!wants_instance(params, instance_init_required))
        noiseTablesInit(state);
}

ORL_EXPORT miBoolean orl_base_UVGenerator(void* result, miState* state, const UVGeneratorParams* params,
                                          const UvBumpRequest* request) {
    UvGenCache spare{};
    UvGenCache& cache = cache_of(state, spare);
    const GeneratorRequest want = wanted(state, request);
    const bool as_gradient = want.output >= OutputRequest::vector;
    const Coordinate at = coordinate(state, params, want.selector, cache);
    if (is_valid(request))
        *static_cast<miColor*>(result) = sampled(state, params, *request, as_gradient, at);
    else
        *static_cast<miVector*>(result) = at.point.uvw;
    // After the map, whose own maps find the record too. When they are sampled for a colour they leave the
    // tangents alone.
    if (UvDerivRecord* const record = requested<UvDerivRecord>(state)) {
        if (record->flags & UvDerivRecord::tangents && (as_gradient || !is_valid(request)))
            answer_tangents(state, params, want.selector, cache, *record);
        answer_coordinate(at.point, *record);
    }
    return miTRUE;
}

ORL_EXPORT void orl_base_UVGenerator_exit(miState* state, const UVGeneratorParams* params) {
    if (params != nullptr)
        delete_thread_data(state);
}

ORL_VERSION(orl_stduv, orl_UVCoordinate);

ORL_EXPORT void orl_UVCoordinate_init(miState* state, const UVGeneratorParams* params,
                                      miBoolean* instance_init_required) {
    orl_base_UVGenerator_init(state, params, instance_init_required);
}

ORL_EXPORT miBoolean orl_UVCoordinate(UVCoordinateResult* result, miState* state,
                                      const UVGeneratorParams* params) {
    UvGenCache spare{};
    const Coordinate at = coordinate(state, params, context::selector_of(state), cache_of(state, spare));
    *result = {at.point.uvw, at.point.width};
    return miTRUE;
}

ORL_EXPORT void orl_UVCoordinate_exit(miState* state, const UVGeneratorParams* params) {
    orl_base_UVGenerator_exit(state, params);
}
