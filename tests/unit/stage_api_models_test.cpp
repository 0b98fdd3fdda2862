// Reflection models and the choice of scattering: energy, reciprocity, limits.
#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

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

// The formula by angles, in double precision: Ward, "Measuring and Modeling Anisotropic Reflection", 1992,
// equation 5, with the half vector's slope taken apart along the axes. Round lobes are equation 4.
TEST(Ward, IsThePublishedFormula) {
    for (const auto& [u, v] : {std::pair{30.0, 30.0}, {5.0, 80.0}, {1e6, 1e6}})
        for (const double turned : {0.0, 0.9, 2.5})
            for (const double lean : {0.0, 0.0008, 0.1, 0.7}) { // of the half vector
                // Out of the plane spanned with the normal, half the angle on either side of the half vector.
                const miVector h = direction(lean, turned), side = direction(pi / 2, turned + pi / 2);
                const auto at = [&](float angle) {
                    const float c = std::cos(angle), w = std::sin(angle);
                    return miVector{c * h.x + w * side.x, c * h.y + w * side.y, c * h.z + w * side.z};
                };
                miVector out = at(0.4f), in = reversed(at(-0.4f)), back = reversed(out), forth = reversed(in);
                const double slope_u = std::tan(lean) * std::cos(turned);
                const double slope_v = std::tan(lean) * std::sin(turned);
                const double value = std::sqrt(u * v) / (4 * pi * std::cos(0.4) * std::cos(lean)) *
                                     std::exp(-u * slope_u * slope_u - v * slope_v * slope_v);
                const auto shiny_u = static_cast<float>(u), shiny_v = static_cast<float>(v);
                const auto near =
                    testing::FloatNear(static_cast<float>(value), static_cast<float>(1e-5 + 2e-3 * value));
                const auto model = [&](miVector& a, miVector& b) {
                    return mi_ward_anisglossy(&a, &b, &normal, &axis_u, &axis_v, shiny_u, shiny_v);
                };
                EXPECT_THAT(model(in, out), near) << u << " " << v << " " << turned << " " << lean;
                EXPECT_THAT(model(back, forth), near); // light goes either way
                if (u == v) {
                    EXPECT_THAT(mi_ward_glossy(&in, &out, &normal, shiny_u), near);
                }
            }
    miVector in = reversed(direction(0.5, 0.0)), below = direction(2.0, pi);
    EXPECT_EQ(mi_ward_glossy(&in, &below, &normal, 30.0f), 0.0f);
}

// Over the sphere Schlick's phase function is 1; straight on it is (1 + k) / (1 - k) of 1 / 4 pi, straight
// back the inverse.
TEST(Schlick, IsADensityOverTheSphere) {
    for (const double k : {-0.9, -0.3, 0.0, 0.5, 0.8}) {
        miVector in = normal;
        const auto at = [&](double theta) {
            miVector out = direction(theta, 0.7);
            return static_cast<double>(mi_schlick_scatter(&in, &out, static_cast<float>(k)));
        };
        double sum = 0;
        constexpr int steps = 4000;
        for (int i = 0; i < steps; ++i)
            sum += at(std::acos(1 - (2.0 * i + 1) / steps)) * 4 * pi / steps;
        EXPECT_NEAR(sum, 1, 1e-4) << k;
        EXPECT_NEAR(at(0) * 4 * pi * (1 - k) / (1 + k), 1, 1e-5) << k;
        EXPECT_NEAR(at(pi) * 4 * pi * (1 + k) / (1 - k), 1, 1e-5) << k;
    }
}

// A light in the mirror direction, 60 degrees beside it, at the eye, and on the other side.
TEST(Highlights, ByTheAngleToTheMirrorDirection) {
    miState state{};
    state.normal = normal;
    state.dir = reversed(direction(pi / 6, 0));
    state.dot_nd = static_cast<float>(-std::cos(pi / 6));
    const double reflected = static_cast<double>(mi_fresnel_reflection(&state, 1.0f, 1.5f));
    const struct {
        miVector light;
        double ns, ks; // the facet between eye and light is the surface itself, or looks at both
    } cases[] = {{direction(pi / 6, pi), 1, reflected},
                 {direction(pi / 6, 0), std::pow(0.5, 5), 0.04},
                 {direction(5 * pi / 6, 0), 0, 0}};
    for (const auto& c : cases) {
        miVector light = c.light;
        miScalar ns, ks;
        mi_fresnel_specular(&ns, &ks, 5.0f, &state, &light, 1.0f, 1.5f);
        EXPECT_NEAR(ns, c.ns, 1e-5);
        EXPECT_EQ(ns, mi_phong_specular(5.0f, &state, &light));
        if (c.ns > 0) {
            EXPECT_NEAR(ks, c.ks, 1e-5);
        }
    }
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
    EXPECT_NEAR(at(0.8, 1.0f, 1.5f), at(std::asin(std::sin(0.8) / 1.5), 1.5f, 1.0f), 1e-6);
}

// What goes out by a way: its type, and its part of the light.
struct Way {
    miRay_type type;
    miColor part;
};

// Fills `ways` with what each is to carry in the mean; draws one and returns what that one carries.
using Draw = Way (*)(miState* state, float scale, std::vector<Way>& ways);

Way draw_scatter(miState* state, float scale, std::vector<Way>& ways) {
    miColor c[3] = {{0.3f * scale, 0.2f, 0.1f, 1}, {0.1f, 0.1f, 0.2f, 1}, {0.2f, 0.25f, 0.2f * scale, 1}};
    const miRay_type types[] = {miPHOTON_REFLECT_DIFFUSE,  miPHOTON_REFLECT_GLOSSY,
                                miPHOTON_REFLECT_SPECULAR, miPHOTON_TRANSMIT_DIFFUSE,
                                miPHOTON_TRANSMIT_GLOSSY,  miPHOTON_TRANSMIT_SPECULAR};
    ways.clear();
    for (std::size_t k = 0; k < 6; ++k) {
        const float part = k < 3 ? 0.7f : 0.3f; // 0.3 of everything goes through
        ways.push_back({types[k], {c[k % 3].r * part, c[k % 3].g * part, c[k % 3].b * part, 0}});
    }
    const miRay_type type = mi_choose_scatter_type(state, 0.3f, &c[0], &c[1], &c[2]);
    const auto k = static_cast<std::size_t>(std::ranges::find(types, type) - types);
    return {type, c[k % 3]};
}

// Above a sum of 1 the caller multiplies by it.
Way draw_lobe(miState* state, float scale, std::vector<Way>& ways) {
    const float d = 0.2f * scale, g = 0.3f * scale, s = 0.1f * scale;
    const auto even = [](float x) { return miColor{x, x, x, 0}; };
    ways = {{miPHOTON_REFLECT_DIFFUSE, even(d)},
            {miPHOTON_REFLECT_GLOSSY, even(g)},
            {miPHOTON_REFLECT_SPECULAR, even(s)}};
    return {mi_choose_lobe(state, d, g, s), even(std::max(1.0f, d + g + s))};
}

// The mean of what a way carries is its part of the light, also where more than all would go out. Every draw
// carries at most about 1, so the mean of 200000 has a deviation below 0.0025.
TEST(Roulette, KeepsTheEnergyOfEveryWay) {
    stage::ThreadContext context;
    miState state{};
    state.renderer = &context;
    context.random_state = 99;
    constexpr int samples = 200000;
    for (const Draw draw : {draw_scatter, draw_lobe})
        for (const float scale : {1.0f, 3.0f}) {
            std::vector<Way> ways;
            draw(&state, scale, ways);
            std::vector<miColor> mean(ways.size());
            for (int i = 0; i < samples; ++i) {
                const auto [type, part] = draw(&state, scale, ways);
                for (std::size_t k = 0; k < ways.size(); ++k)
                    if (type == ways[k].type)
                        mean[k] = {mean[k].r + part.r / samples, mean[k].g + part.g / samples,
                                   mean[k].b + part.b / samples, 0};
            }
            for (std::size_t k = 0; k < ways.size(); ++k) {
                miColor whole = ways[k].part;
                whole.a = 0;
                expect_color(mean[k], whole, 0.012, std::to_string(k) + " " + std::to_string(scale));
            }
        }
}

} // namespace
