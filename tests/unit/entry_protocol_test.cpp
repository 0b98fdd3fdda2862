// What all shaders share: parameters, array spans, instance and thread data, state records, checks, messages.
#include "shader_fixture.h"

#include <thread>

namespace {

using namespace orl;

struct Params {
    miScalar scalar;
    decl::Array<miInteger> first;
    miColor color;
    decl::Array<miColor> colors;
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

    shader->first.count = -3;
    EXPECT_EQ(span(state, &shader.params(), &Params::first).size(), 0);
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

TEST_F(EntryProtocol, StateRecordsLiveAsLongAsTheirScope) {
    EXPECT_EQ(find_record(state, keys::light_shaping), nullptr);
    {
        const ScopedRecord record(state, keys::light_shaping, {0, 1.0f, 0, 3});
        LightShapingRecord* const seen = find_record(state, keys::light_shaping);
        ASSERT_NE(seen, nullptr);
        EXPECT_EQ(seen->affect_flags, 3);
        seen->valid = 1; // what a called shader writes comes back
        EXPECT_EQ(record.get()->valid, 1);
        EXPECT_EQ(find_record(state, keys::attenuation_probe), nullptr);
    }
    EXPECT_EQ(find_record(state, keys::light_shaping), nullptr);
}

TEST_F(EntryProtocol, StateRecordsHaveTheirLifetimes) {
    std::vector<std::pair<std::string, int>> set;
    renderer.mi_shaderstate_set = [&](miState*, const char* key, void* value, int size, int lifetime) {
        if (value != nullptr && size > 0)
            set.emplace_back(key, lifetime);
        return miTRUE;
    };
    ScopedRecord(state, keys::incoming_ray, {});
    ScopedRecord(state, keys::stored_components, {});
    ScopedRecord(state, keys::displacement_scale, {});
    const std::vector<std::pair<std::string, int>> expected{{"KEY_6", 2}, {"miXMST", 1}, {"vdmScale", 0}};
    EXPECT_EQ(set, expected);
}

TEST_F(EntryProtocol, NotANumberBecomesOpaqueBlack) {
    constexpr miColor black{0, 0, 0, 1};
    const struct {
        miRay_type type;
        miColor color, expected;
    } cases[] = {
        {miRAY_EYE, {not_a_number, 0, 0, 1}, black},
        {miRAY_EYE, {0.5f, not_a_number, 0, 1}, black},
        {miRAY_EYE, {0.5f, 0, not_a_number, 0}, black},
        {miRAY_EYE, {0.5f, 0, 0, not_a_number}, black},
        {miRAY_EYE, {infinite, -1, 0, 0}, {infinite, -1, 0, 0}},
        {miPHOTON_REFLECT_DIFFUSE, {0, not_a_number, 0, 1}, black},
    };
    for (const auto& each : cases) {
        renderer.clear_logs();
        state->type = each.type;
        miColor color = each.color;
        guard_nan(state, color);
        EXPECT_EQ(color, each.expected);
        const bool replaced = each.expected == black;
        EXPECT_EQ(renderer.message_count(scripted::Level::error), replaced ? 1 : 0);
        if (replaced) {
            EXPECT_EQ(errors().at(0), "A ray encountered an invalid color (NaN), using black instead.");
        }
    }
    state->type = miPHOTON_TRANSMIT_SPECULAR; // photons carry no alpha
    renderer.clear_logs();
    miColor photon{1, 2, 3, not_a_number};
    guard_nan(state, photon);
    EXPECT_EQ(photon.b, 3.0f);
    EXPECT_TRUE(errors().empty());
}

TEST_F(EntryProtocol, PhotonTypes) {
    std::vector<int> photons;
    for (int type = -1; type < 40; ++type)
        if (is_photon(static_cast<miRay_type>(type)))
            photons.push_back(type);
    EXPECT_EQ(photons, (std::vector<int>{8, 9, 10, 11, 12, 13, 14, 15, 18, 19, 23, 24, 27}));
}

TEST_F(EntryProtocol, FrameBufferIndex) {
    EXPECT_EQ(frame_buffer_index(state, "fb_node_id"), -1); // no buffers at all
    EXPECT_EQ(renderer.mi_get_shader_interface.calls(), 0);
    state.camera.framebuffers =
        renderer.add_framebuffers({{"main", miIMG_TYPE_RGBA_FP}, {"fb_node_id", miIMG_TYPE_TAG}});
    EXPECT_EQ(frame_buffer_index(state, "fb_node_id"), 1);
    EXPECT_EQ(frame_buffer_index(state, "fb_velocity"), -1);
    state.camera.framebuffers = renderer.add_string("not buffers");
    EXPECT_EQ(frame_buffer_index(state, "main"), -1);
    state->camera = nullptr;
    EXPECT_EQ(frame_buffer_index(state, "main"), -1);
    EXPECT_EQ(frame_buffer_index(nullptr, "main"), -1);
    renderer.mi_get_shader_interface = [](int) -> miShader_interface* { return nullptr; };
    state->camera = &state.camera;
    EXPECT_EQ(frame_buffer_index(state, "main"), -1);
}

TEST_F(EntryProtocol, PassThrough) {
    renderer.trace_color = miColor{0.1f, 0.2f, 0.3f, 0.4f};
    const struct {
        int mode;
        miCBoolean from_rasterizer;
        bool traces;
    } cases[] = {{'r', 1, false}, {'r', 0, true}, {1, 1, true}, {0, 0, true}};
    for (const auto& each : cases) {
        renderer.clear_logs();
        state.options.scanline = each.mode;
        state->scanline = each.from_rasterizer;
        miColor result{9, 9, 9, 9};
        EXPECT_TRUE(pass_through(&result, state));
        EXPECT_EQ(result, each.traces ? *renderer.trace_color : (miColor{0, 0, 0, 0}));
        EXPECT_EQ(renderer.traces().size(), each.traces ? 1u : 0u);
    }
}

TEST_F(EntryProtocol, MissingInputsAreReportedOnceWithTheShadersName) {
    const std::pair<MissingInput, const char*> cases[] = {
        {MissingInput::uv_coordinates, "\"the shader\" requires uv coordinate shader"},
        {MissingInput::xyz_coordinates, "\"the shader\" requires xyz coordinate shader"},
        {MissingInput::illumination, "\"the shader\" requires illumination shader"},
        {MissingInput::image_file, "\"the shader\" requires image file"},
        {MissingInput::object_data, "\"the shader\" requires object user data"},
        {MissingInput::vector_texture, "\"the shader\" requires vector texture"},
    };
    for (const auto& [input, text] : cases) {
        renderer.clear_logs();
        miBoolean warned = miFALSE;
        for (int i = 0; i < 3; ++i)
            report_missing(state, input, warned);
        EXPECT_EQ(errors(), std::vector<std::string>{text});
    }
}

} // namespace
