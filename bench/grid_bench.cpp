// The projection grid, one thread: building it, and looking texels up at random and row by row, on meshes of
// 1e3, 1e5 and 1e6 triangles. Beside an R-tree of the triangles' boxes, loaded in bulk, whose candidates are
// put to the same test; and beside a flat Embree scene on the same vertices, hit from above.
#include "peer_report.h"
#include "rttgridaccelerator.h"
#include "scripted_renderer.h"

#include <benchmark/benchmark.h>
#include <boost/geometry.hpp>
#include <boost/geometry/index/rtree.hpp>
#include <embree3/rtcore.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

// Equally distributed in [0, 1): Steele, Lea and Flood, Fast splittable pseudorandom number generators, 2014.
float random_number(std::uint64_t place) {
    std::uint64_t z = (place + 1) * 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return static_cast<float>((z ^ (z >> 31)) >> 40) * 0x1p-24f;
}

// ---- what is built and looked up

constexpr std::size_t stride = 9, texture_offset = 6; // position, normal, one texture space

// Covers the texture square: squares of two triangles, their inner corners moved about. With `heights`, the
// third coordinate of each vertex is another one.
struct Mesh {
    std::vector<float> vertices;
    std::vector<miUint> indices;
    miTriangles triangles{};
    miTag tag = miNULLTAG;

    Mesh(miUint side, bool heights) {
        for (miUint j = 0; j <= side; ++j)
            for (miUint i = 0; i <= side; ++i)
                add_vertex(side, i, j, heights);
        for (miUint j = 0; j < side; ++j)
            for (miUint i = 0; i < side; ++i) {
                const miUint a = j * (side + 1) + i, b = a + 1, c = b + side + 1, d = a + side + 1;
                indices.insert(indices.end(), {a, b, c, a, c, d});
            }
        triangles.triangle_count = static_cast<miUint>(indices.size() / 3);
        triangles.vertex_count = static_cast<miUint>(vertices.size() / stride);
        triangles.vertex_stride = stride;
        triangles.texture_count = 1;
        triangles.texture_offset = texture_offset;
        triangles.vertices = vertices.data();
        triangles.indices = indices.data();
        miObject object{};
        object.triangles = &triangles;
        tag = scripted::Renderer::get().add_copy(miSCENE_OBJECT, object);
    }
    Mesh(const Mesh&) = delete;
    Mesh& operator=(const Mesh&) = delete;

    orl::TextureCorners corners(miUint triangle) const {
        const auto point = [&](std::size_t k) {
            const float* const at = vertices.data() + indices[3 * triangle + k] * stride + texture_offset;
            return miVector2d{at[0], at[1]};
        };
        return {point(0), point(1), point(2)};
    }

private:
    void add_vertex(miUint side, miUint i, miUint j, bool heights) {
        const auto place = 3 * (std::uint64_t{j} * (side + 1) + i);
        const auto coordinate = [=](miUint k, std::uint64_t which) {
            const float moved = k > 0 && k < side ? 0.6f * random_number(place + which) - 0.3f : 0.0f;
            return (static_cast<float>(k) + moved) / static_cast<float>(side);
        };
        const float u = coordinate(i, 0), v = coordinate(j, 1);
        vertices.insert(vertices.end(), {u, v, 0, 0, 0, 1, u, v, heights ? random_number(place + 2) : 0.0f});
    }
};

constexpr struct {
    const char* name;
    miUint side;
} sizes[] = {{"1e3", 22}, {"1e5", 224}, {"1e6", 707}};

const Mesh& mesh(std::size_t size, bool heights = false) {
    static std::array<std::unique_ptr<Mesh>, 2 * std::size(sizes)> made;
    std::unique_ptr<Mesh>& one = made[2 * size + heights];
    if (!one)
        one = std::make_unique<Mesh>(sizes[size].side, heights);
    return *one;
}

enum class Order { random, rows };

constexpr miUint texels_per_side = 1000, texel_count = texels_per_side * texels_per_side;

const std::vector<miVector2d>& texels(Order order) {
    static const auto make = [](Order wanted) {
        std::vector<miVector2d> points;
        for (miUint k = 0; k < texel_count; ++k) {
            const miUint column = k % texels_per_side, row = k / texels_per_side;
            const float u = static_cast<float>(column) + 0.5f, v = static_cast<float>(row) + 0.5f;
            points.push_back(wanted == Order::rows
                                 ? miVector2d{u / texels_per_side, v / texels_per_side}
                                 : miVector2d{random_number(2 * k), random_number(2 * k + 1)});
        }
        return points;
    };
    static const std::vector<miVector2d> random = make(Order::random), rows = make(Order::rows);
    return order == Order::random ? random : rows;
}

// ---- the three, each with find(texel) -> whether something was hit

class Grid {
public:
    explicit Grid(const Mesh& mesh) : mesh_(mesh) {
        grid_.object = mesh.tag;
        orl::build_grid(grid_, nullptr);
    }
    ~Grid() { orl::release_grid(grid_); }
    Grid(const Grid&) = delete;
    Grid& operator=(const Grid&) = delete;

    bool find(const miVector2d& texel) const {
        orl::TexelTriangle found;
        const bool hit = orl::find_texel_triangle(grid_, mesh_.triangles, texel, found);
        benchmark::DoNotOptimize(found);
        return hit;
    }

private:
    const Mesh& mesh_;
    orl::RttGridAccelerator grid_{};
};

class Rtree {
public:
    explicit Rtree(const Mesh& mesh) : mesh_(mesh), tree_(boxes(mesh)) {}

    bool find(const miVector2d& texel) const {
        for (auto it = tree_.qbegin(boost::geometry::index::intersects(Point(texel.u, texel.v)));
             it != tree_.qend(); ++it) {
            const orl::TextureCorners corners = mesh_.corners(it->second);
            if (!orl::point_in_triangle(texel, corners))
                continue;
            orl::CornerWeights weights = orl::texture_weights(texel, corners);
            benchmark::DoNotOptimize(weights);
            return true;
        }
        return false;
    }

private:
    using Point = boost::geometry::model::point<float, 2, boost::geometry::cs::cartesian>;
    using Box = boost::geometry::model::box<Point>;
    using Value = std::pair<Box, miUint>;

    static std::vector<Value> boxes(const Mesh& mesh) {
        std::vector<Value> values(mesh.triangles.triangle_count);
        for (miUint t = 0; t < values.size(); ++t) {
            const auto [a, b, c] = mesh.corners(t);
            values[t] = {Box(Point(std::min({a.u, b.u, c.u}), std::min({a.v, b.v, c.v})),
                             Point(std::max({a.u, b.u, c.u}), std::max({a.v, b.v, c.v}))),
                         t};
        }
        return values;
    }

    const Mesh& mesh_;
    boost::geometry::index::rtree<Value, boost::geometry::index::quadratic<16>> tree_;
};

class Embree {
public:
    explicit Embree(const Mesh& mesh) {
        static const RTCDevice device = rtcNewDevice("threads=1");
        const miTriangles& t = mesh.triangles;
        scene_ = rtcNewScene(device);
        RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
        rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, t.vertices,
                                   texture_offset * sizeof(float), stride * sizeof(float), t.vertex_count);
        rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, t.indices, 0,
                                   3 * sizeof(miUint), t.triangle_count);
        rtcCommitGeometry(geometry);
        rtcAttachGeometry(scene_, geometry);
        rtcReleaseGeometry(geometry);
        rtcCommitScene(scene_);
    }
    ~Embree() { rtcReleaseScene(scene_); }
    Embree(const Embree&) = delete;
    Embree& operator=(const Embree&) = delete;

    bool find(const miVector2d& texel) const {
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        RTCRayHit hit{};
        hit.ray.org_x = texel.u;
        hit.ray.org_y = texel.v;
        hit.ray.org_z = 1.0f;
        hit.ray.dir_z = -1.0f;
        hit.ray.tfar = 2.0f;
        hit.ray.mask = ~0u;
        hit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
        hit.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
        rtcIntersect1(scene_, &context, &hit);
        benchmark::DoNotOptimize(hit);
        return hit.hit.geomID != RTC_INVALID_GEOMETRY_ID;
    }

private:
    RTCScene scene_;
};

// ---- what is timed

template <class Index> void build(benchmark::State& run, std::size_t size, bool heights) {
    const Mesh& subject = mesh(size, heights);
    for (auto _ : run) {
        const Index index(subject);
        benchmark::DoNotOptimize(&index);
    }
}

template <class Index> void look_up(benchmark::State& run, std::size_t size, Order order) {
    const Index index(mesh(size));
    miUint hits = 0;
    for (auto _ : run) {
        hits = 0;
        for (const miVector2d& texel : texels(order))
            hits += index.find(texel);
    }
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations()) * texel_count);
    // The mesh leaves no gaps; a few texels on the square's border and on edges may fall to roundings.
    if (hits + 100 < texel_count)
        run.SkipWithError("texels were not found");
}

template <class Index> void add(std::size_t size, const char* name) {
    const std::string suffix = std::string(" ") + sizes[size].name + "/" + name;
    const auto on_clock = [&](const std::string& subject, auto function) {
        benchmark::RegisterBenchmark((subject + suffix).c_str(), function)->UseRealTime();
    };
    on_clock("build", [=](benchmark::State& run) { build<Index>(run, size, false); });
    on_clock("random texel", [=](benchmark::State& run) { look_up<Index>(run, size, Order::random); });
    on_clock("texel in rows", [=](benchmark::State& run) { look_up<Index>(run, size, Order::rows); });
}

} // namespace

int main(int argc, char** argv) {
    miSetModuleHandle(scripted::Renderer::get().handle());
    for (std::size_t size = 0; size < std::size(sizes); ++size) {
        add<Grid>(size, "ours");
        add<Rtree>(size, "R-tree");
        add<Embree>(size, "Embree");
        benchmark::RegisterBenchmark((std::string("build ") + sizes[size].name + "/ours, sorted").c_str(),
                                     [=](benchmark::State& run) { build<Grid>(run, size, true); })
            ->UseRealTime();
    }
    return bench::run_beside_peers(argc, argv);
}
