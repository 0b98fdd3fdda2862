// States and shader instances for tests: a state that looks straight down on a lit plane, ready to be
// changed, and shader records with a parameter block, array parameters and connections.
#pragma once

#include "scripted_renderer.h"

#include <cassert>
#include <cmath>
#include <initializer_list>
#include <type_traits>
#include <vector>

namespace scripted {

// One instance of a shader whose parameter block is `Params`. Block, array elements and connection table lie
// in one piece of memory behind the function record, zeroed, as the renderer lays them out. `spare` is the
// room for array elements in bytes.
template <class Params> class ShaderInstance {
    static_assert(std::is_trivially_copyable_v<Params>);

public:
    explicit ShaderInstance(const char* name = "shader", std::size_t spare = 4096)
        : block_size_((sizeof(Params) + spare + 15) / 16 * 16),
          memory_((sizeof(miFunction) + 2 * block_size_) / sizeof(double) + 1), name_(name),
          used_(sizeof(Params)) {
        function().parameter_size = static_cast<miUint>(sizeof(Params));
        function().type = miFUNCTION_C;
        function().reserved[1] = name_.data();
    }
    ShaderInstance(const ShaderInstance&) = delete;
    ShaderInstance& operator=(const ShaderInstance&) = delete;

    miFunction& function() { return *reinterpret_cast<miFunction*>(memory_.data()); }
    Params& params() { return *reinterpret_cast<Params*>(block()); }
    Params* operator->() { return &params(); }

    // The instance's user pointer as miQ_FUNC_USERPTR gives it.
    void* user_pointer() { return function().reserved[0]; }

    // Fills an array parameter: the fields for the index of the first element and the count, and the first
    // member of the array itself.
    template <class T>
    void set_array(miInteger& first, miInteger& count, T* array, const std::vector<T>& values) {
        const auto start = static_cast<std::size_t>(reinterpret_cast<char*>(array) - block());
        const std::size_t index = (used_ - start + sizeof(T) - 1) / sizeof(T);
        const std::size_t end = start + (index + values.size()) * sizeof(T);
        assert(end <= block_size_);
        if (!values.empty())
            std::memcpy(block() + start + index * sizeof(T), values.data(), values.size() * sizeof(T));
        first = static_cast<miInteger>(index);
        count = static_cast<miInteger>(values.size());
        used_ = end;
        function().parameter_size = static_cast<miUint>(used_);
    }

    // Connects a parameter: each evaluation calls `value(state)` anew and sees what it returns.
    template <class T, class Value>
    void connect(T& parameter, Value value, Renderer& renderer = Renderer::get()) {
        auto results = std::make_shared<std::array<T, 64>>(); // one for each thread
        set_connection(&parameter, renderer.add_connection([results, value](miState* state) -> void* {
            T& result = (*results)[static_cast<std::size_t>(state->thread) % 64];
            result = static_cast<T>(value(state));
            return &result;
        }));
    }

    // The raw entry of the connection table: 0, miCONNECTION_NONE or a number from add_connection.
    void set_connection(const void* parameter, int entry) {
        function().connection_offset = static_cast<miIntptr>(block_size_);
        const auto offset = reinterpret_cast<const char*>(parameter) - block();
        std::memcpy(block() + block_size_ + static_cast<std::size_t>(offset), &entry, sizeof entry);
    }

private:
    char* block() { return reinterpret_cast<char*>(function().parameters); }

    std::size_t block_size_;
    std::vector<double> memory_;
    std::string name_;
    std::size_t used_;
};

// A state with its camera and options. As built: an eye ray from (0, 0, 5) along -z meets the front of the
// plane z = 0 at the origin; perspective camera of 640 x 480 with focal length 1 and aperture 1; ray tracing
// on, depths 5, no motion; indices of refraction 1; one texture coordinate (0.5, 0.5, 0).
class State {
public:
    miState state{};
    miCamera camera{};
    miOptions options{};
    std::vector<miVector> textures{{0.5f, 0.5f, 0.0f}}; // tex_list; call use_textures() after resizing
    std::vector<miVector> bump_x{{1, 0, 0}}, bump_y{{0, 1, 0}};

    State() {
        camera.focal = 1.0f;
        camera.aperture = 1.0f;
        camera.aspect = 4.0f / 3.0f;
        camera.clip = {0.001f, 1e6f};
        camera.x_resolution = 640;
        camera.y_resolution = 480;
        camera.window = {0, 0, 639, 479};
        options.trace = miTRUE;
        options.reflection_depth = options.refraction_depth = options.trace_depth = 5;
        options.gamma = 1.0f;
        options.luminance_weight = {0.299f, 0.587f, 0.114f, 0.0f};
        state.version = 2;
        state.camera = &camera;
        state.options = &options;
        state.raster_x = 320.0f;
        state.raster_y = 240.0f;
        state.importance = 1.0f;
        state.ior = state.ior_in = 1.0f;
        state.face = 'a';
        state.call_type = miSHADER_MATERIAL;
        state.bary[0] = state.bary[1] = state.bary[2] = 1.0f / 3.0f;
        use_textures();
        set_hit({0, 0, 5}, {0, 0, 0}, {0, 0, 1});
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    operator miState*() { return &state; }
    miState* operator->() { return &state; }

    // A ray from `org` that ends at `point` on a surface whose outward normal is `normal`; the state's
    // normals are turned towards the start of the ray and inv_normal tells when they had to be.
    State& set_hit(const miVector& org, const miVector& point, const miVector& normal) {
        state.org = org;
        state.point = point;
        mi_vector_sub(&state.dir, &point, &org);
        state.dist = static_cast<double>(mi_vector_norm(&state.dir));
        mi_vector_normalize(&state.dir);
        state.normal = normal;
        mi_vector_normalize(&state.normal);
        state.dot_nd = mi_vector_dot(&state.normal, &state.dir);
        state.inv_normal = state.dot_nd > 0.0f ? miTRUE : miFALSE;
        if (state.inv_normal) {
            mi_vector_neg(&state.normal);
            state.dot_nd = -state.dot_nd;
        }
        state.normal_geom = state.normal;
        return *this;
    }

    // A ray that left the scene: no distance, no surface.
    State& set_miss(const miVector& org, const miVector& dir) {
        state.org = org;
        state.dir = dir;
        mi_vector_normalize(&state.dir);
        state.point = org;
        state.normal = state.normal_geom = {0, 0, 0};
        state.dot_nd = 0.0f;
        state.dist = 0.0;
        state.instance = state.material = miNULLTAG;
        state.pri = nullptr;
        return *this;
    }

    // Makes this the state of a ray that `caster` cast; depths and sample are taken over.
    State& set_parent(State& caster, miRay_type type) {
        state.parent = &caster.state;
        caster.state.child = &state;
        state.type = type;
        state.raster_x = caster.state.raster_x;
        state.raster_y = caster.state.raster_y;
        state.thread = caster.state.thread;
        state.camera = caster.state.camera;
        state.options = caster.state.options;
        state.reflection_level = caster.state.reflection_level + (type == miRAY_REFLECT ? 1 : 0);
        state.refraction_level = caster.state.refraction_level + (type == miRAY_REFRACT ? 1 : 0);
        return *this;
    }

    // Makes `instance` the running shader, called as `type`.
    template <class Params>
    State& run(ShaderInstance<Params>& instance, miShader_type type = miSHADER_MATERIAL) {
        state.shader = &instance.function();
        state.call_type = type;
        return *this;
    }

    State& use_textures() {
        state.tex_list = textures.empty() ? nullptr : textures.data();
        state.bump_x_list = bump_x.empty() ? nullptr : bump_x.data();
        state.bump_y_list = bump_y.empty() ? nullptr : bump_y.data();
        state.tex = textures.empty() ? miVector{} : textures.front();
        return *this;
    }
};

} // namespace scripted
