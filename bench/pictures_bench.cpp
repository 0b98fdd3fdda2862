// A whole picture beside POV-Ray's: a ball on the ground under one light with shadows, one ray through the
// middle of each pixel. POV-Ray has the ball as a sphere, which is what its users take, and as the stage's
// triangles. Times are those of tracing alone: POV-Ray tells its own, without start and parsing. Beside them
// the processor time of all threads, which tells more where other programs run too.
//
//     pictures_bench                      times
//     pictures_bench --pictures FOLDER    writes the three pictures there, to be looked at
#include "mi/parser.h"
#include "peer_report.h"
#include "render/renderer.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <map>
#include <numbers>
#include <optional>
#include <string>

namespace {

constexpr int width = 1600, height = 1200;
constexpr int columns = 128, rows = 64; // of the ball

std::string ball() {
    std::string text = "object \"ball\" visible shadow trace group\n";
    for (int j = 0; j <= rows; ++j)
        for (int i = 0; i <= columns; ++i) {
            const double polar = std::numbers::pi * j / rows, turn = 2.0 * std::numbers::pi * i / columns;
            char line[200];
            const double x = std::sin(polar) * std::cos(turn), y = std::cos(polar),
                         z = -std::sin(polar) * std::sin(turn);
            std::snprintf(line, sizeof line, "%.9f %.9f %.9f  %.9f %.9f %.9f\n", x, y + 1.0, z, x, y, z);
            text += line;
        }
    const auto number = [](int i, int j) { return std::to_string(j * (columns + 1) + i) + ' '; };
    for (int k = 0; k < (columns + 1) * (rows + 1); ++k)
        text += "v " + std::to_string(2 * k) + " n " + std::to_string(2 * k + 1) + '\n';
    for (int j = 0; j < rows; ++j)
        for (int i = 0; i < columns; ++i) {
            const std::string a = number(i, j), b = number(i, j + 1), c = number(i + 1, j + 1),
                              d = number(i + 1, j);
            if (j < rows - 1)
                text += "p \"red\" " + a + b + c + '\n';
            if (j > 0)
                text += "p \"red\" " + a + c + d + '\n';
        }
    return text + "end group end object\ninstance \"ball_inst\" \"ball\" end instance\n";
}

std::string scene_text() {
    return "link \"" ORL_FILE_STAGE_BASE "\"\n"
           "$include \"" ORL_FILE_STAGE_BASE_MI "\"\n"
           "options \"opt\" samples 0 0 jitter 0 end options\n"
           // Looks from (0, 4, 4) to the ball's middle.
           "camera \"cam\" focal 1.5 aperture 1 aspect 1.3333333 resolution " +
           std::to_string(width) + ' ' + std::to_string(height) +
           " end camera\n"
           "instance \"cam_inst\" \"cam\" transform 1 0 0 0  0 0.8 0.6 0  0 -0.6 0.8 0  0 -0.8 -5.6 1 "
           "end instance\n"
           "light \"lamp\" \"base_light\" (\"color\" 1 1 1) origin -3 5 3 end light\n"
           "instance \"lamp_inst\" \"lamp\" end instance\n"
           "material \"red\" opaque \"base_lambert\" (\"diffuse\" 0.8 0.3 0.2) end material\n"
           "material \"grey\" opaque \"base_lambert\" (\"diffuse\" 0.6 0.6 0.55) end material\n" +
           ball() +
           "object \"ground\" visible shadow trace group\n"
           "-50 0 50  50 0 50  50 0 -50  -50 0 -50  v 0 v 1 v 2 v 3 p \"grey\" 0 1 2 3\n"
           "end group end object\n"
           "instance \"ground_inst\" \"ground\" end instance\n"
           "instgroup \"root\" \"cam_inst\" \"lamp_inst\" \"ball_inst\" \"ground_inst\" end instgroup\n"
           "render \"root\" \"cam_inst\" \"opt\"\n";
}

struct Loaded {
    stage::Scene scene;
    std::optional<stage::RenderCommand> command;

    Loaded() {
        stage::set_current_scene(&scene);
        stage::parse_text(scene, scene_text(), "ball",
                          [this](stage::Scene&, const stage::RenderCommand& c) { command = c; });
    }
    static Loaded& get() {
        static Loaded loaded;
        return loaded;
    }
};

struct Times { // seconds
    double wall = 0.0, processor = 0.0;
};

// The least of each case's runs.
std::map<std::string, double>& processor_times() {
    static std::map<std::string, double> times;
    return times;
}

void take(benchmark::State& run, const std::string& name, const Times& times) {
    run.SetIterationTime(times.wall);
    const auto [known, added] = processor_times().try_emplace(name, times.processor);
    if (!added)
        known->second = std::min(known->second, times.processor);
}

double processor_seconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

void stage_picture(benchmark::State& run, const std::string& name, int threads) {
    Loaded& loaded = Loaded::get();
    stage::RenderSettings settings;
    settings.threads = threads;
    settings.progress = false;
    stage::Renderer renderer(loaded.scene, *loaded.command, settings);
    for (auto _ : run) {
        const auto start = std::chrono::steady_clock::now();
        const double processor_start = processor_seconds();
        renderer.render();
        const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
        take(run, name, {wall.count(), processor_seconds() - processor_start});
    }
}

// As POV-Ray tells them; nothing when it fails.
std::optional<Times> pov_picture(int threads, bool triangles, const std::string& options) {
    const std::string command = "povray +I" ORL_BENCH_FOLDER "/pictures/ball.pov -D -P -V -A +WT" +
                                std::to_string(threads) + " +W" + std::to_string(width) + " +H" +
                                std::to_string(height) + " Declare=Triangles=" + (triangles ? "1 " : "0 ") +
                                options + " 2>&1";
    std::FILE* output = popen(command.c_str(), "r");
    if (!output)
        return std::nullopt;
    std::optional<Times> times;
    char line[500];
    while (std::fgets(line, sizeof line, output)) {
        // "  Trace Time: 0 hours 0 minutes 1 seconds (1.903 seconds)", and on the next line
        // "              using 1 thread(s) with 0.681 CPU-seconds total"
        Times found;
        if (std::sscanf(line, " Trace Time: %*d hours %*d minutes %*d seconds (%lf seconds)", &found.wall) ==
                1 &&
            std::fgets(line, sizeof line, output) &&
            std::sscanf(line, " using %*d thread(s) with %lf CPU-seconds", &found.processor) == 1)
            times = found;
    }
    return pclose(output) == 0 ? times : std::nullopt;
}

void pov(benchmark::State& run, const std::string& name, int threads, bool triangles) {
    for (auto _ : run) {
        const std::optional<Times> times = pov_picture(threads, triangles, "-F");
        if (!times)
            return run.SkipWithError("POV-Ray did not render the scene; is povray installed?");
        take(run, name, *times);
    }
}

std::string subject(int threads) {
    return "ball, " + std::to_string(threads) + (threads == 1 ? " thread/" : " threads/");
}

void register_cases() {
    const auto add = [](const std::string& name, auto function, auto... arguments) {
        benchmark::RegisterBenchmark(name.c_str(), function, name, arguments...)
            ->UseManualTime()
            ->Iterations(1);
    };
    for (const int threads : {1, 2}) {
        add(subject(threads) + "ours", stage_picture, threads);
        add(subject(threads) + "POV-Ray, sphere", pov, threads, false);
        add(subject(threads) + "POV-Ray, triangles", pov, threads, true);
    }
}

void print_processor_times() {
    std::printf("\n%-40s %-32s %14s %14s %8s\n", "processor time", "peer", "ours [s]", "peer [s]", "ratio");
    for (const int threads : {1, 2})
        for (const char* peer : {"POV-Ray, sphere", "POV-Ray, triangles"}) {
            const double ours = processor_times()[subject(threads) + "ours"];
            const double theirs = processor_times()[subject(threads) + peer];
            std::printf("ball, %d thread(s) %22s %-32s %14.3f %14.3f %8.3f\n", threads, "", peer, ours,
                        theirs, ours / theirs);
        }
}

int write_pictures(const std::string& folder) {
    Loaded& loaded = Loaded::get();
    stage::RenderSettings settings;
    settings.outputs = {folder + "/ball.png"};
    stage::Renderer renderer(loaded.scene, *loaded.command, settings);
    renderer.render();
    renderer.write_pictures();
    return pov_picture(1, false, "+FN +O" + folder + "/pov_sphere.png") &&
                   pov_picture(1, true, "+FN +O" + folder + "/pov_triangles.png")
               ? 0
               : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--pictures") == 0)
        return write_pictures(argv[2]);
    register_cases();
    const int code = bench::run_beside_peers(argc, argv);
    print_processor_times();
    return code;
}
