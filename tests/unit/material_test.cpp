// The standard material under a scripted illumination model, which shows what it was given.
#include "material_call.h"
#include "orl_rendelem.h"
#include "shader_fixture.h"

#include <array>
#include <tuple>

using namespace orl;

ENTRY_POINT(orl_StandardMaterial, miColor, StandardMaterialParams);
INIT_AND_EXIT(orl_StandardMaterial, StandardMaterialParams);

namespace {

// Channels of the model: Blinn's. Bump, reflection and refraction lie at 8 to 10.
class Material : public ShaderTest {
protected:
    LiveShader<StandardMaterialParams> material{state, orl_StandardMaterial_init, orl_StandardMaterial_exit};
    ChannelKinds kinds = channel_kinds(2, 2, 2, 4, 4, 2, 4, 2);
    SlotMap slots = slot_map(0, 1, 2, 4, 3, 5, 6, 7);
    unsigned features = 0x1F20FFE;
    std::array<miColor, channel_count> channels{};
    std::vector<miBoolean> enabled = std::vector<miBoolean>(24);
    std::vector<miTag> maps = std::vector<miTag>(24);
    std::vector<miScalar> amounts = std::vector<miScalar>(24, 1.0f);
    miColor result{};
    IllumRecord given{}; // as the model finds it
    MaterialValues values{};
    miShader_type called_as{};
    miInteger faceted = 0; // what the model says
    std::function<void(const MaterialCall&)> begin = [](const MaterialCall&) {};
    IllumRecord seen{};   // as the model's shade callback finds it
    miScalar ior[2] = {}; // in, out, of the model's call
    int shaded = 0;
    bool started = false;
    std::function<void(miState*, IllumRecord&)> shade = [](miState*, IllumRecord&) {};
    static inline Material* test;

    Material() {
        test = this;
        material->opacity = 1, material->filterColor = grey(1, 1), material->indexOfRefraction = 1.5f;
        material->illumination = renderer.add_shader([this](void* out, miState* s, void* arg) {
            auto* const record = static_cast<IllumRecord*>(arg);
            given = *record, values = *record->values, called_as = s->call_type, begin(call_of(*record));
            record->faceted = faceted, record->features = features, record->channelKind = kinds.data(),
            record->channelCount = 8;
            record->slotMap = slots.data(), ior[0] = s->ior_in, ior[1] = s->ior;
            std::copy(channels.begin(), channels.end(), record->channel);
            record->tintReflection = [](miState*, const IllumRecord*, miColor* c) { c->g *= 0.5f; };
            record->shade = [](miState* in, IllumRecord* r, const void*) {
                ++test->shaded, test->seen = *r, test->shade(in, *r);
            };
            return record->continuation(static_cast<miColor*>(out), s, record, nullptr);
        });
    }
    void map(std::size_t channel, miTag shader, miScalar amount = 1) {
        enabled[channel] = miTRUE, maps[channel] = shader, amounts[channel] = amount;
    }
    miBoolean run(miColor incoming = {}) {
        auto& p = material.params();
        if (!std::exchange(started, true)) {
            material.set_array(p.mapEnabled.first, p.mapEnabled.count, p.mapEnabled.elements, enabled);
            material.set_array(p.maps.first, p.maps.count, p.maps.elements, maps);
            material.set_array(p.mapAmounts.first, p.mapAmounts.count, p.mapAmounts.elements, amounts);
            material.start();
        }
        result = incoming, shaded = 0;
        const miBoolean answer = orl_StandardMaterial(&result, state.run(material), &p);
        EXPECT_TRUE(state->shader == &material.function() && state->ior == 1 && state->ior_in == 1);
        return answer;
    }
};

TEST_F(Material, OpacityAndFalloff) {
    state.set_hit({3, 0, 4}, {0, 0, 0}, {0, 0, 1}); // cosine 0.8
    // opacity, visibility, falloff, type: opacity (1 - falloff * 0.8, or * 0.2), transparent
    const std::tuple<float, float, float, int, float, bool> table[] = {
        {1, 1, 0, 0, 1, false},      {0.5f, 1, 0, 0, 0.5f, true},     {1, 0.5f, 0, 0, 0.5f, true},
        {1, 1, 0.5f, 0, 0.6f, true}, {1, 1, 0.5f, 1, 0.9f, true},     {0.5f, 0.5f, 1, 2, 0.05f, true},
        {1.5f, 1, 0, 0, 1, true},    {not_a_number, 1, 0, 0, 0, true}};
    for (const auto& [opacity, visibility, falloff, type, left, transparent] : table) {
        set_node(orl_NodeData{0, 0, 0, visibility, 0, 0, {}, 0, {}, 0});
        material.connect(material->opacity, [value = opacity](miState*) { return value; });
        material->falloffAmount = falloff, material->falloffType = type, run();
        EXPECT_NEAR(seen.opacity, left, 1e-6f) << opacity << ' ' << falloff << ' ' << type;
        EXPECT_EQ((seen.mapFlags & map_transparent) != 0, transparent);
    }
}

TEST_F(Material, ChannelsTakeTheirMaps) {
    channels.fill(grey(0.8f, 1));
    const miTag plain = renderer.add_color({0.2f, 0.4f, 0.6f, 0.5f});
    const miTag failing = renderer.add_shader(
        [](void* c, miState*, void*) { return *static_cast<miColor*>(c) = grey(9, 9), miFALSE; });
    const miTag mono = renderer.add_shader([](void* c, miState*, void* request) {
        return *static_cast<miColor*>(c) = grey(0.4f), *static_cast<miInteger*>(request) == 1;
    });
    kinds[11] = 0x80, kinds[20] = 0x12, kinds[21] = kinds[22] = 0x82, kinds[19] = kinds[18] = channel_scalar;
    material->lockAmbient = 1, enabled[5] = miFALSE, enabled.push_back(miTRUE);
    map(0, renderer.add_color(grey(0.1f, 1))), map(1, plain), map(2, failing), map(3, mono, -0.5f),
        map(4, miNULLTAG), map(6, mono, 0.5f), map(11, plain);
    map(18, mono, 2), map(19, mono, -2), map(20, plain), map(21, plain, 3), map(22, plain, 2);
    maps.resize(23), amounts.resize(22), run();
    // max(0, 1 - |0.5 a|) 0.8 + a c, or 0.4 a (-0.6 a) + max(0, 1 - |a|) 0.8; the last amount is missing
    const std::pair<int, miColor> table[] = {{0, {0.6f, 0.8f, 1, 1}},
                                             {1, {0.6f, 0.8f, 1, 1}},
                                             {2, grey(0.8f, 1)},
                                             {3, {0.7f, 0.8f, 0.8f, 1}},
                                             {5, grey(0.8f, 1)},
                                             {6, {0.7f, 0.8f, 0.8f, 1}},
                                             {11, grey(0.8f, 1)},
                                             {18, {0.8f, 0.8f, 0.8f, 1}},
                                             {19, {1.2f, 0.8f, 0.8f, 1}},
                                             {20, grey(0.8f, 1)},
                                             {21, {0.6f, 1.2f, 1.8f, 1.5f}},
                                             {22, {0.6f, 0.8f, 1, 1}}};
    for (const auto& [channel, value] : table)
        expect_near(seen.channel[channel], value);
    material->lockAmbient = 0, run();
    expect_near(seen.channel[0], grey(0.1f, 1));
}

TEST_F(Material, WhatModelsAreGiven) {
    material->energyConservation = 1, material->transparencyType = 2, material->filterColor = grey(0.5f);
    material->selfIlluminationColorOn = material->dimReflections = miTRUE, material->materialId = 7;
    renderer.mi_fb_put = [](auto...) { return ADD_FAILURE() << "no such buffer", miFALSE; };
    material->dimLevel = 0.25f, material->reflectionLevel = 2, run();
    EXPECT_TRUE(given.channelCount == 9 && called_as == miSHADER_TEXTURE && given.energyConservation == 1);
    EXPECT_TRUE(values.transparencyType == 2 && values.selfIlluminationColorOn && values.dimReflections);
    EXPECT_TRUE(values.dimLevel == 0.25f && values.reflectionLevel == 2 && seen.channel[7].g == 0.5f);
    features = 0xA01480, run(); // its filter colour is its own
    EXPECT_EQ(seen.channel[7].g, 0);
}

TEST_F(Material, ScenesSwitchMaps) {
    map(1, renderer.add_color(grey(1, 1)));
    for (const auto& [off, back] : {std::pair{false, false}, {true, false}, {true, true}}) {
        orl_SceneData scene{};
        scene.material_switch_16 = off, scene.material_switch_22 = back, set_scene(scene);
        if (started)
            orl_StandardMaterial_exit(state.run(material), &material.params()), material.start();
        run();
        EXPECT_EQ(seen.channel[1].r, off && !back ? 0 : 1);
    }
}

TEST_F(Material, Normals) {
    state->normal = {0.6f, 0, 0.8f};
    map(8, renderer.add_color({0, 1.5f, 0, 0}), 0.5f), run();
    expect_near(seen.normal, {0.48f, 0.6f, 0.64f}); // (0.6, 0.75, 0.8) / 1.25
    EXPECT_NEAR(state->dot_nd, -0.64f, 1e-6f);
    material->faceted = material->twoSided = state->inv_normal = miTRUE, run();
    expect_near(state->normal, {0, -0.6f, 0.8f});
    material->faceted = miFALSE, faceted = 1, state->normal = {0.6f, 0, 0.8f}, run();
    expect_near(state->normal, {0, -0.6f, 0.8f});
}

TEST_F(Material, ResultsAreReported) {
    state.camera.framebuffers = renderer.add_framebuffers({{"fb_mtl_id", miIMG_TYPE_TAG}});
    renderer.mi_compute_irradiance = [](miColor* light, miState* s) {
        return s->normal = {1, 0, 0}, *light = grey(0.25f), miTRUE;
    };
    shade = [&](miState* s, IllumRecord& record) {
        record.result = {1, 2, 3, 9}, record.filter[0] = {0.3f, 0.6f, 0, 0};
        s->point = {9, 9, 9}, s->normal = {1, 0, 0}; // what a traced ray leaves there
    };
    channels[0] = grey(1), material->materialId = 7, state.options.scanline = 'r', state->scanline = 1;
    const ScopedRecord report(state, keys::sub_material_report, {0, {}, 5});
    run(), expect_near(seen.normal, {0, 0, 1}), expect_near(seen.ambient, grey(0.25f)),
        expect_near(result, {1, 2, 3, 0.7f});
    EXPECT_TRUE(state->point.x == 0 && state->normal.z == 1 && report.get()->reported == 1);
    expect_near(renderer.opacities().at(0), {0.7f, 0.4f, 1, 0.7f});
    const miScalar(&t)[3] = report.get()->transparency;
    expect_near({t[0], t[1], t[2], report.get()->weight}, {0.3f, 0.6f, 0, 0});
    state->type = miRAY_REFLECT, state->scanline = 0, run();
    EXPECT_TRUE(renderer.framebuffer_writes().size() == 1 && renderer.opacities().size() == 1);
    shade = [](miState*, IllumRecord& record) { record.filter[0] = grey(1); };
    EXPECT_TRUE(run() && result.a == 0); // three thirds
}

TEST_F(Material, ElementsGetTheLightOfBothSides) {
    orl_PostIllumData data{};
    int bump_slot = 0;
    miInteger zero = 0;
    miTag shader = renderer.add_shader([&](void*, miState*, void* call) {
        data = *static_cast<orl_PostIllumData*>(static_cast<orl_RenderElementCall*>(call)->data);
        bump_slot = data.slots[slot_bump];
        return miTRUE;
    });
    miColor color{};
    const RenderElementList list{1, 0, 1, &zero, &zero, &shader, &zero, &zero, &zero};
    RenderElementResults results{&color, 0};
    const ScopedRecord elements(state, keys::render_elements, {&list, &results, 1, 0, 0});
    shade = [](miState*, IllumRecord& r) { r.diffuse = grey(0.2f), r.extraDiffuse = grey(3.2f); };
    material->materialId = 3, run();
    expect_near(data.outputs.diffuse, grey(3.4f));
    EXPECT_TRUE(bump_slot == 8 && data.materialId == 3);
}

TEST_F(Material, WhatIsMissingOrRecursiveFails) {
    const miTag model = std::exchange(material->illumination, miNULLTAG);
    enabled.clear(), maps.clear(), amounts.clear();
    EXPECT_FALSE(run() || run());
    EXPECT_EQ(errors(), std::vector<std::string>{"\"shader\" requires illumination shader"});
    material->illumination = model, channels[0] = grey(1);
    renderer.mi_compute_irradiance = [&](miColor* c, miState* s) {
        return orl_StandardMaterial(c, s, &material.params());
    };
    EXPECT_TRUE(run() && shaded == 1);
    material.connect(material->wire, [&](miState* s) {
        miColor c;
        return orl_StandardMaterial(&c, s, &material.params());
    });
    EXPECT_TRUE(run() && shaded == 1);
}

TEST_F(Material, RayMaps) {
    std::vector<miVector> asked;
    const miTag tracer = renderer.add_shader([&](void* color, miState* s, void*) {
        const IncomingRay* const ray = find_record(s, keys::incoming_ray);
        asked.insert(asked.end(), {s->dir, ray->dir, {static_cast<float>(ray->type), 0, 0}});
        s->point = {7, 7, 7}, s->normal = {1, 0, 0};
        return *static_cast<miColor*>(color) = {0.5f, 0.25f, 1, 0}, miTRUE;
    });
    map(9, tracer, 0.8f), map(10, tracer, 1.3f);
    state.set_hit({-3, 0, 4}, {0, 0, 0}, {0, 0, 1}), run();
    // Mirrored, and by Snell's law: sine 0.6 / 1.5 = 0.4, cosine sqrt(0.84).
    const miVector table[] = {{0.6f, 0, 0.8f},        state->dir, {miRAY_REFLECT, 0, 0},
                              {0.4f, 0, -0.9165151f}, state->dir, {miRAY_REFRACT, 0, 0}};
    for (std::size_t k = 0; k < 6; ++k)
        expect_near(asked.at(k), table[k]);
    EXPECT_TRUE(ior[0] == 1 && ior[1] == 1.5f && state->normal.z == 1 && state->point.x == 0);
    expect_near({seen.reflectionAmount, seen.refractionAmount, 0, 0},
                {0.4f, 1, 0, 0}); // 0.8 * 0.5; at most 1
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
    float opacity = 0.5f;
    material.connect(material->opacity, [&](miState*) { return opacity; });
    renderer.mi_trace_shadow_seg = [&](miColor*, miState* s) -> miBoolean {
        return s->normal = {1, 0, 0}, ++segments == 1;
    };
    // mode, casts shadows, transparency type: answer, light
    const std::tuple<int, bool, int, bool, miColor> table[] = {
        {1, true, 0, true, {0, 1, 0, 0}}, {'l', true, 1, true, grey(1)}, {'l', false, 0, true, grey(2, 1)},
        {0, true, 0, true, grey(2, 1)},   {'s', true, 1, true, grey(1)}, {'s', true, 0, false, grey(2, 1)}};
    for (const auto& [mode, casts, type, answer, passed] : table) {
        set_node(orl_NodeData{0, 0, 0, 1, 0, 0, {}, casts, {}, 0});
        state->type = miRAY_SHADOW, state.options.shadow = mode, material->transparencyType = type;
        material->faceted = mode == 'l';
        EXPECT_TRUE(run(grey(2, 1)) == answer && state->normal.z == 1 && !state->inv_normal) << mode;
        expect_near(result, passed);
    }
    // Half of it visible: 2 (1 - 0.25). A probe passes its own instance. The hit is off the wires.
    set_node(orl_NodeData{0, 0, 0, 0.5f, 0, 0, {}, 1, {}, 0});
    state.options.shadow = 1, material->transparencyType = 2;
    for (const miTag other : {1u, 0u}) {
        begin = [&](const MaterialCall& call) { *call.probe = {state->instance + other, {0, 3, 4}, 2}; };
        run(grey(2, 1)), expect_near(result, other ? grey(1.5f) : grey(2, 1));
    }
    begin = [&](const MaterialCall& call) { EXPECT_EQ(std::exchange(*call.probe, {}).largest, 5); };
    renderer.triangle.points = {{{{-3, -3, 0}, {3, -3, 0}, {-3, 4, 0}}}};
    material->wireUnits = 1, material->wireSize = 0.1f, material->wire = miTRUE;
    EXPECT_TRUE(run(grey(2, 1)) && result == grey(2, 1));
    begin = [](const MaterialCall&) {}, material->wire = miFALSE;
    opacity = 3, set_node(orl_NodeData{0, 0, 0, 1, 0, 0, {}, 1, {}, 0}); // 1.75 under the map, so opaque
    EXPECT_FALSE(run(grey(INFINITY, 1)) || !(result == grey(0)));
}

// Diffuse 0.5, specular level 0.2, reflection 0.4 (tinted to 0.2 in green), refraction 0.5; so the opacity is
// 0.6 (1 - 0.5) = 0.3: diffuse 0.15, mirror 0.2 + 0.4, through 0.7, all over their sum of 1.45. The maps
// halve the energy of 2.
TEST_F(Material, PhotonChoices) {
    std::pair<miInteger, float> asked;
    const miTag bender = renderer.add_shader([&](void* color, miState* s, void*) {
        asked = {find_record(s, keys::incoming_ray)->type, s->dir.z};
        return *static_cast<miColor*>(color) = grey(0.5f), miTRUE;
    });
    miColor bump{};
    map(8, renderer.add_shader(
               [&](void* c, miState*, void*) { return *static_cast<miColor*>(c) = bump, miTRUE; }));
    map(9, bender, 0.4f), map(10, bender, 0.5f);
    channels[1] = grey(0.5f), channels[2] = grey(1), channels[3].r = 0.2f;
    material.connect(material->opacity, [](miState*) { return 0.6f; });
    material->transparencyType = 2, state->type = miPHOTON_LIGHT;
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
        miColor left{};
        add(left, energy, type == miPHOTON_ABSORB ? 1 : 1 / 1.45f);
        expect_near(renderer.photons().back().energy, left);
    }
    renderer.mi_choose_simple_scatter_type = [](auto...) { return miPHOTON_REFLECT_SPECULAR; };
    bump.r = 1, run(), bump.r = 0, state->normal = state->normal_geom;
    EXPECT_NEAR(asked.second, 0, 1e-6f); // mirrored at 45 degrees
    channels[1] = grey(1e-7f), renderer.clear_logs();
    renderer.mi_choose_simple_scatter_type = [](auto...) { return miPHOTON_ABSORB; }, run(grey(2));
    EXPECT_TRUE(renderer.photons().empty() && shaded == 0 && state->dir.z == -1);
}

} // namespace
