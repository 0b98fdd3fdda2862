// Buckets of samples to pixels.
#include <algorithm>
#include <functional>
#include <vector>

#include <gtest/gtest.h>

#include "render/film.h"
#include "render/sampling.h"

namespace {

using stage::FrameBuffer;
using stage::PixelFilter;
using stage::PixelRect;

constexpr int width = 23, height = 17;
constexpr std::uint32_t grid = 2;
constexpr PixelRect everything{0, 0, width, height};

using Value = std::function<miColor(float x, float y)>; // at a raster position

// Renders `value` into a main image, tags and an image without filtering.
std::vector<FrameBuffer> render(const Value& value, const PixelRect& crop, int filter, float jitter) {
    stage::FramebufferDesc descs[3];
    descs[0].datatype = "tag";
    descs[1].primary = true;
    descs[2].datatype = "rgb_fp";
    descs[2].filtering = false;
    descs[2].user = true;
    auto result = stage::make_framebuffers(descs, width, height, {});
    stage::Film film(result, crop, PixelFilter(filter, 0, 0), grid * grid, stage::central_sample(grid), 8);
    for (std::size_t bucket = film.bucket_count(); bucket-- > 0;) { // any order is right
        stage::BucketSamples& samples = film.begin(bucket);
        std::size_t i = 0;
        for (int y = samples.rect.y0; y < samples.rect.y1; ++y)
            for (int x = samples.rect.x0; x < samples.rect.x1; ++x)
                for (std::uint32_t s = 0; s < grid * grid; ++s, ++i) {
                    const stage::PixelSample p = stage::pixel_sample(
                        static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), s, grid, jitter);
                    samples.offsets[2 * i] = p.x;
                    samples.offsets[2 * i + 1] = p.y;
                    const miColor color = value(p.x + static_cast<float>(x), p.y + static_cast<float>(y));
                    std::fill_n(&samples.values[i * result.size()], result.size(), color);
                }
        film.finish(bucket);
    }
    film.finish_rest();
    return result;
}

miColor noise(float x, float y) {
    const auto bits = stage::mix_bits(static_cast<std::uint64_t>(x * 4096.0f) * 977u +
                                      static_cast<std::uint64_t>(y * 4096.0f));
    return {stage::unit_float(bits), stage::unit_float(stage::mix_bits(bits)), x, y};
}

// With samples at the cells' centres a symmetric filter gives a plane back at the pixels' centres.
TEST(StageFilm, FiltersKeepAPlane) {
    for (const int kind : {'b', 't', 'g', 'm', 'l'}) {
        auto result = render([](float x, float y) { return miColor{1, x, y, 0}; }, everything, kind, 0.0f);
        for (int y = 2; y < height - 2; ++y)
            for (int x = 2; x < width - 2; ++x) {
                const std::span<const float> pixel = result[0].pixel(x, y); // the main image comes first
                ASSERT_NEAR(pixel[0], 1.0f, 1e-5f) << static_cast<char>(kind);
                ASSERT_NEAR(pixel[1], static_cast<float>(x) + 0.5f, 1e-4f) << static_cast<char>(kind);
                ASSERT_NEAR(pixel[2], static_cast<float>(y) + 0.5f, 1e-4f) << static_cast<char>(kind);
            }
        ASSERT_NEAR(result[0].pixel(0, 0)[0], 1.0f, 1e-5f); // the border too: weights are those that exist
    }
}

TEST(StageFilm, ARegionIsACutOfThePicture) {
    auto whole = render(noise, everything, 'm', 1.0f), cut = render(noise, {4, 3, 15, 9}, 'm', 1.0f);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const bool inside = x >= 4 && x < 15 && y >= 3 && y < 9;
            ASSERT_EQ(cut[0].pixel(x, y)[1], inside ? whole[0].pixel(x, y)[1] : 0.0f) << x << ' ' << y;
        }
}

TEST(StageFilm, WhatCannotBeAveragedIsTheCentralSample) {
    auto result = render(noise, everything, 'g', 1.0f);
    const stage::PixelSample p = stage::pixel_sample(9, 7, stage::central_sample(grid), grid, 1.0f);
    const miColor expected = noise(p.x + 9.0f, p.y + 7.0f);
    EXPECT_EQ(result[1].pixel(9, 7)[0], expected.r);
    EXPECT_EQ(result[2].pixel(9, 7)[1], expected.g);
    EXPECT_NE(result[0].pixel(9, 7)[1], expected.g);
}

} // namespace
