// The ray casting structure over a world: one Embree scene for each object, instances of them on top. Objects
// that stand there once, in internal space itself, are on top without an instance: rays meet them sooner.
// The only header that includes Embree; those of the world and of its rays are its users.
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

} // namespace stage
