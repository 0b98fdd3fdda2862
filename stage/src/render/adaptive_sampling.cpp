// More samples where a picture needs them.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "render/frame.h"

namespace stage {

namespace {

// The least and the largest of some colours, channel by channel.
struct ColorRange {
    miColor least{INFINITY, INFINITY, INFINITY, INFINITY};
    miColor most{-INFINITY, -INFINITY, -INFINITY, -INFINITY};
    void take(const miColor& c) {
        least = {std::min(least.r, c.r), std::min(least.g, c.g), std::min(least.b, c.b),
                 std::min(least.a, c.a)};
        most = {std::max(most.r, c.r), std::max(most.g, c.g), std::max(most.b, c.b), std::max(most.a, c.a)};
    }
    [[nodiscard]] bool within(const miColor& contrast) const {
        return most.r - least.r <= contrast.r && most.g - least.g <= contrast.g &&
               most.b - least.b <= contrast.b && most.a - least.a <= contrast.a;
    }
};

} // namespace

// The samples of one pixel, at most as many as the film has room for.
struct Renderer::PixelSamples {
    PixelSamples(std::uint32_t most, std::size_t buffer_count)
        : grid(most), buffers(buffer_count), offsets(std::size_t{2} * most * most),
          values(std::size_t{most} * most * buffer_count) {}

    std::uint32_t grid;
    std::size_t buffers;
    std::vector<float> offsets;
    std::vector<miColor> values;

    void add_to(ColorRange& range) const {
        for (std::size_t s = 0; s < std::size_t{grid} * grid; ++s)
            range.take(values[s * buffers]);
    }
    // As `fine` by `fine` samples: each stands for those of its cell, in their middles.
    void spread(std::uint32_t fine, float* to_offsets, miColor* to_values) const {
        const std::uint32_t cells = fine / grid;
        for (std::size_t s = 0; s < std::size_t{fine} * fine; ++s) {
            const std::size_t x = s % fine, y = s / fine;
            const std::size_t from = y / cells * grid + x / cells;
            to_offsets[2 * s] =
                cells == 1 ? offsets[2 * from] : (static_cast<float>(x) + 0.5f) / static_cast<float>(fine);
            to_offsets[2 * s + 1] = cells == 1 ? offsets[2 * from + 1]
                                               : (static_cast<float>(y) + 0.5f) / static_cast<float>(fine);
            std::copy_n(&values[from * buffers], buffers, to_values + s * buffers);
        }
    }
};

// A pixel whose first samples agree with each other and with those of the pixels around it is done; another
// takes four times as many, until these agree or there are enough. Pixels around the bucket are sampled too,
// so that no picture depends on how it is divided. False when the frame was stopped inside.
bool Renderer::sample_as_needed(ThreadContext& context, BucketSamples& samples) {
    const Frame& f = *frame_;
    const PixelRect& rect = samples.rect;
    const PixelRect around =
        PixelRect{rect.x0 - 1, rect.y0 - 1, rect.x1 + 1, rect.y1 + 1}.cut(f.film->sampled_rect());
    PixelSamples first(f.first_grid, buffers_.size()), more(f.grid, buffers_.size());
    std::vector<PixelSamples> firsts(around.count(), first);
    const auto first_of = [&](int x, int y) -> PixelSamples& { return firsts[around.index(x, y)]; };
    for (int y = around.y0; y < around.y1; ++y)
        for (int x = around.x0; x < around.x1; ++x)
            if (!sample_pixel(context, x, y, first_of(x, y)))
                return false;
    std::size_t index = 0;
    const std::size_t count = std::size_t{f.grid} * f.grid;
    for (int y = rect.y0; y < rect.y1; ++y)
        for (int x = rect.x0; x < rect.x1; ++x, index += count) {
            ColorRange range;
            for (int v = std::max(y - 1, around.y0); v < std::min(y + 2, around.y1); ++v)
                for (int u = std::max(x - 1, around.x0); u < std::min(x + 2, around.x1); ++u)
                    first_of(u, v).add_to(range);
            const PixelSamples* taken = &first_of(x, y);
            for (more.grid = f.first_grid; !range.within(f.options.contrast) && more.grid < f.grid;) {
                more.grid *= 2;
                if (!sample_pixel(context, x, y, more))
                    return false;
                taken = &more;
                range = {};
                more.add_to(range);
            }
            taken->spread(f.grid, &samples.offsets[2 * index], &samples.values[index * buffers_.size()]);
        }
    context.records.clear_rect();
    return true;
}

bool Renderer::sample_pixel(ThreadContext& context, int x, int y, PixelSamples& samples) {
    if (aborted())
        return false;
    for (std::uint32_t s = 0; s < samples.grid * samples.grid; ++s)
        render_sample(context, x, y, {s, samples.grid}, &samples.offsets[2 * s],
                      &samples.values[std::size_t{s} * samples.buffers]);
    return true;
}

} // namespace stage
