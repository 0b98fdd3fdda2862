// The projection grid. Meshes and texels stand on lattices that are coarse enough for single precision to be
// exact, so that a search over all triangles in integers has to find the very same triangles.
#include "rttgridaccelerator.h"
#include "shader_fixture.h"

#include <algorithm>
#include <array>
#include <functional>
#include <random>

using namespace orl;

namespace {

constexpr int lattice = 1024; // texels; vertices stand on every other point

struct Vertex {
    int u, v, w; // u and v in steps of the lattice, w in quarters
};
using Triangle = std::array<Vertex, 3>;

// An object with two texture spaces, of which the second is looked up. No vertex is shared.
struct Mesh {
    std::vector<float> vertices;
    std::vector<miUint> indices;
    miTriangles triangles{};

    explicit Mesh(const std::vector<Triangle>& from) {
        for (const Triangle& triangle : from)
            for (const Vertex& at : triangle) {
                indices.push_back(static_cast<miUint>(indices.size()));
                vertices.insert(vertices.end(),
                                {0, 0, 0, 9, 9, 9, static_cast<float>(at.u) / lattice,
                                 static_cast<float>(at.v) / lattice, static_cast<float>(at.w) / 4});
            }
        triangles.triangle_count = static_cast<miUint>(from.size());
        triangles.vertex_count = 3 * triangles.triangle_count;
        triangles.vertex_stride = 9;
        triangles.texture_count = 2;
        triangles.texture_offset = 3;
        triangles.vertices = vertices.data();
        triangles.indices = indices.data();
    }
};

class Grid : public ShaderTest {
protected:
    RttGridAccelerator grid{};
    scripted::Resources before = scripted::Renderer::resources();

    void TearDown() override {
        release_grid(grid);
        EXPECT_EQ(renderer.resources().live_blocks, before.live_blocks);
        EXPECT_EQ(renderer.pins(), 0);
    }

    void build(Mesh& mesh) {
        miObject object{};
        object.triangles = &mesh.triangles;
        grid.object = renderer.add_copy(miSCENE_OBJECT, object);
        grid.texture_set = 1;
        build_grid(grid, state);
    }

    // Number of the triangle, -1 for none.
    int find(const Mesh& mesh, float u, float v) const {
        TexelTriangle found{};
        return find_texel_triangle(grid, mesh.triangles, {u, v}, found) ? static_cast<int>(found.item / 3)
                                                                        : -1;
    }
};

constexpr Triangle dot{Vertex{2, 2, 0}, {2, 2, 0}, {2, 2, 0}},
    large{Vertex{0, 0, 0}, {2000, 0, 0}, {0, 2000, 0}};

TEST(PointInTriangle, NeighboursLeaveNoGap) {
    // Points that roundings throw to either side of the edge, which runs the other way in each triangle.
    std::mt19937 random;
    const auto one = [&] { return static_cast<float>(random()) * 0x1p-32f; };
    int gaps = 0;
    for (int k = 0; k < 100000; ++k) {
        const miVector2d low{one(), one() - 1}, high{one(), one() + 1};
        const float part = 0.25f + 0.5f * one();
        const miVector2d p{low.u + part * (high.u - low.u), low.v + part * (high.v - low.v)};
        gaps += !point_in_triangle(p, {low, high, {-3, 0}}) && !point_in_triangle(p, {high, low, {3, 0}});
    }
    EXPECT_EQ(gaps, 0);
}

// ---- look-ups beside a search over all triangles

using Random = std::mt19937;
int between(Random& random, int low, int high) {
    return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1));
}

// What triangles of a mesh look like. The first vertex before the reach stands anywhere in the range.
struct Shape {
    const char* what;
    int count, low, high, reach, heights;
    bool some_without_area = false;
};

Triangle random_triangle(Random& random, const Shape& shape) {
    const auto one = [&](int from, int to) { return 2 * between(random, from / 2, to / 2); };
    const auto near = [&](int at) {
        return std::clamp(at + one(-shape.reach, shape.reach), std::min(shape.low, 0),
                          std::max(shape.high, lattice));
    };
    const int u = one(shape.low, shape.high), v = one(shape.low, shape.high);
    Triangle t;
    for (Vertex& at : t)
        at = {near(u), near(v), between(random, 0, shape.heights)};
    if (shape.some_without_area && random() % 2 == 0)
        t[2] = random() % 2 == 0 ? t[0] : Vertex{(t[0].u + t[1].u) / 2, (t[0].v + t[1].v) / 2, 4};
    return t;
}

int side(const Vertex& a, const Vertex& b, int u, int v) {
    return (a.u - u) * (b.v - v) - (a.v - v) * (b.u - u);
}

bool covers(const Triangle& t, int u, int v) {
    const int ab = side(t[0], t[1], u, v), bc = side(t[1], t[2], u, v), ca = side(t[2], t[0], u, v);
    const bool has_area = ab + bc + ca != 0;
    return has_area && ((ab >= 0 && bc >= 0 && ca >= 0) || (ab <= 0 && bc <= 0 && ca <= 0));
}

int search(const std::vector<Triangle>& triangles, int u, int v) {
    int best = -1, best_height = -1;
    for (std::size_t k = 0; k < triangles.size(); ++k) {
        const auto& [a, b, c] = triangles[k];
        if (a.w + b.w + c.w > best_height && covers(triangles[k], u, v)) {
            best = static_cast<int>(k);
            best_height = a.w + b.w + c.w;
        }
    }
    return best;
}

TEST_F(Grid, FindsWhatASearchFinds) {
    constexpr Shape shapes[] = {
        {"overlapping", 170, 0, lattice, 400, 4},
        {"flat", 300, 0, lattice, 200, 0},
        {"half without area", 300, 0, lattice, 200, 4, true},
        {"more than 256 in a cell", 700, lattice / 2, lattice / 2, 400, 4},
        {"above 1", 300, 200, 3 * lattice / 2, 200, 4},
    };
    Random random;
    for (const Shape& shape : shapes) {
        SCOPED_TRACE(shape.what);
        std::vector<Triangle> triangles;
        for (int k = 0; k < shape.count; ++k)
            triangles.push_back(random_triangle(random, shape));
        Mesh mesh(triangles);
        build(mesh);
        int hits = 0, differences = 0;
        for (int k = 0; k < 100000; ++k) {
            const int u = between(random, 0, lattice - 1), v = between(random, 0, lattice - 1);
            const int is = find(mesh, static_cast<float>(u) / lattice, static_cast<float>(v) / lattice);
            differences += is != search(triangles, u, v);
            hits += is >= 0;
        }
        EXPECT_EQ(differences, 0);
        EXPECT_TRUE(hits > 20000 && hits < 100000) << hits; // some texels have no triangle
        release_grid(grid);
    }
}

// Coordinates below 0 count as the last cell's, so that this one is not in the first of 2 columns that it
// covers.
TEST_F(Grid, CoordinatesBelowZeroKeepATriangleOutOfCells) {
    std::vector<Triangle> triangles(60, dot);
    triangles.back() = {Vertex{-600, 0, 4}, {1000, 0, 4}, {-600, 1000, 4}};
    Mesh mesh(triangles);
    build(mesh);
    EXPECT_EQ(find(mesh, 0.25f, 0.125f), -1);
    EXPECT_EQ(find(mesh, 0.625f, 0.125f), 59);
}

// ---- the build

TEST_F(Grid, FiguresAndMemory) {
    // 60 triangles give 2 * 2 cells. 58 lie in the first one, one at the right in the third, the last covers
    // all four: 63 items; with the 5 entries of the table 68 * 4 = 272 bytes.
    std::vector<Triangle> triangles(60, dot);
    triangles[7].fill({600, 2, 0});
    triangles.back() = {Vertex{0, 0, 0}, {1000, 0, 0}, {0, 1000, 4}};
    Mesh mesh(triangles);
    build(mesh);
    const std::vector<scripted::Message> expected = {
        {scripted::Level::info,
         "RTT acceleration structure created: 272 bytes allocated, 63 items in 5 voxels."}};
    EXPECT_EQ(renderer.messages(), expected);
    EXPECT_EQ(renderer.resources().live_bytes - before.live_bytes, 272);
    EXPECT_EQ(std::vector<miUint>(grid.cells, grid.cells + 5), (std::vector<miUint>{0, 59, 60, 62, 63}));
    TexelTriangle found;
    ASSERT_TRUE(find_texel_triangle(grid, mesh.triangles, {250.0f / lattice, 500.0f / lattice}, found));
    EXPECT_NEAR(found.weights.a, 0.25f, 1e-6f);
    EXPECT_NEAR(found.weights.c, 0.5f, 1e-6f);
    build_grid(grid, state); // stays as it is
    EXPECT_EQ(renderer.messages(), expected);
}

TEST_F(Grid, Failures) {
    const std::string failed = "Render to Texture: Failed to ",
                      memory = failed + "allocate acceleration structure (not enough memory).",
                      unknown = failed + "create acceleration structure (unkown error).";
    const struct {
        const char* what;
        const std::string& message;
        std::function<void(Mesh&, int&)> spoil; // the mesh, or how many allocations succeed
    } cases[] = {
        {"one triangle", unknown, [](Mesh& m, int&) { m.triangles.triangle_count = 1; }},
        {"set beyond the last", unknown, [](Mesh& m, int&) { m.triangles.texture_count = 1; }},
        {"no texture space", unknown, [](Mesh& m, int&) { m.triangles.texture_count = 0; }},
        {"no texture vertices", unknown, [](Mesh& m, int&) { m.triangles.texture_offset = -1; }},
        {"index beyond the last vertex", unknown, [](Mesh& m, int&) { m.indices[100] = 180; }},
        {"too many", unknown, [](Mesh& m, int&) { m.triangles.triangle_count = 0x60000000; }},
        // 86 * 86 cells of 150000 items each: more bytes than 32 bits count.
        {"too many items", memory, [](Mesh& m, int&) { m = Mesh(std::vector<Triangle>(150000, large)); }},
        {"no memory for the cells", memory, [](Mesh&, int& granted) { granted = 0; }},
        {"no memory for the items", memory, [](Mesh&, int& granted) { granted = 1; }},
    };
    for (const auto& [what, message, spoil] : cases) {
        SCOPED_TRACE(what);
        renderer.clear_logs();
        Mesh mesh(std::vector<Triangle>(60, dot));
        int granted = 2;
        spoil(mesh, granted);
        renderer.mi_mem_int_test_allocate = [&](const char* file, int line, miUint size) -> void* {
            return granted-- > 0 ? renderer.mi_mem_int_test_allocate.unscripted(file, line, size) : nullptr;
        };
        build(mesh);
        EXPECT_EQ(errors(), std::vector<std::string>{message});
        EXPECT_EQ(find(mesh, 0, 0), -1);
        EXPECT_EQ(renderer.resources().live_blocks, before.live_blocks);
    }
    renderer.clear_logs();
    for (const miTag tag : {renderer.add_copy(miSCENE_OBJECT, miObject{}), add_instance_with(miNULLTAG),
                            miTag{miNULLTAG}}) { // the last without a message
        grid.object = tag;
        build_grid(grid, state);
    }
    EXPECT_EQ(errors(), (std::vector<std::string>{unknown, unknown}));
}

TEST_F(Grid, NoNumbers) {
    Mesh mesh(std::vector<Triangle>(60, large));
    for (std::size_t k = 27; k < 60 * 27; ++k)
        mesh.vertices[k] = k % 2 == 0 ? not_a_number : k % 3 == 0 ? infinite : -1e30f;
    mesh.vertices[8] = not_a_number; // a third coordinate does not hide a triangle
    build(mesh);
    EXPECT_EQ(find(mesh, 0.75f, 0.75f), 0); // among all the others
    for (const float strange : {not_a_number, infinite, -infinite, 1e30f, -0.75f})
        EXPECT_EQ(find(mesh, strange, 0.25f), -1);
}

} // namespace
