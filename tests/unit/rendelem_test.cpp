// Render elements from the handler lens to the frame buffers. A scripted eye ray stands for the materials.
#include "orl_rendelem.h"
#include "shader_fixture.h"

using namespace orl;

ENTRY_POINT(orl_RenderElementHandler, miColor, RenderElementHandlerParams);
INIT_AND_EXIT(orl_RenderElementHandler, RenderElementHandlerParams);

namespace {

struct Element {
    miTag shader;
    miBoolean without_shadows = 0, atmosphere = 0, fallback = 0, enabled = 1;
};

class RenderElements : public ShaderTest {
protected:
    using Surface = std::function<miBoolean(miState*)>;

    LiveShader<RenderElementHandlerParams> lens{state, orl_RenderElementHandler_init,
                                                orl_RenderElementHandler_exit};
    miColor result{9, 9, 9, 9};

    RenderElements() {
        state.camera.framebuffers = renderer.add_framebuffers({{"beauty", miIMG_TYPE_RGBA_FP},
                                                               {"fb_re#0", miIMG_TYPE_RGBA_FP},
                                                               {"fb_re#1", miIMG_TYPE_RGBA_FP},
                                                               {"fb_re#2", miIMG_TYPE_RGBA_FP},
                                                               {"fb_re#3", miIMG_TYPE_RGBA_FP}});
    }

    void start(const std::vector<Element>& elements, bool beauty = true) {
        const auto set = [&](auto& array, auto Element::*member) {
            std::vector<std::remove_reference_t<decltype(array.elements[0])>> values;
            for (const Element& element : elements)
                values.push_back(element.*member);
            lens.set_array(array.first, array.count, static_cast<decltype(values.data())>(array.elements),
                           values);
        };
        set(lens->elementShaders, &Element::shader);
        set(lens->elementEnabled, &Element::enabled);
        set(lens->elementWithoutShadows, &Element::without_shadows);
        set(lens->elementApplyAtmosphere, &Element::atmosphere);
        set(lens->elementBeautyFallback, &Element::fallback);
        lens->renderBeauty = beauty;
        lens.start();
    }

    // An element that adds a colour at each point and leaves it so at the end.
    miTag element(const miColor& color, bool replace = false, miBoolean answer = miTRUE) {
        return renderer.add_shader([=](void* out, miState*, void* arg) {
            const auto* call = static_cast<const orl_RenderElementCall*>(arg);
            if (call->phase == orl_phase_final)
                return miTRUE;
            EXPECT_EQ(*static_cast<miColor*>(out), (miColor{0, 0, 0, 0}));
            *static_cast<miColor*>(out) = color;
            static_cast<orl_PostIllumData*>(call->data)->outputs.elementReplace = replace;
            return answer;
        });
    }

    // Runs the lens; the eye ray meets what `surfaces` does.
    miBoolean shade(Surface surfaces, const miColor& beauty = {0.5f, 0.5f, 0.5f, 1}) {
        renderer.clear_logs();
        renderer.mi_trace_eye = [=](miColor* color, miState* at, miVector*, miVector*) {
            *color = beauty;
            return surfaces(at);
        };
        state.run(lens, miSHADER_LENS);
        return orl_RenderElementHandler(&result, state, &lens.params());
    }

    static miBoolean surface(miState* at, const miColor& transparency) {
        orl_PostIllumData data;
        InitializeRenderElementPostIllumData(at, &data);
        data.outputs.transparency = transparency;
        return orl_CallRenderElementShaders_PostIllum(at, &data);
    }
    static constexpr miColor opaque{0, 0, 0, 0};

    std::vector<std::pair<int, miColor>> written() const {
        std::vector<std::pair<int, miColor>> all;
        for (const auto& write : renderer.framebuffer_writes())
            all.emplace_back(write.index, write.value);
        return all;
    }
};

using Written = std::vector<std::pair<int, miColor>>;

TEST_F(RenderElements, BuffersAreNumberedByThePlaceInTheWholeList) {
    const miColor red{1, 0, 0, 1}, blue{0, 0, 1, 1};
    start({{miNULLTAG}, {element(red)}, {element(red), 0, 0, 0, 0}, {element(blue)}, {element(red)}});
    EXPECT_TRUE(shade([](miState* at) {
        miInteger count = 0;
        EXPECT_NE(orl_GetRenderElementResults(at, &count), nullptr);
        EXPECT_EQ(count, 3);
        return surface(at, opaque);
    }));
    EXPECT_EQ(written(), (Written{{2, red}, {4, blue}})); // the camera has no fifth buffer
    EXPECT_EQ(result, (miColor{0.5f, 0.5f, 0.5f, 1}));
    EXPECT_EQ(orl_GetRenderElementResults(state, nullptr), nullptr);
}

TEST_F(RenderElements, ShowThroughTransparentSurfaces) {
    const miColor own{0.5f, 0.25f, 1, 0.5f};
    start({{element(own)}, {element(own, true)}, {element(own, true, miFALSE)}});
    shade([](miState* at) { return surface(at, opaque) && surface(at, {0.5f, 0.25f, 1, 0}); });
    // (0.5, 0.25, 1) (0.5, 0.25, 1) + (0.5, 0.25, 1); (1 - 0.5) 0.5 + 0.5. One that replaces shows the last
    // surface, one that fails only what shows through of nothing.
    EXPECT_EQ(written(), (Written{{1, {0.75f, 0.3125f, 2, 0.75f}}, {2, own}, {3, {0, 0, 0, 0}}}));
    shade([](miState*) { return miTRUE; });
    EXPECT_EQ(written()[0].second, (miColor{0, 0, 0, 0})) << "each sample starts anew";
}

TEST_F(RenderElements, AreNotComputedWithinAnElement) {
    const miTag nested = renderer.add_shader([](void* out, miState* at, void*) {
        miColor* const colors = orl_GetRenderElementResults(at, nullptr);
        if (colors != nullptr) { // not in the final phase
            EXPECT_FALSE(surface(at, {0.5f, 0.5f, 0.5f, 0}));
            EXPECT_EQ(colors[0], (miColor{1, 1, 1, 1}));
            *static_cast<miColor*>(out) = {0.25f, 0, 0, 1};
        }
        return miTRUE;
    });
    start({{element({1, 1, 1, 1})}, {nested}});
    EXPECT_TRUE(shade([](miState* at) {
        EXPECT_TRUE(surface(at, opaque));
        return surface(at, opaque); // no longer busy
    }));
    EXPECT_EQ(written(), (Written{{1, {1, 1, 1, 1}}, {2, {0.25f, 0, 0, 1}}}));
    EXPECT_FALSE(surface(state, opaque)) << "without a handler";
}

TEST_F(RenderElements, EachKindGetsItsPass) {
    const struct {
        const char* what;
        int shadow;
        std::vector<miBoolean> without_shadows;
        bool beauty;
        std::string passes; // "shadow option/normal/unshadowed " of each ray
    } cases[] = {{"both", 's', {0, 1}, false, "0/0/1 115/1/0 "},
                 {"with shadows", 1, {0, 0}, true, "1/1/0 "},
                 {"without, and the beauty", 1, {1, 1}, true, "0/0/1 1/1/0 "},
                 {"only without", 1, {1}, false, "0/0/1 "},
                 {"shadows off", 0, {0, 1}, true, "0/1/1 "}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        LiveShader<RenderElementHandlerParams> one{state, orl_RenderElementHandler_init,
                                                   orl_RenderElementHandler_exit};
        std::vector<miTag> shaders;
        for (std::size_t k = 0; k < row.without_shadows.size(); ++k)
            shaders.push_back(element({1, 1, 1, 1}));
        one.set_array(one->elementShaders.first, one->elementShaders.count,
                      static_cast<miTag*>(one->elementShaders.elements), shaders);
        one.set_array(one->elementEnabled.first, one->elementEnabled.count,
                      static_cast<miBoolean*>(one->elementEnabled.elements),
                      std::vector<miBoolean>(shaders.size(), 1));
        one.set_array(one->elementWithoutShadows.first, one->elementWithoutShadows.count,
                      static_cast<miBoolean*>(one->elementWithoutShadows.elements), row.without_shadows);
        one->renderBeauty = row.beauty;
        one.start();
        state.options.shadow = row.shadow;
        std::string passes;
        int hit = 0, rays = 0;
        renderer.mi_trace_eye = [&](miColor* color, miState* at, miVector* org, miVector* dir) {
            const auto* elements = find_record(at, keys::render_elements);
            passes += std::to_string(at->options->shadow) + "/" + std::to_string(elements->runNormalPass) +
                      "/" + std::to_string(elements->runUnshadowedPass) + " ";
            EXPECT_EQ(*color, (miColor{9, 9, 9, 9}));
            EXPECT_EQ(at->pri, nullptr);
            EXPECT_EQ(org->z + dir->z, 4);
            surface(at, opaque);
            for (std::size_t k = 0; k < shaders.size(); ++k)
                EXPECT_EQ(orl_GetRenderElementResults(at, nullptr)[k].r,
                          (row.without_shadows[k] ? elements->runUnshadowedPass : elements->runNormalPass) ||
                              rays > 0);
            ++rays;
            *color = {1, 1, 1, 1};
            at->pri = &hit;
            at->org.z = 7; // a lens behind this one
            return miTRUE;
        };
        result = {9, 9, 9, 9};
        state->pri = nullptr;
        state->org = {0, 0, 5};
        EXPECT_TRUE(orl_RenderElementHandler(&result, state.run(one, miSHADER_LENS), &one.params()));
        EXPECT_EQ(passes, row.passes);
        EXPECT_EQ(state->options, &state.options);
        state->org = {0, 0, 5};
    }
}

TEST_F(RenderElements, FinalPhaseAtmosphereAndFallback) {
    // Adds what it is given to a constant, so that the order shows.
    const miTag last = renderer.add_shader([](void* out, miState* at, void* arg) {
        const auto* call = static_cast<const orl_RenderElementCall*>(arg);
        if (call->phase != orl_phase_final)
            return miFALSE;
        const auto* final = static_cast<const orl_ElementFinal*>(call->data);
        EXPECT_EQ(find_record(at, keys::render_elements), nullptr);
        *static_cast<miColor*>(out) = {final->color.r * 10, final->distance, 0, 0};
        return miTRUE;
    });
    state.camera.volume = renderer.add_shader([](void* color, miState*, void*) {
        static_cast<miColor*>(color)->r += 0.25f;
        return miTRUE;
    });
    const miTag fails = renderer.add_shader([](void* out, miState*, void*) {
        *static_cast<miColor*>(out) = {5, 5, 5, 5};
        return miFALSE;
    });
    start({{element({0.5f, 0, 0, 0})}, {last, 0, 1, 1}, {last}, {fails, 0, 1, 1}}, false);
    const miColor beauty{0.125f, 0, 0, 1}, first{0.5f, 0, 0, 0};
    EXPECT_FALSE(shade([](miState* at) { return surface(at, opaque) && false; }, beauty));
    EXPECT_EQ(result, first);
    EXPECT_EQ(written(),
              (Written{{1, first}, {2, {2.5f, 5, 0, 0}}, {3, {0, 5, 0, 0}}, {4, {0.25f, 0, 0, 0}}}));
    // Nothing feeds the elements: those that fall back get the lens' result, which is element 0's black.
    shade([](miState*) { return miTRUE; }, beauty);
    EXPECT_EQ(written()[1].second, (miColor{0, 0, 0, 0}));
    lens->renderBeauty = miTRUE;
    shade([](miState*) { return miTRUE; }, beauty);
    EXPECT_EQ(written(), (Written{{1, {0, 0, 0, 0}}, {2, beauty}, {3, {0, 5, 0, 0}}, {4, beauty}}));
}

TEST_F(RenderElements, AreOffForThePrecomputationOfFinalGathering) {
    start({{element({1, 1, 1, 1})}});
    const struct {
        int query;
        bool on;
    } cases[] = {{0, true}, {1, true}, {2, false}, {3, false}};
    for (const auto& [query, on] : cases) {
        renderer.answer(miQ_FINALGATHER_STATE, query);
        EXPECT_TRUE(shade([on = on](miState* at) {
            EXPECT_EQ(RenderElementsAreBeingUsed(at), on);
            return miTRUE;
        }));
        EXPECT_EQ(written().size(), on ? 1u : 0u) << query;
    }
}

TEST_F(RenderElements, AreFedAlongTransparentEyeRays) {
    const struct {
        std::vector<miRay_type> path; // from the point towards the eye
        bool fed;
    } cases[] = {{{miRAY_EYE}, true},
                 {{miRAY_TRANSPARENT, miRAY_TRANSPARENT, miRAY_EYE}, true},
                 {{miRAY_TRANSPARENT}, true},
                 {{miRAY_REFLECT, miRAY_EYE}, false},
                 {{miRAY_TRANSPARENT, miRAY_REFRACT, miRAY_EYE}, false},
                 {{miRAY_SHADOW}, false}};
    for (const auto& [path, fed] : cases) {
        scripted::State chain[3];
        for (std::size_t k = 0; k < path.size(); ++k) {
            chain[k]->type = path[k];
            chain[k]->parent = k + 1 < path.size() ? &chain[k + 1].state : nullptr;
        }
        EXPECT_FALSE(RenderElementsAreBeingUsed(chain[0])) << "without a handler";
        const ScopedRecord record(state, keys::render_elements, {});
        EXPECT_EQ(RenderElementsAreBeingUsed(chain[0]), fed) << path.size() << " from " << path[0];
    }
}

} // namespace
