/*
 * The curve that grades a map's values, and what its caller hands over.
 */
#pragma once

#include "mi_binding.h"

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

} // namespace orl
