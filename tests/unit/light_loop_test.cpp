// The light loop: which lights it walks, what it tells and asks them, and what it adds up.
#include "shader_fixture.h"

#include <map>

using namespace orl;

namespace {

constexpr miColor white{1, 1, 1, 1};

class LightLoop : public ShaderTest {
protected:
    struct NodeRecord {
        orl_NodeData node{};
        miTag more[4]{}; // elements of `lights`

        NodeRecord(bool all, const std::vector<miTag>& list) {
            const auto elements = offsetof(orl_NodeData, lights) + offsetof(orl_TagArray, elements);
            node.all_lights = all;
            node.lights.first = static_cast<miInteger>((sizeof node - elements) / sizeof(miTag));
            node.lights.count = static_cast<miInteger>(list.size());
            std::copy(list.begin(), list.end(), more);
        }
    };

    // What the light shaders answer in the loop's record, and how much of their light shadows leave.
    std::map<miTag, orl_LightShapingRecord> answers;
    std::map<miTag, float> left_by_shadow;

    LightLoop() {
        state->instance = add_instance_with(miNULLTAG);
        renderer.mi_sample_light = [this](miColor* color, miVector* dir, miScalar* dot_nl, miState* at,
                                          miTag light, miInteger* samples) {
            const miBoolean lit = renderer.mi_sample_light.unscripted(color, dir, dot_nl, at, light, samples);
            if (lit && answers.count(light))
                *find_record(at, keys::light_shaping) = answers[light];
            if (lit && at->options->shadow && left_by_shadow.count(light))
                color->r *= left_by_shadow[light], color->g *= left_by_shadow[light],
                    color->b *= left_by_shadow[light];
            return lit;
        };
    }

    miTag light(const std::vector<scripted::LightSample>& samples) {
        renderer.lights = {renderer.add_light(samples)};
        return renderer.lights[0];
    }

    std::vector<miTag> visited() {
        std::vector<miTag> tags;
        IllumAccumulate(
            state,
            [](miState*, miTag tag, orl_LightShapingRecord*, void* list) {
                static_cast<std::vector<miTag>*>(list)->push_back(tag);
            },
            &tags);
        return tags;
    }
};

TEST_F(LightLoop, WalksTheLightsOfTheNode) {
    const miTag a = renderer.add_light({}), b = renderer.add_light({}), c = renderer.add_light({});
    const miTag group = renderer.add_group({b, miNULLTAG, c});
    renderer.lights = {a, group};
    EXPECT_EQ(visited(), (std::vector{a, b, c})) << "of a scene without records";
    const struct {
        bool all;
        std::vector<miTag> list, expected;
    } cases[] = {{false, {}, {}},
                 {false, {miNULLTAG, c, a}, {c, a}},
                 {false, {group, a}, {b, c, a}},
                 {true, {c}, {c, a, b, c}}};
    for (const auto& [all, list, expected] : cases) {
        set_node(NodeRecord(all, list));
        EXPECT_EQ(visited(), expected);
    }
    for (const miRay_type type : {miRAY_LIGHT, miRAY_SHADOW, miRAY_DISPLACE}) {
        state->type = type;
        EXPECT_EQ(visited(), std::vector<miTag>()) << type;
    }
    state->type = miRAY_REFLECT;
    EXPECT_EQ(visited().size(), 4u);
    state->instance = miNULLTAG;
    EXPECT_TRUE(visited().empty());
}

TEST_F(LightLoop, ResetsTheStoredRecordButForAmbientOnly) {
    renderer.lights = {renderer.add_light({}), renderer.add_light({})};
    const ScopedRecord outer(state, keys::light_shaping, {7, 7, 7, 7});
    miInteger ambient_before = 0; // of the light before
    IllumAccumulate(
        state,
        [](miState* at, miTag, orl_LightShapingRecord* record, void* context) {
            auto& before = *static_cast<miInteger*>(context);
            EXPECT_EQ(record, find_record(at, keys::light_shaping)); // where lights write
            EXPECT_EQ(record->valid, 0);
            EXPECT_EQ(record->shapedCosine, 1);
            EXPECT_EQ(record->affectFlags, 3);
            EXPECT_EQ(record->ambientOnly, before);
            *record = {1, 0.5f, before = 1, 0};
        },
        &ambient_before);
    EXPECT_EQ(ambient_before, 1);
    EXPECT_EQ(outer.get()->valid, 7); // the loop around this one goes on
}

TEST_F(LightLoop, AddsUpIlluminance) {
    const std::vector<scripted::LightSample> two = {{{1, 2, 4, 1}, {}, 0.5f}, {{3, 0, 0, 1}, {}, 0.25f}},
                                             behind = {{white, {}, -1}, {white, {}, 0.5f}};
    const struct {
        const char* what;
        std::vector<scripted::LightSample> samples;
        bool answers;
        orl_LightShapingRecord answer;
        miBoolean diffuse, ambient;
        miColor expected; // on top of 10
    } cases[] = {
        // (0.5 (1, 2, 4) + 0.25 (3, 0, 0)) / 2
        {"cosine", two, false, {}, 1, 0, {10.625f, 10.5f, 11, 1}},
        {"one sample", {two[0]}, false, {}, 1, 0, {10.5f, 11, 12, 1}},
        // (0.5 (1, 1, 1)) / 2: the sample from behind counts in the number
        {"from behind", behind, false, {}, 1, 0, {10.25f, 10.25f, 10.25f, 1}},
        // 0.75 (4, 2, 4) / 2
        {"shaped", two, true, {1, 0.75f, 0, 1}, 1, 0, {11.5f, 10.75f, 11.5f, 1}},
        {"not asked for", two, false, {}, 0, 1, {10, 10, 10, 1}},
        {"highlights only", two, true, {1, 0.75f, 0, 2}, 1, 1, {10, 10, 10, 1}},
        // (4, 2, 4) / 2
        {"ambient", two, true, {1, 0.75f, 1, 0}, 0, 1, {12, 11, 12, 1}},
        {"ambient, not asked for", two, true, {1, 0.75f, 1, 3}, 1, 0, {10, 10, 10, 1}},
    };
    for (const auto& row : cases) {
        const miTag tag = light(row.samples);
        if (row.answers)
            answers[tag] = row.answer;
        orl_Illuminance sum{{10, 10, 10, 0}, row.diffuse, row.ambient};
        ComputeIlluminance(state, &sum);
        EXPECT_EQ(sum.color, row.expected) << row.what;
    }
}

TEST_F(LightLoop, ShadowIsTheShareOfLightThatArrives) {
    const struct {
        const char* what;
        float brightness, left;
        int shadow;
        float expected;
        int loops;
    } cases[] = {{"a quarter arrives", 1, 0.25f, 1, 0.25f, 2},
                 {"brighter with shadows", 1, 2, 1, 0.5f, 2}, // 1 / 2
                 {"less than nothing", 1, -1, 's', 0, 2},
                 {"in full shadow", 1, 0, 1, 0, 2},
                 {"hardly lit", 0.009f, 0, 1, 1, 2}, // 0.0045, at a cosine of 0.5
                 {"just lit", 0.011f, 0, 1, 0, 2},
                 {"shadows off", 1, 0.25f, 0, 1, 1}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        const float c = row.brightness;
        left_by_shadow = {{light({{{c, c, c, 1}, {}, 0.5f}}), row.left}};
        state.options.shadow = row.shadow;
        renderer.mi_sample_light.reset_calls();
        EXPECT_FLOAT_EQ(IllumShadow(state), row.expected);
        EXPECT_EQ(renderer.mi_sample_light.calls(), 2 * row.loops);
        EXPECT_EQ(state->options, &state.options);
        EXPECT_EQ(state.options.shadow, row.shadow);
    }
}

} // namespace
