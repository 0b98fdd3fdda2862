// Reading a scene file with a million triangles, beside the least that any reader of it must do: a loop that
// turns each number of the same file into a float. And the memory that the scene takes, beside what Embree
// takes for the same mesh.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <stdexcept>
#include <string>

#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>

#include "mi/parser.h"
#include "peer_report.h"
#include "scene/scene.h"

namespace {

constexpr int around = 1000, across = 500; // twice as many triangles as the product

// A torus with normals and texture coordinates, written as a modelling program would.
void write_file(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        throw std::runtime_error("cannot write " + path);
    std::fputs("declare data \"none\" ( ) end declare\nobject \"torus\" visible shadow trace\ngroup\n", file);
    const auto each = [](auto&& visit) {
        for (int i = 0; i < around; ++i)
            for (int j = 0; j < across; ++j)
                visit(i, j, 2.0 * std::numbers::pi * i / around, 2.0 * std::numbers::pi * j / across);
    };
    each([&](int, int, double u, double v) {
        const double r = 3.0 + std::cos(v);
        std::fprintf(file, "%.6f %.6f %.6f\n", r * std::cos(u), r * std::sin(u), std::sin(v));
    });
    each([&](int, int, double u, double v) {
        std::fprintf(file, "%.6f %.6f %.6f\n", std::cos(v) * std::cos(u), std::cos(v) * std::sin(u),
                     std::sin(v));
    });
    each([&](int i, int j, double, double) {
        std::fprintf(file, "%.6f %.6f 0\n", double(i) / around, double(j) / across);
    });
    constexpr int count = around * across;
    for (int k = 0; k < count; ++k)
        std::fprintf(file, "v %d n %d t %d\n", k, count + k, 2 * count + k);
    each([&](int i, int j, double, double) {
        const int a = i * across + j, b = (i + 1) % around * across + j;
        const int c = (i + 1) % around * across + (j + 1) % across, d = i * across + (j + 1) % across;
        std::fprintf(file, "p %d %d %d\np %d %d %d\n", a, b, c, a, c, d);
    });
    std::fputs("end group\nend object\n", file);
    std::fclose(file);
}

const std::string& file_name() {
    static const std::string name = [] {
        std::string path =
            (std::filesystem::temp_directory_path() / ("scene_reading_" + std::to_string(getpid()) + ".mi"))
                .string();
        write_file(path);
        return path;
    }();
    return name;
}

void read_scene(benchmark::State& run) {
    for (auto _ : run) {
        stage::Scene scene;
        stage::parse_file(scene, file_name(), nullptr);
        benchmark::DoNotOptimize(scene.database.size());
    }
}
BENCHMARK(read_scene)->Name("scene reading/ours")->Unit(benchmark::kMillisecond);

void read_numbers(benchmark::State& run) {
    for (auto _ : run) {
        std::string text(std::filesystem::file_size(file_name()), '\0');
        std::ifstream(file_name(), std::ios::binary)
            .read(text.data(), static_cast<std::streamsize>(text.size()));
        float sum = 0.0f;
        for (const char* at = text.c_str(); *at;) {
            char* end = nullptr;
            const float value = std::strtof(at, &end);
            sum += end == at ? 0.0f : value;
            at = end == at ? at + 1 : end;
        }
        benchmark::DoNotOptimize(sum);
    }
}
BENCHMARK(read_numbers)->Name("scene reading/strtof loop")->Unit(benchmark::kMillisecond);

// ---- memory --------------------------------------------------------------------------------------

// Runs `work` in a process of its own and returns the number that it hands back.
template <class Work> double in_child(Work&& work) {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child == 0) {
        const double result = work();
        const bool written = write(ends[1], &result, sizeof result) == sizeof result;
        _exit(written ? 0 : 1);
    }
    double result = 0.0;
    const bool read_back = read(ends[0], &result, sizeof result) == sizeof result;
    waitpid(child, nullptr, 0);
    if (!read_back)
        throw std::runtime_error("a measuring process failed");
    return result;
}

// A line of /proc/self/status, in MB.
double status_megabytes(const char* key) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == key) {
            double kilobytes = 0.0;
            status >> kilobytes;
            return kilobytes / 1024.0;
        }
    return 0.0;
}

// The largest part of main memory taken while the file is read, the mapped file included.
double peak_of_reading() {
    std::ofstream("/proc/self/clear_refs") << "5"; // the peak starts anew here
    const double before = status_megabytes("VmRSS:");
    stage::Scene scene;
    stage::parse_file(scene, file_name(), nullptr);
    return status_megabytes("VmHWM:") - before;
}

double size_of_scene() {
    stage::Scene scene;
    stage::parse_file(scene, file_name(), nullptr);
    const auto& geometry = *scene.database.find(std::string_view("torus"))->geometry;
    return static_cast<double>(geometry.vertices.capacity() * 4 + geometry.indices.capacity() * 4 +
                               geometry.materials.capacity() * 4) /
           (1 << 20);
}

std::atomic<std::ptrdiff_t> embree_bytes{0}, embree_peak{0};

bool note_memory(void*, ssize_t bytes, bool) {
    const std::ptrdiff_t now = embree_bytes += bytes;
    std::ptrdiff_t peak = embree_peak;
    while (now > peak && !embree_peak.compare_exchange_weak(peak, now)) {
    }
    return true;
}

// What Embree says it has allocated at most for the mesh: its own copies of the points and corners, and its
// hierarchy.
double peak_of_embree() {
    stage::Scene scene;
    stage::parse_file(scene, file_name(), nullptr);
    const miTriangles& t = scene.database.find(std::string_view("torus"))->geometry->view;
    RTCDevice device = rtcNewDevice("");
    rtcSetDeviceMemoryMonitorFunction(device, note_memory, nullptr);
    RTCScene embree = rtcNewScene(device);
    RTCGeometry mesh = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    auto* points = static_cast<float*>(rtcSetNewGeometryBuffer(
        mesh, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), t.vertex_count));
    auto* corners = static_cast<unsigned*>(rtcSetNewGeometryBuffer(
        mesh, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(unsigned), t.triangle_count));
    for (miUint k = 0; k < t.vertex_count; ++k)
        std::copy_n(t.vertices + std::size_t{k} * static_cast<std::size_t>(t.vertex_stride), 3,
                    points + 3 * k);
    std::copy_n(t.indices, 3 * t.triangle_count, corners);
    rtcCommitGeometry(mesh);
    rtcAttachGeometry(embree, mesh);
    rtcReleaseGeometry(mesh);
    rtcCommitScene(embree);
    return static_cast<double>(embree_peak) / (1 << 20);
}

void report_memory() {
    const double peak = in_child(peak_of_reading), kept = in_child(size_of_scene),
                 embree = in_child(peak_of_embree);
    std::printf("file %.1f MB, %d triangles\n",
                static_cast<double>(std::filesystem::file_size(file_name())) / (1 << 20),
                2 * around * across);
    std::printf(
        "memory: %.1f MB at most while reading (with the mapped file), %.1f MB kept, Embree %.1f MB at most: "
        "%.2f and %.2f times Embree's\n",
        peak, kept, embree, peak / embree, kept / embree);
}

} // namespace

int main(int argc, char** argv) {
    report_memory();
    const int code = bench::run_beside_peers(argc, argv);
    std::filesystem::remove(file_name());
    return code;
}
