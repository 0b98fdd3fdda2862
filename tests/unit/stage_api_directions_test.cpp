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
    miVector u{0.8f, 0.0f, -0.6f}, v{};
    explicit Ray(double angle = 0.6) { // of the incoming ray
        state.renderer = &context;
        context.random_state = 12345;
        state.normal = state.normal_geom = {0.48f, -0.6f, 0.64f};
        mi_vector_prod(&v, &state.normal, &u);
        const auto s = static_cast<float>(std::sin(angle)), c = static_cast<float>(std::cos(angle));
        const miVector& n = state.normal;
        state.dir = {s * u.x - c * n.x, s * u.y - c * n.y, s * u.z - c * n.z};
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

double turn(double x, double y) { // 0 to 1
    return std::atan2(y, x) / (2 * pi) + 0.5;
}

// A sampler, and two coordinates of its samples that must be even on the unit square.
struct Sampler {
    std::string name;
    std::function<void(miVector& d, Ray& ray)> draw;
    std::function<std::array<double, 2>(const Vector3& d, const Vector3& in)> place;
};

// The facets' normals lie half-way between the way back and the sample; their slopes are normally
// distributed, exp(-slope^2 shiny) along each axis.
auto facets(float shiny_u, float shiny_v) {
    return [=](const Vector3& d, const Vector3& in) {
        const auto even = [](double slope, float shiny) {
            return 0.5 * std::erfc(-slope * std::sqrt(static_cast<double>(shiny)));
        };
        const double hz = d[2] - in[2];
        return std::array{even((d[0] - in[0]) / hz, shiny_u), even((d[1] - in[1]) / hz, shiny_v)};
    };
}

Sampler scattering(float k) {
    const auto draw = [k](miVector& d, Ray& ray) { mi_scattering_dir_directional(&d, &ray.state, k); };
    // The integral of the phase function from straight back to the angle, and the azimuth about the ray,
    // which lies in the plane of u and the normal.
    return {"scattering " + std::to_string(k), draw,
            [g = static_cast<double>(k)](const Vector3& d, const Vector3& in) {
                const double mu = d[0] * in[0] + d[1] * in[1] + d[2] * in[2];
                const double integral =
                    g == 0.0 ? 0.5 * (mu + 1) : (1 - g * g) / (2 * g) * (1 / (1 - g * mu) - 1 / (1 + g));
                return std::array{integral, turn(d[2] * in[0] - d[0] * in[2], d[1])};
            }};
}

// The lobe about the refracted direction is a reflected one, turned over to the far side.
auto facets_through(float ior, float shiny_u, float shiny_v) {
    return [=](const Vector3& d, const Vector3& in) {
        const double sine = in[0] / static_cast<double>(ior); // Snell's law; the ray lies in the plane of u
        return facets(shiny_u, shiny_v)({d[0], d[1], -d[2]}, {sine, 0, -std::sqrt(1 - sine * sine)});
    };
}

TEST(Samplers, FollowTheirDistributions) {
    // The squared sine and the azimuth are even for a cosine distribution; 2 is no place on the wrong side.
    const auto cosine = [](double side) {
        return [side](const Vector3& d, const Vector3&) {
            return std::array{side * d[2] < 0 ? 2.0 : 1 - d[2] * d[2], turn(d[0], d[1])};
        };
    };
    const Sampler samplers[] = {
        {"diffuse", [](miVector& d, Ray& ray) { mi_reflection_dir_diffuse(&d, &ray.state); }, cosine(1)},
        {"diffuse through", [](miVector& d, Ray& ray) { mi_transmission_dir_diffuse(&d, &ray.state); },
         cosine(-1)},
        {"diffuse by samples",
         [](miVector& d, Ray& ray) {
             miScalar samples[2] = {ray.context.next_random(), ray.context.next_random()};
             mi_reflection_dir_diffuse_x(&d, &ray.state, samples);
         },
         cosine(1)},
        {"glossy by samples",
         [](miVector& d, Ray& ray) {
             miScalar samples[2] = {ray.context.next_random(), ray.context.next_random()};
             mi_reflection_dir_glossy_x(&d, &ray.state, 60, samples);
         },
         facets(60, 60)},
        {"glossy", [](miVector& d, Ray& ray) { mi_reflection_dir_glossy(&d, &ray.state, 60); },
         facets(60, 60)},
        {"anisotropic",
         [](miVector& d, Ray& ray) { mi_reflection_dir_anisglossy(&d, &ray.state, &ray.u, &ray.v, 60, 400); },
         facets(60, 400)},
        {"glossy through",
         [](miVector& d, Ray& ray) { mi_transmission_dir_glossy(&d, &ray.state, 1, 1.5f, 60); },
         facets_through(1.5f, 60, 60)},
        {"anisotropic through",
         [](miVector& d, Ray& ray) {
             mi_transmission_dir_anisglossy(&d, &ray.state, 1, 1.5f, &ray.u, &ray.v, 400, 60);
         },
         facets_through(1.5f, 400, 60)},
        {"even scattering", [](miVector& d, Ray& ray) { mi_scattering_dir_diffuse(&d, &ray.state); },
         [](const Vector3& d, const Vector3&) {
             return std::array{0.5 * (d[2] + 1), turn(d[0], d[1])};
         }},
        scattering(-0.8f),
        scattering(0),
        scattering(0.5f),
    };
    constexpr int side = 12, samples = 60000;
    for (const Sampler& sampler : samplers) {
        Ray ray(0.3);
        std::vector<int> counts(side * side);
        for (int i = 0; i < samples; ++i) {
            miVector d;
            sampler.draw(d, ray);
            ASSERT_NEAR(mi_vector_norm(&d), 1.0f, 2e-6f) << sampler.name;
            const auto [a, b] = sampler.place(ray.local(d), ray.local(ray.state.dir));
            ASSERT_LT(a, 1.001) << sampler.name;
            const auto cell = [](double x) { return std::clamp(static_cast<int>(x * side), 0, side - 1); };
            ++counts[static_cast<std::size_t>(cell(a) * side + cell(b))];
        }
        expect_even(counts, samples, sampler.name);
    }
}

// Free paths are distributed by exp(-k t): that, and its opposite, are even. Without scattering there is no
// end.
TEST(Samplers, PathLengths) {
    Ray ray;
    for (const float k : {0.01f, 3.0f}) {
        constexpr int cells = 64, samples = 40000;
        std::vector<int> counts(cells);
        for (int i = 0; i < samples; ++i) {
            const double past = std::exp(-static_cast<double>(k * mi_scattering_pathlength(&ray.state, k)));
            ++counts[static_cast<std::size_t>(std::clamp(static_cast<int>(past * cells), 0, cells - 1))];
        }
        expect_even(counts, samples, std::to_string(k));
    }
    EXPECT_GT(mi_scattering_pathlength(&ray.state, 0.0f), 1e30f);
}

TEST(Directions, MirrorAndSnell) {
    for (const double angle : {0.0, 0.2, 0.7, 1.3})
        for (const auto& [in, out] : {std::pair{1.0f, 1.5f}, {1.0f, 1.0f}, {1.33f, 1.2f}, {1.5f, 1.0f}}) {
            Ray ray(angle);
            miVector d;
            mi_reflection_dir(&d, &ray.state);
            const Vector3 mirror = {std::sin(angle), 0, std::cos(angle)}, reflected = ray.local(d);
            for (std::size_t k = 0; k < 3; ++k)
                EXPECT_NEAR(reflected[k], mirror[k], 1e-6);
            const double sine = std::sin(angle) * static_cast<double>(in) / static_cast<double>(out);
            ASSERT_EQ(mi_refraction_dir(&d, &ray.state, in, out) != miFALSE, sine < 1.0)
                << angle << in << out;
            // Total reflection leaves the mirror's direction.
            const Vector3 expected = sine < 1 ? Vector3{sine, 0, -std::sqrt(1 - sine * sine)} : mirror;
            for (std::size_t k = 0; k < 3; ++k)
                EXPECT_NEAR(ray.local(d)[k], expected[k], 2e-5);
        }
}

// The forms with samples draw nothing themselves, and the same samples lead to the same direction.
TEST(Samplers, TakeTheSamplesThatTheyAreGiven) {
    Ray ray;
    miScalar samples[2] = {0.3f, 0.7f};
    using Draw = void (*)(miVector & d, Ray & ray, miScalar * samples);
    const Draw draws[] = {
        [](miVector& d, Ray& r, miScalar* s) { mi_reflection_dir_glossy_x(&d, &r.state, 400, s); },
        [](miVector& d, Ray& r, miScalar* s) {
            mi_reflection_dir_anisglossy_x(&d, &r.state, &r.u, &r.v, 90, 400, s);
        },
        [](miVector& d, Ray& r, miScalar* s) { mi_transmission_dir_glossy_x(&d, &r.state, 1, 2, 400, s); },
        [](miVector& d, Ray& r, miScalar* s) {
            mi_transmission_dir_anisglossy_x(&d, &r.state, 1, 2, &r.u, &r.v, 90, 400, s);
        },
        [](miVector& d, Ray& r, miScalar* s) { mi_transmission_dir_diffuse_x(&d, &r.state, s); },
        [](miVector& d, Ray& r, miScalar* s) { mi_scattering_dir_diffuse_x(&d, &r.state, s); },
        [](miVector& d, Ray& r, miScalar* s) { mi_scattering_dir_directional_x(&d, &r.state, 0.5f, s); },
    };
    const auto before = ray.context.random_state;
    for (const Draw draw : draws) {
        miVector first, again, other;
        miScalar elsewhere[2] = {0.4f, 0.2f};
        draw(first, ray, samples);
        draw(again, ray, samples);
        draw(other, ray, elsewhere);
        EXPECT_EQ(mi_vector_dist(&first, &again), 0);
        EXPECT_GT(mi_vector_dist(&first, &other), 1e-3f);
    }
    EXPECT_EQ(ray.context.random_state, before);
}

TEST(RayFalloff, IsThatOfTheObject) {
    Stage stage;
    double start = 9, stop = 9;
    EXPECT_EQ(mi_ray_falloff(&stage.state, &start, &stop), miFALSE);
    EXPECT_EQ(stop, 0);
    stage["square"].as<miObject>()->falloff = {2, 5};
    EXPECT_EQ(mi_ray_falloff(&stage.state, &start, &stop), miTRUE);
    EXPECT_EQ(start + 10 * stop, 52);
}

} // namespace
