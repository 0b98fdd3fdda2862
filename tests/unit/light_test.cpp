// The standard lights: their mathematics, and what they answer to materials, volume lights and projectors.
#include "orl_light.h"
#include "shader_fixture.h"

#include <cstring>
#include <functional>
#include <utility>

using namespace orl;

template <class Params> struct Kind {
    typename LiveShader<Params>::Init* init;
    typename LiveShader<Params>::Exit* exit;
    miBoolean (*call)(miColor*, miState*, const Params*, const VolumeLightRequest*);
};
#define LIGHT(kind, name, Params)                                                                            \
    INIT_AND_EXIT(name, Params);                                                                             \
    extern "C" miBoolean name(miColor*, miState*, const Params*, const VolumeLightRequest*);                 \
    constexpr Kind<Params> kind {                                                                            \
        name##_init, name##_exit, name                                                                       \
    }
LIGHT(omni, orl_OmniLight, OmniLightParams);
LIGHT(spot, orl_SpotLight, ConeLightParams);
LIGHT(beam, orl_DirectionalLight, ConeLightParams);
LIGHT(standby, orl_DefaultLight, DefaultLightParams);

// Settings of a light `l`, whichever it is.
#define WITH(...) [&]([[maybe_unused]] auto& l) { __VA_ARGS__; }

namespace {

constexpr miColor dark = grey(-1, -1); // instead of a colour: the light gives none

TEST(LightMathematics, CosinesShadowsAndTheCube) {
    // soften, cosine, contrast, result: half way from 0.25 * 1.5 to 0.5; 0.5 / (0.5 A + 1 - A) = 1 / (2 - A),
    // which is contrast / 204 + 1/2; contrasts that would divide by 0 act as the nearest legal one
    const float cosines[][4] = {{0.5f, 0.5f, 0, 0.4375f},   {1, 1, 50, 1},
                                {0, 0.5f, 100, 0.9901961f}, {0, 0.5f, 102, 0.9901961f},
                                {0, 0.5f, -102, 0.5f},      {0, 0.5f, not_a_number, 0.5f}};
    for (const auto& [soften, cosine, contrast, result] : cosines) {
        const float a = contrast_weight(contrast);
        EXPECT_NEAR(shapeCosine(soften, cosine, a, 1 - a, contrast), result, 1e-6f);
    }
    // filter, density, result without and with the light's colour, for light 0.8 and shadow colour 0.5:
    // s = 0; 1; 1/4: 0.6 + 0.125, 0.8 (0.125 + 0.75); 1.5: 0.75, 0.8 * 0.75; -1/2: 0.8 - 0.25, 0.8 (1 - 0.25)
    const float shadows[][4] = {{1, 1, 0.8f, 0.8f},      {0, 1, 0.5f, 0.4f},      {0.75f, 1, 0.725f, 0.7f},
                                {0.25f, 2, 0.75f, 0.6f}, {0.5f, -1, 0.55f, 0.6f}, {0.5f, 0, 0.8f, 0.8f}};
    for (const auto& [filter, density, plain, affected] : shadows) {
        const miColor light = grey(0.8f, 0.3f), shadow = grey(0.5f, 1);
        expect_near(blendShadow(light, grey(filter), shadow, density, false), grey(plain, 0.3f));
        expect_near(blendShadow(light, grey(filter), shadow, density, true), grey(affected, 0.3f));
    }
    const miColor bright = blendShadow(grey(infinite), grey(0.25f), grey(0.5f), 2, false); // 1.5 * 0.5
    expect_near(bright, grey(0.75f));
    // point, (p / w + 1) / 2, (q / w + 1) / 2 of its face; the last two are on edges and go to +y and +z
    const float faces[][5] = {{4, 2, 1, 0.375f, 0.25f},  {-4, 2, 1, 0.625f, 0.25f}, {1, 4, 2, 0.375f, 0.25f},
                              {1, -4, 2, 0.375f, 0.75f}, {1, 2, 4, 0.625f, 0.25f},  {1, 2, -4, 0.375f, 0.25f},
                              {4, 4, 1, 0, 0.375f},      {1, 4, 4, 0.625f, 0}};
    for (const auto& [x, y, z, u, v] : faces) {
        const ProjectorCoordinate at = omni_projection({x, y, z});
        EXPECT_TRUE(at.inside && at.u == u && at.v == v) << at.u << ' ' << at.v;
    }
}

// Light space is internal space. The point is on the axis, 5 units away, in a cone of 60 to 90 degrees and in
// a beam of 60 to 90 units.
class Lights : public ShaderTest {
protected:
    scripted::State asker;
    const miTag fog = renderer.add_color({0, 0, 0, 0}), lamp = renderer.add_light({});
    LightInstanceData record{};                        // of the last light
    std::function<miBoolean(miColor*, miState*)> call; // it, as it is called in turn

    Lights() { state->light_instance = lamp, energy(grey(1)), place({0, 0, -5}); }
    void energy(const miColor& color) { renderer.answer(miQ_LIGHT_ENERGY, lamp, color); }
    void place(const miVector& point) {
        state.set_hit({0, 0, 0}, point, {0, 0, 1}).set_parent(asker, miRAY_LIGHT);
        state->pri = this, state->dot_nd = 0.5f;
    }
    template <class Params, class Setup>
    miColor shade(const Kind<Params>& kind, Setup setup, const VolumeLightRequest* request = nullptr) {
        LiveShader<Params> shader(state, kind.init, kind.exit);
        shader->color = grey(1, 1), shader->multiplier = 1;
        if constexpr (requires { shader->on; })
            shader->on = shader->affectDiffuse = shader->affectSpecular = miTRUE;
        if constexpr (requires { shader->falloff; })
            shader->hotspot = 60, shader->falloff = 90, shader->circular = miTRUE, shader->aspect = 1;
        setup(shader);
        shader.start();
        state->volume = fog;
        record = *static_cast<LightInstanceData*>(shader.user_pointer());
        call = [&](miColor* color, miState* at) { return kind.call(color, at, &shader.params(), nullptr); };
        miColor color = grey(9, 9);
        return kind.call(&color, state, &shader.params(), request) ? color : dark;
    }
    // Omni, spot and directional light give the same.
    template <class Setup> void expect_all(Setup setup, const miColor& color) {
        expect_near(shade(omni, setup), color);
        expect_near(shade(spot, setup), color);
        expect_near(shade(beam, setup), color);
    }
};

TEST_F(Lights, WithoutMemoryOrNumbersAreDark) {
    place({0, 0, -5});
    stage::fail_allocations_after(0); // no shape, no light
    for (const auto type : {miPHOTON_LIGHT, miRAY_LIGHT}) {
        state->type = type;
        expect_near(shade(spot, WITH()), dark);
    }
    stage::fail_allocations_after(-1);
    energy(grey(not_a_number));
    expect_near(shade(omni, WITH()), grey(0));
    EXPECT_EQ(errors().size(), 1u);
}

TEST_F(Lights, TellMaterialsHowTheyAreToBeUsed) {
    const ScopedRecord shaping(state, keys::light_shaping, {0, 1, 0, 3});
    const ScopedRecord flags(state, keys::architectural_light, {9, 9, 9});
    const auto expect = [&](const miColor& color, float cosine, LightShapingRecord told,
                            ArchitecturalLightRecord weights) {
        EXPECT_EQ(color.r, 1.0f);
        EXPECT_NEAR(std::exchange(shaping.get()->shapedCosine, 0.0f), cosine, 1e-6f);
        EXPECT_EQ(std::memcmp(shaping.get(), &told, sizeof told), 0);
        EXPECT_EQ(std::memcmp(flags.get(), &weights, sizeof weights), 0);
    };
    state->dot_nd = -0.5f; // ambient light comes from behind, too
    expect(shade(omni, WITH(l->ambientOnly = miTRUE)), 1, {1, 0, 1, 3}, {1, 0, 9});
    EXPECT_EQ(std::exchange(state->dot_nd, 0.5f), 1.0f);
    // 0.25 * 1.5; 51 / 204 + 1/2
    expect(shade(spot, WITH(l->softenDiffuseEdge = 150; l->affectDiffuse = 0)), 0.375f, {1, 0, 0, 2},
           {0, 1, 0});
    expect(shade(beam, WITH(l->softenDiffuseEdge = not_a_number; l->contrast = 51; l->affectSpecular = 0)),
           0.75f, {1, 0, 0, 1}, {1, 0, 0});
    const miColor alone = shade(standby, WITH());
    expect(alone, 0.5f, {1, 0, 0, 3}, {1, 1, 0});
    EXPECT_TRUE(alone.a == 1.0f && state->volume == miNULLTAG);
    state->dot_nd = -0.5f;
    expect_all(WITH(), dark);
    expect_near(shade(standby, WITH()), dark);

    // A stretched light: (0, 3, -4) lies at (0, 3, -2), and the normal stays. 2 / sqrt(13) from a point. Its
    // transform differs next to nothing from one that keeps angles, and is told from that.
    const miMatrix half{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0.5f, 0, 0, 0, 0, 1};
    const miMatrix nearly{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0.999f, 0, 0, 0, 0, 1};
    renderer.set_to_space(scripted::Space::light, half);
    renderer.answer(miQ_INST_GLOBAL_TO_LOCAL, lamp, static_cast<const miScalar*>(nearly));
    place({0, 3, -4});
    expect(shade(omni, WITH()), 0.5547002f, {1, 0, 0, 3}, {1, 1, 0});
    expect(shade(beam, WITH()), 1, {1, 0, 0, 3}, {1, 1, 0});
    state->normal = {0, 0, -1};
    expect_near(shade(omni, WITH()), dark);
    mi_shaderstate_set(state, keys::light_shaping.name, nullptr, 0, 2);
    state->dot_nd = -0.5f;
    *flags.get() = {9, 9, 9};
    expect_near(shade(omni, WITH()), grey(1)); // nobody asks about surfaces
    EXPECT_EQ(flags.get()->specular, 1.0f);
    const ScopedRecord probe(state, keys::attenuation_probe, {});
    expect_near(shade(omni, WITH(l->affectSpecular = 0)), grey(1)); // nor, for the air, about materials
    EXPECT_EQ(flags.get()->specular, 1.0f);
}

TEST_F(Lights, ShadowsAndMaps) {
    miVector direction{}, coordinate{};
    float red = 0.5f;
    miBoolean passes = miTRUE, works = miTRUE;
    const miTag map = renderer.add_shader([&](void* result, miState* s, void*) {
        direction = s->dir, coordinate = s->tex;
        *static_cast<miColor*>(result) = {red, 0.25f, 2, not_a_number}; // whose alpha does not count
        return works;
    });
    renderer.mi_trace_shadow = [&](miColor* light, miState*) {
        expect_near(std::exchange(*light, {0.5f, 1, 0, 0}), grey(1));
        coordinate.z = 1; // marks that the look-up came first
        return passes;
    };
    const auto shadow = WITH(l->shadowOn = miTRUE; l->shadowColor = {0, 0.4f, 0.2f, 1}; l->shadowDensity = 1;
                             l->atmosphereOpacity = 0.5f; l->atmosphereColorAmount = 0.4f;
                             l->shadowMap = l->projectorMap = map); // which are not switched on
    for (const bool shadows : {false, true}) {
        const auto setup = WITH(shadow(l); l->shadowOn = shadows; l->atmosphereShadowsOn = !shadows);
        expect_all(setup, shadows ? miColor{0.5f, 1, 0.2f, 0} : grey(1));
        shade(omni, setup);
        EXPECT_EQ(state->volume, miNULLTAG);
        EXPECT_EQ(record.omni.needsPoint, shadows);
    }
    EXPECT_EQ(record.omni.operations, &omni_shape_operations);
    passes = miFALSE;
    expect_all(WITH(shadow(l); l->atmosphereShadowsOn = miTRUE), {0, 0.4f, 0.2f, 0.2f});
    EXPECT_EQ(state->volume, fog);
    const int traced = renderer.mi_trace_shadow.calls();
    expect_all(WITH(shadow(l); l->ambientOnly = miTRUE), grey(1));
    const auto projected = WITH(l->projectorOn = miTRUE; l->projectorMap = map);
    place({20, 0, -5}); // beside the cone, where the light goes on without shadows and pictures
    expect_near(shade(spot, WITH(shadow(l); projected(l); l->overshoot = miTRUE)), grey(1));
    EXPECT_EQ(renderer.mi_trace_shadow.calls(), traced);

    place({1, 2, -4});
    const miVector tex = state->tex, dir = state->dir;
    const auto expect_at = [&](const auto& kind, float u, float v) {
        const auto mapped = WITH(shadow(l); l->shadowMapOn = miTRUE; l->shadowMap = map);
        for (const miColor& color : {shade(kind, projected), shade(kind, mapped)})
            expect_near(color, {0.5f, 0.25f, 2, 0});
        EXPECT_LT(std::fabs(coordinate.x - u) + std::fabs(coordinate.y - v), 1e-6f);
        EXPECT_TRUE(direction.y == 2 && coordinate.z == 1 && state->tex.x == tex.x && state->dir.y == dir.y);
    };
    expect_at(omni, 0.375f, 0.25f);        // 1 / -4 and 2 / -4
    expect_at(spot, 0.625f, 0.75f);        // the same mirrored
    expect_at(beam, 0.505556f, 0.511111f); // 1 / 90 and 2 / 90
    red = not_a_number;
    expect_near(shade(omni, projected), grey(0));
    expect_near(shade(omni, WITH(shadow(l); l->shadowColor.g = not_a_number)), grey(0));
    EXPECT_EQ(errors().size(), 2u);
    red = 0.5f, works = miFALSE;
    expect_near(shade(omni, projected), grey(0));
    EXPECT_TRUE(record.omni.needsPoint);
}

TEST_F(Lights, AnswerVolumeLights) {
    renderer.mi_sample_light = [&](miColor* color, miVector*, miScalar*, miState* at, miTag, miInteger* n) {
        EXPECT_TRUE(at->parent == state && at->pri == nullptr); // a point in the air
        miState ray = *at;
        ray.parent = at, ray.type = miRAY_LIGHT, ray.dist = 1;
        return *n == 0 && ++*n && call(color, &ray);
    };
    renderer.mi_trace_shadow = [](auto...) { return miFALSE; };
    // Factors 1/2 and 3/2: near 2 to 6, far 4 to 12, decay from 3 on. At 5 t = 3/4 and 7/8, decay 0.6:
    // 0.84375 * 0.95703125 * 0.6; of the spot's cone 0.62559 (as above). At 4 along the beam 1/2 * 1 * 3/4.
    const auto stretched =
        WITH(l->useNearAtten = l->useFarAtten = miTRUE; l->nearAttenStart = l->nearAttenEnd = 4;
             l->farAttenStart = l->farAttenEnd = 8; l->decayType = 1; l->decayStart = 2;
             l->shadowColor = grey(0.4f, 1));
    const miMatrix to_light{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 7, 1};
    renderer.set_to_space(scripted::Space::light, to_light);
    const miVector points[] = {{0, 0, -47}, {3, 0, -11}, {0, 0, -47}}; // two are too far away
    miColor answers[3] = {};
    miScalar attenuations[3] = {};
    const VolumeLightRequest request{
        VolumeLightRequest::magic_number, lamp, 0.5f, 1.5f, 3, points, answers, attenuations};
    state->type = miRAY_EYE;
    const auto expect = [&](const auto& kind, float color, float ranges) {
        for (const float density : {0.0f, 1.0f, -1.0f}) { // no shadow, nothing else, taken from the light
            const auto setup = WITH(stretched(l); l->shadowOn = density != 0; l->shadowDensity = density);
            expect_near(shade(kind, setup, &request), grey(1, 1));
            expect_near(answers[1], grey(density > 0 ? 0.4f : color + 0.4f * density));
            EXPECT_NEAR(attenuations[1], ranges, 1e-6f);
            EXPECT_TRUE(attenuations[0] == 0 && attenuations[2] == 0);
        }
    };
    expect(omni, 0.48449707f, 0.48449707f);
    expect(spot, 0.30309737f, 0.48449707f);
    expect(beam, 0.375f, 0.375f);
    state->type = miRAY_LIGHT; // along light rays only if the atmosphere throws shadows
    expect_near(shade(omni, stretched, &request), dark);
    expect_near(shade(omni, WITH(stretched(l); l->atmosphereShadowsOn = miTRUE), &request), grey(1, 1));
}

} // namespace
