/*
 * The noise of many points with AVX2; this file is compiled for it.
 */
#include "noise_batch.h"
#include "noise_four_points.h"

namespace orl {

void noise_batch_avx2(const float* const (&points)[3], std::size_t count, float* noise) {
    noise_four_at_a_time(points, count, noise);
}

void noise_batch_avx2(const float* const (&points)[4], std::size_t count, float* noise) {
    noise_four_at_a_time(points, count, noise);
}

} // namespace orl
