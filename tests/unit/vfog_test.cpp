// Volume fog against closed forms, and the rays that see it.
#include "atm_vfog.h"
#include "gizmo_fixture.h"

#include <climits>
#include <cmath>
#include <functional>

ENTRY_POINT(orl_VolumeFog, miColor, orl::VolumeFogParams);
INIT_AND_EXIT(orl_VolumeFog, orl::VolumeFogParams);

namespace {

using namespace orl;

struct Fog : GizmoShader<VolumeFogParams> {
    explicit Fog(scripted::State& state) : GizmoShader(state, orl_VolumeFog_init, orl_VolumeFog_exit) {
        VolumeFogParams& p = params();
        p.color = {0.8f, 0.6f, 0.4f, 1};
        p.density = 20;
        p.stepSize = 0.25f;
        p.maxSteps = 1000;
        p.noiseType = fog_noise_fractal;
        p.levels = 2.5f;
        p.on = p.fogBackground = miTRUE;
    }
};

class VolumeFog : public GizmoTest {
protected:
    miColor shade(Fog& fog, miColor color = {0, 0, 0, 0}) {
        state.run(fog, miSHADER_VOLUME);
        EXPECT_TRUE(orl_VolumeFog(&color, state, &fog.params()));
        return color;
    }

    // Size 0 looks all noise up in one place, where it is 0; the bias 1 makes fog of density 1/2.
    miColor shade_even(const std::function<void(Fog&)>& change, miColor color = {0, 0, 0, 0}) {
        Fog fog(state);
        fog->size = 0, fog->bias = 1;
        change(fog);
        fog.start();
        return shade(fog, color);
    }
};

// A ray of 5 units: 0.5 * 20 * 0.002 * 5 = 0.1, in whole and in broken steps.
TEST_F(VolumeFog, EvenFogHasTheClosedForm) {
    const struct {
        float step;
        miInteger limit;
        float density, expected;
    } cases[] = {
        {0.25f, 1000, 20, 0.1f},   {1.5f, 4, 20, 0.1f}, // 3 steps and a third of one
        {7, 1000, 20, 0.1f},                            // part of a step
        {0.0625f, 1000, 20, 0.1f},                      // 80 steps: more than are taken at once
        {1.5f, 3, 20, 0.09f},                           // the limit ends it: 4.5 units
        {1, 2, 20, 0.04f},         {1, 1000, 2000, 10}, // opaque
        {0, 1000, 20, 0},          {-1, 1000, 20, 0},   {1, 0, 20, 0}, {1, -3, 20, 0},
    };
    for (const auto& each : cases)
        for (const bool exponential : {false, true}) {
            const auto change = [&](Fog& fog) {
                fog->stepSize = each.step, fog->maxSteps = each.limit, fog->density = each.density;
                fog->exponential = exponential;
            };
            EXPECT_NEAR(shade_even(change).a,
                        exponential ? 1 - std::exp(-each.expected) : std::fmin(1.0f, each.expected), 2e-6f)
                << each.step << ' ' << each.limit << ' ' << each.density;
        }
}

TEST_F(VolumeFog, WhichRaysAreFogged) {
    orl_SceneData editor{};
    editor.material_editor = miTRUE;
    const miColor carried{1, 0.5f, 0.25f, 0.5f};
    const float a = 0.1f; // of the ray of 5 units
    const miColor fogged = shade_even([](Fog&) {}, carried);
    EXPECT_NEAR(fogged.r, 1 + (0.8f - 1) * a, 1e-6f);
    EXPECT_NEAR(fogged.b, 0.25f + (0.4f - 0.25f) * a, 1e-6f);
    EXPECT_NEAR(fogged.a, a + 0.5f * (1 - a), 1e-6f);
    EXPECT_EQ(shade_even([](Fog& fog) { fog->on = miFALSE; }, carried), carried);

    // Light: dimmed by the weight in its alpha, where its light left the atmosphere on the ray.
    state->type = miRAY_LIGHT;
    state->volume = 1;
    const miColor lit = shade_even([](Fog&) {}, carried);
    EXPECT_NEAR(lit.r, 1 - a * 0.5f, 1e-6f);
    EXPECT_NEAR(lit.b, 0.25f * (1 - a * 0.5f), 1e-6f);
    EXPECT_EQ(lit.a, 0.5f);
    EXPECT_EQ(shade_even([](Fog&) {}, {1, 1, 1, 0}), (miColor{1, 1, 1, 0}));
    state->volume = miNULLTAG;
    EXPECT_EQ(shade_even([](Fog&) {}, carried), carried);

    state->type = miRAY_EYE;
    set_scene(editor);
    EXPECT_EQ(shade_even([](Fog&) {}, carried), carried);
    set_scene(orl_SceneData{});
    EXPECT_NE(shade_even([](Fog&) {}, carried), carried);

    // Into nothing: too far without a gizmo; from the middle of the ball its radius.
    const auto filled = [&](miBoolean background) {
        return [&, background](Fog& fog) { fog.fill({add_node(ball)}), fog->fogBackground = background; };
    };
    state.set_miss({0, 0, 0}, {0, 1, 0});
    EXPECT_EQ(shade_even([](Fog&) {}, carried), carried);
    EXPECT_NEAR(shade_even(filled(miTRUE), {}).a, 0.02f, 1e-6f);
    EXPECT_EQ(shade_even(filled(miFALSE), carried), carried);
    const auto backwards = [&](Fog& fog) { filled(miTRUE)(fog), fog->stepSize = -1; };
    EXPECT_NEAR(shade_even(backwards, {}).a, 0.02f, 1e-6f); // gizmos divide their way by maxSteps
    const auto countless = [&](Fog& fog) { filled(miTRUE)(fog), fog->maxSteps = INT_MAX; };
    EXPECT_NEAR(shade_even(countless, {}).a, 0.02f, 2e-5f); // in time; so many additions round
    const auto nonsense = [&](Fog& fog) { filled(miTRUE)(fog), fog->density = not_a_number; };
    EXPECT_EQ(shade_even(nonsense, carried), carried);

    // Ways of more than 100000 units, of the world or of the gizmo, have no fog.
    constexpr miMatrix tiny{1e-5f, 0, 0, 0, 0, 1e-5f, 0, 0, 0, 0, 1e-5f, 0, 0, 0, 0, 1};
    for (const auto& [length, amount] : {std::pair{90000.0f, 0.18f}, {110000.0f, 0.0f}}) {
        const auto in_gizmo = [&, length = length](Fog& fog) {
            orl_GizmoData large = ball;
            large.radius = length / 2;
            fog->density = 2e-4f;
            fog.fill({add_node(large, tiny)});
        };
        state.set_hit({0, 0, length}, {0, 0, 0}, {0, 0, 1});
        EXPECT_NEAR(shade_even([](Fog& fog) { fog->density = 2e-3f, fog->stepSize = 1e4f; }, {}).a, amount,
                    1e-5f);
        state.set_hit({0, 0, 5}, {0, 0, -5}, {0, 0, 1});
        EXPECT_NEAR(shade_even(in_gizmo, {}).a, amount / 10, 1e-5f);
    }
}

// In the one place of size 0, where the sum of noise is 0: (bias or, of turbulence, bias - 1) / (1 + bias),
// turned round, between the thresholds 3 t^2 - 2 t^3, times 20 * 0.002 * 5.
TEST_F(VolumeFog, DensityByItsSettings) {
    const struct {
        miInteger type;
        float bias, low, high;
        miBoolean invert;
        float density;
    } cases[] = {{fog_noise_turbulence, 2, 0, 0, 0, 1 / 3.0f},
                 {fog_noise_turbulence, 0.5f, 0, 0, 1, 1 / 3.0f},
                 {fog_noise_fractal, 1, 0, 0, 1, 0},
                 {fog_noise_plain, 0.5f, 0.8f, 0.2f, 0, 0.1262003f}, // t = 2/9
                 {fog_noise_plain, 0.5f, 0, 0.5f, 0, 0.7407407f}};   // t = 2/3
    for (const auto& each : cases)
        EXPECT_NEAR(shade_even([&](Fog& fog) {
                        fog->noiseType = each.type, fog->bias = each.bias, fog->invert = each.invert;
                        fog->lowThreshold = each.low, fog->highThreshold = each.high;
                    }).a,
                    0.2f * each.density, 1e-6f)
            << &each - cases;
}

// Noise that the wind has moved is seen as it would be from two units aside.
TEST_F(VolumeFog, WindMovesTheNoise) {
    const auto seen = [&](miInteger wind, float strength, const miVector& from) {
        state.set_hit({from.x, from.y, from.z + 5}, from, {0, 0, 1});
        return shade_even([=](Fog& fog) {
                   fog->size = 1.4f, fog->phase = 1;
                   fog->windDirection = wind, fog->windStrength = strength;
               })
            .a;
    };
    const miVector ways[] = {{0, -2, 0}, {0, 2, 0}, {-2, 0, 0}, {2, 0, 0}, {0, 0, 2}, {0, 0, -2}, {}};
    for (int wind = 0; wind < 7; ++wind)
        EXPECT_NEAR(seen(wind, 2, {}), seen(wind, 0, ways[wind]), 1e-6f) << wind;
}

} // namespace
