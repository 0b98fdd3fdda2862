// The contract that every illumination model keeps, and what is each model's own.
#include "illumination_fixture.h"
#include "shading_terms.h"

#include <random>
#include <tuple>

using namespace orl;

namespace {

class Contract : public ModelTest, public testing::WithParamInterface<Model> {
protected:
    std::mt19937 random{1};

    Contract() { model = GetParam(); }
    float uniform(float lowest, float highest) {
        return std::uniform_real_distribution<float>(lowest, highest)(random);
    }
    // Parameters within their ranges, with `spoiled` one in twenty far outside, and a viewer.
    void randomise(bool spoiled) {
        for (const decl::Field& field : model.shader->fields)
            for (int i = 0; i < field.value.count; ++i) {
                const float odd[] = {not_a_number, infinite, -infinite, 1e30f, -1e30f};
                const float value = uniform(std::max(static_cast<float>(field.range.lowest), 0.0f),
                                            std::min(static_cast<float>(field.range.highest), 1.0f));
                const bool real = field.type == miTYPE_SCALAR || field.type == miTYPE_COLOR;
                put(field, i, spoiled && real && random() % 20 == 0 ? odd[random() % 5] : value);
            }
        look_from(uniform(0, 89), uniform(0, 360));
    }
    Lamp lamp(float lowest, float highest) { // angles from the normal
        return {{uniform(0, 4), uniform(0, 4), uniform(0, 4), 0},
                {from(uniform(lowest, highest), uniform(0, 360))}};
    }
};

TEST_P(Contract, NeverNegativeOrNotANumber) {
    for (int k = 0; k < 100000; ++k) {
        randomise(true);
        values.selfIlluminationColorOn = k % 2;
        Lamp shaped = lamp(0, 100);
        shaped.told = {1, uniform(-0.01f, 1), k % 7 == 0, static_cast<miInteger>(random() % 4)};
        shade({lamp(0, 180), shaped});
        for (const miColor& c : {record.ambient, record.diffuse, record.specular, record.selfIllumination,
                                 record.extraDiffuse, record.result, grey(record.diffuseLightLevel)})
            ASSERT_TRUE(c.r >= 0 && c.g >= 0 && c.b >= 0 && c.r + c.g + c.b < infinite)
                << k << testing::PrintToString(record.diffuse) << testing::PrintToString(c);
    }
}

TEST_P(Contract, LightAndHighlights) {
    for (int k = 0; k < 1000; ++k) {
        randomise(false);
        const Lamp whole = lamp(0, 90), other = lamp(0, 180);
        Lamp half = whole;
        half.color = {whole.color.r / 2, whole.color.g / 2, whole.color.b / 2, 0};
        const IllumRecord one = shade({whole, other}), split = shade({half, other, half});
        expect_near(split.diffuse, one.diffuse);
        expect_near(split.specular, one.specular);
        expect_near(split.extraDiffuse, one.extraDiffuse);
        EXPECT_NEAR(split.diffuseLightLevel, one.diffuseLightLevel, 1e-4f);

        shade({lamp(90.01f, 180)}); // from behind
        EXPECT_TRUE(average(record.diffuse) == 0 && average(record.specular) == 0);

        Lamp bent = lamp(0, 89);
        bent.told = {1, 0.4f, 0, 3};
        if (set("soften", 0)) {
            const miColor plain = shade({bent}).specular;
            set("soften", 0.4f); // acts below it
            EXPECT_EQ(shade({bent}).specular, plain);
            set("soften", 0.8f);
            EXPECT_TRUE(average(plain) < 1e-10f || average(shade({bent}).specular) != average(plain));
        }
        if (set("specularLevel*", 0)) {
            EXPECT_EQ(average(shade({bent}).specular), 0);
        }
    }
    // Highlights stand where a mirror would show the light, not towards the viewer.
    use("");
    set("specularLevel*", 1), set("glossiness*", 0.8f), look_from(30, 70);
    const float there = average(shade({{grey(1), {from(30, 250)}}}).specular);
    EXPECT_GT(there, 0);
    EXPECT_LT(average(shade({{grey(1), {from(30, 70)}}}).specular), there * 0.01f);
}

INSTANTIATE_TEST_SUITE_P(Models, Contract, testing::ValuesIn(models),
                         [](const auto& at) { return std::string(at.param.unit); });

// ---- the models' own

class Models : public ModelTest {};

TEST_F(Models, AreWhatMaterialsExpect) {
    enum { faceted = 1, conserving = 2, tints_by_diffuse = 4 };
    const std::tuple<const char*, int, unsigned, int> table[] = {
        {"Blinn", 8, 32641022, 0},
        {"Phong", 8, 32641022, 0},
        {"Constant", 8, 32641022, faceted},
        {"Metal", 8, 32641022, tints_by_diffuse},
        {"OrenNayarBlinn", 10, 31604734, conserving}};
    for (const auto& [name, channels, features, manners] : table) {
        use(name), shade({});
        EXPECT_TRUE(record.channelCount == channels && record.features == features) << name;
        EXPECT_EQ(record.faceted + conserving * (record.combine == combine_conserving) +
                      tints_by_diffuse * (record.tintReflection == tint_by_diffuse),
                  manners)
            << name;
        for (int k = channels; k < channel_count; ++k)
            EXPECT_NE(record.channelKind[k] & channels_not_evaluated, 0) << name << k;
    }
}

constexpr double pi = 3.14159265358979;

TEST_F(Models, HighlightsFillTheHemisphereAsTheirIntegralsSay) {
    constexpr int rings = 4000;
    const auto theta = [](int k) { return (k + 0.5) * pi / 2 / rings; };
    const auto solid_angle = [&](int k) { return 2 * pi * std::sin(theta(k)) * pi / 2 / rings; };
    std::vector<Lamp> sky; // seen from above, a lamp for each ring, of its solid angle
    for (int k = 0; k < rings; ++k)
        sky.push_back(
            {grey(static_cast<float>(solid_angle(k))), {from(static_cast<float>(theta(k) * 180 / pi))}});
    const auto expect = [&](const char* name, double glossiness, double reflectance, double integral) {
        use(name), set("glossiness", static_cast<float>(glossiness)), set("specular", 1);
        set("specularLevel", 1), set("soften", 0), set("diffuse", static_cast<float>(reflectance));
        EXPECT_NEAR(shade(sky).specular.g / static_cast<float>(integral), 1, 1e-3f) << name << glossiness;
    };
    for (const double g : {0.0, 0.25, 0.5, 0.75, 1.0}) {
        // Phong: cos^e over the hemisphere gives 2 pi / (e + 1). Blinn: with half angles p and
        // d(omega) = 8 pi sin p cos p dp it gives 8 pi / (e + 2) (1 - cos(45 degrees)^(e + 2)).
        const double lobe = std::exp2(10 * g);
        const double blinn = 8 * pi / (4 * lobe + 2) * (1 - std::pow(0.5, 2 * lobe + 1));
        expect("Phong", g, 0.5, 2 * pi / (lobe + 1));
        expect("Constant", g, 0.5, 2 * pi / (lobe + 1));
        expect("Blinn", g, 0.5, blinn);
        expect("OrenNayarBlinn", g, 0.5, blinn);
    }
    // Metal: G = min(1, 2 cos t), D of the half angle p with 1 - 1/cos^2 = -tan^2, N.V = 1.
    for (const double g : {0.1, 0.3, 0.5, 0.7, 0.9})
        for (const double a : {0.0, 0.2, 0.8}) {
            const double m = 1 / ((1 - g) * (1 - g)), n2 = 4 * a / (1 - a);
            double sum = 0;
            for (int k = 0; k < rings; ++k) {
                const double u = std::cos(theta(k) / 2), tan = std::tan(theta(k) / 2);
                const double near = (1 - u) * (1 - u), far = (1 + u) * (1 + u);
                const double f = ((n2 + near) / (n2 + far) + (n2 * u * u + near) / (n2 * u * u + far)) / 2;
                const double t = (f - a) / (1 - a),
                             d = m * std::exp(-m * tan * tan) / (2 * pi * u * u * u * u);
                sum += d * std::min(1.0, 2 * std::cos(theta(k))) / 1.05 * (a + t - a * t) * solid_angle(k);
            }
            expect("Metal", g, a, sum);
        }
}

TEST_F(Models, MetalTakesItsHighlightFromTheDiffuseLight) {
    for (const auto& [level, rest] : {std::pair{0.0f, 1.0f}, {0.75f, 0.25f}, {3.0f, 0.0f}}) {
        use("Metal"), set("specularLevel", level), set("diffuse", 0.5f);
        expect_near(shade({{grey(1), {from(60)}}}).diffuse, grey(0.25f * rest)); // colour times cosine
    }
    set("specularLevel", 1), set("glossiness", 1); // a cosine whose fourth power vanishes
    EXPECT_GE(shade({{grey(1), {from(60)}, {{1, 1e-12f, 0, 3}}}}).specular.r, 0);
}

TEST_F(Models, SoftenTowardsGrazingLight) { // q (2 - d/s) d/s
    const float table[][3] = {{0.2f, 0, 0.8f}, {0.2f, 0.2f, 0.8f}, {0.1f, 0.2f, 0.6f}, {0, 0.5f, 0}};
    for (const auto& [diffuse, soften, result] : table)
        EXPECT_FLOAT_EQ(soften_highlight(0.8f, diffuse, soften), result);
}

TEST_F(Models, RoughSurfaces) {
    // roughness, angles of light and viewer and between them about the normal; L1 and L2 computed in python
    const float table[][6] = {{0, 50, 20, 72.5424f, 1, 0},
                              {0.5f, 60, 30, 0, 0.879011f, 0.124808f},
                              {0.5f, 60, 30, 180, 0.486308f, 0.156010f},
                              {0.5f, 30, 60, 90, 0.679649f, 0.140409f},
                              {1, 45, 45, 60, 0.743387f, 0.141305f},
                              {1, 80, 80, 180, -0.136547f, 0.289090f},
                              {0.5f, 89.5f, 89.75f, 90, 6.497316f, 0.140409f}};
    for (const auto& [roughness, light, viewer, between, once, twice] : table)
        for (const float side : {1.0f, -1.0f}) { // the viewer turned round counts the same
            LightSample sample{};
            sample.dir = from(light), sample.dot_nl = sample.dir.z;
            miVector view = from(viewer, between);
            mi_vector_mul(&view, side);
            const OrenNayar::Share share = OrenNayar(roughness, {0, 0, 1}, view).share(sample);
            EXPECT_NEAR(share.once, once, 2e-5f * (1 + once * once));
            EXPECT_NEAR(share.twice, twice, 2e-5f);
            EXPECT_NEAR(share.of(grey(0.1f)).r, std::max(0.0f, 0.1f * once + 0.01f * twice), 1e-4f);
            EXPECT_LE(share.of(grey(9)).g, 1);
        }
    // Smooth ones are Blinn's in all, the diffuse light level and self-illumination included.
    const std::vector<Lamp> two{{{1, 2, 3, 0}, {from(20, 30)}}, {{2, 1, 0, 0}, {from(70)}}};
    IllumRecord smooth[2];
    for (const int k : {0, 1}) {
        use(k ? "OrenNayarBlinn" : "Blinn"), set("roughness", 0), set("diffuse", 0.4f);
        set("specularLevel", 2), set("selfIllumAmount", 0.3f);
        smooth[k] = shade(two);
    }
    expect_near(smooth[1].result, smooth[0].result);
    EXPECT_NEAR(smooth[1].diffuseLightLevel, smooth[0].diffuseLightLevel, 1e-5f);
    set("diffuseLevel", 2), shade(two);
    EXPECT_FLOAT_EQ(record.diffuse.g, smooth[1].diffuse.g * 2);
    EXPECT_EQ(record.diffuseLightLevel, smooth[1].diffuseLightLevel);
}

} // namespace
