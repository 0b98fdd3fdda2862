// A small scene for tests of the published functions, built without a scene file: one textured square that is
// scaled, turned, mirrored and moving, a light and a camera, each with a place of its own, and a state on the
// square. Matrices in double precision beside it give expected values.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>

#include "render/context.h"
#include "render/renderer.h"
#include "scene/scene.h"

namespace stage_test {

using Matrix4 = std::array<double, 16>;
using Vector3 = std::array<double, 3>;

inline Matrix4 product(const Matrix4& a, const Matrix4& b) {
    Matrix4 r{};
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 4; ++j)
            for (std::size_t k = 0; k < 4; ++k)
                r[4 * i + j] += a[4 * i + k] * b[4 * k + j];
    return r;
}

inline Matrix4 scaling(double x, double y, double z) {
    return {x, 0, 0, 0, 0, y, 0, 0, 0, 0, z, 0, 0, 0, 0, 1};
}

inline Matrix4 translation(double x, double y, double z) {
    return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, x, y, z, 1};
}

inline Matrix4 turn_x(double a) {
    return {1, 0, 0, 0, 0, std::cos(a), std::sin(a), 0, 0, -std::sin(a), std::cos(a), 0, 0, 0, 0, 1};
}

inline Matrix4 turn_y(double a) {
    return {std::cos(a), 0, -std::sin(a), 0, 0, 1, 0, 0, std::sin(a), 0, std::cos(a), 0, 0, 0, 0, 1};
}

inline Matrix4 transposed(const Matrix4& m) {
    Matrix4 r;
    for (std::size_t i = 0; i < 4; ++i)
        for (std::size_t j = 0; j < 4; ++j)
            r[4 * i + j] = m[4 * j + i];
    return r;
}

// (x, y, z, w) times the matrix.
inline Vector3 times(const Vector3& v, double w, const Matrix4& m) {
    Vector3 r;
    for (std::size_t j = 0; j < 3; ++j)
        r[j] = v[0] * m[j] + v[1] * m[4 + j] + v[2] * m[8 + j] + w * m[12 + j];
    return r;
}

inline void store(const Matrix4& m, miScalar* to) {
    for (std::size_t i = 0; i < 16; ++i)
        to[i] = static_cast<float>(m[i]);
}

// A space in its parent, with the way back: scaled, turned about x, then y, then moved.
struct Placement {
    Vector3 scale, move;
    double about_x, about_y;
    [[nodiscard]] Matrix4 to_world() const {
        return product(
            product(product(scaling(scale[0], scale[1], scale[2]), turn_x(about_x)), turn_y(about_y)),
            translation(move[0], move[1], move[2]));
    }
    [[nodiscard]] Matrix4 from_world() const {
        return product(
            product(product(translation(-move[0], -move[1], -move[2]), turn_y(-about_y)), turn_x(-about_x)),
            scaling(1 / scale[0], 1 / scale[1], 1 / scale[2]));
    }
};

inline constexpr Placement object_place = {{-2.0, 3.0, 0.5}, {5.0, -1.0, 2.0}, 0.7, -0.4};
inline constexpr Placement object_end = {
    {-2.0, 3.0, 0.5}, {6.0, 1.0, 2.0}, 0.7, -0.4}; // when the shutter closes
inline constexpr Placement light_place = {{1.5, 1.5, 2.5}, {0.0, 8.0, 1.0}, -1.2, 0.3};
inline constexpr Placement camera_place = {{1.0, 1.0, 1.0}, {1.0, 2.0, 9.0}, -0.2, 0.5};

class Stage {
public:
    explicit Stage(bool camera_space, bool moving = false) {
        stage::set_current_scene(&scene);
        add_options(moving);
        add_camera();
        add_light();
        add_object(moving);
        add_group();
        stage::RenderCommand command;
        command.root = group->tag;
        command.camera_instance = camera_instance->tag;
        command.options = options->tag;
        world = std::make_unique<stage::World>(scene, command, camera_space);
        fill_state();
    }
    ~Stage() { stage::set_current_scene(nullptr); }

    stage::Element& add(int type, const std::string& name, std::size_t size) {
        return scene.database.add(type, name, {}, size);
    }

    stage::Scene scene;
    stage::Element *options, *camera, *camera_instance, *light, *light_instance, *object, *instance, *group;
    std::unique_ptr<stage::World> world;
    stage::ThreadContext context;
    miRc_intersection hit;
    miState state{};

private:
    void add_options(bool moving) {
        options = &add(miSCENE_OPTIONS, "opt", sizeof(miOptions));
        auto* o = options->as<miOptions>();
        o->motion = moving;
        o->shutter = moving ? 0.5f : 0.0f;
        o->luminance_weight = {0.25f, 0.5f, 0.125f, 0};
        o->face = 'a';
    }
    stage::Element& place(const std::string& name, miTag item, const Placement& where) {
        stage::Element& e = add(miSCENE_INSTANCE, name, sizeof(miInstance));
        auto* i = e.as<miInstance>();
        store(where.to_world(), i->tf.local_to_global);
        store(where.from_world(), i->tf.global_to_local);
        i->item = item;
        for (miUint1* flag : {&i->visible, &i->shadow, &i->trace, &i->reflection, &i->refraction,
                              &i->transparency, &i->caustic, &i->globillum, &i->finalgather})
            *flag = 2;
        return e;
    }
    void add_camera() {
        camera = &add(miSCENE_CAMERA, "cam", sizeof(miCamera));
        auto* c = camera->as<miCamera>();
        c->focal = 2.0f;
        c->aperture = 1.5f;
        c->aspect = 1.25f;
        c->x_resolution = 320;
        c->y_resolution = 240;
        c->x_offset = 3.0f;
        c->y_offset = -5.0f;
        camera_instance = &place("cam_inst", camera->tag, camera_place);
    }
    void add_light() {
        light = &add(miSCENE_LIGHT, "lamp", sizeof(miLight));
        auto* l = light->as<miLight>();
        l->type = miLIGHT_SPOT;
        l->area = miLIGHT_DISC;
        l->exponent = 2.0f;
        l->energy = {1, 2, 3, 4};
        l->origin = {7, 8, 9};
        l->direction = {0, 0, -1};
        l->spread = 0.75f;
        l->shader = 4321;
        light_instance = &place("lamp_inst", light->tag, light_place);
    }
    // Vertex: position, normal, two texture spaces, one pair of basis vectors.
    void add_object(bool moving) {
        object = &add(miSCENE_OBJECT, "square", sizeof(miObject));
        auto geometry = std::make_unique<stage::Geometry>();
        const float corners[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
        for (const auto& [x, y] : corners)
            for (const float value : {x, y, 0.0f, 0.0f, 0.0f, 1.0f, 0.5f * x + 0.5f, 0.5f * y + 0.5f, 0.0f, x,
                                      10.0f, y, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f})
                geometry->vertices.push_back(value);
        geometry->indices = {0, 1, 2, 0, 2, 3};
        geometry->data = {11, 12, 21, 22};
        miTriangles& t = geometry->view;
        t.triangle_count = 2;
        t.vertex_count = 4;
        t.vertex_stride = 18;
        t.normal_offset = 3;
        t.motion_offset = -1;
        t.texture_count = 2;
        t.texture_offset = 6;
        t.bump_count = 1;
        t.bump_offset = 12;
        t.data_count = 2;
        t.vertices = geometry->vertices.data();
        t.indices = geometry->indices.data();
        t.data = geometry->data.data();
        object->geometry = std::move(geometry);
        auto* o = object->as<miObject>();
        o->type = miOBJECT_POLYGONS;
        o->visible = o->shadow = o->trace = 1;
        o->reflection = o->refraction = o->transparency = 3;
        o->triangles = &object->geometry->view;
        o->bbox_min = {-1, -1, 0};
        o->bbox_max = {1, 1, 0};
        instance = &place("square_inst", object->tag, object_place);
        auto* i = instance->as<miInstance>();
        i->label = 77;
        if (moving) {
            i->gen_motion = 1;
            store(object_end.from_world(), i->motion_transform);
        }
    }
    void add_group() {
        const std::array kids = {camera_instance->tag, light_instance->tag, instance->tag};
        group = &add(miSCENE_GROUP, "world", sizeof(miGroup) + kids.size() * sizeof(miTag));
        auto* g = group->as<miGroup>();
        g->no_kids = static_cast<int>(kids.size());
        std::memcpy(reinterpret_cast<char*>(g) + offsetof(miGroup, kids), kids.data(), sizeof kids);
    }
    void fill_state() {
        context.world = world.get();
        hit.instance = 0;
        hit.triangle = 1;
        hit.u = 0.25f;
        hit.v = 0.5f;
        state.renderer = &context;
        state.camera = camera->as<miCamera>();
        state.options = options->as<miOptions>();
        state.camera_inst = camera_instance->tag;
        state.instance = instance->tag;
        state.light_instance = light_instance->tag;
        state.pri = &hit;
        state.bary[0] = 0.25f;
        state.bary[1] = 0.25f;
        state.normal = state.normal_geom = {0, 0, 1};
        state.dir = {0.6f, 0, -0.8f};
        state.dot_nd = -0.8f;
    }
};

inline void expect_near(const miVector& got, const Vector3& want, double tolerance, const std::string& what) {
    EXPECT_NEAR(got.x, want[0], tolerance) << what;
    EXPECT_NEAR(got.y, want[1], tolerance) << what;
    EXPECT_NEAR(got.z, want[2], tolerance) << what;
}

} // namespace stage_test
