/*
 * The curve that grades a map's values, and what its caller hands over: parameters with the declaration
 * tables, and the curve's mathematics. A curve is a chain of cubic Bezier segments, y over x.
 */
#pragma once

#include "declaration.h"

#include <span>

namespace orl {

/* Argument of a curve shader, which answers with one scalar. */
struct CurveRequest {
    miInteger channel; // 0 red or mono, 1 green, 2 blue
    miInteger field_2; // not read
    miScalar x;
    miScalar x0, x1; // the curve's range; beyond it the curve goes on straight
    miScalar y0, y1;
    miBoolean useTable;
};
static_assert(sizeof(CurveRequest) == 32);

/* A control point as a scene has it; tangents are relative to the point. */
struct CurvePoint {
    static constexpr miInteger kind = 3, corner = 2; // in flags
    miInteger flags;
    miScalar x, y;
    miScalar inX, inY;
    miScalar outX, outY;
};
static_assert(sizeof(CurvePoint) == 28);

// ---- mathematics

struct CurvePosition {
    miScalar x, y;
};

/* A control point as it is evaluated: where it and the ends of its tangents lie. */
struct CurveKnot {
    CurvePosition in, at, out;
    bool corner; // has no tangent beyond the curve's ends
};

CurveKnot knot_of(const CurvePoint& point);

/* What the flags of a curve ask for. */
enum CurveFlags : miInteger {
    curve_fixed_ends = 1,  // the first point lies at y0, the last at y1
    curve_within_y = 0x200 // tangents end between y0 and y1
};

/* Makes a chain of the knots, whose x should not fall: as the flags ask, and so that no tangent ends beyond
   the neighbouring point, which would fold the curve back. */
void chain(std::span<CurveKnot> knots, miInteger flags, miScalar y0, miScalar y1);

/* The curve at x, from the first segment that spans it; 0 outside the points and for what is not a number. */
miScalar curve_value(std::span<const CurveKnot> knots, miScalar x);

/* The straight line on which the curve goes on before its first or behind its last point: along the tangent
   where there is one, otherwise along the chord to the next point. `knots` is not empty. */
miScalar curve_before(std::span<const CurveKnot> knots, miScalar x);
miScalar curve_behind(std::span<const CurveKnot> knots, miScalar x);

// ---- parameters

struct CurveParams {
    miInteger flags;
    decl::Array<CurvePoint> points;
    miInteger tableSize;
};

struct CurveControlParams {
    decl::Array<miTag> curves;
};

// ---- declaration tables

namespace utl_curve_table {

/* Highest number of steps of a table: 256 KB. */
inline constexpr miInteger most_steps = 65536;

inline constexpr auto point =
    decl::fields<CurvePoint>(decl::integer(&CurvePoint::flags, "flags", 0, decl::any, ""),
                             decl::scalar(&CurvePoint::x, "x", 0, decl::any, "", ""),
                             decl::scalar(&CurvePoint::y, "y", 0, decl::any, "", ""),
                             decl::scalar(&CurvePoint::inX, "inX", 0, decl::any, "", ""),
                             decl::scalar(&CurvePoint::inY, "inY", 0, decl::any, "", ""),
                             decl::scalar(&CurvePoint::outX, "outX", 0, decl::any, "", ""),
                             decl::scalar(&CurvePoint::outY, "outY", 0, decl::any, "", ""));

inline constexpr auto curve = decl::fields<CurveParams>(
    decl::integer(&CurveParams::flags, "flags", 0, decl::any,
                  "sum of 1: the first and the last point lie at the lower and upper end of the caller's y; "
                  "512: tangents end within the caller's y"),
    decl::array(&CurveParams::points, point, "points",
                "control points by rising x; the tangents inX inY and outX outY are relative to the point "
                "and cut off at its neighbours; flags with 2 in the lower two bits make a corner, beyond "
                "which the curve does not follow the tangent"),
    decl::integer(&CurveParams::tableSize, "tableSize", 1000, {1, most_steps},
                  "steps of the table that callers such as the output stage read; limited to the range"));

inline constexpr auto control = decl::fields<CurveControlParams>(
    decl::array(&CurveControlParams::curves, miTYPE_SHADER, "curves", "the curves that belong together"));

} // namespace utl_curve_table

inline constexpr decl::Shader utl_curve[] = {
    {"orl_base_Curve", miTYPE_SCALAR, 1, true, true, decl::apply(miSHADER_TEXTURE), utl_curve_table::curve,
     "One curve, y over x, for shaders that call it with a value. It serves every channel alike. Points are "
     "read at the first use and not again. Without points the curve is 0, as it is between the caller's ends "
     "of x where no two points enclose a value; beyond those ends it goes on straight."},
    {"orl_base_CurveControl", miTYPE_SCALAR, 1, false, false, decl::apply(miSHADER_TEXTURE),
     utl_curve_table::control,
     "Holds curves together for the host's panels. It computes nothing: as a curve it leaves every value as "
     "it is."},
};

} // namespace orl
