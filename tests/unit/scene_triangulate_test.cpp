// Polygons cut into triangles: the triangles' areas add up to the polygon's, none is turned round.
#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

#include "scene/triangulate.h"

namespace stage {
namespace {

using Points = std::vector<std::pair<double, double>>;

Points star(int points, double outer, double inner) {
    Points result;
    for (int k = 0; k < 2 * points; ++k) {
        const double angle = std::numbers::pi * k / points, radius = k % 2 == 0 ? outer : inner;
        result.emplace_back(radius * std::cos(angle), radius * std::sin(angle));
    }
    return result;
}

// Seen along each axis and backwards: the plane's position must not matter.
void expect_covered_once(const std::vector<Points>& lines, double area, int axis, double side) {
    std::vector<float> points;
    std::vector<Outline> outlines;
    for (const Points& line : lines) {
        outlines.emplace_back();
        for (const auto& [x, y] : line) {
            outlines.back().push_back(static_cast<std::uint32_t>(points.size() / 3));
            float p[3];
            p[axis] = 0.25f;
            p[(axis + 1) % 3] = static_cast<float>(side * x);
            p[(axis + 2) % 3] = static_cast<float>(y);
            points.insert(points.end(), p, p + 3);
        }
    }
    std::vector<std::uint32_t> result;
    triangulate(outlines, points.data(), 3, result);
    double sum = 0.0, sum_absolute = 0.0;
    for (std::size_t k = 0; k + 2 < result.size(); k += 3) {
        const auto at = [&](std::size_t corner, int component) {
            return double{points[result[k + corner] * 3 + static_cast<std::size_t>((axis + component) % 3)]};
        };
        const double part = 0.5 * ((at(1, 1) - at(0, 1)) * (at(2, 2) - at(0, 2)) -
                                   (at(1, 2) - at(0, 2)) * (at(2, 1) - at(0, 1)));
        sum += part;
        sum_absolute += std::abs(part);
    }
    EXPECT_NEAR(sum, side * area, 1e-5 * area) << "axis " << axis << " side " << side;
    EXPECT_NEAR(sum_absolute, area, 1e-5 * area);
}

TEST(Triangulate, CoversThePolygonOnce) {
    const Points square = {{0, 0}, {10, 0}, {10, 10}, {0, 10}};
    const auto hole = [](double x, double y) { // of 1 by 1, the other way round than the square
        return Points{{x, y}, {x, y + 1}, {x + 1, y + 1}, {x + 1, y}};
    };
    const struct {
        const char* name;
        std::vector<Points> outlines;
        double area; // by hand
    } polygons[] = {
        {"dart", {{{0, 0}, {4, 0}, {1, 1}, {0, 4}}}, 4},
        {"dart from its reflex corner", {{{1, 1}, {0, 4}, {0, 0}, {4, 0}}}, 4},
        {"comb", {{{0, 0}, {7, 0}, {7, 3}, {6, 3}, {6, 1}, {5, 1}, {5, 3}, {3, 3}}}, (7 + 4) / 2.0 * 3 - 2},
        {"star", {star(12, 5, 2)}, 12 * 5 * 2 * std::sin(std::numbers::pi / 12)}, // n outer inner sin(pi / n)
        {"corner on an edge", {{{0, 0}, {2, 0}, {4, 0}, {4, 4}, {0, 4}}}, 16},
        {"hole", {square, hole(2, 2)}, 99},
        {"hole the same way round", {square, {{2, 2}, {5, 2}, {5, 5}, {2, 5}}}, 91},
        {"holes in a row", {square, hole(1, 4), hole(4, 4), hole(7, 4)}, 97},
        {"hole behind a spike",
         {{{0, 0}, {10, 0}, {10, 10}, {6, 10}, {5, 3}, {4, 10}, {0, 10}}, hole(1, 1)},
         100 - 7 - 1},
        {"star with a hole", {star(8, 10, 6), hole(-1, -1)}, 8 * 10 * 6 * std::sin(std::numbers::pi / 8) - 1},
    };
    for (const auto& polygon : polygons)
        for (int axis = 0; axis < 3; ++axis)
            for (const double side : {1.0, -1.0}) {
                SCOPED_TRACE(polygon.name);
                expect_covered_once(polygon.outlines, polygon.area, axis, side);
            }
}

} // namespace
} // namespace stage
