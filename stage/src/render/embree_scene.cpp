// Builds the ray casting structure.
#include "render/embree_scene.h"

#include <map>
#include <stdexcept>
#include <string>
#include <utility>

#include "kit/matrix.h"

namespace stage {

namespace {

// The element is the object that was built, null for the whole scene.
void check(RTCDevice device, const Element* element) {
    const RTCError error = rtcGetDeviceError(device);
    if (error == RTC_ERROR_NONE)
        return;
    const std::string message =
        "cannot build the ray casting structure" +
        (element ? " of \"" + element->name + '"' : std::string()) + ": " +
        (error == RTC_ERROR_OUT_OF_MEMORY ? "out of memory" : "Embree error " + std::to_string(error));
    throw element ? SceneError(element->place, message) : SceneError(message);
}

} // namespace

EmbreeScene::EmbreeScene(const World& world) {
    device = rtcNewDevice(nullptr);
    if (!device)
        check(nullptr, nullptr);
    rtcSetDeviceMemoryMonitorFunction(
        device,
        [](void* sum, ssize_t bytes, bool) {
            static_cast<std::atomic<std::ptrdiff_t>*>(sum)->fetch_add(bytes, std::memory_order_relaxed);
            return true;
        },
        &memory);
    try {
        build(world);
    } catch (...) {
        release();
        throw;
    }
}

EmbreeScene::~EmbreeScene() {
    release();
}

void EmbreeScene::release() {
    if (top)
        rtcReleaseScene(top);
    for (RTCScene scene : objects_)
        rtcReleaseScene(scene);
    rtcReleaseDevice(device);
}

void EmbreeScene::build(const World& world) {
    if (!rtcGetDeviceProperty(device, RTC_DEVICE_PROPERTY_RAY_MASK_SUPPORTED) ||
        !rtcGetDeviceProperty(device, RTC_DEVICE_PROPERTY_FILTER_FUNCTION_SUPPORTED))
        throw std::runtime_error("this build of Embree has no ray masks or filter functions");
    top = rtcNewScene(device);
    rtcSetSceneFlags(
        top, static_cast<RTCSceneFlags>(RTC_SCENE_FLAG_ROBUST | RTC_SCENE_FLAG_CONTEXT_FILTER_FUNCTION));
    std::map<std::pair<const miTriangles*, bool>, RTCScene> built; // an object, with and without its motion
    std::map<const miTriangles*, int> uses;
    for (const WorldInstance& instance : world.instances)
        ++uses[instance.triangles];
    for (std::size_t i = 0; i < world.instances.size(); ++i) {
        const WorldInstance& instance = world.instances[i];
        const bool moving = world.moving && instance.has_motion;
        const bool deforming = moving && instance.triangles->motion_offset >= 0;
        rejects_sides = rejects_sides || instance.face != 'a';
        if (!moving && uses[instance.triangles] == 1 && matrix_is_identity(instance.to_internal.m)) {
            RTCGeometry geometry = make_geometry(*instance.triangles, false, 0.0f);
            rtcSetGeometryMask(geometry, instance.mask);
            rtcCommitGeometry(geometry);
            rtcAttachGeometryByID(top, geometry, static_cast<unsigned>(i));
            rtcReleaseGeometry(geometry);
            check(device, world.scene.database.find(instance.object_tag));
            continue;
        }
        RTCScene& object = built[{instance.triangles, deforming}];
        if (!object) {
            object = add_object(*instance.triangles, deforming, world.options->shutter);
            check(device, world.scene.database.find(instance.object_tag));
        }
        add_instance(instance, static_cast<unsigned>(i), object, moving, world.options->shutter);
    }
    rtcCommitScene(top);
    check(device, nullptr);
}

RTCGeometry EmbreeScene::make_geometry(const miTriangles& triangles, bool moving, float shutter) {
    RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
    const std::size_t stride = static_cast<std::size_t>(triangles.vertex_stride);
    rtcSetGeometryTimeStepCount(geometry, moving ? 2 : 1);

    // Embree reads 16 bytes from the start of each vertex, so the last of a tight array needs a copy with
    // room.
    if (stride >= 4) {
        rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, triangles.vertices,
                                   0, stride * sizeof(float), triangles.vertex_count);
    } else if (auto* copy = static_cast<float*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 0,
                                                                        RTC_FORMAT_FLOAT3, 3 * sizeof(float),
                                                                        triangles.vertex_count))) {
        std::copy_n(triangles.vertices, 3 * std::size_t{triangles.vertex_count}, copy);
    }
    if (moving) {
        // Embree wants the same stride in all time steps.
        auto* end = static_cast<float*>(rtcSetNewGeometryBuffer(geometry, RTC_BUFFER_TYPE_VERTEX, 1,
                                                                RTC_FORMAT_FLOAT3, stride * sizeof(float),
                                                                triangles.vertex_count));
        for (std::size_t i = 0; end && i < triangles.vertex_count; ++i) {
            const float* vertex = triangles.vertices + i * stride;
            for (std::size_t k = 0; k < 3; ++k)
                end[stride * i + k] =
                    vertex[k] + vertex[static_cast<std::size_t>(triangles.motion_offset) + k] * shutter;
        }
    }
    rtcSetSharedGeometryBuffer(geometry, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, triangles.indices, 0,
                               3 * sizeof(miUint), triangles.triangle_count);
    return geometry;
}

RTCScene EmbreeScene::add_object(const miTriangles& triangles, bool moving, float shutter) {
    RTCScene scene = rtcNewScene(device);
    objects_.push_back(scene);
    rtcSetSceneFlags(
        scene, static_cast<RTCSceneFlags>(RTC_SCENE_FLAG_ROBUST | RTC_SCENE_FLAG_CONTEXT_FILTER_FUNCTION));
    RTCGeometry geometry = make_geometry(triangles, moving, shutter);
    rtcCommitGeometry(geometry);
    rtcAttachGeometryByID(scene, geometry, 0);
    rtcReleaseGeometry(geometry);
    rtcCommitScene(scene);
    return scene;
}

void EmbreeScene::add_instance(const WorldInstance& instance, unsigned index, RTCScene object, bool moving,
                               float shutter) {
    RTCGeometry geometry = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_INSTANCE);
    rtcSetGeometryInstancedScene(geometry, object);
    rtcSetGeometryMask(geometry, instance.mask);
    rtcSetGeometryTimeStepCount(geometry, moving ? 2 : 1);
    // Row vectors in rows are column vectors in columns: the same 16 floats.
    rtcSetGeometryTransform(geometry, 0, RTC_FORMAT_FLOAT4X4_COLUMN_MAJOR, instance.to_internal.m);
    Matrix closing;
    if (moving)
        rtcSetGeometryTransform(geometry, 1, RTC_FORMAT_FLOAT4X4_COLUMN_MAJOR,
                                blend(instance.to_internal, instance.motion_to_internal, shutter, closing).m);
    rtcCommitGeometry(geometry);
    rtcAttachGeometryByID(top, geometry, index);
    rtcReleaseGeometry(geometry);
}

} // namespace stage
