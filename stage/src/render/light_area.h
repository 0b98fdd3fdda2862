// The areas of lights: points spread evenly over them, and the meshes by which rays see those that are
// visible. All in light space.
#pragma once

#include <vector>

#include "scene/scene.h"

namespace stage {

struct AreaPoint {
    miVector offset{};      // from the light's origin
    miVector normal{};      // out of the area, normalised
    bool two_sided = false; // as much on one side as on the other
};

// What a light's area needs beside its public record.
struct LightArea {
    LightArea(const Database& database, const miLight& light);

    // A point of the area. Evenly spread for numbers s and t that are so in [0, 1); neighbours there are
    // neighbours on the area. Null for lights without one, and for `user`, whose shader finds the point.
    [[nodiscard]] AreaPoint point(const miLight& light, float s, float t) const;

    // Distance from the origin within which the area lies; infinite where only the shader knows.
    float reach = 0.0f;

private:
    [[nodiscard]] AreaPoint point_on_object(float s, float t) const;

    miVector normal_{};                      // of a flat one
    const miTriangles* triangles_ = nullptr; // of an object
    std::vector<float> summed_;              // areas of its triangles, summed up; empty when they have none
};

// A visible light as rays meet it, at its place in light space. Curved ones are made of flat pieces that lie
// within a thousandth of the radius.
struct LightMesh {
    LightMesh(const Database& database, const miLight& light);
    LightMesh(const LightMesh&) = delete;
    LightMesh& operator=(const LightMesh&) = delete;

    miTriangles triangles{};
    miObject object{};

private:
    void add(const miVector& point);
    void add_quad(miUint a, miUint b, miUint c, miUint d);
    void add_disc(const miVector& origin, const miVector& normal, float radius);
    void add_sphere(const miVector& origin, float radius);
    void add_cylinder(const miVector& origin, const miVector& axis, float radius);
    void add_object(const miTriangles& source, const miVector& origin);

    std::vector<float> vertices_;
    std::vector<miUint> indices_;
};

// A light that rays can meet: one with an area whose shape the stage knows, and a place.
bool is_seen(const miLight& light);

} // namespace stage
