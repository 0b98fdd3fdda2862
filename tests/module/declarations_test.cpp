// The declarations that are written for the module, as a renderer reads them: names, types, places, defaults.
#include <cstring>
#include <map>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "mi/parser.h"
#include "scene/declaration.h"

namespace {

// NAME:TYPE@OFFSET for each parameter, with =DEFAULT for numbers that are not 0.
std::string layout_of(const stage::Declaration& declared) {
    const std::map<int, const char*> types = {{miTYPE_BOOLEAN, "boolean"},
                                              {miTYPE_INTEGER, "integer"},
                                              {miTYPE_SCALAR, "scalar"},
                                              {miTYPE_ARRAY, "array"},
                                              {miTYPE_DATA, "data"}};
    std::ostringstream text;
    for (const stage::Param& param : declared.params) {
        text << param.name << ':' << types.at(param.type) << '@' << param.offset;
        float real = 0;
        int whole = 0;
        if (param.default_value.size() >= 4) {
            std::memcpy(&real, param.default_value.data(), 4);
            std::memcpy(&whole, param.default_value.data(), 4);
        }
        if (whole != 0)
            param.type == miTYPE_SCALAR ? text << '=' << real : text << '=' << whole;
        text << ' ';
    }
    text << declared.block_size;
    return text.str();
}

TEST(Declarations, LayoutOfWhatTheHostAttaches) {
    stage::Scene scene;
    stage::parse_file(scene, ORL_FILE_DECLARATIONS, [](stage::Scene&, const stage::RenderCommand&) {});
    // Host fields by number: four bytes each, counted from 1.
    const auto host = [](int first, int last) {
        std::string text;
        for (int k = first; k <= last; ++k)
            text += "field_" + std::to_string(k) + ":integer@" + std::to_string(4 * (k - 1)) + " ";
        return text;
    };
    const std::pair<const char*, std::string> cases[] = {
        {"data orl_SceneData",
         "material_editor:boolean@0 " + host(2, 8) +
             "force_two_sided:boolean@32 flip_sky:boolean@36 display_gamma:scalar@40=1 " + host(12, 15) +
             "material_switch_16:boolean@60 " + host(17, 21) + "material_switch_22:boolean@84 " +
             host(23, 23) + "map_channel_ids:boolean@92 96"},
        {"data orl_NodeData", "color_r:scalar@0=0.5 color_g:scalar@4=0.5 color_b:scalar@8=0.5 "
                              "visibility:scalar@12=1 node_id:integer@16 node_render_id:integer@20 "
                              "shadow_lights:array@24 shadows_from_all_lights:boolean@36=1 lights:array@40 "
                              "all_lights:boolean@52=1 56"},
        {"data orl_ObjectData", host(1, 9) + "particle_data:data@36 uv_channels:array@40 52"},
        {"data orl_GizmoData", "kind:integer@0 radius:scalar@4=1 height:scalar@8=1 size_x:scalar@12=1 "
                               "size_y:scalar@16=1 size_z:scalar@20=1 seed:integer@24 28"},
        {"orl_base_GBuffer_lens", "unused_1:integer@0 node_id:boolean@4 node_render_id:boolean@8 "
                                  "unused_2:integer@12 texture_coordinates:boolean@16 velocity:boolean@20 "
                                  "hold_handle_low:integer@24 hold_handle_high:integer@28 32"},
    };
    for (const auto& [name, layout] : cases)
        EXPECT_EQ(layout_of(*scene.declarations.at(name)), layout) << name;
    const stage::Declaration& lens = *scene.declarations.at("orl_base_GBuffer_lens");
    EXPECT_EQ(lens.result.type, miTYPE_COLOR);
    EXPECT_EQ(lens.apply, 1u << miSHADER_LENS);
}

} // namespace
