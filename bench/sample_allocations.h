// Whether shading allocates: operator new here and in the libraries, and what the stage's memory gives out.
#pragma once

#include "allocation_count.h"
#include "kit/memory.h"

#include <cstdio>

namespace bench {

// Runs `shade`, which takes `samples` of each of its cases; false when that allocates, or when nothing
// counts.
template <class Shade> bool nothing_allocates(int samples, Shade shade) {
    const auto made = [] {
        return static_cast<long long>(allocations()) + stage::memory_counts().allocations;
    };
    const long long before = made();
    shade();
    const long long since = made() - before;
    std::printf("\nallocations in %d samples of each: %lld (%lld before them)\n", samples, since, before);
    return since == 0 && before > 0;
}

} // namespace bench
