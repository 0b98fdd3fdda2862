/*
 * Curves by which the host's maps are graded. A segment's x is a cubic of its parameter, so that each value
 * costs a search; callers that ask for many values let the curve make a table at the first one. Segments and
 * table are shared by all threads and made under the lock of the instance.
 */
#include "utl_curve.h"
#include "orlshaderapi.h"

#include <algorithm>

namespace orl {

// ---- mathematics

namespace {

// Control polygon of a coordinate over one segment; the curve as Bernstein polynomials (Gerald Farin, Curves
// and Surfaces for CAGD, 2002, chapter 5).
struct Cubic {
    miScalar a, b, c, d;
    miScalar operator()(miScalar t) const {
        const miScalar s = 1.0f - t;
        return s * s * s * a + 3.0f * s * s * t * b + 3.0f * s * t * t * c + t * t * t * d;
    }
};

// t with x(t) = value, by halving the interval.
miScalar solve(const Cubic& x, miScalar value) {
    constexpr int halvings = 20;
    miScalar low = 0.0f, high = 1.0f, t = 0.5f;
    for (int k = 0; k < halvings; ++k) {
        t = 0.5f * (low + high);
        const miScalar found = x(t);
        if (found == value)
            break;
        (found < value ? low : high) = t;
    }
    return t;
}

miScalar segment_value(const CurveKnot& from, const CurveKnot& to, miScalar x) {
    // The points themselves are met exactly, which halving would not do.
    if (x == from.at.x)
        return from.at.y;
    if (x == to.at.x)
        return to.at.y;
    const miScalar t = solve({from.at.x, from.out.x, to.in.x, to.at.x}, x);
    return Cubic{from.at.y, from.out.y, to.in.y, to.at.y}(t);
}

// Shortens a tangent that is longer in x than the gap to the neighbour, keeping its direction.
void shorten(const CurvePosition& at, CurvePosition& end, miScalar neighbour) {
    const miScalar length = std::fabs(end.x - at.x), gap = std::fabs(neighbour - at.x);
    if (!(length > gap))
        return;
    end.y = at.y + (end.y - at.y) * (gap / length);
    end.x = neighbour;
}

// Moves a point up or down, with its tangents.
void set_height(CurveKnot& knot, miScalar y) {
    const miScalar rise = y - knot.at.y;
    knot.in.y += rise;
    knot.out.y += rise;
    knot.at.y = y;
}

// Value at x of the line through two points; level where they lie above each other.
miScalar on_line(const CurvePosition& from, const CurvePosition& to, miScalar x) {
    const miScalar run = to.x - from.x;
    return run == 0.0f ? from.y : from.y + (to.y - from.y) / run * (x - from.x);
}

// Shorter tangents have no direction to rely on.
constexpr miScalar shortest_tangent = 0.0001f;

} // namespace

CurveKnot knot_of(const CurvePoint& p) {
    return {{p.x + p.inX, p.y + p.inY},
            {p.x, p.y},
            {p.x + p.outX, p.y + p.outY},
            (p.flags & CurvePoint::kind) == CurvePoint::corner};
}

void chain(std::span<CurveKnot> knots, miInteger flags, miScalar y0, miScalar y1) {
    if (knots.empty())
        return;
    if (flags & curve_fixed_ends) {
        set_height(knots.front(), y0);
        set_height(knots.back(), y1);
    }
    if (flags & curve_within_y)
        for (CurveKnot& knot : knots)
            for (CurvePosition* const end : {&knot.in, &knot.out})
                end->y = std::max(std::min(y0, y1), std::min(end->y, std::max(y0, y1)));
    for (std::size_t k = 0; k + 1 < knots.size(); ++k) {
        CurveKnot &from = knots[k], &to = knots[k + 1];
        if (from.out.x > to.at.x)
            shorten(from.at, from.out, to.at.x);
        if (to.in.x < from.at.x)
            shorten(to.at, to.in, from.at.x);
    }
}

miScalar curve_value(std::span<const CurveKnot> knots, miScalar x) {
    for (std::size_t k = 0; k + 1 < knots.size(); ++k)
        if (knots[k].at.x <= x && x <= knots[k + 1].at.x)
            return segment_value(knots[k], knots[k + 1], x);
    return 0.0f;
}

miScalar curve_before(std::span<const CurveKnot> knots, miScalar x) {
    const CurveKnot& first = knots.front();
    if (!first.corner && first.out.x - first.at.x > shortest_tangent)
        return on_line(first.at, first.out, x);
    return on_line(first.at, knots.size() > 1 ? knots[1].at : first.at, x);
}

miScalar curve_behind(std::span<const CurveKnot> knots, miScalar x) {
    const CurveKnot& last = knots.back();
    if (!last.corner && last.at.x - last.in.x > shortest_tangent)
        return on_line(last.at, last.in, x);
    return on_line(last.at, knots.size() > 1 ? knots[knots.size() - 2].at : last.at, x);
}

namespace {

// ---- table

// In one block of memory with its samples, of which there is one more than steps.
struct CurveTable {
    miInteger steps;
    miScalar x0, x1;

    miScalar* samples() { return reinterpret_cast<miScalar*>(this + 1); }
    const miScalar* samples() const { return reinterpret_cast<const miScalar*>(this + 1); }
};

// x >= x0. The last sample holds for what rounding, or a range of no or endless length, puts beyond it.
miScalar look_up(const CurveTable& table, miScalar inverse_step, miScalar x) {
    const miScalar position = (x - table.x0) * inverse_step;
    const miScalar* const sample = table.samples();
    if (!(position < static_cast<miScalar>(table.steps)))
        return sample[table.steps];
    const auto k = static_cast<miInteger>(position);
    return sample[k] + (position - static_cast<miScalar>(k)) * (sample[k + 1] - sample[k]);
}

// ---- instance data

// All zero until the first use. Those who see a flag set see what it tells of.
struct CurveInstance {
    miInteger points;
    CurveTable* table;
    CurveKnot* knots;
    std::atomic<miInteger> knotsBuilt, tableBuilt;
    miScalar step, inverseStep;
};
static_assert(sizeof(CurveInstance) == 40); // what the host accounts for

constexpr const char* allocation_file = "utl_curve";

// Builds what the flag tells of, once for the instance; false when it has no lock and cannot be shared.
template <class Build> bool build_once(miState* state, std::atomic<miInteger>& built, Build build) {
    if (built.load(std::memory_order_acquire))
        return true;
    miLock* lock = nullptr;
    if (!mi_query(miQ_FUNC_LOCK, state, miNULLTAG, &lock) || lock == nullptr)
        return false;
    mi_lock(*lock);
    if (!built.load(std::memory_order_relaxed)) {
        build();
        built.store(1, std::memory_order_release);
    }
    mi_unlock(*lock);
    return true;
}

// Any number of the seven may be connected, so each is evaluated by itself.
CurvePoint evaluated(miState* state, const CurvePoint& p) {
    return {eval(state, p.flags), eval(state, p.x),    eval(state, p.y),   eval(state, p.inX),
            eval(state, p.inY),   eval(state, p.outX), eval(state, p.outY)};
}

void build_knots(CurveInstance& curve, miState* state, const CurveParams* params, const CurveRequest& first) {
    const ArrayElements<CurvePoint> points(params, &CurveParams::points, eval(state, params->points.first),
                                           eval(state, params->points.count));
    if (points.size() == 0)
        return;
    const miUint size = static_cast<miUint>(points.size()) * static_cast<miUint>(sizeof(CurveKnot));
    curve.knots = static_cast<CurveKnot*>(mi_mem_int_allocate(allocation_file, __LINE__, size));
    curve.points = points.size();
    for (miInteger k = 0; k < points.size(); ++k)
        new (&curve.knots[k]) CurveKnot(knot_of(evaluated(state, points[k])));
    chain({curve.knots, static_cast<std::size_t>(curve.points)}, eval(state, params->flags), first.y0,
          first.y1);
}

void build_table(CurveInstance& curve, miState* state, const CurveParams* params, const CurveRequest& first) {
    const miInteger steps = std::clamp(eval(state, params->tableSize), 1, utl_curve_table::most_steps);
    const miUint size = static_cast<miUint>(sizeof(CurveTable)) +
                        static_cast<miUint>(steps + 1) * static_cast<miUint>(sizeof(miScalar));
    curve.table =
        new (mi_mem_int_allocate(allocation_file, __LINE__, size)) CurveTable{steps, first.x0, first.x1};
    curve.step = (first.x1 - first.x0) / static_cast<miScalar>(steps);
    curve.inverseStep = static_cast<miScalar>(steps) / (first.x1 - first.x0);
    const std::span<const CurveKnot> knots(curve.knots, static_cast<std::size_t>(curve.points));
    for (miInteger k = 0; k <= steps; ++k) {
        // The last step ends at x1 whatever rounding says: the curve has no value behind its last point.
        const miScalar x = first.x0 + static_cast<miScalar>(k) * curve.step;
        curve.table->samples()[k] = curve_value(knots, k < steps ? std::min(x, first.x1) : first.x1);
    }
}

miScalar evaluate(CurveInstance& curve, miState* state, const CurveParams* params,
                  const CurveRequest& request) {
    if (!build_once(state, curve.knotsBuilt, [&] { build_knots(curve, state, params, request); }))
        return 0.0f;
    const std::span<const CurveKnot> knots(curve.knots, static_cast<std::size_t>(curve.points));
    if (knots.empty())
        return 0.0f;
    if (request.x < request.x0)
        return curve_before(knots, request.x);
    if (request.x > request.x1)
        return curve_behind(knots, request.x);
    const bool inside = request.x >= request.x0 && request.x <= request.x1; // numbers all three
    if (!inside || !request.useTable)
        return curve_value(knots, request.x);
    const bool has_table =
        build_once(state, curve.tableBuilt, [&] { build_table(curve, state, params, request); });
    // The table is the first caller's; one with another range does without.
    if (!has_table || curve.table->x0 != request.x0 || curve.table->x1 != request.x1)
        return curve_value(knots, request.x);
    return look_up(*curve.table, curve.inverseStep, request.x);
}

} // namespace

// ---- curve

ORL_VERSION(utl_curve, orl_base_Curve);

ORL_EXPORT void orl_base_Curve_init(miState* state, const CurveParams* params,
                                    miBoolean* instance_init_required) {
    if (wants_instance(params, instance_init_required))
        new_instance_data<CurveInstance>(state, {allocation_file, __LINE__});
}

// The channel of the request is for curves that tell the channels apart; this one is the same for all.
ORL_EXPORT miBoolean orl_base_Curve(miScalar* result, miState* state, const CurveParams* params,
                                    const CurveRequest* request) {
    auto* const curve = instance_data<CurveInstance>(state);
    *result = curve != nullptr && request != nullptr ? evaluate(*curve, state, params, *request) : 0.0f;
    return miTRUE;
}

ORL_EXPORT void orl_base_Curve_exit(miState* state, const CurveParams* params) {
    if (params == nullptr)
        return;
    if (const auto* const curve = instance_data<CurveInstance>(state)) {
        if (curve->table != nullptr)
            mi_mem_int_release(allocation_file, __LINE__, curve->table);
        if (curve->knots != nullptr)
            mi_mem_int_release(allocation_file, __LINE__, curve->knots);
    }
    delete_instance_data(state, {allocation_file, __LINE__});
}

// ---- curve control

ORL_VERSION(utl_curve, orl_base_CurveControl);

ORL_EXPORT miBoolean orl_base_CurveControl(miScalar*, miState*, const void*) {
    return miTRUE;
}

} // namespace orl
