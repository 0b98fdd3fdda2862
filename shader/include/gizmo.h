/*
 * Gizmos: the spaces that volume fog and fire fill. The host gives each a node with a record of its shape;
 * place, turn and scale are those of the node's instance.
 */
#pragma once

#include "orlshaderapi.h"

namespace orl {

/* An affine map of row vectors: three rows of the linear part, then the translation. */
struct AffineMap {
    miScalar element[12];
};

miVector transform_point(const AffineMap& map, const miVector& point);
miVector transform_vector(const AffineMap& map, const miVector& vector);

enum class GizmoShape : miInteger {
    none, // fills no space
    sphere,
    centred_cylinder,
    box,
    hemisphere,
    standing_cylinder
};

/* A gizmo as shaders march through it, in its own space. `size` holds radius, radius squared, height and half
   the height (cylinders); half the three sizes (box); radius, its square, 0.2 and 0.4 of it (hemisphere). */
struct Gizmo {
    AffineMap to_gizmo, to_world;
    miVector noise_offset; // shifts the noise, so that no two gizmos look the same
    miScalar size[4];
    GizmoShape shape;
};
static_assert(sizeof(Gizmo) == 128);

/* The part of a ray from `enter` to `leave`, in lengths of its direction. */
struct RaySpan {
    float enter, leave;
};

/* Clips a span of a ray in gizmo space to the gizmo; false where nothing is left of it. */
bool clip(const Gizmo& gizmo, const miVector& org, const miVector& dir, RaySpan& span);

/* How far out a point in gizmo space lies: 0 at the centre, rising without jumps to 1 at the surface, and 1
   outside. Linear along each axis from the centre for sphere, cylinders and box. The hemisphere has a core in
   place of a centre, all that is higher than 0.2 and nearer to the origin than 0.4 of its radius: what fills
   it thins out towards the ground as well as towards the dome. */
float falloff(const Gizmo& gizmo, const miVector& point);

/* The falloff of `count` points, to the same bits. */
void falloff(const Gizmo& gizmo, const float* x, const float* y, const float* z, int count, float* result);

/* The ray of a state in world space, to where it ends. */
struct WorldRay {
    miVector org, dir; // dir has length 1
    float length;      // 1e9 for a ray that hit nothing
    miVector end;      // of one that hit something
    bool from_afar;    // light of a source so far away that `org` has lost its digits
};

/* False for a ray without length. */
bool world_ray(miState* state, WorldRay& ray);

/* Where a ray is in a gizmo, in gizmo space. */
struct GizmoPassage {
    miVector start, dir; // dir has length 1
    float length;
};

bool pass_through_gizmo(const Gizmo& gizmo, const WorldRay& ray, GizmoPassage& passage);

/* How a shader uses its gizmos. */
struct GizmoUse {
    miScalar growth;      // multiplies radii and the sizes of boxes; deliberate: no heights, as in the host
    GizmoShape cylinder;  // what the host's cylinders are
    miVector noise_shift; // added to the random offset of each gizmo
};

/* The shape of a gizmo and its noise, without its place. */
Gizmo shape_gizmo(const orl_GizmoData& data, const GizmoUse& use);

/* The gizmos of a list of nodes, one block for each in the renderer's memory, for instance init; null for an
   empty list. Null tags make empty blocks; so do nodes without a gizmo record or with a transform that cannot
   be inverted, which are reported once for the list. */
Gizmo* read_gizmos(miState* state, const ArraySpan<miTag>& nodes, const GizmoUse& use);
void release_gizmos(Gizmo* gizmos);

} // namespace orl
