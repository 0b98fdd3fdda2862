// The shading context: footprints against neighbouring pixels, triangles against displaced points, and what
// is read from states.
#include "orl_context.h"
#include "shader_fixture.h"

using namespace orl;
using namespace orl::context;

namespace {

// A camera at the origin with axes turned away from those of space; pixels are 0.001 by 0.002.
constexpr Lens lens{false, 1.5f, 0.001f, 0.002f, {0.8f, 0, 0.6f}, {0, 1, 0}, {0.6f, 0, -0.8f}};

// The hit is 7 units away. Expected are central differences of where neighbouring pixels' rays meet the
// plane, and of their directions, in double precision.
TEST(Footprint, IsTheDifferenceOfNeighbouringPixels) {
    const struct {
        bool orthographic;
        miVector dir, normal, right, up, turn_right, turn_up;
    } cases[] = {
        {false,
         lens.forward,
         {-0.6f, 0, 0.8f}, // of the middle, straight on
         {3.7333333e-3f, 0, 2.8e-3f},
         {0, 9.3333333e-3f, 0},
         {5.3333333e-4f, 0, 4e-4f},
         {0, 1.3333333e-3f, 0}},
        {false,
         {0.43034429f, 0.071724048f, -0.89981079f},
         {0, 0.8f, 0.6f}, // 300 pixels to the left, 55 up
         {5.1169029e-3f, 2.4424946e-4f, -3.2566595e-4f},
         {6.513319e-3f, 0.010214068f, -0.013618758f},
         {5.7651796e-4f, 9.148087e-6f, 2.7645518e-4f},
         {-4.0251581e-5f, 1.297365e-3f, 8.4162397e-5f}},
        {false,
         {0.68245088f, -0.10539782f, -0.72329254f},
         {-0.48f, 0.6f, 0.64f}, // 170 right, 80 down
         {3.6889237e-3f, 0, 2.7666928e-3f},
         {4.4232928e-3f, 8.5391752e-3f, -4.6880072e-3f},
         {4.7664557e-4f, 7.775062e-6f, 4.4859818e-4f},
         {9.4764279e-5f, 1.3028373e-3f, -1.004355e-4f}},
        {true, lens.forward, {-0.48f, 0.6f, 0.64f}, {8e-4f, 0, 6e-4f}, {9e-4f, 2e-3f, -1.2e-3f}, {}, {}},
    };
    for (const auto& each : cases) {
        Lens camera = lens;
        camera.orthographic = each.orthographic;
        const Differential plane = surface_footprint(camera, each.dir, each.dir, each.normal, 7);
        expect_near(plane.right, each.right, 3e-6f * mi_vector_norm(&each.right) + 1e-9f);
        expect_near(plane.up, each.up, 3e-6f * mi_vector_norm(&each.up) + 1e-9f);
        const Differential turn = direction_footprint(camera, each.dir);
        expect_near(turn.right, each.turn_right, 1e-8f);
        expect_near(turn.up, each.turn_up, 1e-8f);
    }
}

TEST(Degenerate, RaysThatGrazeStayFiniteAndFlatTrianglesChangeNothing) {
    for (const miVector& normal : {miVector{0, 1, 0}, {0.8f, 0, 0.6f}, {0, 0, 0}}) {
        const Differential d = surface_footprint(lens, lens.forward, lens.forward, normal, 100);
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
        set_textured_plane(4);
        orl_SceneData scene{};
        scene.map_channel_ids = miTRUE;
        set_scene(scene);
    }
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
    expect_near(object_point(state, Selector::surface), {2, 4, 4}, 0);
    expect_near(object_point(state, Selector::light_ray), {-2, 3, 4}, 0);
    expect_near(object_point(state, Selector::environment_ray), {0.6f, 0, -0.8f}, 1e-7f);
    expect_near(direction(state, Selector::light_ray), {-0.6f, 0, -0.8f}, 1e-7f);
    expect_near(world_point(state, Selector::surface), {2, 3, 4}, 0);
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
    expect_near(along.along_u, {6, 0, 0}); // 18 units of x for 3 of u
}

} // namespace
