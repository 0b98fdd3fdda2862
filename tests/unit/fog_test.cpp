// Distance fog.
#include "atm_fog.h"
#include "shader_fixture.h"

#include <tuple>

using namespace orl;

ENTRY_POINT(orl_Fog, miColor, FogParams);
INIT_AND_EXIT(orl_Fog, FogParams);

namespace {

class FogShader : public ShaderTest {
protected:
    LiveShader<FogParams> fog{state, orl_Fog_init, orl_Fog_exit};

    FogShader() {
        fog->color = {1, 0.5f, 0, 1};
        fog->active = fog->fogBackground = miTRUE;
        fog->farAmount = 1;
        fog->falloff = FogLayer::none;
    }
    void set_range(float from, float to) {
        orl_CameraData camera{};
        camera.near_range = from, camera.far_range = to;
        state.camera.userdata = add_record(camera);
    }
    // An eye ray between two points of world space; one without end goes in that direction.
    void aim(miVector from, miVector to, bool hits = true) {
        state->org = from, state->point = to;
        state->dir = {to.x - from.x, to.y - from.y, to.z - from.z};
        mi_vector_normalize(&state->dir);
        state->dist = hits ? 1 : 0;
    }
    miColor run(miColor incoming) {
        miColor result = incoming;
        state.run(fog, miSHADER_VOLUME);
        EXPECT_TRUE(orl_Fog(&result, state, &fog.params()));
        return result;
    }
    // Of fog with other settings.
    template <class Change> miColor run(miColor incoming, Change change) {
        LiveShader<FogParams> other{state, orl_Fog_init, orl_Fog_exit};
        other.params() = fog.params();
        change(other.params());
        other.start();
        orl_Fog(&incoming, state, &other.params());
        return incoming;
    }
    static void as_set(FogParams&) {}
    miTag add_map(miColor value) {
        return renderer.add_shader([=](void* to, miState*, void*) {
            *static_cast<miColor*>(to) = value;
            return miTRUE;
        });
    }
};

TEST_F(FogShader, GrowsWithTheDepth) {
    fog->nearAmount = 0.2f, fog->farAmount = 0.6f;
    set_range(10, 30);
    fog.start();
    // depth, hits: amount
    for (const auto& [depth, hits, amount] : {std::tuple{5.0f, true, 0.2f},
                                              {10.0f, true, 0.2f},
                                              {20.0f, true, 0.4f},
                                              {30.0f, true, 0.6f},
                                              {99.0f, true, 0.6f},
                                              {5.0f, false, 0.6f}}) {
        aim({0, 0, 0}, {3, 4, -depth}, hits);
        const miColor c = run({0, 0, 1, 0.5f});
        EXPECT_NEAR(c.r, amount, 1e-6f) << depth;
        EXPECT_NEAR(c.g, amount / 2, 1e-6f);
        EXPECT_NEAR(c.b, 1 - amount, 1e-6f);
        EXPECT_NEAR(c.a, 1 - (1 - amount) * 0.5f, 1e-6f);
    }
    const miColor clear{0.25f, 0.5f, 0.75f, 0};
    fog->fogBackground = miFALSE;
    EXPECT_EQ(run(clear), clear);
    aim({0, 0, 0}, {0, 0, -20});
    for (const auto& [type, fogged] :
         {std::pair{miRAY_TRANSPARENT, true}, {miRAY_REFLECT, false}, {miRAY_SHADOW, false}}) {
        state->type = type;
        EXPECT_EQ(run(clear) == clear, !fogged) << type;
    }
    state->type = miRAY_EYE, fog->active = miFALSE;
    EXPECT_EQ(run(clear), clear);
    fog->active = miTRUE;
    // A camera whose ranges are one: near up to it, far beyond.
    set_range(20, 20);
    EXPECT_NEAR(run({0, 0, 0, 0}, as_set).r, 0.2f, 1e-6f);
    // Without the record amounts are ranges as well; the amount ends at 1, where the colour is the fog's.
    state.camera.userdata = miNULLTAG;
    for (const auto& [depth, amount] : {std::pair{0.1f, 0.2f}, {0.4f, 0.4f}, {0.7f, 0.6f}}) {
        aim({0, 0, 0}, {0, 0, -depth});
        EXPECT_NEAR(run({0, 0, 0, 0}, as_set).r, amount, 1e-6f) << depth;
        EXPECT_EQ(run({0, 0, 0, 0}, [](FogParams& p) { p.nearAmount = p.farAmount = 3; }).r, 1);
    }
}

TEST_F(FogShader, MapsColorAndOpacity) {
    fog->nearAmount = fog->farAmount = 0.5f; // the same at any depth
    fog->useColorMap = fog->useOpacityMap = miTRUE;
    fog->colorMap = add_map({1, 1, 1, 1}), fog->opacityMap = add_map({0.5f, 1, 0, 0});
    fog.start();
    aim({0, 0, 0}, {0, 0, -20});
    const miColor c = run({0, 0, 0, 0.5f});
    EXPECT_EQ(c.r, 0.25f);
    EXPECT_EQ(c.g, 0.5f);
    EXPECT_EQ(c.b, 0);
    EXPECT_EQ(c.a, 1); // 1 - (1 - 1) (1 - 0.5) (1 - 0.5)
    // Each map has a switch: the colour's alone, and the opacity's alone.
    EXPECT_EQ(run({}, [](FogParams& p) { p.useOpacityMap = miFALSE; }), (miColor{0.5f, 0.5f, 0.5f, 0.5f}));
    EXPECT_EQ(run({}, [](FogParams& p) { p.useColorMap = miFALSE; }), (miColor{0.25f, 0.25f, 0, 1}));
}

TEST_F(FogShader, ThickensExponentially) {
    fog->nearAmount = 0, fog->farAmount = 1, fog->exponential = miTRUE;
    set_range(0, 100);
    fog.start();
    // -ln 0.001 over 100 units: a thousandth of the light is left at the far range
    for (const auto& [from, to] : {std::pair{0.0f, 50.0f}, {20.0f, 30.0f}, {0.0f, 100.0f}, {0.0f, 500.0f}}) {
        aim({0, 0, -from}, {0, 0, -to});
        EXPECT_NEAR(run({0, 0, 1, 0}).b, std::pow(0.001f, (std::min(to, 100.0f) - from) / 100), 1e-5f) << to;
    }
    aim({0, 0, 0}, {0, 0, -100});
    fog->opacityMap = add_map({0.5f, 0, 1, 0});
    const miColor c = run({0, 0, 1, 0}, [](FogParams& p) { p.useOpacityMap = miTRUE; });
    EXPECT_NEAR(c.r, 1 - std::pow(0.001f, 0.5f), 1e-5f);
    EXPECT_EQ(c.g, 0);
    EXPECT_NEAR(c.b, 0.001f, 1e-5f);
    EXPECT_NEAR(c.a, 0.999f, 1e-5f); // of the thickest channel
}

TEST_F(FogShader, LiesInLayers) {
    fog->type = 1, fog->density = 40;
    fog->top = 2, fog->bottom = 5; // in either order
    fog.start();
    const miColor clear{0, 0, 1, 0};
    for (const float z : {1.0f, 6.0f}) {
        aim({0, 0, z}, {0, 30, z});
        EXPECT_EQ(run(clear), clear);
    }
    aim({0, 0, 3}, {0, 30, 3});
    EXPECT_EQ(run(clear), (miColor{1, 0.5f, 0, 1}));
    aim({0, 0, 3}, {3, 4, 4.5f}); // half the layer over a length of 5: -0.5 * 0.4 * 5 / 1.5
    EXPECT_NEAR(run(clear).b, std::exp(-2 / 3.0f), 1e-5f);
    aim({0, 0, 3}, {3, 4, 4.5f}, false); // on to the top: -2 / 3 of 0.4 times 10 / 3 for each unit of height
    EXPECT_NEAR(run(clear).b, std::exp(-0.4f * 2 / 3 * 5 / 1.5f), 1e-5f);
    // A layer without thickness: all of it for whoever crosses it, 0.4 * 5 / 1.5; none above.
    const auto thin = [](FogParams& p) { p.top = p.bottom = 4; };
    aim({0, 0, 3}, {3, 4, 4.5f});
    EXPECT_NEAR(run(clear, thin).b, std::exp(-4 / 3.0f), 1e-5f);
    aim({0, 0, 4.1f}, {3, 4, 5.6f});
    EXPECT_EQ(run(clear, thin), clear);
    fog->horizonNoise = miTRUE, fog->noiseAngle = 0.5f;
    aim({0, 0, 3}, {0, 30, 3});
    EXPECT_EQ(run(clear), clear);
    aim({0, 0, 3}, {0, 1, 4.5f}); // 0.98 above the horizon: no noise
    EXPECT_NEAR(run(clear).b, std::exp(-0.2f / 1.5f), 1e-5f);
    orl_SceneData editor{};
    editor.material_editor = miTRUE;
    set_scene(editor);
    EXPECT_EQ(run(clear), clear);
    fog->type = 0;
    EXPECT_NE(run(clear), clear);
}

} // namespace
