// The standard material with a scripted illumination model, which shows what it was given.
#pragma once

#include "material_call.h"
#include "orl_rendelem.h"
#include "shader_fixture.h"

#include <array>
#include <tuple>

using namespace orl;

ENTRY_POINT(orl_StandardMaterial, miColor, StandardMaterialParams);
INIT_AND_EXIT(orl_StandardMaterial, StandardMaterialParams);

constexpr miColor grey(float c, float a = 0) {
    return {c, c, c, a};
}
inline miColor color_of(const miVector& v) {
    return {v.x, v.y, v.z, 0};
}
inline void expect_near(const miColor& x, const miColor& y) {
    for (const auto& [a, b] : {std::pair{x.r, y.r}, {x.g, y.g}, {x.b, y.b}, {x.a, y.a}})
        EXPECT_NEAR(a, b, 1e-5f) << testing::PrintToString(x) << ' ' << testing::PrintToString(y);
}

// Channels of the model: Blinn's. Bump, reflection and refraction lie at 8 to 10.
class MaterialTest : public ShaderTest {
protected:
    LiveShader<StandardMaterialParams> material{state, orl_StandardMaterial_init, orl_StandardMaterial_exit};
    ChannelKinds kinds = channel_kinds(2, 2, 2, 4, 4, 2, 4, 2);
    SlotMap slots = slot_map(0, 1, 2, 4, 3, 5, 6, 7);
    unsigned features = 0x1F20FFE;
    std::array<miColor, channel_count> channels{};
    std::vector<miBoolean> enabled = std::vector<miBoolean>(24);
    std::vector<miTag> maps = std::vector<miTag>(24);
    std::vector<miScalar> amounts = std::vector<miScalar>(24, 1.0f);
    miColor result{};
    IllumRecord seen{};   // as the model's shade callback finds it
    miScalar ior[2] = {}; // in, out, of the model's call
    int shaded = 0;
    bool started = false;
    std::function<void(miState*, IllumRecord&)> shade = [](miState*, IllumRecord&) {};
    static inline MaterialTest* test;

    MaterialTest() {
        test = this;
        material->opacity = 1, material->filterColor = grey(1, 1), material->indexOfRefraction = 1.5f;
        material->illumination = renderer.add_shader([this](void* out, miState* s, void* arg) {
            auto* const record = static_cast<IllumRecord*>(arg);
            record->features = features, record->channelKind = kinds.data(), record->channelCount = 8;
            record->slotMap = slots.data(), ior[0] = s->ior_in, ior[1] = s->ior;
            std::copy(channels.begin(), channels.end(), record->channel);
            record->tintReflection = [](miState*, const IllumRecord*, miColor* c) { c->g *= 0.5f; };
            record->shade = [](miState* in, IllumRecord* r, const void*) {
                ++test->shaded, test->seen = *r, test->shade(in, *r);
            };
            return record->continuation(static_cast<miColor*>(out), s, record, nullptr);
        });
    }
    void map(std::size_t channel, miTag shader, miScalar amount = 1) {
        enabled[channel] = miTRUE, maps[channel] = shader, amounts[channel] = amount;
    }
    miBoolean run(miColor incoming = {}) {
        auto& p = material.params();
        if (!std::exchange(started, true)) {
            material.set_array(p.mapEnabled.first, p.mapEnabled.count, p.mapEnabled.elements, enabled);
            material.set_array(p.maps.first, p.maps.count, p.maps.elements, maps);
            material.set_array(p.mapAmounts.first, p.mapAmounts.count, p.mapAmounts.elements, amounts);
            material.start();
        }
        result = incoming, shaded = 0;
        const miBoolean answer = orl_StandardMaterial(&result, state.run(material), &p);
        EXPECT_TRUE(state->shader == &material.function() && state->ior == 1 && state->ior_in == 1);
        return answer;
    }
};
