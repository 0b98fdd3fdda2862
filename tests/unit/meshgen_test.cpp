// The generated meshes: closed, turned outwards, of the right volume, and written so that they can be read.
#include <map>
#include <numbers>
#include <sstream>
#include <tuple>

#include <gmock/gmock.h>

#include "mesh.h"

namespace {

using namespace meshgen;

std::vector<Vec> corners_of(const Mesh& mesh, const std::array<std::uint32_t, 4>& face) {
    std::vector<Vec> corners;
    for (std::size_t i = 0; i < (face[2] == face[3] ? 3u : 4u); ++i)
        corners.push_back(mesh.vertices[face[i]].point);
    return corners;
}

// By the divergence theorem, from the triangles of each face.
double volume_of(const Mesh& mesh) {
    double six = 0;
    for (const auto& face : mesh.faces) {
        const std::vector<Vec> c = corners_of(mesh, face);
        for (std::size_t i = 2; i < c.size(); ++i)
            six += dot(c[0], cross(c[i - 1], c[i]));
    }
    return six / 6;
}

// Edges that do not run once in each direction.
std::size_t open_edges(const Mesh& mesh) {
    const auto key = [](Vec p) {
        const auto grid = [](double x) { return std::lround(x * 1e6); };
        return std::tuple{grid(p.x), grid(p.y), grid(p.z)};
    };
    std::map<std::pair<decltype(key({})), decltype(key({}))>, int> balance;
    for (const auto& face : mesh.faces) {
        const std::vector<Vec> c = corners_of(mesh, face);
        for (std::size_t i = 0; i < c.size(); ++i) {
            const auto a = key(c[i]), b = key(c[(i + 1) % c.size()]);
            if (a != b)
                balance[std::minmax(a, b)] += a < b ? 1 : -1;
        }
    }
    return static_cast<std::size_t>(
        std::count_if(balance.begin(), balance.end(), [](const auto& edge) { return edge.second != 0; }));
}

// The smallest cosine between a face and the normals at its corners.
double worst_normal(const Mesh& mesh) {
    double worst = 1;
    for (const auto& face : mesh.faces) {
        const std::vector<Vec> c = corners_of(mesh, face);
        const Vec across = c.size() == 4 ? cross(c[2] - c[0], c[3] - c[1]) : cross(c[1] - c[0], c[2] - c[0]);
        if (length(across) < 1e-12) // sliver at a sharp edge: no direction to compare with
            continue;
        for (std::size_t i = 0; i < c.size(); ++i)
            worst = std::min(worst, dot(normalized(across), mesh.vertices[face[i]].normal));
    }
    return worst;
}

double beta(double a, double b) {
    return std::tgamma(a) * std::tgamma(b) / std::tgamma(a + b);
}

// Jaklic, Leonardis, Solina, "Segmentation and Recovery of Superquadrics", 2000, section 2.4.
double superquadric_volume(double e1, double e2) {
    return 2 * e1 * e2 * beta(e1 / 2 + 1, e1) * beta(e2 / 2, e2 / 2);
}

// Length of the trefoil, summed over chords; a tube's volume is its cross-section times the length.
double trefoil_length() {
    const auto at = [](double t) {
        return Vec{std::sin(t) + 2 * std::sin(2 * t), std::cos(t) - 2 * std::cos(2 * t), -std::sin(3 * t)};
    };
    double sum = 0;
    constexpr int steps = 20000;
    for (int i = 0; i < steps; ++i)
        sum += length(at(2 * std::numbers::pi * (i + 1) / steps) - at(2 * std::numbers::pi * i / steps));
    return sum;
}

TEST(Meshgen, ClosedBodies) {
    const struct {
        const char* name;
        Mesh mesh;
        double volume, tolerance, cosine;
    } cases[] = {
        {"sphere", superquadric(1, 1, 192, 96), 4.0 / 3 * std::numbers::pi, 0.01, 0.99},
        {"cylinder", superquadric(0.2, 1, 192, 96), superquadric_volume(0.2, 1), 0.03, 0.5},
        {"double pyramid", superquadric(2, 2, 96, 48), 4.0 / 3, 1e-6, -1}, // creases have no normal
        {"cushion", superquadric(0.5, 0.5, 192, 96), superquadric_volume(0.5, 0.5), 0.02, 0.5},
        {"star", superquadric(0.5, 2.4, 192, 96), superquadric_volume(0.5, 2.4), 0.01, -1},
        {"trefoil", trefoil(0.5, 512, 64), trefoil_length() * std::numbers::pi * 0.25, 0.05, 0.98},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_NEAR(volume_of(c.mesh), c.volume, c.tolerance);
        EXPECT_EQ(open_edges(c.mesh), 0u);
        for (const Vertex& vertex : c.mesh.vertices)
            ASSERT_NEAR(length(vertex.normal), 1, 1e-9); // also when it is no number
        EXPECT_GT(worst_normal(c.mesh), c.cosine);
    }
}

TEST(Meshgen, OrnamentConvergesAndKeepsItsSymmetry) {
    const Mesh coarse = ornament(2.2, 4), fine = ornament(2.2, 5);
    EXPECT_EQ(fine.faces.size(), 60u * 3 * 256);
    EXPECT_EQ(open_edges(fine), 0u);
    EXPECT_GT(worst_normal(fine), 0.9);
    EXPECT_NEAR(volume_of(coarse), volume_of(fine), 0.01 * volume_of(fine));
    Vec centre; // of a body with the symmetry of an icosahedron
    for (const auto& face : fine.faces)
        centre = centre + fine.vertices[face[0]].point;
    EXPECT_LT(length(centre) / static_cast<double>(fine.faces.size()), 1e-9);
}

TEST(Meshgen, WritesVectorsVerticesAndPolygons) {
    Mesh square;
    for (const Vec p : {Vec{0, 0, 0}, Vec{1, 0, 0}, Vec{1, 1, 0}, Vec{0, 1, 0}})
        square.vertices.push_back({p, {0, 0, 1}, p});
    square.faces = {{0, 1, 2, 3}, {0, 1, 2, 2}};
    std::ostringstream out;
    write_object(out, square, {.name = "sq", .motion = {0, 0, 0.5}, .spin = {0, 0, 2}, .triangles = true});
    const std::string text = out.str();
    EXPECT_THAT(text, testing::StartsWith("object \"sq\""));
    // The corner (1, 1, 0): its motion is (0, 0, 0.5) + (0, 0, 2) x (1, 1, 0) = (-2, 2, 0.5).
    EXPECT_THAT(text, testing::HasSubstr("1 1 0\n0 0 1\n1 1 0\n-2 2 0.5\n"));
    EXPECT_THAT(text, testing::HasSubstr("v 8 n 9 t 10 m 11\n"));
    EXPECT_THAT(text, testing::HasSubstr("c 0 1 2\nc 0 2 3\nc 0 1 2\nend group\n"));
}

} // namespace
