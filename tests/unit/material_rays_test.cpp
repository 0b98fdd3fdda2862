// The standard material and rays: reflection and refraction maps, shadows, photons.
#include "material_fixture.h"

namespace {

using Material = MaterialTest;

TEST_F(Material, RayMaps) {
    std::vector<miVector> asked;
    const miTag tracer = renderer.add_shader([&](void* color, miState* s, void*) {
        const IncomingRay* const ray = find_record(s, keys::incoming_ray);
        asked.insert(asked.end(), {s->dir, ray->dir, {static_cast<float>(ray->type), 0, 0}});
        s->point = {7, 7, 7}, s->normal = {1, 0, 0};
        return *static_cast<miColor*>(color) = {0.5f, 0.25f, 1, 0}, miTRUE;
    });
    map(9, tracer, 0.8f), map(10, tracer, 0.3f);
    state.set_hit({-3, 0, 4}, {0, 0, 0}, {0, 0, 1}), run();
    // Mirrored, and by Snell's law: sine 0.6 / 1.5 = 0.4, cosine sqrt(0.84).
    const miVector table[] = {{0.6f, 0, 0.8f},        state->dir, {miRAY_REFLECT, 0, 0},
                              {0.4f, 0, -0.9165151f}, state->dir, {miRAY_REFRACT, 0, 0}};
    for (std::size_t k = 0; k < 6; ++k)
        expect_near(color_of(asked.at(k)), color_of(table[k]));
    EXPECT_TRUE(ior[0] == 1 && ior[1] == 1.5f && state->normal.z == 1 && state->point.x == 0);
    expect_near({seen.reflectionAmount, seen.refractionAmount, 0, 0}, {0.4f, 0.3f, 0, 0}); // 0.8 * 0.5
    EXPECT_TRUE(seen.mapFlags == 0x36 && seen.channel[9].b == 1 && !find_record(state, keys::incoming_ray));
}

TEST_F(Material, ShadowModesAndMaps) {
    map(6, renderer.add_color(grey(0.5f)), 0.5f), map(7, renderer.add_color({0, 0.5f, 0, 1}));
    map(1, renderer.add_shader([&](void*, miState* s, void*) { // which only type 1 asks for
        EXPECT_TRUE(s->dot_nd == -0.8f && (s->inv_normal != 0) == (s->options->shadow == 's'));
        return miFALSE;
    }));
    state.set_hit({3, 0, 4}, {0, 0, 0}, {0, 0, 1}), state->dir = {0.6f, 0, 0.8f};
    int segments = 0;
    material->opacity = 0.5f;
    renderer.mi_trace_shadow_seg = [&](miColor*, miState*) -> miBoolean { return ++segments == 1; };
    // mode, casts shadows, transparency type: answer, light
    const std::tuple<int, bool, int, bool, miColor> table[] = {
        {1, true, 0, true, {0, 1, 0, 0}}, {'l', true, 1, true, grey(1)}, {'l', false, 0, true, grey(2, 1)},
        {0, true, 0, true, grey(2, 1)},   {'s', true, 1, true, grey(1)}, {'s', true, 0, false, grey(2, 1)}};
    for (const auto& [mode, casts, type, answer, passed] : table) {
        set_node(orl_NodeData{0, 0, 0, 1, 0, 0, {}, casts, {}, 0});
        state->type = miRAY_SHADOW, state.options.shadow = mode, material->transparencyType = type;
        EXPECT_TRUE(run(grey(2, 1)) == answer && state->normal.z == 1 && !state->inv_normal) << mode;
        expect_near(result, passed);
    }
    state.options.shadow = 1, material->opacity = 3; // 1.75 under the map, so opaque
    EXPECT_FALSE(run(grey(2, 1)) || result.r != 0);
}

// Diffuse 0.5, specular level 0.2, reflection 0.4 (tinted to 0.2 in green), refraction 0.5; so the opacity is
// 0.6 (1 - 0.5) = 0.3: diffuse 0.15, mirror 0.2 + 0.4, through 0.7. The maps halve the energy of 2.
TEST_F(Material, PhotonChoices) {
    std::pair<miInteger, float> asked;
    const miTag bender = renderer.add_shader([&](void* color, miState* s, void*) {
        asked = {find_record(s, keys::incoming_ray)->type, s->dir.z};
        return *static_cast<miColor*>(color) = grey(0.5f), miTRUE;
    });
    map(9, bender, 0.4f), map(10, bender, 0.5f);
    channels[1] = grey(0.5f), channels[2] = grey(1), channels[3].r = 0.2f;
    material->opacity = 0.6f, material->transparencyType = 2, state->type = miPHOTON_LIGHT;
    const std::tuple<miRay_type, const char*, int, float, miColor> table[] = {
        {miPHOTON_REFLECT_DIFFUSE, "mi_photon_reflection_diffuse", 0, 0, grey(0.3f)},
        {miPHOTON_REFLECT_SPECULAR, "mi_photon_reflection_specular", 10, 1, {0.6f, 0.4f, 0.6f, 0}},
        {miPHOTON_TRANSMIT_DIFFUSE, "mi_photon_transmission_diffuse", 15, -1, grey(0.7f)},
        {miPHOTON_TRANSMIT_SPECULAR, "mi_photon_transparent", 0, 0, grey(0)},
        {miPHOTON_ABSORB, "mi_store_photon", 0, 0, grey(2)}};
    for (const auto& [type, function, told, z, energy] : table) {
        renderer.mi_choose_simple_scatter_type = [t = type](auto...) { return t; };
        renderer.clear_logs(), asked = {};
        EXPECT_TRUE(run(grey(2)) && asked == std::pair(told, z));
        EXPECT_STREQ(renderer.photons().front().function, "mi_store_photon");
        EXPECT_STREQ(renderer.photons().back().function, function);
        expect_near(renderer.photons().back().energy, energy);
    }
    channels[1] = grey(1e-7f), renderer.clear_logs(), run(grey(2));
    EXPECT_TRUE(renderer.photons().empty() && shaded == 0 && state->dir.z == -1);
}

} // namespace
