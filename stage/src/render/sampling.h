// Where the samples of a pixel lie: positions, times and seeds, the same in every run and for every thread.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

namespace stage {

// The fraction of the golden ratio: its multiples are spread evenly.
inline constexpr std::uint64_t golden_ratio_bits = 0x9E3779B97F4A7C15u;

// Mixes the bits of a 64-bit number so that neighbouring inputs give unrelated outputs: the finaliser of
// splitmix64 (Sebastiano Vigna, "Further scramblings of Marsaglia's xorshift generators", 2017).
constexpr std::uint64_t mix_bits(std::uint64_t v) {
    v += golden_ratio_bits;
    v = (v ^ (v >> 30)) * 0xBF58476D1CE4E5B9u;
    v = (v ^ (v >> 27)) * 0x94D049BB133111EBu;
    return v ^ (v >> 31);
}

// In [0, 1), from the upper bits.
constexpr float unit_float(std::uint64_t bits) {
    return static_cast<float>(bits >> 40) * 0x1p-24f;
}

inline constexpr float below_one = 0x1.fffffep-1f;

struct PixelSample {
    float x, y;         // in the pixel, [0, 1)
    std::uint64_t seed; // of everything random in this sample
};

// What the seeds of a pixel's samples are made from. `seed` is the frame's.
constexpr std::uint64_t pixel_seed(std::uint32_t x, std::uint32_t y, std::uint64_t seed = 0) {
    return mix_bits(((std::uint64_t{y} << 32) | x) ^ (seed ? mix_bits(seed) : 0));
}

// Sample `index` of `grid` * `grid` in a pixel. The pixel is divided into that many cells, row by row; each
// has one sample, at its centre for jitter 0, anywhere in the cell for jitter 1.
inline PixelSample pixel_sample(std::uint32_t x, std::uint32_t y, std::uint32_t index, std::uint32_t grid,
                                float jitter, std::uint64_t frame_seed = 0) {
    const std::uint64_t seed = mix_bits(pixel_seed(x, y, frame_seed) + index);
    const float cell = 1.0f / static_cast<float>(grid);
    const auto place = [&](std::uint32_t stratum, std::uint64_t salt) {
        const float offset =
            jitter > 0.0f ? 0.5f + jitter * (unit_float(mix_bits(seed ^ salt)) - 0.5f) : 0.5f;
        return std::min((static_cast<float>(stratum) + offset) * cell, below_one);
    };
    if (grid == 1)
        return {place(0, 1), place(0, 2), seed};
    return {place(index % grid, 1), place(index / grid, 2), seed};
}

// When that sample is taken in the shutter interval, [0, 1). The times of a pixel lie evenly over the
// interval, moved by a random part of it. Neighbours in the grid are about the golden ratio apart, and the
// samples of a row or of a column spread over the interval too: edges that cross the pixel are noisy
// otherwise.
inline float sample_time(std::uint32_t x, std::uint32_t y, std::uint32_t index, std::uint32_t grid,
                         std::uint64_t seed = 0) {
    const std::uint32_t count = grid * grid;
    auto stride = static_cast<std::uint32_t>(0.6180339887498949 * count);
    while (std::gcd(stride, grid) != 1)
        ++stride;
    // NOLINTNEXTLINE(clang-analyzer-core.UndefinedBinaryOperatorResult): a grid has a cell at least.
    const std::uint64_t place = std::uint64_t{index} * stride % count;
    const double turn =
        unit_float(mix_bits(pixel_seed(x, y, seed) ^ 3u)) + static_cast<double>(place) / count;
    return std::min(static_cast<float>(turn - std::floor(turn)), below_one);
}

// The sample nearest to the middle of its pixel; what cannot be averaged is taken from it.
constexpr std::uint32_t central_sample(std::uint32_t grid) {
    return (grid / 2) * grid + grid / 2;
}

} // namespace stage
