// Random numbers.
#include "kit/random.h"

#include <atomic>
#include <cstdint>

namespace stage {

namespace {

// The state that the C library's generator starts from for a seed.
constexpr std::uint64_t state_of_seed(std::uint32_t seed) {
    return (static_cast<std::uint64_t>(seed) << 16) | 0x330Eu;
}

constexpr std::uint64_t advance(std::uint64_t x) {
    return (x * 0x5DEECE66Du + 0xBu) & 0xFFFFFFFFFFFFu;
}

float upper_bits(std::uint64_t x) {
    return static_cast<float>(x >> 24) * 0x1p-24f;
}

std::atomic<std::uint64_t> shared{state_of_seed(0)};

} // namespace

float next_random(unsigned short seed[3]) noexcept {
    const std::uint64_t x = advance(static_cast<std::uint64_t>(seed[2]) << 32 |
                                    static_cast<std::uint64_t>(seed[1]) << 16 | seed[0]);
    seed[0] = static_cast<unsigned short>(x & 0xFFFFu);
    seed[1] = static_cast<unsigned short>(x >> 16 & 0xFFFFu);
    seed[2] = static_cast<unsigned short>(x >> 32);
    return upper_bits(x);
}

float shared_random() noexcept {
    std::uint64_t x = shared.load(std::memory_order_relaxed);
    while (!shared.compare_exchange_weak(x, advance(x), std::memory_order_relaxed)) {
    }
    return upper_bits(advance(x));
}

void seed_shared_random(long seed) noexcept {
    shared.store(state_of_seed(static_cast<std::uint32_t>(seed)), std::memory_order_relaxed);
}

} // namespace stage
