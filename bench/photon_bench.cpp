// The photon map beside nanoflann alone over the same positions: building, and looking up the 100 nearest
// photons within a radius. The radius holds 200 on average, so that it is the number that ends most searches.
#include "peer_report.h"
#include "render/photon_map.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <map>
#include <memory>
#include <nanoflann.hpp>
#include <random>
#include <vector>

namespace {

constexpr std::size_t nearest = 100;
constexpr int lookups = 1000;

// Photons of a floor of one unit.
struct Cloud {
    explicit Cloud(std::size_t count) {
        std::mt19937 random(1);
        std::uniform_real_distribution<float> side(0.0f, 1.0f);
        for (std::size_t i = 0; i < count; ++i)
            photons.push_back({{side(random), side(random), 0.0f}, {0, 0, 1}, {1, 1, 1}});
        for (int i = 0; i < lookups; ++i)
            points.push_back({side(random), side(random), 0.0f});
        radius = std::sqrt(2.0f * nearest / (3.14159265f * static_cast<float>(count)));
    }
    static const Cloud& of(std::size_t count) {
        static std::map<std::size_t, Cloud> clouds;
        return clouds.try_emplace(count, count).first->second;
    }

    std::vector<stage::Photon> photons;
    std::vector<miVector> points;
    float radius;

    // For nanoflann.
    [[nodiscard]] std::size_t kdtree_get_point_count() const { return photons.size(); }
    [[nodiscard]] float kdtree_get_pt(std::size_t index, std::size_t axis) const {
        return (&photons[index].position.x)[axis];
    }
    template <class Box> bool kdtree_get_bbox(Box&) const { return false; }
};

using Bare =
    nanoflann::KDTreeSingleIndexAdaptor<nanoflann::L2_Simple_Adaptor<float, Cloud>, Cloud, 3, std::uint32_t>;

// The n nearest of nanoflann's own results, within a radius.
class WithinRadius : public nanoflann::KNNResultSet<float, std::uint32_t> {
public:
    using KNNResultSet::KNNResultSet;
    void begin(std::uint32_t* found, float* squared, float squared_radius) {
        init(found, squared);
        squared[nearest - 1] = squared_radius;
    }
};

void build_ours(benchmark::State& run, std::size_t count) {
    const Cloud& cloud = Cloud::of(count);
    for (auto _ : run) {
        const stage::PhotonMap map(cloud.photons);
        std::size_t size = map.size();
        benchmark::DoNotOptimize(size);
    }
}

void build_bare(benchmark::State& run, std::size_t count) {
    const Cloud& cloud = Cloud::of(count);
    for (auto _ : run) {
        Bare index(3, cloud);
        index.buildIndex();
        benchmark::DoNotOptimize(&index);
    }
}

void look_up_ours(benchmark::State& run, std::size_t count) {
    const Cloud& cloud = Cloud::of(count);
    static std::map<std::size_t, std::unique_ptr<stage::PhotonMap>> maps;
    std::unique_ptr<stage::PhotonMap>& map = maps[count];
    if (!map)
        map = std::make_unique<stage::PhotonMap>(cloud.photons);
    const miVector normal{0, 0, 1};
    std::vector<stage::Neighbour> found(nearest);
    std::size_t sum = 0;
    for (auto _ : run)
        for (const miVector& point : cloud.points)
            sum += map->nearest(point, &normal, cloud.radius, found.data(), nearest);
    benchmark::DoNotOptimize(sum);
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations()) * lookups);
}

void look_up_bare(benchmark::State& run, std::size_t count) {
    const Cloud& cloud = Cloud::of(count);
    static std::map<std::size_t, std::unique_ptr<Bare>> indices;
    std::unique_ptr<Bare>& index = indices[count];
    if (!index) {
        index = std::make_unique<Bare>(3, cloud);
        index->buildIndex();
    }
    std::vector<std::uint32_t> found(nearest);
    std::vector<float> squared(nearest);
    std::size_t sum = 0;
    for (auto _ : run)
        for (const miVector& point : cloud.points) {
            WithinRadius result(nearest);
            result.begin(found.data(), squared.data(), cloud.radius * cloud.radius);
            index->findNeighbors(result, &point.x, nanoflann::SearchParams());
            sum += result.size();
        }
    benchmark::DoNotOptimize(sum);
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations()) * lookups);
}

BENCHMARK_CAPTURE(build_ours, few, 100000)->Name("photon map, build 1e5/ours")->UseRealTime();
BENCHMARK_CAPTURE(build_bare, few, 100000)->Name("photon map, build 1e5/nanoflann")->UseRealTime();
BENCHMARK_CAPTURE(look_up_ours, few, 100000)->Name("100 nearest of 1e5/ours")->UseRealTime();
BENCHMARK_CAPTURE(look_up_bare, few, 100000)->Name("100 nearest of 1e5/nanoflann")->UseRealTime();
BENCHMARK_CAPTURE(build_ours, many, 1000000)->Name("photon map, build 1e6/ours")->UseRealTime();
BENCHMARK_CAPTURE(build_bare, many, 1000000)->Name("photon map, build 1e6/nanoflann")->UseRealTime();
BENCHMARK_CAPTURE(look_up_ours, many, 1000000)->Name("100 nearest of 1e6/ours")->UseRealTime();
BENCHMARK_CAPTURE(look_up_bare, many, 1000000)->Name("100 nearest of 1e6/nanoflann")->UseRealTime();

} // namespace
