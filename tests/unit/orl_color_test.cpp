// Colours by temperature: the black body, its colour, and the shader. The expected sums are made by python in
// 64 bits: B(l) = l**-5 / (exp(14387860 / (l * T)) - 1), X = fsum(xbar(l) * B(l) for l in 380, 390 ... 780,
// the ends halved), Y and Z likewise.
#include "orl_color.h"
#include "shader_fixture.h"

using namespace orl;

ENTRY_POINT(zant_KelvinToColor, miColor, KelvinToColorParams);
INIT_AND_EXIT(zant_KelvinToColor, KelvinToColorParams);
ENTRY_POINT(orl_color, miColor, ColorParams);

namespace {

TEST(BlackBody, IsSummedOverTheObserver) {
    const double cases[][4] = {
        {1000, 6.2554519074648706e-24, 3.3017043793724289e-24, 2.6687339987865586e-26},
        {12000, 2.5797618682672788e-14, 2.6360547288571065e-14, 4.2729851874416291e-14},
        {-1000, -2.2543009936731612e-13, -2.1127846131801894e-13, -5.7547514315520232e-13},
    };
    for (const auto& [temperature, x, y, z] : cases) {
        const CieXyz light = black_body_xyz(temperature);
        EXPECT_NEAR(light.x / x, 1, 1e-12) << temperature;
        EXPECT_NEAR(light.y / y, 1, 1e-12) << temperature;
        EXPECT_NEAR(light.z / z, 1, 1e-12) << temperature;
    }
}

// M. Krystek, "An algorithm to calculate correlated colour temperature", 1985: the Planckian locus in the CIE
// 1960 diagram as quotients of polynomials.
TEST(BlackBody, LiesOnThePlanckianLocus) {
    for (double t = 2000; t <= 10000; t += 250) {
        const double u = (0.860117757 + 1.54118254e-4 * t + 1.28641212e-7 * t * t) /
                         (1 + 8.42420235e-4 * t + 7.08145163e-7 * t * t);
        const double v = (0.317398726 + 4.22806245e-5 * t + 4.20481691e-8 * t * t) /
                         (1 - 2.89741816e-5 * t + 1.61456053e-7 * t * t);
        const auto [x, y, z] = black_body_xyz(t);
        EXPECT_NEAR(x / (x + y + z), 3 * u / (2 * u - 8 * v + 4), 0.002) << t;
        EXPECT_NEAR(y / (x + y + z), 2 * v / (2 * u - 8 * v + 4), 0.002) << t;
    }
}

TEST(BlackBody, HasTheLuminanceThatIsAskedFor) {
    const miColor white = black_body_color(6500, 1);
    EXPECT_NEAR(white.g, 1.0f, 1e-6f); // the matrix leaves 0.9999991
    EXPECT_EQ(black_body_color(0, 0), white);
    for (const float t : {1000.0f, 40000.0f, -1000.0f}) {
        const miColor one = black_body_color(t, 0.35f), two = black_body_color(t, 0.7f);
        EXPECT_EQ(two, (miColor{2 * one.r, 2 * one.g, 2 * one.b, 1})) << t;
    }
}

using KelvinToColor = ShaderTest;

TEST_F(KelvinToColor, IsComputedOnceForAnInstance) {
    std::string file;
    renderer.mi_mem_int_allocate = [&](const char* f, int line, miUint size) {
        return renderer.mi_mem_int_allocate.unscripted((file = f).c_str(), line, size);
    };
    LiveShader<KelvinToColorParams> shader(state, zant_KelvinToColor_init, zant_KelvinToColor_exit);
    int evaluations = 0;
    shader->intensity = 2.5f;
    shader.connect(shader->temperature, [&](miState*) { return ++evaluations, 2856.0f; });
    shader.start();
    EXPECT_EQ(file, "orl_color");
    shader->intensity = 9;
    for (int call = 0; call < 2; ++call) {
        // Sums for 2856 K times 2.5 / Y: 2.7456017, 2.5, 0.88888538; times the adapting matrix: 2.7033649,
        // 2.4978085, 0.86645579; times that of sRGB (IEC 61966-2-1):
        miColor result{};
        EXPECT_EQ(zant_KelvinToColor(&result, state, &shader.params()), miTRUE);
        EXPECT_NEAR(result.r, 4.4888781f, 3e-6f);
        EXPECT_NEAR(result.g, 2.1020568f, 3e-6f);
        EXPECT_NEAR(result.b, 0.5568683f, 3e-6f);
        EXPECT_EQ(result.a, 1.0f);
    }
    EXPECT_EQ(evaluations, 1);
}

TEST_F(KelvinToColor, IsBlackWhereThereIsNoLight) {
    LiveShader<KelvinToColorParams> shader(state, zant_KelvinToColor_init, zant_KelvinToColor_exit);
    shader->temperature = 20;
    shader.start();
    miColor result{};
    EXPECT_TRUE(zant_KelvinToColor(&result, state, &shader.params()));
    EXPECT_EQ(result, (miColor{0, 0, 0, 1}));
    EXPECT_EQ(errors().size(), 1u);
}

TEST_F(KelvinToColor, PlainColorsAreHandedOn) {
    scripted::ShaderInstance<ColorParams> shader;
    shader.connect(shader->color, [](miState*) { return miColor{1, 2, 3, 4}; });
    miColor result{};
    EXPECT_TRUE(orl_color(&result, state.run(shader), &shader.params()));
    EXPECT_EQ(result, (miColor{1, 2, 3, 4}));
}

} // namespace
