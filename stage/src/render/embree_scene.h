// The ray casting structure over a world: one Embree scene for each object, instances of them on top. Objects
// that stand there once, in internal space itself, are on top without an instance: rays meet them sooner.
// The only header that includes Embree; world.cpp and embree_scene.cpp are its only users.
#pragma once

#include <embree3/rtcore.h>

#include <atomic>
#include <cstddef>
#include <vector>

#include "render/world.h"

namespace stage {

struct EmbreeScene {
    // Keeps pointers into the world's tessellations. Throws std::runtime_error when Embree fails.
    explicit EmbreeScene(const World& world);
    ~EmbreeScene();
    EmbreeScene(const EmbreeScene&) = delete;
    EmbreeScene& operator=(const EmbreeScene&) = delete;

    RTCDevice device = nullptr;
    RTCScene top = nullptr;
    std::atomic<std::ptrdiff_t> memory{0}; // bytes that Embree holds now
    bool rejects_sides = false;            // some instance shows one side only

private:
    void build(const World& world);
    RTCGeometry make_geometry(const miTriangles& triangles, bool moving, float shutter);
    RTCScene add_object(const miTriangles& triangles, bool moving, float shutter);
    void add_instance(const WorldInstance& instance, unsigned index, RTCScene object, bool moving,
                      float shutter);
    void release();

    std::vector<RTCScene> objects_;
};

// The index of the instance that was hit: Embree's numbers of geometries on top, with or without an instance.
inline unsigned hit_instance(unsigned instance, unsigned geometry) {
    return instance == RTC_INVALID_GEOMETRY_ID ? geometry : instance;
}

// What the side filter of a ray needs beside Embree's own context, which comes first.
struct SideContext {
    RTCIntersectContext embree;
    const World* world;
    int face; // that the ray meets: 'f', 'b', or another for both
};

// Refuses hits on the side of a surface that its instance does not show or the ray does not meet.
void reject_hidden_side(const RTCFilterFunctionNArguments* arguments);

} // namespace stage
