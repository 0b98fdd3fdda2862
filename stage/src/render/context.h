// What a rendering thread carries from call to call: scratch memory, the states of the rays in flight, the
// current sample's frame buffers, shader state records and random numbers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "kit/shader_state.h"
#include "render/statistics.h"
#include "render/world.h"

namespace stage {

class Renderer;
struct PhotonPath; // render/photon_path.h

// Memory in last-in, first-out order. Grows by chunks that are kept, so a warm arena does not allocate.
class Arena {
public:
    struct Mark {
        std::size_t chunk, used;
    };
    void* allocate(std::size_t size, std::size_t alignment = 16); // not cleared
    [[nodiscard]] Mark mark() const { return {chunk_, used_}; }
    void release(Mark mark) { chunk_ = mark.chunk, used_ = mark.used; }

private:
    struct Chunk {
        std::unique_ptr<std::byte[]> bytes;
        std::size_t size;
    };
    std::vector<Chunk> chunks_;
    std::size_t chunk_ = 0, used_ = 0;
};

// Releases what was taken from the arena since.
class ArenaScope {
public:
    explicit ArenaScope(Arena& arena) : arena_(arena), mark_(arena.mark()) {}
    ~ArenaScope() { arena_.release(mark_); }
    ArenaScope(const ArenaScope&) = delete;
    ArenaScope& operator=(const ArenaScope&) = delete;

private:
    Arena& arena_;
    Arena::Mark mark_;
};

inline constexpr int max_texture_spaces = 16;

// A ray: its state and what the state points to.
struct RayFrame {
    miState state; // first, so that a child state leads to its frame
    bool in_flight;
    miState* caster;    // whose ray it is
    miState* displaced; // the child that the caster had, if that was still in flight, else null
    miRc_intersection hit;
    std::array<miVector, max_texture_spaces> tex, bump_x, bump_y;
    std::array<miVector, 5> derivs;
};

// In two halves, which compilers make plain moves of: the whole becomes a string instruction, whose start
// costs as much as the arithmetic of a ray.
inline void copy_state(miState& to, const miState& from) {
    constexpr std::size_t half = sizeof(miState) / 2;
    std::memcpy(&to, &from, half);
    std::memcpy(reinterpret_cast<std::byte*>(&to) + half, reinterpret_cast<const std::byte*>(&from) + half,
                sizeof(miState) - half);
}

// How shaders hand over the value of a frame buffer.
enum class BufferKind : std::uint8_t { color, vector, scalar, integer };

// Values that shaders put into the camera's frame buffers during one sample, by buffer index.
struct SampleBuffers {
    std::vector<miColor> values; // as colours; integers (tags, labels) are kept in the bits of r
    std::vector<bool> written;
    std::vector<BufferKind> kinds; // found at the first use
};

// Which set of points a running loop over mi_sample draws from; a loop is known by its counter's address.
struct SampleLoop {
    const int* counter = nullptr;
    std::uint32_t dimension = 0;
};

struct ThreadContext {
    Renderer* renderer = nullptr;
    const World* world = nullptr;
    short thread = 0;
    Arena arena;
    ShaderStateRecords records;
    SampleBuffers buffers;
    Statistics statistics;

    // current sample
    Matrix moved_camera_to_internal{},
        moved_internal_to_camera{}; // at the sample's time, of a camera that moves
    RayFrame eye;                   // the camera's state; without lens shaders also that of the eye ray
    std::uint64_t seed = 0;         // of the frame
    std::uint32_t pixel_x = 0, pixel_y = 0, sample = 0;
    std::uint64_t sample_seed = 0;      // the same for the same pixel and sample in every run and thread
    std::uint32_t sample_dimension = 0; // next dimension of the sample's sequence
    std::uint64_t random_state = 0;     // of mi_par_random and the direction samplers; reset from the seed

    // shader calls in progress: where the stack stood at the outermost (0: there is none), and whether they
    // are given up because they lead too deep
    std::uintptr_t outermost_call = 0;
    bool calls_given_up = false;

    PhotonPath* photon = nullptr; // that the thread follows; null while it renders

    const Element* bad_shader = nullptr; // the sample's first shader whose color was not finite
    std::array<SampleLoop, 8> loops{};
    std::size_t next_loop = 0;

    // what the material of the rasterizer's current hit told last of its opacity, and how often it did
    miColor opacity{};
    int opacities_told = 0;

    // lens shaders of the sample in their order, and the number of those that have been called
    std::vector<miTag> lenses;
    std::size_t lens_position = 0;
    bool in_lens = false;                // one of them runs, and none of the shaders at the end of its ray
    miVector camera_org{}, camera_dir{}; // the sample's ray as it leaves the camera

    // All random numbers from here on are those of sample `index` of a pixel, whose seed is given.
    void start_sample(std::uint32_t x, std::uint32_t y, std::uint32_t index, std::uint64_t its_seed);
    // The next number in [0, 1) of the sample's own stream.
    float next_random();
};

inline ThreadContext& context_of(const miState* state) {
    return *static_cast<ThreadContext*>(state->renderer);
}

// Camera space at the time of the current sample.
inline const Matrix& camera_to_internal(const ThreadContext& context) {
    return context.world->camera_moves ? context.moved_camera_to_internal : context.world->camera_to_internal;
}
inline const Matrix& internal_to_camera(const ThreadContext& context) {
    return context.world->camera_moves ? context.moved_internal_to_camera : context.world->internal_to_camera;
}

// The primitive that a state stands on, or null.
inline const miRc_intersection* hit_of(const miState* state) {
    const auto* hit = static_cast<const miRc_intersection*>(state->pri);
    return hit && hit->instance != UINT32_MAX ? hit : nullptr;
}

inline const WorldInstance* instance_of(const miState* state) {
    const miRc_intersection* hit = hit_of(state);
    return hit ? &context_of(state).world->instances[hit->instance] : nullptr;
}

} // namespace stage
