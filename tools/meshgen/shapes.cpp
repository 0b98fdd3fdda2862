// The shapes that are given by a formula.
#include <algorithm>
#include <map>
#include <numbers>
#include <utility>

#include "mesh.h"

namespace meshgen {

namespace {

constexpr double pi = std::numbers::pi;

double signed_power(double base, double exponent) {
    return std::copysign(std::pow(std::abs(base), exponent), base);
}

// Sine and cosine of whole quarter turns exactly, so that seams and poles close.
double exact(double value) {
    return std::abs(value) < 1e-12 ? 0.0 : value;
}

} // namespace

// Alan H. Barr, "Superquadrics and angle-preserving transformations", 1981.
Mesh superquadric(double north_south, double east_west, std::uint32_t columns, std::uint32_t rows) {
    return net(columns, rows, [&](double u, double v) {
        const double around = (2 * u - 1) * pi, up = (v - 0.5) * pi;
        const double cu = exact(std::cos(around)), su = exact(std::sin(around));
        const double cv = exact(std::cos(up)), sv = exact(std::sin(up));
        const double around_x = signed_power(cu, east_west), around_y = signed_power(su, east_west);
        const double radius = signed_power(cv, north_south);
        // The normal's exponents are 2 minus the form's. A cross-section with inward curves would make them
        // negative: there the whole vector is multiplied by what would stand below the fraction line.
        const double k = std::abs(2 - east_west), out = signed_power(cv, 2 - north_south);
        Vec normal{out * signed_power(cu, k), out * signed_power(su, k), signed_power(sv, 2 - north_south)};
        if (east_west > 2)
            normal = {out * std::copysign(std::pow(std::abs(su), k), cu),
                      out * std::copysign(std::pow(std::abs(cu), k), su),
                      normal.z * std::pow(std::abs(cu * su), k)};
        const Vec point{radius * around_x, radius * around_y, signed_power(sv, north_south)};
        if (length(normal) == 0) // the poles of a star
            normal = {0, 0, sv};
        return Vertex{point, normalized(normal), {u, v, 0}};
    });
}

Mesh trefoil(double tube_radius, std::uint32_t columns, std::uint32_t rows) {
    const auto centre = [](double t) {
        return Vec{std::sin(t) + 2 * std::sin(2 * t), std::cos(t) - 2 * std::cos(2 * t), -std::sin(3 * t)};
    };
    // The Frenet frame of this curve never breaks down: its curvature has no zero.
    return net(columns, rows, [&](double u, double v) {
        const double t = exact(u == 1 ? 0 : 2 * pi * u), around = v == 1 ? 0 : 2 * pi * v;
        const Vec tangent = normalized(
            {std::cos(t) + 4 * std::cos(2 * t), -std::sin(t) + 4 * std::sin(2 * t), -3 * std::cos(3 * t)});
        const Vec second = {-std::sin(t) - 8 * std::sin(2 * t), -std::cos(t) + 8 * std::cos(2 * t),
                            9 * std::sin(3 * t)};
        const Vec side = normalized(second - tangent * dot(second, tangent));
        const Vec out = side * std::cos(around) - cross(tangent, side) * std::sin(around);
        return Vertex{centre(t) + out * tube_radius, out, {u, v, 0}};
    });
}

Mesh waves(std::uint32_t size) {
    return net(size, size, [](double u, double v) {
        const double x = 2 * u - 1, y = 2 * v - 1, k = 3 * pi, height = 0.05;
        const Vec slope = {height * k * std::cos(k * x) * std::cos(k * y),
                           -height * k * std::sin(k * x) * std::sin(k * y), 0};
        return Vertex{{x, y, height * std::sin(k * x) * std::cos(k * y)},
                      normalized({-slope.x, -slope.y, 1}),
                      {u, v, 0}};
    });
}

Mesh sweep(double width, double front, double back, double radius, double height, std::uint32_t bend_steps) {
    // The profile in the plane of y and z: two ends and the bend between; v is the length along it.
    const double flat = front + back - radius, bend = radius * pi / 2, wall = height - radius;
    return net(1, bend_steps + 2, [&](double u, double v) {
        const double step = std::round(v * (bend_steps + 2));
        const double turn = std::clamp((step - 1) / bend_steps, 0.0, 1.0) * pi / 2;
        Vec point{(u - 0.5) * width, back - radius + radius * std::sin(turn),
                  radius - radius * std::cos(turn)};
        double along = flat + turn / (pi / 2) * bend;
        if (step == 0) {
            point.y = -front;
            along = 0;
        } else if (step > bend_steps + 1) {
            point.z = height;
            along += wall;
        }
        const Vec normal{0, -exact(std::sin(turn)), exact(std::cos(turn))};
        return Vertex{point, normal, {u * width, along, 0}};
    });
}

Mesh cut_into_charts(const Mesh& mesh, std::uint32_t columns, std::uint32_t rows, double gutter) {
    const auto place_of = [](double coordinate, std::uint32_t places) {
        return std::min(static_cast<std::uint32_t>(coordinate * places), places - 1);
    };
    const auto into_place = [=](double coordinate, std::uint32_t place, std::uint32_t places) {
        return (place + gutter + (coordinate * places - place) * (1 - 2 * gutter)) / places;
    };
    Mesh result;
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint32_t> known; // by vertex and chart
    for (const auto& face : mesh.faces) {
        Vec middle;
        for (const std::uint32_t corner : face)
            middle = middle + mesh.vertices[corner].texture * 0.25;
        const std::uint32_t column = place_of(middle.x, columns), row = place_of(middle.y, rows);
        std::array<std::uint32_t, 4> corners{};
        for (std::size_t i = 0; i < face.size(); ++i) {
            const auto [entry, added] = known.try_emplace({face[i], row * columns + column},
                                                          static_cast<std::uint32_t>(result.vertices.size()));
            if (added) {
                Vertex vertex = mesh.vertices[face[i]];
                vertex.texture = {into_place(vertex.texture.x, column, columns),
                                  into_place(vertex.texture.y, row, rows), 0};
                result.vertices.push_back(vertex);
            }
            corners[i] = entry->second;
        }
        result.faces.push_back(corners);
    }
    return result;
}

Mesh lathe(const std::vector<double>& profile, std::uint32_t columns) {
    const std::size_t last = profile.size() / 2 - 1;
    return net(columns, static_cast<std::uint32_t>(last), [&](double u, double v) {
        const auto i = static_cast<std::size_t>(std::lround(v * static_cast<double>(last)));
        // The slope between the neighbours.
        const std::size_t below = i == 0 ? 0 : i - 1, above = std::min(i + 1, last);
        const double widening = profile[2 * above] - profile[2 * below];
        const double rise = profile[2 * above + 1] - profile[2 * below + 1];
        const double around = 2 * pi * u, radius = profile[2 * i];
        const double c = exact(std::cos(around)), s = u == 1 ? 0 : exact(std::sin(around));
        return Vertex{{radius * c, radius * s, profile[2 * i + 1]},
                      normalized({rise * c, rise * s, -widening}),
                      {u, v, 0}};
    });
}

} // namespace meshgen
