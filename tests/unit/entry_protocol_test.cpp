// What all shaders share: instance and thread data, indices of frame buffers.
#include "shader_fixture.h"

#include <thread>

namespace {

using namespace orl;

struct Params {
    miScalar scalar;
};

class EntryProtocol : public ShaderTest {
protected:
    scripted::ShaderInstance<Params> shader{"the shader"};
    EntryProtocol() { state.run(shader); }
};

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
