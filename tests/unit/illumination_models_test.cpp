// The contract that every illumination model keeps, and what is each model's own.
#include "illumination_fixture.h"
#include "shading_terms.h"

#include <random>

using namespace orl;

namespace {

class Contract : public ModelTest, public testing::WithParamInterface<Model> {
protected:
    std::mt19937 random{1};

    Contract() { use(GetParam()); }
    float uniform(float lowest, float highest) {
        return std::uniform_real_distribution<float>(lowest, highest)(random);
    }
    miColor color(float highest) {
        return {uniform(0, highest), uniform(0, highest), uniform(0, highest), 0};
    }
    // Anything within the ranges; with `spoiled`, one in twenty far outside.
    void randomise(bool spoiled) {
        for (const decl::Field& field : declaration(GetParam().name).fields)
            for (int i = 0; i < std::max(field.value.count, 1); ++i) {
                const float odd[] = {not_a_number, infinite, -infinite, 1e30f, -1e30f};
                const float value = uniform(std::max(static_cast<float>(field.range.lowest), 0.0f),
                                            std::min(static_cast<float>(field.range.highest), 1.0f));
                const bool real = field.type == miTYPE_SCALAR || field.type == miTYPE_COLOR;
                put(field, i, spoiled && real && random() % 20 == 0 ? odd[random() % 5] : value);
            }
        values = {static_cast<miInteger>(random() % 3), 0, static_cast<miBoolean>(random() % 2),
                  uniform(0, 1), uniform(0, 4)};
        look_from(uniform(0, 89), uniform(0, 360));
    }
    Lamp lamp(float lowest, float highest) { // angles from the normal
        return {color(4), {from(uniform(lowest, highest), uniform(0, 360))}};
    }
};

TEST_P(Contract, NeverNegativeOrNotANumber) {
    const auto good = [](const miColor& c) { return c.r >= 0 && c.g >= 0 && c.b >= 0 && c.r + c.g + c.b < infinite; };
    for (int k = 0; k < 100000; ++k) {
        randomise(true);
        values.selfIlluminationColorOn = k % 2;
        Lamp shaped = lamp(0, 100);
        shaped.told = {1, uniform(-0.01f, 1), k % 7 == 0, static_cast<miInteger>(random() % 4)};
        shade({lamp(0, 180), shaped});
        ASSERT_TRUE(good(record.ambient) && good(record.diffuse) && good(record.specular) &&
                    good(record.selfIllumination) && good(record.extraDiffuse) && good(record.result) &&
                    record.diffuseLightLevel >= 0)
            << k << testing::PrintToString(record.diffuse) << testing::PrintToString(record.specular);
    }
}

TEST_P(Contract, LinearInTheLight) {
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
    }
}

TEST_P(Contract, SpecularLevelAndSoften) {
    for (int k = 0; k < 1000; ++k) {
        randomise(false);
        Lamp bent = lamp(0, 89);
        bent.told = {1, 0.4f, 0, 3}; // diffuse factor 0.4
        if (set("soften", {0}) == 1) {
            const miColor plain = shade({bent}).specular;
            set("soften", {0.4f}); // not above the factor
            EXPECT_EQ(shade({bent}).specular, plain);
            set("soften", {0.8f});
            const miColor soft = shade({bent}).specular;
            EXPECT_TRUE(soft.r <= plain.r * 1.0001f || model->name == std::string("orl_base_MetalIllumination"));
        }
        if (set("specularLevel*", {0}))
            expect_near(shade({bent}).specular, grey(0), 0);
    }
}

TEST_P(Contract, BackSideIsDarkAndHighlightsAreWhereMirrorsShowTheLight) {
    for (int k = 0; k < 1000; ++k) {
        randomise(false);
        shade({lamp(90.01f, 180)});
        EXPECT_TRUE(average(record.diffuse) == 0 && average(record.specular) == 0);
    }
    use(GetParam());
    set("specularLevel*", {1}), set("glossiness*", {0.8f}), look_from(30, 70);
    const float there = average(shade({{grey(1), {from(30, 250)}}}).specular);
    const float towards_viewer = average(shade({{grey(1), {from(30, 70)}}}).specular);
    EXPECT_GT(there, 0);
    EXPECT_LT(towards_viewer, there * 0.01f);
}

TEST_P(Contract, TablesAndExit) {
    shade({});
    EXPECT_GT(record.channelCount, 0);
    for (int slot = 0; slot < slot_count; ++slot)
        EXPECT_LT(channel_of(record, static_cast<MapSlot>(slot)), channel_count);
    for (int k = record.channelCount; k < channel_count; ++k)
        EXPECT_NE(record.channelKind[k] & channels_not_evaluated, 0) << k;
    const long long before = renderer.resources().live_blocks;
    *instance_slot(state) = mi_mem_int_allocate("test", 1, 32);
    model->exit(state, nullptr);
    EXPECT_EQ(renderer.resources().live_blocks, before + 1);
    model->exit(state, &instance.params());
    EXPECT_EQ(renderer.resources().live_blocks, before);
    EXPECT_EQ(instance.user_pointer(), nullptr);
    EXPECT_FALSE(model->call(nullptr, state, &instance.params(), nullptr)); // no record
}

INSTANTIATE_TEST_SUITE_P(Models, Contract, testing::ValuesIn(models),
                         [](const auto& at) { return std::string(at.param.name + sizeof "orl_base"); });

// ---- the models' own

constexpr double pi = 3.14159265358979;

class Highlights : public ModelTest {
protected:
    static constexpr int rings = 4000;

    // Over the hemisphere, seen from above: a lamp for each ring, of the ring's solid angle.
    double integral(const char* name, float glossiness, float reflectance) {
        for (const Model& m : models)
            if (m.name == std::string("orl_base_") + name + "Illumination")
                use(m);
        set("glossiness", {glossiness}), set("specular", {1, 1, 1}), set("specularLevel", {1});
        set("soften", {0}), set("diffuse", {reflectance, reflectance, reflectance});
        set("diffuseLevel", {1}), look_from(0);
        std::vector<Lamp> lamps;
        for (int k = 0; k < rings; ++k)
            lamps.push_back({grey(static_cast<float>(solid_angle(k))), {from(static_cast<float>(theta(k) * 180 / pi))}});
        return static_cast<double>(shade(lamps).specular.g);
    }
    static double theta(int k) { return (k + 0.5) * pi / 2 / rings; }
    static double solid_angle(int k) { return 2 * pi * std::sin(theta(k)) * pi / 2 / rings; }
};

TEST_F(Highlights, FillTheHemisphereAsTheirIntegralsSay) {
    for (const float g : {0.0f, 0.25f, 0.5f, 0.75f, 1.0f}) {
        const double lobe = std::exp2(10 * static_cast<double>(g));
        // Phong: integral of cos^e over the hemisphere = 2 pi / (e + 1). Blinn: with half angles p and
        // d(omega) = 8 pi sin p cos p dp it is that of cos^(e+1) sin, 8 pi / (e + 2) (1 - cos(45)^(e+2)).
        const double phong = 2 * pi / (lobe + 1);
        const double blinn = 8 * pi / (4 * lobe + 2) * (1 - std::pow(0.5, 2 * lobe + 1));
        for (const char* name : {"Phong", "Constant"})
            EXPECT_NEAR(integral(name, g, 0.5f), phong, phong * 1e-3) << name << g;
        for (const char* name : {"Blinn", "OrenNayarBlinn"})
            EXPECT_NEAR(integral(name, g, 0.5f), blinn, blinn * 1e-3) << name << g;
    }
    // Metal, from above: G = min(1, 2 cos t), D of the half angle p with 1 - 1/cos^2 = -tan^2, and N.V = 1.
    for (const double g : {0.1, 0.3, 0.5, 0.7, 0.9})
        for (const double a : {0.0, 0.2, 0.8}) {
            const double m = 1 / ((1 - g) * (1 - g)), n2 = 4 * a / (1 - a);
            double sum = 0;
            for (int k = 0; k < rings; ++k) {
                const double p = theta(k) / 2, u = std::cos(p), tan = std::tan(p);
                const double f = ((n2 + (1 - u) * (1 - u)) / (n2 + (1 + u) * (1 + u)) +
                                  (n2 * u * u + (1 - u) * (1 - u)) / (n2 * u * u + (1 + u) * (1 + u))) / 2;
                const double d = m * std::exp(-m * tan * tan) / (2 * pi * u * u * u * u);
                const double t = (f - a) / (1 - a);
                sum += d * std::min(1.0, 2 * std::cos(theta(k))) / 1.05 * (a + t - a * t) * solid_angle(k);
            }
            EXPECT_NEAR(integral("Metal", static_cast<float>(g), static_cast<float>(a)), sum, sum * 1e-3) << g << ' ' << a;
        }
}

TEST_F(Highlights, OfMetalTakeTheLightFromDiffuse) {
    integral("Metal", 0.5f, 0.5f);
    set("specularLevel", {0.75f});
    expect_near(shade({{grey(1), {from(60)}}}).diffuse, grey(0.5f * 0.25f * 0.5f)); // colour, rest, cosine
    set("specularLevel", {3});
    expect_near(shade({{grey(1), {from(60)}}}).diffuse, grey(0));
}

TEST_F(Highlights, SoftenTowardsGrazingLight) {
    // cosine, diffuse factor, soften, result: q (2 - d/s) d/s
    const float table[][4] = {{0.8f, 0.2f, 0, 0.8f}, {0.8f, 0.2f, 0.2f, 0.8f}, {0.8f, 0.1f, 0.2f, 0.6f},
                              {0.8f, 0, 0.5f, 0},    {0.5f, 0.1f, 0.4f, 0.21875f}};
    for (const auto& [cosine, diffuse, soften, result] : table)
        EXPECT_FLOAT_EQ(soften_highlight(cosine, diffuse, soften), result);
}

TEST_F(Highlights, RoughSurfaces) {
    // roughness, angles of light and viewer, between them about the normal; L1 and L2 computed in python
    const float table[][6] = {{0, 50, 20, 72.5424f, 1, 0},          {0.5f, 60, 30, 0, 0.879011f, 0.124808f},
                              {0.5f, 60, 30, 180, 0.486308f, 0.156010f}, {0.5f, 30, 60, 90, 0.679649f, 0.140409f},
                              {1, 45, 45, 60, 0.743387f, 0.141305f}, {1, 80, 80, 180, -0.136547f, 0.289090f}};
    for (const auto& [roughness, light, viewer, between, once, twice] : table) {
        look_from(viewer, between);
        LightSample sample{};
        sample.dir = from(light), sample.dot_nl = sample.dir.z;
        for (const float side : {1.0f, -1.0f}) { // the viewer turned round counts the same
            const miVector view{state->dir.x * side, state->dir.y * side, state->dir.z * side};
            const OrenNayar::Share share = OrenNayar(roughness, state->normal, view).share(sample);
            EXPECT_NEAR(share.once, once, 2e-5f);
            EXPECT_NEAR(share.twice, twice, 2e-5f);
            EXPECT_NEAR(share.of({0.1f, 1, 9, 0}).r, std::max(0.0f, 0.1f * once + 0.01f * twice), 1e-5f);
            EXPECT_LE(share.of({0.1f, 1, 9, 0}).b, 1);
        }
    }
    // Smooth ones are Blinn's, the diffuse light level and self-illumination included.
    const std::vector<Lamp> lamps{{{1, 2, 3, 0}, {from(20, 30)}}, {{2, 1, 0, 0}, {from(70)}}};
    const auto smooth = [&](const Model& m) {
        use(m), set("roughness", {0}), set("diffuse", {0.2f, 0.4f, 0.8f}), set("diffuseLevel", {1});
        set("specularLevel", {2}), set("selfIllumAmount", {0.3f});
        return shade(lamps);
    };
    const IllumRecord rough = smooth(models[4]), blinn = smooth(models[0]);
    expect_near(rough.result, blinn.result);
    EXPECT_NEAR(rough.diffuseLightLevel, blinn.diffuseLightLevel, 1e-5f);
    use(models[4]), set("diffuseLevel", {2});
    const miColor twice = shade(lamps).diffuse;
    set("diffuseLevel", {1}), shade(lamps);
    expect_near(twice, {record.diffuse.r * 2, record.diffuse.g * 2, record.diffuse.b * 2, 0});
}

} // namespace
