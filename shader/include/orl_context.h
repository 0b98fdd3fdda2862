/*
 * Shading context: what coordinate generators and materials need of a sample and the state does not hold
 * ready. Points and directions by the kind of call, the pixel's footprint on the surface and in texture
 * space, texture vertices of map channels, tangents, raster positions.
 *
 * A footprint follows from the camera. One pixel right and one up displace the ray on the image plane;
 * carried to the end of the path (its length is the sum along the parents) and along the ray onto the
 * surface, they are the two edges of the parallelogram that the pixel covers. For eye rays that is exact to
 * first order; rays that left a surface count as straight on, as from plane mirrors (Homan Igehy, Tracing Ray
 * Differentials, 1999, gives the derivation and what curvature would add). A triangle then turns
 * displacements of the point into changes of whatever its corners carry.
 *
 * While an object is baked, the edges are the steps from a texel to the next ones instead, as if the eye saw
 * the texture square without perspective.
 *
 * The first part is plain geometry, the second reads the state.
 */
#pragma once

#include "orlshaderapi.h"

namespace orl::context {

// ---- geometry

/* The camera as far as footprints go. Lengths in scene units. */
struct Lens {
    bool orthographic;
    float focal;                 // distance from the eye to the image plane
    float pixel_width;           // on the image plane
    float pixel_height;          // on the image plane
    miVector right, up, forward; // the camera's axes, of length 1; `forward` counts with perspective only
};

/* How a value changes from one pixel to the next, right and up. */
struct Differential {
    miVector right, up;
};

/* The edges of the pixel's parallelogram on the plane through the hit with that normal. `eye_dir` is the
   direction of the eye ray at the start of the path, `dir` that of the ray that hit, `length` that of the
   whole path. */
Differential surface_footprint(const Lens& lens, const miVector& eye_dir, const miVector& dir,
                               const miVector& normal, float length);

/* Change of the normalised direction of an eye ray; null vectors for an orthographic camera. */
Differential direction_footprint(const Lens& lens, const miVector& eye_dir);

/* Edges of the box around a parallelogram, one for each axis; not negative. */
miVector box(const Differential& d);

struct Corners {
    miVector a, b, c;
};

/* The value at a hit; the weights of the corners are b0, b1 and 1 - b0 - b1. */
miVector interpolate(const Corners& corners, float b0, float b1);

/* Change of the weights of b and c (that of a makes up for both). */
struct WeightChange {
    float b, c;
};

/* Weights change so when the point moves by `d`, whose part normal to the triangle does not count. None for a
   triangle without area. */
WeightChange weight_change(const Corners& points, const miVector& d);

/* Change of what the corners carry. */
miVector change(const Corners& corners, const WeightChange& weights);

/* Change of the point with the texture coordinates u and v. */
struct Tangents {
    miVector along_u, along_v;
};

/* False, and null vectors, when the triangle has no area in texture space. */
bool tangents(const Corners& points, const Corners& texture, Tangents& result);

// ---- reading the state

/* What the coordinates are wanted for. */
enum class Selector {
    surface = 0,        // the point that was hit
    light_ray = 1,      // a light that is being sampled: its own space
    environment_ray = 2 // a direction that left the scene
};

inline Selector selector_of(const miState* state) {
    return state->type == miRAY_LIGHT         ? Selector::light_ray
           : state->type == miRAY_ENVIRONMENT ? Selector::environment_ray
                                              : Selector::surface;
}

/* The point to shade in object space; for a light ray the lit point in light space, for an environment ray
   the direction in world space. */
miVector object_point(miState* state, Selector selector);

/* The point to shade in world space; for an environment ray the direction. */
miVector world_point(miState* state, Selector selector);

/* Direction of the ray, of length 1, for environment mappings: in world space, for a light ray in light
 * space. */
miVector direction(miState* state, Selector selector);

/* Edges of the boxes around the pixel's footprint, in the spaces of object_point and world_point. */
miVector object_width(miState* state, Selector selector);
miVector world_width(miState* state, Selector selector);

/* Angles in radians that the pixel covers, across and upwards: footprint of an environment look-up. */
struct RayDifferential {
    float across, upwards;
};
RayDifferential ray_differential(miState* state);

/* Position in the picture, 0 to 1. With a window, the picture is a part of one with `width` x `height` pixels
   whose lower left corner lies at (x, y). The middle without a camera or resolution, and for a position that
   is not finite. */
struct RasterPosition {
    float u, v;
};
RasterPosition raster_position(const miState* state);
RasterPosition raster_position(const miState* state, int width, int height, int x, int y);

/* Where the last look-up of a map channel led, for this thread and instance of a generator. */
struct ChannelCache {
    miTag instance; // what was hit
    miInteger channel;
    miInteger space; // texture space, -1 when the object has none for the channel
    miBoolean valid;
};

/* Texture space of a map channel on the object that was hit, -1 when it has none. */
miInteger texture_space(miState* state, miInteger channel, ChannelCache& cache);

/* Texture coordinate of a map channel at the hit; false, and a null vector, when the object has none. */
bool texture_vertex(miState* state, miInteger channel, ChannelCache& cache, miVector& uvw);

/* Edges of the box around the pixel's footprint in texture space; null where texture_vertex has none. */
miVector texture_width(miState* state, miInteger channel, ChannelCache& cache);

/* Tangents of the triangle at the hit for a map channel, object space, not normalised. */
bool texture_tangents(miState* state, miInteger channel, ChannelCache& cache, Tangents& result);

} // namespace orl::context
