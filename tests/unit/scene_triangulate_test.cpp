// Polygons cut into triangles: the triangles' areas add up to the polygon's, none is turned round.
#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

#include "scene/triangulate.h"

namespace stage {
namespace {

struct Polygon {
    const char* name;
    std::vector<std::vector<std::pair<double, double>>> outlines;
    double area; // by hand
};

void PrintTo(const Polygon& polygon, std::ostream* out) {
    *out << polygon.name;
}

std::vector<std::pair<double, double>> star(int points, double outer, double inner) {
    std::vector<std::pair<double, double>> result;
    for (int k = 0; k < 2 * points; ++k) {
        const double angle = std::numbers::pi * k / points, radius = k % 2 == 0 ? outer : inner;
        result.emplace_back(radius * std::cos(angle), radius * std::sin(angle));
    }
    return result;
}

class Triangulate : public testing::TestWithParam<Polygon> {};

// Seen along each axis and backwards: the plane's position must not matter.
TEST_P(Triangulate, CoversThePolygonOnce) {
    for (int axis = 0; axis < 3; ++axis) {
        for (const double side : {1.0, -1.0}) {
            std::vector<float> points;
            std::vector<Outline> outlines;
            for (const auto& line : GetParam().outlines) {
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
                    return double{
                        points[result[k + corner] * 3 + static_cast<std::size_t>((axis + component) % 3)]};
                };
                const double area = 0.5 * ((at(1, 1) - at(0, 1)) * (at(2, 2) - at(0, 2)) -
                                           (at(1, 2) - at(0, 2)) * (at(2, 1) - at(0, 1)));
                sum += area;
                sum_absolute += std::abs(area);
            }
            EXPECT_NEAR(sum, side * GetParam().area, 1e-5 * GetParam().area)
                << "axis " << axis << " side " << side;
            EXPECT_NEAR(sum_absolute, GetParam().area, 1e-5 * GetParam().area);
        }
    }
}

const std::vector<std::pair<double, double>> square = {{0, 0}, {10, 0}, {10, 10}, {0, 10}};

INSTANTIATE_TEST_SUITE_P(
    Shapes, Triangulate,
    testing::Values(Polygon{"square", {square}, 100}, Polygon{"dart", {{{0, 0}, {4, 0}, {1, 1}, {0, 4}}}, 4},
                    Polygon{"dart from its reflex corner", {{{1, 1}, {0, 4}, {0, 0}, {4, 0}}}, 4},
                    Polygon{"comb",
                            {{{0, 0},
                              {7, 0},
                              {7, 3},
                              {6, 3},
                              {6, 1},
                              {5, 1},
                              {5, 3},
                              {4, 3},
                              {4, 1},
                              {3, 1},
                              {3, 3},
                              {0, 3}}},
                            17},
                    // n-pointed star: n * outer * inner * sin(pi / n)
                    Polygon{"star", {star(12, 5, 2)}, 12 * 5 * 2 * std::sin(std::numbers::pi / 12)},
                    Polygon{"corner on an edge", {{{0, 0}, {2, 0}, {4, 0}, {4, 4}, {0, 4}}}, 16},
                    Polygon{"hole", {square, {{2, 2}, {2, 5}, {5, 5}, {5, 2}}}, 91},
                    Polygon{"hole the other way round", {square, {{2, 2}, {5, 2}, {5, 5}, {2, 5}}}, 91},
                    Polygon{"holes in a row",
                            {square,
                             {{1, 4}, {2, 4}, {2, 5}, {1, 5}},
                             {{4, 4}, {5, 4}, {5, 5}, {4, 5}},
                             {{7, 4}, {8, 4}, {8, 5}, {7, 5}}},
                            97},
                    Polygon{"hole behind a spike",
                            {{{0, 0}, {10, 0}, {10, 10}, {6, 10}, {5, 3}, {4, 10}, {0, 10}},
                             {{1, 1}, {1, 2}, {2, 2}, {2, 1}}},
                            100 - 7 - 1},
                    Polygon{"star with a hole",
                            {star(8, 10, 6), {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}}},
                            8 * 10 * 6 * std::sin(std::numbers::pi / 8) - 4}));

TEST(TriangulateHostile, CrossingAndEmptyPolygonsEnd) {
    const std::vector<float> points = {0, 0, 0, 1, 1, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0};
    for (const Outline& outline :
         {Outline{0, 1, 2, 3}, Outline{0, 0, 0, 0, 0}, Outline{0, 4, 0, 4}, Outline{0, 1, 0, 2, 3}}) {
        std::vector<std::uint32_t> result;
        triangulate(std::vector<Outline>{outline}, points.data(), 3, result);
        EXPECT_LE(result.size(), 3 * (outline.size() - 2));
    }
    std::vector<std::uint32_t> result;
    const std::vector<Outline> outside{{0, 2, 1}, {3, 3, 3}};
    triangulate(outside, points.data(), 3, result);
    EXPECT_LE(result.size(), 30u);
}

} // namespace
} // namespace stage
