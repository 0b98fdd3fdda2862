// Random numbers in [0, 1): the 48-bit linear congruential generator of the C library's drand48 family
// (x = 0x5DEECE66D x + 11 modulo 2^48), of which the upper 24 bits become a single-precision number, so that
// no rounding reaches 1.
#pragma once

namespace stage {

// From the caller's own state, low word first, which it advances.
[[nodiscard]] float next_random(unsigned short seed[3]) noexcept;

// From the state that all threads share.
[[nodiscard]] float shared_random() noexcept;
void seed_shared_random(long seed) noexcept;

} // namespace stage
