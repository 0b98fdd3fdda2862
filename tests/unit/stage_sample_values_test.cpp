// The points that shaders take samples at.
#include <array>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "stage_scene.h"

namespace {

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

} // namespace
