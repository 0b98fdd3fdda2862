// Shapes of lights, attenuation with distance, the exchange with a volume light, photons.
#include "orl_light.h"
#include "shader_fixture.h"

#include <numbers>
#include <random>

using namespace orl;

namespace {

class LightShapes : public ShaderTest {};

struct Settings {
    LightConeKind kind;
    miScalar hotspot, falloff;
    miBoolean overshoot, circular;
    miScalar aspect;
};

using Cone = std::unique_ptr<LightConeShape, void (*)(LightConeShape*)>;

Cone make(const Settings& s) {
    const auto factory = light_cone_factory[s.kind];
    return {factory(s.hotspot, s.falloff, s.overshoot, s.circular, s.aspect),
            [](LightConeShape* cone) { cone->operations->destroy(cone); }};
}

miBoolean zone; // of the last answer

miScalar ask(const Cone& cone, const miVector& p) {
    zone = 7;
    return cone->operations->evaluate(cone.get(), &p, -p.z / mi_vector_norm(&p), &zone);
}

// clang-format off
constexpr Settings round_spot{light_cone_spot, 30, 60, 0, 1, 1}, wide_spot{light_cone_spot, 30, 60, 0, 0, 4},
    hard_spot{light_cone_spot, 40, 40, 0, 1, 1}, turned_spot{light_cone_spot, 80, 40, 0, 1, 1},
    round_beam{light_cone_beam, 2, 5, 0, 1, 1}, tall_beam{light_cone_beam, 2, 5, 0, 0, 0.5f};

// s(t) = 3 t^2 - 2 t^3. Round spot: t = (c - cos 30) / (cos 15 - cos 30). Wide spot: half extents 2 tan 30 and
// tan 30 / 2 at distance 1, X and Y are shares of them, t = the product of (1 - X) / 0.5 and (1 - Y) / 0.5 where
// above 0.5. Beams: likewise with R, or X = |x| / 5 and Y = |y| / 10, from 0.4 on.
constexpr struct { Settings shape; miVector point; miScalar value; } shape_cases[] = {
    {round_spot, {3, 4, -10}, 0.19652271f}, /* c = 10 / sqrt(125), t = 0.284365 */ {round_spot, {0, 2, -10}, 1},
    {round_spot, {6, 0, -10}, 0}, {round_spot, {0, 2, 10}, 0}, {wide_spot, {0, 0, 1}, 0},
    {wide_spot, {5, 1, -10}, 1}, {wide_spot, {-9, 1, -10}, 0.41213895f}, {wide_spot, {5, -2.5f, -10}, 0.17691454f},
    {wide_spot, {9, 2.5f, -10}, 0.03861525f}, {wide_spot, {12, 1, -10}, 0}, {wide_spot, {1, 3, -10}, 0},
    {round_beam, {-3, 0, 9}, 0.74074074f}, {round_beam, {0, 4, -9}, 0.25925926f}, // t = 2/3, 1/3
    {round_beam, {1, 1, -9}, 1}, {round_beam, {4, 4, -9}, 0}, {tall_beam, {0, -7, -1}, 0.5f}, // t = 1/2
    {tall_beam, {3, 7, -1}, 0.25925926f}, {tall_beam, {1, 3.9f, -1}, 1}, {tall_beam, {1, 10.1f, -1}, 0},
    {hard_spot, {3.6f, 0, -10}, 1}, {hard_spot, {3.7f, 0, -10}, 0}, {turned_spot, {3.7f, 0, -10}, 0}, // tan 20 = 0.364
};
// clang-format on

TEST_F(LightShapes, FadeFromHotspotToFalloff) {
    for (auto [settings, point, value] : shape_cases) {
        EXPECT_NEAR(ask(make(settings), point), value, 2e-6f) << point.x << ' ' << point.y;
        EXPECT_EQ(zone, miTRUE);
        settings.overshoot = miTRUE;
        EXPECT_EQ(ask(make(settings), point), 1.0f);
        EXPECT_EQ(zone, value != 0.0f); // outside of the shape there is light but no shadow
    }
    const Cone spot = make(wide_spot);
    const LightConeOperations& operations = *spot->operations;
    EXPECT_FLOAT_EQ(operations.cosLimit(spot.get()), 0.61237237f);       // cos 30 * 0.7071067
    EXPECT_FLOAT_EQ(operations.tanHalfFalloff(spot.get()), 0.57735027f); // tan 30
    EXPECT_FLOAT_EQ(operations.fieldAngle(spot.get()), 1.7141439f);      // 2 atan(2 tan 30)
    EXPECT_FLOAT_EQ(operations.projectionScale(spot.get()), 0.86602540f);
    miVector left, right, bottom, top;
    operations.edgesX(spot.get(), &left, &right);
    operations.edgesY(spot.get(), &bottom, &top);
    EXPECT_FLOAT_EQ(right.x, 0.75592895f); // sqrt(4 / 7)
    EXPECT_FLOAT_EQ(right.z, -0.65465367f);
    EXPECT_FLOAT_EQ(top.y, 0.27735010f); // 1 / sqrt(13)
    EXPECT_EQ(left.x + right.x + bottom.y + top.y, 0.0f);
}

TEST_F(LightShapes, SurviveSettingsThatMakeNoShape) {
    const miVector points[] = {
        {0, 0, -1}, {0, 3, -1e-30f}, {0, 0, 0}, {infinite, 0, -1}, {0, not_a_number, -1}};
    const auto blocks = renderer.resources().live_blocks;
    for (const LightConeKind kind : {light_cone_spot, light_cone_beam})
        for (const miScalar bad : {0.0f, -3.0f, 180.0f, 1e30f, infinite, not_a_number})
            for (int which = 0; which < 16; ++which) {
                SCOPED_TRACE(testing::Message() << kind << ' ' << bad << ' ' << which);
                const Cone cone = make(
                    {kind, which & 1 ? bad : 30, which & 2 ? bad : 60, 0, which & 8, which & 4 ? bad : 1});
                for (const miVector& point : points) {
                    const miScalar value = ask(cone, point);
                    EXPECT_TRUE(value >= 0 && value <= 1) << value;
                }
                const auto emit = kind == light_cone_spot ? emit_from_spot : emit_from_beam;
                const Emission photon = emit(*cone, 0.3f, 0.9f);
                EXPECT_NEAR(mi_vector_norm(&photon.dir), 1.0f, 1e-5f);
                EXPECT_TRUE(std::isfinite(photon.org.x + photon.org.y));
            }
    EXPECT_EQ(renderer.resources().live_blocks, blocks);
    renderer.fail_allocations_after(0);
    EXPECT_EQ(make(round_spot), nullptr);
    EXPECT_EQ(make(round_beam), nullptr);
    renderer.fail_allocations_after(-1);
}

// clang-format off
TEST(OmniShape, IsASphere) {
    const struct { miVector org, dir; miScalar enter, leave; /* negative: misses */ } cases[] = {
        {{0, 3, 10}, {0, 0, -1}, 6, 14}, {{0, 3, 1}, {0, 0, 1}, 0, 3}, {{0, 3, 10}, {0, 0, -2}, 3, 7}, // 5^2 = 3^2 + 4^2
        {{0, 3, 10}, {0, 0, 1}, 0, -1}, {{0, 6, 10}, {0, 0, -1}, 0, -1}, {{0, 0, 0}, {0, 0, 0}, 0, -1},
        {{3e5f, 4, 0}, {-1, 0, 0}, 299997, 300003},
    };
    for (const auto& each : cases) {
        miScalar enter = 0, leave = -1;
        EXPECT_EQ(omni_shape_operations.intersect(&each.org, &each.dir, 5, &enter, &leave), each.leave >= 0);
        EXPECT_FLOAT_EQ(enter, each.enter);
        EXPECT_FLOAT_EQ(leave, each.leave);
    }
}

TEST(Attenuation, RangesAndDecay) {
    const AttenuationRange both{1, 2, 4, 1, 10, 20}, hard{1, 3, 3, 1, 8, 8}, crossed{1, 0, 10, 1, 0, 10};
    const struct { AttenuationRange range; miScalar distance, value; } ranges[] = {
        {both, 1.9f, 0}, {both, 2.5f, 0.15625f}, {both, 4, 1}, {both, 10, 1}, {both, 17.5f, 0.15625f}, // t = 1/4
        {both, 20, 0}, {both, 20.1f, 0}, {hard, 2.9f, 0}, {hard, 3, 1}, {hard, 8, 1}, {hard, 8.1f, 0},
        {crossed, 2.5f, 0.13183594f}, {{0, 2, 4, 0, 10, 20}, 1, 1}, // 0.15625 * 0.84375
    };
    for (const auto& each : ranges)
        EXPECT_FLOAT_EQ(nearFarAttenuation(each.distance, each.range), each.value) << each.distance;
    const struct { miScalar distance; miInteger type; miScalar start, value; } decays[] = {
        {10, 0, 5, 1}, {10, 1, 5, 0.5f}, {10, 2, 5, 0.25f}, {4, 2, 5, 1}, {0, 2, 0, 1}, {3, 1, 0, 0}};
    for (const auto& each : decays)
        EXPECT_EQ(decay(each.distance, each.type, each.start), each.value) << each.distance;
}
// clang-format on

TEST_F(LightShapes, VolumeLightIsAnsweredWithTheStretchedRanges) {
    const miMatrix to_light{0, 1, 0, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 0, -7, 1}; // (x, y, z) to (z, x, y - 7)
    renderer.set_to_space(scripted::Space::light, to_light);
    // Start factor 0.5 and end factor 1.5: near 1 to 6, far 5 to 30, decay from 3 rather than 2 on. Distances
    // 5, 0.5, 17.5, 2.5 and 31; the last point lies at 5, on the axis at 4. Ranges 0.896 (t = 0.8), 0, 0.5,
    // 0.216 (t = 0.3), 0 and 0.896 or 0.648; decay (3 / d)^2 where that is below 1.
    const miVector points[] = {{0, 2, 0}, {0, 6.5f, 0}, {0, -10.5f, 0}, {0, 4.5f, 0}, {0, -24, 0}, {3, 3, 0}};
    for (const bool axis : {false, true}) {
        const miScalar expected[] = {0.32256f, 0, 0.01469388f, 0.216f, 0, axis ? 0.3645f : 0.32256f};
        // A light with two samples, one of them in the shade, that fades by its own decay.
        renderer.mi_sample_light = [&](miColor* color, miVector*, miScalar*, miState* at, miTag light,
                                       miInteger* n) {
            auto* const probe = find_record(at, keys::attenuation_probe);
            const miVector& p = *probe->point;
            EXPECT_TRUE(light == 77 && at->light_instance == 77 && at->parent == state && !at->pri);
            EXPECT_TRUE(p.y == at->point.x && p.z == at->point.y - 7);
            EXPECT_TRUE(probe->nearStart == 1 && probe->nearEnd == 6);
            EXPECT_TRUE(probe->farStart == 5 && probe->farEnd == 30);
            if (*n >= 2)
                return miFALSE;
            const miScalar d = axis ? -p.z : mi_vector_norm(&p);
            probe->attenuation = nearFarAttenuation(d, {1, 1, 6, 1, 5, 30});
            const miScalar a = probe->attenuation * decay(d, decay_inverse_square, 2);
            *color = ++*n == 1 ? miColor{a, 2 * a, 0, 0} : miColor{0, 0, 0, 0};
            return miTRUE;
        };
        miColor colors[6];
        miScalar attenuations[6];
        state->pri = &renderer;
        const auto answer = [&](int first, int count) {
            const VolumeLightRequest request{77, 0.5f, 1.5f, count, points + first, colors, attenuations};
            return sample_light_in_volume(state, request, {1, 2, 4, 1, 10, 20}, decay_inverse_square, 2,
                                          axis ? ProbeDistance::along_axis : ProbeDistance::from_origin);
        };
        EXPECT_FALSE(answer(4, 1));
        EXPECT_TRUE(answer(0, 6));
        for (int k = 0; k < 6; ++k) {
            EXPECT_NEAR(attenuations[k], expected[k], 1e-6f) << k;
            EXPECT_NEAR(colors[k].g, expected[k], 1e-6f) << k;
        }
        EXPECT_EQ(find_record(state, keys::attenuation_probe), nullptr);
    }
}

// ---- photons

// Where photons go, as two coordinates with these half extents and that measure of what an even emission
// covers: for the omni light z and angle, for the spot the plane z = -1, for the beam its disc.
constexpr double tan30 = 0.57735027, pi = std::numbers::pi;
const double cap = 2 * pi * (1 - std::sqrt(0.75)),
             pyramid = 4 * std::asin(2 / std::sqrt(91.0)); // sines 2/sqrt 7, 1/sqrt 13
const struct {
    LightKind kind;
    Settings shape;
    double s, t, measure;
} lamps[] = {{LightKind::omni, round_spot, 1, pi, 4 * pi},
             {LightKind::spot, round_spot, tan30, tan30, cap},
             {LightKind::spot, {light_cone_spot, 30, 60, 0, 1, 2}, tan30, tan30, cap},
             {LightKind::spot, wide_spot, 2 * tan30, tan30 / 2, pyramid},
             {LightKind::beam, {light_cone_beam, 2, 5, 0, 1, 1}, 5, 5, 25 * pi},
             {LightKind::beam, tall_beam, 5, 10, 200}};

constexpr std::array<double, 3> picture(double u, double v) {
    return {u, (1 + v) / 3, 0.6};
}

TEST_F(LightShapes, PhotonsFollowShapeAndProjector) {
    const miMatrix to_light{0, 0, 1, 0, 1, 0,  0, 0,
                            0, 1, 0, 0, 0, -3, 2, 1}; // (x, y, z) to (y, z - 3, x + 2)
    renderer.set_to_space(scripted::Space::light, to_light);
    std::mt19937_64 random(20240711);
    renderer.mi_sample = [&](double* sample, int*, miState*, miUshort dim, const miUint*) {
        std::generate_n(sample, dim, [&] { return std::uniform_real_distribution()(random); });
        return miTRUE;
    };
    const miTag projector = renderer.add_shader([](void* result, miState* at, void*) {
        const auto [r, g, b] = picture(at->tex.x, at->tex.y);
        *static_cast<miColor*>(result) = {miScalar(r), miScalar(g), miScalar(b), 1};
        return miTRUE;
    });
    constexpr int bins = 8, steps = 256, photons = 200000;
    for (const auto& [kind, shape, half_s, half_t, measure] : lamps)
        for (const miTag map : {miNULLTAG, projector}) {
            SCOPED_TRACE(testing::Message() << int(kind) << ' ' << shape.circular << ' ' << map);
            const Cone cone = make(shape);
            LightInstanceData data{};
            data.cone = cone.get();
            std::array<double, bins * bins> seen{}, expected{};
            std::array<double, 3> energy{}, expected_energy{};
            const auto bin = [&, s = half_s, t = half_t](double x, double y) -> std::size_t {
                const auto cell = [](double z) { return std::clamp(int((z + 1) / 2 * bins), 0, bins - 1); };
                return cell(x / s) * bins + cell(y / t);
            };
            renderer.mi_photon_light = [&, kind = kind](miColor* e, miState* at) {
                miVector org, d = at->dir;
                mi_point_to_light(at, &org, &at->org);
                if (kind != LightKind::omni)
                    mi_vector_to_light(at, &d, &at->dir);
                EXPECT_LT(kind == LightKind::beam ? std::abs(org.z) + 1 + d.z : mi_vector_norm(&org), 1e-5);
                ++seen[kind == LightKind::omni   ? bin(d.z, std::atan2(d.y, d.x))
                       : kind == LightKind::spot ? bin(-d.x / d.z, -d.y / d.z)
                                                 : bin(org.x, org.y)];
                energy = {energy[0] + e->r, energy[1] + e->g, energy[2] + e->b};
                return miTRUE;
            };
            miColor color{1, 1, 1, 0};
            for (int k = 0; k < photons; ++k)
                emit_photon(&color, state, data, kind, map);
            for (int k = 0; k < steps * steps; ++k) { // the midpoint rule
                const double s = half_s * ((k / steps + 0.5) / steps * 2 - 1);
                const double t = half_t * ((k % steps + 0.5) / steps * 2 - 1);
                double weight = 4 * half_s * half_t / (measure * steps * steps);
                double u = (s / half_s + 1) / 2, v = (t / half_s * shape.aspect + 1) / 2;
                if (kind == LightKind::omni) {
                    const double r = std::sqrt(1 - s * s);
                    const ProjectorCoordinate at =
                        omni_projection({miScalar(r * std::cos(t)), miScalar(r * std::sin(t)), miScalar(s)});
                    u = at.u, v = at.v;
                } else {
                    weight *= ask(cone, {miScalar(s), miScalar(t), -1});
                    weight *= kind == LightKind::spot ? std::pow(1 + s * s + t * t, -1.5) : 1;
                }
                const auto [r, g, b] = map != miNULLTAG ? picture(u, v) : std::array{1.0, 1.0, 1.0};
                expected[bin(s, t)] += photons * weight * (r + g + b) / 3;
                expected_energy = {expected_energy[0] + weight * r, expected_energy[1] + weight * g,
                                   expected_energy[2] + weight * b};
            }
            // Limit of 1 per cent for 64 counts: 63 degrees of freedom and the total's spread; bins that are
            // next to empty count as one.
            double chi_square = 0;
            for (std::size_t k = 0; k < seen.size(); ++k)
                chi_square += std::pow(seen[k] - expected[k], 2) / std::max(expected[k], 5.0);
            EXPECT_LT(chi_square, 93.22);
            for (std::size_t k = 0; k < 3; ++k)
                EXPECT_NEAR(energy[k] / photons / expected_energy[k], 1, 0.01) << k;
        }
}

TEST_F(LightShapes, PhotonRoulette) {
    // The number is 0.5, the light's colour (1, 2, 4).
    const std::pair<miColor, miColor> cases[] = {{{0, 0, 0, 1}, {}},
                                                 {{0.5f, 0.5f, 0.5f, 1}, {}},
                                                 {{1.8f, 0, 0, 1}, {3, 0, 0, 0}},
                                                 {{9, 9, 0, 1}, {1.5f, 3, 0, 0}},
                                                 {{not_a_number, 1, 1, 1}, {}}};
    for (const auto& [filter, expected] : cases) {
        miColor color{1, 2, 4, 0}, energy{};
        renderer.mi_photon_light = [&](miColor* e, miState*) { return energy = *e, miTRUE; };
        EXPECT_TRUE(emit_photon(&color, state, {}, LightKind::omni, renderer.add_color(filter)));
        EXPECT_TRUE(emit_photon(&color, state, {}, LightKind::spot, miNULLTAG)); // without a shape
        EXPECT_EQ(energy, expected);
    }
}

} // namespace
