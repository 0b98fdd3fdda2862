// Light meters: what they measure, and which pixels they fill.
#include "shader_fixture.h"
#include "shd_lightmeter.h"

#include <map>

using namespace orl;

ENTRY_POINT(orl_LightMeterLightMap, miColor, LightMeterParams);
INIT_AND_EXIT(orl_LightMeterLightMap, LightMeterParams);
ENTRY_POINT(orl_LightMeterMaterial, miColor, void);

namespace {

class LightMeter : public ShaderTest {
protected:
    std::map<std::pair<int, int>, miColor> pixels;
    LiveShader<LightMeterParams> meter{state, orl_LightMeterLightMap_init, orl_LightMeterLightMap_exit};
    int closed = 0;
    miColor result{9, 9, 9, 9};

    LightMeter() {
        auto* const image = reinterpret_cast<miImg_image*>(&pixels);
        renderer.mi_lightmap_edit = [this, image](void** handle, miTag texture) {
            *handle = &closed;
            return texture == 77 ? image : nullptr;
        };
        renderer.mi_lightmap_edit_end = [](void* handle) { ++*static_cast<int*>(handle); };
        renderer.mi_img_get_width = [](miImg_image*) { return 8; };
        renderer.mi_img_get_height = [](miImg_image*) { return 5; };
        renderer.mi_img_get_color = [this](miImg_image*, miColor* c, int x, int y) { *c = pixels[{x, y}]; };
        renderer.mi_img_put_color = [this](miImg_image*, miColor* c, int x, int y) { pixels[{x, y}] = *c; };
        state->instance = add_instance_with(miNULLTAG);
        meter->texture = 77, meter->samples = 1, meter->factor = 1, meter->pass = 4;
    }
    void run(miRay_type type, float x = 0, float y = 0) {
        state->type = type, state.textures = {{x, y, 0}};
        state.use_textures().run(meter, miSHADER_LIGHTMAP);
        EXPECT_TRUE(orl_LightMeterLightMap(&result, state, &meter.params()));
        EXPECT_EQ(result, (miColor{9, 9, 9, 9}));
    }
    std::vector<std::string> progress() const {
        std::vector<std::string> texts;
        for (const scripted::Message& message : renderer.messages())
            if (message.level == scripted::Level::progress)
                texts.push_back(message.text);
        return texts;
    }
};

TEST_F(LightMeter, AveragesItsMeasurements) {
    renderer.add_light({{{1, 2, 3, 0}, {0, 0, 1}, 0.5f}});
    int asked = 0;
    renderer.mi_compute_avg_radiance = [&](miColor* radiance, miState*, miUchar face, void*) {
        const auto n = static_cast<float>(++asked); // 1, 2, 3 and a fourth that fails
        *radiance = {n, n, n, 0};
        return n < 4 && face == 'f' ? miTRUE : miFALSE;
    };
    // 0.5 (0.299 + 2 * 0.587 + 3 * 0.114) = 0.9075 and 6 / 4, times 10
    meter->samples = 4, meter->factor = 10, meter.start();
    run(miRAY_LM_VERTEX, 6.6f, 2.4f);
    EXPECT_EQ(asked, 4);
    const miColor color = pixels[{7, 2}];
    EXPECT_NEAR(color.r, 9.075f, 1e-4f);
    EXPECT_NEAR(color.g, 15, 1e-4f);
    EXPECT_NEAR(color.b, 24.075f, 1e-4f);
    meter->samples = 0, asked = 0;
    renderer.mi_sample_light = [&](miColor* c, miVector* dir, miScalar* dot_nl, miState* s, miTag light,
                                   miInteger* samples) {
        find_record(s, keys::light_shaping)->ambientOnly = miTRUE; // counts in full: 1.815 times 10
        return renderer.mi_sample_light.unscripted(c, dir, dot_nl, s, light, samples);
    };
    run(miRAY_LM_VERTEX, 1, 1);
    EXPECT_EQ(asked, 1);
    EXPECT_NEAR((pixels[{1, 1}].r), 18.15f, 1e-4f);
}

TEST_F(LightMeter, FillsEachPixelOnceAndTellsHowFarItIs) {
    renderer.add_light({{{1, 1, 1, 0}, {0, 0, 1}, 1.0f}});
    meter.start();
    pixels[{3, 3}] = {0, 0.5f, 0, 0}, pixels[{4, 3}] = {0.5f, 0, 0, 0}, pixels[{5, 3}] = {0, 0, 0.5f, 0};
    for (int k = 0; k < 2; ++k)
        for (float y = -1; y < 6; ++y)
            for (float x = -1; x < 9; ++x)
                run(miRAY_LM_VERTEX, x, y);
    run(miRAY_LM_VERTEX, not_a_number, infinite);
    EXPECT_EQ(pixels.size(), 40u);
    EXPECT_EQ((pixels[{3, 3}]), (miColor{0, 0.5f, 0, 0}));
    EXPECT_EQ(renderer.mi_img_put_color.calls(), 37);
    std::vector<std::string> texts{"Light Meter Calculating, -1, 4"};
    for (int percent = 5; percent < 95; percent += 5) // every two of 40 pixels, the last three are missing
        texts.push_back("Light Meter Calculating, " + std::to_string(percent) + ", 4");
    EXPECT_EQ(progress(), texts);
    run(miRAY_LM_MESH), run(miRAY_LM_MESH);
    EXPECT_EQ(closed, 1);
    run(miRAY_LM_VERTEX, 0, 0); // closed: nothing is touched
    EXPECT_EQ(renderer.mi_img_put_color.calls(), 37);
}

TEST_F(LightMeter, WithoutATexture) {
    meter->texture = miNULLTAG, meter.start();
    EXPECT_EQ(errors().size(), 1u);
    run(miRAY_LM_VERTEX), run(miRAY_LM_MESH);
    EXPECT_EQ(closed, 0);
    EXPECT_TRUE(orl_LightMeterMaterial(&result, state, nullptr));
}

} // namespace
