// Points of a pixel's samples: well spread over the unit square in each sample and over all samples of the
// pixel together, the same in every run and for every thread.
#pragma once

#include "render/context.h"
#include "render/sampling.h"

namespace stage {

inline std::uint32_t reversed_bits(std::uint32_t v) {
    v = (v >> 16) | (v << 16);
    v = ((v & 0x00ff00ffu) << 8) | ((v & 0xff00ff00u) >> 8);
    v = ((v & 0x0f0f0f0fu) << 4) | ((v & 0xf0f0f0f0u) >> 4);
    v = ((v & 0x33333333u) << 2) | ((v & 0xccccccccu) >> 2);
    return ((v & 0x55555555u) << 1) | ((v & 0xaaaaaaaau) >> 1);
}

// Owen's nested scrambling of base-2 digits by a hash (Brent Burley, "Practical Hash-based Owen Scrambling",
// Journal of Computer Graphics Techniques 9 (4), 2020).
inline std::uint32_t scrambled(std::uint32_t v, std::uint32_t seed) {
    v = reversed_bits(v);
    v ^= v * 0x3d20adeau;
    v += seed;
    v *= (seed >> 16) | 1u;
    v ^= v * 0x05526c56u;
    v ^= v * 0x53a22864u;
    return reversed_bits(v);
}

// The first two dimensions of Sobol's sequence; the second's direction numbers are the rows of Pascal's
// triangle modulo 2.
inline std::uint32_t sobol(std::uint32_t index, unsigned dimension) {
    if (dimension == 0)
        return reversed_bits(index);
    std::uint32_t value = 0;
    for (std::uint32_t direction = 0x80000000u; index; index >>= 1, direction ^= direction >> 1)
        if (index & 1u)
            value ^= direction;
    return value;
}

// Point `index` of the pixel's sequence for one set of points. Dimensions are taken in pairs, each with an
// order and a scrambling of its own.
inline void sample_point(double* sample, const ThreadContext& context, std::uint32_t set, std::uint32_t index,
                         unsigned dimensions) {
    const std::uint64_t pixel = pixel_seed(context.pixel_x, context.pixel_y, context.seed);
    for (unsigned d = 0; d < dimensions; ++d) {
        const std::uint64_t pair = mix_bits(pixel ^ mix_bits((std::uint64_t{set} << 16) | (d / 2)));
        const std::uint32_t shuffled = scrambled(index, static_cast<std::uint32_t>(pair));
        const auto seed = static_cast<std::uint32_t>(mix_bits(pair + 1 + d % 2));
        sample[d] = scrambled(sobol(shuffled, d % 2), seed) * 0x1p-32;
    }
}

} // namespace stage
