// The pattern and compositing maps.
#include "shader_fixture.h"
#include "tex_checker.h"
#include "tex_falloff.h"
#include "tex_mask.h"
#include "tex_mix.h"
#include "tex_tint.h"
#include "uv_map.h"

#include <tuple>

using namespace orl;

#define MAP(name, Params)                                                                                    \
    extern "C" miBoolean name(miColor*, miState*, const Params*, OutputRequest*);                            \
    INIT_AND_EXIT(name, Params)
MAP(orl_Checker, CheckerParams);
MAP(orl_Mix, MixParams);
MAP(orl_Mask, MaskParams);
MAP(orl_Tint, TintParams);
MAP(orl_Falloff, FalloffParams);

namespace {

constexpr auto color = OutputRequest::color, mono = OutputRequest::mono, vector = OutputRequest::vector;
constexpr miColor untouched{7, 7, 7, 7};

class Maps : public ShaderTest {
protected:
    std::vector<OutputRequest> asked; // of the sub-maps
    OutputRequest left{};             // the caller's record after the call

    // A sub-map with that value; a negative red: it fails, and leaves rubbish.
    miTag add_map(miColor value) {
        return renderer.add_shader([=, this](void* to, miState*, void* request) {
            asked.push_back(*static_cast<OutputRequest*>(request));
            *static_cast<miColor*>(to) = value;
            return value.r >= 0 ? miTRUE : miFALSE;
        });
    }

    template <class Params, class Map>
    miColor run(LiveShader<Params>& shader, Map map, OutputRequest request = color) {
        miColor result = untouched;
        asked.clear(), left = request;
        state.run(shader, miSHADER_TEXTURE);
        EXPECT_TRUE(map(&result, state, &shader.params(), &left));
        return result;
    }

    // What every map does, whatever its parameters are: `arm` gives it a sub-map in each place, null to take
    // them away. A vector leaves the fourth number alone, since its caller may give room for three.
    template <class Params, class Map, class Init, class Exit, class Arm>
    void expect_contract(Map map, Init init, Exit exit, Arm arm) {
        for (const bool has_buffer : {true, false}) {
            state.camera.framebuffers =
                has_buffer
                    ? renderer.add_framebuffers({{"other", miIMG_TYPE_TAG}, {"fb_mtl_id", miIMG_TYPE_TAG}})
                    : miNULLTAG;
            LiveShader<Params> shader{state, init, exit};
            shader.start();
            for (const auto& [type, id, writes] :
                 {std::tuple{miRAY_EYE, 5, true}, {miRAY_EYE, 0, false}, {miRAY_REFLECT, 5, false}}) {
                std::vector<int> written;
                renderer.mi_fb_put = [&](miState*, int buffer, void* value) {
                    EXPECT_EQ(*static_cast<const miInteger*>(value), 5);
                    written.push_back(buffer);
                    return miTRUE;
                };
                state->type = type, shader->mtlId = id, run(shader, map);
                EXPECT_EQ(written, writes ? std::vector{has_buffer ? 1 : -1} : std::vector<int>{});
            }
            for (const miTag sub : {miNULLTAG, add_map({-1, 5, 5, 5}), add_map({0.25f, 0.5f, 0.75f, 1})}) {
                arm(shader.params(), sub);
                EXPECT_EQ(run(shader, map, vector).a, untouched.a);
                miColor with_record = run(shader, map, color), without{};
                EXPECT_TRUE(map(&without, state, &shader.params(), nullptr));
                EXPECT_EQ(with_record, without);
                for (const int request : {-1, 1, 3, 99})
                    run(shader, map, static_cast<OutputRequest>(request));
            }
        }
    }
};

TEST_F(Maps, KeepTheContract) {
    expect_contract<CheckerParams>(orl_Checker, orl_Checker_init, orl_Checker_exit, [](auto& p, miTag map) {
        p.coords = p.map1 = p.map2 = map, p.map1On = p.map2On = miTRUE;
    });
    expect_contract<MixParams>(orl_Mix, orl_Mix_init, orl_Mix_exit, [](auto& p, miTag map) {
        p.map1 = p.map2 = p.mixMap = p.output = map, p.map1On = p.map2On = p.mixMapOn = miTRUE;
    });
    expect_contract<MaskParams>(orl_Mask, orl_Mask_init, orl_Mask_exit, [](auto& p, miTag map) {
        p.map1 = p.mask = map, p.map1On = p.maskOn = miTRUE;
    });
    expect_contract<TintParams>(orl_Tint, orl_Tint_init, orl_Tint_exit,
                                [](auto& p, miTag map) { p.map1 = map, p.map1On = miTRUE; });
    expect_contract<FalloffParams>(orl_Falloff, orl_Falloff_init, orl_Falloff_exit, [](auto&, miTag) {});
}

// ---- checker

// Share of the second kind in a box by counting points; 400 x 400 points are off by their edges' share at
// most.
float counted_share(double u, double v, double wu, double wv) {
    constexpr int n = 400;
    int second = 0;
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < n; ++k) {
            const double x = u + ((i + 0.5) / n - 0.5) * wu, y = v + ((k + 0.5) / n - 0.5) * wv;
            second += (x - std::floor(x) > 0.5) == (y - std::floor(y) > 0.5);
        }
    return static_cast<float>(second) / (n * n);
}

TEST_F(Maps, CheckerIsFilteredExactly) {
    for (const auto& [u, v, wu, wv] : {std::tuple{0.25f, 0.25f, 0.1f, 0.1f},
                                       {0.5f, 0.3f, 0.2f, 0.3f},
                                       {-1.03f, 2.6f, 0.4f, 0.7f},
                                       {-3.7f, -0.2f, 1.3f, 0.05f},
                                       {10.4f, -7.1f, 5.2f, 3.3f},
                                       {0.0f, 0.0f, 0.5f, 0.5f}})
        EXPECT_NEAR(checker_share(u, v, wu, wv), counted_share(u, v, wu, wv), 0.006f) << u << ' ' << v;
    // u, v: whether the point itself is of the second kind; the fraction of a negative whole number is 1
    for (const auto& [u, v, second] : {std::tuple{0.25f, 0.75f, false},
                                       {0.75f, 0.75f, true},
                                       {0.25f, 0.25f, true},
                                       {0.5f, 0.25f, true},
                                       {-1.0f, 0.75f, true},
                                       {1.0f, 0.75f, false},
                                       {-0.25f, 0.25f, false}})
        EXPECT_EQ(checker_share(u, v, 0, 0.1f), second ? 1 : 0) << u << ' ' << v;
}

TEST_F(Maps, CheckerIsSampledByItsGenerator) {
    LiveShader<CheckerParams> checker{state, orl_Checker_init, orl_Checker_exit};
    checker.start();
    checker->color1 = {1, 0, 0, 1}, checker->color2 = {0, 0, 1, 0.5f};
    EXPECT_EQ(run(checker, orl_Checker, color), (miColor{0, 0, 0, 0}));
    EXPECT_EQ(run(checker, orl_Checker, vector), (miColor{0, 0, 0, 7}));
    EXPECT_EQ(run(checker, orl_Checker, static_cast<OutputRequest>(3)), untouched);
    float u = 0.25f, width = 0;
    checker->coords = renderer.add_shader([&](void* to, miState* s, void* argument) {
        const auto& ask = *static_cast<UvBumpRequest*>(argument);
        auto* const result = static_cast<miColor*>(to);
        if (ask.magic != 0x9165200 || !ask.use_filtered)
            return miFALSE;
        if (ask.request->output != vector) {
            ask.filtered(result, s, ask.data, u, 0.75f, width, width);
            return miTRUE;
        }
        auto* const derivatives = requested<UvDerivRecord>(s);
        derivatives->dPdu = {1, 0, 0}, derivatives->dPdv = {0, 0, 1};
        ask.plain(result, s, ask.data, u, 0.75f);
        *result = {result->r * 10, 50, 0, 0};
        return miTRUE;
    });
    const float nan = not_a_number;
    // u, width, soften: share of the second kind, worked out on paper; v = 0.75 is an upper half all over
    for (const auto& [at, w, soften, share] : {std::tuple{0.25f, 0.0f, 0.0f, 0.0f},
                                               {0.75f, 0.0f, 0.0f, 1.0f},
                                               {0.5f, 0.1f, 0.0f, 0.5f},
                                               {0.5f, 0.0f, 0.1f, 0.5f},
                                               {0.45f, 0.1f, 0.1f, 0.25f},
                                               {nan, 0.1f, 0.0f, 0.0f},
                                               {infinite, infinite, 0.0f, 0.0f}}) {
        u = at, width = w, checker->soften = soften;
        const miColor c = run(checker, orl_Checker, mono);
        EXPECT_NEAR(c.b, share, 1e-5f) << at << ' ' << w;
        EXPECT_NEAR(c.a, 1 - 0.5f * share, 1e-5f);
    }
    u = 0.25f, checker->soften = 0;
    const miColor bump = run(checker, orl_Checker, vector); // hundredths of 10 and 50
    EXPECT_TRUE(std::fabs(bump.r - 0.1f) < 1e-6f && bump.g == 0 && std::fabs(bump.b - 0.5f) < 1e-6f);
    EXPECT_EQ(state->user, nullptr);
    checker->map1 = add_map({2, 2, 2, 2}), checker->map1On = miTRUE;
    EXPECT_EQ(run(checker, orl_Checker, color), (miColor{2, 2, 2, 2}));
}

// ---- compositing

TEST_F(Maps, MixChooses) {
    LiveShader<MixParams> mix{state, orl_Mix_init, orl_Mix_exit};
    mix.start();
    mix->color1 = {1, 1, 1, 1}, mix->color2 = {5, 5, 5, 5};
    mix->lower = 0.3f, mix->upper = 0.7f;
    mix->map1 = add_map({0, 0, 0, 0}); // off
    // amount, curve: share; s = 0.25 gives (3 - 0.5) / 16
    for (const auto& [amount, curve, share] : {std::tuple{0.00005f, false, 0.0f},
                                               {0.99995f, false, 1.0f},
                                               {0.25f, false, 0.25f},
                                               {0.5f, true, 0.5f},
                                               {0.3f, true, 0.0f},
                                               {0.29f, true, 0.0f},
                                               {0.7f, true, 1.0f},
                                               {0.4f, true, 0.15625f},
                                               {not_a_number, true, 0.0f}}) {
        mix->mixAmount = amount, mix->useCurve = curve;
        EXPECT_NEAR(run(mix, orl_Mix, mono).g, 1 + 4 * share, 1e-5f) << amount;
        EXPECT_EQ(left, color); // whatever was asked
    }
    mix->useCurve = miFALSE;
    mix->map1On = mix->map2On = mix->mixMapOn = miTRUE;
    mix->map1 = add_map({1, 0, 0, 1}), mix->map2 = add_map({0, 1, 0, 1});
    mix->mixAmount = 0.00005f; // blends vectors, not colours
    EXPECT_EQ(run(mix, orl_Mix, color), (miColor{1, 0, 0, 1}));
    EXPECT_FLOAT_EQ(run(mix, orl_Mix, vector).g, 0.00005f);
    mix->mixAmount = 0, run(mix, orl_Mix, vector);
    EXPECT_EQ(asked, std::vector{vector});
    mix->mixMap = add_map({0.6f, 0.3f, 0, 0}); // intensity 0.3
    EXPECT_NEAR(run(mix, orl_Mix, mono).g, 0.3f, 1e-6f);
    EXPECT_EQ(asked, (std::vector{mono, color, color}));
    EXPECT_NEAR(run(mix, orl_Mix, vector).g, 0.3f, 1e-6f);
    EXPECT_EQ(asked, (std::vector{color, vector, vector}));
    EXPECT_EQ(left, vector);
    mix->map2 = add_map({-1, 5, 5, 5});
    EXPECT_NEAR(run(mix, orl_Mix, color).r, 0.7f, 1e-6f);
    mix->output = renderer.add_shader([](void* to, miState*, void* request) {
        static_cast<miColor*>(to)->g = 10 + static_cast<float>(*static_cast<miInteger*>(request));
        return miTRUE;
    });
    EXPECT_EQ(run(mix, orl_Mix, mono).g, 10);
    EXPECT_EQ(run(mix, orl_Mix, vector).g, 12);
}

TEST_F(Maps, MaskAndTintFollowTheirInput) {
    LiveShader<MaskParams> mask{state, orl_Mask_init, orl_Mask_exit};
    mask.start();
    const miTag map = add_map({2, 4, 6, 8}), half = add_map({1, 0.5f, 0, 0}), fails = add_map({-1, 5, 5, 5});
    // input, mask, inverted: colour and vector expected, as shares of the input or of opaque white
    for (const auto& [input, by, inverted, share] : {std::tuple{miNULLTAG, miNULLTAG, false, 1.0f},
                                                     {miNULLTAG, miNULLTAG, true, 0.0f},
                                                     {map, half, false, 0.5f},
                                                     {map, half, true, 0.5f},
                                                     {map, fails, false, 0.0f},
                                                     {map, fails, true, 1.0f}}) {
        mask->map1 = input, mask->mask = by, mask->invertMask = inverted;
        mask->map1On = mask->maskOn = miTRUE;
        const miColor whole = input ? miColor{2, 4, 6, 8} : miColor{1, 1, 1, 1};
        for (const int request : {0, 1, 3}) {
            const miColor c = run(mask, orl_Mask, static_cast<OutputRequest>(request));
            EXPECT_NEAR(c.g, share * whole.g, 1e-6f);
            EXPECT_NEAR(c.a, share * whole.a, 1e-6f);
            EXPECT_TRUE(asked.empty() || (asked[0] == mono && static_cast<int>(asked[1]) == request));
        }
        EXPECT_NEAR(run(mask, orl_Mask, vector).g, input ? share * 4 : 0, 1e-6f);
        EXPECT_EQ(left, vector);
    }
    LiveShader<TintParams> tint{state, orl_Tint_init, orl_Tint_exit};
    tint.start();
    tint->tintRed = {1, 0.5f, 0, 9}, tint->tintGreen = {0, 0.25f, 0, 9}, tint->tintBlue = {0, 1, 3, 9};
    EXPECT_EQ(run(tint, orl_Tint), (miColor{1, 1.75f, 3, 1}));
    tint->map1 = map, tint->map1On = miTRUE;
    EXPECT_EQ(run(tint, orl_Tint, mono), (miColor{2, 1 + 1 + 6, 18, 8}));
    EXPECT_EQ(asked, std::vector{mono});
    for (const int request : {2, 3})
        EXPECT_EQ(run(tint, orl_Tint, static_cast<OutputRequest>(request)), (miColor{2, 4, 6, 7}));
}

TEST_F(Maps, FalloffMeasuresTheNormal) {
    LiveShader<FalloffParams> falloff{state, orl_Falloff_init, orl_Falloff_exit};
    falloff.start();
    falloff->fromValue = 10, falloff->toValue = 20;
    falloff->point = {0, 3, -4}; // from the origin, the normal's cosine is 0.6 y - 0.8 z
    state->normal = {0.48f, 0.64f, 0.6f};
    state->dir = {0, 0, -1};
    // The object's axes are the world's, turned by a quarter about z.
    constexpr miMatrix quarter{0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    renderer.set_to_space(scripted::Space::object, quarter);
    // direction: cosine
    for (const auto& [direction, x] : {std::pair{0, 0.6f},
                                       {1, 0.384f - 0.48f},
                                       {5, 0.48f},
                                       {6, 0.64f},
                                       {7, 0.6f},
                                       {8, 0.0f},
                                       {-1, 0.0f}}) {
        falloff->direction = direction, falloff->signedRange = miFALSE;
        EXPECT_NEAR(run(falloff, orl_Falloff).g, 10 + 10 * std::fabs(x), 1e-5f) << direction;
        falloff->signedRange = miTRUE;
        EXPECT_NEAR(run(falloff, orl_Falloff, mono).b, 10 + 5 * (x + 1), 1e-5f) << direction;
    }
    // Each of the object's axes is another of the normal's components.
    float sum = 0;
    for (falloff->direction = 2; falloff->direction < 5; ++falloff->direction) {
        const float x = run(falloff, orl_Falloff).g - 15; // 5 x
        sum += x * x / 25;
        EXPECT_NEAR(std::fabs(x),
                    5 * (falloff->direction == 2   ? 0.64f
                         : falloff->direction == 3 ? 0.48f
                                                   : 0.6f),
                    1e-5f);
    }
    EXPECT_NEAR(sum, 1, 1e-5f);
    falloff->direction = 1, falloff->point = state->point; // no direction
    EXPECT_NEAR(run(falloff, orl_Falloff).g, 15, 1e-5f);
    EXPECT_EQ(run(falloff, orl_Falloff, static_cast<OutputRequest>(3)), (miColor{0, 0, 0, 7}));
}

} // namespace
