// The standard material's mathematics, channels and surfaces.
#include "material_fixture.h"

namespace {

using Material = MaterialTest;

TEST_F(Material, WireDistances) {
    // point, a, b, in the picture, squared in space
    const std::tuple<miVector, miVector, miVector, float, float> table[] = {
        {{1, 2, 9}, {0, 0, 0}, {4, 0, 0}, 2, 85}, // 2^2 + 9^2
        {{7, -3, 0}, {0, 0, 0}, {4, 0, 0}, 3, 9}, // the line goes on
        {{0, 5, 0}, {0, 0, 0}, {3, 4, 0}, 3, 9},  // |0*4 - 5*3| / 5
        {{1, 2, 3}, {1, 1, 1}, {1, 1, 1}, 0, 0},  // no line
        {{1, 2, 3}, {0, 0, 0}, {0, 0, 2}, 0, 5},  // end on, 1 + 2^2
    };
    for (const auto& [p, a, b, flat, squared] : table) {
        EXPECT_NEAR(raster_line_distance(p, a, b), flat, 1e-6f);
        EXPECT_NEAR(squared_line_distance(p, a, b), squared, 1e-5f);
    }
}

// A right triangle with legs of 2 from (-1, -1), the hit at (-0.5, -0.5): 0.5 from edges 0 and 2, and
// sqrt(0.5) from edge 1. A unit is 10 pixels.
TEST_F(Material, Wire) {
    renderer.trace_color = grey(0.5f);
    renderer.mi_point_to_raster = [](miState*, miVector* r, miVector* v) { *r = {v->x * 10, v->y * 10, 0}; };
    miUint word = 0;
    renderer.mi_vquery = [&](miQ_type code, miState* s, miTag tag, void* to, va_list arguments) {
        if (code != miQ_PRI_DATA)
            return renderer.mi_vquery.unscripted(code, s, tag, to, arguments);
        static const int slot = 0, count = 1;
        std::memcpy(to, &count, sizeof count);
        *va_arg(arguments, const int**) = &slot;
        *va_arg(arguments, const miUint**) = &word;
        return miTRUE;
    };
    state.set_hit({-0.5f, -0.5f, 5}, {-0.5f, -0.5f, 0}, {0, 0, 1});
    const scripted::Triangle::Corners legs{{{-1, -1, 0}, {1, -1, 0}, {-1, 1, 0}}}, point{};
    const std::tuple<std::optional<scripted::Triangle::Corners>, miInteger, float, miUint, bool> table[] = {
        {legs, wire_pixels, 11, 7, true},   {legs, wire_pixels, 9, 7, false},
        {legs, wire_world, 1.1f, 7, true},  {legs, wire_world, 0.9f, 7, false},
        {legs, wire_world, 1.1f, 2, false}, // edge 1 is too far
        {legs, wire_world, 1.42f, 2, true}, {legs, wire_pixels, 14.2f, 2, true},
        {legs, wire_world, 9, 0, false}, // no edge is visible
        {point, wire_pixels, 1, 7, true},   {point, wire_world, 1, 7, true},
        {{}, wire_world, 0, 7, true}, // no triangle
    };
    material->wire = miTRUE;
    for (const auto& [corners, units, size, edges, kept] : table) {
        renderer.triangle.points = corners;
        material->wireUnits = units, material->wireSize = size, word = edges << 16;
        EXPECT_TRUE(run());
        EXPECT_EQ(shaded, kept) << units << ' ' << size << ' ' << edges;
    }
}

TEST_F(Material, BackFaces) {
    renderer.trace_color = grey(0.5f);
    EXPECT_TRUE(run() && shaded == 1);
    state->inv_normal = miTRUE;
    EXPECT_TRUE(run() && shaded == 0);
    EXPECT_EQ(result, grey(0.5f));
    {
        const ScopedRecord report(state, keys::sub_material_report, {});
        EXPECT_TRUE(run() && result == grey(0));
    }
    state.options.scanline = 'r', state->scanline = 1;
    EXPECT_TRUE(run() && result == grey(0));
    state->scanline = 0;
    EXPECT_EQ(renderer.traces().size(), 1u);
    state->type = miRAY_REFRACT;
    EXPECT_TRUE(run() && shaded == 1 && ior[0] == 1.5f && ior[1] == 1);
    state->type = miRAY_REFLECT;
    EXPECT_TRUE(run() && shaded == 0);
    material->twoSided = miTRUE;
    EXPECT_TRUE(run() && shaded == 1);
    state->type = miPHOTON_REFLECT_DIFFUSE, material->twoSided = miFALSE;
    EXPECT_TRUE(run());
    EXPECT_STREQ(renderer.photons().back().function, "mi_photon_transparent");
    renderer.clear_logs();
    state->type = miPHOTON_TRANSMIT_DIFFUSE; // absorbed by a surface that is there
    EXPECT_TRUE(run() && renderer.photons().empty());
}

TEST_F(Material, SceneForcesTwoSides) {
    orl_SceneData scene{};
    scene.force_two_sided = miTRUE;
    set_scene(scene);
    state->inv_normal = miTRUE;
    EXPECT_TRUE(run() && shaded == 1);
}

TEST_F(Material, OpacityAndFalloff) {
    state.set_hit({3, 0, 4}, {0, 0, 0}, {0, 0, 1}); // cosine 0.8
    // opacity, visibility, falloff, type: opacity, transparent
    const std::tuple<float, float, float, int, float, bool> table[] = {
        {1, 1, 0, 0, 1, false},          {0.5f, 1, 0, 0, 0.5f, true}, {1, 0.5f, 0, 0, 0.5f, true},
        {1, 1, 0.5f, 0, 0.6f, true},     // 1 - 0.5 * 0.8
        {1, 1, 0.5f, 1, 0.9f, true},     // 1 - 0.5 * 0.2
        {0.5f, 0.5f, 1, 2, 0.05f, true}, // (1 - 0.8) / 4
        {1.5f, 1, 0, 0, 1, false},       {-1, 1, 0, 0, 0, true},      {not_a_number, 1, 0, 0, 0, true},
    };
    for (const auto& [opacity, visibility, falloff, type, left, transparent] : table) {
        orl_NodeData node{};
        node.visibility = visibility;
        set_node(node);
        material.connect(material->opacity, [value = opacity](miState*) { return value; });
        material->falloffAmount = falloff, material->falloffType = type;
        run();
        EXPECT_NEAR(seen.opacity, left, 1e-6f) << opacity << ' ' << falloff << ' ' << type;
        EXPECT_EQ((seen.mapFlags & map_transparent) != 0, transparent);
    }
}

TEST_F(Material, ChannelsTakeTheirMaps) {
    // Scalar: intensity 0.4, channel 0.8.
    const float scalars[][2] = {{1, 0.4f},     {0.25f, 0.7f}, {0, 0.8f}, {2, 0.8f},
                                {-0.5f, 0.7f}, {-1, 0.6f},    {-2, 1.2f}}; // -0.6 a + max(0, a + 1) 0.8
    for (const auto& [amount, value] : scalars)
        EXPECT_NEAR(mix_into_channel(0.8f, 0.4f, amount), value, 1e-6f) << amount;
    // Colour 0.4 with alpha 0.5 over 0.8.
    const float colors[][2] = {{1, 0.8f}, {0.5f, 0.8f}, {2, 0.8f}, {-1, 0}, {3, 1.2f}}; // rest 1 - |a| / 2
    for (const auto& [amount, value] : colors)
        EXPECT_NEAR(over_channel(grey(0.8f, 1), grey(0.4f, 0.5f), amount).g, value, 1e-6f) << amount;

    for (miColor& channel : channels)
        channel = grey(0.8f, 1);
    const miTag plain = renderer.add_color({0.2f, 0.4f, 0.6f, 0.5f});
    const miTag failing = renderer.add_shader([](void* c, miState*, void*) {
        *static_cast<miColor*>(c) = grey(9, 9);
        return miFALSE;
    });
    int requests[3] = {};
    const miTag asked = renderer.add_shader([&](void* c, miState*, void* request) {
        ++requests[*static_cast<miInteger*>(request)];
        *static_cast<miColor*>(c) = grey(0.4f);
        return miTRUE;
    });
    kinds[20] = 0x12, kinds[21] = channel_color | channel_own_128;
    material->lockAmbient = 1;
    map(0, failing), map(1, plain), map(2, failing), map(3, asked, -0.5f), map(4, miNULLTAG), map(5, plain);
    enabled[5] = miFALSE;
    map(6, asked, 0.5f), map(20, plain), map(21, plain, 2);
    maps.resize(22), amounts.resize(21), enabled.push_back(miTRUE);
    run();
    const miColor mixed{0.6f, 0.8f, 1, 1}; // 0.5 * 0.8 + map
    const miColor table[] = {mixed,         mixed,         grey(0.8f, 1),        {0.7f, 0.8f, 0.8f, 1},
                             grey(0.8f, 1), grey(0.8f, 1), {0.7f, 0.8f, 0.8f, 1}}; // 0.4 * 0.5 + 0.5 * 1
    for (std::size_t k = 0; k < std::size(table); ++k)
        expect_near(seen.channel[k], table[k]);
    expect_near(seen.channel[20], grey(0.8f, 1));
    expect_near(seen.channel[21], mixed); // the amount is missing
    EXPECT_NEAR(seen.opacity, 0.7f, 1e-6f);
    EXPECT_TRUE(requests[0] == 0 && requests[1] == 2 && requests[2] == 0);
    material->lockAmbient = 0;
    run();
    expect_near(seen.channel[0], grey(0.8f, 1));
}

TEST_F(Material, MapsMayBeOffOrMissing) {
    const std::tuple<bool, bool, float> table[] = {
        {true, false, 0}, {true, true, 0.5f}, {false, false, 0.5f}};
    for (const auto& [off, on_again, value] : table) {
        orl_SceneData scene{};
        scene.material_switch_16 = off, scene.material_switch_22 = on_again;
        set_scene(scene);
        LiveShader<StandardMaterialParams> own(state, orl_StandardMaterial_init, orl_StandardMaterial_exit);
        own.params() = material.params();
        own.set_array<miBoolean>(own->mapEnabled.first, own->mapEnabled.count, own->mapEnabled.elements, {1});
        own.set_array(own->maps.first, own->maps.count, own->maps.elements, {renderer.add_color(grey(0.5f))});
        own.start();
        state.run(own);
        EXPECT_TRUE(orl_StandardMaterial(&result, state, &own.params()));
        EXPECT_EQ(seen.channel[0].r, value) << off << on_again;
    }
    enabled.clear(), maps.clear(), amounts.clear();
    EXPECT_TRUE(run() && shaded == 1);
}

TEST_F(Material, Normals) {
    state->normal = {0.6f, 0, 0.8f};
    map(8, renderer.add_color({0, 1.5f, 0, 0}), 0.5f);
    run();
    const float length = 1.25f; // of (0.6, 0.75, 0.8)
    expect_near({seen.normal.x, seen.normal.y, seen.normal.z, 0},
                {0.6f / length, 0.75f / length, 0.8f / length, 0});
    EXPECT_NEAR(state->dot_nd, -0.64f, 1e-6f);
    material->faceted = miTRUE, material->twoSided = miTRUE, state->inv_normal = miTRUE;
    run(); // (0, -0.75, 1)
    expect_near({state->normal.x, state->normal.y, state->normal.z, state->dot_nd}, {0, -0.6f, 0.8f, -0.8f});
}

TEST_F(Material, ResultsAreReported) {
    state.camera.framebuffers =
        renderer.add_framebuffers({{"other", miIMG_TYPE_TAG}, {"fb_mtl_id", miIMG_TYPE_TAG}});
    material->materialId = 7;
    renderer.mi_compute_irradiance = [](miColor* light, miState*) { return *light = grey(0.25f), miTRUE; };
    shade = [&](miState* s, IllumRecord& record) {
        record.result = {1, 2, 3, 9}, record.filter[0] = {0.3f, 0.6f, 0, 0};
        s->point = {9, 9, 9}, s->normal = {1, 0, 0}; // what a traced ray leaves there
    };
    channels[0] = grey(1);
    state.options.scanline = 'r', state->scanline = 1;
    const ScopedRecord report(state, keys::sub_material_report, {0, {}, 5});
    run();
    expect_near(seen.ambient, grey(0.25f));
    expect_near(result, {1, 2, 3, 0.7f});
    EXPECT_TRUE(state->point.x == 0 && state->normal.z == 1);
    ASSERT_EQ(renderer.opacities().size(), 1u);
    expect_near(renderer.opacities()[0], {0.7f, 0.4f, 1, 0.7f});
    const SubMaterialReport& told = *report.get();
    expect_near({told.transparency[0], told.transparency[1], told.transparency[2], told.weight},
                {0.3f, 0.6f, 0, 0});
    ASSERT_EQ(renderer.framebuffer_writes().size(), 1u);
    EXPECT_EQ(told.reported + renderer.framebuffer_writes()[0].index, 2);
    state->type = miRAY_REFLECT, material->materialId = 0;
    run();
    state->type = miRAY_EYE, state->scanline = 0;
    run();
    EXPECT_EQ(renderer.framebuffer_writes().size(), 1u);
    EXPECT_EQ(renderer.opacities().size(), 2u);
}

// What elements are given adds up to the picture, as combined by the models' own function.
TEST_F(Material, ElementsAddUp) {
    orl_PostIllumData data{};
    miInteger pass = 0, slot_of_bump = -1;
    miTag shader = renderer.add_shader([&](void*, miState*, void* arg) {
        data = *static_cast<orl_PostIllumData*>(static_cast<orl_RenderElementCall*>(arg)->data);
        slot_of_bump = data.slots[slot_bump];
        return miTRUE;
    });
    miColor color{};
    const RenderElementList list{1, 0, 1, &pass, &pass, &shader, &pass, &pass, &pass};
    RenderElementResults results{&color, 0};
    const ScopedRecord elements(state, keys::render_elements, {&list, &results, 1, 0, 0});
    auto number = [k = 0]() mutable { return grey(0.1f * static_cast<float>(++k % 7)); };
    const miColor behind{0.5f, 1, 2, 0.25f};
    renderer.mi_trace_transparent = [&](miColor* c, miState*) { return *c = behind, miTRUE; };
    shade = [&](miState* s, IllumRecord& r) {
        for (miColor* part : {&r.ambient, &r.diffuse, &r.specular, &r.selfIllumination, &r.extraDiffuse})
            *part = number();
        r.reflection = number();
        transmit_light(s, &r);
        combine_simple(&r);
    };
    material->opacity = 0.25f, material->materialId = 3;
    channels[1] = {0.2f, 0.4f, 0.6f, 0}, map(10, renderer.add_color(grey(0.5f)), 0.5f);
    for (const auto& [type, refracts] :
         {std::pair{0, false}, {1, false}, {2, false}, {0, true}, {1, true}, {2, true}}) {
        material->transparencyType = type;
        features = refracts ? 0x1F20FFE : 0x1F20FFE & ~unsigned{feature_refraction};
        run();
        const orl_PostIllumOutputs& out = data.outputs;
        miColor sum = refracts ? grey(0) : behind;
        multiply(sum, out.transparency);
        for (const miColor& part : {out.ambient, out.diffuse, out.selfIllumination})
            add(sum, part, data.inputs.opacity);
        add(sum, out.specular), add(sum, data.reflection), add(sum, data.refraction);
        sum.a = result.a;
        expect_near(sum, result);
        EXPECT_EQ(data.materialId * 100 + slot_of_bump, 308);
    }
}

TEST_F(Material, WhatIsMissingOrRecursiveFails) {
    const miTag model = std::exchange(material->illumination, miNULLTAG);
    EXPECT_FALSE(run() || run());
    EXPECT_EQ(errors(), std::vector<std::string>{"\"shader\" requires illumination shader"});
    material->illumination = model;
    miBoolean inner = miTRUE;
    const miTag itself = renderer.add_shader(
        [&](void* c, miState* s, void*) {
            return inner = orl_StandardMaterial(static_cast<miColor*>(c), s, &material.params());
        },
        "itself", &material.function());
    renderer.mi_compute_irradiance = [&](miColor* c, miState* s) {
        return mi_call_shader(c, miSHADER_MATERIAL, s, itself);
    };
    channels[0] = grey(1);
    EXPECT_TRUE(run() && !inner && shaded == 1);
}

} // namespace
