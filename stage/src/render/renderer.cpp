// Renders a frame: buckets over the threads, samples over the pixels.
#include "render/renderer.h"

#include <tbb/global_control.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <thread>

#include "kit/color.h"
#include "kit/lock.h"
#include "kit/matrix.h"
#include "kit/message.h"
#include "render/camera.h"
#include "render/demands.h"
#include "render/film.h"
#include "render/light_map.h"
#include "render/photons.h"
#include "render/progress.h"
#include "render/sampling.h"
#include "render/shading.h"
#include "scene/color_profile.h"

namespace stage {

namespace {

constexpr int usual_bucket_size = 32;
constexpr int most_samples_power = 8; // 4^8 samples for each pixel

std::atomic<Renderer*> rendering{nullptr};
Scene* loaded = nullptr;

int thread_count(int asked) {
    return asked > 0 ? asked : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
}

// Samples of a pixel along one axis.
std::uint32_t sample_grid(const RenderSettings& settings, const miOptions& options) {
    if (settings.samples)
        return static_cast<std::uint32_t>(std::max(1L, std::lround(std::sqrt(*settings.samples))));
    return 1u << std::clamp(options.max_samples, 0, most_samples_power);
}

// Of the samples that every pixel takes before it is known whether it needs more: less than one is one.
std::uint32_t first_grid(const RenderSettings& settings, const miOptions& options) {
    const std::uint32_t most = sample_grid(settings, options);
    return settings.samples ? most
                            : std::min(most, 1u << std::clamp(options.min_samples, 0, most_samples_power));
}

// The camera of the frame: other resolutions keep the width of the view and the shape of the pixels.
miCamera frame_camera(const miCamera& camera, const RenderSettings& settings) {
    miCamera result = camera;
    if (settings.resolution) {
        const auto [width, height] = *settings.resolution;
        result.aspect *= static_cast<float>(width) / static_cast<float>(height) *
                         static_cast<float>(camera.y_resolution) / static_cast<float>(camera.x_resolution);
        result.x_resolution = width;
        result.y_resolution = height;
        result.x_offset *= static_cast<float>(width) / static_cast<float>(camera.x_resolution);
        result.y_offset *= static_cast<float>(height) / static_cast<float>(camera.y_resolution);
        result.window = {0, 0, width - 1, height - 1};
    }
    return result;
}

// The pixels to render: the given region, or the camera's window; a window without extent is none.
PixelRect frame_region(const miCamera& camera, const RenderSettings& settings) {
    if (settings.region) {
        const auto [xl, yl, xh, yh] = *settings.region;
        const PixelRect region{std::max(xl, 0), std::max(yl, 0), std::min(xh, camera.x_resolution - 1) + 1,
                               std::min(yh, camera.y_resolution - 1) + 1};
        if (region.x0 >= region.x1 || region.y0 >= region.y1)
            throw std::runtime_error("the region has no pixel of the picture, which is " +
                                     std::to_string(camera.x_resolution) + " by " +
                                     std::to_string(camera.y_resolution));
        return region;
    }
    const auto& w = camera.window;
    if (w.xh <= w.xl && w.yh <= w.yl)
        return {0, 0, camera.x_resolution, camera.y_resolution};
    return {w.xl, w.yl, w.xh < INT32_MAX ? w.xh + 1 : w.xh, w.yh < INT32_MAX ? w.yh + 1 : w.yh};
}

// Whether a matrix turns and shifts only, to the precision of its elements.
bool keeps_lengths(const miScalar* m) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const double dot = double{m[4 * i]} * m[4 * j] + double{m[4 * i + 1]} * m[4 * j + 1] +
                               double{m[4 * i + 2]} * m[4 * j + 2];
            if (std::fabs(dot - (i == j ? 1.0 : 0.0)) > 2e-7)
                return false;
        }
    return true;
}

bool is_finite(const miColor& c) {
    return std::isfinite(c.r) && std::isfinite(c.g) && std::isfinite(c.b) && std::isfinite(c.a);
}

// The least and the largest of some colours, channel by channel.
struct ColorRange {
    miColor least{INFINITY, INFINITY, INFINITY, INFINITY};
    miColor most{-INFINITY, -INFINITY, -INFINITY, -INFINITY};
    void take(const miColor& c) {
        least = {std::min(least.r, c.r), std::min(least.g, c.g), std::min(least.b, c.b),
                 std::min(least.a, c.a)};
        most = {std::max(most.r, c.r), std::max(most.g, c.g), std::max(most.b, c.b), std::max(most.a, c.a)};
    }
    [[nodiscard]] bool within(const miColor& contrast) const {
        return most.r - least.r <= contrast.r && most.g - least.g <= contrast.g &&
               most.b - least.b <= contrast.b && most.a - least.a <= contrast.a;
    }
};

miColor color_of(const miVector& v) {
    return {v.x, v.y, v.z, 0.0f};
}

} // namespace

Renderer* current_renderer() {
    return rendering.load(std::memory_order_relaxed);
}

Scene* current_scene() {
    return loaded;
}

void set_current_scene(Scene* scene) {
    loaded = scene;
}

// The samples of one pixel, fewer than the film has room for.
struct Renderer::PixelSamples {
    PixelSamples(std::uint32_t most, std::size_t buffer_count)
        : grid(most), buffers(buffer_count), offsets(std::size_t{2} * most * most),
          values(std::size_t{most} * most * buffer_count) {}

    std::uint32_t grid;
    std::size_t buffers;
    std::vector<float> offsets;
    std::vector<miColor> values;

    void add_to(ColorRange& range) const {
        for (std::size_t s = 0; s < std::size_t{grid} * grid; ++s)
            range.take(values[s * buffers]);
    }
    // As `fine` by `fine` samples: each stands for those of its cell, in their middles.
    void spread(std::uint32_t fine, float* to_offsets, miColor* to_values) const {
        const std::uint32_t cells = fine / grid;
        for (std::uint32_t s = 0; s < fine * fine; ++s) {
            const std::uint32_t x = s % fine, y = s / fine;
            const std::size_t from = std::size_t{y / cells} * grid + x / cells;
            to_offsets[2 * s] =
                cells == 1 ? offsets[2 * from] : (static_cast<float>(x) + 0.5f) / static_cast<float>(fine);
            to_offsets[2 * s + 1] = cells == 1 ? offsets[2 * from + 1]
                                               : (static_cast<float>(y) + 0.5f) / static_cast<float>(fine);
            std::copy_n(&values[from * buffers], buffers, to_values + s * buffers);
        }
    }
};

struct Renderer::Frame {
    explicit Frame(int threads)
        : parallelism(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads)),
          arena(threads) {}

    tbb::global_control parallelism; // more threads than cores too, when asked for
    tbb::task_arena arena;
    Place place;
    miCamera camera{};
    miOptions options{};
    std::unique_ptr<Projection> projection;
    std::unique_ptr<Film> film;
    std::unique_ptr<Progress> progress;
    std::uint32_t grid = 1;       // samples of a pixel along one axis, at most
    std::uint32_t first_grid = 1; // and at least
    float jitter = 0.0f;
    miVector eye{};                    // of a perspective camera, internal space
    bool camera_keeps_lengths = false; // its rays arrive in internal space with the length that they have
    miState state{};                   // of every eye ray, before its sample is known
    BucketSource* buckets = nullptr;
    std::atomic<bool> reported_bad_value{false}; // of no particular shader
};

Renderer::Renderer(Scene& scene, const RenderCommand& command, const RenderSettings& settings)
    : frame_(std::make_unique<Frame>(thread_count(settings.threads))), settings_(settings),
      ranks_(settings.ranks ? *settings.ranks : alone_) {
    Frame& f = *frame_;
    f.place = command.place;
    // Inside the arena, so that building is limited to its threads too.
    f.arena.execute([&] { world_ = std::make_unique<World>(scene, command, settings.camera_space); });
    report_unsupported(*world_, command);
    f.options = *world_->options;
    apply_demands(scene, f.options);
    world_->options = &f.options;
    f.camera = frame_camera(*world_->camera, settings);
    world_->camera = &f.camera;
    check_camera(scene, command, f.camera);
    f.projection = std::make_unique<Projection>(f.camera);
    f.camera_keeps_lengths = !world_->camera_moves && keeps_lengths(world_->camera_to_internal.m);
    f.eye = transform_point({0.0f, 0.0f, 0.0f}, world_->camera_to_internal.m);
    f.grid = sample_grid(settings, *world_->options);
    f.first_grid = first_grid(settings, *world_->options);
    f.jitter = std::clamp(world_->options->jitter, 0.0f, 1.0f);
    open_buffers();
    f.options.no_images = static_cast<int>(buffers_.size());
    f.options.fb_dir = f.camera.framebuffers;
    open_film();
    global_lock = create_lock(); // behind what may refuse the frame: no destructor runs then
    open_contexts();
    rendering.store(this, std::memory_order_relaxed);
}

Renderer::~Renderer() {
    rendering.store(nullptr, std::memory_order_relaxed);
    destroy_lock(global_lock);
}

void Renderer::open_buffers() {
    const miCamera& camera = frame_->camera;
    const Element* element = world_->scene.database.find(camera.framebuffers);
    std::span<const FramebufferDesc> descs;
    if (element && element->type == miSCENE_FRAMEBUFFERS)
        descs = element->framebuffers;
    buffers_ = make_framebuffers(descs, camera.x_resolution, camera.y_resolution,
                                 element ? element->place : frame_->place);
    for (FrameBuffer& buffer : buffers_) {
        if (!buffer.type->is_color() || buffer.desc.colorprofile.empty())
            continue;
        const Element* profile = world_->scene.database.find(std::string_view(buffer.desc.colorprofile));
        if (profile && profile->type == miSCENE_COLORPROFILE)
            buffer.profile = profile->as<ColorProfile>();
        else
            warn_once(world_->scene, *element,
                      "frame buffer \"" + buffer.desc.name + "\": there is no colour profile \"" +
                          buffer.desc.colorprofile + '"');
    }
    pictures_ = pictures_of(buffers_, settings_.outputs, settings_.default_output);
    for (Picture& picture : pictures_) {
        picture.grading = grading_of(*world_->options);
        if (leads())
            check_picture(picture);
    }
}

void Renderer::open_film() {
    const miOptions& options = *world_->options;
    const PixelRect region = frame_region(frame_->camera, settings_);
    const PixelFilter filter(options.filter, options.filter_size_x, options.filter_size_y);
    frame_->film = std::make_unique<Film>(buffers_, region, filter, frame_->grid * frame_->grid,
                                          central_sample(frame_->grid),
                                          options.task_size > 0 ? options.task_size : usual_bucket_size);
}

void Renderer::open_contexts() {
    Frame& f = *frame_;
    // The same random numbers in every frame, unless the options want others.
    const std::uint64_t seed =
        settings_.seed + (f.options.samplelock ? 0 : static_cast<std::uint64_t>(f.camera.frame) << 32);
    for (int thread = 0; thread < f.arena.max_concurrency(); ++thread) {
        auto context = std::make_unique<ThreadContext>();
        context->renderer = this;
        context->world = world_.get();
        context->thread = static_cast<short>(thread);
        context->seed = seed;
        context->buffers.values.resize(buffers_.size());
        context->buffers.written.resize(buffers_.size());
        if (world_->camera_moves)
            move_camera(*context, 0.0f);
        contexts_.push_back(std::move(context));
    }
    miState& state = f.state;
    state.version = 2;
    state.camera_inst = world_->camera_instance;
    state.camera = &f.camera;
    state.options = const_cast<miOptions*>(world_->options); // the published type; nobody writes to it
    state.global_lock = global_lock;
    state.type = miRAY_EYE;
    state.volume = f.camera.volume;
    state.environment = f.camera.environment;
    state.face = 'a'; // the options' faces are with the instances, which may differ
    state.ior = state.ior_in = state.importance = 1.0f;
}

const miState& Renderer::frame_state() const {
    return frame_->state;
}

bool Renderer::render() {
    Frame& f = *frame_;
    // First, so that the others learn of it whatever happens behind.
    const std::unique_ptr<BucketSource> buckets =
        ranks_.share({*f.film, aborted_, f.arena.max_concurrency(), [this] { frame_->progress->advance(); }});
    f.buckets = buckets.get();
    const Statistics::Clock::time_point start = Statistics::Clock::now();
    f.arena.execute([&] { photons_ = trace_photons(*this); });
    photon_time_ = std::chrono::duration<double>(Statistics::Clock::now() - start).count();
    run_light_maps(*this);
    f.progress = std::make_unique<Progress>(f.film->bucket_count(), settings_.progress && leads());
    f.arena.execute([&] { tbb::parallel_for(0, f.arena.max_concurrency(), [&](int) { work(); }); });
    buckets->close();
    complete_ = !aborted();
    if (leads()) {
        if (complete_)
            run_output_shaders();
        else
            f.film->finish_rest();
    }
    f.progress.reset();
    miState state;
    copy_state(state, f.state);
    state.renderer = contexts_.front().get();
    world_->scene.exit_shaders(&state);
    return complete_;
}

// One after the other, on this thread. Images that they leave open are closed for them.
void Renderer::run_output_shaders() {
    const Frame& f = *frame_;
    if (f.camera.output == miNULLTAG || f.options.no_output)
        return;
    ThreadContext& context = *contexts_.front();
    if (settings_.statistics)
        context.statistics.start_clock();
    const FamilyScope scope(context.statistics, Family::renderer);
    output_images_.resize(buffers_.size());
    miState state;
    copy_state(state, f.state);
    state.type = miRAY_OUTPUT;
    state.renderer = &context;
    miColor unused{};
    call_shader(&unused, miSHADER_OUTPUT, &state, f.camera.output, nullptr);
    for (std::size_t index = 0; index < output_images_.size(); ++index)
        close_output_image(static_cast<int>(index));
    output_images_.clear();
}

miImg_image* Renderer::open_output_image(int index) {
    const auto number = static_cast<std::size_t>(index);
    if (index < 0 || number >= output_images_.size() ||
        buffers_[number].type->storage == FrameBufferType::Storage::integer)
        return nullptr;
    if (!output_images_[number])
        output_images_[number] = image_of(buffers_[number], !frame_->options.nopremult);
    return output_images_[number]->image();
}

void Renderer::close_output_image(int index) {
    const auto number = static_cast<std::size_t>(index);
    if (index < 0 || number >= output_images_.size() || !output_images_[number])
        return;
    take_image(buffers_[number], output_images_[number]->image(), !frame_->options.nopremult);
    output_images_[number].reset();
}

// One thread's share: buckets in their order until none is left.
void Renderer::work() {
    Frame& f = *frame_;
    ThreadContext& context =
        *contexts_[static_cast<std::size_t>(tbb::this_task_arena::current_thread_index())];
    if (settings_.statistics)
        context.statistics.start_clock();
    const FamilyScope scope(context.statistics, Family::renderer);
    while (const std::optional<std::size_t> bucket = f.buckets->next()) {
        if (!render_bucket(context, *bucket))
            return;
        f.buckets->rendered(*bucket);
    }
}

// False when the frame was stopped inside.
bool Renderer::render_bucket(ThreadContext& context, std::size_t bucket) {
    BucketSamples& samples = frame_->film->begin(bucket);
    if (frame_->first_grid < frame_->grid)
        return sample_as_needed(context, samples);
    const std::uint32_t count = frame_->grid * frame_->grid;
    std::size_t index = 0;
    for (int y = samples.rect.y0; y < samples.rect.y1; ++y)
        for (int x = samples.rect.x0; x < samples.rect.x1; ++x) {
            if (aborted())
                return false;
            for (std::uint32_t s = 0; s < count; ++s, ++index)
                render_sample(context, x, y, {s, frame_->grid}, &samples.offsets[2 * index],
                              &samples.values[index * buffers_.size()]);
        }
    context.records.clear_rect();
    return true;
}

// A pixel whose first samples agree with each other and with those of the pixels around it is done; another
// takes four times as many, until these agree or there are enough. Pixels around the bucket are sampled too,
// so that no picture depends on how it is divided. False when the frame was stopped inside.
bool Renderer::sample_as_needed(ThreadContext& context, BucketSamples& samples) {
    const Frame& f = *frame_;
    const PixelRect& rect = samples.rect;
    const PixelRect around =
        PixelRect{rect.x0 - 1, rect.y0 - 1, rect.x1 + 1, rect.y1 + 1}.cut(f.film->sampled_rect());
    PixelSamples first(f.first_grid, buffers_.size()), more(f.grid, buffers_.size());
    std::vector<PixelSamples> firsts(
        static_cast<std::size_t>(around.width()) * static_cast<std::size_t>(around.height()), first);
    const auto first_of = [&](int x, int y) -> PixelSamples& {
        return firsts[static_cast<std::size_t>(y - around.y0) * static_cast<std::size_t>(around.width()) +
                      static_cast<std::size_t>(x - around.x0)];
    };
    for (int y = around.y0; y < around.y1; ++y)
        for (int x = around.x0; x < around.x1; ++x)
            if (!sample_pixel(context, x, y, first_of(x, y)))
                return false;
    std::size_t index = 0;
    const std::size_t count = std::size_t{f.grid} * f.grid;
    for (int y = rect.y0; y < rect.y1; ++y)
        for (int x = rect.x0; x < rect.x1; ++x, index += count) {
            ColorRange range;
            for (int v = std::max(y - 1, around.y0); v < std::min(y + 2, around.y1); ++v)
                for (int u = std::max(x - 1, around.x0); u < std::min(x + 2, around.x1); ++u)
                    first_of(u, v).add_to(range);
            const PixelSamples* taken = &first_of(x, y);
            for (more.grid = f.first_grid; !range.within(f.options.contrast) && more.grid < f.grid;) {
                more.grid *= 2;
                if (!sample_pixel(context, x, y, more))
                    return false;
                taken = &more;
                range = {};
                more.add_to(range);
            }
            taken->spread(f.grid, &samples.offsets[2 * index], &samples.values[index * buffers_.size()]);
        }
    context.records.clear_rect();
    return true;
}

bool Renderer::sample_pixel(ThreadContext& context, int x, int y, PixelSamples& samples) {
    if (aborted())
        return false;
    for (std::uint32_t s = 0; s < samples.grid * samples.grid; ++s)
        render_sample(context, x, y, {s, samples.grid}, &samples.offsets[2 * s],
                      &samples.values[s * samples.buffers]);
    return true;
}

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
    const std::uint32_t index = number.index;
    context.pixel_x = static_cast<std::uint32_t>(x);
    context.pixel_y = static_cast<std::uint32_t>(y);
    context.sample = index;
    const PixelSample place =
        pixel_sample(context.pixel_x, context.pixel_y, index, number.grid, f.jitter, context.seed);
    context.sample_seed = place.seed;
    context.sample_dimension = 0;
    context.random_state = mix_bits(place.seed);
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
    state.time = world_->moving ? sample_time(context.pixel_x, context.pixel_y, index, f.grid, context.seed) *
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
    if (reported.exchange(true, std::memory_order_relaxed))
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

std::vector<std::string> Renderer::write_pictures() {
    std::vector<std::string> written;
    for (Picture picture : pictures_) {
        if (!complete_)
            picture.path = before_ending(picture.path, ".partial");
        write_picture(picture);
        if (complete_) // what an earlier frame of this name left
            std::remove(before_ending(picture.path, ".partial").c_str());
        written.push_back(picture.path);
    }
    return written;
}

Statistics Renderer::statistics() const {
    Statistics sum;
    for (const auto& context : contexts_)
        sum += context->statistics;
    return sum;
}

std::string Renderer::outline() const {
    const auto number = [](auto n, const char* what) { return std::to_string(n) + what; };
    return number(frame_->camera.x_resolution, " by ") + number(frame_->camera.y_resolution, " pixels, ") +
           number(frame_->film->bucket_count(), " buckets, ") +
           number(frame_->grid * frame_->grid, " samples, ") + number(buffers_.size(), " frame buffers, ") +
           number(world_->instances.size(), " instances");
}

int Renderer::buffer_index(const char* name) const {
    const auto found =
        std::ranges::find_if(buffers_, [&](const FrameBuffer& buffer) { return buffer.desc.name == name; });
    return found == buffers_.end() ? -1 : static_cast<int>(found - buffers_.begin());
}

} // namespace stage
