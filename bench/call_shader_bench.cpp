// What a shader call costs: an empty shader through mi_call_shader_x beside a plain call of the same function
// through a pointer. Calls stand on every sample's path, so none of them may allocate.
#include "allocation_count.h"
#include "mi/parser.h"
#include "peer_report.h"
#include "render/renderer.h"
#include "scene/libraries.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <optional>

namespace {

miBoolean empty_shader(void*, miState*, void*, void*) {
    return miTRUE;
}

// A world of nothing but a camera, and a state in it.
struct Caller {
    stage::Scene scene;
    std::optional<stage::World> world;
    stage::ThreadContext context;
    miState state{};
    miTag shader = miNULLTAG;

    Caller() {
        stage::set_current_scene(&scene);
        scene.libraries->define("empty", reinterpret_cast<void*>(&empty_shader));
        stage::parse_text(
            scene,
            "declare shader color \"empty\" (scalar \"x\") version 0 end declare\n"
            "shader \"s\" \"empty\" (\"x\" 1)\n"
            "options \"opt\" end options\n"
            "camera \"cam\" focal 1 aperture 1 aspect 1 resolution 16 16 end camera\n"
            "instance \"cam_inst\" \"cam\" end instance\n"
            "instgroup \"root\" \"cam_inst\" end instgroup\n"
            "render \"root\" \"cam_inst\" \"opt\"\n",
            "empty", [this](stage::Scene& s, const stage::RenderCommand& c) { world.emplace(s, c, false); });
        context.world = &*world;
        state.renderer = &context;
        state.options = scene.database.find("opt")->as<miOptions>();
        shader = scene.database.find("s")->tag;
    }
    static Caller& get() {
        static Caller caller;
        return caller;
    }
    miBoolean call() {
        miColor result;
        return mi_call_shader_x(&result, miSHADER_TEXTURE, &state, shader, nullptr);
    }
};

void through_the_stage(benchmark::State& run) {
    Caller& caller = Caller::get();
    for (auto _ : run)
        benchmark::DoNotOptimize(caller.call());
}
BENCHMARK(through_the_stage)->Name("empty shader call/ours");

void through_a_pointer(benchmark::State& run) {
    Caller& caller = Caller::get();
    stage::ShaderEntry function = &empty_shader;
    benchmark::DoNotOptimize(function);
    void* parameters = caller.scene.database.find("s")->as<miFunction>()->parameters;
    miColor result;
    for (auto _ : run)
        benchmark::DoNotOptimize(function(&result, &caller.state, parameters, nullptr));
}
BENCHMARK(through_a_pointer)->Name("empty shader call/function pointer");

} // namespace

int main(int argc, char** argv) {
    const int code = bench::run_beside_peers(argc, argv);
    Caller& caller = Caller::get();
    caller.call(); // the first call of an instance may allocate
    const std::size_t before = bench::allocations();
    for (int k = 0; k < 100000; ++k)
        caller.call();
    const std::size_t made = bench::allocations() - before;
    std::printf("\nallocations in 100000 calls: %zu (%zu before them)\n", made, before);
    return made == 0 && before > 0 ? code : 1;
}
