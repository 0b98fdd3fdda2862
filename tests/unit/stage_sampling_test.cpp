// Sample positions and filter weights.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include "render/filter.h"
#include "render/sampling.h"

namespace {

using stage::PixelFilter;

TEST(StageSampling, OneSampleInEachCell) {
    for (const std::uint32_t grid : {1u, 2u, 3u, 8u}) {
        std::set<std::pair<int, int>> cells;
        for (std::uint32_t i = 0; i < grid * grid; ++i) {
            const stage::PixelSample s = stage::pixel_sample(1234, 987, i, grid, 1.0f);
            ASSERT_TRUE(s.x >= 0.0f && s.x < 1.0f && s.y >= 0.0f && s.y < 1.0f);
            cells.emplace(static_cast<int>(s.x * static_cast<float>(grid)),
                          static_cast<int>(s.y * static_cast<float>(grid)));
        }
        EXPECT_EQ(cells.size(), grid * grid);
    }
}

TEST(StageSampling, WithoutJitterTheCentralSampleIsNearestToTheMiddle) {
    EXPECT_EQ(stage::pixel_sample(3, 4, 0, 1, 0.0f).x, 0.5f);
    for (const std::uint32_t grid : {1u, 2u, 3u, 4u, 7u}) {
        const auto from_middle = [&](std::uint32_t i) {
            const stage::PixelSample s = stage::pixel_sample(3, 4, i, grid, 0.0f);
            return std::hypot(s.x - 0.5f, s.y - 0.5f);
        };
        for (std::uint32_t i = 0; i < grid * grid; ++i)
            EXPECT_LE(from_middle(stage::central_sample(grid)), from_middle(i) + 1e-6f);
    }
}

// Jitter is uniform: each of ten bins of the position in the pixel expects 2000 of 20000 samples, with a
// standard deviation of sqrt(20000 * 0.1 * 0.9) = 42; five of those are 210.
TEST(StageSampling, JitterIsUniform) {
    int x_bins[10] = {}, y_bins[10] = {};
    for (std::uint32_t i = 0; i < 20000; ++i) {
        const stage::PixelSample s = stage::pixel_sample(i % 200, i / 200, 0, 1, 1.0f);
        ++x_bins[static_cast<int>(s.x * 10.0f)];
        ++y_bins[static_cast<int>(s.y * 10.0f)];
    }
    for (int k = 0; k < 10; ++k) {
        EXPECT_NEAR(x_bins[k], 2000, 210);
        EXPECT_NEAR(y_bins[k], 2000, 210);
    }
}

// Multiples of the golden ratio leave no gap wider than (1 + golden ratio) / n between n of them.
TEST(StageSampling, TimesCoverTheShutterInterval) {
    for (const std::uint32_t grid : {2u, 4u, 9u}) {
        std::vector<float> times;
        for (std::uint32_t i = 0; i < grid * grid; ++i)
            times.push_back(stage::pixel_sample(5, 6, i, grid, 1.0f).time);
        std::ranges::sort(times);
        float gap = times.front() + 1.0f - times.back();
        for (std::size_t i = 1; i < times.size(); ++i)
            gap = std::max(gap, times[i] - times[i - 1]);
        EXPECT_LT(gap, 2.62f / static_cast<float>(grid * grid));
        EXPECT_GE(times.front(), 0.0f);
        EXPECT_LT(times.back(), 1.0f);
    }
}

TEST(StageFilter, ReachAndSupport) {
    struct Case {
        int kind;
        float width;
        int reach;
        float radius;
    };
    for (const Case& c :
         {Case{'b', 0, 0, 0.5f}, Case{0, 0, 0, 0.5f}, Case{'b', 3, 1, 1.5f}, Case{'t', 0, 1, 1.0f},
          Case{'g', 0, 1, 1.5f}, Case{'m', 0, 2, 2.0f}, Case{'l', 0, 2, 2.0f}, Case{'t', 0.5f, 0, 0.25f}}) {
        const PixelFilter filter(c.kind, c.width, c.width);
        EXPECT_EQ(filter.reach(), c.reach) << c.kind;
        EXPECT_NE(filter.weight(0.9f * c.radius, 0.0f), 0.0f) << c.kind;
        EXPECT_EQ(filter.weight(c.radius, 0.0f), 0.0f) << c.kind;
        EXPECT_EQ(filter.weight(0.0f, 1.01f * c.radius), 0.0f) << c.kind;
        EXPECT_GT(filter.weight(0.0f, 0.0f), filter.weight(0.5f * c.radius, 0.0f) - 1e-6f) << c.kind;
    }
}

// Box, triangle and Mitchell's filter of their usual widths weigh a sample by 1 in all over the pixels
// around.
TEST(StageFilter, WeightsOfNeighbouringPixelsAddUp) {
    for (const int kind : {'b', 't', 'm'}) {
        const PixelFilter filter(kind, 0.0f, 0.0f);
        const float peak = filter.weight(0.0f, 0.0f);
        float middle = 0.0f;
        for (int k = -3; k <= 3; ++k)
            middle += filter.weight(static_cast<float>(k), 0.0f);
        for (const float x : {0.1f, 0.37f, 0.49f}) {
            float sum = 0.0f;
            for (int k = -3; k <= 3; ++k)
                sum += filter.weight(x + static_cast<float>(k), 0.0f);
            EXPECT_NEAR(sum, middle, 1e-5f * peak) << static_cast<char>(kind);
        }
    }
}

// From the published polynomials at 0, 1 and 1/2: 16/18, 1/18 and (7/8 - 3 + 16/3) / 6 = 77/144.
TEST(StageFilter, MitchellValues) {
    const PixelFilter filter('m', 4.0f, 4.0f);
    const float peak = filter.weight(0.0f, 0.0f);
    EXPECT_NEAR(peak, 64.0f / 81.0f, 1e-6f); // both axes
    EXPECT_NEAR(filter.weight(1.0f, 0.0f) / peak, 1.0f / 16.0f, 1e-6f);
    EXPECT_NEAR(filter.weight(0.5f, 0.0f) / peak, 77.0f / 128.0f, 1e-6f);
}

TEST(StageFilter, LanczosIsNullAtOtherPixels) {
    const PixelFilter filter('l', 4.0f, 4.0f);
    EXPECT_EQ(filter.weight(0.0f, 0.0f), 1.0f);
    EXPECT_NEAR(filter.weight(1.0f, 0.0f), 0.0f, 1e-6f);
    EXPECT_LT(filter.weight(1.5f, 0.0f), 0.0f);
}

} // namespace
