// What rendering a frame needs beside what the renderer shows of itself.
#pragma once

#include <tbb/global_control.h>
#include <tbb/task_arena.h>

#include "render/camera.h"
#include "render/film.h"
#include "render/progress.h"
#include "render/renderer.h"

namespace stage {

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

} // namespace stage
