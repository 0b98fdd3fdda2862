// What one sample of a light without shadow costs, called as the stage calls lights: beside the stage's own
// small light in the same place, and beside the calls of the interface that no light can do without.
//
//     lights_bench            times
//     lights_bench --count    calls each case `counted_calls` times, for bench/instructions
//
// Lights stand on every sample's path, so none of them may allocate.
#include "mi/parser.h"
#include "orlshaderapi.h"
#include "peer_report.h"
#include "render/renderer.h"
#include "sample_allocations.h"
#include "scene/libraries.h"

#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Kind {
    const char* name;
    const char* ours;       // shader and its settings
    const char* base;       // settings of the stage's light
    const char* statements; // of the light
};
constexpr Kind kinds[] = {
    {"omni", "\"orl_OmniLight\" (", "", "origin 0 0 0"},
    {"round spot", "\"orl_SpotLight\" (\"hotspot\" 20, \"falloff\" 80,", ", \"softness\" 0.9",
     "origin 0 0 0 direction 0 0 -1 spread 0.766"},
    {"rectangular spot",
     "\"orl_SpotLight\" (\"hotspot\" 20, \"falloff\" 80, \"circular\" off, \"aspect\" 1.5,",
     ", \"softness\" 0.9", "origin 0 0 0 direction 0 0 -1 spread 0.766"},
    {"directional", "\"orl_DirectionalLight\" (\"hotspot\" 1, \"falloff\" 3,", "", "direction 0 0 -1"},
};

struct Setting {
    const char* name;
    const char* ours;
    const char* base;
    int parameters; // that a sample cannot do without
};
constexpr Setting settings[] = {
    // on, ambientOnly, contrast, useNearAtten, useFarAtten, decayType, shadowOn, projectorOn, excludeList (2)
    {"plain", "\"multiplier\" 1)", "\"shadow\" off", 10},
    // and the two ranges with the start of the decay
    {"ranges, decay",
     "\"useNearAtten\" on, \"nearAttenStart\" 2, \"nearAttenEnd\" 6, \"useFarAtten\" on, \"farAttenStart\" "
     "3, "
     "\"farAttenEnd\" 10, \"decayType\" 2, \"decayStart\" 2)",
     "\"shadow\" off, \"decay\" 2", 15},
    {"soft, contrast", "\"softenDiffuseEdge\" 50, \"contrast\" 50)", "\"shadow\" off", 10},
};

// In light space: inside every cone and beam, but outside the hotspot, 4.27 units from the light.
constexpr miVector lit_point{1.2f, 0.9f, -4.0f};

struct InterfaceParameters {
    miInteger count; // of the values that are read
    miInteger values[15];
};

// The bare interface calls of a light that answers to this library's materials.
miBoolean interface_calls(miColor* result, miState* state, const InterfaceParameters* params, void*) {
    benchmark::DoNotOptimize(orl::instance_slot(state));
    benchmark::DoNotOptimize(orl::find_record(state, orl::keys::attenuation_probe));
    miInteger sum = 0;
    for (miInteger k = 0; k < params->count; ++k)
        sum += orl::eval(state, params->values[k]);
    benchmark::DoNotOptimize(orl::find_record(state, orl::keys::light_shaping));
    miVector at;
    mi_point_to_light(state, &at, &state->point);
    const miScalar* matrix = nullptr;
    mi_query(miQ_INST_GLOBAL_TO_LOCAL, state, state->light_instance, &matrix);
    benchmark::DoNotOptimize(orl::find_record(state, orl::keys::architectural_light));
    *result = {matrix[0] + static_cast<miScalar>(sum), at.x, at.y, at.z};
    return miTRUE;
}

struct Case {
    std::string name;
    std::string light; // name of its element
    miTag shader = miNULLTAG, instance = miNULLTAG;
};

std::string declarations_beside(std::string library) {
    library.replace(library.rfind('.'), std::string::npos, ".mi");
    return "link \"" + library.substr(0, library.size() - 2) + "so\"\n$include \"" + library + "\"\n";
}

// A surface that a material of this library lights, with each case's light above it.
class Lamps {
public:
    Lamps() {
        stage::set_current_scene(&scene_);
        scene_.libraries->set_module_handle(dlopen(nullptr, RTLD_NOW)); // this program is linked with it
        scene_.libraries->define("interface_calls", reinterpret_cast<void*>(&interface_calls));
        stage::parse_text(
            scene_, scene_text(), "lamps",
            [this](stage::Scene& s, const stage::RenderCommand& c) { world_.emplace(s, c, false); });
        context_.world = &*world_;
        for (Case& c : cases_) {
            c.instance = scene_.database.find(c.light + ".i")->tag;
            c.shader = scene_.database.find(c.light)->as<miLight>()->shader;
        }
        set_state();
    }
    const std::vector<Case>& cases() const { return cases_; }

    miBoolean sample(const Case& c, miColor& color) {
        state_.light_instance = c.instance;
        return mi_call_shader_x(&color, miSHADER_LIGHT, &state_, c.shader, nullptr);
    }

private:
    std::string scene_text() {
        std::string text = declarations_beside(ORL_FILE_STAGE_BASE) +
                           declarations_beside(ORL_FILE_ORLSHADERS) +
                           "declare shader color \"interface_calls\" (integer \"count\"";
        for (int k = 0; k < 15; ++k)
            text += ", integer \"value_" + std::to_string(k) + "\"";
        text += ") version 0 apply light end declare\n"
                "options \"opt\" end options\n"
                "camera \"cam\" focal 1 aperture 1 aspect 1 resolution 16 16 end camera\n"
                "instance \"cam_inst\" \"cam\" end instance\n";
        std::string members;
        for (const Kind& kind : kinds)
            for (const Setting& setting : settings) {
                const std::string subject = std::string(kind.name) + " (" + setting.name + ")";
                const auto add = [&](const char* who, const std::string& shader) {
                    const std::string light = subject + who;
                    cases_.push_back({light, light});
                    text += "light \"" + light + "\" " + shader + " " + kind.statements + " energy 1 1 1" +
                            " end light instance \"" + light + ".i\" \"" + light + "\" end instance\n";
                    members += " \"" + light + ".i\"";
                };
                add("/ours", std::string(kind.ours) + setting.ours);
                add("/base light", std::string("\"base_light\" (") + setting.base + kind.base + ")");
                add("/interface calls",
                    "\"interface_calls\" (\"count\" " + std::to_string(setting.parameters) + ")");
            }
        return text + "instgroup \"root\" \"cam_inst\"" + members +
               " end instgroup\nrender \"root\" \"cam_inst\" \"opt\"\n";
    }

    // As the stage leaves it for a light that it samples.
    void set_state() {
        state_.renderer = &context_;
        state_.options = scene_.database.find("opt")->as<miOptions>();
        asker_ = state_;
        state_.parent = &asker_;
        state_.pri = &asker_; // whatever: there is a surface
        state_.type = miRAY_LIGHT;
        state_.point = lit_point;
        state_.dist = mi_vector_norm(&lit_point);
        state_.dir = lit_point;
        mi_vector_normalize(&state_.dir);
        state_.normal = {0, 0, 1};
        state_.dot_nd = -state_.dir.z;
        shaping_.emplace(&state_, orl::keys::light_shaping, orl::LightShapingRecord{0, 1, 0, 3});
    }

    stage::Scene scene_;
    std::optional<stage::World> world_;
    stage::ThreadContext context_;
    miState state_{}, asker_{};
    std::optional<orl::ScopedRecord<orl::LightShapingRecord>> shaping_;
    std::vector<Case> cases_;
};

// Out of line and by this name: bench/instructions counts what happens in it.
constexpr int counted_calls = 1000;
[[gnu::noinline]] void counted_samples(Lamps& lamps, const Case& c) {
    miColor color{};
    for (int k = 0; k < counted_calls; ++k)
        benchmark::DoNotOptimize(lamps.sample(c, color));
}

void run(benchmark::State& times, Lamps& lamps, const Case& c) {
    miColor color{};
    for (auto _ : times)
        benchmark::DoNotOptimize(lamps.sample(c, color));
}

// Every light lights the point, or the times are those of another path. False: it does not.
bool lights_the_point(Lamps& lamps, const Case& c) {
    miColor color{};
    if (lamps.sample(c, color) && color.r > 0.0f && std::isfinite(color.r))
        return true;
    std::fprintf(stderr, "%s gives no light\n", c.name.c_str());
    return false;
}

bool nothing_allocates(Lamps& lamps) {
    return bench::nothing_allocates(counted_calls, [&] {
        for (const Case& c : lamps.cases())
            counted_samples(lamps, c);
    });
}

} // namespace

int main(int argc, char** argv) {
    Lamps lamps;
    for (const Case& c : lamps.cases())
        if (!lights_the_point(lamps, c)) // and the first call of an instance may allocate
            return 1;
    if (argc == 2 && std::string_view(argv[1]) == "--count") {
        for (const Case& c : lamps.cases()) {
            counted_samples(lamps, c);
            std::printf("%s\n", c.name.c_str());
        }
        return 0;
    }
    for (const Case& c : lamps.cases())
        benchmark::RegisterBenchmark(c.name.c_str(), [&](benchmark::State& times) { run(times, lamps, c); });
    const int code = bench::run_beside_peers(argc, argv);
    return nothing_allocates(lamps) ? code : 1;
}
