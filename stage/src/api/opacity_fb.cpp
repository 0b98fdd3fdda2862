// What shaders tell of a sample beside its colour, and the points that they take samples at.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "api/api.h"
#include "image/framebuffer.h"
#include "render/sample_points.h"
#include "render/shading.h"

namespace stage {
namespace {

// ---- frame buffers ----

BufferKind kind_of(const FrameBuffer& buffer) {
    switch (buffer.type->type) {
    case miIMG_TYPE_A:
    case miIMG_TYPE_A_16:
    case miIMG_TYPE_A_FP:
    case miIMG_TYPE_S:
    case miIMG_TYPE_S_16:
    case miIMG_TYPE_S_FP:
    case miIMG_TYPE_Z:
    case miIMG_TYPE_COVERAGE:
        return BufferKind::scalar;
    case miIMG_TYPE_N:
    case miIMG_TYPE_M:
    case miIMG_TYPE_VTA:
    case miIMG_TYPE_VTS:
        return BufferKind::vector;
    case miIMG_TYPE_TAG:
    case miIMG_TYPE_BIT:
        return BufferKind::integer;
    default:
        return BufferKind::color;
    }
}

// The place of a buffer in the sample's values, or null for an index that names none.
miColor* buffer_value(ThreadContext& context, int index, BufferKind& kind) {
    SampleBuffers& buffers = context.buffers;
    if (index < 0 || static_cast<std::size_t>(index) >= buffers.values.size())
        return nullptr;
    const auto number = static_cast<std::size_t>(index);
    if (buffers.kinds.size() <= number) {
        buffers.kinds.clear();
        for (const FrameBuffer& buffer : context.renderer->buffers())
            buffers.kinds.push_back(kind_of(buffer));
    }
    kind = buffers.kinds[number];
    return &buffers.values[number];
}

// ---- points for samples ----

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

// Values are of the buffer's own type: miColor, miVector, miScalar, or miUint for tags.
STAGE_API miBoolean mi_fb_put(miState* state, int index, void* value) {
    stage::ThreadContext& context = stage::context_of(state);
    stage::BufferKind kind;
    miColor* place = stage::buffer_value(context, index, kind);
    if (!place)
        return miTRUE;
    context.buffers.written[static_cast<std::size_t>(index)] = true;
    switch (kind) {
    case stage::BufferKind::color:
        *place = *static_cast<const miColor*>(value);
        break;
    case stage::BufferKind::vector: {
        const auto& v = *static_cast<const miVector*>(value);
        *place = {v.x, v.y, v.z, 0.0f};
        break;
    }
    case stage::BufferKind::scalar:
        *place = {*static_cast<const miScalar*>(value), 0.0f, 0.0f, 0.0f};
        break;
    case stage::BufferKind::integer:
        *place = {std::bit_cast<miScalar>(*static_cast<const miUint*>(value)), 0.0f, 0.0f, 0.0f};
        break;
    }
    return miTRUE;
}

STAGE_API miBoolean mi_fb_get(miState* state, int index, void* value) {
    stage::BufferKind kind;
    const miColor* place = stage::buffer_value(stage::context_of(state), index, kind);
    if (!place)
        return miFALSE;
    switch (kind) {
    case stage::BufferKind::color:
        *static_cast<miColor*>(value) = *place;
        break;
    case stage::BufferKind::vector:
        *static_cast<miVector*>(value) = {place->r, place->g, place->b};
        break;
    case stage::BufferKind::scalar:
        *static_cast<miScalar*>(value) = place->r;
        break;
    case stage::BufferKind::integer:
        *static_cast<miUint*>(value) = std::bit_cast<miUint>(place->r);
        break;
    }
    return miTRUE;
}

// Only a hit of the rasterizer has an opacity in the picture. Elsewhere materials themselves trace what lies
// behind them, so nothing is missed.
STAGE_API miBoolean mi_opacity_set(miState* state, miColor* opacity) {
    if (!stage::from_rasterizer(state))
        return miFALSE;
    stage::ThreadContext& context = stage::context_of(state);
    context.opacity = *opacity;
    ++context.opacities_told;
    return miTRUE;
}

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
