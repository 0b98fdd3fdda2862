// Sample positions of pixels, the points that shaders take samples at, and filter weights.
#include <array>
#include <set>

#include "render/filter.h"
#include "render/sampling.h"
#include "stage_scene.h"

namespace {

using stage::PixelFilter;
using Points = std::vector<std::array<double, 2>>;

class StageSampleValues : public testing::Test {
protected:
    StageSampleValues() { state.renderer = &context; }
    Points loop(const std::function<void()>& body = [] {}) {
        Points points;
        const miUint n = 16;
        int instance = 0;
        for (double sample[2]; mi_sample(sample, &instance, &state, 2, &n); body())
            points.push_back({sample[0], sample[1]});
        return points;
    }
    stage::ThreadContext context;
    miState state{};
};

// 16 points of two dimensions: one in each of the 16 cells of every division into 16 / k by k strips.
void expect_net(const Points& points) {
    ASSERT_EQ(points.size(), 16u);
    for (const int across : {1, 2, 4, 8, 16}) {
        std::set<std::pair<int, int>> cells;
        for (const auto& p : points) {
            ASSERT_TRUE(p[0] >= 0.0 && p[0] < 1.0 && p[1] >= 0.0 && p[1] < 1.0);
            cells.emplace(static_cast<int>(p[0] * across), static_cast<int>(p[1] * (16 / across)));
        }
        EXPECT_EQ(cells.size(), 16u) << across << " across";
    }
}

TEST_F(StageSampleValues, LoopsAndSinglePointsAreWellSpread) {
    for (std::uint32_t pixel = 0; pixel < 20; ++pixel) {
        context.pixel_x = pixel;
        context.sample = pixel % 3;
        context.sample_dimension = 0;
        Points inner;
        const Points outer = loop([&] { inner = loop(); }); // nested loops keep their sets
        expect_net(outer);
        expect_net(inner);
        EXPECT_NE(outer, inner);
        context.sample_dimension = 0; // the same sample draws the same points again
        EXPECT_EQ(loop(), outer);
    }
    Points points;
    for (context.sample = 0; context.sample < 16; ++context.sample) {
        context.sample_dimension = 5; // the same place in the shader
        double sample[5];
        EXPECT_TRUE(mi_sample(sample, nullptr, &state, 5, nullptr));
        points.push_back({sample[2], sample[3]}); // every pair of dimensions is a net of its own
    }
    expect_net(points);
}

TEST(StageSampling, CellsAndTimesAreCovered) {
    for (const std::uint32_t grid : {1u, 2u, 3u, 8u}) {
        std::set<std::pair<int, int>> cells;
        std::vector<float> times;
        const auto side = static_cast<float>(grid);
        for (std::uint32_t i = 0; i < grid * grid; ++i) {
            const stage::PixelSample s = stage::pixel_sample(1234, 987, i, grid, 1.0f);
            const float time = stage::sample_time(1234, 987, i, grid);
            ASSERT_TRUE(s.x >= 0 && s.x < 1 && s.y >= 0 && s.y < 1 && time >= 0 && time < 1);
            cells.emplace(static_cast<int>(s.x * side), static_cast<int>(s.y * side));
            times.push_back(time);
        }
        EXPECT_EQ(cells.size(), grid * grid);
        std::ranges::sort(times);
        times.push_back(times.front() + 1);
        for (std::size_t i = 1; i < times.size(); ++i)
            EXPECT_NEAR(times[i] - times[i - 1], 1 / (side * side), 1e-6f);
    }
}

TEST(StageFilter, PublishedValues) {
    // From Mitchell's polynomials at 0, 1 and 1/2: 16/18, 1/18 and (7/8 - 3 + 16/3) / 6 = 77/144.
    const PixelFilter mitchell('m', 4.0f, 4.0f), lanczos('l', 4.0f, 4.0f);
    EXPECT_NEAR(mitchell.weight(0, 0), 64.0 / 81, 1e-6); // both axes
    EXPECT_NEAR(mitchell.weight(1, 0), 64.0 / 81 / 16, 1e-6);
    EXPECT_NEAR(mitchell.weight(0.5f, 0), 64.0 / 81 * 77 / 128, 1e-6);
    EXPECT_EQ(lanczos.weight(0, 0), 1.0f);
    EXPECT_NEAR(lanczos.weight(1, 0), 0.0f, 1e-6f); // null at other pixels
    EXPECT_LT(lanczos.weight(1.5f, 0), 0.0f);
}

} // namespace
