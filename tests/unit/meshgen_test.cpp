// The generated meshes: of the right volume, turned outwards, with normals; and as they are written.
#include <numbers>
#include <sstream>

#include <gmock/gmock.h>

#include "mesh.h"

namespace {

using namespace meshgen;

// By the divergence theorem, from the triangles of each face: a hole or a turned face changes it.
double volume_of(const Mesh& mesh) {
    double six = 0;
    for (const auto& face : mesh.faces)
        for (std::size_t i = 2; i < (face[2] == face[3] ? 3u : 4u); ++i)
            six += dot(mesh.vertices[face[0]].point,
                       cross(mesh.vertices[face[i - 1]].point, mesh.vertices[face[i]].point));
    return six / 6;
}

TEST(Meshgen, Volumes) {
    // Jaklic, Leonardis, Solina, "Segmentation and Recovery of Superquadrics", 2000, section 2.4.
    const auto beta = [](double a, double b) { return std::tgamma(a) * std::tgamma(b) / std::tgamma(a + b); };
    const double cushion = 2 * 0.5 * 0.5 * beta(0.5 / 2 + 1, 0.5) * beta(0.5 / 2, 0.5 / 2);
    const struct {
        Mesh mesh;
        double volume, tolerance;
    } cases[] = {{superquadric(1, 1, 192, 96), 4.0 / 3 * std::numbers::pi, 0.01},
                 {superquadric(2, 2, 96, 48), 4.0 / 3, 1e-6}, // two pyramids
                 {superquadric(0.5, 0.5, 192, 96), cushion, 0.02},
                 {ornament(2.2, 5), volume_of(ornament(2.2, 4)), 0.01 * volume_of(ornament(2.2, 4))}};
    for (const auto& c : cases) {
        EXPECT_NEAR(volume_of(c.mesh), c.volume, c.tolerance);
        for (const Vertex& vertex : c.mesh.vertices)
            ASSERT_NEAR(length(vertex.normal), 1, 1e-9); // also when it is no number
    }
}

TEST(Meshgen, WritesVectorsVerticesAndPolygons) {
    Mesh square;
    for (const Vec p : {Vec{0, 0, 0}, Vec{1, 0, 0}, Vec{1, 1, 0}, Vec{0, 1, 0}})
        square.vertices.push_back({p, {0, 0, 1}, p});
    square.faces = {{0, 1, 2, 3}, {0, 1, 2, 2}};
    std::ostringstream out;
    write_object(out, square, {.name = "sq", .motion = {0, 0, 0.5}, .spin = {0, 0, 2}, .triangles = true});
    // The corner (1, 1, 0): its motion is (0, 0, 0.5) + (0, 0, 2) x (1, 1, 0) = (-2, 2, 0.5).
    EXPECT_THAT(out.str(), testing::HasSubstr("1 1 0\n0 0 1\n1 1 0\n-2 2 0.5\n"));
    EXPECT_THAT(out.str(), testing::HasSubstr("v 8 n 9 t 10 m 11\n"));
    EXPECT_THAT(out.str(), testing::HasSubstr("c 0 1 2\nc 0 2 3\nc 0 1 2\nend group\n"));
}

} // namespace
