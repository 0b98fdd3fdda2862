// The standard material's wire frame, channels, opacity and results.
#include "material_fixture.h"

namespace {

using Material = MaterialTest;

// A triangle with legs of 2 from (-1, -1), the hit at (-0.5, -0.5): 0.5 from edges 0 and 2, sqrt(0.5) from 1.
TEST_F(Material, Wire) {
    renderer.mi_point_to_raster = [](miState*, miVector* r, miVector* v) { *r = {v->x * 10, v->y * 10, 0}; };
    state.set_hit({-0.5f, -0.5f, 5}, {-0.5f, -0.5f, 0}, {0, 0, 1});
    const std::optional<scripted::Triangle::Corners> legs{{{{-1, -1, 0}, {1, -1, 0}, {-1, 1, 0}}}},
        point{scripted::Triangle::Corners{}}, none;
    // units, size, kept; a triangle without area is all wire, geometry without any is whole
    const std::tuple<const decltype(none)*, miInteger, float, bool> table[] = {
        {&legs, 0, 11, true}, {&legs, 0, 9, false}, {&legs, 1, 1.1f, true}, {&legs, 1, 0.9f, false},
        {&point, 0, 1, true}, {&point, 1, 1, true}, {&none, 1, 0, true}};
    for (const auto& [corners, units, size, kept] : table) {
        renderer.triangle.points = *corners;
        material->wire = miTRUE, material->wireUnits = units, material->wireSize = size;
        EXPECT_TRUE(run() == kept && shaded == kept) << units << ' ' << size;
    }
    EXPECT_NEAR(raster_line_distance({0, 5, 9}, {0, 0, 0}, {3, 4, 0}), 3, 1e-6f);   // |0 * 4 - 5 * 3| / 5
    EXPECT_NEAR(squared_line_distance({1, 2, 9}, {0, 0, 0}, {4, 0, 0}), 85, 1e-4f); // 2^2 + 9^2
}

TEST_F(Material, BackFaces) {
    renderer.trace_color = grey(0.5f);
    state->inv_normal = miTRUE;
    EXPECT_TRUE(run() && shaded == 0 && result == grey(0.5f));
    state->scanline = 1, state.options.scanline = 'r';
    EXPECT_TRUE(run() && shaded == 0 && result == grey(0));
    state->scanline = 0, state->type = miRAY_REFRACT;
    EXPECT_TRUE(run() && shaded == 1);
    EXPECT_TRUE(ior[0] == 1.5f && ior[1] == 1);
    state->type = miPHOTON_REFLECT_DIFFUSE, run();
    state->type = miPHOTON_TRANSMIT_DIFFUSE, run(); // absorbed
    EXPECT_EQ(renderer.photons().size(), 1u);
    const ScopedRecord report(state, keys::sub_material_report, {});
    state->type = miRAY_REFLECT, run();
    EXPECT_TRUE(result == grey(0) && renderer.traces().size() == 1);
}

TEST_F(Material, OpacityAndFalloff) {
    state.set_hit({3, 0, 4}, {0, 0, 0}, {0, 0, 1}); // cosine 0.8
    // opacity, visibility, falloff, type: opacity (1 - falloff * 0.8, or * 0.2), transparent
    const std::tuple<float, float, float, int, float, bool> table[] = {
        {1, 1, 0, 0, 1, false},      {0.5f, 1, 0, 0, 0.5f, true},     {1, 0.5f, 0, 0, 0.5f, true},
        {1, 1, 0.5f, 0, 0.6f, true}, {1, 1, 0.5f, 1, 0.9f, true},     {0.5f, 0.5f, 1, 2, 0.05f, true},
        {1.5f, 1, 0, 0, 1, false},   {not_a_number, 1, 0, 0, 0, true}};
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
    kinds[20] = 0x12, kinds[21] = kinds[22] = 0x82, kinds[19] = kinds[18] = channel_scalar;
    material->lockAmbient = 1, enabled[5] = miFALSE, enabled.push_back(miTRUE);
    map(0, failing), map(1, plain), map(2, failing), map(3, mono, -0.5f), map(4, miNULLTAG),
        map(6, mono, 0.5f);
    map(18, mono, 2), map(19, mono, -2), map(20, plain), map(21, plain, 3), map(22, plain, 2);
    maps.resize(23), amounts.resize(22), run();
    // max(0, 1 - |0.5 a|) 0.8 + a c, or 0.4 a (-0.6 a) + max(0, 1 - |a|) 0.8; the last amount is missing
    const std::pair<int, miColor> table[] = {
        {0, {0.6f, 0.8f, 1, 1}},        {1, {0.6f, 0.8f, 1, 1}},     {2, grey(0.8f, 1)},
        {3, {0.7f, 0.8f, 0.8f, 1}},     {5, grey(0.8f, 1)},          {6, {0.7f, 0.8f, 0.8f, 1}},
        {18, {0.8f, 0.8f, 0.8f, 1}},    {19, {1.2f, 0.8f, 0.8f, 1}}, {20, grey(0.8f, 1)},
        {21, {0.6f, 1.2f, 1.8f, 1.5f}}, {22, {0.6f, 0.8f, 1, 1}}};
    for (const auto& [channel, value] : table)
        expect_near(seen.channel[channel], value);
    material->lockAmbient = 0, run();
    expect_near(seen.channel[0], grey(0.8f, 1));
}

TEST_F(Material, Normals) {
    state->normal = {0.6f, 0, 0.8f};
    map(8, renderer.add_color({0, 1.5f, 0, 0}), 0.5f), run();
    expect_near(color_of(seen.normal), {0.48f, 0.6f, 0.64f, 0}); // (0.6, 0.75, 0.8) / 1.25
    EXPECT_NEAR(state->dot_nd, -0.64f, 1e-6f);
    material->faceted = material->twoSided = state->inv_normal = miTRUE, run();
    expect_near(color_of(state->normal), {0, -0.6f, 0.8f, 0});
}

TEST_F(Material, ResultsAreReported) {
    state.camera.framebuffers = renderer.add_framebuffers({{"fb_mtl_id", miIMG_TYPE_TAG}});
    renderer.mi_compute_irradiance = [](miColor* light, miState*) { return *light = grey(0.25f), miTRUE; };
    shade = [&](miState* s, IllumRecord& record) {
        record.result = {1, 2, 3, 9}, record.filter[0] = {0.3f, 0.6f, 0, 0};
        s->point = {9, 9, 9}, s->normal = {1, 0, 0}; // what a traced ray leaves there
    };
    channels[0] = grey(1), material->materialId = 7, state.options.scanline = 'r', state->scanline = 1;
    const ScopedRecord report(state, keys::sub_material_report, {0, {}, 5});
    run(), expect_near(seen.ambient, grey(0.25f)), expect_near(result, {1, 2, 3, 0.7f});
    EXPECT_TRUE(state->point.x == 0 && state->normal.z == 1 && report.get()->reported == 1);
    expect_near(renderer.opacities().at(0), {0.7f, 0.4f, 1, 0.7f});
    const miScalar(&t)[3] = report.get()->transparency;
    expect_near({t[0], t[1], t[2], report.get()->weight}, {0.3f, 0.6f, 0, 0});
    state->type = miRAY_REFLECT, state->scanline = 0, run();
    EXPECT_TRUE(renderer.framebuffer_writes().size() == 1 && renderer.opacities().size() == 1);
}

// What elements are given adds up to the picture, as combined by the models' own functions.
TEST_F(Material, ElementsAddUp) {
    orl_PostIllumData data{};
    miInteger zero = 0;
    miTag shader = renderer.add_shader([&](void*, miState*, void* arg) {
        data = *static_cast<orl_PostIllumData*>(static_cast<orl_RenderElementCall*>(arg)->data);
        return data.slots[slot_bump] == 8 && data.materialId == 3 ? miTRUE : miFALSE;
    });
    miColor color{}, behind{0.5f, 1, 2, 0.25f};
    const RenderElementList list{1, 0, 1, &zero, &zero, &shader, &zero, &zero, &zero};
    RenderElementResults results{&color, 0};
    const ScopedRecord elements(state, keys::render_elements, {&list, &results, 1, 0, 0});
    renderer.mi_trace_transparent = [&](miColor* c, miState*) { return *c = behind, miTRUE; };
    shade = [&](miState* s, IllumRecord& r) {
        r.ambient = grey(0.1f), r.diffuse = grey(0.2f), r.specular = grey(0.4f), r.reflection = grey(0.8f);
        r.selfIllumination = grey(1.6f), r.extraDiffuse = grey(3.2f);
        transmit_light(s, &r), combine_simple(&r);
    };
    channels[1] = {0.2f, 0.4f, 0.6f, 0}, map(10, renderer.add_color(grey(0.5f)), 0.5f);
    for (const int k : {0, 1, 2, 3, 4, 5}) {
        material->opacity = 0.25f, material->transparencyType = k % 3, material->materialId = 3;
        features = k < 3 ? 0x1F20FFE : 0x1720FFE, run(); // with refraction and without
        const orl_PostIllumOutputs& out = data.outputs;
        miColor sum = k < 3 ? grey(0) : behind;
        multiply(sum, out.transparency);
        for (const miColor& part : {out.ambient, out.diffuse, out.selfIllumination})
            add(sum, part, data.inputs.opacity);
        add(sum, out.specular), add(sum, data.reflection), add(sum, data.refraction), sum.a = result.a;
        expect_near(sum, result);
    }
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
}

} // namespace
