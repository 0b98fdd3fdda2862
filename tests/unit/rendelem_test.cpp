// The light loop, and render elements from the handler lens to the frame buffers. A scripted eye ray stands
// for the materials.
#include "orl_rendelem.h"
#include "orl_stdelem.h"
#include "shader_fixture.h"

using namespace orl;

ENTRY_POINT(orl_RenderElementHandler, miColor, RenderElementHandlerParams);
INIT_AND_EXIT(orl_RenderElementHandler, RenderElementHandlerParams);
extern "C" miBoolean orl_StdRenderElements(miColor*, miState*, const StdElementParams*,
                                           orl_RenderElementCall*);
extern "C" void orl_StdRenderElements_exit(miState*, StdElementParams*);

namespace {

// ---- the light loop

struct NodeRecord {
    orl_NodeData node;
    miTag lights[4]; // elements of the node's
};

class LightLoop : public ShaderTest {
protected:
    std::optional<orl_LightShapingRecord> answer; // what light shaders write
    float left_by_shadow = 1;
    miInteger shadow = 0; // option

    LightLoop() {
        state->instance = add_instance_with(miNULLTAG);
        renderer.mi_sample_light = [this](miColor* c, miVector* dir, miScalar* dot_nl, miState* at,
                                          miTag light, miInteger* samples) {
            EXPECT_EQ(state.options.shadow, shadow) << "the renderer's own";
            const miBoolean lit = renderer.mi_sample_light.unscripted(c, dir, dot_nl, at, light, samples);
            if (lit && answer)
                *find_record(at, keys::light_shaping) = *answer;
            const float left = at->options->shadow ? left_by_shadow : 1;
            *c = {c->r * left, c->g * left, c->b * left, 1};
            return lit;
        };
    }

    std::vector<miTag> visited() {
        std::vector<miTag> tags;
        const auto visit = [](miState* at, miTag tag, orl_LightShapingRecord* record, void* list) {
            auto& seen = *static_cast<std::vector<miTag>*>(list);
            EXPECT_EQ(record, find_record(at, keys::light_shaping)); // where lights write
            EXPECT_TRUE(record->valid == 0 && record->shapedCosine == 1 && record->affectFlags == 3);
            EXPECT_EQ(record->ambientOnly, seen.empty() ? 0 : 1); // as the light before has left it
            *record = {1, 0.5f, 1, 0};
            seen.push_back(tag);
        };
        IllumAccumulate(state, visit, &tags);
        return tags;
    }
};

TEST_F(LightLoop, WalksTheLightsOfTheNode) {
    const miTag a = renderer.add_light({}), b = renderer.add_light({}), c = renderer.add_light({});
    const miTag group = renderer.add_group({b, miNULLTAG, c});
    renderer.lights = {a, group};
    const ScopedRecord outer(state, keys::light_shaping, {7, 7, 7, 7});
    EXPECT_EQ(visited(), (std::vector{a, b, c})) << "without node record";
    EXPECT_EQ(outer.get(), nullptr) << "the loop leaves no record, not even one from outside";
    const std::tuple<bool, std::vector<miTag>, std::vector<miTag>> cases[] = {{false, {}, {}},
                                                                              {false, {0, c, a}, {c, a}},
                                                                              {false, {group, a}, {b, c, a}},
                                                                              {true, {c}, {c, a, b, c}}};
    for (const auto& [all, list, expected] : cases) {
        NodeRecord record{};
        record.node.all_lights = all;
        record.node.lights.first = 2; // behind `elements` and `all_lights`
        record.node.lights.count = static_cast<miInteger>(list.size());
        std::copy(list.begin(), list.end(), record.lights);
        set_node(record);
        EXPECT_EQ(visited(), expected);
    }
    for (const miRay_type type : {miRAY_LIGHT, miRAY_SHADOW, miRAY_DISPLACE, miRAY_REFLECT}) {
        state->type = type;
        EXPECT_EQ(visited().size(), type == miRAY_REFLECT ? 4u : 0u) << type;
    }
    state->instance = miNULLTAG;
    EXPECT_TRUE(visited().empty());
}

TEST_F(LightLoop, AddsUpIlluminanceAndTellsShadow) {
    // Alone, with the cosine: (0.5 (1.5, 3, 6) + 0.25 (4.5, 0, 0)) / 3 = (0.625, 0.5, 1), the last one being
    // behind. Shaped to 0.5: 0.5 (15, 12, 15) / 3. Unlit: an average of 0.7083 times 0.007 is below 0.005.
    using Answer = std::optional<orl_LightShapingRecord>;
    const std::tuple<Answer, int, int, int, float, float, miColor, float> cases[] = {
        // clang-format off
        {{}, 1, 0, 0, 1, 0.25f, {10.625f, 10.5f, 11, 1}, 1},
        {{}, 1, 0, 1, 1, 0.25f, {10.15625f, 10.125f, 10.25f, 1}, 0.25f},
        {{}, 1, 0, 's', 1, 2, {11.25f, 11, 12, 1}, 0.5f}, // brighter with shadows
        {{}, 0, 1, 1, 1, -1, {10, 10, 10, 1}, 0},
        {{}, 1, 0, 1, 0.007f, 0, {10, 10, 10, 1}, 1}, {{}, 1, 0, 1, 0.0072f, 0, {10, 10, 10, 1}, 0},
        // highlights only, ambient only
        {{{1, 0.5f, 0, 1}}, 1, 0, 0, 1, 1, {12.5f, 12, 12.5f, 1}, 1},
        {{{1, 0.5f, 0, 2}}, 1, 1, 0, 1, 1, {10, 10, 10, 1}, 1},
        {{{1, 0.5f, 1, 0}}, 0, 1, 0, 1, 1, {15, 14, 15, 1}, 1},
        {{{1, 0.5f, 1, 3}}, 1, 0, 0, 1, 1, {10, 10, 10, 1}, 1}};
    // clang-format on
    for (const auto& [told, diffuse, ambient, option, c, left, expected, ratio] : cases) {
        renderer.lights = {renderer.add_light({{{1.5f * c, 3 * c, 6 * c, 1}, {}, 0.5f},
                                               {{4.5f * c, 0, 0, 1}, {}, 0.25f},
                                               {{9 * c, 9 * c, 9 * c, 1}, {}, -1}})};
        answer = told;
        left_by_shadow = left;
        state.options.shadow = shadow = option;
        orl_Illuminance sum{{10, 10, 10, 0}, diffuse, ambient}; // expected is on top of 10
        ComputeIlluminance(state, &sum);
        EXPECT_EQ(sum.color, expected);
        EXPECT_FLOAT_EQ(IllumShadow(state), ratio) << c;
        EXPECT_EQ(state->options, &state.options);
    }
    ComputeIlluminance(state, nullptr), IllumAccumulate(state, nullptr, nullptr);
}

// ---- the handler

// Parameters for each element; 0 behind the end of an array.
struct Lists {
    std::vector<miTag> shader;
    std::vector<miBoolean> without_shadows{}, atmosphere{}, fallback{}, enabled{1, 1};
};
using Written = std::vector<std::pair<int, miColor>>;

class RenderElements : public ShaderTest {
protected:
    static constexpr miColor black{}, white{1, 1, 1, 1}, picture{0.125f, 0, 0, 1};
    std::optional<LiveShader<RenderElementHandlerParams>> lens;
    miColor result{};

    RenderElements() {
        const miImg_type type = miIMG_TYPE_RGBA_FP;
        state.camera.framebuffers = renderer.add_framebuffers(
            {{"fb_re#0", type}, {"fb_re#4", type}, {"fb_re#5", type}, {"fb_re#10", type}});
    }

    void start(const Lists& lists, bool beauty = true) {
        auto& one = lens.emplace(state, orl_RenderElementHandler_init, orl_RenderElementHandler_exit);
        const auto set = [&](auto& array, const auto& values) {
            one.set_array(array.first, array.count, &array.elements[0], values);
        };
        set(one->elementShaders, lists.shader);
        set(one->elementEnabled, lists.enabled);
        set(one->elementWithoutShadows, lists.without_shadows);
        set(one->elementApplyAtmosphere, lists.atmosphere);
        set(one->elementBeautyFallback, lists.fallback);
        one->renderBeauty = beauty;
        one.start();
    }

    enum Habit { adds, replaces, fails, tenfold };
    miTag element(const miColor& color, Habit habit = adds) {
        return renderer.add_shader([=](void* out, miState* at, void* arg) {
            const auto* call = static_cast<const orl_RenderElementCall*>(arg);
            auto& own = *static_cast<miColor*>(out);
            EXPECT_FALSE(surface(at, black)) << "no element within another, none in the final phase";
            if (call->phase == orl_phase_post_illumination) {
                own = color;
                if (habit == replaces)
                    static_cast<orl_PostIllumData*>(call->data)->outputs.elementReplace = miTRUE;
            } else if (habit == tenfold || habit == fails) {
                const auto* data = static_cast<const orl_ElementFinal*>(call->data);
                own = {data->color.r * 10, data->distance, 0, 0};
            }
            return habit != fails;
        });
    }

    // Runs the lens and gives what it wrote; the eye ray meets what `surfaces` does.
    Written shade(const std::function<miBoolean(miState*)>& surfaces, miBoolean answer = miTRUE) {
        renderer.mi_trace_eye = [=](miColor* color, miState* at, miVector* org, miVector*) {
            EXPECT_TRUE(*color == white && at->pri == nullptr && org->z == 5) << "each pass starts anew";
            *color = picture, at->pri = at, at->org.z = 7; // 7: a lens further in
            return surfaces(at);
        };
        renderer.clear_logs();
        result = white, state->pri = nullptr, state->org.z = 5;
        EXPECT_EQ(orl_RenderElementHandler(&result, state.run(*lens, miSHADER_LENS), &lens->params()),
                  answer);
        EXPECT_TRUE(state->options == &state.options && state->pri == state);
        Written all;
        for (const auto& write : renderer.framebuffer_writes())
            all.emplace_back(write.index, write.value);
        return all;
    }

    static miBoolean surface(miState* at, const miColor& transparency) {
        orl_PostIllumData data;
        InitializeRenderElementPostIllumData(at, &data);
        data.outputs.transparency = transparency;
        return orl_CallRenderElementShaders_PostIllum(at, &data);
    }
};

TEST_F(RenderElements, GatherAlongTheEyeRayIntoTheirBuffers) {
    state.camera.volume = renderer.add_shader([](void* color, miState* at, void*) {
        at->pri = nullptr;
        return static_cast<miColor*>(color)->r += 0.25f, miTRUE;
    });
    const miColor own{0.5f, 0.25f, 1, 0.5f}, shown{0.75f, 0.3125f, 2, 0.75f}, fog{0.25f, 0, 0, 0};
    const miTag a = element(own);
    const miTag b = element(own, replaces), c = element(own, tenfold), d = element(own, fails);
    const std::vector<miBoolean> fogged{0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}, on{1, 1, 0, 1, 1, 1, 1, 1, 1, 1, 1};
    start({{c, 0, a, a, b, c, 0, 0, 0, 0, d}, {}, fogged, {0, 0, 0, 0, 0, 1}, on}, false);
    const auto two_surfaces = [](miState* at) {
        miInteger count = 0;
        return orl_GetRenderElementResults(at, &count) && count == 5 && surface(at, black) &&
               surface(at, {0.5f, 0.25f, 1, 0});
    };
    // shown: (0.5, 0.25, 1) (0.5, 0.25, 1) + (0.5, 0.25, 1); (1 - 0.5) 0.5 + 0.5
    Written all{{0, {7.5f, 5, 0, 0}}, {1, own}, {2, {10, 5, 0, 0}}, {3, fog}};
    EXPECT_EQ(shade(two_surfaces), all);
    EXPECT_EQ(result, shown) << "in place of the beauty, before its final phase";
    const auto record_lost = [](miState* at) {
        return mi_shaderstate_set(at, "ORREINT", nullptr, 0, miSS_LIFETIME_RECT), miFALSE;
    };
    for (const miBoolean beauty : {miFALSE, miTRUE}) {
        (*lens)->renderBeauty = beauty;
        all = {{0, {0, 5, 0, 0}}, {1, black}, {2, beauty ? picture : black}, {3, fog}};
        EXPECT_EQ(shade(record_lost, miFALSE), all);
        EXPECT_EQ(result, all[2].second);
    }
    EXPECT_EQ(orl_GetRenderElementResults(state, nullptr), nullptr);
}

TEST_F(RenderElements, EachKindGetsItsPass) {
    // Of each ray: shadow option, normal/unshadowed, which elements have a colour then.
    const std::tuple<int, int, std::vector<miBoolean>, bool, std::string> cases[] = {
        // clang-format off
        {'s', 0, {0, 1}, false, "0 0/1 01 115 1/0 11 "}, {1, 1, {0, 0}, true, "1 1/0 11 "},
        {1, 0, {1, 1}, true, "0 0/1 11 1 1/0 11 "}, {1, 0, {1}, false, "0 0/1 1 "},
        {0, 0, {0, 1}, true, "0 1/1 11 "}, {1, 2, {0, 1}, true, "off "},
        {1, 3, {0}, true, "off "}, {1, 0, {}, true, "off "}};
    // clang-format on
    for (const auto& [shadow, final_gather, without_shadows, beauty, expected] : cases) {
        const std::vector<miTag> elements(without_shadows.size(), element(white));
        start({elements, without_shadows}, beauty);
        state.options.shadow = shadow;
        renderer.answer(miQ_FINALGATHER_STATE, final_gather);
        std::string passes;
        const auto surfaces = [&, shadow = shadow](miState* at) -> miBoolean { // unshadowed passes fail
            const auto* record = find_record(at, keys::render_elements);
            if (record == nullptr)
                return passes += "off ", miTRUE;
            passes += std::to_string(at->options->shadow) + " " + std::to_string(record->runNormalPass) +
                      "/" + std::to_string(record->runUnshadowedPass) + " ";
            EXPECT_EQ(state.options.shadow, shadow) << "the renderer's own";
            surface(at, black);
            for (std::size_t k = 0; k < elements.size(); ++k)
                passes += record->results->color[k] == white ? "1" : "0";
            return passes += " ", !record->runUnshadowedPass;
        };
        shade(surfaces, expected.find("/1") == std::string::npos);
        EXPECT_EQ(passes, expected);
    }
}

TEST_F(RenderElements, AreFedAlongTransparentEyeRays) {
    // Ray types from the point towards the eye: 0 eye, 1 transparent, 2 reflected, 3 refracted.
    const std::pair<const char*, miBoolean> cases[] = {{"0", 1}, {"110", 1}, {"1", 1}, {"20", 0}, {"130", 0}};
    for (const auto& [path, fed] : cases) {
        miState chain[4]{};
        for (std::size_t k = 0; path[k]; ++k) {
            chain[k].type = static_cast<miRay_type>(path[k] - '0');
            chain[k].parent = path[k + 1] ? &chain[k + 1] : nullptr;
        }
        EXPECT_FALSE(RenderElementsAreBeingUsed(chain)) << "without a handler";
        const ScopedRecord record(state, keys::render_elements, {});
        EXPECT_EQ(RenderElementsAreBeingUsed(chain), fed) << path;
        EXPECT_FALSE(orl_CallRenderElementShaders_PostIllum(state, nullptr));
    }
    InitializeRenderElementPostIllumData(state, nullptr), ClearInputs(nullptr), ClearOutputs(nullptr);
}

// ---- the standard elements

class StdElements : public ShaderTest {
protected:
    scripted::ShaderInstance<StdElementParams> element;
    orl_PostIllumData data;
    miColor result{};
    static void twice(miColor* c, miState*, void*) { *c = {c->r * 2, c->g * 2, c->b * 2, c->a}; }
    const ScopedRecord<ToneOpHook> tone{state, keys::tone_operator, {1, twice, nullptr, nullptr}};

    StdElements() {
        InitializeRenderElementPostIllumData(state, &data);
        state.run(element, miSHADER_DEFAULT);
    }

    miColor run(miInteger type, miInteger phase, void* argument) {
        orl_RenderElementCall call{phase, argument};
        element->type = type;
        EXPECT_TRUE(orl_StdRenderElements(&result, state, &element.params(), &call));
        return result;
    }
    miColor at_point(miInteger type) { return run(type, orl_phase_post_illumination, &data); }
    miColor finish(miInteger type, miColor gathered, float distance = 0) {
        orl_ElementFinal final{gathered, distance, 0};
        return run(type, orl_phase_final, &final);
    }
};

TEST_F(StdElements, OfASurface) {
    orl_NodeData node{};
    node.node_id = 0x18002; // hue (2 159 - 256)/255 = 62/255, saturation 1 - 128/255
    node.all_lights = miTRUE;
    set_node(node);
    renderer.lights = {renderer.add_light({{{0.5f, 0.25f, 0, 1}, {}, 0.5f}})};
    renderer.mi_compute_irradiance = [](miColor* c, miState*) { return *c = {0.25f, 0, 0.5f, 1}, miTRUE; };
    renderer.mi_luminance = [](miState*, miColor* c) { return c->r + 10 * c->g + 100 * c->b; };
    scripted::State eye;
    eye->dir = {0, 1, 0};
    eye.camera.environment = renderer.add_shader([](void* color, miState* at, void*) {
        return *static_cast<miColor*>(color) = {at->dir.x, at->dir.y, at->dir.z, 1}, miTRUE;
    });
    state.set_parent(eye, miRAY_TRANSPARENT);
    state->motion = {3, 0, -4};
    data.inputs = {0.5f, 1, 1, orl_weight_refraction, miFALSE};
    data.outputs = {{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1},          {2, 2, 2, 1},
                    {3, 2, 1, 1}, {6, 5, 4, 1}, {0.5f, 0.5f, 0.5f, 0}, miFALSE};
    data.reflection = {8, 0, 0, 1};
    data.refraction = {0, 16, 0, 1};
    data.materialId = 1;               // hue 159/255: three sixths, and 189/255 of the next
    tone.get()->processBackground = 0; // which is for the final phase
    element->matteMaterial = element->matteMaterialId = 1;
    element->diffuse = element->specular = element->reflection = element->refraction = miTRUE;
    // The surface covers half. Tone-mapped are 2 to 6, 8, 11, 13 and 16. Blend: g = 0.5 1 + 0.5 16; lighting:
    // 0.5 (0.5, 0.25, 0) + (0.25, 0, 0.5); luminance: 0.25 + 10 0.125; material: g = 1 - 189/255; object:
    // 372/255 = 1 + 117/255, so (1 - 127/255 117/255, 1, 1 - 127/255).
    // clang-format off
    const miColor expected[] = {
        {0, 0, 0, 0.5f}, {}, {0, 2, 0, 1}, {16, 17, 2, 0.5f}, {1, 1, 0, 0.5f}, {0, 16, 0, 0.5f},
        {1, 0.25f, 1, 0.5f}, {1, 1, 1, 0.5f}, {16, 0, 0, 0.5f}, {3, 2, 1, 0.5f}, {6, 5, 4, 0.5f},
        {2, 2, 2, 0.5f}, {1, 1, 1, 0.5f}, {0, 0, 2, 0.5f}, {}, {}, {1, 0.25f, 1, 0.5f}, {3, 0, -4, 0.5f},
        {0, 0.25882353f, 1, 0.5f}, {0.77148789f, 1, 0.50196078f, 0.5f}, {1.5f, 1.5f, 1.5f, 0.5f}};
    // clang-format on
    const char traits[] = "..rcccc.ccccccrrc...c"; // r: replaces; c: made of components
    for (miInteger type = 0; type < element_type_count; ++type) {
        data.kind = data.outputs.elementReplace = 0;
        const miColor color = at_point(type), &row = expected[type];
        const float error = std::max({color.r - row.r, row.r - color.r, color.g - row.g, row.g - color.g,
                                      color.b - row.b, row.b - color.b});
        EXPECT_TRUE(error < 1e-6f && color.a == row.a) << type << ": " << testing::PrintToString(color);
        EXPECT_EQ(data.outputs.elementReplace, traits[type] == 'r') << type;
        data.kind = 1;
        EXPECT_EQ(at_point(type), traits[type] == 'c' ? miColor{} : color) << type;
    }
    EXPECT_EQ(state->dir.z, -1); // put back by the background
    element->type = element_velocity;
    orl_StdRenderElements_exit(state, &element.params());
    EXPECT_EQ(element->highestSpeed, 5); // of (3, 0, -4)
}

TEST_F(StdElements, FinalPhase) {
    const miColor gathered{0.25f, 0.5f, 0.75f, 0.375f};
    EXPECT_EQ(finish(element_atmosphere, gathered), (miColor{0.5f, 1, 1.5f, 0.75f}));
    EXPECT_EQ(finish(element_atmosphere, {0, 0, 0, 0.625f}).a, 1);
    EXPECT_EQ(finish(element_blend, gathered), (miColor{0.5f, 1, 1.5f, 0.375f}));
    EXPECT_EQ(finish(element_specular, gathered), (miColor{0.25f, 0.5f, 0.75f, 0.5f}));
    EXPECT_EQ(finish(element_alpha, {0, 0, 0, 0.5f}), (miColor{0.5f, 0.5f, 0.5f, 0.5f}));
    EXPECT_EQ(finish(element_diffuse, gathered), gathered);
    EXPECT_EQ(finish(element_type_count, {}), gathered) << "no such type writes";
    EXPECT_EQ(finish(element_z_depth, gathered), gathered) << "the ray hit nothing";
    element->nearDepth = 10, element->farDepth = 30;
    state->thread = 1; // before 0, in turns
    for (const auto& [distance, grey] :
         {std::pair{5.0f, 1.0f}, {20, 0.5f}, {25, 0.25f}, {7, 1}, {10, 1}, {31, 0}, {30, 0}}) {
        state->thread = !state->thread;
        EXPECT_EQ(finish(element_z_depth, {}, distance), (miColor{grey, grey, grey, 0}));
    }
    const auto range = [&] {
        orl_StdRenderElements_exit(state, &element.params());
        return std::pair(element->nearestDepth, element->farthestDepth);
    };
    EXPECT_EQ(range(), std::pair(7.0f, 31.0f)) << "5 was a new largest";
    finish(element_z_depth, {}, 9);
    EXPECT_EQ(range(), std::pair(9.0f, 9.0f));
    state->pri = state;
    EXPECT_EQ(finish(element_z_depth, gathered).g, 1) << "a hit at the eye";
    EXPECT_EQ(range(), std::pair(0.0f, 0.0f));
    tone.get()->processBackground = 0;
    EXPECT_EQ(finish(element_atmosphere, gathered), gathered);
    EXPECT_EQ(finish(element_blend, gathered), gathered);
}

} // namespace
