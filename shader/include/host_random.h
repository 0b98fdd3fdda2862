/*
 * The generator behind the host's tables and jitters: that of the Windows run-time library, whose numbers are
 * 15 bits wide. It stands here in full, so that they are the same everywhere.
 */
#pragma once

#include "mi_binding.h"

namespace orl {

/* The sequence that follows a seed: what srand and rand give there. A value of its own where numbers are
   drawn while shading, so that threads do not meet in it. */
class HostRandom {
public:
    explicit constexpr HostRandom(miUint seed) : state_(seed) {}

    /* The next number, 0 to 32767. */
    constexpr int operator()() {
        state_ = state_ * 214013u + 2531011u;
        return static_cast<int>(state_ >> 16 & 0x7FFFu);
    }

private:
    miUint state_;
};

} // namespace orl
