// The host's records on scene, nodes and objects, and the data words of triangles.
#include "shader_fixture.h"

#include <array>
#include <climits>
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

class HostData : public ShaderTest {};

TEST_F(HostData, MissingRecordsAndNullArgumentsReadAsAnEmptyScene) {
    miLight light{};
    const orl_ObjectData no_particles{};
    const orl_NodeData node{};
    for (const miTag tag :
         {miTag{miNULLTAG}, add_instance_with(miNULLTAG), renderer.add_string("no instance"),
          renderer.add_group({}), add_instance_with(miNULLTAG, renderer.add_string("no object")),
          add_instance_with(miNULLTAG, renderer.add(miSCENE_LIGHT, &light))}) {
        EXPECT_EQ(GetNodeData(tag), nullptr) << tag;
        EXPECT_EQ(GetObjectDataFromInstance(tag), nullptr) << tag;
    }
    for (miState* const s : {&state.state, static_cast<miState*>(nullptr)}) {
        EXPECT_EQ(GetSceneData(s), nullptr);
        EXPECT_EQ(GetObjectData(s), nullptr);
        EXPECT_EQ(GetParticleData(s, &no_particles), nullptr);
        EXPECT_EQ(GetParticleData(s, nullptr), nullptr);
        EXPECT_EQ(GetMaterialID(s), 0);
        EXPECT_EQ(GetUVChannelIndexFromID(s, nullptr, 0), -1);
        EXPECT_TRUE(IsInstanceShadowMakerForLight(s, nullptr));
        EXPECT_TRUE(IsInstanceShadowMakerForLight(s, &node));
        miBoolean edge = 5;
        GetEdgeVisibility(s, nullptr, &edge, nullptr);
        EXPECT_EQ(edge, miTRUE);
        state->bump_x_list = nullptr;
        miVector v{1, 1, 1};
        EXPECT_FALSE(GetTangentBasisVectors(s, nullptr, &v));
        EXPECT_EQ(v.x, 0.0f);
    }
    state->options = nullptr;
    EXPECT_EQ(GetSceneData(state), nullptr);
    EXPECT_EQ(renderer.pins(), 0);
}

// Blocks of raw bytes, cut off, or with arrays that leave them: reading them would read what lies behind.
TEST_F(HostData, BlocksThatAreTooShortAreNoRecords) {
    const std::vector<miInteger> zeros(64);
    const auto block = [&](std::size_t bytes) {
        return renderer.add_userdata(zeros.data(), static_cast<int>(bytes));
    };
    const auto found = [&](miTag scene, miTag node, miTag object) {
        state.options.userdata = scene;
        miObject shape{};
        shape.userdata = object;
        const miTag instance = add_instance_with(node, renderer.add(miSCENE_OBJECT, &shape));
        state->instance = instance;
        return std::array{GetSceneData(state) != nullptr, GetNodeData(instance) != nullptr,
                          GetObjectData(state) != nullptr, GetObjectDataFromInstance(instance) != nullptr};
    };
    constexpr std::array none{false, false, false, false}, all{true, true, true, true};
    EXPECT_EQ(found(block(4), block(4), block(4)), none);
    // 24 words; 6 words, 3 for an array, 1, 3, 1; 10 words and 3 for an array
    EXPECT_EQ(found(block(24 * 4 - 1), block(14 * 4 - 1), block(13 * 4 - 1)), none);
    EXPECT_EQ(found(block(24 * 4), block(14 * 4), block(13 * 4)), all);

    const struct {
        miInteger first, count;
        bool fits;
    } arrays[] = {{0, 1, true},
                  {max_elements, 1, true},
                  {max_elements + 1, 1, false},
                  {-1, 1, false},
                  {1, max_elements, true},
                  {2, max_elements, false},
                  {INT_MAX, INT_MAX, false},
                  {-9, -9, true}};
    for (const auto& each : arrays) {
        SCOPED_TRACE(each.first);
        const bool near_by = each.first >= 0 && each.first <= max_elements + 1;
        const auto behind = [&](miInteger skipped) { return each.first + (near_by ? skipped : 0); };
        WithElements<orl_ObjectData> object; // the array is the record's last, so its room follows directly
        object.record.uv_channels = {each.first, each.count, {0}};
        WithElements<orl_NodeData> node; // behind the first array are 5 words more, behind the second 1
        node.record.shadow_lights = {behind(5), each.count, {0}};
        const std::array expected{true, each.fits, each.fits, each.fits};
        EXPECT_EQ(found(block(24 * 4), add_record(node), add_record(object)), expected);
        node.record.shadow_lights = {};
        node.record.lights = {behind(1), each.count, {0}};
        EXPECT_EQ(found(block(24 * 4), add_record(node), add_record(object)), expected);
    }
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
        renderer.triangle.slots = each.index;
        renderer.triangle.words = each.words;
        EXPECT_EQ(GetMaterialID(state), each.material);
        EXPECT_EQ(GetFaceSmoothingGroup(state), each.smoothing);
        EXPECT_EQ(GetParticleID(state), each.particle);
        miBoolean edges[3] = {5, 5, 5};
        GetEdgeVisibility(state, &edges[0], &edges[1], &edges[2]);
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(edges[k], each.edges[k]) << k;
    }
    for (const int given : {0, 1, 2}) { // nothing, slots without an index, slots without words
        renderer.mi_vquery = [=](miQ_type, miState*, miTag, void* result, va_list arguments) {
            static const int index[] = {0};
            static const miUint word[] = {7};
            const int count = given > 0;
            std::memcpy(result, &count, sizeof count);
            *va_arg(arguments, const int**) = given == 2 ? index : nullptr;
            *va_arg(arguments, const miUint**) = given == 1 ? word : nullptr;
            return miBoolean{given > 0};
        };
        EXPECT_EQ(GetMaterialID(state), 0);
        miBoolean edges[3] = {};
        GetEdgeVisibility(state, &edges[0], &edges[1], &edges[2]);
        EXPECT_TRUE(edges[0] && edges[1] && edges[2]);
    }
}

TEST_F(HostData, ShadowMakers) {
    const miTag light = renderer.add_string("light"), other = renderer.add_string("other light");
    state->light_instance = add_instance_with(miNULLTAG, light);
    const miTag with = renderer.add_group({other, light}), without = renderer.add_group({other, other});
    const miTag empty = renderer.add_group({});
    const miTag twin = add_instance_with(miNULLTAG, light); // a second instance of the light
    const miTag stranger = add_instance_with(miNULLTAG, other);
    const miTag with_twin = renderer.add_group({stranger, miNULLTAG, twin});
    const std::pair<std::vector<miTag>, bool> cases[] = {
        {{}, false},
        {{other}, false},
        {{other, light, miNULLTAG}, true},
        {{without, with}, true},
        {{empty}, false},
        {{9999}, false},
        {{state->light_instance}, true},
        {{twin}, true},
        {{stranger}, false},
        {{with_twin}, true},
        {{renderer.add_group({stranger})}, false},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        WithElements<orl_NodeData> node;
        node.set(&orl_NodeData::shadow_lights, 1, cases[i].first);
        state->instance = miNULLTAG;
        EXPECT_TRUE(IsInstanceShadowMakerForLight(state, &node.record)) << "no instance, case " << i;
        state->instance = 1;
        EXPECT_EQ(IsInstanceShadowMakerForLight(state, &node.record), cases[i].second) << "case " << i;
        node.record.shadows_from_all_lights = miTRUE;
        EXPECT_TRUE(IsInstanceShadowMakerForLight(state, &node.record)) << "all lights, case " << i;
    }
    EXPECT_EQ(renderer.pins(), 0);

    // No light is being sampled, or what the state names is none; null elements do not match that.
    WithElements<orl_NodeData> node;
    node.set(&orl_NodeData::shadow_lights, 0, {light, miNULLTAG, empty});
    for (const miTag sampled : {miNULLTAG, add_instance_with(miNULLTAG), light}) {
        state->light_instance = sampled;
        EXPECT_FALSE(IsInstanceShadowMakerForLight(state, &node.record));
    }
    state->light_instance = add_instance_with(miNULLTAG, empty); // a group without members may be the light
    EXPECT_TRUE(IsInstanceShadowMakerForLight(state, &node.record));
    EXPECT_EQ(renderer.pins(), 0);
}

} // namespace
