// The points that shaders take samples at.
#include <algorithm>
#include <cstdint>

#include "api/api.h"
#include "render/sample_points.h"

namespace stage {
namespace {

// The set that a loop draws from: it must not change while the loop runs, whatever its body draws.
std::uint32_t set_of_loop(ThreadContext& context, const int* counter) {
    auto loop = std::find_if(context.loops.begin(), context.loops.end(),
                             [&](const SampleLoop& l) { return l.counter == counter; });
    const bool starts = *counter == 0;
    if (loop == context.loops.end()) {
        loop = context.loops.begin() + static_cast<std::ptrdiff_t>(context.next_loop);
        context.next_loop = (context.next_loop + 1) % context.loops.size();
        *loop = {counter, 0};
    }
    if (starts)
        loop->dimension = context.sample_dimension++;
    return loop->dimension;
}

} // namespace
} // namespace stage

// With a counter: the points of a set of *n, until it is exhausted. Without: one point for each sample of the
// pixel, so that the pixel's samples together make up the set.
STAGE_API miBoolean mi_sample(double* sample, int* instance, miState* state, const miUshort dim,
                              const miUint* n) {
    stage::ThreadContext& context = stage::context_of(state);
    if (!instance) {
        stage::sample_point(sample, context, context.sample_dimension++, context.sample, dim);
        return miTRUE;
    }
    const std::uint32_t count = n ? *n : 1u;
    if (*instance < 0 || static_cast<std::uint32_t>(*instance) >= count)
        return miFALSE;
    const std::uint32_t set = stage::set_of_loop(context, instance);
    const std::uint32_t index = context.sample * count + static_cast<std::uint32_t>(*instance);
    stage::sample_point(sample, context, set, index, dim);
    ++*instance;
    return miTRUE;
}
