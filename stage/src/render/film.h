// Collects the samples of the buckets of a frame and filters them into its frame buffers. A pixel gathers its
// samples in a fixed order, whatever order the buckets are finished in.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "image/framebuffer.h"
#include "render/filter.h"

namespace stage {

// Pixels, half open.
struct PixelRect {
    int x0 = 0, y0 = 0, x1 = 0, y1 = 0;
    [[nodiscard]] int width() const { return x1 - x0; }
    [[nodiscard]] int height() const { return y1 - y0; }
    [[nodiscard]] std::size_t count() const {
        return static_cast<std::size_t>(width()) * static_cast<std::size_t>(height());
    }
    // Of a pixel, row by row from the lower left.
    [[nodiscard]] std::size_t index(int x, int y) const {
        return static_cast<std::size_t>(y - y0) * static_cast<std::size_t>(width()) +
               static_cast<std::size_t>(x - x0);
    }
    [[nodiscard]] bool empty() const { return x0 >= x1 || y0 >= y1; }
    [[nodiscard]] bool contains(int x, int y) const { return x >= x0 && x < x1 && y >= y0 && y < y1; }
    [[nodiscard]] PixelRect cut(const PixelRect& other) const;
};

// The samples of one bucket. Sample s of pixel p (row by row from the lower left) has index p * samples + s.
struct BucketSamples {
    PixelRect rect;
    std::vector<float> offsets;  // x, y of each sample in its pixel, [0, 1)
    std::vector<miColor> values; // for each sample, one value for each frame buffer
};

class Film {
public:
    // Fills the pixels of `crop`; samples are also wanted from around it, as far as the filter reaches and
    // the picture goes. `samples` for each pixel, of which `central` counts for what cannot be averaged.
    Film(std::span<FrameBuffer> buffers, const PixelRect& crop, const PixelFilter& filter,
         std::uint32_t samples, std::uint32_t central, int bucket_size);

    [[nodiscard]] std::size_t bucket_count() const { return buckets_.size(); }
    [[nodiscard]] PixelRect
    bucket_rect(std::size_t bucket) const; // buckets run from the upper left, row by row

    [[nodiscard]] const PixelRect& sampled_rect() const { return sampled_; } // what all buckets cover

    // Memory for the samples of a bucket, to be filled before `finish`. Any thread; each bucket once.
    BucketSamples& begin(std::size_t bucket);
    // Filters every bucket whose surroundings are complete now.
    void finish(std::size_t bucket);
    // In place of `finish`, for samples that go to another process's film.
    std::unique_ptr<BucketSamples> take(std::size_t bucket) { return std::move(buckets_[bucket].samples); }
    // After the last `finish`: filters finished buckets whose surroundings never became complete.
    void finish_rest();

private:
    struct Bucket {
        std::unique_ptr<BucketSamples> samples;
        std::atomic<int> missing{0}; // buckets around it, and itself, that are not finished
        std::atomic<int> users{0};   // buckets around it, and itself, that are not filtered
        bool finished = false, filtered = false;
    };

    // Of one pixel. Nothing before the first sample, which then need not read what was just cleared: the
    // processor waits for that.
    struct Sums {
        std::optional<float> weights;
        std::vector<miColor> values; // by buffer
    };

    template <class Visit> void around(std::size_t bucket, const Visit& visit) const;
    [[nodiscard]] std::size_t bucket_at(int x, int y) const;
    void filter_bucket(std::size_t bucket);
    void filter_pixel(int x, int y, const BucketSamples& own, Sums& sums);
    void gather(int x, int y, int from_x, int from_y, const BucketSamples& samples, Sums& sums) const;

    std::span<FrameBuffer> buffers_;
    std::vector<std::uint8_t> filtered_; // by buffer: its samples are averaged
    PixelRect crop_, sampled_;
    PixelFilter filter_;
    std::uint32_t samples_, central_;
    int bucket_size_, columns_, rows_;
    std::vector<Bucket> buckets_;
};

} // namespace stage
