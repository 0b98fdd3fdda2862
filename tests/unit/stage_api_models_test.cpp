// Reflection models and the choice of scattering: energy, reciprocity, limits.
#include <cmath>
#include <map>
#include <numbers>

#include "stage_api_scene.h"

namespace {

using namespace stage_test;

constexpr double pi = std::numbers::pi;

miVector direction(double theta, double phi) {
    return {static_cast<float>(std::sin(theta) * std::cos(phi)),
            static_cast<float>(std::sin(theta) * std::sin(phi)), static_cast<float>(std::cos(theta))};
}

miVector reversed(miVector v) {
    mi_vector_neg(&v);
    return v;
}

miVector normal = {0, 0, 1}, axis_u = {1, 0, 0}, axis_v = {0, 1, 0};

// Part of the light from one direction that a model reflects: midpoint rule over the hemisphere.
double albedo(double incoming, float shiny_u, float shiny_v) {
    miVector in = reversed(direction(incoming, 0.4));
    constexpr int steps = 300;
    double sum = 0;
    for (int i = 0; i < steps; ++i)
        for (int j = 0; j < steps; ++j) {
            const double theta = (i + 0.5) / steps * pi / 2, phi = (j + 0.5) / steps * 2 * pi;
            miVector out = direction(theta, phi);
            const float f = mi_ward_anisglossy(&in, &out, &normal, &axis_u, &axis_v, shiny_u, shiny_v);
            sum += static_cast<double>(f) * std::cos(theta) * std::sin(theta);
        }
    return sum * pi / 2 / steps * 2 * pi / steps;
}

// For a narrow lobe the cosines are constant over it: with d out = 4 cos d half vector the integral becomes
// cos / (pi w^2) times that of exp(-tan^2 / w^2) over the half vectors, pi w^2. The model is known for losing
// light at grazing angles in this way. What is left out is of the order of the squared width.
TEST(Ward, ReflectsTheCosineOfTheIncomingAngle) {
    for (const auto& [u, v] : {std::pair{100.0f, 100.0f}, {400.0f, 60.0f}, {2000.0f, 2000.0f}})
        for (const double incoming : {0.0, 0.4, 0.9})
            EXPECT_NEAR(albedo(incoming, u, v), std::cos(incoming), 4.0 / static_cast<double>(std::min(u, v)))
                << u << " " << v << " " << incoming;
}

TEST(Ward, ReflectsNoMoreThanComesIn) {
    for (const float shiny : {0.5f, 3.0f, 20.0f, 200.0f})
        for (const double incoming : {0.0, 0.8, 1.2, 1.5})
            EXPECT_LE(albedo(incoming, shiny, shiny), 1.0) << shiny << " " << incoming;
}

TEST(Ward, IsReciprocalAndIsotropicWhereItsWidthsAgree) {
    for (int i = 0; i < 50; ++i) {
        miVector a = direction(0.03 * i, 0.7 * i), b = direction(0.02 * i, 2.1 + 0.3 * i);
        miVector in_a = reversed(a), in_b = reversed(b);
        const float there = mi_ward_anisglossy(&in_a, &b, &normal, &axis_u, &axis_v, 12.0f, 70.0f);
        const float back = mi_ward_anisglossy(&in_b, &a, &normal, &axis_u, &axis_v, 12.0f, 70.0f);
        EXPECT_NEAR(there, back, 1e-5f * (1.0f + there));
        const float round = mi_ward_glossy(&in_a, &b, &normal, 30.0f);
        const float even = mi_ward_anisglossy(&in_a, &b, &normal, &axis_u, &axis_v, 30.0f, 30.0f);
        EXPECT_NEAR(round, even, 2e-4f * (1.0f + round));
    }
}

TEST(Ward, PeaksAtTheMirrorAndIsDarkBelowTheSurface) {
    miVector in = reversed(direction(0.5, 0.0)), mirror = direction(0.5, pi), below = direction(2.0, pi);
    // At the mirror the slope is 0: shiny / (4 pi cos).
    EXPECT_NEAR(mi_ward_glossy(&in, &mirror, &normal, 30.0f), 30.0 / (4 * pi * std::cos(0.5)), 1e-4);
    EXPECT_EQ(mi_ward_glossy(&in, &below, &normal, 30.0f), 0.0f);
    miVector from_below = reversed(direction(2.0, 0.0));
    EXPECT_EQ(mi_ward_glossy(&from_below, &mirror, &normal, 30.0f), 0.0f);
    EXPECT_EQ(mi_ward_glossy(&in, &mirror, &normal, 0.0f), 0.0f);
}

TEST(Fresnel, KnownValues) {
    miState state{};
    const auto at = [&](double angle, float in, float out) {
        state.dot_nd = static_cast<float>(-std::cos(angle));
        return mi_fresnel_reflection(&state, in, out);
    };
    EXPECT_NEAR(at(0, 1.0f, 1.5f), 0.04, 1e-6); // ((1.5 - 1) / (1.5 + 1))^2
    EXPECT_NEAR(at(0, 1.5f, 1.0f), 0.04, 1e-6);
    EXPECT_NEAR(at(pi / 2, 1.0f, 1.5f), 1.0, 1e-5);
    EXPECT_NEAR(at(0.7, 1.3f, 1.3f), 0.0, 1e-6);
    EXPECT_EQ(at(1.0, 1.5f, 1.0f), 1.0f); // beyond the critical angle of 0.73
    // Brewster's angle: only the part across the plane is left, half of ((n^2 - 1) / (n^2 + 1))^2.
    EXPECT_NEAR(at(std::atan(1.5), 1.0f, 1.5f), 0.5 * std::pow(1.25 / 3.25, 2), 1e-6);
    // The same from inside at the refracted angle.
    const double inside = std::asin(std::sin(0.8) / 1.5);
    EXPECT_NEAR(at(0.8, 1.0f, 1.5f), at(inside, 1.5f, 1.0f), 1e-6);
}

TEST(Phong, IsThePowerOfTheMirrorsCosine) {
    miState state{};
    state.normal = normal;
    state.dir = reversed(direction(0.6, 0.0));
    for (const double off : {0.0, 0.3, 1.0}) {
        miVector light = direction(0.6 - off, pi);
        EXPECT_NEAR(mi_phong_specular(20.0f, &state, &light), std::pow(std::cos(off), 20), 1e-5) << off;
    }
    miVector back = direction(1.3, 0.0);
    EXPECT_EQ(mi_phong_specular(20.0f, &state, &back), 0.0f);

    // Light at the mirror direction: the facet is the surface itself.
    miVector mirror = direction(0.6, pi);
    miScalar ns, ks;
    state.dot_nd = static_cast<float>(-std::cos(0.6));
    mi_fresnel_specular(&ns, &ks, 5.0f, &state, &mirror, 1.0f, 1.5f);
    EXPECT_NEAR(ns, 1.0f, 1e-6f);
    EXPECT_NEAR(ks, mi_fresnel_reflection(&state, 1.0f, 1.5f), 1e-6f);
}

TEST(Schlick, IntegratesToOne) {
    miVector in = direction(0.9, 0.2);
    for (const float k : {-0.9f, -0.3f, 0.0f, 0.6f}) {
        double sum = 0;
        constexpr int steps = 2000;
        for (int i = 0; i < steps; ++i) { // around the ray the value is constant
            const double angle = (i + 0.5) / steps * pi;
            miVector out = direction(0.9 - angle, 0.2);
            sum +=
                static_cast<double>(mi_schlick_scatter(&in, &out, k)) * std::sin(angle) * pi / steps * 2 * pi;
        }
        EXPECT_NEAR(sum, 1.0, 1e-4) << k;
    }
    miVector on = in, back = reversed(in);
    EXPECT_GT(mi_schlick_scatter(&in, &on, 0.5f), mi_schlick_scatter(&in, &back, 0.5f))
        << "positive: forward";
}

TEST(Luminance, UsesTheWeightsOfTheOptions) {
    Stage stage(false);
    miColor c = {4, 2, 8, 100};
    EXPECT_FLOAT_EQ(mi_luminance(&stage.state, &c), 0.25f * 4 + 0.5f * 2 + 0.125f * 8);
    stage.options->as<miOptions>()->luminance_weight = {0, 0, 0, 0};
    miColor white = {1, 1, 1, 1};
    EXPECT_NEAR(mi_luminance(&stage.state, &white), 1.0f, 1e-6f);
}

// Averages what each way carries over many draws. Every draw carries at most about 1, so the mean of 200000
// has a deviation below 0.0025.
class Roulette {
public:
    Roulette() {
        state_.renderer = &context_;
        context_.random_state = 99;
    }
    template <class Draw> void run(Draw draw) {
        for (int i = 0; i < samples; ++i) {
            const auto [type, color] = draw(&state_);
            carried_[type].r += color.r / samples;
            carried_[type].g += color.g / samples;
            carried_[type].b += color.b / samples;
        }
    }
    void expect(miRay_type type, const miColor& want) {
        EXPECT_NEAR(carried_[type].r, want.r, 0.012f) << type;
        EXPECT_NEAR(carried_[type].g, want.g, 0.012f) << type;
        EXPECT_NEAR(carried_[type].b, want.b, 0.012f) << type;
    }

private:
    static constexpr int samples = 200000;
    stage::ThreadContext context_;
    miState state_{};
    std::map<miRay_type, miColor> carried_;
};

miColor scaled(const miColor& c, float f) {
    return {c.r * f, c.g * f, c.b * f, c.a};
}

void check_scatter(const miColor& diffuse, const miColor& glossy, const miColor& specular,
                   float transparency) {
    Roulette roulette;
    roulette.run([&](miState* state) {
        miColor d = diffuse, g = glossy, s = specular;
        const miRay_type type = mi_choose_scatter_type(state, transparency, &d, &g, &s);
        miColor carried{};
        if (type == miPHOTON_REFLECT_DIFFUSE || type == miPHOTON_TRANSMIT_DIFFUSE)
            carried = d;
        else if (type == miPHOTON_REFLECT_GLOSSY || type == miPHOTON_TRANSMIT_GLOSSY)
            carried = g;
        else if (type != miPHOTON_ABSORB)
            carried = s;
        return std::pair{type, carried};
    });
    roulette.expect(miPHOTON_REFLECT_DIFFUSE, scaled(diffuse, 1 - transparency));
    roulette.expect(miPHOTON_REFLECT_GLOSSY, scaled(glossy, 1 - transparency));
    roulette.expect(miPHOTON_REFLECT_SPECULAR, scaled(specular, 1 - transparency));
    roulette.expect(miPHOTON_TRANSMIT_DIFFUSE, scaled(diffuse, transparency));
    roulette.expect(miPHOTON_TRANSMIT_GLOSSY, scaled(glossy, transparency));
    roulette.expect(miPHOTON_TRANSMIT_SPECULAR, scaled(specular, transparency));
}

TEST(Roulette, KeepsTheEnergyOfEveryWay) {
    check_scatter({0.3f, 0.2f, 0.1f, 1}, {0.1f, 0.1f, 0.2f, 1}, {0.2f, 0.25f, 0.2f, 1}, 0.3f);
    check_scatter({0.9f, 0.8f, 0.7f, 1}, {0.1f, 0.2f, 0.3f, 1}, {0.5f, 0.5f, 0.5f, 1},
                  0.0f); // more than comes in
    check_scatter({0.5f, 0.0f, 0.0f, 1}, {0, 0, 0, 1}, {0, 0, 0, 1}, 1.0f);
}

TEST(Roulette, SimpleChoiceKeepsTheEnergyToo) {
    const miColor c[4] = {
        {0.3f, 0.1f, 0.2f, 1}, {0.1f, 0.1f, 0.1f, 1}, {0.05f, 0.2f, 0.1f, 1}, {0.2f, 0.2f, 0.3f, 1}};
    const miRay_type types[4] = {miPHOTON_REFLECT_DIFFUSE, miPHOTON_REFLECT_SPECULAR,
                                 miPHOTON_TRANSMIT_DIFFUSE, miPHOTON_TRANSMIT_SPECULAR};
    Roulette roulette;
    roulette.run([&](miState* state) {
        miColor k[4] = {c[0], c[1], c[2], c[3]};
        const miRay_type type = mi_choose_simple_scatter_type(state, &k[0], &k[1], &k[2], &k[3]);
        for (int i = 0; i < 4; ++i)
            if (type == types[i])
                return std::pair{type, k[i]};
        EXPECT_EQ(type, miPHOTON_ABSORB);
        return std::pair{type, miColor{}};
    });
    for (int i = 0; i < 4; ++i)
        roulette.expect(types[i], c[i]);
}

TEST(Roulette, LobesComeAsOftenAsTheyWeigh) {
    Roulette roulette;
    roulette.run([](miState* state) {
        return std::pair{mi_choose_lobe(state, 0.2f, 0.0f, 0.5f), miColor{1, 1, 1, 1}};
    });
    roulette.expect(miPHOTON_REFLECT_DIFFUSE, {0.2f, 0.2f, 0.2f, 1});
    roulette.expect(miPHOTON_REFLECT_GLOSSY, {0, 0, 0, 1});
    roulette.expect(miPHOTON_REFLECT_SPECULAR, {0.5f, 0.5f, 0.5f, 1});
    roulette.expect(miPHOTON_ABSORB, {0.3f, 0.3f, 0.3f, 1});
}

} // namespace
