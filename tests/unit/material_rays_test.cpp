// The standard material and rays: reflection and refraction maps, shadows, photons.
#include "material_fixture.h"

namespace {

using Material = MaterialTest;

TEST_F(Material, RayMaps) {
    struct Asked {
        miVector dir, incoming;
        miInteger type;
    };
    std::vector<Asked> asked;
    const miTag tracer = renderer.add_shader([&](void* color, miState* s, void*) {
        const IncomingRay* const ray = find_record(s, keys::incoming_ray);
        asked.push_back({s->dir, ray->dir, ray->type});
        s->point = {7, 7, 7}, s->normal = {1, 0, 0}, s->dist = 99;
        *static_cast<miColor*>(color) = {0.5f, 0.25f, 1, 0};
        return miTRUE;
    });
    map(9, tracer, 0.8f), map(10, tracer, 0.3f);
    state.set_hit({-3, 0, 4}, {0, 0, 0}, {0, 0, 1});
    run();
    ASSERT_EQ(asked.size(), 2u);
    // Mirrored, and by Snell's law: sine 0.6 / 1.5 = 0.4, cosine sqrt(0.84).
    const Asked table[] = {{{0.6f, 0, 0.8f}, {0.6f, 0, -0.8f}, miRAY_REFLECT},
                           {{0.4f, 0, -0.9165151f}, {0.6f, 0, -0.8f}, miRAY_REFRACT}};
    for (std::size_t k = 0; k < 2; ++k) {
        expect_near({asked[k].dir.x, asked[k].dir.y, asked[k].dir.z, 0},
                    {table[k].dir.x, table[k].dir.y, table[k].dir.z, 0});
        EXPECT_TRUE(asked[k].type == table[k].type && asked[k].incoming.z == state->dir.z);
    }
    EXPECT_TRUE(ior[0] == 1 && ior[1] == 1.5f && state->dist == 5 && state->normal.z == 1);
    EXPECT_EQ(state->point.x, 0);
    EXPECT_NEAR(seen.reflectionAmount, 0.4f, 1e-6f); // 0.8 * 0.5
    EXPECT_NEAR(seen.refractionAmount, 0.3f, 1e-6f);
    EXPECT_EQ(seen.channel[9], (miColor{0.5f, 0.25f, 1, 0}));
    EXPECT_EQ(seen.mapFlags, 0x36u);
    state.set_hit({-4, 0, 3}, {0, 0, 0}, {0, 0, -1}); // inside: 0.8 * 1.5 above 1, so the mirror direction
    material->twoSided = miTRUE;
    run();
    EXPECT_GT(asked.back().dir.z, 0.59f);
}

TEST_F(Material, MapsThatAreOffArePresent) {
    map(9, renderer.add_color(grey(1))), map(10, renderer.add_color(grey(1)));
    enabled[9] = enabled[10] = miFALSE;
    run();
    EXPECT_EQ(seen.mapFlags, 0x30u);
    EXPECT_EQ(seen.channel[9], grey(0));
}

TEST_F(Material, Shadows) {
    channels[1] = {0.5f, 0, 1, 0};
    material->filterColor = {0.8f, 0.4f, 0.2f, 0};
    state->type = miRAY_SHADOW, state.options.shadow = 1;
    // type, opacity, falloff: light. The ray meets the surface head on.
    const std::tuple<int, float, float, miColor> table[] = {{0, 0.5f, 0, {0.8f, 0.4f, 0.2f, 0}},
                                                            {0, 0.75f, 0, {0.4f, 0, 0, 0}},
                                                            {2, 0.25f, 0, grey(0.75f)},
                                                            {1, 0.2f, 0, {0.4f, 0.8f, 0, 0}},
                                                            {0, 1, 0, grey(0)},
                                                            {2, 1, 0.5f, grey(0.5f)},
                                                            {2, 1, 0, grey(0)},
                                                            {0, 1, 0.5f, {0.8f, 0.4f, 0.2f, 0}}};
    for (const auto& [type, opacity, falloff, light] : table) {
        material->transparencyType = type, material->opacity = opacity, material->falloffAmount = falloff;
        EXPECT_EQ(run(grey(2, 1)), light.r > 0);
        expect_near(result, {2 * light.r, 2 * light.g, 2 * light.b, 0});
    }
}

TEST_F(Material, ShadowModesAndMaps) {
    map(6, renderer.add_color(grey(0.5f))), map(7, renderer.add_color({0, 0.5f, 0, 1}));
    const miTag seen_side = renderer.add_shader([&](void*, miState* s, void*) {
        EXPECT_TRUE(s->dot_nd == -0.8f && (s->inv_normal != 0) == (s->options->shadow == 's'));
        return miFALSE;
    });
    map(1, seen_side); // only type 1 asks
    state->type = miRAY_SHADOW;
    state.set_hit({3, 0, 4}, {0, 0, 0}, {0, 0, 1});
    state->dir = {0.6f, 0, 0.8f};
    const miColor light = grey(2, 1), filtered{0, 1, 0, 0}, halved = grey(1);
    int segments = 0;
    renderer.mi_trace_shadow_seg = [&](miColor*, miState*) -> miBoolean { return ++segments == 1; };
    orl_NodeData caster{}, other{};
    caster.shadows_from_all_lights = miTRUE, caster.visibility = other.visibility = 1;
    // mode, casts shadows, transparency type: answer, light
    const std::tuple<int, bool, int, bool, miColor> table[] = {
        {1, true, 0, true, filtered}, {'l', true, 1, true, halved}, {'l', false, 0, true, light},
        {0, true, 0, true, light},    {'s', true, 1, true, halved}, {'s', true, 0, false, light}};
    for (const auto& [mode, casts, type, answer, passed] : table) {
        set_node(casts ? caster : other);
        state.options.shadow = mode, material->transparencyType = type;
        EXPECT_EQ(run(light), answer) << mode;
        expect_near(result, passed);
        EXPECT_TRUE(state->normal.z == 1 && !state->inv_normal);
    }
    state.options.shadow = 1, material->wire = miTRUE; // between the wires
    renderer.triangle.points = {{{-9, -9, 0}, {9, -9, 0}, {0, 9, 0}}};
    material->wireUnits = wire_world, material->wireSize = 0.1f;
    EXPECT_TRUE(run(light) && result == light);
}

TEST_F(Material, ShadowDistanceIsProbed) {
    state->instance = add_instance_with(miNULLTAG);
    const miTag instance = state->instance;
    shade = [&](miState*, IllumRecord& r) { *call_of(r).probe = {instance, {0, 0, 1}, 0.5f}; };
    run();
    state->type = miRAY_SHADOW, state.options.shadow = 1;
    for (const float z : {-1.0f, -2.0f, 0.0f}) {
        state->point = {0, 0, z};
        EXPECT_TRUE(run(grey(1)) && result == grey(1)); // opaque, but passed
    }
    state->type = miRAY_EYE;
    shade = [&](miState*, IllumRecord& r) { EXPECT_EQ(std::exchange(*call_of(r).probe, {}).largest, 3); };
    run();
    state->type = miRAY_SHADOW;
    EXPECT_FALSE(run(grey(1)));
}

// Diffuse 0.5, specular level 0.2 and, with maps, reflection 0.4 (tinted to 0.2 in green) and refraction 0.5.
TEST_F(Material, PhotonChoices) {
    struct {
        miInteger type;
        miVector dir;
    } asked{};
    const miTag bender = renderer.add_shader([&](void* color, miState* s, void*) {
        asked = {find_record(s, keys::incoming_ray)->type, s->dir};
        s->dir = {0, 1, 0};
        *static_cast<miColor*>(color) = grey(0.5f);
        return miTRUE;
    });
    map(9, bender, 0.4f), map(10, bender, 0.5f);
    channels[1] = grey(0.5f), channels[2] = grey(1), channels[3].r = 0.2f;
    material->opacity = 0.6f, material->transparencyType = 2;
    miColor offered[4] = {};
    miRay_type choice{};
    renderer.mi_choose_simple_scatter_type = [&](miState*, miColor* a, miColor* b, miColor* c, miColor* d) {
        offered[0] = *a, offered[1] = *b, offered[2] = *c, offered[3] = *d;
        return choice;
    };
    state->type = miPHOTON_LIGHT;
    // opacity 0.6 (1 - 0.5) = 0.3: diffuse 0.15, mirror 0.2 + 0.4, through 0.7
    const miColor shares[] = {grey(0.15f), {0.6f, 0.4f, 0.6f, 0}, grey(0.7f), grey(0)};
    const std::tuple<miRay_type, const char*, int, float, float> table[] = {
        {miPHOTON_REFLECT_DIFFUSE, "mi_photon_reflection_diffuse", 0, 0.3f, 0},
        {miPHOTON_REFLECT_SPECULAR, "mi_photon_reflection_specular", miPHOTON_REFLECT_SPECULAR, 0.6f, 1},
        {miPHOTON_TRANSMIT_DIFFUSE, "mi_photon_transmission_diffuse", miPHOTON_TRANSMIT_DIFFUSE, 0.7f, -1},
        {miPHOTON_TRANSMIT_SPECULAR, "mi_photon_transparent", 0, 0, 0},
        {miPHOTON_ABSORB, "mi_store_photon", 0, 2, 0}};
    for (const auto& [type, function, told, energy, z] : table) {
        renderer.clear_logs();
        choice = type, asked = {};
        EXPECT_TRUE(run(grey(2)));
        for (int k = 0; k < 4; ++k)
            expect_near(offered[k], shares[k]);
        ASSERT_EQ(renderer.photons().size(), type == miPHOTON_ABSORB ? 1u : 2u);
        EXPECT_STREQ(renderer.photons().front().function, "mi_store_photon");
        EXPECT_STREQ(renderer.photons().back().function, function);
        EXPECT_NEAR(renderer.photons().back().energy.r, energy, 1e-6f);
        EXPECT_TRUE(asked.type == told && asked.dir.z == z && state->dir.z == -1);
    }
    EXPECT_EQ(shaded, 0);
    channels[1] = grey(1e-7f), renderer.clear_logs();
    run(grey(2));
    EXPECT_TRUE(renderer.photons().empty());
}

} // namespace
