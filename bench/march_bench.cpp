// Marches through volume fog and fire beside the bare noise that they cannot do without, many points at once.
// Times are those of a step. Shading must not allocate.
#include "allocation_count.h"
#include "atm_combust.h"
#include "atm_vfog.h"
#include "noise.h"
#include "peer_report.h"
#include "state_builder.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern "C" {
miBoolean orl_VolumeFog(miColor*, miState*, const orl::VolumeFogParams*);
void orl_VolumeFog_init(miState*, const orl::VolumeFogParams*, miBoolean*);
void orl_VolumeFog_exit(miState*, const orl::VolumeFogParams*);
miBoolean orl_FireEffect(miColor*, miState*, const orl::FireEffectParams*);
void orl_FireEffect_init(miState*, const orl::FireEffectParams*, miBoolean*);
void orl_FireEffect_exit(miState*, const orl::FireEffectParams*);
}

namespace {

using namespace orl;

constexpr int octaves = 3;
constexpr float step = 0.004f; // of a gizmo of 2 units; a tenth of a cell of the noise
constexpr float frequency = 25.0f;
constexpr miVector direction{0.6f, 0.64f, 0.48f};

const Gizmo& ball() {
    static const Gizmo gizmo =
        shape_gizmo({orl_gizmo_sphere, 4, 0, 0, 0, 0, 1}, {1, GizmoShape::centred_cylinder, {}});
    return gizmo;
}

MarchWay way(int steps) {
    return {{-1, -1, -1},
            {direction.x * step, direction.y * step, direction.z * step},
            static_cast<float>(steps)};
}

void report(benchmark::State& run, int steps) {
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations()) * steps);
}

// The noise of the steps' ends in each octave, from coordinates that are there already.
void bare_noise(benchmark::State& run, int steps, bool moving) {
    const auto n = static_cast<std::size_t>(steps);
    std::array<std::vector<float>, 3> axis[octaves];
    const MarchWay w = way(steps);
    for (int o = 0; o < octaves; ++o)
        for (int k = 1; k <= steps; ++k) {
            const float t = static_cast<float>(k), f = std::ldexp(frequency, o);
            axis[o][0].push_back(f * (w.start.x + t * w.step.x));
            axis[o][1].push_back(f * (w.start.y + t * w.step.y));
            axis[o][2].push_back(f * (w.start.z + t * w.step.z));
        }
    const std::vector<float> phase(n, 1.7f);
    std::vector<float> noise(n);
    for (auto _ : run) {
        for (const auto& a : axis) {
            if (moving)
                perlinNoise4(a[0].data(), a[1].data(), a[2].data(), phase.data(), n, noise.data());
            else
                perlinNoise3(a[0].data(), a[1].data(), a[2].data(), n, noise.data());
            benchmark::DoNotOptimize(noise.data());
            benchmark::ClobberMemory();
        }
    }
    report(run, steps);
}

void fog_march(benchmark::State& run, int steps, bool moving, bool soft) {
    FogTexture fog;
    fog.turbulence = true;
    fog.noise = {octaves, true, moving, 1.7f};
    fog.frequency = frequency;
    fog.thresholds = true;
    fog.softEdges = 0.2f;
    fog.hardPart = 0.8f;
    const FogWay through{way(steps), {}, 1e-4f, soft ? &ball() : nullptr};
    for (auto _ : run)
        benchmark::DoNotOptimize(march_fog(fog, true, through, 0.0f));
    report(run, steps);
}

void fire_march(benchmark::State& run, int steps) {
    Flames flames;
    flames.noise = {octaves, true, true, 1.7f};
    flames.tendrils = true;
    flames.frequency = {frequency, frequency, frequency};
    flames.regularity = 0.2f;
    flames.density = 1e-4f;
    for (auto _ : run) {
        FireSums sums;
        march_fire(flames, ball(), way(steps), step, sums);
        benchmark::DoNotOptimize(sums);
    }
    report(run, steps);
}

template <class Function> void add(const std::string& subject, const char* name, Function function) {
    benchmark::RegisterBenchmark((subject + "/" + name).c_str(), function)->UseRealTime();
}

void add_all(int steps) {
    const std::string count = ", " + std::to_string(steps) + " steps";
    const auto bare = [steps](bool moving) {
        return [=](benchmark::State& run) { bare_noise(run, steps, moving); };
    };
    const auto fog = [steps](bool moving, bool soft) {
        return [=](benchmark::State& run) { fog_march(run, steps, moving, soft); };
    };
    add("still fog" + count, "ours", fog(false, false));
    add("still fog" + count, "bare noise", bare(false));
    add("fog" + count, "ours", fog(true, false));
    add("fog" + count, "ours, soft gizmo", fog(true, true));
    add("fog" + count, "bare noise", bare(true));
    add("fire" + count, "ours", [=](benchmark::State& run) { fire_march(run, steps); });
    add("fire" + count, "bare noise", bare(true));
}

// A shader in the scripted renderer, shading a ray through a gizmo: what it allocates, here and of the
// renderer.
template <class Params, class Init, class Shade, class Exit>
bool shades_without_allocating(const char* name, const Params& settings, Init* init, Shade* shade,
                               Exit* exit) {
    scripted::Renderer& renderer = scripted::Renderer::get();
    scripted::State state;
    miInstance node{};
    for (int k = 0; k < 16; k += 5)
        node.tf.global_to_local[k] = node.tf.local_to_global[k] = 1.0f;
    const orl_GizmoData gizmo{orl_gizmo_sphere, 4, 0, 0, 0, 0, 1};
    node.userdata = renderer.add_userdata(&gizmo, sizeof gizmo);
    scripted::ShaderInstance<Params> instance;
    instance.params() = settings;
    decl::Array<miTag>& list = instance->gizmos;
    instance.set_array(list.first, list.count, list.elements, {renderer.add_instance(node)});
    state.run(instance, miSHADER_VOLUME);
    miBoolean wanted = miFALSE;
    init(state, nullptr, &wanted);
    init(state, &instance.params(), &wanted);
    const auto made = [&] {
        return static_cast<long long>(bench::allocations()) + scripted::Renderer::resources().allocations;
    };
    miColor color{};
    const long long before = made();
    constexpr int rays = 1000;
    for (int k = 0; k < rays; ++k)
        shade(&color, state, &instance.params());
    const long long since = made() - before;
    exit(state, &instance.params());
    exit(state, nullptr);
    std::printf("%s: allocations while shading %d rays: %lld (%lld before them)\n", name, rays, since,
                before);
    return since == 0 && before > 0 && color.a > 0.0f;
}

} // namespace

int main(int argc, char** argv) {
    miSetModuleHandle(scripted::Renderer::get().handle());
    noiseTablesInit(scripted::State());
    for (const int steps : {15, 50, 1000})
        add_all(steps);
    const int code = bench::run_beside_peers(argc, argv);
    VolumeFogParams fog{};
    fog.size = 1;
    fog.density = fog.stepSize = 1;
    fog.maxSteps = 50;
    fog.bias = 1;
    fog.softEdges = 0.2f;
    fog.on = miTRUE;
    FireEffectParams fire{};
    fire.stretch = fire.regularity = fire.flameSize = fire.flameDetail = fire.density = 1;
    fire.samples = 50;
    fire.phase = 10;
    fire.on = miTRUE;
    const bool fog_is_free =
        shades_without_allocating("fog", fog, orl_VolumeFog_init, orl_VolumeFog, orl_VolumeFog_exit);
    const bool fire_is_free =
        shades_without_allocating("fire", fire, orl_FireEffect_init, orl_FireEffect, orl_FireEffect_exit);
    return fog_is_free && fire_is_free ? code : 1;
}
