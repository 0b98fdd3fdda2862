/*
 * Where texture coordinates come to lie: directions projected onto a picture, coordinates turned, moved and
 * tiled, wrapped into the unit square. Plain values in, plain values out.
 */
#pragma once

#include "mi_binding.h"

namespace orl {

/* A texture coordinate, and the edges of the box around the pixel in texture space. */
struct UvPoint {
    miVector uvw;
    miVector width;
};

// ---- environments: pictures around the scene, the pole up the z axis

/* `dir` has length 1 (one that is null gives coordinates too), `spread` is the angle in radians that the
   pixel covers. Longitude and latitude over the whole picture. */
UvPoint spherical_uv(const miVector& dir, miScalar spread);

/* Longitude over height on a cylinder around z in the middle half of the picture, its lids in the rest. */
UvPoint cylindrical_uv(const miVector& dir, miScalar spread);

/* The picture wraps the sphere from the top, its middle; all its edge meets at the bottom. */
UvPoint shrink_wrap_uv(const miVector& dir, miScalar spread);

// ---- turning

/* Rows are the images of the three axes and of the origin: a point is a row in front of the matrix. */
struct UvMatrix {
    miVector row[4];
};

/* The turn of a generator, kept while its angles (radians) stay. `matrix` takes a coordinate onto the plane
   of the axis and turns it about x, y and z in that order, each turn right-handed. */
struct UvTurn {
    miBoolean rotated; /* an angle is not 0 */
    miBoolean valid;
    miScalar u_angle, v_angle, w_angle;
    miScalar sine, cosine; /* of w_angle */
    UvMatrix matrix;
    UvMatrix inverse;
};

/* Brings the turn up to date; does nothing while it is valid for these angles, compared exactly. */
void update_turn(UvTurn& turn, const miVector& angles, miInteger axis);

/* The coordinate through the matrix; the box around what becomes of the box. */
UvPoint turned(const UvMatrix& matrix, const UvPoint& p);

/* For coordinates on a plane without a turn: 0 UV, 1 VW, 2 WU, others as 0. */
UvPoint onto_plane(miInteger axis, const UvPoint& p);

/* The picture of an environment, turned in its plane. */
UvPoint turned_in_plane(miScalar sine, miScalar cosine, const UvPoint& p);

// ---- moving and tiling

/* Turns and tilings keep the point (pivot, pivot, pivot) where it is. */
struct UvPlacement {
    miScalar pivot;
    miScalar u_offset, v_offset;
    miScalar u_tiling, v_tiling;
};

UvPoint moved_to_pivot(const UvPlacement& place, UvPoint p);
UvPoint tiled_from_pivot(const UvPlacement& place, UvPoint p);

/* u and v displaced by noise along each other. `phase` is null for noise that stands still. */
struct UvNoise {
    miScalar amount; // 10 displace by up to about 1
    miScalar size;
    miInteger levels;
    const miScalar* phase;
};
void displace(const UvNoise& noise, miVector& uvw);

// ---- wrapping

/* Part of x behind the whole number below it: 0 to 1, and 1 for negative whole numbers. NaN where x is not
   finite. */
miScalar uv_fraction(miScalar x);

/* How a map goes on beyond its borders, in one direction; it ends there when neither is set. */
struct UvEdge {
    bool tile, mirror;
};

/* Takes a coordinate to where the map is to be sampled; false where there is no map. */
bool wrap(UvEdge edge, bool plain, miScalar& x);

} // namespace orl
