// The stage's primary rays with a constant shader, and with a shadow ray to each of some lights, beside a
// bare Embree loop that casts the same rays over the same triangles: rtcIntersect1 from the same camera, and
// rtcOccluded1 to the same lights. In one thread and in two, and how both gain from the second thread.
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
#include <map>
#include <optional>
#include <string>

namespace {

constexpr int resolution = 512;
constexpr int grid = 200; // cells of the mesh along each axis

// Over the landscape, low enough that hills lie in each other's shadow.
constexpr miVector lights[] = {
    {-5.0f, 4.0f, -6.0f}, {5.0f, 3.0f, -6.5f}, {0.0f, -6.0f, -6.0f}, {3.0f, 6.0f, -5.0f}};

// A rolling landscape that fills the picture, in a constant colour or under some of the lights.
std::string scene_text(int light_count) {
    std::string text =
        "link \"" ORL_FILE_STAGE_BASE "\"\nlink \"" ORL_FILE_TRIVIAL_SHADERS "\"\n"
        "declare shader color \"base_constant\" (color \"color\") version 1 end declare\n"
        "declare shader color \"trivial_material\" (array light \"lights\") version 1 end declare\n"
        "declare shader color \"trivial_light\" () version 1 end declare\n"
        "options \"opt\" samples 0 0 jitter 0 shadow on end options\n"
        "camera \"cam\" focal 1 aperture 1 aspect 1 resolution 512 512 end camera\n"
        "instance \"cam_inst\" \"cam\" end instance\n";
    std::string names, members;
    for (int k = 0; k < light_count; ++k) {
        const std::string name = "lamp" + std::to_string(k);
        const miVector& at = lights[k];
        text += "light \"" + name + "\" \"trivial_light\" () origin " + std::to_string(at.x) + ' ' +
                std::to_string(at.y) + ' ' + std::to_string(at.z) + " end light\ninstance \"" + name +
                "_inst\" \"" + name + "\" end instance\n";
        names += (k ? ", \"" : "\"") + name + "_inst\"";
        members += " \"" + name + "_inst\"";
    }
    text += light_count == 0
                ? "material \"m\" \"base_constant\" (\"color\" 0.5 0.5 0.5) end material\n"
                : "material \"m\" opaque \"trivial_material\" (\"lights\" [" + names + "]) end material\n";
    text += "object \"land\" visible shadow trace group\n";
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
    text += "end group end object\ninstance \"land_inst\" \"land\" end instance\n"
            "instgroup \"root\" \"cam_inst\" \"land_inst\"" +
            members + " end instgroup\nrender \"root\" \"cam_inst\" \"opt\"\n";
    return text;
}

struct Loaded {
    stage::Scene scene;
    std::optional<stage::RenderCommand> command;

    explicit Loaded(int light_count) {
        stage::set_current_scene(&scene);
        stage::parse_text(scene, scene_text(light_count), "landscape",
                          [this](stage::Scene&, const stage::RenderCommand& c) { command = c; });
    }
    static Loaded& get(int light_count) {
        static std::map<int, Loaded> loaded;
        Loaded& scene = loaded.try_emplace(light_count, light_count).first->second;
        stage::set_current_scene(&scene.scene);
        return scene;
    }
};

void stage_rays(benchmark::State& run, int threads, int light_count) {
    Loaded& loaded = Loaded::get(light_count);
    stage::RenderSettings settings;
    settings.threads = threads;
    settings.progress = false;
    stage::Renderer renderer(loaded.scene, *loaded.command, settings);
    for (auto _ : run)
        renderer.render();
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations()) * resolution * resolution);
}
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

    unsigned trace_row(const stage::Projection& projection, int y, int light_count) const {
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
            for (int k = 0; hit.hit.geomID != RTC_INVALID_GEOMETRY_ID && k < light_count; ++k)
                sum += occluded(context, hit.ray, lights[k]);
        }
        return sum;
    }

private:
    // From where the ray ended towards the light.
    unsigned occluded(RTCIntersectContext& context, const RTCRay& ray, const miVector& light) const {
        RTCRay shadow{};
        shadow.org_x = ray.org_x + ray.tfar * ray.dir_x;
        shadow.org_y = ray.org_y + ray.tfar * ray.dir_y;
        shadow.org_z = ray.org_z + ray.tfar * ray.dir_z;
        shadow.dir_x = light.x - shadow.org_x;
        shadow.dir_y = light.y - shadow.org_y;
        shadow.dir_z = light.z - shadow.org_z;
        shadow.tnear = 1e-5f;
        shadow.tfar = 1.0f;
        shadow.mask = ~0u;
        rtcOccluded1(scene_, &context, &shadow);
        return shadow.tfar < 0.0f;
    }

    RTCDevice device_;
    RTCScene scene_;
};

void bare_rays(benchmark::State& run, int threads, int light_count) {
    Loaded& loaded = Loaded::get(0);
    const stage::Element* object = loaded.scene.database.find("land");
    const stage::Element* camera = loaded.scene.database.find("cam");
    const BareScene bare(*object->as<miObject>()->triangles);
    const stage::Projection projection(*camera->as<miCamera>());
    tbb::task_arena arena(threads);
    for (auto _ : run)
        arena.execute([&] {
            tbb::parallel_for(0, resolution, [&](int y) {
                benchmark::DoNotOptimize(bare.trace_row(projection, y, light_count));
            });
        });
    run.SetItemsProcessed(static_cast<std::int64_t>(run.iterations()) * resolution * resolution);
}
std::string subject(int light_count, int threads) {
    return "primary rays, " + std::to_string(light_count) + " lights, " + std::to_string(threads) +
           (threads == 1 ? " thread/" : " threads/");
}

void register_cases() {
    for (const int light_count : {0, 1, 2, 4})
        for (const int threads : {1, 2}) {
            const std::string name = subject(light_count, threads);
            for (auto* run :
                 {benchmark::RegisterBenchmark((name + "ours").c_str(), stage_rays, threads, light_count),
                  benchmark::RegisterBenchmark((name + "bare Embree").c_str(), bare_rays, threads,
                                               light_count)})
                run->MeasureProcessCPUTime()->UseRealTime();
        }
}

} // namespace

int main(int argc, char** argv) {
    register_cases();
    const int code = bench::run_beside_peers(argc, argv);
    // Tells more than time where other programs run too.
    std::printf("\n%-40s %10s %14s %8s\n", "processor time of a sample [ns]", "ours", "bare Embree", "ratio");
    for (const int light_count : {0, 1, 2, 4}) {
        const auto time = [&](const char* who) {
            return bench::least_processor_time((subject(light_count, 1) + who).c_str()) / resolution /
                   resolution;
        };
        std::printf("%d lights %31s %10.0f %14.0f %8.3f\n", light_count, "", time("ours"),
                    time("bare Embree"), time("ours") / time("bare Embree"));
    }
    std::printf("\n%-40s %10s %14s %8s\n", "gain from the second thread", "ours", "bare Embree", "ratio");
    for (const int light_count : {0, 1, 2, 4}) {
        const auto gain = [&](const char* who) {
            return bench::fastest((subject(light_count, 1) + who).c_str()) /
                   bench::fastest((subject(light_count, 2) + who).c_str());
        };
        const double ours = gain("ours"), peer = gain("bare Embree");
        std::printf("%d lights %31s %10.3f %14.3f %8.3f\n", light_count, "", ours, peer, ours / peer);
    }
    return code;
}
