// Cuts polygons into triangles by ear clipping.
#include "scene/triangulate.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace stage {

namespace {

struct Point {
    double x, y;
    std::uint32_t index;
};

using Ring = std::vector<Point>;

double cross(const Point& a, const Point& b, const Point& c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

double area(const Ring& ring) {
    double sum = 0.0;
    for (std::size_t i = 0, j = ring.size() - 1; i < ring.size(); j = i++)
        sum += ring[j].x * ring[i].y - ring[i].x * ring[j].y;
    return 0.5 * sum;
}

bool same_place(const Point& a, const Point& b) {
    return a.x == b.x && a.y == b.y;
}

// Inside or on the border of a counter-clockwise triangle.
bool inside(const Point& a, const Point& b, const Point& c, const Point& p) {
    return cross(a, b, p) >= 0.0 && cross(b, c, p) >= 0.0 && cross(c, a, p) >= 0.0;
}

// The mean normal's largest component decides which two axes the polygon is seen along (Newell's method).
struct Projection {
    const float* points;
    std::size_t stride;
    int u, v;

    Projection(const Outline& outline, const float* all, std::size_t step) : points(all), stride(step) {
        std::array<double, 3> normal{};
        for (std::size_t i = 0, j = outline.size() - 1; i < outline.size(); j = i++) {
            const float* a = points + outline[j] * stride;
            const float* b = points + outline[i] * stride;
            for (std::size_t k = 0; k < 3; ++k) {
                const std::size_t l = (k + 1) % 3, m = (k + 2) % 3;
                normal[k] += (double{a[l]} - double{b[l]}) * (double{a[m]} + double{b[m]});
            }
        }
        int axis = 0;
        for (int k = 1; k < 3; ++k)
            if (std::abs(normal[static_cast<std::size_t>(k)]) >
                std::abs(normal[static_cast<std::size_t>(axis)]))
                axis = k;
        u = (axis + 1) % 3;
        v = (axis + 2) % 3;
        if (normal[static_cast<std::size_t>(axis)] < 0.0)
            std::swap(u, v);
    }

    [[nodiscard]] Ring operator()(const Outline& outline) const {
        Ring ring;
        ring.reserve(outline.size());
        for (const std::uint32_t index : outline) {
            const float* p = points + index * stride;
            ring.push_back({double{p[u]}, double{p[v]}, index});
        }
        return ring;
    }
};

// The corner's neighbours in the ring.
struct Neighbours {
    std::size_t before, after;
    Neighbours(std::size_t at, std::size_t n) : before((at + n - 1) % n), after((at + 1) % n) {}
};

double turn(const Ring& ring, std::size_t at) {
    const Neighbours n(at, ring.size());
    return cross(ring[n.before], ring[at], ring[n.after]);
}

// True when the corner's interior angle contains the direction to `from`: of several corners at one place,
// which bridges make, only one does.
bool opens_towards(const Ring& ring, std::size_t at, const Point& from) {
    const Neighbours n(at, ring.size());
    const bool left = cross(ring[n.before], ring[at], from) >= 0.0;
    const bool right = cross(ring[at], ring[n.after], from) >= 0.0;
    return turn(ring, at) > 0.0 ? left && right : left || right;
}

// The corner of `border` that the hole's rightmost point sees: the bridge's other end.
std::size_t bridge_end(const Ring& border, const Point& from) {
    double nearest = std::numeric_limits<double>::infinity();
    std::size_t best = border.size();
    for (std::size_t j = border.size() - 1, i = 0; i < border.size(); j = i++) {
        const Point &a = border[j], &b = border[i];
        const bool along = a.y == from.y && b.y == from.y;
        if ((a.y > from.y) == (b.y > from.y) && !along)
            continue;
        const double x = along ? std::min(a.x, b.x) : a.x + (from.y - a.y) / (b.y - a.y) * (b.x - a.x);
        if (x >= from.x && x < nearest) {
            nearest = x;
            best = a.x > b.x ? j : i;
        }
    }
    if (best == border.size()) // the hole lies outside: any corner gives a defined result
        return 0;

    const Point hit{nearest, from.y, 0};
    for (std::size_t i = 0; i < border.size(); ++i)
        if (same_place(border[i], hit) && opens_towards(border, i, from))
            return i;
    // A corner inside the triangle (from, hit, best) hides `best`; the one of the smallest angle is seen.
    const Point target = border[best];
    double smallest = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < border.size(); ++i) {
        const Point& p = border[i];
        const bool within = target.y < from.y ? inside(from, target, hit, p) : inside(from, hit, target, p);
        if (!within || p.x < from.x || !opens_towards(border, i, from))
            continue;
        const double slope = p.x > from.x ? std::abs(p.y - from.y) / (p.x - from.x) : 0.0;
        if (slope < smallest) {
            smallest = slope;
            best = i;
        }
    }
    return best;
}

void join_hole(Ring& border, Ring hole) {
    if (area(hole) > 0.0)
        std::reverse(hole.begin(), hole.end());
    const auto rightmost =
        std::max_element(hole.begin(), hole.end(), [](const Point& a, const Point& b) { return a.x < b.x; });
    std::rotate(hole.begin(), rightmost, hole.end());
    const std::size_t end = bridge_end(border, hole.front());
    hole.push_back(hole.front());
    hole.push_back(border[end]);
    border.insert(border.begin() + static_cast<std::ptrdiff_t>(end) + 1, hole.begin(), hole.end());
}

// A convex corner whose triangle holds no other part of the polygon; only a corner that is not convex can
// reach into it, and bridges touch it at corners of the same place.
bool is_ear(const Ring& ring, std::size_t at) {
    const Neighbours n(at, ring.size());
    const Point &a = ring[n.before], &b = ring[at], &c = ring[n.after];
    if (cross(a, b, c) <= 0.0)
        return false;
    for (std::size_t i = 0; i < ring.size(); ++i) {
        const Point& p = ring[i];
        if (inside(a, b, c, p) && !same_place(p, a) && !same_place(p, b) && !same_place(p, c) &&
            turn(ring, i) <= 0.0)
            return false;
    }
    return true;
}

void cut_ears(Ring ring, std::vector<std::uint32_t>& result) {
    std::size_t at = 0;
    std::size_t refused = 0; // corners looked at since the last cut
    while (ring.size() >= 3) {
        const std::size_t n = ring.size();
        at %= n;
        const bool stuck = refused >= n;
        if (stuck)
            for (std::size_t i = 0; i < n && turn(ring, at) != 0.0; ++i)
                at = (at + 1) % n;
        // Without an ear, a corner on a straight line goes first, which takes nothing away. A polygon that
        // has none either crosses itself: cut anywhere.
        const bool flat = stuck && n > 3 && turn(ring, at) == 0.0;
        if (!flat && n > 3 && !stuck && !is_ear(ring, at)) {
            ++at;
            ++refused;
            continue;
        }
        const Neighbours neighbours(at, n);
        if (!flat)
            result.insert(result.end(),
                          {ring[neighbours.before].index, ring[at].index, ring[neighbours.after].index});
        ring.erase(ring.begin() + static_cast<std::ptrdiff_t>(at));
        refused = 0;
    }
}

bool is_convex(const Ring& ring) {
    const std::size_t n = ring.size();
    for (std::size_t i = 0; i < n; ++i)
        if (cross(ring[i], ring[(i + 1) % n], ring[(i + 2) % n]) < 0.0)
            return false;
    return true;
}

} // namespace

void triangulate(std::span<const Outline> outlines, const float* points, std::size_t point_stride,
                 std::vector<std::uint32_t>& result) {
    const Projection project(outlines.front(), points, point_stride);
    Ring border = project(outlines.front());
    // Four corners without a reflex one need no search; more could still wind around twice.
    if (outlines.size() == 1 && border.size() == 4 && is_convex(border)) {
        const Outline& o = outlines.front();
        result.insert(result.end(), {o[0], o[1], o[2], o[0], o[2], o[3]});
        return;
    }
    std::vector<Ring> holes;
    for (const Outline& outline : outlines.subspan(1))
        holes.push_back(project(outline));
    const auto right_end = [](const Ring& ring) {
        double x = -std::numeric_limits<double>::infinity();
        for (const Point& p : ring)
            x = std::max(x, p.x);
        return x;
    };
    std::stable_sort(holes.begin(), holes.end(),
                     [&](const Ring& a, const Ring& b) { return right_end(a) > right_end(b); });
    for (Ring& hole : holes)
        join_hole(border, std::move(hole));
    cut_ears(std::move(border), result);
}

} // namespace stage
