/*
 * The shading context. Everything here is short-lived arithmetic on the state; nothing is kept but the
 * caller's channel cache.
 */
#include "orl_context.h"
#include "vectors.h"

#include <algorithm>
#include <limits>

namespace orl::context {

namespace {

// Moves v along `dir` into the plane with that normal. Close to grazing the plane is taken to be tilted a
// little towards the ray, so that footprints stay finite.
miVector onto_plane(const miVector& v, const miVector& dir, const miVector& normal) {
    constexpr float grazing = 1e-3f;
    const float cosine = dot(normal, dir);
    const float safe = std::copysign(std::max(std::fabs(cosine), grazing), cosine);
    return difference(v, scaled(dir, dot(normal, v) / safe));
}

miVector across(const miVector& v, const miVector& dir) {
    return difference(v, scaled(dir, dot(v, dir)));
}

} // namespace

// ---- geometry

Differential surface_footprint(const Lens& lens, const miVector& eye_dir, const miVector& dir,
                               const miVector& normal, float length) {
    // A displacement on the image plane grows with the depth of the point over the focal length.
    const float growth =
        lens.orthographic ? 1.0f : length * std::fabs(dot(eye_dir, lens.forward)) / lens.focal;
    return {onto_plane(scaled(lens.right, growth * lens.pixel_width), dir, normal),
            onto_plane(scaled(lens.up, growth * lens.pixel_height), dir, normal)};
}

Differential direction_footprint(const Lens& lens, const miVector& eye_dir) {
    if (lens.orthographic)
        return {};
    const float per_length = std::fabs(dot(eye_dir, lens.forward)) / lens.focal;
    return {scaled(across(lens.right, eye_dir), per_length * lens.pixel_width),
            scaled(across(lens.up, eye_dir), per_length * lens.pixel_height)};
}

miVector box(const Differential& d) {
    return {std::fabs(d.right.x) + std::fabs(d.up.x), std::fabs(d.right.y) + std::fabs(d.up.y),
            std::fabs(d.right.z) + std::fabs(d.up.z)};
}

miVector interpolate(const Corners& corners, float b0, float b1) {
    return sum(sum(scaled(corners.a, b0), scaled(corners.b, b1)), scaled(corners.c, 1.0f - b0 - b1));
}

// Least squares in the plane of the edges e1 = b - a, e2 = c - a: the Gram matrix of the edges times the
// change is the vector of the edges' products with d.
WeightChange weight_change(const Corners& points, const miVector& d) {
    const miVector e1 = difference(points.b, points.a), e2 = difference(points.c, points.a);
    const float g11 = dot(e1, e1), g12 = dot(e1, e2), g22 = dot(e2, e2);
    const float determinant = g11 * g22 - g12 * g12;
    if (!(determinant > std::numeric_limits<float>::min()))
        return {0.0f, 0.0f};
    const float d1 = dot(e1, d), d2 = dot(e2, d);
    return {(g22 * d1 - g12 * d2) / determinant, (g11 * d2 - g12 * d1) / determinant};
}

miVector change(const Corners& corners, const WeightChange& weights) {
    return sum(scaled(difference(corners.b, corners.a), weights.b),
               scaled(difference(corners.c, corners.a), weights.c));
}

bool tangents(const Corners& points, const Corners& texture, Tangents& result) {
    const miVector e1 = difference(points.b, points.a), e2 = difference(points.c, points.a);
    const miVector t1 = difference(texture.b, texture.a), t2 = difference(texture.c, texture.a);
    const float determinant = t1.x * t2.y - t2.x * t1.y;
    result = {};
    if (!(std::fabs(determinant) > std::numeric_limits<float>::min()))
        return false;
    result.along_u = scaled(difference(scaled(e1, t2.y), scaled(e2, t1.y)), 1.0f / determinant);
    result.along_v = scaled(difference(scaled(e2, t1.x), scaled(e1, t2.x)), 1.0f / determinant);
    return true;
}

// ---- reading the state

namespace {

using Transform = void (*)(miState* state, miVector* r, miVector* v);

// The eye ray and the length of the path from there to the end of this state's ray. An environment ray adds
// nothing: it ends nowhere.
struct Path {
    const miState* eye;
    float length;
};

Path path_of(const miState* state) {
    double length = state->dist;
    while (state->type != miRAY_EYE && state->parent != nullptr) {
        state = state->parent;
        length += state->dist;
    }
    return {state, static_cast<float>(length)};
}

// The texels of a baked object as a lens. Only below a lens shader is there anything to ask for.
bool baking_lens_of(miState* state, const miState* eye, Lens& lens) {
    const ProjectionContext* const texel =
        eye->parent != nullptr ? find_record(state, keys::projection) : nullptr;
    if (texel == nullptr)
        return false;
    lens = {true, 0.0f, 1.0f, 1.0f, texel->right, texel->up, {0, 0, 0}};
    return true;
}

bool lens_of(miState* state, Lens& lens) {
    const miCamera* const camera = state->camera;
    if (camera == nullptr || camera->x_resolution < 1 || camera->y_resolution < 1)
        return false;
    const float height = camera->aspect > 0.0f ? camera->aperture / camera->aspect : camera->aperture;
    lens.orthographic = camera->orthographic || !(camera->focal > 0.0f);
    lens.focal = camera->focal;
    lens.pixel_width = camera->aperture / static_cast<float>(camera->x_resolution);
    lens.pixel_height = height / static_cast<float>(camera->y_resolution);
    const auto axis = [=](const miVector& v) {
        return normalized(transformed(mi_vector_from_camera, state, v));
    };
    lens.right = axis({1, 0, 0});
    lens.up = axis({0, 1, 0});
    lens.forward = axis({0, 0, -1});
    return true;
}

// The footprint at the end of the state's ray, internal space. A light shader is asked about the point of the
// surface that called it, so its footprint is the caller's.
Differential footprint(miState* state, Selector selector) {
    miState* const at = selector == Selector::light_ray && state->parent != nullptr ? state->parent : state;
    Lens lens;
    const Path path = path_of(at);
    if (!baking_lens_of(state, path.eye, lens) && !lens_of(state, lens))
        return {};
    if (selector == Selector::environment_ray)
        return direction_footprint(lens, path.eye->dir);
    return surface_footprint(lens, path.eye->dir, at->dir, at->normal_geom, path.length);
}

miVector width(Transform transform, miState* state, Selector selector) {
    const Differential d = footprint(state, selector);
    return box({transformed(transform, state, d.right), transformed(transform, state, d.up)});
}

// Corner values of the triangle at the hit: from the source that a shader put in place of the renderer's, or
// from the renderer.
template <class Source>
bool corners_of(miState* state, Source source, void* data, int which, int space, Corners& corners) {
    miVector *a = nullptr, *b = nullptr, *c = nullptr;
    const miBoolean known =
        source ? source(state, data, &a, &b, &c) : mi_tri_vectors(state, which, space, &a, &b, &c);
    if (!known || a == nullptr || b == nullptr || c == nullptr)
        return false;
    corners = {*a, *b, *c};
    return true;
}

bool point_corners(miState* state, Corners& corners) {
    const VertexSource* const source = find_record(state, keys::vertices);
    return corners_of(state, source ? source->function : nullptr, source ? source->data : nullptr, 'p', 0,
                      corners);
}

TextureVertexSource::Function texture_source(miState* state, miInteger space, void*& data) {
    const TextureVertexSource* const source = find_record(state, keys::texture_vertices);
    if (source == nullptr || space < 0 || space >= static_cast<miInteger>(std::size(source->function)))
        return nullptr;
    data = source->data[space];
    return source->function[space];
}

bool texture_corners(miState* state, miInteger space, Corners& corners) {
    void* data = nullptr;
    const TextureVertexSource::Function source = texture_source(state, space, data);
    return corners_of(state, source, data, 't', space, corners);
}

} // namespace

miVector object_point(miState* state, Selector selector) {
    switch (selector) {
    case Selector::light_ray:
        return transformed(mi_point_to_light, state, state->point);
    case Selector::environment_ray:
        return direction(state, selector);
    default:
        return transformed(mi_point_to_object, state, state->point);
    }
}

miVector world_point(miState* state, Selector selector) {
    if (selector == Selector::environment_ray)
        return direction(state, selector);
    return transformed(mi_point_to_world, state, state->point);
}

miVector direction(miState* state, Selector selector) {
    const bool light = selector == Selector::light_ray;
    return normalized(transformed(light ? mi_vector_to_light : mi_vector_to_world, state, state->dir));
}

miVector object_width(miState* state, Selector selector) {
    switch (selector) {
    case Selector::light_ray:
        return width(mi_vector_to_light, state, selector);
    case Selector::environment_ray:
        return width(mi_vector_to_world, state, selector);
    default:
        return width(mi_vector_to_object, state, selector);
    }
}

miVector world_width(miState* state, Selector selector) {
    return width(mi_vector_to_world, state, selector);
}

RayDifferential ray_differential(miState* state) {
    const Differential d = footprint(state, Selector::environment_ray);
    return {mi_vector_norm(&d.right), mi_vector_norm(&d.up)};
}

RasterPosition raster_position(const miState* state) {
    const miCamera* const camera = state->camera;
    return raster_position(state, camera ? camera->x_resolution : 0, camera ? camera->y_resolution : 0, 0, 0);
}

RasterPosition raster_position(const miState* state, int width, int height, int x, int y) {
    const RasterPosition at{(state->raster_x + static_cast<float>(x)) / static_cast<float>(width),
                            (state->raster_y + static_cast<float>(y)) / static_cast<float>(height)};
    return std::isfinite(at.u) && std::isfinite(at.v) ? at : RasterPosition{0.5f, 0.5f};
}

miInteger texture_space(miState* state, miInteger channel, ChannelCache& cache) {
    if (!cache.valid || cache.instance != state->instance || cache.channel != channel)
        cache = {state->instance, channel, GetUVChannelIndexFromID(state, nullptr, channel), miTRUE};
    return cache.space;
}

bool texture_vertex(miState* state, miInteger channel, ChannelCache& cache, miVector& uvw) {
    uvw = {0, 0, 0};
    const miInteger space = texture_space(state, channel, cache);
    if (space < 0)
        return false;
    void* data = nullptr;
    if (texture_source(state, space, data) != nullptr) {
        Corners corners;
        if (!texture_corners(state, space, corners))
            return false;
        uvw = interpolate(corners, state->bary[0], state->bary[1]);
        return true;
    }
    int spaces = 0;
    if (state->tex_list == nullptr || !mi_query(miQ_NUM_TEXTURES, state, miNULLTAG, &spaces) ||
        space >= spaces)
        return false;
    uvw = state->tex_list[space];
    return true;
}

miVector texture_width(miState* state, miInteger channel, ChannelCache& cache) {
    const miInteger space = texture_space(state, channel, cache);
    Corners points, texture;
    if (space < 0 || !point_corners(state, points) || !texture_corners(state, space, texture))
        return {0, 0, 0};
    const Differential d = footprint(state, Selector::surface);
    const miVector right = transformed(mi_vector_to_object, state, d.right);
    const miVector up = transformed(mi_vector_to_object, state, d.up);
    return box({change(texture, weight_change(points, right)), change(texture, weight_change(points, up))});
}

bool texture_tangents(miState* state, miInteger channel, ChannelCache& cache, Tangents& result) {
    const miInteger space = texture_space(state, channel, cache);
    Corners points, texture;
    result = {};
    return space >= 0 && point_corners(state, points) && texture_corners(state, space, texture) &&
           tangents(points, texture, result);
}

} // namespace orl::context
