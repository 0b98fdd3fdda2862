// The host's records on scene, nodes and objects, and the data words of triangles.
#include "shader_fixture.h"

#include <array>
#include <cstring>

namespace {

constexpr int max_elements = 8;

// A record with room for the elements of its arrays, as the host attaches it.
template <class Record> struct WithElements {
    Record record{};
    std::array<miTag, max_elements> room{};

    // Elements lie in the room, from place `place` on.
    template <class ArrayRecord>
    void set(ArrayRecord Record::*member, int place, const std::vector<miTag>& values) {
        auto& array = record.*member;
        const auto start =
            reinterpret_cast<const char*>(&array.elements) - reinterpret_cast<const char*>(this);
        const auto first = reinterpret_cast<const char*>(room.data()) - reinterpret_cast<const char*>(this);
        array.first = static_cast<miInteger>((first - start) / 4 + place);
        array.count = static_cast<miInteger>(values.size());
        if (!values.empty())
            std::memcpy(&room[static_cast<std::size_t>(place)], values.data(), values.size() * sizeof(miTag));
    }
};

class HostData : public ShaderTest {
protected:
    std::vector<int> slot_index;
    std::vector<miUint> words;

    void set_triangle_words(std::vector<int> index, std::vector<miUint> data) {
        slot_index = std::move(index);
        words = std::move(data);
        renderer.mi_vquery = [this](miQ_type code, miState* s, miTag tag, void* result, va_list arguments) {
            if (code != miQ_PRI_DATA)
                return renderer.mi_vquery.unscripted(code, s, tag, result, arguments);
            const int count = static_cast<int>(slot_index.size());
            std::memcpy(result, &count, sizeof count);
            *va_arg(arguments, const int**) = slot_index.data();
            *va_arg(arguments, const miUint**) = words.data();
            return miTRUE;
        };
    }
};

TEST_F(HostData, MissingRecordsReadAsNull) {
    EXPECT_EQ(GetSceneData(state), nullptr);
    EXPECT_EQ(GetNodeData(miNULLTAG), nullptr);
    EXPECT_EQ(GetNodeData(add_instance_with(miNULLTAG)), nullptr);
    EXPECT_EQ(GetNodeData(renderer.add_string("no instance")), nullptr);
    EXPECT_EQ(GetObjectData(state), nullptr);
    EXPECT_EQ(GetObjectDataFromInstance(miNULLTAG), nullptr);
    EXPECT_EQ(GetObjectDataFromInstance(add_instance_with(miNULLTAG)), nullptr);
    EXPECT_EQ(GetObjectDataFromInstance(add_instance_with(miNULLTAG, renderer.add_string("no object"))),
              nullptr);
    const orl_ObjectData no_particles{};
    EXPECT_EQ(GetParticleData(state, &no_particles), nullptr);
    EXPECT_EQ(GetParticleData(state, nullptr), nullptr);
    EXPECT_EQ(renderer.pins(), 0);
}

TEST_F(HostData, RecordsAreFoundWhereTheHostAttachesThem) {
    orl_SceneData scene{};
    scene.display_gamma = 2.2f;
    set_scene(scene);
    ASSERT_NE(GetSceneData(state), nullptr);
    EXPECT_EQ(GetSceneData(state)->display_gamma, 2.2f);

    orl_NodeData node{};
    node.node_render_id = 77;
    ASSERT_NE(GetNodeData(add_instance_with(add_record(node))), nullptr);
    EXPECT_EQ(GetNodeData(add_instance_with(add_record(node)))->node_render_id, 77);

    orl_ObjectData record{};
    const double particles = 12.5;
    record.particle_data = add_record(particles);
    miObject object{};
    object.userdata = add_record(record);
    const miTag instance = add_instance_with(miNULLTAG, renderer.add(miSCENE_OBJECT, &object));
    state->instance = instance;
    const orl_ObjectData* const current = GetObjectData(state);
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(GetObjectDataFromInstance(instance), current);
    EXPECT_EQ(*static_cast<const double*>(GetParticleData(state, current)), 12.5);
    EXPECT_EQ(renderer.pins(), 0);
}

// The places, counted from 1 with an array as one field, that other libraries rely on. Offsets by hand:
// scalars and integers take 4 bytes, an array 12.
TEST_F(HostData, FieldsKeepTheirPlaces) {
    EXPECT_EQ(offsetof(orl_SceneData, material_editor), 0u);
    EXPECT_EQ(offsetof(orl_SceneData, display_gamma), 10u * 4);
    EXPECT_EQ(offsetof(orl_SceneData, material_switch_16), 15u * 4);
    EXPECT_EQ(offsetof(orl_SceneData, material_switch_22), 21u * 4);
    EXPECT_EQ(offsetof(orl_SceneData, map_channel_ids), 23u * 4);
    EXPECT_EQ(offsetof(orl_NodeData, visibility), 3u * 4);
    EXPECT_EQ(offsetof(orl_NodeData, shadows_from_all_lights), 6u * 4 + 12);
    EXPECT_EQ(offsetof(orl_ObjectData, particle_data), 12u + 8 * 4);
}

TEST_F(HostData, TriangleWords) {
    const struct {
        std::vector<int> index;
        std::vector<miUint> words;
        miInteger material, smoothing, particle;
        miBoolean edges[3];
    } cases[] = {
        // material 4660 = 0x1234 with edges 0 and 2 (bits 16 and 18)
        {{0}, {0x00051234}, 4660, 0, 0, {1, 0, 1}},
        {{0, 1}, {0x0002ffff, 9}, 65535, 9, 0, {0, 1, 0}},
        {{2, 0, 1}, {7, 8, 3}, 3, 7, 8, {0, 0, 0}},
        {{-1, 0, 1}, {7, 8}, 0, 7, 8, {1, 1, 1}}, // slot 0 is absent
        {{}, {}, 0, 0, 0, {1, 1, 1}},
    };
    for (const auto& each : cases) {
        set_triangle_words(each.index, each.words);
        EXPECT_EQ(GetMaterialID(state), each.material);
        EXPECT_EQ(GetFaceSmoothingGroup(state), each.smoothing);
        EXPECT_EQ(GetParticleID(state), each.particle);
        miBoolean edges[3] = {5, 5, 5};
        GetEdgeVisibility(state, &edges[0], &edges[1], &edges[2]);
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(edges[k], each.edges[k]) << k;
    }
    renderer.deny(miQ_PRI_DATA);
    renderer.mi_vquery = [](miQ_type, miState*, miTag, void*, va_list) { return miFALSE; };
    EXPECT_EQ(GetMaterialID(state), 0);
    miBoolean a = 0, b = 0, c = 0;
    GetEdgeVisibility(state, &a, &b, &c);
    EXPECT_TRUE(a && b && c);
}

TEST_F(HostData, TangentBasis) {
    state.bump_x = {{1, 2, 3}, {9, 9, 9}};
    state.bump_y = {{4, 5, 6}, {9, 9, 9}};
    state.use_textures();
    miVector u{}, v{};
    EXPECT_TRUE(GetTangentBasisVectors(state, &u, &v));
    EXPECT_EQ(u.y, 2.0f);
    EXPECT_EQ(v.z, 6.0f);
    state->bump_y_list = nullptr;
    EXPECT_FALSE(GetTangentBasisVectors(state, &u, &v));
    EXPECT_EQ(u.y, 0.0f);
}

TEST_F(HostData, TextureChannels) {
    WithElements<orl_ObjectData> object;
    object.set(&orl_ObjectData::uv_channels, 2, {3, 1, 72});
    orl_SceneData scene{};
    const auto expect = [&](std::vector<std::pair<int, int>> cases) {
        for (const auto& [id, place] : cases)
            EXPECT_EQ(GetUVChannelIndexFromID(state, &object.record, id), place) << "id " << id;
    };
    expect({{0, 3}, {1, 1}, {2, 72}, {3, -1}, {72, -1}, {-1, -1}}); // no scene record: positions
    set_scene(scene);
    expect({{2, 72}, {3, -1}});
    scene.map_channel_ids = miTRUE;
    set_scene(scene);
    expect({{3, 0}, {1, 1}, {72, 2}, {0, -1}, {2, -1}});

    object.set(&orl_ObjectData::uv_channels, 0, {});
    expect({{0, -1}, {3, -1}});
    EXPECT_EQ(GetUVChannelIndexFromID(state, nullptr, 0), -1); // no object record at hand
}

TEST_F(HostData, ShadowMakers) {
    const miTag light = renderer.add_string("light"), other = renderer.add_string("other light");
    state->light_instance = add_instance_with(miNULLTAG, light);
    const miTag with = renderer.add_group({other, light}), without = renderer.add_group({other, other});
    const miTag empty = renderer.add_group({});
    const struct {
        std::vector<miTag> list;
        bool casts;
    } cases[] = {
        {{}, false},
        {{light}, true},
        {{other}, false},
        {{other, light}, true},
        {{with}, true},
        {{without}, false},
        {{without, with}, true},
        {{empty}, false},
        {{9999}, false},
        {{miNULLTAG, light}, true},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        WithElements<orl_NodeData> node;
        node.set(&orl_NodeData::shadow_lights, 1, cases[i].list);
        state->instance = miNULLTAG;
        EXPECT_TRUE(IsInstanceShadowMakerForLight(state, &node.record)) << "no instance, case " << i;
        state->instance = 1;
        EXPECT_EQ(IsInstanceShadowMakerForLight(state, &node.record), cases[i].casts) << "case " << i;
        node.record.shadows_from_all_lights = miTRUE;
        EXPECT_TRUE(IsInstanceShadowMakerForLight(state, &node.record)) << "all lights, case " << i;
    }
    EXPECT_EQ(renderer.pins(), 0);

    WithElements<orl_NodeData> node;
    node.set(&orl_NodeData::shadow_lights, 0, {light});
    state->light_instance = miNULLTAG;
    EXPECT_FALSE(IsInstanceShadowMakerForLight(state, &node.record));
}

} // namespace
