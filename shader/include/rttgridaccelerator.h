/*
 * The projection grid: which triangle of an object covers a point of its texture square. Baking asks this for
 * every texel. The grid is built once for each baking lens, on first use; look-ups only read it, so threads
 * need no lock for them.
 */
#pragma once

#include "orlshaderapi.h"

namespace orl {

/* Cell c = column * N + row, the column from u and the row from v, owns items[cells[c]] up to
   items[cells[c + 1]]. A triangle stands in every cell that its bounding box touches. */
struct RttGridAccelerator {
    miTag object; /* the working model */
    miUint texture_set;
    miInteger texture_offset; /* of the set inside a vertex, in floats; set by the build, like all below but
                                 the selection */
    miInteger vertex_stride;  /* in floats */
    miTag selection;          /* user data with a bit for each triangle, or null for all triangles */
    miUint cells_per_side;    /* N */
    miUint* cells;            /* N * N + 1 entries */
    miUint item_count;
    miUint* items; /* position of a triangle's first index, three times the triangle's number */
    miBoolean built;
};

/* Texture coordinates of a triangle's vertices. */
struct TextureCorners {
    miVector2d a, b, c;
};

/* Weights of the three vertices, each from 0 to 1. */
struct CornerWeights {
    miScalar a, b, c;
};

struct TexelTriangle {
    miUint item; /* position of the first of its three indices */
    CornerWeights weights;
};

// ---- mathematics

/* N: about one cell for twenty triangles. */
miUint grid_cells_per_side(miUint triangle_count);

/* Column or row of a coordinate. Those of 1 and above stand in the last cell. Deliberate: so do those of
   -1/N and below, and what is no number, since the host reads the truncated value as unsigned; between -1/N
   and 0 it truncates to the first cell. */
inline miUint grid_cell(miUint cells_per_side, miScalar coordinate) {
    const miScalar cells = static_cast<miScalar>(cells_per_side) * coordinate;
    const bool within = cells > -1.0f && cells < static_cast<miScalar>(cells_per_side);
    return within ? static_cast<miUint>(static_cast<miInteger>(cells)) : cells_per_side - 1;
}

/* Whether p is on the same side of all three edges. Zero counts as the positive side. Deliberate, as the host
   decides it: points on an edge are therefore inside a triangle that runs counter-clockwise and outside a
   mirrored one. Neighbours leave no other gap, and the look-up closes that one. Without area, a triangle
   contains all points of the line that its vertices lie on. Nothing is inside where a coordinate is no
   number. */
inline bool point_in_triangle(const miVector2d& p, const TextureCorners& t) {
    // From p, so that the two sides of an edge differ in nothing but the sign, roundings included.
    const miScalar au = t.a.u - p.u, av = t.a.v - p.v;
    const miScalar bu = t.b.u - p.u, bv = t.b.v - p.v;
    const miScalar cu = t.c.u - p.u, cv = t.c.v - p.v;
    const miScalar ab = au * bv - av * bu, bc = bu * cv - bv * cu, ca = cu * av - cv * au;
    const bool positive = ab >= 0.0f && bc >= 0.0f && ca >= 0.0f;
    const bool negative = ab < 0.0f && bc < 0.0f && ca < 0.0f;
    return positive || negative;
}

/* Twice the area, negative for a mirrored triangle. */
inline miScalar doubled_area(const TextureCorners& t) {
    return (t.b.u - t.a.u) * (t.c.v - t.a.v) - (t.b.v - t.a.v) * (t.c.u - t.a.u);
}

/* Barycentric weights of p in a triangle that has an area. Deliberate: each is clamped by itself, so outside
   the triangle their sum may differ from 1. */
CornerWeights texture_weights(const miVector2d& p, const TextureCorners& t);

// ---- the grid

/* Builds the grid of `object` over its texture space `texture_set`, reading the triangles that `selection`
   names; does nothing when it is built or has no object. A failure is reported and leaves an empty grid. One
   thread at a time may build a grid; a caller that cannot build it has to remember that by itself. */
void build_grid(RttGridAccelerator& grid, miState* state);

/* Whether another thread has finished building, in which case what it wrote can be read. */
bool is_built(const RttGridAccelerator& grid);

/* Frees what the build allocated. */
void release_grid(RttGridAccelerator& grid);

/* The triangle that covers the texel at p, or false. Looks into the one cell that p lies in and takes the
   first of its items that contains p: that with the largest third texture coordinate, of equals the first of
   the object. Edges belong to a triangle, mirrored or not; triangles without area cover nothing. `mesh` is
   that of the grid's object, to be kept accessed by the caller. No allocation, no lock; time grows with the
   number of items in the cell. Deliberate: a triangle that reaches from below -1/N into the square stands in
   the cells above its other vertices and not in those below, so its texels there are not found. */
bool find_texel_triangle(const RttGridAccelerator& grid, const miTriangles& mesh, const miVector2d& p,
                         TexelTriangle& found);

} // namespace orl
