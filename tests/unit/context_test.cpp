// The shading context: footprints against neighbouring pixels, triangles against displaced points, and what
// is read from states.
#include "orl_context.h"
#include "shader_fixture.h"

using namespace orl;
using namespace orl::context;

namespace {

struct V {
    double x, y, z;
};
V operator+(V a, V b) {
    return {a.x + b.x, a.y + b.y, a.z + b.z};
}
V operator-(V a, V b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
V operator*(double f, V a) {
    return {f * a.x, f * a.y, f * a.z};
}
double dot(V a, V b) {
    return a.x * b.x + a.y * b.y + a.z * b.z;
}
double length(V a) {
    return std::sqrt(dot(a, a));
}
V wide(const miVector& v) {
    return {v.x, v.y, v.z};
}
miVector narrow(V v) {
    return {static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
}

void expect_near(const miVector& got, V expected, double tolerance, const char* what) {
    EXPECT_LE(length(wide(got) - expected), tolerance)
        << what << ": (" << got.x << ", " << got.y << ", " << got.z << ") instead of (" << expected.x << ", "
        << expected.y << ", " << expected.z << ")";
}

// A camera at the origin with right, up and forward turned away from the axes; rays by image plane position
// in pixels from the middle.
struct Pinhole {
    V right{0.8, 0, 0.6}, up{0, 1, 0}, forward{0.6, 0, -0.8};
    double focal = 1.5, pixel_width = 0.001, pixel_height = 0.002;
    bool orthographic = false;

    Lens lens() const {
        return {orthographic,
                static_cast<float>(focal),
                static_cast<float>(pixel_width),
                static_cast<float>(pixel_height),
                narrow(right),
                narrow(up),
                narrow(forward)};
    }
    V plane_point(double x, double y) const {
        return (x * pixel_width) * right + (y * pixel_height) * up + focal * forward;
    }
    V dir(double x, double y) const {
        const V d = orthographic ? forward : plane_point(x, y);
        return (1 / length(d)) * d;
    }
    V origin(double x, double y) const {
        return orthographic ? plane_point(x, y) - focal * forward : V{0, 0, 0};
    }
    // Where the ray meets the plane through `at` with that normal.
    V hit(double x, double y, V at, V normal) const {
        const V o = origin(x, y), d = dir(x, y);
        return o + (dot(at - o, normal) / dot(d, normal)) * d;
    }
};

TEST(Footprint, IsTheDifferenceOfNeighbouringPixels) {
    const V normals[] = {{-0.6, 0, 0.8}, {0, 1, 0.2}, {-0.3, 0.5, 0.9}};
    for (const bool orthographic : {false, true})
        for (const V& n : normals)
            for (const double x : {-300.0, 0.0, 170.0})
                for (const double y : {-80.0, 55.0}) {
                    Pinhole camera;
                    camera.orthographic = orthographic;
                    const V normal = (1 / length(n)) * n;
                    const V at = camera.origin(x, y) + 7.0 * camera.dir(x, y);
                    const Differential d = surface_footprint(camera.lens(), narrow(camera.dir(x, y)),
                                                             narrow(camera.dir(x, y)), narrow(normal), 7.0f);
                    const double h = 1e-3; // central differences: an error of h^2, far below single precision
                    const V right =
                        0.5 / h * (camera.hit(x + h, y, at, normal) - camera.hit(x - h, y, at, normal));
                    const V up =
                        0.5 / h * (camera.hit(x, y + h, at, normal) - camera.hit(x, y - h, at, normal));
                    expect_near(d.right, right, 3e-6 * length(right) + 1e-9, "right");
                    expect_near(d.up, up, 3e-6 * length(up) + 1e-9, "up");

                    const Differential turned = direction_footprint(camera.lens(), narrow(camera.dir(x, y)));
                    expect_near(turned.right, 0.5 / h * (camera.dir(x + h, y) - camera.dir(x - h, y)), 1e-8,
                                "turn");
                    expect_near(turned.up, 0.5 / h * (camera.dir(x, y + h) - camera.dir(x, y - h)), 1e-8,
                                "turn");
                }
}

TEST(Degenerate, RaysThatGrazeStayFiniteAndFlatTrianglesChangeNothing) {
    const Pinhole camera;
    const miVector ahead = narrow(camera.forward);
    for (const miVector& normal : {miVector{0, 1, 0}, {0.8f, 0, 0.6f}, {0, 0, 0}}) {
        const Differential d = surface_footprint(camera.lens(), ahead, ahead, normal, 100.0f);
        EXPECT_TRUE(std::isfinite(d.right.x + d.right.z + d.up.x + d.up.y));
    }
    const Corners line{{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}, point{{1, 1, 1}, {1, 1, 1}, {1, 1, 1}};
    Tangents along;
    for (const Corners& bad : {line, point}) {
        const WeightChange w = weight_change(bad, {1, 0, 0});
        EXPECT_EQ(std::fabs(w.b) + std::fabs(w.c), 0.0f);
        EXPECT_FALSE(tangents(line, bad, along));
        EXPECT_EQ(along.along_u.x, 0.0f);
    }
}

// ---- reading states

class Context : public ShaderTest {
protected:
    ChannelCache cache{};
    Context() {
        // The plane z = 0 with texture coordinates equal to the position; the object's first space is
        // channel 4.
        renderer.triangle.points = scripted::Triangle::Corners{{{-9, -9, 0}, {9, -9, 0}, {0, 18, 0}}};
        renderer.triangle.textures = {*renderer.triangle.points};
        renderer.texture_spaces = 1;
        orl_SceneData scene{};
        scene.map_channel_ids = miTRUE;
        set_scene(scene);
        orl_ObjectData record{};
        record.uv_channels = {0, 1, {4}};
        object.userdata = add_record(record);
        state->instance = add_instance_with(miNULLTAG, renderer.add(miSCENE_OBJECT, &object));
    }
    miObject object{};
};

// Seen straight on from 5 units away: a pixel of 1/640 of the aperture, 5 times as large at the plane. The
// picture of 640 x 480 with aspect 4/3 has square pixels.
constexpr float pixel_at_5 = 5.0f / 640;

TEST_F(Context, PathsAddUpAlongTheParents) {
    scripted::State mirrored;
    mirrored.set_hit({0, 0, 0}, {0, 0, 15}, {0, 0, -1}).set_parent(state, miRAY_REFLECT);
    EXPECT_NEAR(object_width(mirrored, Selector::surface).x, 4 * pixel_at_5, 1e-7f); // 5 + 15 units
    scripted::State light;
    light.set_hit({0, 8, 0}, {0, 0, 0}, {0, 0, 1}).set_parent(state, miRAY_LIGHT);
    EXPECT_EQ(selector_of(light), Selector::light_ray);
    EXPECT_NEAR(object_width(light, Selector::light_ray).x, pixel_at_5, 1e-8f);
}

TEST_F(Context, PointsAndDirectionsBySelector) {
    constexpr miMatrix up_one{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 1, 0, 1};
    constexpr miMatrix mirror_x{-1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    renderer.set_to_space(scripted::Space::object, up_one);
    renderer.set_to_space(scripted::Space::light, mirror_x);
    state->point = {2, 3, 4};
    state->dir = {3, 0, -4};
    expect_near(object_point(state, Selector::surface), {2, 4, 4}, 0, "surface");
    expect_near(object_point(state, Selector::light_ray), {-2, 3, 4}, 0, "light");
    expect_near(object_point(state, Selector::environment_ray), {0.6, 0, -0.8}, 1e-7, "environment");
    expect_near(direction(state, Selector::light_ray), {-0.6, 0, -0.8}, 1e-7, "light direction");
    expect_near(world_point(state, Selector::surface), {2, 3, 4}, 0, "world");
}

TEST_F(Context, TextureVerticesOfAnotherSourceGoFirst) {
    static miVector corners[3] = {{0, 0, 0}, {3, 0, 0}, {0, 6, 0}};
    TextureVertexSource source{};
    source.function[0] = [](miState*, void*, miVector** a, miVector** b, miVector** c) {
        *a = &corners[0];
        *b = &corners[1];
        *c = &corners[2];
        return miTRUE;
    };
    const ScopedRecord record(state, keys::texture_vertices, source);
    miVector uvw{};
    EXPECT_TRUE(texture_vertex(state, 4, cache, uvw));
    EXPECT_NEAR(uvw.x, 1, 1e-6f); // a third of each corner
    EXPECT_NEAR(uvw.y, 2, 1e-6f);
    Tangents along;
    EXPECT_TRUE(texture_tangents(state, 4, cache, along));
    expect_near(along.along_u, {6, 0, 0}, 1e-6, "18 units of x for 3 of u");
}

} // namespace
