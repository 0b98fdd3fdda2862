// Shapes of lights and their photons.
#include "orl_light.h"
#include "shader_fixture.h"

#include <numbers>
#include <random>

using namespace orl;

namespace {

// clang-format off
class LightShapes : public ShaderTest {};

struct Settings { LightConeKind kind; miScalar hotspot, falloff; miBoolean overshoot, circular; miScalar aspect; };
// The operations as other libraries count them.
struct Operations {
    miScalar (*evaluate)(const LightConeShape*, const miVector*, miScalar, miBoolean*);
    std::array<miScalar (*)(const LightConeShape*), 5> scalars;
    std::array<void (*)(const LightConeShape*, miVector*, miVector*), 2> edges;
    void (*destroy)(LightConeShape*);
};
Operations operations(const LightConeShape& cone) { return std::bit_cast<Operations>(*cone.operations); }
using Cone = std::unique_ptr<LightConeShape, void (*)(LightConeShape*)>;
Cone make(const Settings& s) {
    return {light_cone_factory[s.kind](s.hotspot, s.falloff, s.overshoot, s.circular, s.aspect),
            [](LightConeShape* cone) { operations(*cone).destroy(cone); }};
}
miBoolean zone; // of the last answer
miScalar ask(const Cone& cone, const miVector& p) {
    return operations(*cone).evaluate(cone.get(), &p, -p.z / mi_vector_norm(&p), &zone);
}

constexpr Settings round_spot{light_cone_spot, 30, 60, 0, 1, 1}, wide_spot{light_cone_spot, 30, 60, 0, 0, 4},
    hard_spot{light_cone_spot, 40, 40, 0, 1, 1}, turned_spot{light_cone_spot, 80, 40, 0, 1, 1}, // tan 20 = 0.364
    round_beam{light_cone_beam, 2, 5, 0, 1, 1}, tall_beam{light_cone_beam, 2, 5, 0, 0, 0.5f};

// 3 t^2 - 2 t^3. Round spot: t = (c - cos 30) / (cos 15 - cos 30). Wide spot: half extents 2 tan 30 and tan 30 / 2
// at distance 1, X and Y are shares of them, t = the product of (1 - X) / 0.5 and (1 - Y) / 0.5 where above 0.5.
// Beams: likewise with R, or X = |x| / 5 and Y = |y| / 10, from 0.4 on.
constexpr struct { Settings shape; miVector point; miScalar value; } shape_cases[] = {
    {round_spot, {3, 4, -10}, 0.19652271f}, {round_spot, {0, 2, -10}, 1}, {round_spot, {6, 0, -10}, 0}, // t = 0.284365
    {wide_spot, {5, 1, -10}, 1}, {wide_spot, {-9, 1, -10}, 0.41213895f}, {wide_spot, {5, -2.5f, -10}, 0.17691454f},
    {wide_spot, {9, 2.5f, -10}, 0.03861525f}, {wide_spot, {12, 1, -10}, 0}, {wide_spot, {1, 3, -10}, 0},
    {round_beam, {0, 4, -9}, 0.25925926f}, {round_beam, {-1, 1, 9}, 1}, {round_beam, {4, 4, -9}, 0}, // t = 1/3
    {tall_beam, {3, -7, -1}, 0.25925926f}, {tall_beam, {1, 3.9f, -1}, 1}, {tall_beam, {1, 10.1f, -1}, 0}, // 2/3 * 1/2
    {hard_spot, {3.6f, 0, -10}, 1}, {hard_spot, {3.7f, 0, -10}, 0}, {turned_spot, {3.7f, 0, -10}, 0}};

TEST_F(LightShapes, FadeFromHotspotToFalloff) {
    for (auto [settings, point, value] : shape_cases) {
        EXPECT_NEAR(ask(make(settings), point), value, 2e-6f) << point.x << ' ' << point.y;
        EXPECT_TRUE(zone);
        settings.overshoot = miTRUE; // then there is light outside of the shape, but no shadow
        EXPECT_EQ(ask(make(settings), point), 1.0f);
        EXPECT_EQ(zone, value != 0.0f);
    }
    // cos 30 * 0.7071067, tan 30, 1, 2 atan 2 tan 30, its half's cotangent, edges at 2 tan 30 and tan 30 / 2 over
    // their lengths; the field of the turned spot is that of its hotspot
    const struct { Settings shape; std::array<miScalar, 7> values; } tables[] = {
        {wide_spot, {0.61237237f, 0.57735027f, 1, 1.7141439f, 0.86602540f, 0.75592895f, 0.27735010f}},
        {turned_spot, {0.93969262f, 0.36397023f, 1, 1.3962634f, 1.1917536f, 0.34202014f, 0.34202014f}},
        {round_beam, {0, 0, 1, 0, 0.2f, 0, 0}}};
    for (const auto& [shape, values] : tables) {
        const Cone cone = make(shape);
        for (std::size_t k = 0; k < 5; ++k)
            EXPECT_FLOAT_EQ(operations(*cone).scalars[k](cone.get()), values[k]) << k;
        for (std::size_t k = 0; k < 2; ++k) {
            miVector low, high;
            operations(*cone).edges[k](cone.get(), &low, &high);
            EXPECT_FLOAT_EQ(k ? high.y : high.x, values[5 + k]) << k;
            EXPECT_TRUE(low.x == -high.x && low.y == -high.y && low.z == high.z && (k ? high.x : high.y) == 0) << k;
        }
    }
}

TEST_F(LightShapes, SurviveSettingsThatMakeNoShape) {
    const auto blocks = renderer.resources().live_blocks;
    for (const miScalar bad : {0.0f, -3.0f, 180.0f, 1e30f, infinite, not_a_number})
        for (int k = 0; k < 32; ++k) {
            const Cone cone = make({k & 16 ? light_cone_beam : light_cone_spot, k & 1 ? bad : 30, k & 2 ? bad : 60, 0,
                                    k & 8, k & 4 ? bad : 1});
            EXPECT_GT(cone->projectionScale, 0.0f) << bad << ' ' << k;
            for (const miVector& point : {miVector{0, 0, -1}, {0, 3, -1e-9f}, {infinite, 0, -1}, {0, not_a_number, -1}})
                EXPECT_EQ(ask(cone, point), std::clamp(ask(cone, point), 0.0f, 1.0f)) << bad << ' ' << k;
            const auto [org, dir] = (k & 16 ? emit_from_beam : emit_from_spot)(*cone, 0.3f, 0.9f);
            EXPECT_NEAR(mi_vector_norm(&dir) + 0 * (org.x + org.y), 1.0f, 1e-5f) << bad << ' ' << k; // 0 if finite
        }
    EXPECT_EQ(renderer.resources().live_blocks, blocks);
    stage::fail_allocations_after(0);
    EXPECT_TRUE(make(round_spot) == nullptr && make(round_beam) == nullptr);
}

TEST(OmniShape, IsASphere) {
    const miVector start{0, 3, 10}, inside{0, 3, 1}, fast{0, 0, -2}, back{0, 0, 1}, across{1, 0, 0};
    std::array<miScalar, 2> at; // radius 5, so half a chord is 4
    const auto hits = [&](const miVector& org, const miVector& dir) {
        return omni_shape_operations.intersect(&org, &dir, 5, &at[0], &at[1]) != miFALSE;
    };
    EXPECT_TRUE(hits(start, fast) && at == (std::array{3.0f, 7.0f}));
    EXPECT_TRUE(hits(inside, back) && at == (std::array{0.0f, 3.0f}));
    EXPECT_FALSE(hits(start, back) || hits(start, across));
}

// Photons arrive on the plane z = -1, or leave the beam's disc, within these half extents, spread over that solid
// angle or area. The omni light is looked at on one face of its cube, whose picture is mirrored.
constexpr double tan30 = 0.57735027, pi = std::numbers::pi;
const double cap = 2 * pi * (1 - std::sqrt(0.75)), pyramid = 4 * std::asin(std::sqrt(18.0 / 35)); // 6/7, 3/5
const struct { LightKind kind; Settings shape; double s, t, measure; } lamps[] = {
    {LightKind::omni, round_spot, 1, 1, 4 * pi}, {LightKind::spot, round_spot, tan30, tan30, cap},
    {LightKind::spot, {light_cone_spot, 30, 60, 0, 1, 2}, tan30, tan30, cap},
    {LightKind::spot, {light_cone_spot, 60, 120, 0, 0, 2}, std::sqrt(6), std::sqrt(1.5), pyramid},
    {LightKind::beam, round_beam, 5, 5, 25 * pi}, {LightKind::beam, tall_beam, 5, 10, 200}};
constexpr std::array<double, 3> picture(double u, double v) { return {3 * u, (1 + v) / 3, 0.6}; }

TEST_F(LightShapes, PhotonsFollowShapeAndProjector) {
    const miMatrix to_light{0, 0, 2, 0, 2, 0, 0, 0, 0, 2, 0, 0, 0, -3, 2, 1}; // (x, y, z) to (2y, 2z - 3, 2x + 2)
    renderer.set_to_space(scripted::Space::light, to_light);
    std::mt19937_64 random(20240711);
    renderer.mi_sample = [&](double* sample, int*, miState*, miUshort dim, const miUint*) {
        return std::generate_n(sample, dim, [&] { return std::uniform_real_distribution()(random); }), miTRUE;
    };
    const miTag map = renderer.add_shader([](void* result, miState* at, void*) {
        const auto [r, g, b] = picture(at->tex.x, at->tex.y);
        return *static_cast<miColor*>(result) = {miScalar(r), miScalar(g), miScalar(b), 1}, miTRUE;
    });
    constexpr int bins = 8, steps = 256, photons = 400000;
    for (const auto& lamp : lamps) {
        const bool omni = lamp.kind == LightKind::omni, beam = lamp.kind == LightKind::beam;
        SCOPED_TRACE(testing::Message() << omni << beam << lamp.shape.circular << lamp.shape.aspect);
        const Cone cone = make(lamp.shape);
        LightInstanceData data{};
        miColor color{1, 2, 4, 0};
        data.cone = cone.get();
        std::array<double, bins * bins + 1> seen{}, expected{}; // the last one: elsewhere
        double energy = 0, expected_energy = 0, chi_square = 0;
        const auto bin = [&](double s, double t) -> std::size_t {
            const double x = (s / lamp.s + 1) / 2 * bins, y = (t / lamp.t + 1) / 2 * bins;
            return std::min(x, y) >= 0 && std::max(x, y) < bins ? int(x) * bins + int(y) : bins * bins;
        };
        renderer.mi_photon_light = [&](miColor* e, miState* at) {
            miVector org, d = at->dir;
            mi_point_to_light(at, &org, &at->org);
            if (!omni)
                mi_vector_to_light(at, &d, &at->dir), mi_vector_normalize(&d);
            EXPECT_NEAR(mi_vector_norm(&at->dir), 1, 1e-6);
            EXPECT_LT(beam ? std::abs(org.z) + 1 + d.z : mi_vector_norm(&org), 1e-5);
            EXPECT_TRUE(std::exchange(at->ior, 2.0f) == 1 && std::exchange(at->ior_in, 2.0f) == 1);
            const auto place = beam ? bin(org.x, org.y) : d.z < 0 ? bin(-d.x / d.z, -d.y / d.z) : bins * bins;
            energy += place < bins * bins ? e->g / photons : 0;
            return ++seen[place], miTRUE;
        };
        for (int k = 0; k < photons; ++k)
            emit_photon(&color, state, data, lamp.kind, map);
        for (int k = 0; k < steps * steps; ++k) { // the midpoint rule
            const double x = (k / steps + 0.5) / steps * 2 - 1, s = x * lamp.s;
            const double t = lamp.t * ((k % steps + 0.5) / steps * 2 - 1), y = t / lamp.s * lamp.shape.aspect;
            const auto [r, g, b] = omni ? picture((1 - x) / 2, (1 - y) / 2) : picture((1 + x) / 2, (1 + y) / 2);
            const double share = omni ? 1 : ask(cone, {miScalar(s), miScalar(t), -1}), mean = (r + g + b) / 3;
            const double density = share * (beam ? 1 : std::pow(1 + s * s + t * t, -1.5)) / lamp.measure;
            const double survivors = std::min(mean, 1.0) * density * 4 * lamp.s * lamp.t / (steps * steps);
            expected[bin(s, t)] += photons * survivors;
            expected_energy += 2 * g / mean * survivors;
        }
        for (std::size_t k = 0; k < bins * bins; ++k) // bins next to empty count less
            chi_square += std::pow(seen[k] - expected[k], 2) / std::max(expected[k], 5.0);
        EXPECT_LT(chi_square, 93.22); // 1 per cent of chi-square with 64 degrees of freedom
        EXPECT_NEAR(energy / expected_energy, 1, 0.01);
    }
}
// clang-format on

} // namespace
