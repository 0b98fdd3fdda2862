// What illumination models share: channels, the light loop, self-illumination, rays and the combines.
#include "illumination_fixture.h"

#include <tuple>

using namespace orl;

namespace {

// Blinn's record, filled in as a material would before the callbacks; the callbacks are run by the tests.
class Illumination : public ModelTest {
protected:
    Illumination() { use("Blinn"), shade({}); }
    miColor& channel(MapSlot slot) { return record.channel[channel_of(record, slot)]; }
};

TEST_F(Illumination, Channels) {
    const SlotMap own = slot_map(-1, 24, 3, -1, -1, -1, -1, -1, 5, -1);
    const std::tuple<const miInteger*, miInteger, std::vector<int>> table[] = {
        {record.slotMap, 22, {0, 1, 2, 4, 3, 5, 6, 7, 22, 23, -1, -1}},
        {own.data(), 9, {-1, -1, 3, -1, -1, -1, -1, -1, 5, 10, 11, 12}}};
    for (const auto& [map, count, channels] : table)
        for (std::size_t slot = 0; slot < channels.size(); ++slot) {
            record.slotMap = map, record.channelCount = count;
            EXPECT_EQ(channel_of(record, static_cast<MapSlot>(slot)), channels[slot]) << count << ' ' << slot;
        }
}

TEST_F(Illumination, LightsByWhatTheyTell) {
    set("diffuse", 1), set("ambient", 0.5f), set("soften", 0), set("specularLevel", 2);
    set("specular", {1, 0.5f, 0.25f, 1});
    const miVector above = from(0), aside = from(60), below = from(120);
    // told, samples, ambient, diffuse and specular (red) of light 1. Seen from above, the highlight of a
    // light at 60 degrees is cos(30)^8 = 81 / 256 (glossiness 0.1: 4 * 2), twice that by its level.
    const float side = 81.0f / 128.0f;
    const std::tuple<std::optional<LightShapingRecord>, std::vector<miVector>, miVector> table[] = {
        {{}, {above}, {0, 1, 2}},
        {{}, {aside}, {0, 0.5f, side}},
        {{}, {}, {0, 0, 0}},
        {{}, {aside, above, below}, {0, 0.5f, (2 + side) / 3}}, // the mean counts those from behind
        {{{1, 0.3f, 0, 3}}, {aside}, {0, 0.3f, side}},
        {{{0, 0.3f, 0, 3}}, {aside, above}, {0, 0.75f, (2 + side) / 2}},
        {{{1, 0.3f, 0, 1}}, {aside}, {0, 0.3f, 0}},
        {{{1, 0.3f, 0, 2}}, {aside}, {0, 0, side}},
        {{{1, 0.3f, 0, 3}}, {below}, {0, 0, 0}},
        {{{1, 0.3f, 1, 3}}, {below}, {0.5f, 0, 0}}, // ambient: from anywhere, whatever it affects
        {{{1, 0.3f, 1, 2}}, {aside, above}, {0.5f, 0, 0}},
    };
    for (const auto& [told, dirs, result] : table) {
        shade({{grey(1), dirs, told}});
        expect_near({record.ambient.r, record.diffuse.r, record.diffuseLightLevel, 0},
                    {result.x, result.y, result.y, 0});
        expect_near(record.specular, {result.z, result.z / 2, result.z / 4, 0});
        if (told && dirs.back().z > 0) { // for the next reader: the cosine, where the light told none
            EXPECT_EQ(left.shapedCosine, told->valid || told->ambientOnly ? 0.3f : dirs.back().z);
        }
    }
}

TEST_F(Illumination, SelfIllumination) {
    set("diffuse", 0.5f), set("ambient", 1), set("selfIllumAmount", 0.25f), set("selfIllumColor", 3);
    const std::vector<Lamp> two{{grey(1), {{0, 0, 1}}}, {grey(1), {{0, 0, 1}}, {{0, 1, 1, 3}}}};
    shade(two);
    expect_near(record.selfIllumination, grey(0.125f));
    expect_near(record.diffuse, grey(0.375f));
    expect_near(record.ambient, grey(0.75f));
    EXPECT_NEAR(record.diffuseLightLevel, 0.75f, 1e-6f);
    maps = [this](IllumRecord& r) { channel(slot_self_illumination) = r.selfIllumination = grey(2); };
    shade(two); // no more than all
    expect_near(record.selfIllumination, grey(0.5f));
    expect_near(record.diffuse, {});
    maps = [](IllumRecord& r) { r.selfIllumination = {0, 1, 2, 0}; };
    values.selfIlluminationColorOn = miTRUE;
    shade(two);
    expect_near(record.selfIllumination, {1, 2, 3, 0}); // added to that, within its range
    expect_near(record.diffuse, grey(0.5f));
}

TEST_F(Illumination, Reflection) {
    channel(slot_specular) = {0.5f, 1, 0.25f, 0}, channel(slot_diffuse) = {1, 0.25f, 0.5f, 0};
    record.reflectionAmount = 0.5f, record.diffuseLightLevel = 0.25f;
    // dimming, its level, reflection level, amount: 0.5 (0.8 * 0.25 * 2 + 0.2)
    const float table[][4] = {{0, 0.2f, 2, 0.5f}, {1, 0.2f, 2, 0.3f}, {1, 1, 2, 0.5f}, {1, 0, 3, 0.375f}};
    for (const auto& [dim, level, reflected, amount] : table) {
        values.dimReflections = dim != 0, values.dimLevel = level, values.reflectionLevel = reflected;
        record.mapFlags = map_reflection, record.reflection = {}, channel(slot_reflection) = grey(1);
        reflect_channel(state, &record);
        expect_near(record.reflection, {0.5f * amount, amount, 0.25f * amount, 0});
    }
    record.tintReflection = tint_by_diffuse, channel(slot_reflection) = grey(1);
    reflect_channel(state, &record);
    expect_near(record.reflection, {0.375f, 0.09375f, 0.1875f, 0});
    record.features ^= feature_reflection, record.reflection = {};
    reflect_channel(state, &record);
    record.features ^= feature_reflection, record.mapFlags ^= map_reflection;
    reflect_channel(state, &record);
    expect_near(record.reflection, {}, 0);
}

TEST_F(Illumination, TransmissionFilter) {
    const miColor f{0.8f, 0.4f, 0.2f, 1}, d{0.5f, 0, 1, 1};
    EXPECT_EQ(filter_mode(0) * 100 + filter_mode(1) * 10 + filter_mode(2), 201);
    const std::tuple<int, float, miColor> table[] = {{1, 0.3f, grey(0.7f)},
                                                     {0, 0.2f, {0.4f, 0.8f, 0, 0}},
                                                     {2, 0, {1, 1, 1, 0}},            // f + 0.8, at most 1
                                                     {2, 0.375f, {1, 0.6f, 0.4f, 0}}, // f + 0.25 * 0.8
                                                     {2, 0.5f, {0.8f, 0.4f, 0.2f, 0}},
                                                     {2, 0.75f, {0.4f, 0, 0, 0}}, // f - 0.5 * 0.8, at least 0
                                                     {2, 1, grey(0)}};
    for (const auto& [mode, amount, result] : table) {
        expect_near(transmission_filter(mode, amount, f, d), result);
        EXPECT_EQ(transmission_filter(mode, amount, f, d).a, 0);
    }
}

TEST_F(Illumination, TransparencyIsTraced) {
    int seen = 0; // reflection level, use_background, use_sky
    renderer.mi_trace_transparent = [&](miColor* result, miState* s) {
        const EnvironmentSwitches* const switches = find_record(s, keys::environment_switches);
        seen = s->reflection_level * 100 + switches->use_background * 10 + switches->use_sky;
        *result = {0.5f, 1, 2, 0.75f};
        return s->type == miRAY_SHADOW ? miFALSE : miTRUE;
    };
    state->reflection_level = 3;
    for (const auto& [type, expected] : {std::pair{miRAY_SHADOW, 211},
                                         {miRAY_TRANSPARENT, 211},
                                         {miRAY_REFLECT, 210},
                                         {miRAY_REFRACT, 210},
                                         {miRAY_EYE, 211}}) {
        state->type = type;
        EXPECT_EQ(trace_transparency(state), (type == miRAY_SHADOW ? miColor{} : miColor{0.5f, 1, 2, 0.75f}));
        EXPECT_TRUE(seen == expected && state->reflection_level == 3) << seen;
    }
    EXPECT_EQ(find_record(state, keys::environment_switches), nullptr);

    record.opacity = 0.75f, record.mapFlags = map_transparent;
    channel(slot_filter) = {0.8f, 0.4f, 0.2f, 1};
    transmit_light(state, &record); // the filter colour as above: 0.4 0 0
    EXPECT_EQ(record.opacityFactor, 0.75f);
    expect_near(record.transmission, {0.2f, 0, 0, 0});
    expect_near(record.filter[0], {0.1f, 0, 0, 0});
    expect_near(record.filter[1], {0.4f, 0, 0, 0});
    values.transparencyType = 2, record.transmission = {};
    transmit_light(state, &record);
    expect_near(record.additiveTransmission, {0.5f, 1, 2, 0});
    expect_near(record.transmission, {}, 0);
    const ScopedRecord asked(state, keys::sub_material_report, {});
    transmit_light(state, &record);
    expect_near(record.additiveTransmission, {}, 0);
    expect_near(record.filter[0], grey(0.25f));
}

TEST_F(Illumination, RefractionComesFirstAndModelsMayForbidIt) {
    values.transparencyType = 2, record.opacity = 0.5f, record.refractionAmount = 0.25f;
    record.mapFlags = map_refraction | map_transparent;
    channel(slot_refraction) = {0.4f, 0.8f, 1, 1}, record.filter[0] = record.filter[1] = grey(9);
    transmit_light(state, &record); // factor 0.75 * 0.5, filter 1 - 0.375
    EXPECT_FLOAT_EQ(record.opacityFactor, 0.375f);
    expect_near(record.refraction, {0.25f, 0.5f, 0.625f, 0});
    EXPECT_EQ(intensity(record.filter[0]) + intensity(record.filter[1]), 0);
    record.features = 0;
    transmit_light(state, &record);
    EXPECT_FLOAT_EQ(record.opacityFactor, 0.375f); // left alone
    record.features = feature_traced_transparency, record.mapFlags = 0;
    transmit_light(state, &record);
    EXPECT_EQ(record.opacityFactor, 1);
    EXPECT_EQ(renderer.mi_trace_transparent.calls(), 0);
}

TEST_F(Illumination, Combines) {
    record.ambient = grey(0.1f), record.diffuse = grey(0.2f), record.selfIllumination = grey(0.3f);
    record.extraDiffuse = grey(0.4f), record.opacityFactor = 0.5f;
    record.specular = {0.25f, 0.5f, 2, 0}, record.reflection = grey(0.25f);
    record.refraction = grey(0.03f), record.transmission = grey(0.07f);
    record.additiveTransmission = {0, 0, 0.125f, 0};
    for (const auto combine : {combine_simple, combine_conserving}) { // 0.5 of the surface, 0.1 behind it
        combine(&record);
        expect_near(record.result, {1.1f, 1.35f, 2.975f, 0});
    }
    record.energyConservation = 1;
    combine_conserving(&record); // (1 - 0.5) 0.6 + 0.5; (1 - 0.75) 0.6 + 0.75; 2.25 + 0.125
    expect_near(record.result, {0.8f, 0.9f, 2.375f, 0});
}

} // namespace
