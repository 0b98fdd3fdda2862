// The mappings that the tone operators publish, a call for each pixel as for each sample of a picture, beside
// operations on whole pictures of two image libraries: the power and the logarithmic compression of
// OpenImageIO, and the tone map of OpenCV after Reinhard and Devlin. All take the same picture into one that
// lies ready, in one thread and in two.
#include "orl_toneop.h"
#include "orl_toneopphoto.h"
#include "peer_report.h"
#include "state_builder.h"

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <benchmark/benchmark.h>
#include <opencv2/core.hpp>
#include <opencv2/core/utils/logger.hpp>
#include <opencv2/photo.hpp>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#define SHADER(name, Params)                                                                                 \
    extern "C" miBoolean name(miColor*, miState*, const Params*);                                            \
    extern "C" void name##_init(miState*, const Params*, miBoolean*)
SHADER(orl_ToneOpLog, orl::ToneOpLogParams);
SHADER(orl_ToneOpPseudo, orl::ToneOpPseudoParams);
SHADER(orl_ToneOpPhoto, orl::ToneOpPhotoParams);

namespace {

// ---- the picture

constexpr int width = 2048, height = 1024, pixels = width * height;

using Picture = std::vector<miColor>;

// Equally distributed in [0, 1): Steele, Lea and Flood, Fast splittable pseudorandom number generators, 2014.
float random_number(std::uint64_t place) {
    std::uint64_t z = (place + 1) * 0x9e3779b97f4a7c15u;
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
    return static_cast<float>((z ^ (z >> 31)) >> 40) * 0x1p-24f;
}

// Six decades from left to right, 0.0001 to 100, with noise of a factor of 3 in each channel.
const Picture& picture() {
    static const Picture made = [] {
        Picture result(pixels);
        for (std::uint64_t i = 0; i < pixels; ++i) {
            const float level = std::pow(10.0f, 6.0f * static_cast<float>(i % width) / width - 4.0f);
            const auto noisy = [=](unsigned channel) {
                return level * std::pow(3.0f, random_number(3 * i + channel) - 0.5f);
            };
            result[i] = {noisy(0), noisy(1), noisy(2), 1};
        }
        return result;
    }();
    return made;
}

// Without alpha, which the peers would have to skip.
const std::vector<float>& channels() {
    static const std::vector<float> made = [] {
        std::vector<float> result;
        result.reserve(3 * pixels);
        for (const miColor& color : picture())
            result.insert(result.end(), {color.r, color.g, color.b});
        return result;
    }();
    return made;
}

void count_pixels(benchmark::State& run) {
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations()) * pixels);
}

// ---- ours

// An operator run as a lens, and the mappings that it then publishes.
template <class Params> struct Operator {
    using Init = void(miState*, const Params*, miBoolean*);
    using Shade = miBoolean(miColor*, miState*, const Params*);

    scripted::State state;
    scripted::ShaderInstance<Params> shader;
    orl::ToneOpHook hook{};

    Operator(const Params& params, Init* init, Shade* shade) {
        auto& renderer = scripted::Renderer::get();
        miSetModuleHandle(renderer.handle());
        shader.params() = params;
        state.run(shader, miSHADER_LENS);
        miBoolean wants_instances = miFALSE;
        init(state, nullptr, &wants_instances);
        init(state, &shader.params(), &wants_instances);
        renderer.answer(miQ_FUNC_CALLTYPE, static_cast<int>(miSHADER_LENS));
        renderer.mi_trace_eye = [this](miColor* color, miState* s, miVector*, miVector*) {
            if (const orl::ToneOpHook* const published = find_record(s, orl::keys::tone_operator))
                hook = *published;
            *color = {};
            return miTRUE;
        };
        miColor result{};
        shade(&result, state, &shader.params());
        if (hook.forward == nullptr) {
            std::fputs("an operator has no mapping\n", stderr);
            std::exit(1);
        }
    }
};

void map_rows(orl::ToneOpHook::Mapping mapping, void* data, miState* state, const Picture& in, Picture& out,
              tbb::task_arena& arena) {
    const auto map_row = [&](int y) {
        const int end = (y + 1) * width;
        for (int i = y * width; i < end; ++i) {
            out[i] = in[i];
            mapping(&out[i], state, data);
        }
    };
    arena.execute([&] { tbb::parallel_for(0, height, map_row); });
}

template <class Params>
void ours(benchmark::State& run, Operator<Params>& tone_operator, int threads, bool inverse) {
    const orl::ToneOpHook& hook = tone_operator.hook;
    static Picture out(pixels);
    static Picture mapped(pixels);
    tbb::task_arena arena(threads);
    if (inverse)
        map_rows(hook.forward, hook.data, tone_operator.state, picture(), mapped, arena);
    const Picture& in = inverse ? mapped : picture();
    for (auto _ : run) {
        map_rows(inverse ? hook.inverse : hook.forward, hook.data, tone_operator.state, in, out, arena);
        benchmark::DoNotOptimize(out.data());
    }
    count_pixels(run);
}

Operator<orl::ToneOpLogParams>& log_operator(bool luminance_based) {
    static const auto params = [](miBoolean by_luminance) {
        return orl::ToneOpLogParams{miTRUE, 1500, miFALSE, miFALSE, {1, 1, 1, 1}, miFALSE,
                                    65,     50,   1,       miFALSE, miFALSE,      by_luminance};
    };
    static Operator luminance(params(miTRUE), orl_ToneOpLog_init, orl_ToneOpLog);
    static Operator channel(params(miFALSE), orl_ToneOpLog_init, orl_ToneOpLog);
    return luminance_based ? luminance : channel;
}

// About a tenth of the picture lies below the limits, and as much above.
Operator<orl::ToneOpPseudoParams>& pseudo_operator(bool is_linear) {
    static const auto params = [](miBoolean linear_steps) {
        return orl::ToneOpPseudoParams{
            0.2f, 1e4f, orl::pseudo_luminance, miFALSE, 1500, 0, linear_steps, miFALSE, miTRUE, miFALSE, 100};
    };
    static Operator linear(params(miTRUE), orl_ToneOpPseudo_init, orl_ToneOpPseudo);
    static Operator logarithmic(params(miFALSE), orl_ToneOpPseudo_init, orl_ToneOpPseudo);
    return is_linear ? linear : logarithmic;
}

Operator<orl::ToneOpPhotoParams>& photo_operator(bool for_display) {
    static const auto params = [](float gamma) {
        return orl::ToneOpPhotoParams{miTRUE, miFALSE, 1500, {1, 1, 1, 1}, 100, 60, 4, 0, 0.25f, gamma};
    };
    static Operator linear(params(1), orl_ToneOpPhoto_init, orl_ToneOpPhoto);
    static Operator display(params(2.2f), orl_ToneOpPhoto_init, orl_ToneOpPhoto);
    return for_display ? display : linear;
}

// ---- peers

struct OiioPicture {
    const OIIO::ImageSpec spec{width, height, 3, OIIO::TypeDesc::FLOAT};
    const OIIO::ImageBuf in{spec, const_cast<float*>(channels().data())};
    OIIO::ImageBuf out{spec};
};

void oiio_pow(benchmark::State& run, int threads) {
    OiioPicture buffers;
    for (auto _ : run)
        OIIO::ImageBufAlgo::pow(buffers.out, buffers.in, 1.0f / 2.2f, {}, threads);
    count_pixels(run);
}

void oiio_rangecompress(benchmark::State& run, int threads, bool luma) {
    OiioPicture buffers;
    for (auto _ : run)
        OIIO::ImageBufAlgo::rangecompress(buffers.out, buffers.in, luma, {}, threads);
    count_pixels(run);
}

void opencv_reinhard(benchmark::State& run, int threads) {
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR); // not of its deprecations
    cv::setNumThreads(threads);
    const cv::Mat in(height, width, CV_32FC3, const_cast<float*>(channels().data()));
    cv::Mat out(height, width, CV_32FC3);
    const auto tone_map = cv::createTonemapReinhard();
    for (auto _ : run)
        tone_map->process(in, out);
    count_pixels(run);
}

// ---- all of them

constexpr const char* variants[] = {"log, luminance",  "log, channels",       "log, inverse",
                                    "pseudo, linear",  "pseudo, logarithmic", "photo, gamma 1",
                                    "photo, gamma 2.2"};

std::string group(int threads) {
    return threads == 1 ? "tone, one thread/" : "tone, two threads/";
}

template <class Function> void add(int threads, const char* name, Function function) {
    benchmark::RegisterBenchmark((group(threads) + name).c_str(), function)->UseRealTime();
}

void add_all(int threads) {
    const auto add_ours = [=](int variant, auto& tone_operator, bool inverse = false) {
        add(threads, (std::string("ours, ") + variants[variant]).c_str(),
            [=, &tone_operator](benchmark::State& run) { ours(run, tone_operator, threads, inverse); });
    };
    add_ours(0, log_operator(true));
    add_ours(1, log_operator(false));
    add_ours(2, log_operator(true), true);
    add_ours(3, pseudo_operator(true));
    add_ours(4, pseudo_operator(false));
    add_ours(5, photo_operator(false));
    add_ours(6, photo_operator(true));
    add(threads, "OpenImageIO pow", [=](benchmark::State& run) { oiio_pow(run, threads); });
    add(threads, "OpenImageIO rangecompress",
        [=](benchmark::State& run) { oiio_rangecompress(run, threads, false); });
    add(threads, "OpenImageIO rangecompress, luma",
        [=](benchmark::State& run) { oiio_rangecompress(run, threads, true); });
    add(threads, "OpenCV Reinhard", [=](benchmark::State& run) { opencv_reinhard(run, threads); });
}

void print_gain(const std::string& name) {
    const double one = bench::fastest((group(1) + name).c_str());
    const double two = bench::fastest((group(2) + name).c_str());
    if (one > 0.0 && two > 0.0)
        std::printf("%-40s %8.3f\n", name.c_str(), one / two);
}

} // namespace

int main(int argc, char** argv) {
    add_all(1);
    add_all(2);
    const int code = bench::run_beside_peers(argc, argv);
    std::printf("\ngain from the second thread\n");
    for (const char* variant : variants)
        print_gain(std::string("ours, ") + variant);
    for (const char* peer : {"OpenImageIO pow", "OpenImageIO rangecompress",
                             "OpenImageIO rangecompress, luma", "OpenCV Reinhard"})
        print_gain(peer);
    return code;
}
