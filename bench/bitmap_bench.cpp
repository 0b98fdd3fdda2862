// Filtered look-ups of an image, beside OpenImageIO's texture system with cubic interpolation and blended
// levels, all tiles in its cache; the pyramid's building, beside one call of the renderer's pixel function
// for each pixel; its memory; and what a second thread brings, beside a loop of bare arithmetic.
#include "bmm_filter.h"
#include "geoshader.h"
#include "kit/image.h"
#include "peer_report.h"
#include "system.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/texture.h>
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

// ---- the images

constexpr int edge = 2048;       // of the image that is looked up
constexpr int large_edge = 4096; // of the image whose pyramid is built

std::uint64_t random_bits(std::uint64_t place) { // Steele, Lea and Flood, 2014
    std::uint64_t z = (place + 1) * 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return z ^ (z >> 31);
}

float random_number(std::uint64_t place) {
    return static_cast<float>(random_bits(place) >> 40) * 0x1p-24f;
}

// Noise over slow ramps.
miColor pixel(int x, int y, int size) {
    const auto place =
        static_cast<std::uint64_t>(y) * static_cast<std::uint64_t>(size) + static_cast<std::uint64_t>(x);
    const float across = static_cast<float>(x) / static_cast<float>(size);
    const float up = static_cast<float>(y) / static_cast<float>(size);
    const auto mix = [&](float ramp, unsigned i) { return 0.5f * (ramp + random_number(4 * place + i)); };
    return {mix(across, 0), mix(up, 1), mix(1.0f - across, 2), mix(1.0f - up, 3)};
}

stage::ImageMemory make_image(int size, miImg_type type) {
    stage::ImageMemory memory(size, size, type);
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x)
            stage::put_image_color(memory.image(), pixel(x, y, size), x, y);
    return memory;
}

// ---- the look-ups

// A box of this edge lies between two built levels on both sides: 0.45 of 6.3 is 2 to the 1.5, 6.3 itself 2
// to the 2.65.
constexpr float box_pixels = 6.3f;
constexpr float box = box_pixels / edge;
constexpr std::size_t look_ups = 1 << 14;

struct Place {
    float u, v;
};

// The pixels of a picture that shows the image turned, one box apart.
std::vector<Place> rows() {
    std::vector<Place> places(look_ups);
    for (std::size_t i = 0; i < look_ups; ++i) {
        const std::size_t column = i % 128, row = i / 128;
        const float x = static_cast<float>(column) * box, y = static_cast<float>(row) * box;
        places[i] = {0.4f + 0.8f * x - 0.6f * y, 0.1f + 0.6f * x + 0.8f * y};
    }
    return places;
}

std::vector<Place> scattered() {
    std::vector<Place> places(look_ups);
    for (std::size_t i = 0; i < look_ups; ++i)
        places[i] = {random_number(2 * i), random_number(2 * i + 1)};
    return places;
}

const std::vector<Place>& places_of(bool in_rows) {
    static const std::vector<Place> ordered = rows(), random = scattered();
    return in_rows ? ordered : random;
}

// ---- ours

void (*set_image)(miImg_image*);
long long (*live_bytes)();

template <class Function> Function* find(void* library, const char* name) {
    return reinterpret_cast<Function*>(orl::system::find_symbol(library, name));
}

void load_renderer() {
    void* const library = dlopen(ORL_FILE_IMAGE_RENDERER, RTLD_NOW);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::exit(1);
    }
    miSetModuleHandle(library);
    set_image = find<void(miImg_image*)>(library, "set_image");
    live_bytes = find<long long()>(library, "live_bytes");
}

class Filter {
public:
    Filter(stage::ImageMemory& memory, float gamma = 1.0f) {
        set_image(memory.image());
        filter_ = orl::create_filter(nullptr, 1, gamma, true);
        look_up({0.5f, 0.5f}, box);
    }
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;
    ~Filter() { orl::destroy_filter(filter_); }

    miColor look_up(const Place& place, float width) const {
        miColor color;
        orl::look_up(&color, nullptr, filter_, place.u, place.v, width, width);
        return color;
    }

private:
    orl::BitmapFilter* filter_;
};

void look_up_all(const Filter& filter, const std::vector<Place>& places, float width) {
    for (const Place& place : places)
        benchmark::DoNotOptimize(filter.look_up(place, width));
}

void count_look_ups(benchmark::State& run, std::size_t times = 1) {
    run.SetItemsProcessed(
        static_cast<std::int64_t>(static_cast<std::size_t>(run.iterations()) * look_ups * times));
}

void ours(benchmark::State& run, const Filter& filter, bool in_rows, float width) {
    for (auto _ : run)
        look_up_all(filter, places_of(in_rows), width);
    count_look_ups(run);
}

// ---- OpenImageIO's texture system

class Texture {
public:
    Texture()
        : file_(std::filesystem::temp_directory_path() /
                ("bitmap_bench_" + std::to_string(getpid()) + ".tx")) {
        OIIO::ImageBuf pixels(OIIO::ImageSpec(edge, edge, 4, OIIO::TypeDesc::UINT8));
        for (int y = 0; y < edge; ++y)
            for (int x = 0; x < edge; ++x) {
                const miColor color = pixel(x, y, edge);
                pixels.setpixel(x, y, &color.r, 4);
            }
        OIIO::ImageSpec wishes;
        wishes.tile_width = wishes.tile_height = 64;
        if (!OIIO::ImageBufAlgo::make_texture(OIIO::ImageBufAlgo::MakeTxTexture, pixels, file_.string(),
                                              wishes)) {
            std::fprintf(stderr, "%s\n", OIIO::geterror().c_str());
            std::exit(1);
        }
        system_ = OIIO::TextureSystem::create(false);
        system_->attribute("max_memory_MB", 4096.0f);
        thread_ = system_->get_perthread_info();
        handle_ = system_->get_texture_handle(OIIO::ustring(file_.string()), thread_);
        options_.interpmode = OIIO::TextureOpt::InterpBicubic;
        options_.mipmode = OIIO::TextureOpt::MipModeTrilinear;
        options_.swrap = options_.twrap = OIIO::TextureOpt::WrapPeriodic;
    }
    Texture(const Texture&) = delete;
    Texture& operator=(const Texture&) = delete;
    ~Texture() {
        OIIO::TextureSystem::destroy(system_);
        std::filesystem::remove(file_);
    }

    miColor look_up(const Place& place, float width) {
        miColor color{};
        if (!system_->texture(handle_, thread_, options_, place.u, place.v, width, 0, 0, width, 4,
                              &color.r)) {
            std::fprintf(stderr, "%s\n", system_->geterror().c_str());
            std::exit(1);
        }
        return color;
    }

private:
    std::filesystem::path file_;
    OIIO::TextureSystem* system_;
    OIIO::TextureSystem::Perthread* thread_;
    OIIO::TextureSystem::TextureHandle* handle_;
    OIIO::TextureOpt options_;
};

void texture_system(benchmark::State& run, Texture& texture, bool in_rows) {
    const auto look_up_each = [&] {
        for (const Place& place : places_of(in_rows))
            benchmark::DoNotOptimize(texture.look_up(place, box));
    };
    look_up_each(); // what is read from the file once
    for (auto _ : run)
        look_up_each();
    count_look_ups(run);
}

// Both show the same place, or the times are those of another path: means over a box of noise differ little.
bool agree(const Filter& filter, Texture& texture) {
    for (std::size_t i = 0; i < 100; ++i) {
        const Place& place = places_of(false)[i];
        const miColor a = filter.look_up(place, box), b = texture.look_up(place, box);
        if (!(std::fabs(a.r - b.r) < 0.1f && std::fabs(a.g - b.g) < 0.1f && std::fabs(a.a - b.a) < 0.1f)) {
            std::fprintf(stderr, "at (%g, %g) ours is (%g, %g, %g), the peer (%g, %g, %g)\n",
                         static_cast<double>(place.u), static_cast<double>(place.v), static_cast<double>(a.r),
                         static_cast<double>(a.g), static_cast<double>(a.a), static_cast<double>(b.r),
                         static_cast<double>(b.g), static_cast<double>(b.a));
            return false;
        }
    }
    return true;
}

// ---- building

void build(benchmark::State& run, stage::ImageMemory& memory, float gamma) {
    for (auto _ : run)
        const Filter filter(memory, gamma);
}

void read_pixels(benchmark::State& run, stage::ImageMemory& memory) {
    for (auto _ : run)
        for (int y = 0; y < large_edge; ++y)
            for (int x = 0; x < large_edge; ++x) {
                miColor color;
                mi_img_get_color(memory.image(), &color, x, y);
                benchmark::DoNotOptimize(color);
            }
}

void print_memory(stage::ImageMemory& memory, float gamma) {
    const long long before = live_bytes();
    const Filter filter(memory, gamma);
    const auto image = static_cast<double>(large_edge) * large_edge * 4;
    const auto pyramid = static_cast<double>(live_bytes() - before);
    std::printf(
        "\nmemory of the pyramid of %d x %d RGBA with 8 bits, gamma %.1f: %.0f bytes, %.4f of level 0; "
        "with level 0 %.4f\n",
        large_edge, large_edge, static_cast<double>(gamma), pyramid, pyramid / image, 1.0 + pyramid / image);
}

// ---- two threads

constexpr std::size_t rounds = 16; // of a thread, so that its start does not count

template <class Work> void in_threads(benchmark::State& run, int threads, Work work) {
    const auto all_rounds = [&work] {
        for (std::size_t i = 0; i < rounds; ++i)
            work();
    };
    for (auto _ : run) {
        if (threads == 1) {
            all_rounds();
            continue;
        }
        std::thread second(all_rounds);
        all_rounds();
        second.join();
    }
    count_look_ups(run, rounds * static_cast<std::size_t>(threads));
}

// About as long as a look-up.
void arithmetic(const std::vector<Place>& places) {
    for (const Place& place : places) {
        float x = place.u;
        for (int i = 0; i < 16; ++i)
            x = x * 0.5f + place.v;
        benchmark::DoNotOptimize(x);
    }
}

constexpr const char* threads_names[] = {"look-ups, one thread/", "look-ups, two threads/"};

void print_gain(const char* name) {
    const double one = bench::fastest((std::string(threads_names[0]) + name).c_str());
    const double two = bench::fastest((std::string(threads_names[1]) + name).c_str());
    if (one > 0.0 && two > 0.0)
        std::printf("%-40s %8.3f\n", name, one / two);
}

template <class Function> void add(const std::string& name, Function function) {
    benchmark::RegisterBenchmark(name.c_str(), function)->UseRealTime();
}

} // namespace

int main(int argc, char** argv) {
    load_renderer();
    stage::ImageMemory bytes = make_image(edge, miIMG_TYPE_RGBA),
                       words = make_image(edge, miIMG_TYPE_RGBA_16),
                       floats = make_image(edge, miIMG_TYPE_RGBA_FP),
                       large = make_image(large_edge, miIMG_TYPE_RGBA);
    const Filter filter(bytes), light_filter(bytes, 2.2f), words_filter(words), floats_filter(floats);
    Texture texture;
    if (!agree(filter, texture))
        return 1;

    for (const bool in_rows : {true, false}) {
        const std::string group = in_rows ? "look-up, rows/" : "look-up, scattered/";
        add(group + "ours", [&, in_rows](benchmark::State& run) { ours(run, filter, in_rows, box); });
        add(group + "ours, gamma 2.2",
            [&, in_rows](benchmark::State& run) { ours(run, light_filter, in_rows, box); });
        add(group + "ours, 16 bits",
            [&, in_rows](benchmark::State& run) { ours(run, words_filter, in_rows, box); });
        add(group + "ours, float",
            [&, in_rows](benchmark::State& run) { ours(run, floats_filter, in_rows, box); });
        add(group + "ours, image and first level",
            [&, in_rows](benchmark::State& run) { ours(run, filter, in_rows, 0.5f * box); });
        add(group + "OpenImageIO texture",
            [&, in_rows](benchmark::State& run) { texture_system(run, texture, in_rows); });
    }
    add("pyramid/ours", [&](benchmark::State& run) { build(run, large, 1.0f); });
    add("pyramid/ours, gamma 2.2", [&](benchmark::State& run) { build(run, large, 2.2f); });
    add("pyramid/each pixel read", [&](benchmark::State& run) { read_pixels(run, large); });
    for (const int threads : {1, 2}) {
        const std::string group = threads_names[threads - 1];
        add(group + "ours", [&, threads](benchmark::State& run) {
            in_threads(run, threads, [&] { look_up_all(filter, places_of(true), box); });
        });
        add(group + "bare arithmetic", [&, threads](benchmark::State& run) {
            in_threads(run, threads, [&] { arithmetic(places_of(true)); });
        });
    }
    const int code = bench::run_beside_peers(argc, argv);
    for (const float gamma : {1.0f, 2.2f})
        print_memory(large, gamma);
    std::printf("\ngain from the second thread\n");
    for (const char* name : {"ours", "bare arithmetic"})
        print_gain(name);
    return code;
}
