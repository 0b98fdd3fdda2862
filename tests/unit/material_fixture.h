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

inline void expect_near(const miColor& x, const miColor& y) {
    const auto differ = [](float a, float b) { return !(std::fabs(a - b) <= 1e-5f * (1 + std::fabs(b))); };
    EXPECT_FALSE(differ(x.r, y.r) || differ(x.g, y.g) || differ(x.b, y.b) || differ(x.a, y.a))
        << testing::PrintToString(x) << " instead of " << testing::PrintToString(y);
}

// Channels of the model: Blinn's. Bump, reflection and refraction lie at 8 to 10.
class MaterialTest : public ShaderTest {
protected:
    LiveShader<StandardMaterialParams> material{state, orl_StandardMaterial_init, orl_StandardMaterial_exit};
    ChannelKinds kinds = channel_kinds(channel_color, channel_color, channel_color, channel_scalar,
                                       channel_scalar, channel_color, channel_scalar, channel_color);
    SlotMap slots = slot_map(0, 1, 2, 4, 3, 5, 6, 7);
    unsigned features = 0x1F20FFE;
    std::array<miColor, channel_count> channels{};
    std::vector<miBoolean> enabled = std::vector<miBoolean>(24);
    std::vector<miTag> maps = std::vector<miTag>(24);
    std::vector<miScalar> amounts = std::vector<miScalar>(24, 1.0f);

    miColor result{};
    IllumRecord seen{}; // as the model's shade callback finds it
    int shaded = 0;
    miScalar ior[2] = {}; // in, out, of the model's call
    std::function<void(miState*, IllumRecord&)> shade = [](miState*, IllumRecord&) {};

    MaterialTest() {
        current() = this;
        material->opacity = 1;
        material->filterColor = grey(1, 1);
        material->indexOfRefraction = 1.5f;
        material->illumination = renderer.add_shader([this](void* out, miState* s, void* arg) {
            auto* const record = static_cast<IllumRecord*>(arg);
            record->features = features, record->channelKind = kinds.data(), record->channelCount = 8;
            record->slotMap = slots.data();
            std::copy(channels.begin(), channels.end(), record->channel);
            record->tintReflection = [](miState*, const IllumRecord*, miColor* c) { c->g *= 0.5f; };
            record->shade = [](miState* in, IllumRecord* r, const void*) {
                ++current()->shaded, current()->seen = *r;
                current()->shade(in, *r);
            };
            ior[0] = s->ior_in, ior[1] = s->ior;
            return record->continuation(static_cast<miColor*>(out), s, record, nullptr);
        });
    }

    void map(int channel, miTag shader, miScalar amount = 1) {
        const auto k = static_cast<std::size_t>(channel);
        enabled[k] = miTRUE, maps[k] = shader, amounts[k] = amount;
    }

    miBoolean run(miColor incoming = {}) {
        if (!started_) {
            auto& p = material.params();
            material.set_array(p.mapEnabled.first, p.mapEnabled.count, p.mapEnabled.elements, enabled);
            material.set_array(p.maps.first, p.maps.count, p.maps.elements, maps);
            material.set_array(p.mapAmounts.first, p.mapAmounts.count, p.mapAmounts.elements, amounts);
            material.start();
            started_ = true;
        }
        result = incoming, shaded = 0;
        const miTag instance = state->instance;
        state.run(material, state->type == miRAY_SHADOW ? miSHADER_SHADOW : miSHADER_MATERIAL);
        const miBoolean answer = orl_StandardMaterial(&result, state, &material.params());
        EXPECT_TRUE(state->shader == &material.function() && state->ior == 1 && state->ior_in == 1);
        EXPECT_EQ(find_record(state, keys::incoming_ray), nullptr);
        EXPECT_EQ(state->instance, instance);
        return answer;
    }

private:
    static MaterialTest*& current() {
        static MaterialTest* test;
        return test;
    }
    bool started_ = false;
};
