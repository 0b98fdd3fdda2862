#include "render/light_area.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

#include "render/vector.h"

namespace stage {
namespace {

constexpr miUint around = 96; // flat pieces around a circle: 1 - cos(pi / 96) is half a thousandth

// Two directions that stand upright on a normalised one and on each other.
void upright_basis(const miVector& n, miVector& a, miVector& b) {
    const miVector other = std::fabs(n.x) < 0.5f ? miVector{1.0f, 0.0f, 0.0f} : miVector{0.0f, 1.0f, 0.0f};
    a = normalized(cross(other, n));
    b = cross(n, a);
}

miVector on_circle(const miVector& axis, float radius, float turn) {
    miVector a;
    miVector b;
    upright_basis(normalized(axis), a, b);
    const float angle = 2.0f * std::numbers::pi_v<float> * turn;
    return a * (radius * std::cos(angle)) + b * (radius * std::sin(angle));
}

// z of the unit sphere's points is spread evenly over the numbers from -1 to 1 (Archimedes).
miVector on_sphere(float radius, float z, float turn) {
    const float r = radius * std::sqrt(std::max(0.0f, 1.0f - z * z));
    return on_circle({0.0f, 0.0f, 1.0f}, r, turn) + miVector{0.0f, 0.0f, radius * z};
}

const miTriangles* triangles_of(const Database& database, const miLight& light) {
    if (light.area != miLIGHT_OBJECT)
        return nullptr;
    const auto* object = database.record<miObject>(light.primitive.object.object, miSCENE_OBJECT);
    return object ? object->triangles : nullptr;
}

miVector vertex(const miTriangles& t, std::size_t corner) {
    const float* v = t.vertices + std::size_t{t.indices[corner]} * static_cast<std::size_t>(t.vertex_stride);
    return {v[0], v[1], v[2]};
}

} // namespace

// ---- points of an area

LightArea::LightArea(const Database& database, const miLight& light)
    : triangles_(triangles_of(database, light)) {
    const auto& area = light.primitive;
    switch (light.area) {
    case miLIGHT_RECTANGLE:
        reach = length(area.rectangle.edge_u) + length(area.rectangle.edge_v);
        normal_ = normalized(cross(area.rectangle.edge_u, area.rectangle.edge_v));
        break;
    case miLIGHT_DISC:
        reach = area.disc.radius;
        normal_ = area.disc.normal;
        break;
    case miLIGHT_SPHERE:
        reach = area.sphere.radius;
        break;
    case miLIGHT_CYLINDER:
        reach = length(area.cylinder.axis) + area.cylinder.radius;
        break;
    case miLIGHT_USER:
        reach = std::numeric_limits<float>::infinity();
        break;
    default:
        break;
    }
    double sum = 0.0;
    for (std::size_t k = 0; triangles_ && k < triangles_->triangle_count; ++k) {
        const miVector a = vertex(*triangles_, 3 * k);
        const miVector b = vertex(*triangles_, 3 * k + 1), c = vertex(*triangles_, 3 * k + 2);
        sum += 0.5 * length(cross(b - a, c - a));
        summed_.push_back(static_cast<float>(sum));
        reach = std::max({reach, length(a), length(b), length(c)});
    }
    if (!(sum > 0.0))
        summed_.clear();
}

AreaPoint LightArea::point(const miLight& light, float s, float t) const {
    const auto& area = light.primitive;
    switch (light.area) {
    case miLIGHT_RECTANGLE:
        return {area.rectangle.edge_u * (2.0f * s - 1.0f) + area.rectangle.edge_v * (2.0f * t - 1.0f),
                normal_, true};
    case miLIGHT_DISC:
        return {on_circle(area.disc.normal, area.disc.radius * std::sqrt(s), t), normal_, true};
    case miLIGHT_SPHERE: {
        const miVector out = on_sphere(1.0f, 1.0f - 2.0f * s, t);
        return {out * area.sphere.radius, out};
    }
    case miLIGHT_CYLINDER: {
        const miVector out = on_circle(area.cylinder.axis, 1.0f, t);
        return {area.cylinder.axis * (2.0f * s - 1.0f) + out * area.cylinder.radius, out};
    }
    case miLIGHT_OBJECT:
        return point_on_object(s, t);
    default:
        return {};
    }
}

// The first number chooses the triangle by its area; what is left of it and the second one choose the point,
// spread evenly as Turk has it (Generating Random Points in Triangles, Graphics Gems, 1990). The normal is
// that of the front.
AreaPoint LightArea::point_on_object(float s, float t) const {
    if (summed_.empty())
        return {};
    const float at = s * summed_.back();
    const auto found = std::upper_bound(summed_.begin(), summed_.end() - 1, at);
    const auto k = static_cast<std::size_t>(found - summed_.begin());
    const float before = k > 0 ? summed_[k - 1] : 0.0f;
    const float own = summed_[k] - before;
    const float root = std::sqrt(own > 0.0f ? std::clamp((at - before) / own, 0.0f, 1.0f) : 0.0f);
    const miVector a = vertex(*triangles_, 3 * k), b = vertex(*triangles_, 3 * k + 1),
                   c = vertex(*triangles_, 3 * k + 2);
    return {a * (1.0f - root) + b * (root * (1.0f - t)) + c * (root * t), normalized(cross(b - a, c - a))};
}

// ---- what rays see

bool is_seen(const miLight& light) {
    return light.visible && light.area != miLIGHT_NONE && light.area != miLIGHT_USER &&
           light.type != miLIGHT_DIRECTION;
}

LightMesh::LightMesh(const Database& database, const miLight& light) {
    const auto& area = light.primitive;
    switch (light.area) {
    case miLIGHT_RECTANGLE: {
        const miVector &u = area.rectangle.edge_u, &v = area.rectangle.edge_v;
        add(light.origin - u - v);
        add(light.origin + u - v);
        add(light.origin + u + v);
        add(light.origin - u + v);
        add_quad(0, 1, 2, 3);
        break;
    }
    case miLIGHT_DISC:
        add_disc(light.origin, area.disc.normal, area.disc.radius);
        break;
    case miLIGHT_SPHERE:
        add_sphere(light.origin, area.sphere.radius);
        break;
    case miLIGHT_CYLINDER:
        add_cylinder(light.origin, area.cylinder.axis, area.cylinder.radius);
        break;
    default:
        if (const miTriangles* source = triangles_of(database, light))
            add_object(*source, light.origin);
        break;
    }
    triangles.vertex_stride = 3;
    triangles.normal_offset = triangles.motion_offset = -1;
    triangles.texture_offset = triangles.bump_offset = -1;
    triangles.vertices = vertices_.data();
    triangles.vertex_count = static_cast<miUint>(vertices_.size() / 3);
    triangles.indices = indices_.data();
    triangles.triangle_count = static_cast<miUint>(indices_.size() / 3);
    object.triangles = &triangles;
    for (std::size_t k = 0; k < vertices_.size(); k += 3) {
        const miVector p{vertices_[k], vertices_[k + 1], vertices_[k + 2]};
        object.bbox_min = k == 0 ? p : object.bbox_min;
        object.bbox_max = k == 0 ? p : object.bbox_max;
        mi_vector_min(&object.bbox_min, &object.bbox_min, &p);
        mi_vector_max(&object.bbox_max, &object.bbox_max, &p);
    }
}

void LightMesh::add(const miVector& point) {
    vertices_.insert(vertices_.end(), {point.x, point.y, point.z});
}

void LightMesh::add_quad(miUint a, miUint b, miUint c, miUint d) {
    indices_.insert(indices_.end(), {a, b, c, a, c, d});
}

void LightMesh::add_disc(const miVector& origin, const miVector& normal, float radius) {
    for (miUint k = 0; k < around; ++k)
        add(origin + on_circle(normal, radius, static_cast<float>(k) / around));
    for (miUint k = 2; k < around; ++k)
        indices_.insert(indices_.end(), {0, k - 1, k});
}

// Rings from pole to pole; the quads at the poles have one side of no length.
void LightMesh::add_sphere(const miVector& origin, float radius) {
    constexpr miUint rings = around / 2;
    for (miUint ring = 0; ring <= rings; ++ring)
        for (miUint k = 0; k < around; ++k)
            add(origin + on_sphere(radius,
                                   std::cos(std::numbers::pi_v<float> * static_cast<float>(ring) / rings),
                                   static_cast<float>(k) / around));
    for (miUint ring = 0; ring < rings; ++ring)
        for (miUint k = 0; k < around; ++k) {
            const miUint next = (k + 1) % around, below = around * (ring + 1);
            add_quad(around * ring + k, below + k, below + next, around * ring + next);
        }
}

void LightMesh::add_cylinder(const miVector& origin, const miVector& axis, float radius) {
    for (miUint k = 0; k < around; ++k) {
        const miVector rim = origin + on_circle(axis, radius, static_cast<float>(k) / around);
        add(rim - axis);
        add(rim + axis);
    }
    for (miUint k = 0; k < around; ++k) {
        const miUint next = (k + 1) % around;
        add_quad(2 * k, 2 * next, 2 * next + 1, 2 * k + 1);
    }
}

void LightMesh::add_object(const miTriangles& source, const miVector& origin) {
    for (std::size_t corner = 0; corner < 3 * std::size_t{source.triangle_count}; ++corner) {
        add(origin + vertex(source, corner));
        indices_.push_back(static_cast<miUint>(corner));
    }
}

} // namespace stage
