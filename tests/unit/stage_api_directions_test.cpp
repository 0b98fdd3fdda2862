// Directions: geometry of mirror and refraction, and the distributions of the samplers.
#include <cmath>
#include <functional>
#include <numbers>
#include <vector>

#include "stage_api_scene.h"

namespace {

using namespace stage_test;

constexpr double pi = std::numbers::pi;

// A state with a tilted normal, without a scene: samplers need random numbers only.
struct Ray {
    stage::ThreadContext context;
    miState state{};
    miVector u{}, v{};
    explicit Ray(double incoming_angle = 0.6) {
        state.renderer = &context;
        context.random_state = 12345;
        state.normal = {0.48f, -0.6f, 0.64f};
        state.normal_geom = state.normal;
        u = {0.8f, 0.0f, -0.6f};
        mi_vector_prod(&v, &state.normal, &u);
        const auto s = static_cast<float>(std::sin(incoming_angle)),
                   c = static_cast<float>(std::cos(incoming_angle));
        state.dir = {s * u.x - c * state.normal.x, s * u.y - c * state.normal.y,
                     s * u.z - c * state.normal.z};
        state.dot_nd = -c;
    }
    // In the basis u, v, normal.
    [[nodiscard]] Vector3 local(const miVector& d) const {
        return {mi_vector_dot(&d, &u), mi_vector_dot(&d, &v), mi_vector_dot(&d, &state.normal)};
    }
};

// Counts of samples in cells of equal probability against their common mean. The bound is the chi-square
// distribution's quantile for a chance of about 1e-5 (Wilson and Hilferty's approximation, 1931).
void expect_even(const std::vector<int>& counts, int samples, const std::string& what) {
    const double mean = static_cast<double>(samples) / static_cast<double>(counts.size());
    double chi_square = 0;
    for (const int count : counts)
        chi_square += (count - mean) * (count - mean) / mean;
    const auto freedom = static_cast<double>(counts.size() - 1);
    const double t = 2.0 / (9.0 * freedom);
    EXPECT_LT(chi_square, freedom * std::pow(1.0 - t + 4.26 * std::sqrt(t), 3)) << what;
}

// Samples whose two coordinates `place` must be even on the unit square.
void expect_distribution(Ray& ray, const std::function<miVector()>& sample,
                         const std::function<std::array<double, 2>(const Vector3&)>& place,
                         const std::string& what) {
    constexpr int side = 12, samples = 60000;
    std::vector<int> counts(side * side);
    for (int i = 0; i < samples; ++i) {
        const miVector d = sample();
        ASSERT_NEAR(mi_vector_norm(&d), 1.0f, 2e-6f) << what;
        const auto [a, b] = place(ray.local(d));
        const auto cell = [](double x) { return std::clamp(static_cast<int>(x * side), 0, side - 1); };
        ++counts[static_cast<std::size_t>(cell(a) * side + cell(b))];
    }
    expect_even(counts, samples, what);
}

double turn(double x, double y) {
    const double a = std::atan2(y, x) / (2 * pi);
    return a < 0 ? a + 1 : a;
}

TEST(Mirror, LiesInThePlaneWithEqualAngles) {
    for (const double angle : {0.0, 0.3, 0.8, 1.4}) {
        Ray ray(angle);
        miVector d, specular;
        mi_reflection_dir(&d, &ray.state);
        mi_reflection_dir_specular(&specular, &ray.state);
        const Vector3 local = ray.local(d);
        EXPECT_NEAR(local[0], std::sin(angle), 1e-6);
        EXPECT_NEAR(local[1], 0.0, 1e-6);
        EXPECT_NEAR(local[2], std::cos(angle), 1e-6);
        EXPECT_EQ(std::memcmp(&d, &specular, sizeof d), 0);
    }
}

// With a shading normal far off, the mirror direction would go into the geometry.
TEST(Mirror, StaysOutsideTheGeometry) {
    Ray ray(1.4);
    for (int i = 0; i < 40; ++i) {
        const auto a = static_cast<float>(-0.05 * i);
        ray.state.normal_geom = {std::cos(a) * ray.state.normal.x + std::sin(a) * ray.u.x,
                                 std::cos(a) * ray.state.normal.y + std::sin(a) * ray.u.y,
                                 std::cos(a) * ray.state.normal.z + std::sin(a) * ray.u.z};
        miVector d;
        mi_reflection_dir(&d, &ray.state);
        EXPECT_GT(mi_vector_dot(&d, &ray.state.normal_geom), 0.0f) << i;
        EXPECT_NEAR(mi_vector_norm(&d), 1.0f, 1e-5f) << i;
    }
}

TEST(Refraction, ObeysSnell) {
    for (const double angle : {0.0, 0.2, 0.7, 1.3})
        for (const auto& [in, out] : {std::pair{1.0f, 1.5f}, {1.0f, 1.0f}, {1.33f, 1.2f}, {1.5f, 1.0f}}) {
            const double sine = std::sin(angle) * static_cast<double>(in) / static_cast<double>(out);
            for (const auto refract : {mi_refraction_dir, mi_transmission_dir_specular}) {
                Ray ray(angle);
                miVector d;
                const miBoolean passes = refract(&d, &ray.state, in, out);
                ASSERT_EQ(passes != miFALSE, sine < 1.0) << angle << " " << in << " " << out;
                const Vector3 local = ray.local(d);
                EXPECT_NEAR(local[1], 0.0, 1e-6);
                if (passes) {
                    EXPECT_NEAR(local[0], sine, 2e-6);
                    EXPECT_NEAR(local[2], -std::sqrt(1 - sine * sine), 2e-5);
                } else { // total reflection: the mirror's direction
                    EXPECT_NEAR(local[0], std::sin(angle), 1e-6);
                    EXPECT_NEAR(local[2], std::cos(angle), 1e-6);
                }
            }
        }
}

// An index that nobody set stands for no change of medium.
TEST(Refraction, WithoutIndicesGoesStraightOn) {
    Ray ray(0.9);
    miVector d;
    ASSERT_TRUE(mi_refraction_dir(&d, &ray.state, 0.0f, 1.5f));
    EXPECT_NEAR(mi_vector_dot(&d, &ray.state.dir), 1.0f, 1e-6f);
}

TEST(Diffuse, FollowsTheCosine) {
    Ray ray;
    // sin^2 of the angle and the azimuth are even for a cosine distribution.
    const auto place = [](const Vector3& d) { return std::array{1 - d[2] * d[2], turn(d[0], d[1])}; };
    miVector d;
    for (int i = 0; i < 1000; ++i) {
        mi_reflection_dir_diffuse(&d, &ray.state);
        ASSERT_GE(ray.local(d)[2], 0.0);
        mi_transmission_dir_diffuse(&d, &ray.state);
        ASSERT_LE(ray.local(d)[2], 0.0);
    }
    expect_distribution(
        ray, [&] { return mi_reflection_dir_diffuse(&d, &ray.state), d; }, place, "reflected");
    expect_distribution(
        ray, [&] { return mi_transmission_dir_diffuse(&d, &ray.state), d; }, place, "transmitted");
}

TEST(Diffuse, KeepsToTheSideOfTheGeometry) {
    Ray ray;
    ray.state.normal_geom = ray.u;
    for (int i = 0; i < 1000; ++i) {
        miVector d;
        mi_reflection_dir_diffuse(&d, &ray.state);
        EXPECT_GE(mi_vector_dot(&d, &ray.u), -1e-6f);
        mi_transmission_dir_diffuse(&d, &ray.state);
        EXPECT_LE(mi_vector_dot(&d, &ray.u), 1e-6f);
    }
}

// Equal cells of the samples become equal parts of the projected hemisphere: stratification survives.
TEST(Diffuse, TakesTheCallersSample) {
    Ray ray;
    miVector d;
    miScalar zenith[2] = {0.0f, 0.3f};
    mi_reflection_dir_diffuse_x(&d, &ray.state, zenith);
    EXPECT_NEAR(ray.local(d)[2], 1.0, 1e-6);
    miScalar half[2] = {0.5f, 0.3f};
    mi_reflection_dir_diffuse_x(&d, &ray.state, half);
    EXPECT_NEAR(ray.local(d)[2], std::sqrt(0.5), 1e-6);
    miVector again;
    mi_reflection_dir_diffuse_x(&again, &ray.state, half);
    EXPECT_EQ(std::memcmp(&d, &again, sizeof d), 0);
}

// The half vector's slopes are normally distributed: exp(-slope^2 shiny) along each axis is even.
TEST(Glossy, FacetsHaveTheGaussianOfTheShininess) {
    Ray ray(0.3);
    constexpr float shiny_u = 60.0f, shiny_v = 400.0f;
    // Facets: the direction half-way between the way back and the sample.
    const auto slopes = [&](const Vector3& d) {
        const Vector3 back = ray.local(ray.state.dir);
        const double hx = d[0] - back[0], hy = d[1] - back[1], hz = d[2] - back[2];
        return std::array{hx / hz, hy / hz};
    };
    const auto even = [](double slope, float shiny) {
        return 0.5 * std::erfc(-slope * std::sqrt(static_cast<double>(shiny)));
    };
    miVector d;
    expect_distribution(
        ray,
        [&] {
            mi_reflection_dir_anisglossy(&d, &ray.state, &ray.u, &ray.v, shiny_u, shiny_v);
            return d;
        },
        [&](const Vector3& local) {
            const auto [x, y] = slopes(local);
            return std::array{even(x, shiny_u), even(y, shiny_v)};
        },
        "anisotropic");
    expect_distribution(
        ray, [&] { return mi_reflection_dir_glossy(&d, &ray.state, shiny_u), d; },
        [&](const Vector3& local) {
            const auto [x, y] = slopes(local);
            return std::array{even(x, shiny_u), even(y, shiny_u)};
        },
        "isotropic");
}

TEST(Glossy, StaysOnItsSideAndNarrowsToTheMirror) {
    for (const double angle : {0.0, 0.8, 1.5})
        for (const float shiny : {0.0f, 1.0f, 20.0f, 1e6f}) {
            Ray ray(angle);
            miVector mirror, d;
            mi_reflection_dir(&mirror, &ray.state);
            for (int i = 0; i < 500; ++i) {
                mi_reflection_dir_glossy(&d, &ray.state, shiny);
                ASSERT_GE(ray.local(d)[2], 0.0) << angle << " " << shiny;
                ASSERT_NEAR(mi_vector_norm(&d), 1.0f, 2e-6f);
                if (shiny == 1e6f) { // slopes of 1e-3, eight deviations
                    ASSERT_GT(mi_vector_dot(&d, &mirror), std::cos(0.02f));
                }
                ASSERT_TRUE(mi_transmission_dir_glossy(&d, &ray.state, 1.0f, 1.4f, shiny));
                ASSERT_LE(ray.local(d)[2], 0.0) << angle << " " << shiny;
            }
        }
}

TEST(Glossy, TransmissionSurroundsTheRefractedRay) {
    Ray ray(0.5);
    miVector centre, d, mean{};
    ASSERT_TRUE(mi_refraction_dir(&centre, &ray.state, 1.0f, 1.5f));
    for (int i = 0; i < 20000; ++i) {
        ASSERT_TRUE(
            mi_transmission_dir_anisglossy(&d, &ray.state, 1.0f, 1.5f, &ray.u, &ray.v, 2000.0f, 2000.0f));
        mi_vector_add(&mean, &mean, &d);
    }
    mi_vector_normalize(&mean);
    // Deviations of 1/sqrt(2000) and 20000 samples: the mean is known to some 3e-4.
    EXPECT_GT(mi_vector_dot(&mean, &centre), std::cos(2e-3f));
    Ray steep(1.3);
    EXPECT_FALSE(mi_transmission_dir_glossy(&d, &steep.state, 1.5f, 1.0f, 50.0f)) << "total reflection";
}

TEST(Scattering, FollowsThePhaseFunction) {
    for (const float k : {-0.8f, 0.0f, 0.5f}) {
        Ray ray;
        const double g = static_cast<double>(k);
        // The integral of the phase function from straight back to the angle.
        const auto place = [&](const Vector3& d) {
            const Vector3 in = ray.local(ray.state.dir);
            const double mu = d[0] * in[0] + d[1] * in[1] + d[2] * in[2];
            const double integral =
                g == 0.0 ? 0.5 * (mu + 1) : (1 - g * g) / (2 * g) * (1 / (1 - g * mu) - 1 / (1 + g));
            // Azimuth about the ray's direction, which lies in the plane of u and the normal.
            const double across = d[0] * -in[2] + d[2] * in[0];
            return std::array{integral, turn(across, d[1])};
        };
        miVector d;
        expect_distribution(
            ray, [&] { return mi_scattering_dir_directional(&d, &ray.state, k), d; }, place,
            "k = " + std::to_string(k));
    }
}

TEST(Scattering, PathLengthIsExponential) {
    Ray ray;
    std::vector<int> counts(50);
    constexpr int samples = 50000;
    for (int i = 0; i < samples; ++i) {
        const double passed =
            std::exp(-3.0 * static_cast<double>(mi_scattering_pathlength(&ray.state, 3.0f)));
        ++counts[static_cast<std::size_t>(std::min(49.0, passed * 50.0))];
    }
    expect_even(counts, samples, "path length");
    EXPECT_GT(mi_scattering_pathlength(&ray.state, 0.0f), 1e30f);
    EXPECT_TRUE(std::isfinite(mi_scattering_pathlength(&ray.state, 0.0f)));
}

TEST(Samplers, RepeatWithTheSampleStream) {
    Ray first, second;
    for (int i = 0; i < 10; ++i) {
        miVector a, b;
        mi_reflection_dir_glossy(&a, &first.state, 10.0f);
        mi_reflection_dir_glossy(&b, &second.state, 10.0f);
        EXPECT_EQ(std::memcmp(&a, &b, sizeof a), 0);
        EXPECT_EQ(mi_par_random(&first.state), mi_par_random(&second.state));
    }
}

} // namespace
