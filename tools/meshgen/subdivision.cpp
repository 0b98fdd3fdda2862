// A star as a cage of triangles, made smooth by subdivision.
#include <algorithm>
#include <map>
#include <numbers>
#include <utility>

#include "mesh.h"

namespace meshgen {

namespace {

// A polygon mesh whose faces carry texture coordinates at their corners.
struct Cage {
    struct Corner {
        std::uint32_t point;
        Vec texture;
    };
    std::vector<Vec> points;
    std::vector<std::vector<Corner>> faces;
};

Vec average(const std::vector<Cage::Corner>& face, const auto& value) {
    Vec sum;
    for (const Cage::Corner& corner : face)
        sum = sum + value(corner);
    return sum * (1.0 / static_cast<double>(face.size()));
}

using Edge = std::pair<std::uint32_t, std::uint32_t>;
Edge edge_of(std::uint32_t a, std::uint32_t b) {
    return {std::min(a, b), std::max(a, b)};
}

// One step for a closed mesh. Edwin Catmull and James Clark, "Recursively generated B-spline surfaces on
// arbitrary topological meshes", 1978. Texture coordinates stay straight on each face.
Cage subdivide(const Cage& cage) {
    struct Sum {
        Vec value;
        int count = 0;
        void add(Vec v) { value = value + v, ++count; }
        [[nodiscard]] Vec mean() const { return value * (1.0 / count); }
    };
    const std::size_t old = cage.points.size();
    std::vector<Vec> face_points;
    std::map<Edge, Sum> edges; // the points of the faces on both sides
    std::vector<Sum> faces_at(old), middles_at(old);
    for (const auto& face : cage.faces) {
        const Vec centre = average(face, [&](const auto& corner) { return cage.points[corner.point]; });
        face_points.push_back(centre);
        for (std::size_t i = 0; i < face.size(); ++i) {
            edges[edge_of(face[i].point, face[(i + 1) % face.size()].point)].add(centre);
            faces_at[face[i].point].add(centre);
        }
    }
    for (const auto& [edge, sum] : edges) {
        const Vec middle = (cage.points[edge.first] + cage.points[edge.second]) * 0.5;
        middles_at[edge.first].add(middle);
        middles_at[edge.second].add(middle);
    }

    Cage fine;
    for (std::size_t i = 0; i < old; ++i) {
        const double n = faces_at[i].count;
        fine.points.push_back((faces_at[i].mean() + middles_at[i].mean() * 2 + cage.points[i] * (n - 3)) *
                              (1 / n));
    }
    std::map<Edge, std::uint32_t> edge_index;
    for (const auto& [edge, sum] : edges) {
        edge_index[edge] = static_cast<std::uint32_t>(fine.points.size());
        fine.points.push_back((cage.points[edge.first] + cage.points[edge.second] + sum.value) * 0.25);
    }
    for (std::size_t f = 0; f < cage.faces.size(); ++f) {
        const auto& face = cage.faces[f];
        const auto centre = static_cast<std::uint32_t>(fine.points.size());
        fine.points.push_back(face_points[f]);
        const Vec centre_texture = average(face, [](const auto& corner) { return corner.texture; });
        for (std::size_t i = 0; i < face.size(); ++i) {
            const Cage::Corner &corner = face[i], &next = face[(i + 1) % face.size()],
                               &last = face[(i + face.size() - 1) % face.size()];
            const auto middle = [&](const Cage::Corner& other) {
                return Cage::Corner{edge_index.at(edge_of(corner.point, other.point)),
                                    (corner.texture + other.texture) * 0.5};
            };
            fine.faces.push_back({corner, middle(next), {centre, centre_texture}, middle(last)});
        }
    }
    return fine;
}

// The twelve corners of an icosahedron, which are the directions of the star's points.
std::vector<Vec> icosahedron_corners() {
    const double g = std::numbers::phi;
    std::vector<Vec> corners;
    for (const double a : {-1.0, 1.0})
        for (const double b : {-g, g}) {
            corners.push_back({0, a, b});
            corners.push_back({a, b, 0});
            corners.push_back({b, 0, a});
        }
    return corners;
}

// Every point of the star stands between the middles of the five icosahedron faces around it.
Cage star(double point_radius) {
    const std::vector<Vec> tips = icosahedron_corners();
    Cage cage;
    for (const Vec& tip : tips)
        cage.points.push_back(normalized(tip) * point_radius);
    const auto adjacent = [&](std::size_t a, std::size_t b) {
        return std::abs(length(tips[a] - tips[b]) - 2) < 1e-6;
    };
    std::map<Edge, std::vector<std::uint32_t>> hollows; // at both ends of the valley below an edge
    for (std::uint32_t a = 0; a < 12; ++a)
        for (std::uint32_t b = a + 1; b < 12; ++b)
            for (std::uint32_t c = b + 1; c < 12; ++c)
                if (adjacent(a, b) && adjacent(b, c) && adjacent(a, c)) {
                    const auto hollow = static_cast<std::uint32_t>(cage.points.size());
                    cage.points.push_back(normalized(tips[a] + tips[b] + tips[c]));
                    for (const Edge& edge : {Edge{a, b}, Edge{b, c}, Edge{a, c}})
                        hollows[edge].push_back(hollow);
                }
    for (const auto& [edge, ends] : hollows)
        for (const std::uint32_t tip : {edge.first, edge.second}) {
            std::uint32_t left = ends[0], right = ends[1];
            const Vec normal =
                cross(cage.points[left] - cage.points[tip], cage.points[right] - cage.points[tip]);
            if (dot(normal, cage.points[tip] + cage.points[left] + cage.points[right]) < 0)
                std::swap(left, right);
            cage.faces.push_back({{tip, {0.5, 1, 0}}, {left, {0, 0, 0}}, {right, {1, 0, 0}}});
        }
    return cage;
}

} // namespace

Mesh ornament(double point_radius, int levels) {
    Cage cage = star(point_radius);
    for (int i = 0; i < levels; ++i)
        cage = subdivide(cage);

    std::vector<Vec> normals(cage.points.size()); // weighted by area
    for (const auto& face : cage.faces) {
        const Vec &a = cage.points[face[0].point], &b = cage.points[face[1].point],
                  &c = cage.points[face[2].point], &d = cage.points[face.back().point];
        const Vec normal = cross(c - a, d - b);
        for (const auto& corner : face)
            normals[corner.point] = normals[corner.point] + normal;
    }

    Mesh mesh;
    std::map<std::array<double, 3>, std::uint32_t> known; // by point and texture coordinate
    for (const auto& face : cage.faces) {
        std::array<std::uint32_t, 4> corners{};
        for (std::size_t i = 0; i < 4; ++i) {
            const auto& [point, texture] = face[std::min(i, face.size() - 1)];
            const auto [entry, added] = known.try_emplace({static_cast<double>(point), texture.x, texture.y},
                                                          static_cast<std::uint32_t>(mesh.vertices.size()));
            if (added)
                mesh.vertices.push_back({cage.points[point], normalized(normals[point]), texture});
            corners[i] = entry->second;
        }
        mesh.faces.push_back(corners);
    }
    return mesh;
}

} // namespace meshgen
