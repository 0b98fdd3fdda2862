// Distance fog.
#include "atm_fog.h"
#include "noise.h"
#include "shader_fixture.h"

#include <tuple>

using namespace orl;

ENTRY_POINT(orl_Fog, miColor, FogParams);
INIT_AND_EXIT(orl_Fog, FogParams);

namespace {

// Density of the layer at a height, by falloff: even, or that whose integral from the bottom to t is
// t + t^2 (1 - t).
double density(int falloff, double t) {
    if (t < 0 || t > 1)
        return 0;
    const double from_thick_end = falloff == FogLayer::towards_bottom ? 1 - t : t;
    return falloff == FogLayer::none ? 1 : 1 + 2 * from_thick_end - 3 * from_thick_end * from_thick_end;
}

TEST(Fog, LayersAreIntegrated) {
    constexpr int steps = 20000;
    for (const int falloff : {0, 1, 2})
        // rays that pass through, end in, start in, lie within, touch from above and from below: layer 2 to 5
        for (const auto& [low, high] :
             {std::pair{0.0f, 7.0f}, {1.0f, 4.0f}, {3.0f, 9.0f}, {2.5f, 4.5f}, {5.0f, 6.0f}, {1.0f, 2.0f}}) {
            double sum = 0;
            for (int k = 0; k < steps; ++k)
                sum += density(falloff, (low + (k + 0.5) / steps * (high - low) - 2) / 3) / steps;
            // Along the ray dt = (high - low) / thickness of its length.
            const double expected = -sum * (high - low) / 3 * 0.4 * 10 / (high - low);
            EXPECT_NEAR(layer_exponent({2, 3, 0.4f, falloff}, low, high, 10), expected, 2e-4)
                << falloff << low;
        }
    EXPECT_FLOAT_EQ(layer_exponent({2, 3, 0.4f, 7}, 3, 9, 12), -0.8f); // an unknown falloff: no share at all
}

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
}

TEST_F(FogShader, MapsColorAndOpacity) {
    fog->nearAmount = fog->farAmount = 0.5f; // the same at any depth
    fog->useColorMap = fog->useOpacityMap = miTRUE;
    fog->colorMap = add_map({1, 1, 1, 1}), fog->opacityMap = add_map({1, 0.5f, 0, 0});
    fog.start();
    aim({0, 0, 0}, {0, 0, -20});
    const miColor c = run({0, 0, 0, 0.5f});
    EXPECT_EQ(c.r, 0.5f);
    EXPECT_EQ(c.g, 0.25f);
    EXPECT_EQ(c.b, 0);
    EXPECT_EQ(c.a, 1); // 1 - (1 - 1) (1 - 0.5) (1 - 0.5)
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
    fog->useOpacityMap = miTRUE, fog->opacityMap = add_map({0.5f, 0, 1, 0});
    LiveShader<FogParams> mapped{state, orl_Fog_init, orl_Fog_exit};
    mapped.params() = fog.params();
    mapped.start();
    aim({0, 0, 0}, {0, 0, -100});
    miColor c{0, 0, 1, 0};
    orl_Fog(&c, state, &mapped.params());
    EXPECT_NEAR(c.r, 1 - std::pow(0.001f, 0.5f), 1e-5f);
    EXPECT_EQ(c.g, 0);
    EXPECT_NEAR(c.b, 0.001f, 1e-5f);
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
    fog->horizonNoise = miTRUE, fog->noiseAngle = 0.5f;
    aim({0, 0, 3}, {0, 30, 3});
    EXPECT_EQ(run(clear), clear);
    aim({0, 0, 3}, {0, 1, 4.5f}); // 0.98 above the horizon: no noise
    EXPECT_NEAR(run(clear).b, std::exp(-0.2f / 1.5f), 1e-5f);
}

TEST_F(FogShader, ToleratesWhatMakesNoSense) {
    const float values[] = {0, -5, not_a_number, infinite, 1e30f};
    for (const float value : values)
        for (const int type : {0, 1}) {
            LiveShader<FogParams> odd{state, orl_Fog_init, orl_Fog_exit};
            odd.params() = fog.params();
            odd->type = type,
            odd->noiseSize = odd->noiseAngle = odd->top = odd->bottom = odd->nearAmount = value;
            odd->density = odd->noisePhase = value, odd->horizonNoise = odd->exponential = miTRUE;
            odd.start();
            for (const bool hits : {true, false}) {
                aim({0, 0, 0}, {1, 2, 0.25f}, hits);
                miColor c{0.5f, 0.5f, 0.5f, 1};
                EXPECT_TRUE(orl_Fog(&c, state, &odd.params()));
                EXPECT_TRUE(std::isfinite(c.r) || value != 0) << type;
            }
        }
}

TEST(Fog, VanishesOnTheHorizon) {
    scripted::State state;
    scripted::Renderer::get().reset();
    miSetModuleHandle(scripted::Renderer::get().handle());
    noiseTablesInit(state);
    for (const float elevation : {0.0f, 0.05f, 0.15f, 0.25f}) {
        const float w = elevation / 0.2f;
        const miVector dir{0.6f * std::cos(elevation), 0.8f * std::cos(elevation), std::sin(elevation)};
        const float n = std::min(1.0f, perlinNoise3(std::atan2(0.8f, 0.6f) * 20, elevation * 20 - 3, 3) + 1);
        EXPECT_NEAR(horizon_factor(dir, 0.2f, 20, 3), w < 1 ? (1 - (1 - w) * n) * w : 1, 1e-4f) << elevation;
    }
}

} // namespace
