// What a sample of the standard material costs with each illumination model under 1 to 64 lights without
// shadow, from the call of the material to its colour, called as the stage calls materials: no maps, every
// light in front of the surface and in the highlight. Ray casting, shadows and filtering have no part in it.
//
// Beside it stands the stage's own matt surface under the same lights; beside Blinn's model also the stage's
// polished surface, and a plain loop over positions and colours that computes the same sum without renderer,
// parameters or light shaders. Afterwards:
//
//   - the straight line through the times by number of lights (least squares over 1, 2, 4, ... 64): its slope
//     is the price of a light, its R squared tells whether the cost is linear, and must reach 0.98
//   - whose time it is, by the stage's clock: material, model or lights
//   - the allocations, of which there may be none
//
//     illumination_bench            times
//     illumination_bench --count    runs each case `counted_calls` times, for bench/instructions, which also
//                                   tells how many of the instructions are the module's
#include "mi/parser.h"
#include "peer_report.h"
#include "render/renderer.h"
#include "render/shading.h"
#include "sample_allocations.h"
#include "scene/libraries.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Model {
    const char* name;
    const char* settings; // beside the defaults, so that the whole model has work to do
};
constexpr Model models[] = {
    {"Anisotropic", "\"specularLevel\" 0.8, \"glossiness\" 0.3"},
    {"Blinn", "\"specularLevel\" 0.8, \"glossiness\" 0.3"},
    {"Constant", "\"specularLevel\" 0.8, \"glossiness\" 0.3"},
    {"Metal", "\"specularLevel\" 0.8, \"glossiness\" 0.3"},
    {"MultiLayer",
     "\"specularLevel1\" 0.8, \"glossiness1\" 0.3, \"specularLevel2\" 0.4, \"glossiness2\" 0.6"},
    {"OrenNayarBlinn", "\"specularLevel\" 0.8, \"glossiness\" 0.3"},
    {"Phong", "\"specularLevel\" 0.8, \"glossiness\" 0.3"},
    {"Strauss", "\"glossiness\" 0.5, \"metalness\" 0.5"},
    {"Translucent", "\"specularLevel\" 0.8, \"glossiness\" 0.3, \"translucent\" 0.3 0.3 0.3"},
    {"Ward", "\"specularLevel\" 0.8, \"glossinessU\" 0.3, \"glossinessV\" 0.5"},
};

constexpr int light_counts[] = {1, 2, 4, 8, 16, 32, 64};
constexpr int most_lights = 64;
constexpr bool stands_beside_peers(int lights) {
    return lights == 1 || lights == 8 || lights == most_lights;
}

// On a ring above the surface, so that to each of them the model takes the same way.
miVector light_position(int k) {
    const float azimuth = 2.39996f * static_cast<float>(k); // the golden angle
    return {3.0f * std::cos(azimuth), 3.0f * std::sin(azimuth), 4.0f};
}

std::string number_of(int lights) {
    return std::to_string(lights) + (lights == 1 ? " light" : " lights");
}

std::string ours(int lights, const char* model) {
    return number_of(lights) + "/ours, " + model;
}

// ---- the same without a renderer

struct PlainLight {
    miVector position;
    miColor color;
};

// Blinn's model with the settings above, and its default colours.
miColor plain_blinn(const miState& state, const std::vector<PlainLight>& lights, int count) {
    constexpr float diffuse_color = 0.588f, specular_color = 0.9f, level = 0.8f;
    const float exponent = static_cast<float>(4.0 * std::pow(2.0, 10.0 * 0.3));
    miColor diffuse{}, specular{};
    for (int k = 0; k < count; ++k) {
        const PlainLight& light = lights[static_cast<std::size_t>(k)];
        miVector to_light, half;
        mi_vector_sub(&to_light, &light.position, &state.point);
        mi_vector_normalize(&to_light);
        const float cosine = mi_vector_dot(&state.normal, &to_light);
        if (!(cosine > 0.0f))
            continue;
        mi_vector_sub(&half, &to_light, &state.dir);
        mi_vector_normalize(&half);
        const float highlight = level * std::pow(mi_vector_dot(&state.normal, &half), exponent);
        diffuse.r += light.color.r * cosine, specular.r += light.color.r * highlight;
        diffuse.g += light.color.g * cosine, specular.g += light.color.g * highlight;
        diffuse.b += light.color.b * cosine, specular.b += light.color.b * highlight;
    }
    return {diffuse.r * diffuse_color + specular.r * specular_color,
            diffuse.g * diffuse_color + specular.g * specular_color,
            diffuse.b * diffuse_color + specular.b * specular_color, 1.0f};
}

// ---- a square with the lights above it

struct Case {
    std::string name;
    std::string shader; // name of its element
    int lights;
    miTag tag = miNULLTAG, instance = miNULLTAG;
};

std::string declarations_beside(std::string library) {
    library.replace(library.rfind('.'), std::string::npos, ".mi");
    return "link \"" + library.substr(0, library.size() - 2) + "so\"\n$include \"" + library + "\"\n";
}

// Name of an element, as it stands behind something else in a scene.
std::string quoted(const char* kind, int number) {
    return std::string(" \"") + kind + " " + std::to_string(number) + "\"";
}

class Surface {
public:
    Surface() {
        stage::set_current_scene(&scene_);
        scene_.libraries->set_module_handle(dlopen(nullptr, RTLD_NOW)); // this program is linked with it
        stage::parse_text(scene_,
                          libraries_and_camera() + lights() + nodes() + surfaces() +
                              "render \"root\" \"cam_inst\" \"opt\"\n",
                          "surface", [this](stage::Scene& s, const stage::RenderCommand& c) {
                              world_.emplace(s, c, false);
                          });
        for (Case& c : cases_) {
            c.tag = scene_.database.find(c.shader)->tag;
            c.instance = scene_.database.find("node " + std::to_string(c.lights))->tag;
        }
        hit();
    }
    const std::vector<Case>& cases() const { return cases_; }
    const miState& state() const { return context_.eye.state; }
    stage::Statistics& statistics() { return context_.statistics; }

    miColor sample(const Case& c) {
        miState& state = context_.eye.state;
        state.instance = c.instance; // all nodes stand in one place: only their lights differ
        miColor color{};
        mi_call_shader_x(&color, miSHADER_MATERIAL, &state, c.tag, nullptr);
        return color;
    }

private:
    static std::string libraries_and_camera() {
        return declarations_beside(ORL_FILE_STAGE_BASE) + declarations_beside(ORL_FILE_ORLSHADERS) +
               "options \"opt\" end options\n"
               "camera \"cam\" focal 1 aperture 1 aspect 1 resolution 16 16 end camera\n"
               "instance \"cam_inst\" \"cam\" end instance\n"
               "object \"square\" visible on group\n"
               "-1 -1 0  1 -1 0  1 1 0  -1 1 0  0 0 1  0 0 0  1 0 0  1 1 0  0 1 0\n"
               "v 0 n 4 t 5  v 1 n 4 t 6  v 2 n 4 t 7  v 3 n 4 t 8  c 0 1 2 3\n"
               "end group end object\n";
    }

    static std::string lights() {
        std::string text;
        for (int k = 0; k < most_lights; ++k) {
            const std::string light = quoted("light", k);
            const miVector at = light_position(k);
            text += "light" + light + " \"orl_OmniLight\" () origin " + std::to_string(at.x) + " " +
                    std::to_string(at.y) + " " + std::to_string(at.z) + " energy 1 1 1 end light\n" +
                    "instance" + quoted("lamp", k) + light + " end instance\n";
        }
        return text;
    }
    static std::string light_list(int lights) {
        std::string list = "\"lights\" [" + quoted("lamp", 0);
        for (int k = 1; k < lights; ++k)
            list.append(",").append(quoted("lamp", k));
        return list + "]";
    }

    static std::string nodes() {
        std::string text, members = " \"cam_inst\"";
        for (int k = 0; k < most_lights; ++k)
            members += quoted("lamp", k);
        for (const int lights : light_counts) {
            const std::string node = quoted("node", lights), data = quoted("data", lights);
            text += "data" + data + " \"orl_NodeData\" (" + light_list(lights) + ", \"all_lights\" off)\n" +
                    "instance" + node + " \"square\" data" + data + " end instance\n";
            members += node;
        }
        return text + "instgroup \"root\"" + members + " end instgroup\n";
    }

    std::string surfaces() {
        std::string text;
        for (const Model& model : models) {
            const std::string name = model.name;
            text += "shader \"" + name + " model\" \"orl_base_" + name + "Illumination\" (" + model.settings +
                    ")\n" + "shader \"" + name + "\" \"orl_StandardMaterial\" (\"illumination\" \"" + name +
                    " model\")\n";
            for (const int lights : light_counts)
                cases_.push_back({ours(lights, model.name), name, lights});
        }
        const auto add_peer = [&](const std::string& group, const char* shader, const char* settings,
                                  int lights) {
            const std::string name = group + "/" + shader;
            text += "shader \"" + name + "\" \"" + shader + "\" (" + settings + light_list(lights) + ")\n";
            cases_.push_back({name, name, lights});
        };
        for (const int lights : light_counts)
            if (stands_beside_peers(lights)) {
                const std::string group = "Blinn, " + number_of(lights);
                cases_.push_back({group + "/ours", "Blinn", lights});
                add_peer(number_of(lights), "base_lambert", "", lights);
                add_peer(group, "base_glossy", "\"exponent\" 8, \"ior\" 1, ", lights);
            }
        return text;
    }

    // From above and a little from the side, near the middle.
    void hit() {
        context_.world = &*world_;
        miState& state = context_.eye.state;
        state.renderer = &context_;
        state.options = scene_.database.find("opt")->as<miOptions>();
        state.camera = scene_.database.find("cam")->as<miCamera>();
        state.type = miRAY_EYE;
        state.org = {0.3f, 0.2f, 5.0f};
        state.dir = {-0.04f, -0.02f, -1.0f};
        mi_vector_normalize(&state.dir);
        stage::cast(context_.eye, 0.0, std::numeric_limits<double>::infinity(), stage::RayMask::primary);
    }

    stage::Scene scene_;
    std::optional<stage::World> world_;
    stage::ThreadContext context_{};
    std::vector<Case> cases_;
};

// ---- before the runs

// Every light of every case must light the surface, or the times are those of another path; and the plain
// loop must compute what the material does. These are also the first calls of the instances, which may
// allocate.
bool cases_are_lit(Surface& surface, const std::vector<PlainLight>& plain) {
    for (const Case& c : surface.cases()) {
        const float color = surface.sample(c).r;
        const float by_hand = plain_blinn(surface.state(), plain, c.lights).r;
        const bool lit = std::isfinite(color) && color > 0.2f * static_cast<float>(c.lights);
        if (!lit || (c.shader == "Blinn" && std::fabs(color - by_hand) > 1e-4f * by_hand)) {
            std::fprintf(stderr, "%s shows %g; Blinn's sum is %g\n", c.name.c_str(), color, by_hand);
            return false;
        }
    }
    return true;
}

// ---- runs

// Out of line and by this name: bench/instructions counts what happens in it.
constexpr int counted_calls = 1000;
[[gnu::noinline]] void counted_samples(Surface& surface, const Case& c) {
    for (int k = 0; k < counted_calls; ++k)
        benchmark::DoNotOptimize(surface.sample(c));
}

void run(benchmark::State& times, Surface& surface, const Case& c) {
    for (auto _ : times)
        benchmark::DoNotOptimize(surface.sample(c));
}

void run_plain(benchmark::State& times, const Surface& surface, std::vector<PlainLight>& plain, int lights) {
    for (auto _ : times) {
        benchmark::DoNotOptimize(plain.data());
        benchmark::ClobberMemory();
        benchmark::DoNotOptimize(plain_blinn(surface.state(), plain, lights));
    }
}

// ---- after the runs

struct Line {
    double at_zero, slope, r_squared;
};

Line fitted_line(const std::vector<double>& x, const std::vector<double>& y) {
    const auto n = static_cast<double>(x.size());
    double sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0;
    for (std::size_t k = 0; k < x.size(); ++k) {
        sx += x[k], sy += y[k];
        sxx += x[k] * x[k], sxy += x[k] * y[k], syy += y[k] * y[k];
    }
    const double covariance = sxy - sx * sy / n, spread = sxx - sx * sx / n;
    const double slope = covariance / spread;
    return {(sy - slope * sx) / n, slope, slope * covariance / (syy - sy * sy / n)};
}

// False: the time of a model does not grow in proportion with the number of lights. Models that did not run
// at all numbers of lights are left out.
bool cost_is_linear() {
    constexpr double least_r_squared = 0.98;
    bool linear = true;
    std::printf("\n%-20s %16s %16s %12s\n", "by lights", "without [ns]", "each light [ns]", "R squared");
    for (const Model& model : models) {
        std::vector<double> lights, times;
        for (const int count : light_counts) {
            lights.push_back(count);
            times.push_back(bench::fastest(ours(count, model.name).c_str()));
        }
        if (std::find(times.begin(), times.end(), 0.0) != times.end())
            continue;
        const Line line = fitted_line(lights, times);
        std::printf("%-20s %16.1f %16.1f %12.5f\n", model.name, line.at_zero, line.slope, line.r_squared);
        linear = linear && line.r_squared >= least_r_squared;
    }
    return linear;
}

using Shares = std::array<double, 3>; // seconds of material, model, lights

Shares timed_shares(Surface& surface, const Case& c) {
    stage::Statistics& statistics = surface.statistics() = {};
    statistics.start_clock();
    counted_samples(surface, c);
    const auto seconds = [&](miShader_type type) {
        return std::chrono::duration<double>(statistics.of(stage::family_of(type)).own).count();
    };
    return {seconds(miSHADER_MATERIAL), seconds(miSHADER_TEXTURE), seconds(miSHADER_LIGHT)};
}

// By the stage's own statistics, of the quickest of some rounds: what a shader calls of the interface counts
// as its own, the material's work within the model as the model's, and each change of shaders costs a look at
// the clock.
void print_shares(Surface& surface) {
    constexpr int lights = 8, rounds = 20;
    std::printf("\n%-20s %14s %14s %14s\n", "time under 8 lights", "material", "model", "lights");
    for (const Case& c : surface.cases()) {
        if (c.name != ours(lights, c.shader.c_str()))
            continue;
        const auto total = [](const Shares& s) { return s[0] + s[1] + s[2]; };
        Shares quickest = timed_shares(surface, c);
        for (int round = 1; round < rounds; ++round)
            if (const Shares shares = timed_shares(surface, c); total(shares) < total(quickest))
                quickest = shares;
        const double percent = 100.0 / total(quickest);
        std::printf("%-20s %12.1f %% %12.1f %% %12.1f %%\n", c.shader.c_str(), percent * quickest[0],
                    percent * quickest[1], percent * quickest[2]);
    }
    surface.statistics() = {};
}

bool nothing_allocates(Surface& surface) {
    return bench::nothing_allocates(counted_calls, [&] {
        for (const Case& c : surface.cases())
            counted_samples(surface, c);
    });
}

} // namespace

int main(int argc, char** argv) {
    Surface surface;
    std::vector<PlainLight> plain;
    for (int k = 0; k < most_lights; ++k)
        plain.push_back({light_position(k), {1, 1, 1, 1}});
    if (!cases_are_lit(surface, plain))
        return 1;
    if (argc == 2 && std::string_view(argv[1]) == "--count") {
        for (const Case& c : surface.cases())
            if (stands_beside_peers(c.lights)) {
                counted_samples(surface, c);
                std::printf("%s\n", c.name.c_str());
            }
        return 0;
    }
    for (const Case& c : surface.cases())
        benchmark::RegisterBenchmark(c.name.c_str(),
                                     [&](benchmark::State& times) { run(times, surface, c); });
    for (const int lights : light_counts)
        if (stands_beside_peers(lights))
            benchmark::RegisterBenchmark(
                ("Blinn, " + number_of(lights) + "/plain loop").c_str(),
                [&, lights](benchmark::State& times) { run_plain(times, surface, plain, lights); });
    const int code = bench::run_beside_peers(argc, argv);
    const bool linear = cost_is_linear();
    print_shares(surface);
    return nothing_allocates(surface) && linear ? code : 1;
}
