#include "render/film.h"

#include <algorithm>

namespace stage {

namespace {

int divide_up(int a, int b) {
    return (a + b - 1) / b;
}

float channel(const miColor& value, std::size_t index) {
    return index == 0 ? value.r : index == 1 ? value.g : index == 2 ? value.b : value.a;
}

} // namespace

PixelRect PixelRect::cut(const PixelRect& other) const {
    return {std::max(x0, other.x0), std::max(y0, other.y0), std::min(x1, other.x1), std::min(y1, other.y1)};
}

Film::Film(std::span<FrameBuffer> buffers, const PixelRect& crop, const PixelFilter& filter,
           std::uint32_t samples, std::uint32_t central, int bucket_size)
    : buffers_(buffers), filter_(filter), samples_(samples), central_(central),
      bucket_size_(std::max({bucket_size, filter.reach(), 1})) {
    for (const FrameBuffer& buffer : buffers)
        filtered_.push_back(buffer.filtered());
    const PixelRect picture{0, 0, buffers.front().width, buffers.front().height};
    const int reach = filter.reach();
    crop_ = crop.cut(picture);
    if (crop_.empty())
        crop_ = {};
    sampled_ =
        crop_.empty()
            ? crop_
            : PixelRect{crop_.x0 - reach, crop_.y0 - reach, crop_.x1 + reach, crop_.y1 + reach}.cut(picture);
    columns_ = divide_up(sampled_.width(), bucket_size_);
    rows_ = divide_up(sampled_.height(), bucket_size_);
    buckets_ = std::vector<Bucket>(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows_));
    for (std::size_t i = 0; i < buckets_.size(); ++i) {
        int count = 0;
        around(i, [&](std::size_t) { ++count; });
        buckets_[i].missing.store(count, std::memory_order_relaxed);
        buckets_[i].users.store(count, std::memory_order_relaxed);
    }
}

// The bucket itself and those that the filter reaches from it.
template <class Visit> void Film::around(std::size_t bucket, const Visit& visit) const {
    const int range = filter_.reach() > 0 ? 1 : 0;
    const int column = static_cast<int>(bucket) % columns_, row = static_cast<int>(bucket) / columns_;
    for (int r = std::max(row - range, 0); r <= std::min(row + range, rows_ - 1); ++r)
        for (int c = std::max(column - range, 0); c <= std::min(column + range, columns_ - 1); ++c)
            visit(static_cast<std::size_t>(r * columns_ + c));
}

PixelRect Film::bucket_rect(std::size_t bucket) const {
    const int column = static_cast<int>(bucket) % columns_, row = static_cast<int>(bucket) / columns_;
    const int x = sampled_.x0 + column * bucket_size_, y = sampled_.y1 - row * bucket_size_;
    return PixelRect{x, y - bucket_size_, x + bucket_size_, y}.cut(sampled_);
}

std::size_t Film::bucket_at(int x, int y) const {
    return static_cast<std::size_t>((sampled_.y1 - 1 - y) / bucket_size_ * columns_ +
                                    (x - sampled_.x0) / bucket_size_);
}

BucketSamples& Film::begin(std::size_t bucket) {
    auto samples = std::make_unique<BucketSamples>();
    samples->rect = bucket_rect(bucket);
    const std::size_t count = samples->rect.count() * samples_;
    samples->offsets.resize(2 * count);
    samples->values.resize(count * buffers_.size());
    buckets_[bucket].samples = std::move(samples);
    return *buckets_[bucket].samples;
}

void Film::finish(std::size_t bucket) {
    buckets_[bucket].finished = true;
    around(bucket, [&](std::size_t near) {
        if (buckets_[near].missing.fetch_sub(1, std::memory_order_acq_rel) != 1)
            return;
        filter_bucket(near);
        around(near, [&](std::size_t used) {
            if (buckets_[used].users.fetch_sub(1, std::memory_order_acq_rel) == 1)
                buckets_[used].samples.reset();
        });
    });
}

void Film::finish_rest() {
    for (std::size_t i = 0; i < buckets_.size(); ++i)
        if (buckets_[i].finished && !buckets_[i].filtered)
            filter_bucket(i);
}

void Film::filter_bucket(std::size_t bucket) {
    Sums sums{{}, std::vector<miColor>(buffers_.size())};
    const BucketSamples& own = *buckets_[bucket].samples;
    const PixelRect rect = own.rect.cut(crop_);
    for (int y = rect.y0; y < rect.y1; ++y)
        for (int x = rect.x0; x < rect.x1; ++x)
            filter_pixel(x, y, own, sums);
    buckets_[bucket].filtered = true;
}

void Film::filter_pixel(int x, int y, const BucketSamples& own, Sums& sums) {
    sums.weights.reset();
    const int reach = filter_.reach();
    for (int v = std::max(y - reach, sampled_.y0); v <= std::min(y + reach, sampled_.y1 - 1); ++v)
        for (int u = std::max(x - reach, sampled_.x0); u <= std::min(x + reach, sampled_.x1 - 1); ++u) {
            if (own.rect.contains(u, v)) {
                gather(x, y, u, v, own, sums);
                continue;
            }
            const Bucket& from = buckets_[bucket_at(u, v)];
            if (from.finished)
                gather(x, y, u, v, *from.samples, sums);
        }
    const float weights = sums.weights.value_or(0.0f);
    const std::size_t central = (own.rect.index(x, y) * samples_ + central_) * buffers_.size();
    for (std::size_t b = 0; b < buffers_.size(); ++b) {
        FrameBuffer& buffer = buffers_[b];
        const bool filtered = filtered_[b] && weights != 0.0f;
        const std::span<float> pixel = buffer.pixel(x, y);
        for (std::size_t c = 0; c < pixel.size(); ++c)
            pixel[c] = filtered ? channel(sums.values[b], c) / weights : channel(own.values[central + b], c);
    }
}

// Adds what the samples of the pixel (from_x, from_y) give to the pixel (x, y).
void Film::gather(int x, int y, int from_x, int from_y, const BucketSamples& samples, Sums& sums) const {
    const std::size_t first = samples.rect.index(from_x, from_y) * samples_;
    const float dx = static_cast<float>(from_x - x) - 0.5f, dy = static_cast<float>(from_y - y) - 0.5f;
    for (std::size_t s = first; s < first + samples_; ++s) {
        const float weight = filter_.weight(samples.offsets[2 * s] + dx, samples.offsets[2 * s + 1] + dy);
        if (weight == 0.0f)
            continue;
        const bool is_first = !sums.weights;
        sums.weights = sums.weights.value_or(0.0f) + weight;
        for (std::size_t b = 0; b < buffers_.size(); ++b) {
            if (!filtered_[b])
                continue;
            const miColor& value = samples.values[s * buffers_.size() + b];
            miColor& sum = sums.values[b];
            const miColor before = is_first ? miColor{} : sum;
            sum = {before.r + weight * value.r, before.g + weight * value.g, before.b + weight * value.b,
                   before.a + weight * value.a};
        }
    }
}

} // namespace stage
