// What a frame took: samples, rays, shader calls and the time of each family of shaders. Each thread counts
// for itself; the sums are printed at the end.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "shader.h"

namespace stage {

// Whose work it is. Shaders belong to the family that they are called as, a miShader_type; the others follow.
enum class Family : std::uint8_t {
    shaders,                                // + miShader_type
    inits = shaders + miSHADER_CONTOUR + 1, // the first calls of shaders
    ray_casting,                            // finding what a ray meets
    renderer,                               // everything else: samples, filter, what calls the others
    count
};

constexpr Family family_of(miShader_type type) {
    return static_cast<Family>(type >= 0 && type <= miSHADER_CONTOUR ? type : miSHADER_DEFAULT);
}

struct Statistics {
    std::uint64_t samples = 0, bad_samples = 0; // bad: NaN or infinite
    std::uint64_t eye_rays = 0, reflection_rays = 0, refraction_rays = 0, transparent_rays = 0,
                  continued_rays = 0, shadow_rays = 0, environment_rays = 0, probe_rays = 0,
                  gathering_rays = 0, light_samples = 0;
    std::uint64_t photons_emitted = 0, photons_kept = 0;

    using Clock = std::chrono::steady_clock;
    struct Work {
        std::uint64_t calls = 0;
        Clock::duration own{}; // without that of others called from there
    };
    std::array<Work, static_cast<std::size_t>(Family::count)> families{};
    Work& of(Family family) { return families[static_cast<std::size_t>(family)]; }

    // From now on the thread's time is taken, which is the renderer's until others are called. Not by
    // default: a call of the clock costs as much as a small shader, and is part of the times.
    void start_clock();

    Statistics& operator+=(const Statistics& other);

private:
    friend class FamilyScope;
    bool timed_ = false;
    Family running_ = Family::renderer;
    Clock::time_point since_{};

    // The time since the last change goes to the family that ran. Returns that family.
    Family change_to(Family family);
};

// Counts a call of a family; while it lasts the thread's time belongs to it.
class FamilyScope {
public:
    FamilyScope(Statistics& statistics, Family family) : statistics_(statistics) {
        ++statistics.of(family).calls;
        if (statistics.timed_) [[unlikely]]
            outer_ = statistics.change_to(family);
    }
    ~FamilyScope() {
        if (statistics_.timed_) [[unlikely]]
            statistics_.change_to(outer_);
    }
    FamilyScope(const FamilyScope&) = delete;
    FamilyScope& operator=(const FamilyScope&) = delete;

private:
    Statistics& statistics_;
    Family outer_ = Family::renderer;
};

struct FrameTimes { // seconds
    double build = 0.0, photons = 0.0, render = 0.0,
           write = 0.0; // photons: before the picture, part of render
};

// Prints the tables of a frame: samples, rays by kind, families of shaders, memory and time. `scene_bytes` is
// what the ray casting structure takes.
void print_statistics(std::FILE* file, const Statistics& statistics, const FrameTimes& times,
                      std::size_t scene_bytes);

} // namespace stage
