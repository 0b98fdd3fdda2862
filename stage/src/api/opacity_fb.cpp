// What shaders tell of a sample beside its colour, and the points that they take samples at.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

#include "api/api.h"
#include "api/unsupported.h"
#include "image/framebuffer.h"
#include "render/sampling.h"

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

std::uint32_t reversed_bits(std::uint32_t v) {
    v = (v >> 16) | (v << 16);
    v = ((v & 0x00ff00ffu) << 8) | ((v & 0xff00ff00u) >> 8);
    v = ((v & 0x0f0f0f0fu) << 4) | ((v & 0xf0f0f0f0u) >> 4);
    v = ((v & 0x33333333u) << 2) | ((v & 0xccccccccu) >> 2);
    return ((v & 0x55555555u) << 1) | ((v & 0xaaaaaaaau) >> 1);
}

// Owen's nested scrambling of base-2 digits by a hash (Brent Burley, "Practical Hash-based Owen Scrambling",
// Journal of Computer Graphics Techniques 9 (4), 2020).
std::uint32_t scrambled(std::uint32_t v, std::uint32_t seed) {
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
std::uint32_t sobol(std::uint32_t index, unsigned dimension) {
    if (dimension == 0)
        return reversed_bits(index);
    std::uint32_t value = 0;
    for (std::uint32_t direction = 0x80000000u; index; index >>= 1, direction ^= direction >> 1)
        if (index & 1u)
            value ^= direction;
    return value;
}

// Point `index` of the pixel's sequence for one call of mi_sample. Dimensions are taken in pairs, each with
// an order and a scrambling of its own.
void sample_point(double* sample, const ThreadContext& context, std::uint32_t set, std::uint32_t index,
                  unsigned dimensions) {
    const std::uint64_t pixel = pixel_seed(context.pixel_x, context.pixel_y, context.seed);
    for (unsigned d = 0; d < dimensions; ++d) {
        const std::uint64_t pair = mix_bits(pixel ^ mix_bits((std::uint64_t{set} << 16) | (d / 2)));
        const std::uint32_t shuffled = scrambled(index, static_cast<std::uint32_t>(pair));
        const auto seed = static_cast<std::uint32_t>(mix_bits(pair + 1 + d % 2));
        sample[d] = scrambled(sobol(shuffled, d % 2), seed) * 0x1p-32;
    }
}

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

// Only the primary hit has an opacity of its own in the picture: elsewhere there is nothing to be missed.
STAGE_API miBoolean mi_opacity_set(miState* state, miColor*) {
    if (!miRAY_PRIMARY(state->type))
        return miFALSE;
    STAGE_UNSUPPORTED();
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
