// The photographic operator with the tone-map library, and, built without its path, in a process that cannot
// find one. The expected colours were worked out apart from the library's formulas.
#include "orl_toneop.h"
#include "orl_toneopphoto.h"
#include "shader_fixture.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

using namespace orl;

ENTRY_POINT(orl_ToneOpPhoto, miColor, ToneOpPhotoParams);
INIT_AND_EXIT(orl_ToneOpPhoto, ToneOpPhotoParams);

namespace {

#ifdef ORL_FILE_ARCHITECTURAL
constexpr bool library_is_there = true;
#else
constexpr bool library_is_there = false;
#endif

class PhotoOperator : public ShaderTest {
protected:
    LiveShader<ToneOpPhotoParams> photo{state, orl_ToneOpPhoto_init, orl_ToneOpPhoto_exit};
    const miColor traced{0.5f, 1, 2, 0.75f};

    PhotoOperator() {
        photo.params() = {miTRUE, miFALSE, 1500, {1, 0.8f, 0.6f, 1}, 200, 50, 4, 4, 0.25f, 2.2f};
        renderer.answer(miQ_FUNC_CALLTYPE, static_cast<int>(miSHADER_LENS));
        renderer.trace_color = traced;
        state.camera.x_resolution = 640;
        state.camera.y_resolution = 480;
    }
    miColor shade_at(float x, float y) {
        state->raster_x = x;
        state->raster_y = y;
        miColor result{};
        EXPECT_TRUE(orl_ToneOpPhoto(&result, state, &photo.params()));
        return result;
    }
};

TEST_F(PhotoOperator, ExposesColors) {
    photo.start();
    EXPECT_EQ(renderer.messages().size(), library_is_there ? 0u : 1u); // that colours pass
    // Exposure 0.65 * 200 / (78 * 16 * 50) of 477.46 cd/m2, white balance, x (1 + x / 4) / (1 + x),
    // gamma 2.2.
    expect_near(shade_at(320, 240),
                library_is_there ? miColor{0.5897516f, 0.8062805f, 1.0896131f, 0.75f} : traced);
    // The lens sees 45 degrees at the corner: a quarter of the light.
    expect_near(shade_at(0, 480),
                library_is_there ? miColor{0.3392643f, 0.4935782f, 0.7059462f, 0.75f} : traced);
}

TEST_F(PhotoOperator, WorksWithoutResolutionAndWithOddValues) {
    state.camera.x_resolution = state.camera.y_resolution = 0;
    photo.start();
    expect_near(shade_at(0, 480),
                library_is_there ? miColor{0.5897516f, 0.8062805f, 1.0896131f, 0.75f} : traced);

    LiveShader<ToneOpPhotoParams> odd{state, orl_ToneOpPhoto_init, orl_ToneOpPhoto_exit};
    odd->enabled = miTRUE; // and everything else 0: no film, no gamma, no white
    odd.start();
    state->camera = nullptr;
    miColor result{};
    EXPECT_TRUE(orl_ToneOpPhoto(&result, state, &odd.params()));
    EXPECT_FALSE(std::isnan(result.r + result.g + result.b));
}

TEST_F(PhotoOperator, InverseBringsColorsBack) {
    photo.start();
    renderer.mi_trace_eye = [&](miColor* color, miState* s, miVector*, miVector*) {
        for (float level = 1e-3f; level < 1001; level *= 3) {
            const miColor before = {level, level / 2, level / 4, 0.5f};
            miColor there = before;
            EXPECT_EQ(ToneOpScaledToRGB(s, &there, miFALSE), library_is_there);
            EXPECT_EQ(ApplyInverseToneOperator(s, &there), library_is_there);
            EXPECT_NEAR(there.r / before.r, 1, 1e-4);
            EXPECT_NEAR(there.g / before.g, 1, 1e-4);
            EXPECT_NEAR(there.b / before.b, 1, 1e-4);
        }
        *color = traced;
        return miTRUE;
    };
    shade_at(10, 20);
}

bool is_loaded() {
#ifdef _WIN32
    return GetModuleHandleA("architectural.dll") != nullptr;
#else
    void* const library = dlopen("architectural.so", RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
#endif
}

TEST_F(PhotoOperator, GivesTheLibraryBack) {
    {
        LiveShader<ToneOpPhotoParams> brief{state, orl_ToneOpPhoto_init, orl_ToneOpPhoto_exit};
        brief.start();
        EXPECT_EQ(is_loaded(), library_is_there);
    }
    EXPECT_FALSE(is_loaded());
}

} // namespace
