// Reflection models and the choice of scattering: energy, reciprocity, limits.
#include <cmath>
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
TEST(Ward, ReflectsTheCosineOfTheIncomingAngleAndNeverMoreThanComesIn) {
    for (const auto& [u, v] : {std::pair{400.0f, 60.0f}, {2000.0f, 2000.0f}})
        for (const double incoming : {0.0, 0.9})
            EXPECT_NEAR(albedo(incoming, u, v), std::cos(incoming), 4.0 / static_cast<double>(std::min(u, v)))
                << u << " " << v << " " << incoming;
    for (const float shiny : {0.5f, 20.0f})
        for (const double incoming : {0.0, 1.2, 1.5})
            EXPECT_LE(albedo(incoming, shiny, shiny), 1.0) << shiny << " " << incoming;
    miVector in = reversed(direction(0.5, 0.0)), below = direction(2.0, pi);
    EXPECT_EQ(mi_ward_glossy(&in, &below, &normal, 30.0f), 0.0f);
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

// The mean of what a way carries is its part of the light, also where more than all would go out. Every draw
// carries at most about 1, so the mean of 200000 has a deviation below 0.0025.
TEST(Roulette, KeepsTheEnergyOfEveryWay) {
    stage::ThreadContext context;
    miState state{};
    state.renderer = &context;
    context.random_state = 99;
    constexpr int samples = 200000;
    const std::array ways = {miPHOTON_REFLECT_DIFFUSE,  miPHOTON_REFLECT_GLOSSY,  miPHOTON_REFLECT_SPECULAR,
                             miPHOTON_TRANSMIT_DIFFUSE, miPHOTON_TRANSMIT_GLOSSY, miPHOTON_TRANSMIT_SPECULAR};
    for (const float scale : {1.0f, 3.0f}) {
        const miColor colors[3] = {
            {0.3f * scale, 0.2f, 0.1f, 1}, {0.1f, 0.1f, 0.2f, 1}, {0.2f, 0.25f, 0.2f * scale, 1}};
        std::array<miColor, 6> mean{};
        for (int i = 0; i < samples; ++i) {
            miColor c[3] = {colors[0], colors[1], colors[2]};
            const miRay_type type = mi_choose_scatter_type(&state, 0.3f, &c[0], &c[1], &c[2]);
            for (std::size_t k = 0; k < 6; ++k)
                if (type == ways[k])
                    mean[k] = {mean[k].r + c[k % 3].r / samples, mean[k].g + c[k % 3].g / samples,
                               mean[k].b + c[k % 3].b / samples, 0};
        }
        for (std::size_t k = 0; k < 6; ++k) {
            const float part = k < 3 ? 0.7f : 0.3f;
            const miColor& c = colors[k % 3];
            expect_color(mean[k], {c.r * part, c.g * part, c.b * part, 0}, 0.012, std::to_string(k));
        }
    }
}

} // namespace
