// Buckets of samples to pixels.
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

// Renders what has no two pixels alike.
std::vector<FrameBuffer> render(const PixelRect& crop) {
    std::vector<stage::FramebufferDesc> descs(1);
    descs[0].primary = true;
    auto result = stage::make_framebuffers(descs, width, height, {});
    stage::Film film(result, crop, PixelFilter('m', 0, 0), grid * grid, stage::central_sample(grid), 8);
    for (std::size_t bucket = film.bucket_count(); bucket-- > 0;) { // any order is right
        stage::BucketSamples& samples = film.begin(bucket);
        std::size_t i = 0;
        for (int y = samples.rect.y0; y < samples.rect.y1; ++y)
            for (int x = samples.rect.x0; x < samples.rect.x1; ++x)
                for (std::uint32_t s = 0; s < grid * grid; ++s, ++i) {
                    const stage::PixelSample p = stage::pixel_sample(
                        static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), s, grid, 1.0f);
                    samples.offsets[2 * i] = p.x;
                    samples.offsets[2 * i + 1] = p.y;
                    samples.values[i] = {p.x + static_cast<float>(x * x), p.y + static_cast<float>(y * y),
                                         0.0f, 0.0f};
                }
        film.finish(bucket);
    }
    film.finish_rest();
    return result;
}

TEST(StageFilm, ARegionIsACutOfThePicture) {
    auto whole = render({0, 0, width, height}), cut = render({4, 3, 15, 9});
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const bool inside = x >= 4 && x < 15 && y >= 3 && y < 9;
            for (const std::size_t k : {0, 1})
                ASSERT_EQ(cut[0].pixel(x, y)[k], inside ? whole[0].pixel(x, y)[k] : 0.0f) << x << ' ' << y;
        }
}

} // namespace
