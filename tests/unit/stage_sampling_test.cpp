// Sample positions and filter weights.
#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "render/filter.h"
#include "render/sampling.h"

namespace {

using stage::PixelFilter;

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
