// Values that shaders put into frame buffers, and the points that they take samples at.
#include <array>
#include <bit>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "stage_scene.h"

namespace {

using stage::BufferKind;
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

TEST_F(StageSampleValues, BuffersTakeValuesOfTheirOwnType) {
    context.buffers.values.resize(4);
    context.buffers.written.resize(4);
    context.buffers.kinds = {BufferKind::color, BufferKind::vector, BufferKind::scalar, BufferKind::integer};
    miColor color{1.0f, 2.0f, 3.0f, 4.0f};
    miVector vector{5.0f, 6.0f, 7.0f};
    miScalar scalar = 8.0f;
    miUint tag = 0x7fc00001u, back = 0; // as a float not a number, and must come through all the same
    void* values[] = {&color, &vector, &scalar, &tag};
    for (int k = 0; k < 4; ++k)
        EXPECT_TRUE(mi_fb_put(&state, k, values[k]));
    EXPECT_EQ(context.buffers.values[0].a, 4.0f);
    EXPECT_EQ(context.buffers.values[1].b, 7.0f);
    EXPECT_EQ(context.buffers.values[2].r, 8.0f);
    EXPECT_TRUE(mi_fb_get(&state, 3, &back));
    EXPECT_EQ(back, tag);
    for (const int unknown : {-1, 4, 1000000, -2147483647}) {
        EXPECT_TRUE(mi_fb_put(&state, unknown, &color));
        EXPECT_FALSE(mi_fb_get(&state, unknown, &color));
    }
}

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
