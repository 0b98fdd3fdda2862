/*
 * The noise of many points, four at a time: one entry for each instruction set. The result of a point does
 * not depend on it.
 */
#pragma once

#include <cstddef>

namespace orl {

/* Noise in n dimensions, 3 or 4, of `count` points, a multiple of four; one array for each coordinate. */
template <int n> using NoiseBatch = void(const float* const (&points)[n], std::size_t count, float* noise);

NoiseBatch<3> noise_batch_sse2;
NoiseBatch<4> noise_batch_sse2;
NoiseBatch<3> noise_batch_avx2;
NoiseBatch<4> noise_batch_avx2;

} // namespace orl
