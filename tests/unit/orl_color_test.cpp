// Colours by temperature: the black body and the shader. The expected sums are made by python in
// 64 bits: B(l) = l**-5 / (exp(14387860 / (l * T)) - 1), X = fsum(xbar(l) * B(l) for l in 380, 390 ... 780,
// the ends halved), Y and Z likewise.
#include "orl_color.h"
#include "shader_fixture.h"

using namespace orl;

ENTRY_POINT(zant_KelvinToColor, miColor, KelvinToColorParams);
INIT_AND_EXIT(zant_KelvinToColor, KelvinToColorParams);

namespace {

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
        // 2.4978085, 0.86645579; times the inverse of what the
        // chromaticities of the primaries of sRGB and of its white give (IEC 61966-2-1):
        miColor result{};
        EXPECT_EQ(zant_KelvinToColor(&result, state, &shader.params()), miTRUE);
        EXPECT_NEAR(result.r, 4.4894114f, 3e-6f);
        EXPECT_NEAR(result.g, 2.1015940f, 3e-6f);
        EXPECT_NEAR(result.b, 0.5567121f, 3e-6f);
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

} // namespace
