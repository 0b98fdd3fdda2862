// The noise of one point beside that of two noise libraries, at random points and along a march; and the
// noise of many points at once beside one by one. Times are those of a point.
#include "noise.h"
#include "state_builder.h"

#include <benchmark/benchmark.h>
#include <libnoise/noisegen.h>
#define STB_PERLIN_IMPLEMENTATION
#include <stb/stb_perlin.h>

#include <array>
#include <cstdint>
#include <random>
#include <vector>

namespace {

constexpr std::size_t count = 4096; // few enough to stay in the cache

struct Points {
    std::array<std::vector<float>, 4> axis;
    mutable std::vector<float> noise = std::vector<float>(count);

    const float* operator[](int i) const { return axis[static_cast<std::size_t>(i)].data(); }
    template <class Coordinate> explicit Points(Coordinate coordinate) {
        for (std::size_t i = 0; i < count; ++i)
            for (std::size_t a = 0; a < 4; ++a)
                axis[a].push_back(coordinate(i, a));
    }
};

void build_tables() {
    miSetModuleHandle(scripted::Renderer::get().handle());
    orl::noiseTablesInit(scripted::State());
}

const Points& random_points() {
    static const Points points([random = std::mt19937(1)](std::size_t, std::size_t) mutable {
        return static_cast<float>(random() >> 8) * 0x1p-16f - 128.0f;
    });
    return points;
}

// A tenth of a cell for each step, at an angle to all axes, as fog is marched through; time stands still.
const Points& march() {
    static const Points points([](std::size_t i, std::size_t axis) {
        constexpr float direction[] = {0.0620f, 0.0707f, 0.0340f, 0.0f}, start[] = {0.3f, -40.2f, 7.1f, 2.4f};
        return start[axis] + static_cast<float>(i) * direction[axis];
    });
    return points;
}

// Calls evaluate(i) for each point.
template <class Evaluate> void one_by_one(benchmark::State& run, const Points& points, Evaluate evaluate) {
    build_tables();
    for (auto _ : run) {
        for (std::size_t i = 0; i < count; ++i)
            points.noise[i] = static_cast<float>(evaluate(i));
        benchmark::ClobberMemory();
    }
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations() * count));
}

template <class Evaluate> void all_at_once(benchmark::State& run, Evaluate evaluate) {
    build_tables();
    for (auto _ : run) {
        evaluate();
        benchmark::ClobberMemory();
    }
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations() * count));
}

template <class Function> void add(const std::string& subject, const char* name, Function function) {
    benchmark::RegisterBenchmark((subject + "/" + name).c_str(), function)->UseRealTime();
}

void add_all(const std::string& where, const Points& points) {
    const float *const x = points[0], *const y = points[1], *const z = points[2], *const w = points[3];
    float* const noise = points.noise.data();
    const auto ours3 = [=, &points](benchmark::State& run) {
        one_by_one(run, points, [=](std::size_t i) { return orl::perlinNoise3(x[i], y[i], z[i]); });
    };
    const auto ours4 = [=, &points](benchmark::State& run) {
        one_by_one(run, points, [=](std::size_t i) { return orl::perlinNoise4(x[i], y[i], z[i], w[i]); });
    };
    const std::string one = "one point, " + where;
    add(one, "ours", ours3);
    add(one, "libnoise GradientCoherentNoise3D", [=, &points](benchmark::State& run) {
        one_by_one(run, points,
                   [=](std::size_t i) { return noise::GradientCoherentNoise3D(x[i], y[i], z[i]); });
    });
    add(one, "stb_perlin_noise3", [=, &points](benchmark::State& run) {
        one_by_one(run, points, [=](std::size_t i) { return stb_perlin_noise3(x[i], y[i], z[i], 0, 0, 0); });
    });
    const std::string many = "many points, " + where;
    add(many, "ours",
        [=](benchmark::State& run) { all_at_once(run, [=] { orl::perlinNoise3(x, y, z, count, noise); }); });
    add(many, "one by one", ours3);
    const std::string phase = "many points and a phase, " + where;
    add(phase, "ours", [=](benchmark::State& run) {
        all_at_once(run, [=] { orl::perlinNoise4(x, y, z, w, count, noise); });
    });
    add(phase, "one by one", ours4);
}

const int registered = [] {
    add_all("random", random_points());
    add_all("march", march());
    return 0;
}();

} // namespace
