// CallMaterial: which slot of a material runs for which call, what is installed meanwhile, and what is said
// when a call cannot be served.
#include "shader_fixture.h"

namespace {

struct Warned {
    miBoolean warned;
};

class CallMaterialTest : public ShaderTest {
protected:
    scripted::ShaderInstance<Warned> shader{"wrapper"};
    miTag volume_seen = 0, environment_seen = 0;
    miShader_type type_seen{};
    miColor start{};

    // A shader that notes how it was called and leaves its number in red.
    miTag add_slot(float number) {
        return renderer.add_shader([this, number](void* result, miState* s, void*) {
            auto* const color = static_cast<miColor*>(result);
            start = *color;
            volume_seen = s->volume;
            environment_seen = s->environment;
            type_seen = s->call_type;
            color->r = number;
            return miTRUE;
        });
    }

    miMaterial full_material() {
        // In the record's order: material, displacement, shadow, volume, environment, contour, photon, photon
        // volume, light map.
        return {miFALSE,      add_slot(1), add_slot(9),  add_slot(3),  add_slot(5), add_slot(4),
                add_slot(16), add_slot(7), add_slot(14), add_slot(13), miNULLTAG};
    }
};

TEST_F(CallMaterialTest, RunsTheSlotOfTheCallInProgress) {
    const miMaterial material = full_material();
    const miTag tag = renderer.add_material(material);
    const miTag function = add_slot(2);
    const miTag surface = material.volume, around = material.environment;
    const struct {
        miShader_type type;
        float number;
        miTag volume, environment; // seen by the slot's shader
        const char* as_function;   // what runs a function in place of a material
    } cases[] = {
        {miSHADER_MATERIAL, 1, surface, around, "mi_call_material"},
        {miSHADER_TEXTURE, 1, surface, around, "mi_call_material"},
        {miSHADER_SHADOW, 3, 500, 600, "mi_call_shadow_material"},
        {miSHADER_ENVIRONMENT, 4, 500, 600, "mi_call_environment_material"},
        {miSHADER_VOLUME, 5, 500, 600, "mi_call_volume_material"},
        {miSHADER_PHOTON, 7, material.photonvol, 600, "mi_call_photon_material"},
        {miSHADER_DISPLACE, 9, 500, 600, nullptr},
        {miSHADER_LIGHTMAP, 13, 500, 600, nullptr},
        {miSHADER_PHOTONVOL, 14, 500, 600, "mi_call_photonvol_material"},
        {miSHADER_CONTOUR, 16, 500, 600, nullptr},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.type);
        state.run(shader, each.type);
        state->volume = 500, state->environment = 600, state->material = 700;
        miColor result = grey(8, 8);
        EXPECT_TRUE(CallMaterial(&result, state, tag, nullptr));
        EXPECT_EQ(result, (miColor{each.number, 0, 0, 0}));
        EXPECT_TRUE(type_seen == each.type && state->call_type == each.type);
        EXPECT_TRUE(volume_seen == each.volume && environment_seen == each.environment);
        EXPECT_EQ(state->volume, each.volume) << "the volume stays";
        EXPECT_EQ(state->environment, 600u);
        if (each.as_function == nullptr)
            continue;
        renderer.clear_logs();
        EXPECT_TRUE(CallMaterial(&result, state, function, nullptr));
        ASSERT_EQ(renderer.calls().size(), 1u);
        EXPECT_STREQ(renderer.calls()[0].function, each.as_function);
        EXPECT_TRUE(renderer.calls()[0].tag == function && state->material == 700);
    }
}

TEST_F(CallMaterialTest, FailingEnvironmentsFallBackToTheCamera) {
    const miTag failing = renderer.add_shader([](void*, miState*, void*) { return miFALSE; });
    state.run(shader, miSHADER_ENVIRONMENT);
    state->material = 700;
    miColor result{};
    EXPECT_FALSE(CallMaterial(&result, state, failing, nullptr));
    state.camera.environment = add_slot(44);
    EXPECT_TRUE(CallMaterial(&result, state, failing, nullptr));
    EXPECT_TRUE(result.r == 44 && type_seen == miSHADER_ENVIRONMENT && state->material == 700);
}

TEST_F(CallMaterialTest, UnsupportedCallsAreReportedOncePerFlag) {
    const miTag material = renderer.add_material(full_material());
    const miTag function = add_slot(2);
    const std::vector<std::string> of_material{"Shader 'wrapper' called with unsupported call type"};
    const std::vector<std::string> of_function{
        "Shader 'wrapper' does not support material phenomena in contour/displacement/lightmap modes."};
    miColor result{};
    auto* const own = orl::new_instance_data<Warned>(state.run(shader, miSHADER_LENS));

    const struct {
        miTag called;
        miShader_type type;
        bool own_flag; // else the first word of the instance's data
        const std::vector<std::string>& expected;
    } cases[] = {
        {material, miSHADER_LENS, true, of_material},     {material, miSHADER_LENS, false, of_material},
        {function, miSHADER_CONTOUR, false, of_function}, {function, miSHADER_DISPLACE, true, of_function},
        {function, miSHADER_LIGHTMAP, true, of_function}, {function, miSHADER_LENS, true, of_function},
        {function, miSHADER_LIGHT, true, of_function},
    };
    state->material = 700;
    for (const auto& each : cases) {
        renderer.clear_logs();
        miBoolean flag = own->warned = miFALSE;
        state.run(shader, each.type);
        for (int i = 0; i < 3; ++i)
            EXPECT_FALSE(CallMaterial(&result, state, each.called, each.own_flag ? &flag : nullptr));
        EXPECT_EQ(errors(), each.expected);
        const bool caller_keeps_it = each.own_flag && each.called == material; // else the running instance
        EXPECT_EQ(flag, caller_keeps_it);
        EXPECT_EQ(own->warned, !caller_keeps_it);
        EXPECT_EQ(state->material, 700u);
    }
    orl::delete_instance_data(state);
}

TEST_F(CallMaterialTest, ThreadsShareTheFlag) {
    const miTag material = renderer.add_material(full_material());
    orl::new_instance_data<Warned>(state.run(shader, miSHADER_LENS));
    miSetModuleHandle(renderer.handle()); // the threads meet while functions are being looked up
    in_threads(4, [&](scripted::State& own) {
        own.run(shader, miSHADER_LENS);
        miColor result{};
        for (int i = 0; i < 200; ++i)
            EXPECT_FALSE(CallMaterial(&result, own, material, nullptr));
    });
    EXPECT_EQ(errors().size(), 1u);
    orl::delete_instance_data(state);
}

TEST_F(CallMaterialTest, WithNeitherFlagNorInstanceDataARendererIsToldOnce) {
    const miTag material = renderer.add_material(full_material());
    miColor result{};
    for (int handle = 0; handle < 2; ++handle) { // a new renderer has not been told
        miSetModuleHandle(renderer.handle());
        renderer.clear_logs();
        state.run(shader, miSHADER_LENS);
        EXPECT_FALSE(CallMaterial(&result, state, material, nullptr));
        EXPECT_FALSE(CallMaterial(&result, state, material, nullptr));
        state->shader = nullptr;
        EXPECT_FALSE(CallMaterial(&result, state, material, nullptr));
        EXPECT_EQ(errors().size(), 1u);
    }
}

TEST_F(CallMaterialTest, OtherTagsAreRefused) {
    state.run(shader, miSHADER_MATERIAL);
    miColor result{1, 1, 1, 1};
    EXPECT_FALSE(CallMaterial(&result, state, miNULLTAG, nullptr));
    EXPECT_FALSE(CallMaterial(&result, state, 9999, nullptr));
    EXPECT_FALSE(CallMaterial(&result, state, renderer.add_string("text"), nullptr));
    EXPECT_EQ(result, (miColor{0, 0, 0, 0}));
    const miTag material = renderer.add_material(full_material());
    EXPECT_FALSE(CallMaterial(nullptr, state, material, nullptr));
    EXPECT_FALSE(CallMaterial(&result, nullptr, material, nullptr));
}

} // namespace
