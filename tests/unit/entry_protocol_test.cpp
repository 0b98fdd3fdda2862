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

// Other libraries name the same keys, so names and lifetimes stand here once more.
TEST_F(EntryProtocol, StateKeys) {
    std::string told;
    const auto tell = [&](const auto&... key) {
        ((told += std::string(key.name) + ":" + std::to_string(key.lifetime) + " "), ...);
    };
    tell(keys::environment_caller, keys::environment_switches, keys::traced_environment,
         keys::sub_material_report, keys::attenuation_probe, keys::light_shaping, keys::incoming_ray,
         keys::tone_operator, keys::sky_is_hdr, keys::texture_vertices, keys::vertices, keys::projection,
         keys::render_elements, keys::stored_components, keys::architectural_light, keys::displacement_scale);
    EXPECT_EQ(told, "KEY_0:2 KEY_1:2 KEY_2:2 KEY_3:2 KEY_4:2 KEY_5:2 KEY_6:2 KEY_7:2 SKY_IS_HDR:2 KEY_8:2 "
                    "KEY_9:2 KEY_10:2 ORREINT:2 miXMST:1 miXMLD:2 vdmScale:0 ");

    std::vector<int> lifetimes; // as the guard hands them on
    renderer.mi_shaderstate_set = [&](miState*, const char*, void*, int, int lifetime) {
        lifetimes.push_back(lifetime);
        return miTRUE;
    };
    ScopedRecord(state, keys::stored_components, {});
    ScopedRecord(state, keys::displacement_scale, {});
    EXPECT_EQ(lifetimes, (std::vector<int>{1, 1, 0, 0}));
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
        const std::vector<std::string> told{"A ray encountered an invalid color (NaN), using black instead."};
        EXPECT_EQ(errors(), each.expected == black ? told : std::vector<std::string>{});
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

TEST_F(EntryProtocol, PassThrough) {
    const miColor traced{0.1f, 0.2f, 0.3f, 0.4f};
    const struct {
        int mode;
        miCBoolean from_rasterizer;
        bool traces;
    } cases[] = {{'r', 1, false}, {'r', 0, true}, {1, 1, true}, {0, 0, true}};
    for (const auto& each : cases)
        for (const bool meets_something : {true, false}) {
            renderer.clear_logs();
            renderer.trace_color = meets_something ? std::optional(traced) : std::nullopt;
            state.options.scanline = each.mode;
            state->scanline = each.from_rasterizer;
            miColor result{9, 9, 9, 9};
            EXPECT_EQ(pass_through(&result, state), !each.traces || meets_something);
            if (!each.traces) {
                EXPECT_EQ(result, (miColor{0, 0, 0, 0}));
                EXPECT_TRUE(renderer.traces().empty());
                continue;
            }
            EXPECT_EQ(result, meets_something ? traced : (miColor{9, 9, 9, 9}));
            ASSERT_EQ(renderer.traces().size(), 1u);
            EXPECT_STREQ(renderer.traces()[0].function, "mi_trace_continue");
        }
}

TEST_F(EntryProtocol, AnInstanceWithoutANameIsCalledByItsDeclarations) {
    const struct {
        const char *own, *declared, *expected;
    } cases[] = {{"own", "declared", "own"},
                 {"", "declared", "declared"},
                 {nullptr, "declared", "declared"},
                 {"", "", "unnamed"},
                 {nullptr, nullptr, "unnamed"}};
    for (const auto& each : cases) {
        each.own ? renderer.answer(miQ_FUNC_NAME, each.own) : renderer.deny(miQ_FUNC_NAME);
        each.declared ? renderer.answer(miQ_DECL_NAME, each.declared) : renderer.deny(miQ_DECL_NAME);
        EXPECT_STREQ(shader_name(state), each.expected);
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
