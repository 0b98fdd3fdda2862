// The standard lights: their mathematics, and what they answer to materials, volume lights and projectors.
#include "orl_light.h"
#include "shader_fixture.h"

#include <array>

using namespace orl;

#define LIGHT(name, Params)                                                                                  \
    INIT_AND_EXIT(name, Params);                                                                             \
    extern "C" miBoolean name(miColor*, miState*, const Params*, const VolumeLightRequest*)
LIGHT(orl_OmniLight, OmniLightParams);
LIGHT(orl_SpotLight, ConeLightParams);
LIGHT(orl_DirectionalLight, ConeLightParams);
LIGHT(orl_DefaultLight, DefaultLightParams);

namespace {

void expect_color(const miColor& color, const miColor& expected) {
    EXPECT_NEAR(color.r, expected.r, 1e-6f);
    EXPECT_NEAR(color.g, expected.g, 1e-6f);
    EXPECT_NEAR(color.b, expected.b, 1e-6f);
    EXPECT_NEAR(color.a, expected.a, 1e-6f);
}

TEST(LightMathematics, SoftenAndContrastBendTheCosine) {
    const struct {
        float soften, cosine, contrast, expected;
    } cases[] = {
        {0, 0.3f, 0, 0.3f},
        {1, 0.5f, 0, 0.375f},                // 0.25 * 1.5
        {0.5f, 0.5f, 0, 0.4375f},            // half way between 0.375 and 0.5
        {0, 0.5f, 100, 0.5f + 100 / 204.0f}, // 0.5 / (0.5 A + 1 - A) = 1 / (2 - A)
        {1, 0, 50, 0},
        {0.5f, 1, 30, 1},
        {0, 0.5f, 102, 0.5f + 100 / 204.0f}, // a contrast that would divide 0 by 0 acts as 100
        {0, 0.5f, -102, 0.5f},               // as 0
        {0, 0.5f, not_a_number, 0.5f},
    };
    for (const auto& each : cases) {
        const float a = contrast_weight(each.contrast);
        EXPECT_NEAR(shapeCosine(each.soften, each.cosine, a, 1 - a, each.contrast), each.expected, 1e-6f)
            << each.contrast;
    }
}

TEST(LightMathematics, ShadowsBlend) {
    // light 0.8, shadow colour 0.5; s = (1 - filter) density
    const struct {
        float filter, density, plain, affected;
    } cases[] = {
        {1, 1, 0.8f, 0.8f},       {0, 1, 0.5f, 0.4f},
        {0.75f, 1, 0.725f, 0.7f}, // s = 1/4: 0.6 + 0.125; 0.8 (0.125 + 0.75)
        {0.25f, 2, 0.75f, 0.6f},  // s = 1.5: 0.75; 0.8 * 0.75
        {0.5f, -1, 0.55f, 0.6f},  // s = -1/2: 0.8 - 0.25; 0.8 (1 - 0.25)
    };
    for (const auto& each : cases)
        for (const bool affected : {false, true}) {
            const float c = affected ? each.affected : each.plain;
            expect_color(blendShadow({0.8f, 0.8f, 0.8f, 0.3f}, {each.filter, each.filter, each.filter, 0},
                                     {0.5f, 0.5f, 0.5f, 1}, each.density, affected),
                         {c, c, c, 0.3f});
        }
}

TEST(LightMathematics, OmniPicturesLieOnACube) {
    // (p, q, w) of each face by hand, for points that lie 1/4 and 1/2 of the way off the middle
    const struct {
        miVector point;
        float u, v;
    } cases[] = {
        {{4, 2, 1}, 0.375f, 0.25f},  // 1 / -4, 2 / -4
        {{-4, 2, 1}, 0.625f, 0.25f}, // -1 / -4, 2 / -4
        {{1, 4, 2}, 0.375f, 0.25f},  // 1 / -4, 2 / -4
        {{1, -4, 2}, 0.375f, 0.75f}, // 1 / -4, -2 / -4
        {{1, 2, 4}, 0.625f, 0.25f},  // -1 / -4, 2 / -4
        {{1, 2, -4}, 0.375f, 0.25f}, // 1 / -4, 2 / -4
        {{4, 4, 1}, 0, 0.375f},      // x is not strictly larger: face +y, 4 / -4, 1 / -4
        {{1, 4, 4}, 0.625f, 0},      // nor is y larger than z: face +z, -1 / -4, 4 / -4
    };
    for (const auto& each : cases) {
        const ProjectorCoordinate at = omni_projection(each.point);
        EXPECT_TRUE(at.inside);
        EXPECT_FLOAT_EQ(at.u, each.u) << each.point.x << ' ' << each.point.y << ' ' << each.point.z;
        EXPECT_FLOAT_EQ(at.v, each.v) << each.point.x << ' ' << each.point.y << ' ' << each.point.z;
    }
    EXPECT_FALSE(omni_projection({0, 0, 0}).inside);
}

template <class Params> struct Kind {
    typename LiveShader<Params>::Init* init;
    typename LiveShader<Params>::Exit* exit;
    miBoolean (*call)(miColor*, miState*, const Params*, const VolumeLightRequest*);
};
constexpr Kind<OmniLightParams> omni{orl_OmniLight_init, orl_OmniLight_exit, orl_OmniLight};
constexpr Kind<ConeLightParams> spot{orl_SpotLight_init, orl_SpotLight_exit, orl_SpotLight};
constexpr Kind<ConeLightParams> beam{orl_DirectionalLight_init, orl_DirectionalLight_exit,
                                     orl_DirectionalLight};
constexpr Kind<DefaultLightParams> standby{orl_DefaultLight_init, orl_DefaultLight_exit, orl_DefaultLight};

constexpr auto as_it_is = [](auto&) {};

// Lights whose space is internal space, and a point on their axis 5 units away: within the cone of 60 to 90
// degrees and the beam of 6 to 8 units.
class Lights : public ShaderTest {
protected:
    struct Answer {
        bool lit;
        miColor color;
    };
    scripted::ShaderInstance<DefaultLightParams> asking;
    scripted::State asker;
    miTag fog = renderer.add_color({0, 0, 0, 0});

    Lights() {
        energy({1, 1, 1, 1});
        place({0, 0, -5});
    }
    void energy(const miColor& color) { renderer.answer(miQ_LIGHT_ENERGY, color); }
    void place(const miVector& point) {
        state.set_hit({0, 0, 0}, point, {0, 0, 1});
        state->type = miRAY_LIGHT;
        state->parent = &asker.state;
        state->pri = this;
        state->dot_nd = 0.5f;
        state->volume = fog;
    }

    template <class Params, class Setup>
    Answer shade(const Kind<Params>& kind, Setup setup, const VolumeLightRequest* request = nullptr) {
        LiveShader<Params> shader(state, kind.init, kind.exit);
        shader->color = {1, 1, 1, 1};
        shader->multiplier = 1;
        if constexpr (requires { shader->on; })
            shader->on = shader->affectDiffuse = shader->affectSpecular = miTRUE;
        if constexpr (requires { shader->hotspot; }) {
            shader->hotspot = kind.call == orl_SpotLight ? 60.0f : 6.0f;
            shader->falloff = kind.call == orl_SpotLight ? 90.0f : 8.0f;
            shader->circular = miTRUE;
            shader->aspect = 1;
        }
        setup(shader);
        shader.start();
        Answer answer{false, {9, 9, 9, 9}};
        answer.lit = kind.call(&answer.color, state, &shader.params(), request);
        return answer;
    }
    // The same of omni, spot and directional light.
    template <class Setup> std::array<Answer, 3> shade_all(Setup setup) {
        const auto one = [&](const auto& kind) {
            place(state->point);
            return shade(kind, setup);
        };
        return {one(omni), one(spot), one(beam)};
    }
    template <class Setup> void expect_all(Setup setup, const miColor& color) {
        for (const Answer& answer : shade_all(setup)) {
            EXPECT_TRUE(answer.lit);
            expect_color(answer.color, color);
        }
    }
    template <class Setup> void expect_dark(Setup setup) {
        for (const Answer& answer : shade_all(setup))
            EXPECT_FALSE(answer.lit);
    }
};

TEST_F(Lights, ColourAndDistance) {
    energy({1, 1, 2, 1});
    expect_all(
        [](auto& light) {
            light->color = {1, 0.5f, 0.25f, 7};
            light->multiplier = 2;
        },
        {2, 1, 1, 0});
    energy({1, 1, 1, 1});
    EXPECT_EQ(state->volume, miNULLTAG);
    // At 5: near from 0 to 10 leaves 1/2; far from 0 to 20, t = 3/4, leaves 1.5 * 9 / 16 = 0.84375.
    const auto near_and_far = [](auto& light) {
        light->useNearAtten = light->useFarAtten = miTRUE;
        light->nearAttenEnd = 10;
        light->farAttenEnd = 20;
    };
    expect_all(near_and_far, {0.421875f, 0.421875f, 0.421875f, 0});
    expect_all([](auto& light) { light->decayType = 1, light->decayStart = 2.5f; }, {0.5f, 0.5f, 0.5f, 0});
    expect_all([](auto& light) { light->decayType = 2, light->decayStart = 2.5f; }, {0.25f, 0.25f, 0.25f, 0});
    expect_dark([](auto& light) { light->decayType = 1; }); // decays from 0 on
    expect_dark([](auto& light) { light->on = miFALSE; });
    place({0, 0, 0});
    expect_dark(as_it_is);
    state->type = miRAY_EYE;
    expect_color(shade(spot, as_it_is).color, {1, 1, 1, 1}); // no light ray: the colour as it is
}

TEST_F(Lights, ShapesBoundTheLight) {
    // cos 50 degrees is outside of the cone; a radius of 7 is half way from 6 to 8; behind there is nothing
    const struct {
        miVector point;
        float spot, beam;
    } cases[] = {{{3.830222f, 0, -3.213938f}, 0, 1}, {{7, 0, -9}, 0.5f, 0.5f}, {{0, 0, 5}, 0, 0}};
    for (const auto& each : cases) {
        place(each.point);
        const std::array<Answer, 3> answers = shade_all(as_it_is);
        EXPECT_EQ(answers[0].color.r, 1.0f);
        EXPECT_EQ(answers[1].lit, each.spot != 0);
        EXPECT_EQ(answers[2].lit, each.beam != 0);
        EXPECT_NEAR(answers[2].lit ? answers[2].color.r : 0.0f, each.beam, 1e-6f);
    }
    for (const Answer& answer : shade_all([](auto& light) {
             if constexpr (requires { light->overshoot; })
                 light->overshoot = miTRUE;
         }))
        EXPECT_TRUE(answer.lit); // also behind
}

TEST_F(Lights, BlackIsNoLightButForOmnis) {
    const auto black = [](auto& light) { light->multiplier = 0; };
    const Answer answer = shade(omni, black);
    EXPECT_TRUE(answer.lit);
    expect_color(answer.color, {0, 0, 0, 0});
    EXPECT_FALSE(shade(spot, black).lit);
    EXPECT_FALSE(shade(beam, black).lit);
    EXPECT_FALSE(shade(standby, black).lit);
    energy({0, 0, 0, 1});
    expect_all(as_it_is, {0, 0, 0, 0});
    EXPECT_FALSE(shade(standby, as_it_is).lit);
    energy({not_a_number, 1, 1, 1});
    expect_color(shade(omni, as_it_is).color, {0, 0, 0, 0});
    EXPECT_EQ(errors().size(), 1u);
}

TEST_F(Lights, TellMaterialsHowTheyAreToBeUsed) {
    const ScopedRecord shaping(state, keys::light_shaping, {0, 1, 0, 3});
    const ScopedRecord flags(state, keys::architectural_light, {9, 9, 9});
    const auto expect = [&](float cosine, bool ambient, int affects, float diffuse, float specular,
                            int third) {
        EXPECT_EQ(shaping.get()->valid, 1);
        EXPECT_NEAR(shaping.get()->shapedCosine, cosine, 1e-6f);
        EXPECT_EQ(shaping.get()->ambientOnly, ambient);
        EXPECT_EQ(shaping.get()->affectFlags, affects);
        EXPECT_EQ(flags.get()->diffuse, diffuse);
        EXPECT_EQ(flags.get()->specular, specular);
        EXPECT_EQ(flags.get()->field_3, third);
    };
    // ambient light: from everywhere, also from behind, whatever it affects
    state->dot_nd = -0.5f;
    EXPECT_TRUE(
        shade(omni, [](auto& light) { light->ambientOnly = miTRUE, light->softenDiffuseEdge = 50; }).lit);
    EXPECT_EQ(state->dot_nd, 1.0f);
    expect(1, true, 3, 1, 0, 9);
    state->dot_nd = 0.5f;
    shade(spot, [](auto& light) { light->softenDiffuseEdge = 100, light->affectDiffuse = miFALSE; });
    expect(0.375f, false, 2, 0, 1, 0);
    shade(beam, [](auto& light) { light->contrast = 51, light->affectSpecular = miFALSE; });
    expect(0.75f, false, 1, 1, 0, 0); // 51 / 204 + 1/2
    EXPECT_TRUE(shade(standby, as_it_is).lit);
    expect(0.5f, false, 3, 1, 1, 0);
    EXPECT_EQ(state->volume, miNULLTAG);
    state->dot_nd = -0.5f;
    EXPECT_FALSE(shade(omni, as_it_is).lit);
    EXPECT_FALSE(shade(standby, as_it_is).lit);
    mi_shaderstate_set(state, keys::light_shaping.name, nullptr, 0, 2);
    EXPECT_TRUE(shade(omni, as_it_is).lit); // nobody asked about surfaces
}

TEST_F(Lights, StretchedLightsShadeInTheirOwnSpace) {
    // Half as deep: (0, 3, -4) lies at (0, 3, -2), and the normal stays. Omni and spot: 2 / sqrt(13).
    const miMatrix half{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 1};
    renderer.set_to_space(scripted::Space::light, half);
    const miScalar* const matrix = half;
    renderer.answer(miQ_INST_GLOBAL_TO_LOCAL, matrix);
    const ScopedRecord shaping(state, keys::light_shaping, {0, 1, 0, 3});
    const auto cosine = [&](const auto& kind) {
        place({0, 3, -4});
        EXPECT_TRUE(shade(kind, [](auto& light) {
                        if constexpr (requires { light->falloff; })
                            light->falloff = 150;
                    }).lit);
        return shaping.get()->shapedCosine;
    };
    EXPECT_NEAR(cosine(omni), 0.5547002f, 1e-6f);
    EXPECT_NEAR(cosine(spot), 0.5547002f, 1e-6f);
    EXPECT_NEAR(cosine(beam), 1, 1e-6f);
    state->normal = {0, 0, -1};
    EXPECT_FALSE(shade(omni, as_it_is).lit);
}

TEST_F(Lights, LeaveNodesOut) {
    const struct {
        int node;
        bool lit;
    } cases[] = {{0, true}, {1, false}, {2, true}, {3, true}, {1000000, true}, {-1, true}};
    for (const auto& each : cases) {
        orl_NodeData node{};
        node.node_id = each.node;
        set_node(node);
        for (const Answer& answer : shade_all([](auto& light) {
                 auto& list = light->excludeList;
                 light.set_array(list.first, list.count, list.elements, std::vector<miBoolean>{0, 1, 0});
             }))
            EXPECT_EQ(answer.lit, each.lit) << each.node;
    }
}

TEST_F(Lights, Shadows) {
    miBoolean passes = miTRUE;
    renderer.mi_trace_shadow = [&](miColor* light, miState*) {
        expect_color(*light, {1, 1, 1, 0});
        *light = {0.5f, 1, 0, 0};
        return passes;
    };
    const auto shadows = [](auto& light) {
        light->shadowOn = miTRUE;
        light->shadowColor = {0, 0.4f, 0.2f, 1};
        light->shadowDensity = 1;
        light->atmosphereOpacity = 0.5f;
        light->atmosphereColorAmount = 0.4f;
    };
    expect_all(shadows, {0.5f, 1, 0.2f, 0});
    EXPECT_EQ(state->volume, miNULLTAG);
    passes = miFALSE;
    const auto in_air = [&](auto& light) { shadows(light), light->atmosphereShadowsOn = miTRUE; };
    expect_all(in_air, {0, 0.4f, 0.2f, 0.2f});
    EXPECT_EQ(state->volume, fog);
    const int traced = renderer.mi_trace_shadow.calls();
    expect_all([&](auto& light) { shadows(light), light->ambientOnly = miTRUE; }, {1, 1, 1, 0});
    place({20, 0, -5}); // outside, where the light goes on without shadows
    expect_color(shade(spot, [&](auto& light) { shadows(light), light->overshoot = miTRUE; }).color,
                 {1, 1, 1, 0});
    EXPECT_EQ(renderer.mi_trace_shadow.calls(), traced);
}

TEST_F(Lights, ProjectorsAndShadowMaps) {
    miVector direction{}, coordinate{};
    miBoolean works = miTRUE;
    const miTag map = renderer.add_shader([&](void* result, miState* s, void*) {
        direction = s->dir, coordinate = s->tex;
        *static_cast<miColor*>(result) = {0.5f, 0.25f, 2, 0.1f};
        return works;
    });
    const auto projected = [&](auto& light) { light->projectorOn = miTRUE, light->projectorMap = map; };
    const auto shadow = [&](auto& light) {
        light->shadowOn = light->shadowMapOn = miTRUE, light->shadowMap = map, light->shadowDensity = 1;
    };
    renderer.mi_trace_shadow = [](miColor*, miState*) { return miFALSE; };
    // 1 / -4 and 2 / -4, the spot's mirrored; 1 / 8 and 2 / 8 of the beam
    const auto expect_at = [&](const auto& kind, float u, float v) {
        for (int as_shadow = 0; as_shadow < 2; ++as_shadow) {
            place({1, 2, -4});
            const miVector before = state->tex, way = state->dir;
            const Answer answer = as_shadow ? shade(kind, shadow) : shade(kind, projected);
            expect_color(answer.color, {0.5f, 0.25f, 2, 0});
            EXPECT_FLOAT_EQ(coordinate.x, u);
            EXPECT_FLOAT_EQ(coordinate.y, v);
            EXPECT_EQ(direction.y, 2.0f);
            EXPECT_EQ(state->tex.x, before.x);
            EXPECT_EQ(state->dir.y, way.y);
        }
    };
    expect_at(omni, 0.375f, 0.25f);
    expect_at(spot, 0.625f, 0.75f);
    expect_at(beam, 0.5625f, 0.625f);
    place({20, 0, -5}); // outside of the spot's picture
    expect_color(shade(spot, [&](auto& light) { projected(light), light->overshoot = miTRUE; }).color,
                 {1, 1, 1, 0});
    place({0, 0, -5});
    works = miFALSE;
    expect_all(projected, {0, 0, 0, 0});
    expect_all([](auto& light) { light->projectorOn = miTRUE; }, {1, 1, 1, 0}); // without a map
}

TEST_F(Lights, AnswerVolumes) {
    const auto far = [](auto& light) {
        light->color = {0, 1, 0, 1};
        light->useFarAtten = miTRUE;
        light->farAttenEnd = 8;
    };
    // Of the way from 0 to 8: 5 leaves 2.25 * (3/8)^2 = 0.3164; 4, which is the beam's way, leaves 1/2.
    constexpr float at_5 = 0.31640625f;
    for (const auto& [caller, white] : {std::pair{miSHADER_VOLUME, true},
                                        {miSHADER_LIGHT, true},
                                        {miSHADER_PHOTONVOL, true},
                                        {miSHADER_MATERIAL, false}}) {
        place({3, 0, -4});
        state->pri = nullptr;
        asker.run(asking, caller);
        const float other = white ? at_5 : 0.0f;
        expect_color(shade(omni, far).color, {other, at_5, other, 0});
        const float along = white ? 0.5f : at_5;
        expect_color(shade(beam, far).color, {white ? along : 0, along, white ? along : 0, 0});
    }
    // A record brings its own point and ranges.
    place({100, 0, 0});
    const miVector point{3, 0, -4};
    const ScopedRecord probe(state, keys::attenuation_probe, {0, 9, 0, 0, 0, 10, &point, nullptr});
    expect_color(shade(omni, far).color, {0.5f, 0.5f, 0.5f, 0});
    EXPECT_FLOAT_EQ(probe.get()->attenuation, 0.5f);
    shade(beam, [&](auto& light) { far(light), light->decayType = 1, light->decayStart = 2; });
    EXPECT_NEAR(probe.get()->attenuation, 0.648f, 1e-6f); // t = 0.6: 1.8 * 0.36, before the decay
}

TEST_F(Lights, RequestsAndPhotons) {
    miColor color{};
    const VolumeLightRequest request{1, 1, 1, 1, &state->point, &color, nullptr};
    renderer.mi_sample_light = [](miColor* result, miVector*, miScalar*, miState*, miTag,
                                  miInteger* samples) {
        *result = {1, 2, 3, 0};
        return (*samples)++ == 0 ? miTRUE : miFALSE;
    };
    EXPECT_FALSE(shade(omni, as_it_is, &request).lit);
    EXPECT_TRUE(shade(
                    spot, [](auto& light) { light->atmosphereShadowsOn = miTRUE; }, &request)
                    .lit);
    state->type = miRAY_EYE;
    EXPECT_TRUE(shade(beam, as_it_is, &request).lit);

    renderer.mi_sample = [](double* sample, int*, miState*, miUshort dimensions, const miUint*) {
        std::fill_n(sample, dimensions, 0.25);
        return miTRUE;
    };
    renderer.mi_photon_light = [](miColor*, miState*) { return miTRUE; };
    for (const miRay_type type : {miPHOTON_LIGHT, miPHOTON_EMIT_CAUSTIC, miPHOTON_EMIT_GLOBILLUM}) {
        state->type = type;
        shade(omni, as_it_is), shade(spot, as_it_is), shade(beam, as_it_is);
    }
    EXPECT_EQ(renderer.mi_photon_light.calls(), 9);
}

} // namespace
