// The stage's primary rays with a constant shader beside a bare loop of rtcIntersect1 over the same triangles
// with the same camera, in one thread and in two, and how both gain from the second thread.
#include "mi/parser.h"
#include "peer_report.h"
#include "render/camera.h"
#include "render/renderer.h"

#include <benchmark/benchmark.h>
#include <embree3/rtcore.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <cmath>
#include <cstdio>
#include <optional>
#include <string>

namespace {

constexpr int resolution = 512;
constexpr int grid = 200; // cells of the mesh along each axis

// A rolling landscape that fills the picture.
std::string scene_text() {
    std::string text = "link \"" ORL_FILE_STAGE_BASE "\"\n"
                       "declare shader color \"base_constant\" (color \"color\") version 1 end declare\n"
                       "options \"opt\" samples 0 0 jitter 0 end options\n"
                       "camera \"cam\" focal 1 aperture 1 aspect 1 resolution 512 512 end camera\n"
                       "instance \"cam_inst\" \"cam\" end instance\n"
                       "material \"m\" \"base_constant\" (\"color\" 0.5 0.5 0.5) end material\n"
                       "object \"land\" visible trace group\n";
    const auto coordinate = [](int i) { return (static_cast<float>(i) / grid - 0.5f) * 12.0f; };
    for (int j = 0; j <= grid; ++j)
        for (int i = 0; i <= grid; ++i) {
            const float x = coordinate(i), y = coordinate(j);
            text += std::to_string(x) + ' ' + std::to_string(y) + ' ' +
                    std::to_string(-8.0f + std::sin(2.0f * x) * std::cos(2.0f * y)) + '\n';
        }
    for (int k = 0; k < (grid + 1) * (grid + 1); ++k)
        text += "v " + std::to_string(k) + '\n';
    for (int j = 0; j < grid; ++j)
        for (int i = 0; i < grid; ++i) {
            const int a = j * (grid + 1) + i, b = a + 1, c = b + grid + 1, d = a + grid + 1;
            text += "p \"m\" " + std::to_string(a) + ' ' + std::to_string(b) + ' ' + std::to_string(c) + '\n';
            text += "p \"m\" " + std::to_string(a) + ' ' + std::to_string(c) + ' ' + std::to_string(d) + '\n';
        }
    text +=
        "end group end object\ninstance \"land_inst\" \"land\" end instance\n"
        "instgroup \"root\" \"cam_inst\" \"land_inst\" end instgroup\nrender \"root\" \"cam_inst\" \"opt\"\n";
    return text;
}

struct Loaded {
    stage::Scene scene;
    std::optional<stage::RenderCommand> command;

    Loaded() {
        stage::set_current_scene(&scene);
        stage::parse_text(scene, scene_text(), "landscape",
                          [this](stage::Scene&, const stage::RenderCommand& c) { command = c; });
    }
    static Loaded& get() {
        static Loaded loaded;
        return loaded;
    }
};

void stage_rays(benchmark::State& run, int threads) {
    Loaded& loaded = Loaded::get();
    stage::RenderSettings settings;
    settings.threads = threads;
    settings.progress = false;
    stage::Renderer renderer(loaded.scene, *loaded.command, settings);
    for (auto _ : run)
        renderer.render();
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations()) * resolution * resolution);
}
BENCHMARK_CAPTURE(stage_rays, one, 1)->Name("primary rays, one thread/ours")->UseRealTime();
BENCHMARK_CAPTURE(stage_rays, two, 2)->Name("primary rays, two threads/ours")->UseRealTime();

// The same triangles in a scene of Embree's alone.
class BareScene {
public:
    explicit BareScene(const miTriangles& t) {
        device_ = rtcNewDevice(nullptr);
        scene_ = rtcNewScene(device_);
        rtcSetSceneFlags(scene_, RTC_SCENE_FLAG_ROBUST);
        RTCGeometry geometry = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_TRIANGLE);
        auto* vertices = static_cast<float*>(rtcSetNewGeometryBuffer(
            geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float), t.vertex_count));
        for (miUint v = 0; v < t.vertex_count; ++v)
            for (miUint k = 0; k < 3; ++k)
                vertices[3 * v + k] =
                    t.vertices[static_cast<std::size_t>(v) * static_cast<std::size_t>(t.vertex_stride) + k];
        auto* indices = static_cast<miUint*>(rtcSetNewGeometryBuffer(
            geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(miUint), t.triangle_count));
        std::copy_n(t.indices, 3 * static_cast<std::size_t>(t.triangle_count), indices);
        rtcCommitGeometry(geometry);
        rtcAttachGeometry(scene_, geometry);
        rtcReleaseGeometry(geometry);
        rtcCommitScene(scene_);
    }
    ~BareScene() {
        rtcReleaseScene(scene_);
        rtcReleaseDevice(device_);
    }
    BareScene(const BareScene&) = delete;
    BareScene& operator=(const BareScene&) = delete;

    unsigned trace_row(const stage::Projection& projection, int y) const {
        unsigned sum = 0;
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        for (int x = 0; x < resolution; ++x) {
            const stage::CameraRay ray = projection.ray(x + 0.5, y + 0.5);
            RTCRayHit hit{};
            hit.ray.org_x = ray.org.x;
            hit.ray.org_y = ray.org.y;
            hit.ray.org_z = ray.org.z;
            hit.ray.dir_x = ray.dir.x;
            hit.ray.dir_y = ray.dir.y;
            hit.ray.dir_z = ray.dir.z;
            hit.ray.tfar = INFINITY;
            hit.ray.mask = ~0u;
            hit.hit.geomID = RTC_INVALID_GEOMETRY_ID;
            hit.hit.instID[0] = RTC_INVALID_GEOMETRY_ID;
            rtcIntersect1(scene_, &context, &hit);
            sum += hit.hit.primID;
        }
        return sum;
    }

private:
    RTCDevice device_;
    RTCScene scene_;
};

void bare_rays(benchmark::State& run, int threads) {
    Loaded& loaded = Loaded::get();
    const stage::Element* object = loaded.scene.database.find("land");
    const stage::Element* camera = loaded.scene.database.find("cam");
    const BareScene bare(*object->as<miObject>()->triangles);
    const stage::Projection projection(*camera->as<miCamera>());
    tbb::task_arena arena(threads);
    for (auto _ : run)
        arena.execute([&] {
            tbb::parallel_for(0, resolution,
                              [&](int y) { benchmark::DoNotOptimize(bare.trace_row(projection, y)); });
        });
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations()) * resolution * resolution);
}
BENCHMARK_CAPTURE(bare_rays, one, 1)->Name("primary rays, one thread/bare rtcIntersect1")->UseRealTime();
BENCHMARK_CAPTURE(bare_rays, two, 2)->Name("primary rays, two threads/bare rtcIntersect1")->UseRealTime();

} // namespace

int main(int argc, char** argv) {
    const int code = bench::run_beside_peers(argc, argv);
    const double ours =
        bench::fastest("primary rays, one thread/ours") / bench::fastest("primary rays, two threads/ours");
    const double peer = bench::fastest("primary rays, one thread/bare rtcIntersect1") /
                        bench::fastest("primary rays, two threads/bare rtcIntersect1");
    std::printf("\ngain from the second thread: ours %.3f, bare loop %.3f, ratio %.3f\n", ours, peer,
                ours / peer);
    return code;
}
