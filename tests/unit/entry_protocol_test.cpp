// What all shaders share: parameters, array spans, instance and thread data, state records, checks, messages.
#include "shader_fixture.h"

#include <climits>
#include <thread>

namespace {

using namespace orl;

struct Params {
    miScalar scalar;
    decl::Array<miInteger> first;
    miColor color;
    decl::Array<miColor> colors;
    decl::Transform transform;
    miTag last;
};

class EntryProtocol : public ShaderTest {
protected:
    scripted::ShaderInstance<Params> shader{"the shader"};
    EntryProtocol() { state.run(shader); }
};

TEST_F(EntryProtocol, ConnectedParametersAreEvaluatedAtEachUse) {
    shader->scalar = 2.5f;
    EXPECT_EQ(eval(state, shader->scalar), 2.5f);
    shader.set_connection(&shader->scalar, miCONNECTION_NONE); // once connected: the literal holds
    EXPECT_EQ(eval(state, shader->scalar), 2.5f);
    float next = 1;
    shader.connect(shader->scalar, [&](miState*) { return next++; });
    EXPECT_EQ(eval(state, shader->scalar), 1.0f);
    EXPECT_EQ(eval(state, shader->scalar), 2.0f);
    shader.set_connection(&shader->scalar, 0); // in the table, but not connected
    EXPECT_EQ(eval(state, shader->scalar), 2.5f);
    shader.connect(shader->scalar, [](miState*) { return 3.0f; });
    renderer.mi_phen_eval = [](miState*, void*) -> void* { return nullptr; };
    EXPECT_EQ(eval(state, shader->scalar), 2.5f);
    shader.set_connection(&shader->transform, 1);
    EXPECT_EQ(eval(state, shader->transform), static_cast<void*>(&shader->transform));
}

TEST_F(EntryProtocol, SpansReachElementsWhereverTheyLie) {
    // The two arrays' elements lie behind the fixed part, the second's behind the first's.
    shader.set_array(shader->first.first, shader->first.count, shader->first.elements, {7, 8, 9});
    shader.set_array(shader->colors.first, shader->colors.count, shader->colors.elements,
                     {{1, 2, 3, 4}, {5, 6, 7, 8}});
    const auto numbers = span(state, &shader.params(), &Params::first);
    ASSERT_EQ(numbers.size(), 3);
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(numbers[k], 7 + k);
    const auto colors = span(state, &shader.params(), &Params::colors);
    ASSERT_EQ(colors.size(), 2);
    EXPECT_EQ(colors[1], (miColor{5, 6, 7, 8}));

    for (const auto& [first, count] : {std::pair{1, -3}, {-1, 2}, {1, 0}, {INT_MIN, INT_MAX}}) {
        shader->first.first = first;
        shader->first.count = count;
        EXPECT_EQ(span(state, &shader.params(), &Params::first).size(), 0);
    }
}

TEST_F(EntryProtocol, InstanceDataIsAccountedWhereTheHostExpectsIt) {
    std::string file;
    int line = 0;
    renderer.mi_mem_int_allocate = [&](const char* f, int l, miUint size) {
        file = f;
        line = l;
        return renderer.mi_mem_int_allocate.unscripted(f, l, size);
    };
    const auto* const data = new_instance_data<miVector>(state);
    EXPECT_EQ(data, shader.user_pointer());
    EXPECT_EQ(instance_data<miVector>(state), data);
    EXPECT_EQ(data->x, 0.0f);
    EXPECT_EQ(file + ":" + std::to_string(line), "orlshaderapi:265");

    renderer.mi_mem_int_release = [&](const char* f, int l, void* block) {
        file = f;
        line = l;
        renderer.mi_mem_int_release.unscripted(f, l, block);
    };
    delete_instance_data(state);
    EXPECT_EQ(file + ":" + std::to_string(line), "orlshaderapi:286");
    EXPECT_EQ(shader.user_pointer(), nullptr);
    delete_instance_data(state);
    EXPECT_EQ(renderer.resources().bad_releases, 0);
}

TEST_F(EntryProtocol, EachThreadHasDataOfItsOwn) {
    auto* const mine = thread_data<miVector>(state);
    mine->x = 1;
    EXPECT_EQ(thread_data<miVector>(state), mine);
    scripted::State other;
    other.run(shader);
    other->thread = 3;
    miVector* others = nullptr;
    std::thread([&] { others = thread_data<miVector>(other); }).join();
    EXPECT_NE(others, mine);
    EXPECT_EQ(others->x, 0.0f);
    delete_thread_data(state);
    EXPECT_EQ(renderer.resources().live_blocks, 0);
    EXPECT_EQ(thread_data<miVector>(state)->x, 0.0f);
    delete_thread_data(state);
}

TEST_F(EntryProtocol, ThreadDataWithoutAPlaceIsGivenBack) {
    renderer.deny(miQ_FUNC_TLS_SET);
    for (int sample = 0; sample < 3; ++sample)
        EXPECT_EQ(thread_data<miVector>(state), nullptr);
    EXPECT_EQ(renderer.resources().live_blocks, 0);
    EXPECT_EQ(renderer.resources().bad_releases, 0);
}

// The inner record takes the outer one with it.
TEST_F(EntryProtocol, StateRecordsLiveAsLongAsTheInnermostScope) {
    EXPECT_EQ(find_record(state, keys::environment_switches), nullptr);
    const ScopedRecord outer(state, keys::environment_switches, {1, 0});
    EXPECT_EQ(outer.get()->use_background, 1);
    {
        const ScopedRecord inner(state, keys::environment_switches, {0, 1});
        find_record(state, keys::environment_switches)->use_background = 7; // by a called shader
        EXPECT_EQ(inner.get()->use_background, 7);
        EXPECT_EQ(inner.get()->use_sky, 1);
        EXPECT_EQ(find_record(state, keys::attenuation_probe), nullptr);
    }
    EXPECT_EQ(outer.get(), nullptr);
}

TEST_F(EntryProtocol, FrameBufferIndex) {
    const auto expect = [&](miState* at, const char* name, int index, int interfaces) {
        SCOPED_TRACE(name);
        renderer.mi_get_shader_interface.reset_calls();
        EXPECT_EQ(frame_buffer_index(at, name), index);
        EXPECT_EQ(renderer.mi_get_shader_interface.calls(), interfaces);
        EXPECT_EQ(renderer.pins(), 0); // frame buffers and interface are released on every way out
    };
    expect(state, "fb_node_id", -1, 0); // no buffers at all
    state.camera.framebuffers =
        renderer.add_framebuffers({{"main", miIMG_TYPE_RGBA_FP}, {"fb_node_id", miIMG_TYPE_TAG}});
    expect(state, "fb_node_id", 1, 1);
    expect(state, "main", 0, 1);
    expect(state, "fb_velocity", -1, 1);
    state.camera.framebuffers = renderer.add_string("not buffers");
    expect(state, "main", -1, 1);
    state->camera = nullptr;
    expect(state, "main", -1, 0);
    expect(nullptr, "main", -1, 0);
    renderer.mi_get_shader_interface = [](int) -> miShader_interface* { return nullptr; };
    state->camera = &state.camera;
    expect(state, "main", -1, 1);
}

} // namespace
