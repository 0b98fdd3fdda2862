// The declarations that are written for the module, as a renderer reads them: names, types, places, defaults.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mi/parser.h"
#include "scene/declaration.h"

namespace {

struct Expected {
    const char* name;
    miParam_type type;
    std::uint32_t offset;
    double value = 0; // default of a number
};

double default_of(const stage::Param& param) {
    if (param.default_value.size() < 4)
        return 0;
    float real = 0;
    int whole = 0;
    std::memcpy(&real, param.default_value.data(), 4);
    std::memcpy(&whole, param.default_value.data(), 4);
    return param.type == miTYPE_SCALAR ? static_cast<double>(real) : whole;
}

class Declarations : public testing::Test {
protected:
    stage::Scene scene;
    Declarations() {
        stage::parse_file(scene, ORL_FILE_DECLARATIONS, [](stage::Scene&, const stage::RenderCommand&) {});
    }

    void expect(const std::string& name, int version, std::uint32_t size,
                const std::vector<Expected>& fields) {
        SCOPED_TRACE(name);
        ASSERT_EQ(scene.declarations.count(name), 1u);
        const stage::Declaration& declared = *scene.declarations.at(name);
        EXPECT_EQ(declared.version, version);
        EXPECT_EQ(declared.block_size, size);
        ASSERT_EQ(declared.params.size(), fields.size());
        for (std::size_t k = 0; k < fields.size(); ++k) {
            SCOPED_TRACE(fields[k].name);
            const stage::Param& param = declared.params[k];
            EXPECT_EQ(param.name, fields[k].name);
            EXPECT_EQ(param.type, fields[k].type);
            EXPECT_EQ(param.offset, fields[k].offset);
            EXPECT_EQ(default_of(param), fields[k].value);
        }
    }
};

// The host's own numbers: fields `first` to `last`, counted from 1, four bytes each.
void add_host_fields(std::vector<Expected>& fields, std::uint32_t first, std::uint32_t last) {
    static const char* const names[] = {
        "field_1",  "field_2",  "field_3",  "field_4",  "field_5",  "field_6",  "field_7",  "field_8",
        "field_9",  "field_10", "field_11", "field_12", "field_13", "field_14", "field_15", "field_16",
        "field_17", "field_18", "field_19", "field_20", "field_21", "field_22", "field_23"};
    for (std::uint32_t k = first; k <= last; ++k)
        fields.push_back({names[k - 1], miTYPE_INTEGER, 4 * (k - 1)});
}

TEST_F(Declarations, SceneRecord) {
    std::vector<Expected> fields{{"material_editor", miTYPE_BOOLEAN, 0}};
    add_host_fields(fields, 2, 8);
    fields.push_back({"force_two_sided", miTYPE_BOOLEAN, 32});
    fields.push_back({"flip_sky", miTYPE_BOOLEAN, 36});
    fields.push_back({"display_gamma", miTYPE_SCALAR, 40, 1});
    add_host_fields(fields, 12, 15);
    fields.push_back({"material_switch_16", miTYPE_BOOLEAN, 60});
    add_host_fields(fields, 17, 21);
    fields.push_back({"material_switch_22", miTYPE_BOOLEAN, 84});
    add_host_fields(fields, 23, 23);
    fields.push_back({"map_channel_ids", miTYPE_BOOLEAN, 92});
    expect("data orl_SceneData", 5, 96, fields);
}

TEST_F(Declarations, NodeRecord) {
    expect("data orl_NodeData", 2, 56,
           {{"color_r", miTYPE_SCALAR, 0, 0.5},
            {"color_g", miTYPE_SCALAR, 4, 0.5},
            {"color_b", miTYPE_SCALAR, 8, 0.5},
            {"visibility", miTYPE_SCALAR, 12, 1},
            {"node_id", miTYPE_INTEGER, 16},
            {"node_render_id", miTYPE_INTEGER, 20},
            {"shadow_lights", miTYPE_ARRAY, 24},
            {"shadows_from_all_lights", miTYPE_BOOLEAN, 36, 1},
            {"lights", miTYPE_ARRAY, 40},
            {"all_lights", miTYPE_BOOLEAN, 52, 1}});
}

TEST_F(Declarations, ObjectRecord) {
    std::vector<Expected> fields;
    add_host_fields(fields, 1, 9);
    fields.push_back({"particle_data", miTYPE_DATA, 36});
    fields.push_back({"uv_channels", miTYPE_ARRAY, 40});
    expect("data orl_ObjectData", 5, 52, fields);
}

TEST_F(Declarations, BufferLens) {
    expect("orl_base_GBuffer_lens", 1, 32,
           {{"unused_1", miTYPE_INTEGER, 0},
            {"node_id", miTYPE_BOOLEAN, 4},
            {"node_render_id", miTYPE_BOOLEAN, 8},
            {"unused_2", miTYPE_INTEGER, 12},
            {"texture_coordinates", miTYPE_BOOLEAN, 16},
            {"velocity", miTYPE_BOOLEAN, 20},
            {"hold_handle_low", miTYPE_INTEGER, 24},
            {"hold_handle_high", miTYPE_INTEGER, 28}});
    EXPECT_EQ(scene.declarations.at("orl_base_GBuffer_lens")->result.type, miTYPE_COLOR);
    EXPECT_EQ(scene.declarations.at("orl_base_GBuffer_lens")->apply, 1u << miSHADER_LENS);
}

} // namespace
