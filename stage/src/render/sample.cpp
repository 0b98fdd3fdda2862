// One sample of a pixel: its eye ray, and what it brings into the frame buffers.
#include <algorithm>
#include <bit>

#include "kit/color.h"
#include "kit/matrix.h"
#include "kit/message.h"
#include "render/frame.h"
#include "render/sampling.h"
#include "render/shading.h"

namespace stage {

namespace {

miColor color_of(const miVector& v) {
    return {v.x, v.y, v.z, 0.0f};
}

} // namespace

// Blends the camera's place as those of instances are. A blend that is flat, as half-way through half a turn,
// shows nothing in any case.
void Renderer::move_camera(ThreadContext& context, float time) const {
    const Matrix& place = blend(world_->camera_to_internal, world_->camera_motion_to_internal, time,
                                context.moved_camera_to_internal);
    if (!matrix_invert(context.moved_internal_to_camera.m, place.m))
        context.moved_internal_to_camera = world_->internal_to_camera;
}

void Renderer::render_sample(ThreadContext& context, int x, int y, SampleNumber number, float* offset,
                             miColor* values) {
    const Frame& f = *frame_;
    const auto pixel_x = static_cast<std::uint32_t>(x), pixel_y = static_cast<std::uint32_t>(y);
    const PixelSample place =
        pixel_sample(pixel_x, pixel_y, number.index, number.grid, f.jitter, context.seed);
    context.start_sample(pixel_x, pixel_y, number.index, place.seed);
    if (buffers_.size() > 1) {
        std::ranges::fill(context.buffers.values, miColor{});
        context.buffers.written.assign(buffers_.size(), false);
    }
    offset[0] = place.x;
    offset[1] = place.y;

    miState& state = context.eye.state;
    copy_state(state, f.state);
    state.thread = context.thread;
    state.renderer = &context;
    const double raster_x = double{place.x} + x, raster_y = double{place.y} + y;
    state.raster_x = static_cast<miScalar>(raster_x);
    state.raster_y = static_cast<miScalar>(raster_y);
    state.time = world_->moving ? sample_time(pixel_x, pixel_y, number.index, f.grid, context.seed) *
                                      world_->options->shutter
                                : 0.0f;
    if (world_->camera_moves)
        move_camera(context, state.time);
    const CameraRay ray = f.projection->ray(raster_x, raster_y);
    const Matrix& camera = camera_to_internal(context);
    state.org = f.camera.orthographic || world_->camera_moves ? transform_point(ray.org, camera.m) : f.eye;
    state.dir = transform_vector(ray.dir, camera.m);
    if (!f.camera_keeps_lengths)
        mi_vector_normalize(&state.dir);

    const ArenaScope scope(context.arena);
    values[0] = {};
    shade_eye_sample(&values[0], context.eye);
    ++context.statistics.samples;
    take_buffers(context, state, values);
    check_sample(context, state, values);
    context.records.clear_eye_ray();
}

// The sample's values of all buffers but the main image: what shaders wrote; else, for buffers that the
// renderer fills itself, the image's colour or what the hit says.
void Renderer::take_buffers(const ThreadContext& context, const miState& state, miColor* values) {
    const bool hit = state.pri != nullptr;
    for (std::size_t b = 1; b < buffers_.size(); ++b) {
        const FrameBuffer& buffer = buffers_[b];
        values[b] = context.buffers.values[b];
        if (context.buffers.written[b] || buffer.desc.user)
            continue;
        switch (buffer.type->type) {
        case miIMG_TYPE_Z: // distance from the plane of the eye, 0 where nothing was hit
            values[b].r = hit ? -transform_point(state.point, internal_to_camera(context).m).z : 0.0f;
            break;
        case miIMG_TYPE_N: // in camera space, as motion
            if (hit)
                values[b] =
                    color_of(transform_vector_transposed(state.normal, camera_to_internal(context).m));
            break;
        case miIMG_TYPE_M:
            if (hit)
                values[b] = color_of(transform_vector(state.motion, internal_to_camera(context).m));
            break;
        case miIMG_TYPE_TAG:
            values[b].r = std::bit_cast<float>(hit ? state.label : 0u);
            break;
        case miIMG_TYPE_BIT:
            values[b].r = std::bit_cast<float>(hit ? 1u : 0u);
            break;
        case miIMG_TYPE_COVERAGE:
            values[b].r = hit ? 1.0f : 0.0f;
            break;
        case miIMG_TYPE_A:
        case miIMG_TYPE_A_16:
        case miIMG_TYPE_A_FP:
            values[b].r = values[0].a;
            break;
        default:
            if (buffer.type->is_color())
                values[b] = values[0];
            else if (buffer.type->is_intensity())
                values[b].r = luminance(values[0], world_->options->luminance_weight);
        }
    }
}

// A sample that is no number becomes black; it is counted, and reported once for each shader.
void Renderer::check_sample(ThreadContext& context, const miState& state, miColor* values) {
    bool bad = false;
    for (std::size_t b = 0; b < buffers_.size(); ++b) {
        if (buffers_[b].type->storage == FrameBufferType::Storage::integer || is_finite(values[b]))
            continue;
        values[b] = {0.0f, 0.0f, 0.0f, 1.0f};
        bad = true;
    }
    if (!bad)
        return;
    ++context.statistics.bad_samples;

    // The shader whose result was no number first; none when the numbers went wrong outside of shaders.
    const Element* shader = context.bad_shader;
    ShaderCode* code = shader && shader->shader ? shader->shader->code : nullptr;
    std::atomic<bool>& reported = code ? code->reported_bad_value : frame_->reported_bad_value;
    if (!is_first(reported))
        return;
    const Database& database = world_->scene.database;
    const Element* instance = database.find(state.instance);
    const Element* object = instance && instance->type == miSCENE_INSTANCE
                                ? database.find(instance->as<miInstance>()->item)
                                : nullptr;
    send_message(
        MessageLevel::error,
        "NaN or infinite sample at raster position %.2f %.2f: shader \"%s\" (%s), object \"%s\"; it counts "
        "as black",
        static_cast<double>(state.raster_x), static_cast<double>(state.raster_y),
        code ? code->name.c_str() : "?", shader ? shader->name.c_str() : "?",
        object ? object->name.c_str() : "");
}

} // namespace stage
