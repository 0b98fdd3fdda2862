// State shaders, and tags that name nothing.
#include <array>

#include "stage_scene.h"

namespace {

using namespace stage_test;

std::string told; // "name+" before a call, "name-" after it

miBoolean watch(const char* name, void* result, void* argument) {
    const auto& event = *static_cast<const miState_event*>(argument);
    static constexpr std::array marks = {"(", ")", "+", "-"};
    told += name + std::string(marks[static_cast<std::size_t>(event.call)]);
    if (event.call == miSTATE_CALL_SAMPLE_EXIT)
        static_cast<miColor*>(result)->r *= 2.0f; // the result of the call it belongs to
    if (event.call == miSTATE_CALL_SAMPLE_INIT)
        told += event.shader == miSHADER_LENS ? "lens" : event.shader == miSHADER_MATERIAL ? "material" : "?";
    told += ' ';
    return miTRUE;
}

miBoolean watch_a(void* result, miState* state, void*, void* argument) {
    // What one event leaves for the state is there for all others of the sample.
    int count = 0;
    if (const void* seen = mi_shaderstate_get(state, "events", nullptr))
        count = *static_cast<const int*>(seen);
    ++count;
    mi_shaderstate_set(state, "events", &count, sizeof count, miSS_LIFETIME_EYERAY);
    if (static_cast<const miState_event*>(argument)->call == miSTATE_CALL_EXIT)
        told += std::to_string(count) + " events ";
    return watch("a", result, argument);
}

miBoolean watch_b(void* result, miState*, void*, void* argument) {
    return watch("b", result, argument);
}

TEST(StageStateShaders, EncloseTheSampleAndEachShaderOfItsRays) {
    TestScene s;
    s.scene.libraries->define("watch_a", reinterpret_cast<void*>(&watch_a));
    s.scene.libraries->define("watch_b", reinterpret_cast<void*>(&watch_b));
    s.red("paint", 1.0f);
    s.shader("lens", [](miState* state, miColor& c) { mi_trace_eye(&c, state, &state->org, &state->dir); });
    s.parse("declare shader 'watch_a' () end declare declare shader 'watch_b' () end declare\n"
            "incremental options opt state 'watch_a' () 'watch_b' () end options\n");
    s.square("floor", {}, "'paint'");
    s.build("lens lens");
    told.clear();
    // Two state shaders double the material's result, then the lens shader's, which is the same.
    EXPECT_EQ(s.shade().r, 16.0f);
    EXPECT_EQ(told, "a( b( a+lens b+lens a+material b+material b- a- b- a- b) 6 events a) ");
}

// Every function that is given a tag, and tags that name nothing or something else than it wants.
TEST(StageTags, ThatNameNothingAreAnsweredAndDoNoHarm) {
    const Told errors;
    TestScene s;
    s.red("paint", 1.0f);
    s.light("lamp", {}, "'paint' origin 0 0 0");
    s.square("floor", {}, "'paint'");
    s.build();
    const auto last = static_cast<miTag>(s.scene.database.size());
    std::vector<miTag> tags = {miNULLTAG, last + 100, 0x7fffffffu, 0xffffffffu};
    for (miTag tag = 1; tag <= last; ++tag)
        tags.push_back(tag);
    s.shader("ask", [&](miState* state, miColor&) {
        miColor color{};
        miVector vector{};
        miScalar scalar = 0;
        for (const miTag tag : tags) {
            const stage::Element* element = s.scene.database.find(tag);
            const bool function = element && element->type == miSCENE_FUNCTION;
            const bool light =
                element && (element->type == miSCENE_INSTANCE || element->type == miSCENE_LIGHT ||
                            element->type == miSCENE_GROUP); // of which any may be or hold a light
            EXPECT_EQ(mi_db_type(tag), element ? element->type : 0);
            EXPECT_EQ(mi_db_size(tag) > 0, element && element->size > 0);
            mi_db_flush(tag);
            int type = -1, count = 0;
            const auto* record = static_cast<const char*>(mi_db_access_type(tag, &type));
            ASSERT_TRUE(record || element) << tag;
            EXPECT_TRUE(element || (type == 0 && *record == 0)) << tag;
            mi_db_unpin(tag);
            if (!function && !(element && element->type == miSCENE_MATERIAL)) {
                EXPECT_FALSE(mi_call_shader(&color, miSHADER_MATERIAL, state, tag)) << tag;
                EXPECT_FALSE(mi_lookup_color_texture_x(&color, state, tag, &vector, 1.0f)) << tag;
                EXPECT_FALSE(mi_lookup_scalar_texture(&scalar, state, tag, &vector)) << tag;
                EXPECT_FALSE(mi_lookup_vector_texture(&vector, state, tag, &vector)) << tag;
            }
            EXPECT_TRUE(light || !mi_sample_light(&color, &vector, &scalar, state, tag, &count)) << tag;
            mi_lightprofile_value(state, tag, &vector);
            auto* const interface = mi_get_shader_interface(3);
            auto* const buffers = interface->accessFramebuffer(tag);
            EXPECT_EQ(buffers != nullptr, element && element->type == miSCENE_FRAMEBUFFERS);
            if (buffers)
                interface->releaseFramebuffer(buffers);
            interface->release();
            for (int code = 0; code <= 200; ++code) {
                alignas(16) std::array<std::byte, 256> result{}, extra{};
                mi_query(static_cast<miQ_type>(code), state, tag, result.data(), extra.data(), extra.data(),
                         extra.data());
            }
        }
    });
    s.call(s.tag("ask"));
    int missed = 0;
    for (std::size_t at = 0; (at = errors.text.find("mi_db_access: tag", at)) != std::string::npos; ++at)
        ++missed;
    EXPECT_EQ(missed, 4);
}

// Stopped, told, and exits run: the frame ends as one that the user stopped.
TEST(StageTags, AMissingOneStopsTheFrame) {
    TestScene s;
    s.shader("reads", [](miState*, miColor& c) { c.r = *static_cast<float*>(mi_db_access(12345)); });
    s.square("floor", {}, "'reads'");
    const Told errors;
    stage::RenderSettings settings;
    settings.progress = false;
    s.build();
    stage::Renderer renderer(s.scene, s.command, settings);
    EXPECT_FALSE(renderer.render());
    EXPECT_TRUE(renderer.gave_up());
    EXPECT_THAT(errors.text, testing::HasSubstr("mi_db_access: tag 12345 names no scene element"));
}

} // namespace
