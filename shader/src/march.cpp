/*
 * Points and noise of marches.
 */
#include "march.h"

#include "noise.h"

namespace orl {
namespace {

constexpr int fill_up(int count) {
    return (count + 3) / 4 * 4;
}

// Adds an octave of noise, weighted, to the sums. The points count in fours: that is what the noise of many
// points is quick at.
void add_octave(const NoiseSum& noise, const MarchPoints& points, const float* phase, float weight, int count,
                float* sum) {
    alignas(16) float octave[steps_at_once];
    const auto points_in_fours = static_cast<std::size_t>(count);
    if (noise.moving)
        perlinNoise4(points.x, points.y, points.z, phase, points_in_fours, octave);
    else
        perlinNoise3(points.x, points.y, points.z, points_in_fours, octave);
    if (noise.absolute)
        for (int i = 0; i < count; ++i)
            sum[i] += std::fabs(octave[i]) * weight;
    else
        for (int i = 0; i < count; ++i)
            sum[i] += octave[i] * weight;
}

void double_frequency(MarchPoints& points, int count) {
    for (int i = 0; i < count; ++i) {
        points.x[i] *= 2.0f;
        points.y[i] *= 2.0f;
        points.z[i] *= 2.0f;
    }
}

} // namespace

void place_points(const MarchWay& way, int first, int count, MarchPoints& points) {
    for (int i = 0; i < fill_up(count); ++i) {
        const float t = std::min(static_cast<float>(first + i + 1), way.steps);
        points.x[i] = way.start.x + t * way.step.x;
        points.y[i] = way.start.y + t * way.step.y;
        points.z[i] = way.start.z + t * way.step.z;
    }
}

void scale_points(const MarchPoints& points, const miVector& offset, const miVector& frequency, int count,
                  MarchPoints& scaled) {
    for (int i = 0; i < fill_up(count); ++i) {
        scaled.x[i] = (points.x[i] + offset.x) * frequency.x;
        scaled.y[i] = (points.y[i] + offset.y) * frequency.y;
        scaled.z[i] = (points.z[i] + offset.z) * frequency.z;
    }
}

void sum_noise(const NoiseSum& noise, MarchPoints& points, int count, float (&sum)[steps_at_once]) {
    const int filled = fill_up(count);
    alignas(16) float phase[steps_at_once];
    std::fill_n(sum, filled, 0.0f);
    std::fill_n(phase, filled, noise.phase);
    // What is not a number has no octaves.
    const float levels = std::min(std::max(0.0f, noise.levels), static_cast<float>(most_octaves));
    float weight = 1.0f;
    for (float left = levels; left > 0.0f; left -= 1.0f, weight *= 0.5f) {
        add_octave(noise, points, phase, std::min(left, 1.0f) * weight, filled, sum);
        double_frequency(points, filled);
    }
}

} // namespace orl
