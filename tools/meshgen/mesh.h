// Meshes as the generators make them and as the scene language takes them.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace meshgen {

struct Vec {
    double x = 0, y = 0, z = 0;
};

inline Vec operator+(Vec a, Vec b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
inline Vec operator-(Vec a, Vec b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline Vec operator*(Vec a, double f) {
    return {a.x * f, a.y * f, a.z * f};
}
inline double dot(Vec a, Vec b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
inline Vec cross(Vec a, Vec b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline double length(Vec a) {
    return std::sqrt(dot(a, a));
}
inline Vec normalized(Vec a) {
    const double l = length(a);
    return l > 0 ? a * (1 / l) : a;
}

struct Vertex {
    Vec point, normal, texture;
};

// Quads and triangles, counter-clockwise seen from the front; a triangle repeats its last corner.
struct Mesh {
    std::vector<Vertex> vertices;
    std::vector<std::array<std::uint32_t, 4>> faces;
};

// A rectangular net of (columns + 1) * (rows + 1) vertices: vertex(u, v) with u and v from 0 to 1. Corners
// that fall together (at a pole) leave triangles.
template <class Function> Mesh net(std::uint32_t columns, std::uint32_t rows, const Function& vertex) {
    Mesh mesh;
    mesh.vertices.reserve(std::size_t{columns + 1} * (rows + 1));
    for (std::uint32_t row = 0; row <= rows; ++row)
        for (std::uint32_t column = 0; column <= columns; ++column) {
            const double u = static_cast<double>(column) / columns, v = static_cast<double>(row) / rows;
            mesh.vertices.push_back(vertex(u, v));
        }
    const auto same = [&](std::uint32_t a, std::uint32_t b) {
        return length(mesh.vertices[a].point - mesh.vertices[b].point) < 1e-9;
    };
    for (std::uint32_t row = 0; row < rows; ++row)
        for (std::uint32_t column = 0; column < columns; ++column) {
            const std::uint32_t a = row * (columns + 1) + column, b = a + 1, c = b + columns + 1,
                                d = a + columns + 1;
            if (same(a, b))
                mesh.faces.push_back({a, c, d, d});
            else if (same(c, d))
                mesh.faces.push_back({a, b, c, c});
            else
                mesh.faces.push_back({a, b, c, d});
        }
    return mesh;
}

// Cuts the texture square into columns * rows charts, each a little smaller than its place: `gutter` is the
// share of a place's edge that stays free on either side. Every face goes to the chart that its middle lies
// in.
Mesh cut_into_charts(const Mesh& mesh, std::uint32_t columns, std::uint32_t rows, double gutter);

// What is written beside the mesh itself.
struct ObjectOptions {
    std::string name;
    Vec motion;             // of every vertex during the shutter interval
    Vec spin;               // adds spin x point: a turn about that axis, its length in radians
    bool triangles = false; // cut quads
};

// Writes an object of the scene language.
void write_object(std::ostream& out, const Mesh& mesh, const ObjectOptions& options);

// |x / a|^(2/e2) + ...: Barr's superellipsoid with semi-axis 1; exponent 1 is round, towards 0 a
// box, 2 a double pyramid, more a star. `north_south` (at most 2) shapes the profile, `east_west` the
// cross-section.
Mesh superquadric(double north_south, double east_west, std::uint32_t columns, std::uint32_t rows);

// A tube along the trefoil knot (sin t + 2 sin 2t, cos t - 2 cos 2t, -sin 3t), which fills a radius of 3.
Mesh trefoil(double tube_radius, std::uint32_t columns, std::uint32_t rows);

// A star with twelve points, rounded by `levels` steps of Catmull-Clark subdivision; the points reach
// `point_radius` before they are rounded, the hollows between them 1.
Mesh ornament(double point_radius, int levels);

// A wavy square of 2 by 2 with size * size quads, for measuring.
Mesh waves(std::uint32_t size);

// A floor that bends up into a back wall: extruded along x from -width / 2 to width / 2; the floor begins at
// y = -front, the bend with its radius ends in a wall of `height` at y = back.
Mesh sweep(double width, double front, double back, double radius, double height, std::uint32_t bend_steps);

// A surface of revolution about the z axis: `profile` holds radius and height by turns, from below. Two
// points give a lamp shade; more are joined smoothly, a vase.
Mesh lathe(const std::vector<double>& profile, std::uint32_t columns);

} // namespace meshgen
