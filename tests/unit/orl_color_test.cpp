// Colours by temperature: the black body, its colour, and the shaders.
#include "orl_color.h"
#include "shader_fixture.h"

using namespace orl;

ENTRY_POINT(zant_KelvinToColor, miColor, KelvinToColorParams);
INIT_AND_EXIT(zant_KelvinToColor, KelvinToColorParams);
ENTRY_POINT(orl_color, miColor, ColorParams);

namespace {

// Expected values of this file: sums of the published tables by python in 64 bits with an exact summation,
//     B(l) = l**-5 / (exp(14387860 / (l * T)) - 1)
//     X = fsum(xbar(l) * B(l) for l in 380, 390 ... 780, the first and the last halved), Y and Z likewise.

TEST(BlackBody, IsSummedOverTheObserver) {
    const struct {
        double temperature, x, y, z;
    } cases[] = {
        {1000, 6.2554519074648706e-24, 3.3017043793724289e-24, 2.6687339987865586e-26},
        {2856, 2.6661733132909601e-17, 2.427676750273254e-17, 8.6317052881306113e-18},
        {12000, 2.5797618682672788e-14, 2.6360547288571065e-14, 4.2729851874416291e-14},
        {-1000, -2.2543009936731612e-13, -2.1127846131801894e-13, -5.7547514315520232e-13},
    };
    for (const auto& each : cases) {
        const CieXyz light = black_body_xyz(each.temperature);
        EXPECT_NEAR(light.x / each.x, 1, 1e-12) << each.temperature;
        EXPECT_NEAR(light.y / each.y, 1, 1e-12) << each.temperature;
        EXPECT_NEAR(light.z / each.z, 1, 1e-12) << each.temperature;
    }
}

// M. Krystek, "An algorithm to calculate correlated colour temperature", 1985: the Planckian locus in the CIE
// 1960 diagram as quotients of polynomials, good to 0.0001 in u and v from 1000 K to 15000 K.
TEST(BlackBody, LiesOnThePlanckianLocus) {
    for (double t = 2000; t <= 10000; t += 250) {
        const double u = (0.860117757 + 1.54118254e-4 * t + 1.28641212e-7 * t * t) /
                         (1 + 8.42420235e-4 * t + 7.08145163e-7 * t * t);
        const double v = (0.317398726 + 4.22806245e-5 * t + 4.20481691e-8 * t * t) /
                         (1 - 2.89741816e-5 * t + 1.61456053e-7 * t * t);
        const CieXyz light = black_body_xyz(t);
        const double sum = light.x + light.y + light.z;
        EXPECT_NEAR(light.x / sum, 3 * u / (2 * u - 8 * v + 4), 0.002) << t;
        EXPECT_NEAR(light.y / sum, 2 * v / (2 * u - 8 * v + 4), 0.002) << t;
    }
}

TEST(BlackBody, HasTheLuminanceThatIsAskedFor) {
    // 6500 K is white: X and Z of D65 (IEC 61966-2-1) are 0.9505 and 1.0890.
    const miColor white = black_body_color(6500, 1);
    EXPECT_NEAR(white.r, 0.9505f, 1e-4f);
    EXPECT_NEAR(white.g, 1.0f, 1e-4f);
    EXPECT_NEAR(white.b, 1.0890f, 3e-4f);
    EXPECT_EQ(white.a, 1.0f);
    EXPECT_EQ(black_body_color(0, 1), white);
    EXPECT_EQ(black_body_color(6500, 0), white);
    for (const float t : {1000.0f, 1900.0f, 6500.0f, 40000.0f, -1000.0f}) {
        const miColor one = black_body_color(t, 0.35f), two = black_body_color(t, 0.7f);
        EXPECT_EQ(two, (miColor{2 * one.r, 2 * one.g, 2 * one.b, 1})) << t;
    }
}

class Colors : public ShaderTest {};

TEST_F(Colors, KelvinIsComputedOnceForAnInstance) {
    std::string places;
    renderer.mi_mem_int_allocate = [&](const char* file, int line, miUint size) {
        places += std::string(file) + " " + std::to_string(size);
        return renderer.mi_mem_int_allocate.unscripted(file, line, size);
    };
    LiveShader<KelvinToColorParams> shader(state, zant_KelvinToColor_init, zant_KelvinToColor_exit);
    int evaluations = 0;
    shader->intensity = 2.5f;
    shader.connect(shader->temperature, [&](miState*) { return ++evaluations, 2856.0f; });
    shader.start();
    EXPECT_EQ(places, "orl_color 16");
    shader->intensity = 9;
    for (int call = 0; call < 2; ++call) {
        // The sums above for 2856 K times 2.5 / Y are 2.7456017, 2.5, 0.88888538; with the adapting matrix
        // 2.7033649, 2.4978085, 0.86645579; with that of sRGB (IEC 61966-2-1):
        const miColor expected{4.4888781f, 2.1020568f, 0.5568683f, 1};
        miColor result{};
        EXPECT_EQ(zant_KelvinToColor(&result, state, &shader.params()), miTRUE);
        EXPECT_NEAR(result.r, expected.r, 3e-6f);
        EXPECT_NEAR(result.g, expected.g, 3e-6f);
        EXPECT_NEAR(result.b, expected.b, 3e-6f);
        EXPECT_EQ(result.a, expected.a);
    }
    EXPECT_EQ(evaluations, 1);
}

TEST_F(Colors, PlainColorIsEvaluated) {
    scripted::ShaderInstance<ColorParams> shader;
    state.run(shader);
    shader.connect(shader->color, [](miState*) { return miColor{1, 2, 3, 4}; });
    miColor result{};
    EXPECT_EQ(orl_color(&result, state, &shader.params()), miTRUE);
    EXPECT_EQ(result, (miColor{1, 2, 3, 4}));
}

} // namespace
