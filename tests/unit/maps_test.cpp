// The pattern and compositing maps.
#include "shader_fixture.h"
#include "tex_checker.h"
#include "tex_falloff.h"
#include "tex_mask.h"
#include "tex_mix.h"
#include "tex_tint.h"
#include "uv_map.h"

#include <bit>
#include <tuple>

using namespace orl;

#define MAP(name, Params)                                                                                    \
    extern "C" miBoolean name(miColor*, miState*, const Params*, OutputRequest*);                            \
    INIT_AND_EXIT(name, Params)
#define MAP_ENTRIES(name) name, name##_init, name##_exit
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

    // Where a coordinate generator samples its map. The slope that it answers is ten times the map's red
    // along u, which goes along x, and 50 along v, along z.
    struct {
        float u = 0.5f, v = 0.75f, width = 0.1f;
        bool fails = false;
        OutputRequest asked{};
    } generator;

    miTag add_generator() {
        return renderer.add_shader([this](void* to, miState* s, void* argument) {
            const auto& [magic, plain, request, use_filtered, filtered, data] =
                *static_cast<UvBumpRequest*>(argument);
            auto* const result = static_cast<miColor*>(to);
            const auto& [u, v, width, fails, unused] = generator;
            generator.asked = request->output;
            if (magic != 0x9165200 || !use_filtered)
                return miFALSE;
            filtered(result, s, data, u, v, width, width);
            if (request->output == vector) {
                auto* const derivatives = requested<UvDerivRecord>(s);
                derivatives->dPdu = {1, 0, 0}, derivatives->dPdv = {0, 0, 1};
                plain(result, s, data, u, v);
                *result = {result->r * 10, 50, 0, 0};
            }
            return fails ? miFALSE : miTRUE;
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

    // What every map does: a sub-map that is off is as none, one that fails as transparent black; no record
    // asks for colour; a vector leaves the fourth number alone, since its caller may give room for three.
    // `places` are the parameters that take a sub-map, each with its switch.
    template <class Params> using Places = std::vector<std::pair<miTag Params::*, miBoolean Params::*>>;
    template <class Params, class Map, class Init, class Exit, class Prepare>
    void expect_contract(Map map, Init init, Exit exit, Places<Params> places, Prepare prepare) {
        state.camera.framebuffers =
            renderer.add_framebuffers({{"other", miIMG_TYPE_TAG}, {"fb_mtl_id", miIMG_TYPE_TAG}});
        LiveShader<Params> shader{state, init, exit};
        shader.start();
        prepare(shader.params());
        for (const auto& [type, id] : {std::pair{miRAY_EYE, 5}, {miRAY_EYE, 0}, {miRAY_REFLECT, 5}}) {
            renderer.clear_logs();
            state->type = type, shader->mtlId = id, run(shader, map);
            const auto writes = renderer.framebuffer_writes();
            EXPECT_EQ(writes.size(), type == miRAY_EYE && id == 5 ? 1u : 0u);
            EXPECT_TRUE(writes.empty() ||
                        (writes[0].index == 1 && std::bit_cast<int>(writes[0].value.r) == 5));
        }
        for (const int number : {-1, 0, 1, 2, 3}) {
            const auto request = static_cast<OutputRequest>(number);
            const auto answer = [&] {
                miColor result = run(shader, map, request), no_record{};
                if (request == color) {
                    EXPECT_TRUE(map(&no_record, state, &shader.params(), nullptr));
                    EXPECT_EQ(result, no_record);
                }
                return result;
            };
            const miColor without = answer();
            if (request == vector) {
                EXPECT_EQ(without.a, untouched.a);
            }
            for (const auto& [place, on] : places) {
                const auto with = [&, place = place, on = on](miColor value, bool is_on) {
                    shader.params().*place = add_map(value), shader.params().*on = is_on;
                    return answer();
                };
                EXPECT_EQ(with({2, 2, 2, 2}, false), without) << number;
                EXPECT_TRUE(asked.empty());
                EXPECT_EQ(with({-1, 5, 5, 5}, true), with({0, 0, 0, 0}, true)) << number;
                EXPECT_FALSE(asked.empty() && number >= 0 && number <= 2);
                shader.params().*place = miNULLTAG;
            }
        }
    }
};

TEST_F(Maps, KeepTheContract) {
    using Checker = CheckerParams;
    using Mix = MixParams;
    using Mask = MaskParams;
    using Tint = TintParams;
    expect_contract<Checker>(MAP_ENTRIES(orl_Checker),
                             {{&Checker::map1, &Checker::map1On}, {&Checker::map2, &Checker::map2On}},
                             [&](Checker& p) { p.coords = add_generator(), p.color1.r = p.color2.g = 1; });
    expect_contract<Mix>(
        MAP_ENTRIES(orl_Mix),
        {{&Mix::map1, &Mix::map1On}, {&Mix::map2, &Mix::map2On}, {&Mix::mixMap, &Mix::mixMapOn}},
        [](Mix& p) { p.mixAmount = 0.5f, p.color1.r = p.color2.g = 1; });
    expect_contract<Mask>(MAP_ENTRIES(orl_Mask), {{&Mask::map1, &Mask::map1On}, {&Mask::mask, &Mask::maskOn}},
                          [](Mask&) {});
    expect_contract<Tint>(MAP_ENTRIES(orl_Tint), {{&Tint::map1, &Tint::map1On}},
                          [](Tint& p) { p.tintRed.r = 1; });
    expect_contract<FalloffParams>(MAP_ENTRIES(orl_Falloff), {}, [](FalloffParams& p) { p.toValue = 1; });
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

// ---- compositing

TEST_F(Maps, MixChooses) {
    LiveShader<MixParams> mix{state, orl_Mix_init, orl_Mix_exit};
    mix.start();
    mix->color1 = {1, 1, 1, 1}, mix->color2 = {5, 5, 5, 5};
    mix->lower = 0.3f, mix->upper = 0.7f;
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
    for (const float alone : {0.0f, 1.0f}) {
        mix->mixAmount = alone;
        EXPECT_EQ(run(mix, orl_Mix, vector).g, alone);
        EXPECT_EQ(asked, std::vector{vector});
    }
    mix->mixAmount = 0.4f, mix->useCurve = miTRUE;
    EXPECT_NEAR(run(mix, orl_Mix, vector).g, 0.15625f, 1e-6f);
    mix->useCurve = miFALSE;
    mix->mixMap = add_map({0.6f, 0.3f, 0, 0}); // intensity 0.3
    EXPECT_NEAR(run(mix, orl_Mix, mono).g, 0.3f, 1e-6f);
    EXPECT_EQ(asked, (std::vector{mono, color, color}));
    EXPECT_NEAR(run(mix, orl_Mix, vector).g, 0.3f, 1e-6f);
    EXPECT_EQ(asked, (std::vector{color, vector, vector}));
    EXPECT_EQ(left, vector);
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
    const miTag map = add_map({2, 4, 6, 8}), half = add_map({1, 0.5f, 0, 0});
    // input, mask, inverted: colour and vector expected, as shares of the input or of opaque white
    for (const auto& [input, by, inverted, share] : {std::tuple{miNULLTAG, miNULLTAG, false, 1.0f},
                                                     {miNULLTAG, miNULLTAG, true, 0.0f},
                                                     {map, half, false, 0.5f},
                                                     {map, half, true, 0.5f}}) {
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
    EXPECT_EQ(run(tint, orl_Tint, vector), (miColor{0, 0, 0, 7}));
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
    state->normal = {0.48f, 0.64f, 0.6f};
    state->dir = {0, 0, -1};
    state->point = {1, 2, 3};
    // Object space is turned by a quarter about z; the world's axes are y, z, x, with z moved by 5.
    constexpr miMatrix to_object{0, -1, 0, 0, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    constexpr miMatrix to_world{0, 0, 1, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 5, 1};
    renderer.set_to_space(scripted::Space::object, to_object);
    renderer.set_to_space(scripted::Space::world, to_world);
    // Internal space: 3 y - 4 z from the state's point, so that the cosine is 0.6 * 0.64 - 0.8 * 0.6; and
    // that point itself, which has no direction.
    constexpr miVector there{5, -1, 6}, here{2, 3, 6};
    for (const auto& [direction, point, x] : {std::tuple{0, there, 0.6f},
                                              {1, there, -0.096f},
                                              {1, here, 0.0f},
                                              {2, there, 0.64f},
                                              {3, there, -0.48f},
                                              {4, there, 0.6f},
                                              {5, there, 0.64f},
                                              {6, there, 0.6f},
                                              {7, there, 0.48f},
                                              {8, there, 0.0f},
                                              {-1, there, 0.0f}}) {
        falloff->direction = direction, falloff->point = point, falloff->signedRange = miFALSE;
        EXPECT_NEAR(run(falloff, orl_Falloff).g, 10 + 10 * std::fabs(x), 1e-5f) << direction;
        falloff->signedRange = miTRUE;
        const miColor grey = run(falloff, orl_Falloff, mono);
        EXPECT_NEAR(grey.b, 10 + 5 * (x + 1), 1e-5f) << direction;
        EXPECT_EQ(grey, (miColor{grey.b, grey.b, grey.b, 1}));
    }
    EXPECT_EQ(run(falloff, orl_Falloff, vector), (miColor{0, 0, 0, 7}));
    EXPECT_EQ(run(falloff, orl_Falloff, static_cast<OutputRequest>(3)), (miColor{0, 0, 0, 7}));
}

} // namespace
