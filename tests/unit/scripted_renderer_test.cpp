// The scripted renderer itself, reached as a module reaches it: by the names in its library.
#include <array>
#include <cstring>
#include <set>
#include <string>
#include <thread>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <gtest/gtest.h>

#include "scripted_renderer.h"
#include "state_builder.h"

namespace {

using scripted::Level;
using scripted::Renderer;
using scripted::State;

void* symbol(const char* name) {
#ifdef _WIN32
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(Renderer::get().handle()), name));
#else
    return dlsym(Renderer::get().handle(), name);
#endif
}

// A renderer function with the type that the interface declares.
#define RENDERER(name) reinterpret_cast<decltype(&::name)>(symbol(#name))

miBoolean query(miQ_type code, miState* state, miTag tag, void* result, ...) {
    va_list arguments;
    va_start(arguments, result);
    const miBoolean answer = RENDERER(mi_vquery)(code, state, tag, result, arguments);
    va_end(arguments);
    return answer;
}

class ScriptedRenderer : public testing::Test {
protected:
    ScriptedRenderer() { renderer.reset(); }
    Renderer& renderer = Renderer::get();
    State state;
};

TEST_F(ScriptedRenderer, OffersEveryFunction) {
    const std::vector<std::string> names = renderer.functions();
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), 127u);
    for (const std::string& name : names) {
        EXPECT_NE(symbol(name.c_str()), nullptr) << name;
        EXPECT_EQ(renderer.calls_of(name), 0) << name;
    }
    EXPECT_EQ(renderer.calls_of("mi_nothing"), -1);
}

TEST_F(ScriptedRenderer, ScriptsAnswerAndCallsAreCounted) {
    const auto trace = RENDERER(mi_trace_reflection);
    miVector dir = {0, 1, 0};
    miColor result = {9, 9, 9, 9};
    EXPECT_EQ(trace(&result, state, &dir), miFALSE);
    EXPECT_EQ(result.r, 9);
    renderer.trace_color = miColor{1, 2, 3, 4};
    EXPECT_EQ(trace(&result, state, &dir), miTRUE);
    EXPECT_EQ(result.g, 2);
    int asked = 0;
    renderer.mi_trace_reflection = [&](miColor* color, miState* caller, miVector* where) {
        ++asked;
        renderer.mi_trace_reflection.unscripted(color, caller, where);
        color->r = 7;
        return miFALSE;
    };
    EXPECT_EQ(trace(&result, state, &dir), miFALSE);
    EXPECT_EQ(result.r, 7);
    EXPECT_EQ(result.g, 2);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(renderer.mi_trace_reflection.calls(), 3);
    ASSERT_EQ(renderer.traces().size(), 3u);
    EXPECT_EQ(renderer.traces()[2].dir.y, 1);
    renderer.reset();
    EXPECT_EQ(trace(&result, state, &dir), miFALSE);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(renderer.mi_trace_reflection.calls(), 1);
}

TEST_F(ScriptedRenderer, MessagesArriveFormatted) {
    RENDERER(mi_error)("%s is %d%%", "half", 50);
    RENDERER(mi_info)("%s", "%d");
    EXPECT_TRUE(renderer.has_message(Level::error, "half is 50%"));
    EXPECT_TRUE(renderer.has_message(Level::info, "%d"));
    EXPECT_FALSE(renderer.has_message(Level::error, "%d"));
    EXPECT_EQ(renderer.message_count(Level::error), 1);
}

TEST_F(ScriptedRenderer, NamesAreTakenOver) {
    miMaterial material{};
    const miTag tag = renderer.add_material(material, "red");
    const long long before = renderer.resources().live_blocks;
    const auto copy = RENDERER(mi_mem_int_strdup);
    const auto look_up = RENDERER(mi_api_name_lookup);
    EXPECT_EQ(look_up(copy("file", 1, "red")), tag);
    EXPECT_EQ(look_up(copy("file", 1, "blue")), miNULLTAG);
    EXPECT_EQ(renderer.resources().live_blocks, before);
}

TEST_F(ScriptedRenderer, RecordsAnswerQueries) {
    const miTag shader = renderer.add_color({1, 0, 0, 1});
    miMaterial material{};
    material.shader = shader;
    const miTag red = renderer.add_material(material);
    miInstance instance{};
    instance.material = red;
    instance.label = 12;
    const miTag leaf = renderer.add_instance(instance, "leaf");
    const miTag group = renderer.add_group({leaf, red});
    const int words[] = {3, 4};
    const miTag last = renderer.add_userdata(words, sizeof words, 77);
    const miTag first = renderer.add_userdata(nullptr, 0, 0, last);

    miTag tag = 0;
    miUint label = 0;
    int count = 0;
    const char* name = nullptr;
    void* contents = nullptr;
    EXPECT_TRUE(query(miQ_MTL_SHADER, state, red, &tag) && tag == shader);
    EXPECT_TRUE(query(miQ_INST_MATERIAL, state, leaf, &tag) && tag == red);
    EXPECT_TRUE(query(miQ_INST_LABEL, state, leaf, &label) && label == 12);
    EXPECT_TRUE(query(miQ_INST_NAME, state, leaf, &name) && std::string(name) == "leaf");
    EXPECT_TRUE(query(miQ_GROUP_NKIDS, state, group, &count) && count == 2);
    EXPECT_TRUE(query(miQ_GROUP_KID, state, group, &tag, 1) && tag == red);
    EXPECT_FALSE(query(miQ_GROUP_KID, state, group, &tag, 2));
    EXPECT_FALSE(query(miQ_GROUP_NKIDS, state, leaf, &count));
    EXPECT_TRUE(query(miQ_DATA_NEXT, state, first, &tag) && tag == last);
    EXPECT_TRUE(query(miQ_DATA_LABEL, state, last, &label) && label == 77);
    EXPECT_TRUE(query(miQ_DATA_PARAM, state, last, &contents));
    EXPECT_EQ(static_cast<const int*>(contents)[1], 4);

    renderer.answer(miQ_INST_LABEL, miUint{5});
    renderer.answer(miQ_INST_LABEL, red, miUint{6});
    EXPECT_TRUE(query(miQ_INST_LABEL, state, leaf, &label) && label == 5);
    EXPECT_TRUE(query(miQ_INST_LABEL, state, red, &label) && label == 6);
    renderer.deny(miQ_INST_LABEL);
    EXPECT_FALSE(query(miQ_INST_LABEL, state, leaf, &label));
}

TEST_F(ScriptedRenderer, PinsAreBalanced) {
    const miTag tag = renderer.add_string("text");
    int type = 0;
    EXPECT_STREQ(static_cast<const char*>(RENDERER(mi_db_access_type)(tag, &type)), "text");
    EXPECT_EQ(type, miSCENE_STRING);
    EXPECT_EQ(renderer.pins(), 1);
    RENDERER(mi_db_unpin)(tag);
    state.camera.framebuffers =
        renderer.add_framebuffers({{"first", miIMG_TYPE_RGBA_FP}, {"id", miIMG_TYPE_TAG}});
    auto* access = RENDERER(mi_get_shader_interface)(3);
    auto* buffers = access->accessFramebuffer(state.camera.framebuffers);
    std::size_t index = 0;
    EXPECT_TRUE(buffers->get_index("id", index) && index == 1);
    EXPECT_FALSE(buffers->get_index("other", index));
    EXPECT_EQ(access->accessFramebuffer(tag), nullptr);
    EXPECT_EQ(renderer.pins(), 2);
    access->releaseFramebuffer(buffers);
    access->release();
    EXPECT_EQ(renderer.pins(), 0);
    EXPECT_EQ(renderer.bad_accesses(), 0);
    EXPECT_NE(RENDERER(mi_db_access)(999), nullptr);
    EXPECT_EQ(renderer.bad_accesses(), 1);

    int id = 42;
    for (const int place : {-1, 1, 2})
        RENDERER(mi_fb_put)(state, place, &id);
    ASSERT_EQ(renderer.framebuffer_writes().size(), 1u);
    EXPECT_EQ(std::memcmp(&renderer.framebuffer_writes()[0].value, &id, sizeof id), 0);
}

struct Parameters {
    miScalar scale;
    miInteger i_list, n_list;
    miTag list[1];
    miColor tint;
};

TEST_F(ScriptedRenderer, InstancesHaveArraysConnectionsAndPointers) {
    scripted::ShaderInstance<Parameters> instance("tinted");
    instance->scale = 2;
    instance->tint = {1, 1, 1, 1};
    instance.set_array<miTag>(instance->i_list, instance->n_list, instance->list, {5, 6, 7});
    state.run(instance, miSHADER_TEXTURE);

    // As a shader reaches them: from the block's address and the array's own offset.
    const char* block = reinterpret_cast<const char*>(&instance.params());
    std::array<miTag, 3> list;
    std::memcpy(list.data(),
                block + offsetof(Parameters, list) +
                    sizeof(miTag) * static_cast<std::size_t>(instance->i_list),
                sizeof list);
    EXPECT_EQ(list, (std::array<miTag, 3>{5, 6, 7}));
    EXPECT_EQ(instance->tint.r, 1); // not overwritten by the elements

    EXPECT_EQ(mi_parameter_is_connected(&instance.function(), &instance->scale), miFALSE);
    instance.connect(instance->tint, [](miState* at) { return miColor{at->tex.x, 0, 0, 1}; });
    EXPECT_EQ(mi_parameter_is_connected(&instance.function(), &instance->scale), miFALSE);
    ASSERT_EQ(mi_parameter_is_connected(&instance.function(), &instance->tint), miTRUE);
    for (const float x : {0.25f, 0.75f}) {
        state->tex.x = x;
        EXPECT_EQ(static_cast<miColor*>(RENDERER(mi_phen_eval)(state, &instance->tint))->r, x);
    }
    instance.set_connection(&instance->tint, miCONNECTION_NONE);
    EXPECT_EQ(mi_parameter_is_connected(&instance.function(), &instance->tint), miFALSE);

    void** pointer = nullptr;
    const char* name = nullptr;
    int type = -1;
    EXPECT_TRUE(query(miQ_FUNC_USERPTR, state, miNULLTAG, &pointer));
    *pointer = &type;
    EXPECT_EQ(instance.user_pointer(), &type);
    EXPECT_TRUE(query(miQ_FUNC_NAME, state, miNULLTAG, &name));
    EXPECT_STREQ(name, "tinted");
    EXPECT_TRUE(query(miQ_FUNC_CALLTYPE, state, miNULLTAG, &type) && type == miSHADER_TEXTURE);
}

TEST_F(ScriptedRenderer, ThreadPointersBelongToThreads) {
    scripted::ShaderInstance<Parameters> instance;
    const auto use = [&](short thread) {
        State own;
        own.run(instance)->thread = thread;
        void* pointer = &own;
        EXPECT_TRUE(query(miQ_FUNC_TLS_SET, own, miNULLTAG, &pointer));
        pointer = nullptr;
        EXPECT_TRUE(query(miQ_FUNC_TLS_GET, own, miNULLTAG, &pointer));
        EXPECT_EQ(pointer, &own);
    };
    std::thread first(use, short{1}), second(use, short{2});
    first.join();
    second.join();
    state.run(instance);
    void* pointer = &state;
    EXPECT_TRUE(query(miQ_FUNC_TLS_GET, state, miNULLTAG, &pointer));
    EXPECT_EQ(pointer, nullptr);
    void** all = nullptr;
    int count = 0;
    EXPECT_TRUE(query(miQ_FUNC_TLS_GETALL, state, miNULLTAG, &all, &count));
    ASSERT_GT(count, 2);
    EXPECT_TRUE(all[1] && all[2] && !all[0]);
}

TEST_F(ScriptedRenderer, ShadersRunAsThemselvesAndTheStateIsPutBack) {
    scripted::ShaderInstance<Parameters> caller, callee("callee");
    state.run(caller);
    callee->scale = 3;
    const miTag tag = renderer.add_shader(
        [&](void* result, miState* at, void* arg) {
            EXPECT_EQ(at->shader, &callee.function());
            EXPECT_EQ(at->call_type, miSHADER_VOLUME);
            static_cast<miColor*>(result)->r = static_cast<Parameters*>(arg)->scale;
            return miTRUE;
        },
        "callee", &callee.function());
    miColor result{};
    EXPECT_TRUE(RENDERER(mi_call_shader)(&result, miSHADER_VOLUME, state, tag));
    EXPECT_EQ(result.r, 3);
    EXPECT_EQ(state->shader, &caller.function());
    EXPECT_EQ(state->call_type, miSHADER_MATERIAL);
    EXPECT_FALSE(RENDERER(mi_call_shader)(&result, miSHADER_VOLUME, state, miNULLTAG));
    ASSERT_EQ(renderer.calls().size(), 2u);
    EXPECT_EQ(renderer.calls()[0].tag, tag);

    miMaterial material{};
    material.volume = tag;
    state->material = renderer.add_material(material);
    EXPECT_TRUE(RENDERER(mi_call_volume_material)(&result, state));
    EXPECT_FALSE(RENDERER(mi_call_shadow_material)(&result, state));
}

TEST_F(ScriptedRenderer, SpacesLightsAndRaster) {
    const miMatrix to_object = {2, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 5, 0, 0, 1};
    renderer.set_to_space(scripted::Space::object, to_object);
    miVector v = {1, 1, 0};
    RENDERER(mi_point_to_object)(state, &v, &v);
    EXPECT_EQ(v.x, 7);
    RENDERER(mi_point_from_object)(state, &v, &v);
    EXPECT_EQ(v.x, 1);
    RENDERER(mi_normal_to_object)(state, &v, &v);
    EXPECT_EQ(v.x, 0.5f); // x is stretched by 2, so the normal's x shrinks
    v = {0.5f, 0, -1};    // right edge of the image plane at distance 1
    RENDERER(mi_point_to_raster)(state, &v, &v);
    EXPECT_EQ(v.x, 640);
    EXPECT_EQ(v.y, 240);

    const miTag light = renderer.add_light({{{1, 1, 1, 1}, {0, 0, 1}, 1}, {{2, 2, 2, 1}, {0, 1, 0}, 0.5f}});
    miColor color;
    miVector dir;
    miScalar dot_nl;
    miInteger samples = 0;
    float sum = 0;
    while (RENDERER(mi_sample_light)(&color, &dir, &dot_nl, state, light, &samples))
        sum += color.r * dot_nl;
    EXPECT_EQ(sum, 2);
    EXPECT_EQ(samples, 2);
}

TEST_F(ScriptedRenderer, CallLogAndStateRecords) {
    renderer.log_calls(true);
    RENDERER(mi_par_aborted)();
    RENDERER(mi_luminance)(state, std::array<miColor, 1>().data());
    EXPECT_EQ(renderer.call_log(), (std::vector<std::string>{"mi_par_aborted", "mi_luminance"}));
    int size = 0;
    char value[] = "record";
    State other;
    other->thread = 1;
    RENDERER(mi_shaderstate_set)(state, "key", value, 7, 2);
    EXPECT_STREQ(static_cast<char*>(RENDERER(mi_shaderstate_get)(state, "key", &size)), "record");
    EXPECT_EQ(RENDERER(mi_shaderstate_get)(other, "key", &size), nullptr);
    renderer.reset();
    EXPECT_EQ(RENDERER(mi_shaderstate_get)(state, "key", &size), nullptr);
    EXPECT_TRUE(renderer.call_log().empty());
}

} // namespace
