// What shaders tell of a sample beside its colour.
#include <bit>

#include "api/api.h"
#include "image/framebuffer.h"
#include "render/shading.h"

namespace stage {
namespace {

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
