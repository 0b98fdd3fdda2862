// Sums and prints what a frame took.
#include "render/statistics.h"

#include <string>
#include <utility>

namespace stage {

namespace {

using Count = std::uint64_t Statistics::*;

constexpr std::pair<const char*, Count> sample_counts[] = {
    {"samples", &Statistics::samples},
    {"bad samples", &Statistics::bad_samples},
    {"light samples", &Statistics::light_samples},
};

constexpr std::pair<const char*, Count> photon_counts[] = {
    {"photons emitted", &Statistics::photons_emitted},
    {"photons kept", &Statistics::photons_kept},
};

constexpr std::pair<const char*, Count> ray_counts[] = {
    {"eye", &Statistics::eye_rays},
    {"reflection", &Statistics::reflection_rays},
    {"refraction", &Statistics::refraction_rays},
    {"transparency", &Statistics::transparent_rays},
    {"continued", &Statistics::continued_rays},
    {"shadow", &Statistics::shadow_rays},
    {"environment", &Statistics::environment_rays},
    {"probe", &Statistics::probe_rays},
    {"gathering", &Statistics::gathering_rays},
};

constexpr std::array<const char*, static_cast<std::size_t>(Family::count)> family_names = {
    "lens",          "material", "light",        "shadow",          "environment", "volume",   "texture",
    "photon",        "geometry", "displacement", "photon emission", "output",      "default",  "light map",
    "photon volume", "state",    "contour",      "first calls",     "ray casting", "renderer",
};

// "1,234,567"
std::string grouped(std::uint64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t place = digits.size(); place > 3; place -= 3)
        digits.insert(place - 3, 1, ',');
    return digits;
}

// Nothing where there is nothing to divide by.
double quotient(double a, double b) {
    return b > 0.0 ? a / b : 0.0;
}

void print_rays(std::FILE* file, const Statistics& s, double seconds) {
    std::uint64_t all = 0;
    for (const auto& [name, count] : ray_counts)
        all += s.*count;
    const auto print = [&](const char* name, std::uint64_t count) {
        const auto number = static_cast<double>(count);
        std::fprintf(file, "%-16s %15s %9.1f %% %15s\n", name, grouped(count).c_str(),
                     100.0 * quotient(number, static_cast<double>(all)),
                     grouped(static_cast<std::uint64_t>(quotient(number, seconds))).c_str());
    };
    std::fprintf(file, "\n%-16s %15s %11s %15s\n", "rays", "number", "of all", "a second");
    for (const auto& [name, count] : ray_counts)
        if (s.*count > 0)
            print(name, s.*count);
    print("all", all);
}

void print_families(std::FILE* file, const Statistics& s) {
    using Seconds = std::chrono::duration<double>;
    constexpr auto renderer = static_cast<std::size_t>(Family::renderer); // runs once in each thread
    Seconds all{};
    for (const Statistics::Work& work : s.families)
        all += work.own;
    std::fprintf(file, "\n%-16s %15s %11s %15s %15s\n", "shaders", "calls", "of all", "own time [s]",
                 "a call [ns]");
    for (std::size_t i = 0; i < s.families.size(); ++i) {
        const auto& [calls, own] = s.families[i];
        if (calls == 0)
            continue;
        const double seconds = Seconds(own).count();
        std::fprintf(file, "%-16s %15s %9.1f %% %15.3f", family_names[i],
                     i == renderer ? "" : grouped(calls).c_str(), 100.0 * quotient(seconds, all.count()),
                     seconds);
        if (i != renderer)
            std::fprintf(file, " %15.0f", 1e9 * quotient(seconds, static_cast<double>(calls)));
        std::fputc('\n', file);
    }
    std::fprintf(file, "%-16s %15s %9.1f %% %15.3f\n", "all threads", "", 100.0, all.count());
}

} // namespace

Statistics& Statistics::operator+=(const Statistics& other) {
    for (const auto& [name, count] : sample_counts)
        this->*count += other.*count;
    for (const auto& [name, count] : photon_counts)
        this->*count += other.*count;
    for (const auto& [name, count] : ray_counts)
        this->*count += other.*count;
    for (std::size_t i = 0; i < families.size(); ++i) {
        families[i].calls += other.families[i].calls;
        families[i].own += other.families[i].own;
    }
    return *this;
}

void Statistics::start_clock() {
    timed_ = true;
    running_ = Family::renderer;
    since_ = Clock::now();
}

Family Statistics::change_to(Family family) {
    const Clock::time_point now = Clock::now();
    of(running_).own += now - since_;
    since_ = now;
    return std::exchange(running_, family);
}

void print_statistics(std::FILE* file, const Statistics& s, const FrameTimes& times,
                      std::size_t scene_bytes) {
    for (const auto& [name, count] : sample_counts)
        std::fprintf(file, "%-16s %15s\n", name, grouped(s.*count).c_str());
    if (s.photons_emitted > 0) {
        for (const auto& [name, count] : photon_counts)
            std::fprintf(file, "%-16s %15s\n", name, grouped(s.*count).c_str());
        std::fprintf(file, "%-16s %15.3f s\n", "photons' time", times.photons);
    }
    std::fprintf(
        file, "%-16s %15s\n", "samples/second",
        grouped(static_cast<std::uint64_t>(quotient(static_cast<double>(s.samples), times.render))).c_str());
    print_rays(file, s, times.render);
    print_families(file, s);
    std::fprintf(file, "\n%-16s %15s kB\n", "Embree's memory", grouped((scene_bytes + 500) / 1000).c_str());
    const std::pair<const char*, double> rows[] = {
        {"time to build", times.build}, {"time to render", times.render}, {"time to write", times.write}};
    for (const auto& [name, seconds] : rows)
        std::fprintf(file, "%-16s %15.3f s\n", name, seconds);
}

} // namespace stage
