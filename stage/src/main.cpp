// The command line of the stage: reads a scene and renders what it asks for.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "command_line.h"
#include "image/picture_file.h"
#include "kit/message.h"
#include "message_log.h"
#include "mi/parser.h"
#include "render/ranks.h"
#include "render/renderer.h"
#include "scene/libraries.h"
#include "scene/scene.h"

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// When the frame was told to stop, in ticks of the clock.
std::atomic<Clock::rep> stopped_at{0};
static_assert(std::atomic<Clock::rep>::is_always_lock_free); // signal handlers use it

// The first Ctrl-C stops the frame, a second one the program.
extern "C" void stop_program(int signal) {
    stage::remove_unfinished_picture();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// Programs that stop others, such as timeout(1), tell the process and then its group: two signals at once are
// one wish.
extern "C" void stop_again(int signal) {
    constexpr Clock::duration at_once = std::chrono::milliseconds(200);
    if (Clock::now().time_since_epoch().count() - stopped_at.load() > at_once.count())
        stop_program(signal);
}

extern "C" void stop_rendering(int signal) {
    stopped_at = Clock::now().time_since_epoch().count();
    std::signal(signal, stop_again);
    if (stage::Renderer* renderer = stage::current_renderer())
        renderer->abort();
    else
        stop_program(signal);
}

// "name.png" and 3: "name.0003.png".
std::string numbered(const std::string& path, int number) {
    char digits[16];
    std::snprintf(digits, sizeof digits, ".%04d", number);
    return stage::before_ending(path, digits);
}

bool silent = false; // another process tells the user

// On a terminal a message takes the place of the progress line, which comes again below it.
void show_message(stage::MessageLevel level, std::string_view text) {
    static const bool terminal = isatty(STDERR_FILENO) != 0;
    if (silent && level != stage::MessageLevel::fatal)
        return;
    if (terminal)
        std::fputs("\r\033[K", stderr);
    stage::write_message(level, text);
}

// Kept until the process is gone: shader modules send messages while they are unloaded.
stage::MessageLog& message_log() {
    static auto* const log = new stage::MessageLog(show_message);
    return *log;
}

// What was installed with this program: looked into last.
void add_installed_folders(std::vector<std::string>& search_path) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path folder = fs::read_symlink("/proc/self/exe", error).parent_path();
    for (const char* installed : {ORL_INSTALLED_LIBRARIES, ORL_INSTALLED_SCENES})
        if (const fs::path path = (folder / installed).lexically_normal(); fs::is_directory(path, error))
            search_path.push_back(path.string());
}

// What a process has to tell of a frame: its statistics, then its messages.
std::string report_of(const stage::Statistics& statistics) {
    static_assert(std::is_trivially_copyable_v<stage::Statistics>);
    std::string report(sizeof statistics, ' ');
    std::memcpy(report.data(), &statistics, sizeof statistics);
    return report + message_log().hand_over();
}

stage::Statistics take_report(const std::string& report) {
    stage::Statistics statistics;
    std::memcpy(static_cast<void*>(&statistics), report.data(), sizeof statistics);
    message_log().take_over(report.substr(sizeof statistics));
    return statistics;
}

// Renders the frames of one scene file.
class Session {
public:
    Session(const CommandLine& line, stage::Ranks& ranks) : line_(line), ranks_(ranks) {}
    int run();

private:
    void frame(stage::Scene& scene, const stage::RenderCommand& command);
    void meet_others(const stage::Renderer& renderer);
    stage::Statistics collect(const stage::Renderer& renderer);
    void write(stage::Renderer& renderer, const stage::Statistics& statistics, stage::FrameTimes& times);
    [[nodiscard]] stage::RenderSettings settings() const;
    void number_first_frame();
    void print_warnings(const stage::Scene& scene);

    const CommandLine& line_;
    stage::Ranks& ranks_;
    int frames_ = 0;
    bool stopped_ = false, failed_ = false;
    std::size_t warnings_ = 0;
    double rendering_ = 0.0; // seconds
    std::vector<std::string> first_pictures_;
};

// Thrown through the parser when the user stopped a frame: no further statement is read.
struct Stopped {};

stage::RenderSettings Session::settings() const {
    stage::RenderSettings s;
    s.threads = line_.threads;
    if (const auto& r = line_.region; r.size() == 4)
        s.region = {r[0], r[1], r[2], r[3]};
    if (const auto& r = line_.resolution; r.size() == 2)
        s.resolution = {r[0], r[1]};
    if (line_.samples > 0)
        s.samples = line_.samples;
    s.seed = line_.seed;
    s.camera_space = line_.space == "camera";
    s.statistics = line_.statistics;
    s.progress = !line_.quiet;
    s.ranks = &ranks_;
    s.outputs = line_.outputs;
    s.default_output = std::filesystem::path(line_.scene).stem().string() + ".png";
    if (frames_ > 1) {
        for (std::string& path : s.outputs)
            path = numbered(path, frames_);
        s.default_output = numbered(s.default_output, frames_);
    }
    return s;
}

// Only a second frame shows that the first one's pictures should have had a number.
void Session::number_first_frame() {
    for (const std::string& path : first_pictures_) {
        std::filesystem::rename(path, numbered(path, 1));
        std::printf("%s is now %s\n", path.c_str(), numbered(path, 1).c_str());
    }
    first_pictures_.clear();
}

void Session::print_warnings(const stage::Scene& scene) {
    for (; ranks_.leads() && warnings_ < scene.warnings.size(); ++warnings_)
        std::fprintf(stderr, "warning: %s\n", scene.warnings[warnings_].c_str());
}

// Ready to render: the same frame, as far as that can be seen.
void Session::meet_others(const stage::Renderer& renderer) {
    const std::vector<std::string> outlines = ranks_.meet(renderer.outline());
    for (std::size_t k = 1; k < outlines.size(); ++k)
        if (outlines[k] != outlines[0])
            throw std::runtime_error("process " + std::to_string(k) +
                                     " has read another scene: " + outlines[k] + "; here " + outlines[0]);
}

// The sum over all processes, and all their messages, for the leading one.
stage::Statistics Session::collect(const stage::Renderer& renderer) {
    stage::Statistics sum = renderer.statistics();
    const std::vector<std::string> reports = ranks_.meet(ranks_.leads() ? "" : report_of(sum));
    for (std::size_t k = 1; ranks_.leads() && k < reports.size(); ++k)
        sum += take_report(reports[k]);
    return sum;
}

void Session::frame(stage::Scene& scene, const stage::RenderCommand& command) {
    print_warnings(scene);
    const auto most = line_.quiet ? stage::MessageLevel::warning : stage::MessageLevel::debug;
    if (scene.verbosity >= 0)
        stage::set_message_level(static_cast<stage::MessageLevel>(std::clamp(
            scene.verbosity, static_cast<int>(stage::MessageLevel::error), static_cast<int>(most))));
    ++frames_;
    const Clock::time_point start = Clock::now();
    stage::FrameTimes times;
    stage::Renderer renderer(scene, command, settings());
    times.build = since(start);
    meet_others(renderer);

    const Clock::time_point rendering = Clock::now();
    renderer.render();
    times.render = since(rendering);
    times.photons = renderer.photon_time();
    const stage::Statistics statistics = collect(renderer);
    if (ranks_.leads())
        write(renderer, statistics, times);
    rendering_ += since(start);
    ranks_.meet(
        ""); // nobody reads on before the pictures are written: they may be textures of the next frame
    failed_ = renderer.gave_up();
    // While the pictures were written too: no other frame follows.
    if (renderer.aborted())
        throw Stopped{};
}

void Session::write(stage::Renderer& renderer, const stage::Statistics& statistics,
                    stage::FrameTimes& times) {
    const Clock::time_point writing = Clock::now();
    message_log().summarise();
    if (frames_ == 2)
        number_first_frame();
    const std::vector<std::string> pictures = renderer.write_pictures();
    // Names in the scene are the scene's to number.
    if (frames_ == 1 && (!line_.outputs.empty() || pictures.front() == settings().default_output))
        first_pictures_ = pictures;
    times.write = since(writing);

    for (const std::string& picture : pictures)
        std::printf("%s\n", picture.c_str());
    if (line_.statistics)
        stage::print_statistics(stdout, statistics, times, renderer.world().memory());
    if (statistics.bad_samples > 0)
        std::fprintf(
            stderr, "warning: %llu of %llu samples (%.3g %%) were NaN or infinite and count as black\n",
            static_cast<unsigned long long>(statistics.bad_samples),
            static_cast<unsigned long long>(statistics.samples),
            100.0 * static_cast<double>(statistics.bad_samples) / static_cast<double>(statistics.samples));
    if (!renderer.complete())
        std::fprintf(stderr, "stopped: what was finished is in %s; no finished picture was replaced\n",
                     pictures.front().c_str());
}

int Session::run() {
    stage::Scene scene;
    stage::set_current_scene(&scene);
    scene.search_path = line_.libraries;
    add_installed_folders(scene.search_path);
    Dl_info own{};
    if (dladdr(reinterpret_cast<const void*>(&stage::current_renderer), &own) && own.dli_fname)
        scene.libraries->set_module_handle(dlopen(own.dli_fname, RTLD_NOW | RTLD_NOLOAD));

    const Clock::time_point start = Clock::now();
    try {
        stage::parse_file(scene, line_.scene,
                          [&](stage::Scene& s, const stage::RenderCommand& command) { frame(s, command); });
    } catch (const Stopped&) {
        stopped_ = true;
    }
    print_warnings(scene);
    if (line_.statistics && ranks_.leads())
        std::printf("%-16s %15.3f s\n", "time to read", since(start) - rendering_);
    if (frames_ == 0 && ranks_.leads())
        std::fprintf(stderr, "%s has no render statement: nothing to do (scenes may include it)\n",
                     line_.scene.c_str());
    stage::set_current_scene(nullptr);
    return failed_ ? 1 : stopped_ ? 130 : frames_ > 0 ? 0 : 1;
}

int run(int argc, char** argv, stage::Ranks& ranks) {
    CommandLine line;
    if (const std::optional<int> code = read_command_line(line, argc, argv, ranks.leads()))
        return ranks.end(*code, "");
    std::signal(SIGINT, stop_rendering);
    if (line.quiet)
        stage::set_message_level(stage::MessageLevel::warning);
    if (ranks.count() > 1)
        std::signal(SIGTERM, stop_rendering); // what mpirun makes of Ctrl-C
    silent = !ranks.leads();
    if (silent && !std::freopen("/dev/null", "w", stdout)) // scenes may echo something
        std::fclose(stdout);
    stage::set_message_sink(
        [](stage::MessageLevel level, std::string_view text) { message_log().take(level, text); });
    int code = 1;
    std::string failure;
    try {
        complete(line);
        code = Session(line, ranks).run();
    } catch (const std::exception& error) {
        failure = error.what();
    }
    code = ranks.end(code, failure);
    message_log().summarise();
    return code;
}

} // namespace

int main(int argc, char** argv) {
    try {
        const std::unique_ptr<stage::Ranks> ranks = stage::join_ranks();
        return run(argc, argv, *ranks);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
