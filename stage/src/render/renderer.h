// Renders one frame: buckets over the threads, samples over the pixels, pictures at the end.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "image/framebuffer.h"
#include "image/picture_file.h"
#include "render/context.h"
#include "render/photons.h"
#include "render/ranks.h"
#include "render/world.h"

namespace stage {

struct BucketSamples; // render/film.h

struct RenderSettings {
    int threads = 0;                          // 0: all
    std::optional<std::array<int, 4>> region; // xl, yl, xh, yh inclusive, pixels, (0, 0) lower left
    std::optional<std::array<int, 2>> resolution;
    std::optional<int> samples;       // samples for each pixel: a square number, 1, 4, 9, ...
    std::uint64_t seed = 0;           // of all random numbers
    bool camera_space = false;        // internal space is the camera's
    bool statistics = false;          // take the times of shaders
    bool progress = true;             // a line on the error stream
    std::vector<std::string> outputs; // pictures of the main image, .png or .exr; empty for the camera's own
    std::string default_output = "out.png"; // when neither these nor the scene name any
    Ranks* ranks = nullptr;                 // who renders the frame; null: this process alone
};

class Renderer {
public:
    Renderer(Scene& scene, const RenderCommand& command, const RenderSettings& settings);
    ~Renderer();

    // Renders the frame and runs the camera's output shaders. Returns false when it was stopped before the
    // end; what is finished is kept. Of several processes all render and the leading one has the picture.
    bool render();
    // Writes the pictures (only after render, in the leading process); those of a frame that was stopped
    // replace no finished ones, they go to "name.partial.png". Returns the paths written. Throws
    // std::runtime_error.
    std::vector<std::string> write_pictures();

    [[nodiscard]] const RenderSettings& settings() const { return settings_; }
    [[nodiscard]] const World& world() const { return *world_; }
    [[nodiscard]] const std::vector<FrameBuffer>& buffers() const {
        return buffers_;
    } // [0] is the main image
    [[nodiscard]] Statistics statistics() const;
    // Names what processes that render together must agree on.
    [[nodiscard]] std::string outline() const;
    // Whether this process, of those that render together, writes files.
    [[nodiscard]] bool leads() const { return ranks_.leads(); }
    [[nodiscard]] bool complete() const { return complete_; }
    [[nodiscard]] bool aborted() const { return aborted_.load(std::memory_order_relaxed); }
    void abort() { aborted_.store(true, std::memory_order_relaxed); } // from a signal handler
    // Stops the frame because of a mistake, which the caller has reported.
    void give_up() {
        gave_up_.store(true, std::memory_order_relaxed);
        abort();
    }
    [[nodiscard]] bool gave_up() const { return gave_up_.load(std::memory_order_relaxed); }
    // Index for mi_fb_put by name, or -1. Index 0 is the main image.
    [[nodiscard]] int buffer_index(const char* name) const;
    // The finished picture of a buffer, for the output shader that runs; null when none runs, and for an
    // index without a buffer or with one of integers. Closing takes the image's pixels over.
    miImg_image* open_output_image(int index);
    void close_output_image(int index);
    // Thread contexts; [thread].
    [[nodiscard]] const std::vector<std::unique_ptr<ThreadContext>>& contexts() const { return contexts_; }
    // The state of every eye ray, before its sample is known.
    [[nodiscard]] const miState& frame_state() const;
    // Null for a frame without photons.
    [[nodiscard]] const PhotonMaps* photon_maps() const { return photons_.get(); }
    [[nodiscard]] double photon_time() const { return photon_time_; } // seconds
    miLock global_lock = nullptr;

private:
    struct Frame; // what only the implementation needs
    struct PixelSamples;
    struct SampleNumber { // sample `index` of `grid` by `grid`
        std::uint32_t index, grid;
    };

    void open_buffers();
    void open_film();
    void open_contexts();
    void work();
    void run_output_shaders();
    bool render_bucket(ThreadContext& context, std::size_t bucket);
    void move_camera(ThreadContext& context, float time) const;
    bool sample_as_needed(ThreadContext& context, BucketSamples& samples);
    bool sample_pixel(ThreadContext& context, int x, int y, PixelSamples& samples);
    void render_sample(ThreadContext& context, int x, int y, SampleNumber number, float* offset,
                       miColor* values);
    void take_buffers(const ThreadContext& context, const miState& state, miColor* values);
    void check_sample(ThreadContext& context, const miState& state, miColor* values);

    std::unique_ptr<Frame> frame_;
    std::unique_ptr<World> world_;
    RenderSettings settings_;
    Ranks alone_;
    Ranks& ranks_;
    std::vector<FrameBuffer> buffers_;
    std::vector<Picture> pictures_;                         // of buffers_
    std::vector<std::optional<ImageMemory>> output_images_; // of buffers_, while output shaders run
    std::shared_ptr<const PhotonMaps> photons_;
    double photon_time_ = 0.0;
    bool complete_ = true;
    std::vector<std::unique_ptr<ThreadContext>> contexts_;
    std::atomic<bool> aborted_{false}, gave_up_{false};
};

// The renderer of the frame that is being rendered, for interface functions without a state; null between
// frames.
Renderer* current_renderer();
// The scene that is loaded, for interface functions without a state.
Scene* current_scene();
void set_current_scene(Scene* scene);

} // namespace stage
