// CallMaterial: which slot of a material runs for which call, what is installed meanwhile, and what is said
// when a call cannot be served.
#include "shader_fixture.h"

#include <thread>

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
    const struct {
        miShader_type type;
        float number;
        miTag volume, environment; // seen by the slot's shader
    } cases[] = {
        {miSHADER_MATERIAL, 1, material.volume, material.environment},
        {miSHADER_TEXTURE, 1, material.volume, material.environment},
        {miSHADER_SHADOW, 3, 500, 600},
        {miSHADER_ENVIRONMENT, 4, 500, 600},
        {miSHADER_VOLUME, 5, 500, 600},
        {miSHADER_PHOTON, 7, material.photonvol, 600},
        {miSHADER_DISPLACE, 9, 500, 600},
        {miSHADER_LIGHTMAP, 13, 500, 600},
        {miSHADER_PHOTONVOL, 14, 500, 600},
        {miSHADER_CONTOUR, 16, 500, 600},
    };
    for (const auto& each : cases) {
        state.run(shader, each.type);
        state->volume = 500;
        state->environment = 600;
        miColor result{8, 8, 8, 8};
        EXPECT_TRUE(CallMaterial(&result, state, tag, nullptr)) << each.type;
        EXPECT_EQ(result, (miColor{each.number, 0, 0, 0})) << each.type;
        EXPECT_EQ(type_seen, each.type);
        EXPECT_EQ(volume_seen, each.volume) << each.type;
        EXPECT_EQ(environment_seen, each.environment) << each.type;
        EXPECT_EQ(state->volume, each.volume) << "the volume stays, call type " << each.type;
        EXPECT_EQ(state->environment, 600u) << each.type;
        EXPECT_EQ(state->call_type, each.type);
    }
}

TEST_F(CallMaterialTest, FunctionsRunAsTheCurrentMaterial) {
    const std::pair<miShader_type, const char*> cases[] = {
        {miSHADER_MATERIAL, "mi_call_material"},
        {miSHADER_TEXTURE, "mi_call_material"},
        {miSHADER_SHADOW, "mi_call_shadow_material"},
        {miSHADER_ENVIRONMENT, "mi_call_environment_material"},
        {miSHADER_VOLUME, "mi_call_volume_material"},
        {miSHADER_PHOTON, "mi_call_photon_material"},
        {miSHADER_PHOTONVOL, "mi_call_photonvol_material"},
    };
    const miTag function = add_slot(2);
    for (const auto& [type, expected] : cases) {
        renderer.clear_logs();
        state.run(shader, type);
        state->material = 700;
        miColor result{};
        EXPECT_TRUE(CallMaterial(&result, state, function, nullptr)) << expected;
        ASSERT_EQ(renderer.calls().size(), 1u);
        EXPECT_STREQ(renderer.calls()[0].function, expected);
        EXPECT_EQ(renderer.calls()[0].tag, function);
        EXPECT_EQ(state->material, 700u);
    }
    // A failing environment function falls back to the camera.
    const miTag failing = renderer.add_shader([](void*, miState*, void*) { return miFALSE; });
    state.run(shader, miSHADER_ENVIRONMENT);
    miColor result{};
    EXPECT_FALSE(CallMaterial(&result, state, failing, nullptr));
    state.camera.environment = add_slot(44);
    EXPECT_TRUE(CallMaterial(&result, state, failing, nullptr));
    EXPECT_EQ(result.r, 44.0f);
    EXPECT_EQ(type_seen, miSHADER_ENVIRONMENT);
    EXPECT_EQ(state->material, 700u);
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
    std::vector<std::thread> threads;
    for (short number = 0; number < 4; ++number)
        threads.emplace_back([&, number] {
            scripted::State own;
            own.run(shader, miSHADER_LENS);
            own->thread = number;
            miColor result{};
            for (int i = 0; i < 200; ++i)
                EXPECT_FALSE(CallMaterial(&result, own, material, nullptr));
        });
    for (std::thread& thread : threads)
        thread.join();
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
