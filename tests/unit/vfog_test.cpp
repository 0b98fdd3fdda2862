// Volume fog: against closed forms, against the same march step by step, and its life in the renderer.
#include "atm_vfog.h"
#include "gizmo_fixture.h"
#include "noise.h"

#include <climits>
#include <cmath>

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
    // Size 0 looks all noise up in one place, where it is 0; bias b makes fog of density b / (b + 1).
    void make_even(float bias) {
        params().size = 0;
        params().bias = bias;
    }
};

class VolumeFog : public GizmoTest {
protected:
    miColor shade(Fog& fog, miColor color = {0, 0, 0, 0}) {
        state.run(fog, miSHADER_VOLUME);
        EXPECT_TRUE(orl_VolumeFog(&color, state, &fog.params()));
        return color;
    }
    float amount(Fog& fog) { return shade(fog).a; } // of a transparent ray: the fog alone
};

// A ray of 5 units through fog of density 1/2: 0.5 * 20 * 0.002 * 5 = 0.1, in whole and in broken steps.
TEST_F(VolumeFog, EvenFogHasTheClosedForm) {
    const struct {
        float step;
        miInteger limit;
        bool exponential;
        float bias, density, expected;
    } cases[] = {
        {0.25f, 1000, true, 1, 20, 1 - std::exp(-0.1f)},
        {0.25f, 1000, false, 1, 20, 0.1f},
        {1.5f, 1000, true, 1, 20, 1 - std::exp(-0.1f)}, // 3 steps and a third of one
        {7, 1000, false, 1, 20, 0.1f},                  // part of a step
        {1.5f, 3, false, 1, 20, 0.09f},                 // the limit ends it: 4.5 units
        {1.5f, 4, false, 1, 20, 0.1f},
        {1, 2, false, 1, 20, 0.04f},
        {1, 1000, false, 3, 20, 0.15f},       // density 3/4
        {1, 1000, false, 1, 2000, 1},         // 10, opaque
        {1, 1000, true, 1, 1000, 0.9932621f}, // 1 - exp(-5)
        {0, 1000, false, 1, 20, 0},
        {-1, 1000, false, 1, 20, 0},
        {1, 0, false, 1, 20, 0},
        {1, -3, false, 1, 20, 0},
    };
    for (const auto& each : cases) {
        Fog fog(state);
        fog.make_even(each.bias);
        fog->stepSize = each.step;
        fog->maxSteps = each.limit;
        fog->exponential = each.exponential;
        fog->density = each.density;
        fog.start();
        EXPECT_NEAR(amount(fog), each.expected, 2e-6f)
            << each.step << ' ' << each.limit << ' ' << each.density;
    }
}

// From (0, 0, 5) down to the plane: chords of 2 units inside, one of them cut at the plane.
TEST_F(VolumeFog, EvenFogFillsGizmosAlone) {
    constexpr orl_GizmoData cube{orl_gizmo_box, 0, 0, 2, 2, 2, 1}, post{orl_gizmo_cylinder, 1, 2, 0, 0, 0, 1};
    constexpr orl_GizmoData dome{orl_gizmo_hemisphere, 1, 0, 0, 0, 0, 1};
    constexpr miMatrix aside{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 3, 0, 2, 1};
    constexpr miMatrix large{3, 0, 0, 0, 0, 3, 0, 0, 0, 0, 3, 0, 0, 0, 0, 1};
    constexpr miMatrix around{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 5, 1};
    const struct {
        std::vector<miTag> gizmos;
        float length;
    } cases[] = {
        {{add_node(ball, up)}, 2},
        {{add_node(cube, up)}, 2},
        {{add_node(post, up)}, 2},
        {{add_node(dome, up)}, 1},
        {{add_node(ball)}, 1},
        {{add_node(ball, aside)}, 0},
        {{add_node(ball, around)}, 1}, // the ray begins in it
        {{add_node(ball, large)}, 1},  // 3 units of the world, and 1 of the gizmo
        {{add_node(ball, up), miNULLTAG, add_node(ball), add_node(ball, aside)}, 3},
        {{miNULLTAG}, 0},
    };
    for (const float soft : {0.0f, 1e-6f}) // hard edges look the noise up in the world
        for (const auto& each : cases) {
            Fog fog(state);
            fog.make_even(1);
            fog->maxSteps = 200;
            fog->softEdges = soft;
            fog.fill(each.gizmos);
            fog.start();
            // The last step ends on the surface, where soft edges leave nothing of it.
            EXPECT_NEAR(amount(fog), 0.02f * each.length, soft == 0.0f ? 2e-6f : 4e-4f) << each.length;
        }
    EXPECT_TRUE(errors().empty());
}

// Half of the falloff is soft: in even fog along a diameter, density 1 up to 0.5 and from there linear to 0
// at 1.
TEST_F(VolumeFog, SoftEdgesThinOut) {
    Fog fog(state);
    fog.make_even(1);
    fog->softEdges = 0.5f;
    fog->maxSteps = 400;
    fog.fill({add_node(ball, up)});
    fog.start();
    EXPECT_NEAR(amount(fog), 0.02f * 1.5f, 1e-6f);
}

TEST_F(VolumeFog, WhichRaysAreFogged) {
    orl_SceneData editor{};
    editor.material_editor = miTRUE;
    const auto run = [&](const std::function<void(Fog&)>& change, miColor color) {
        Fog fog(state);
        fog.make_even(1);
        change(fog);
        fog.start();
        return shade(fog, color);
    };
    const miColor carried{1, 0.5f, 0.25f, 0.5f};
    const float a = 0.1f; // of the ray of 5 units
    const miColor fogged = run([](Fog&) {}, carried);
    EXPECT_NEAR(fogged.r, 1 + (0.8f - 1) * a, 1e-6f);
    EXPECT_NEAR(fogged.b, 0.25f + (0.4f - 0.25f) * a, 1e-6f);
    EXPECT_NEAR(fogged.a, a + 0.5f * (1 - a), 1e-6f);
    EXPECT_EQ(run([](Fog& fog) { fog->on = miFALSE; }, carried), carried);

    // Light: dimmed by the weight in its alpha, where its light left the atmosphere on the ray.
    state->type = miRAY_LIGHT;
    state->volume = 1;
    const miColor lit = run([](Fog&) {}, carried);
    EXPECT_NEAR(lit.r, 1 - a * 0.5f, 1e-6f);
    EXPECT_NEAR(lit.b, 0.25f * (1 - a * 0.5f), 1e-6f);
    EXPECT_EQ(lit.a, 0.5f);
    EXPECT_EQ(run([](Fog&) {}, {1, 1, 1, 0}), (miColor{1, 1, 1, 0}));
    state->volume = miNULLTAG;
    EXPECT_EQ(run([](Fog&) {}, carried), carried);

    state->type = miRAY_EYE;
    set_scene(editor);
    EXPECT_EQ(run([](Fog&) {}, carried), carried);
    set_scene(orl_SceneData{});
    EXPECT_NE(run([](Fog&) {}, carried), carried);

    // Into nothing: too far without a gizmo; from the middle of the ball its radius.
    const auto filled = [&](miBoolean background) {
        return [&, background](Fog& fog) { fog.fill({add_node(ball)}), fog->fogBackground = background; };
    };
    state.set_miss({0, 0, 0}, {0, 1, 0});
    EXPECT_EQ(run([](Fog&) {}, carried), carried);
    EXPECT_NEAR(run(filled(miTRUE), {}).a, 0.02f, 1e-6f);
    EXPECT_EQ(run(filled(miFALSE), carried), carried);
}

// The density of one step in plain words, and the march with one step after the other.
float density_step_by_step(const FogTexture& fog, const FogWay& way, float t) {
    const MarchWay& m = way.march;
    const miVector p{m.start.x + t * m.step.x, m.start.y + t * m.step.y, m.start.z + t * m.step.z};
    const float x = (p.x + way.offset.x) * fog.frequency, y = (p.y + way.offset.y) * fog.frequency,
                z = (p.z + way.offset.z) * fog.frequency;
    const int whole = static_cast<int>(fog.noise.levels);
    float sum = 0.0f;
    for (int i = 0; i <= whole; ++i) {
        const float f = std::ldexp(1.0f, i);
        const float share = i < whole ? 1.0f : fog.noise.levels - static_cast<float>(whole);
        const float n = fog.noise.moving ? perlinNoise4(f * x, f * y, f * z, fog.noise.phase)
                                         : perlinNoise3(f * x, f * y, f * z);
        sum += share * (fog.noise.absolute ? std::fabs(n) : n) / f;
    }
    float value = (fog.turbulence ? sum * 4.0f - 1.0f : sum) + fog.bias;
    value = fog.invert ? -value : value;
    value = value > 0.0f ? value / fog.range : 0.0f;
    if (fog.thresholds)
        value = smoothStep(fog.lowThreshold, fog.highThreshold, value);
    if (way.soft == nullptr)
        return value;
    const float g = falloff(*way.soft, p);
    return g > fog.hardPart ? value * (1.0f - (g - fog.hardPart) / fog.softEdges) : value;
}

float step_by_step(const FogTexture& fog, bool exponential, const FogWay& way) {
    float sum = 0.0f;
    for (float k = 0.0f; k < way.march.steps; ++k) {
        const float end = std::fmin(k + 1.0f, way.march.steps);
        sum += density_step_by_step(fog, way, end) * (end - k) * way.density;
        if (!exponential && sum >= 1.0f)
            return 1.0f;
    }
    return sum;
}

FogTexture texture(FogNoiseType type, float levels, float phase) {
    FogTexture fog;
    fog.turbulence = type == fog_noise_turbulence;
    fog.noise = {levels, fog.turbulence, phase != 0.0f, phase};
    fog.frequency = 0.7f;
    fog.bias = 0.1f;
    fog.range = 1.1f;
    fog.thresholds = true;
    fog.lowThreshold = 0.05f;
    fog.highThreshold = 0.8f;
    fog.softEdges = 0.3f;
    fog.hardPart = 0.7f;
    return fog;
}

TEST_F(VolumeFog, ManyStepsAtOnceHaveTheBitsOfStepByStep) {
    noiseTablesInit(state);
    const Gizmo gizmo = shape_gizmo(box, {1, GizmoShape::centred_cylinder, {}});
    int opaque = 0;
    for (const FogNoiseType type : {fog_noise_plain, fog_noise_fractal, fog_noise_turbulence})
        for (const float phase : {0.0f, 1.3f})
            for (const float levels : {0.0f, 1.0f, 2.7f, 5.0f})
                for (const float steps : {0.4f, 3.0f, 63.75f, 64.0f, 65.0f, 259.5f})
                    for (const bool soft : {false, true})
                        for (const bool exponential : {false, true}) {
                            FogTexture fog = texture(type, levels, phase);
                            fog.invert = steps == 65.0f;
                            const FogWay way{{{-0.5f, -1.2f, -0.8f}, {0.004f, 0.009f, 0.006f}, steps},
                                             {3, 500, 20},
                                             0.02f,
                                             soft ? &gizmo : nullptr};
                            const float sum = march_fog(fog, exponential, way, 0.0f);
                            EXPECT_EQ(sum, step_by_step(fog, exponential, way)) << steps << ' ' << levels;
                            opaque += !exponential && sum == 1.0f;
                        }
    EXPECT_GT(opaque, 0); // marches that stop early are among them
}

// Ways of 20 units through lumps of 1.4 units.
TEST_F(VolumeFog, HalvingTheStepConverges) {
    noiseTablesInit(state);
    const FogTexture fog = texture(fog_noise_fractal, 3, 0.6f);
    converges(64, [&](int ray, int count) {
        const auto steps = static_cast<float>(count), step = 20.0f / steps;
        const miVector start{0, static_cast<float>(ray) * 3.1f, 0};
        return march_fog(fog, true,
                         {{start, {step * 0.8f, 0, step * 0.6f}, steps}, {}, 0.05f * step, nullptr}, 0);
    });
}

// A gizmo looks the same wherever it stands with its camera; another seed looks different.
TEST_F(VolumeFog, GizmosTakeTheirFogAlong) {
    const auto seen = [&](const miMatrix& matrix, miInteger seed) {
        orl_GizmoData data = box;
        data.seed = seed;
        Fog fog(state);
        fog->size = 0.8f;
        fog->bias = 0.3f;
        fog->softEdges = 0.4f;
        fog.fill({add_node(data, matrix)});
        fog.start();
        miVector org{-3, -2, 2}, end{0.5f, 0.9f, -0.8f};
        mi_point_transform(&org, &org, matrix);
        mi_point_transform(&end, &end, matrix);
        state.set_hit(org, end, {0, 0, 1});
        return amount(fog);
    };
    constexpr miMatrix moved{0, 4, 0, 0, -4, 0,  0,  0,
                             0, 0, 4, 0, 8,  -4, 16, 1}; // turned, four times the size
    const float here = seen(identity, 1);
    EXPECT_GT(here, 0.01f);
    EXPECT_NEAR(seen(moved, 1), here, 1e-5f);
    EXPECT_GT(std::fabs(seen(identity, 2) - here), 1e-3f);
}

TEST_F(VolumeFog, SettingsThatMakeNoSense) {
    using P = VolumeFogParams;
    const std::vector<Change<P>> changes{
        [](P& p) { p.maxSteps = 1000000000; },
        [](P& p) { p.maxSteps = INT_MIN; },
        [](P& p) { p.maxSteps = 1000000000, p.stepSize = 1e-30f; },
        [](P& p) { p.noiseType = -5, p.windDirection = 77, p.levels = 1e30f; },
    };
    const miTag gizmo = add_node(sphere);
    for (const bool exponential : {false, true})
        for (const bool in_gizmo : {false, true})
            survives<P>(changes,
                        {&P::size, &P::density, &P::bias, &P::phase, &P::stepSize, &P::windStrength,
                         &P::levels, &P::lowThreshold, &P::highThreshold, &P::softEdges},
                        [&](const Change<P>& change) {
                            Fog fog(state);
                            fog->size = 3;
                            fog->phase = 0.5f;
                            fog->softEdges = 0.2f;
                            fog->exponential = exponential;
                            change(fog.params());
                            if (in_gizmo)
                                fog.fill({gizmo});
                            fog.start();
                            return shade(fog, {0.5f, 0.5f, 0.5f, 0.5f});
                        });

    // Thresholds count in order.
    const auto between = [&](float a, float b) {
        Fog fog(state);
        fog->size = 2;
        fog->bias = 1;
        fog->lowThreshold = a;
        fog->highThreshold = b;
        fog.start();
        return amount(fog);
    };
    EXPECT_EQ(between(0.2f, 0.7f), between(0.7f, 0.2f));
    EXPECT_NE(between(0.2f, 0.7f), between(0.0f, 0.0f));
}

} // namespace
