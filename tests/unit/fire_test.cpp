// Fire: the life of explosions, and the rays that see it.
#include "atm_combust.h"
#include "gizmo_fixture.h"

#include <climits>
#include <cmath>
#include <functional>

ENTRY_POINT(orl_FireEffect, miColor, orl::FireEffectParams);
INIT_AND_EXIT(orl_FireEffect, orl::FireEffectParams);

namespace {

using namespace orl;

constexpr miColor yellow{1, 0.8f, 0.2f, 1}, red{0.8f, 0.2f, 0.1f, 1}, smoke = grey(0.1f, 1);

TEST(FireLife, GrowsThinsOutAndTurnsToSmoke) {
    // s(x) = (3 - 2x) x^2: s(1/2) = 1/2, s(3/4) = 0.84375, s(1/4) = 0.15625
    const struct {
        float phase;
        bool explosion, smoke;
        float growth, density, noise_phase, red_of_inner;
    } cases[] = {
        {90, false, true, 1, 0.2f, 1.5f, 1}, // 90 / 300 * 5
        {0, true, true, 0, 0.2f, 0, 1},
        {25, true, true, 0.5f, 0.2f, 2.8867513f, 1}, // 5 sqrt(1/3), with fury 2
        {100, true, true, 1, 0.2f, 5.7735027f, 1},
        {150, true, true, 1.2247449f, 0.2f * 0.84375f, 7.0710678f, 0.55f}, // half-way to 0.1
        {150, true, false, 1.2247449f, 0.2f * 0.84375f, 7.0710678f, 1},
        {200, true, true, 1.4142136f, 0.1f, 8.1649658f, 0.1f},
        {250, true, true, 1.5811388f, 0.2f * 0.15625f, 9.1287093f, 0.1f},
        {300, true, true, 1.7320508f, 0, 10, 0.1f},
        {300.1f, true, true, 0, 0, 0, 1},
        {-0.1f, true, true, 0, 0, 0, 1},
        {not_a_number, true, true, 0, 0, 0, 1},
    };
    for (const auto& each : cases) {
        const FireMoment fire = fire_at({yellow, red, smoke, 10, each.phase, 2, each.explosion, each.smoke});
        EXPECT_NEAR(fire.growth, each.growth, 1e-6f) << each.phase;
        EXPECT_NEAR(fire.density, each.density, 1e-6f) << each.phase;
        EXPECT_NEAR(fire.phase, each.noise_phase, 1e-5f) << each.phase;
        EXPECT_NEAR(fire.inner.r, each.red_of_inner, 1e-6f) << each.phase;
    }
    EXPECT_NEAR(fire_at({yellow, red, smoke, 10, 150, 1, true, true}).outer.g, 0.15f, 1e-6f);
}

struct Fire : GizmoShader<FireEffectParams> {
    explicit Fire(scripted::State& state) : GizmoShader(state, orl_FireEffect_init, orl_FireEffect_exit) {
        FireEffectParams& p = params();
        p.innerColor = yellow;
        p.outerColor = red;
        p.smokeColor = smoke;
        p.flameType = 1;
        p.stretch = p.regularity = p.fury = 1;
        p.density = 25;
        p.samples = 100;
        p.flameDetail = 2.5f;
        p.on = miTRUE;
    }
};

class FireEffect : public GizmoTest {
protected:
    miTag raised = add_node(ball, up);

    miColor shade(Fire& fire, miColor color) {
        state.run(fire, miSHADER_VOLUME);
        EXPECT_TRUE(orl_FireEffect(&color, state, &fire.params()));
        return color;
    }
};

// With flame size 0 tendrils are 1/2 everywhere. Along the diameter of a ball of radius 1 the steps' weights
// come to the integral of (1 - |z|) 1/2 * 0.5, which is 1/4. Pictures show colours and light.
TEST_F(FireEffect, RaysWithoutFireStayAsTheyAre) {
    const miColor carried{0.3f, 0.6f, 0.9f, 0.5f};
    const auto looks = [&](miVector org, miVector end) {
        return [=, this](Fire&) { state.set_hit(org, end, {0, 0, 1}); };
    };
    const auto misses = [&](miVector org, miVector dir) {
        return [=, this](Fire&) { state.set_miss(org, dir); };
    };
    const std::function<void(Fire&)> changes[] = {
        [](Fire& fire) { fire->on = miFALSE; },
        [](Fire& fire) { fire->samples = 0; },
        [](Fire& fire) { fire->samples = -7; },
        [](Fire& fire) { fire->density = not_a_number; },
        [](Fire& fire) { fire->explosion = miTRUE, fire->phase = 301; },
        [](Fire& fire) { fire->explosion = miTRUE, fire->phase = 0; },
        [&](Fire& fire) { // at phase 25 the ball is half as large
            fire->explosion = miTRUE, fire->phase = 25;
            state.set_miss({0.51f, 0, 5}, {0, 0, -1});
        },
        [](Fire& fire) { fire.fill({}); },
        looks({0, 0, 5}, {0, 0, 3.5f}), // ends before it
        looks({0, 0, 0.9f}, {0, 0, 0}), // begins behind it
        misses({0, 0, 5}, {0, 0, 1}),
        misses({2, 0, 5}, {0, 0, -1}),
        [&](Fire& fire) { // below the ground that cylinders stand on
            fire.fill({add_node(cylinder)});
            state.set_miss({-3, 0, -0.5f}, {1, 0, 0});
        },
    };
    for (const auto& change : changes)
        for (const miRay_type type : {miRAY_EYE, miRAY_LIGHT}) {
            state.set_hit({0, 0, 5}, {0, 0, 0}, {0, 0, 1});
            state->type = type;
            state->volume = 1;
            Fire fire(state);
            fire.fill({raised});
            change(fire);
            fire.start();
            EXPECT_EQ(shade(fire, carried), carried) << (&change - changes);
        }
    // A ray into nothing burns; so does one that ends within, at the centre. Steps count as their ends do,
    // which is half a step of 1/100 too much there.
    state->type = miRAY_EYE;
    Fire fire(state);
    fire.fill({raised});
    fire.start();
    state.set_miss({0, 0, 5}, {0, 0, -1});
    EXPECT_NEAR(shade(fire, {}).a, 1 - std::exp(-0.25f), 1e-6f);
    state.set_hit({0, 0, 5}, {0, 0, 2}, {0, 0, 1});
    EXPECT_NEAR(shade(fire, {}).a, 1 - std::exp(-0.125f * 1.01f), 1e-6f);
    state.set_miss({0, 0, 5}, {0, 0, -1});
    Fire countless(state); // ends in time
    countless->samples = INT_MAX;
    countless.fill({raised});
    countless.start();
    EXPECT_NEAR(shade(countless, {}).a, 1 - std::exp(-0.25f), 1e-6f);
    // Light keeps its alpha, and burns where it left the atmosphere on the ray.
    state->type = miRAY_LIGHT;
    EXPECT_TRUE(shade(fire, carried).a == carried.a && shade(fire, carried).r != carried.r);
    state->volume = miNULLTAG;
    EXPECT_EQ(shade(fire, carried), carried);
}

} // namespace
