// Renders a frame: buckets over the threads, samples over the pixels.
#include "render/renderer.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include "kit/lock.h"
#include "kit/matrix.h"
#include "render/demands.h"
#include "render/frame.h"
#include "render/frame_setup.h"
#include "render/light_map.h"
#include "render/sampling.h"
#include "render/shading.h"
#include "scene/color_profile.h"

namespace stage {

namespace {

constexpr int usual_bucket_size = 32;

std::atomic<Renderer*> rendering{nullptr};
Scene* loaded = nullptr;

int thread_count(int asked) {
    return asked > 0 ? asked : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
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

Renderer::Renderer(Scene& scene, const RenderCommand& command, const RenderSettings& settings)
    : frame_(std::make_unique<Frame>(thread_count(settings.threads))), settings_(settings),
      ranks_(settings.ranks ? *settings.ranks : alone_) {
    Frame& f = *frame_;
    f.place = command.place;
    // Inside the arena, so that building is limited to its threads too.
    f.arena.execute([&] { world_ = std::make_unique<World>(scene, command, settings.camera_space); });
    if (leads())
        report_unsupported(*world_, command, settings.outputs);
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
