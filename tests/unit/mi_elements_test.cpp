// What each statement leaves in the public records.
#include "mi_test_support.h"

#include <filesystem>
#include <fstream>

#include "test_paths.h"

namespace stage {
namespace {

class MiElements : public SceneFixture {};
using Values = std::vector<double>;

template <class... Value> Values values(Value... value) {
    return {static_cast<double>(value)...};
}

TEST_F(MiElements, Options) {
    parse(R"(options "o" trace depth 2 3 4 shadow segments samples -1 2 contrast 0.1 0.2 0.3 0.5
shutter 0.5 motion on filter gauss gamma 2.25 face front camera space "rays" 1 2.5 "mode" "fast" "flag" on task size 32 luminance weight 1 2 3 premultiply off end options options "p" end options)");
    const auto& o = record<miOptions>("o");
    EXPECT_EQ(
        values(o.reflection_depth, o.refraction_depth, o.trace_depth, o.shadow, o.min_samples, o.max_samples),
        values(2, 3, 4, 's', -1, 2));
    EXPECT_EQ(
        values(o.contrast.a, o.shutter, o.motion, o.filter, o.filter_size_x, o.gamma, o.face, o.render_space),
        values(0.5, 0.5, 1, 'g', 3, 2.25, 'f', 'c'));
    EXPECT_EQ(values(o.task_size, o.luminance_weight.b, o.nopremult), values(32, 3, 1));
    using Options = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(element("o").string_options, (Options{{"rays", "1 2.5"}, {"mode", "fast"}, {"flag", "on"}}));
    const auto& p = record<miOptions>("p"); // nothing said
    EXPECT_EQ(values(p.trace, p.trace_depth, p.min_samples, p.max_samples, p.shadow, p.face, p.gamma),
              values(1, 1, -2, 0, 1, 'a', 1));
    parse(R"(incremental options "o" shadow sort space object "mode" "slow" end options)");
    EXPECT_EQ(values(o.shadow, o.render_space, o.gamma), values('l', 'o', 2.25));
    EXPECT_EQ(element("o").string_options[1].second, "slow");
}

TEST_F(MiElements, Instances) {
    const std::filesystem::path folder = orl_test_output_dir;
    std::ofstream(folder / "bytes.bin", std::ios::binary) << std::string("a\0b", 3);
    parse_text(scene, R"(data "d3" "bytes.bin")", "x.mi", nullptr, folder.string());
    parse_declared(
        R"(object "o" end object material "m" "tint" () end material material "n" "tint" () end material
declare data "dd" ( integer "i", scalar "f" ) end declare data "d1" "dd" ( "i" 3 )
data "d2" tag 5 4 '0a0b' 'FFfe'
light "l" "tint" () origin 0 0 0 end light instance "li" "l" end instance
instance "i" "o" hide visible off reflection on transform 0 2 0 0  -2 0 0 0  0 0 4 0  1 2 3 1
motion transform 1 0 0 0 0 1 0 0 0 0 1 0 5 0 0 1 material [ "m", "n" ] light exclusive [ "li" ]
tag 77 data "d1" data "d2" override face back parameters "dd" ( "f" 2.5 ) end instance)");
    const auto& i = record<miInstance>("i");
    EXPECT_EQ(values(i.off, i.visible, i.reflection, i.shadow, i.face, i.label, i.override_material),
              values(1, 0, 3, 4, 'b', 77, 1));
    EXPECT_EQ(values(i.tf.identity, i.gen_motion, i.motion_transform[12]), values(0, 1, 5));
    // The way back, by hand: (x, y, z) comes from (-2 y, 2 x, 4 z) + (1, 2, 3).
    const miMatrix back = {0, -0.5f, 0, 0, 0.5f, 0, 0, 0, 0, 0, 0.25f, 0, -1, 0.5f, -0.75f, 1};
    EXPECT_EQ(Values(i.tf.local_to_global, i.tf.local_to_global + 16), Values(back, back + 16));
    EXPECT_EQ(values(i.mtl_array_size, (&record<miTag>(i.material))[1]), values(2, element("n").tag));
    EXPECT_EQ(values(i.light_list_size, i.exclusive_lights, record<miTag>(i.light_list)),
              values(1, 1, element("li").tag));

    const miUserdata &d1 = record<miUserdata>("d1"), &d2 = record<miUserdata>("d2");
    EXPECT_EQ(values(i.userdata, d1.next_data, d2.next_data),
              values(element("d1").tag, element("d2").tag, 0));
    EXPECT_EQ(values(d1.parameter_size, d1.data_decl, d2.label, d2.one),
              values(8, scene.declarations.at("data dd")->tag, 5, 1));
    EXPECT_EQ(std::memcmp(d1.parameters, "\3\0\0\0", 4), 0);
    EXPECT_EQ(std::memcmp(d2.parameters, "\x0a\x0b\xff\xfe", 4), 0);
    EXPECT_EQ(record<miUserdata>("d3").parameter_size, 3);
    EXPECT_EQ(std::memcmp(record<miUserdata>("d3").parameters, "a\0b", 3), 0);
    parse(R"(incremental instance "i" hide off material "m" light null data null end instance)");
    EXPECT_EQ(values(i.off, i.mtl_array_size, i.material, i.light_list, i.userdata, i.tf.global_to_local[12]),
              values(0, 0, element("m").tag, 0, 0, 1));
}

// What other programs write beside the usual, and what is told of it.
TEST_F(MiElements, RareStatements) {
    parse_declared(
        R"(declare shader "heir" ( scalar "f" default 3, integer "i" ) end declare options "o" inheritance "heir" end options
object "o1" shadow 1 reflection 2 shadowmap off falloff 2 5 box -1 -2 -3 1 2 3 motion box 0 0 0 9 9 9 finalgather file "p.fg" finalgather 2 end object
light "l" "tint" () shadowmap file "l.map" origin 0 0 0 end light
camera "c" framebuffer "b" field "even" end camera
material "m" "tint" () bsdf "tint" () end material
instance "i" "o1" shadow 2 transparency 1 shadowmap on shading samples 2
  approximate surface regular parametric 2 3 all hide ( "i" 7 ) end instance)");
    const auto& o = record<miObject>("o1");
    EXPECT_EQ(values(o.shadow, o.reflection, o.finalgather, o.falloff.min, o.falloff.max, o.bbox_min.y),
              values(1, 2, 2, 2, 5, -2));
    EXPECT_STREQ(&record<char>(o.finalgather_file), "p.fg");
    EXPECT_STREQ(&record<char>(record<miLight>("l").shadowmap_file), "l.map");
    EXPECT_EQ(element(record<miCamera>("c").framebuffers).framebuffers[0].field, "even");
    const auto& i = record<miInstance>("i");
    EXPECT_EQ(values(i.shadow, i.transparency, i.reflection, i.off), values(2, 1, 4, 1));
    const struct {
        float f;
        int i;
    } given = {3, 7};
    EXPECT_EQ(std::memcmp(record<miUserdata>(i.parameters).parameters, &given, sizeof given), 0);
    EXPECT_THAT(scene.warnings,
                testing::ElementsAre(testing::StartsWith("test.mi:8:24: bsdf shaders are not supported"),
                                     testing::StartsWith("test.mi:9:56: shading samples are not"),
                                     testing::StartsWith("test.mi:10:3: approximations are without effect")));
}

TEST_F(MiElements, CommandsAndRendersAtOnce) {
    std::string said;
    scene.on_echo = [&](const std::string& text) { said += text; };
    std::vector<float> gammas;
    parse_text(scene,
               R"(#mi 3.5
version "3.5" verbose on echo "hello" set "search_path" "/a:/b"
options "o" end options camera "c" end camera instance "ci" "c" end instance
instgroup "in" "ci" end instgroup instance "ii" "in" end instance instgroup "root" "ii" tag 3 end instgroup render "root" "ci" "o"
incremental options "o" gamma 2 end options render "root" "ci" "o")",
               "test.mi", [&](Scene& now, const RenderCommand& command) {
                   EXPECT_EQ(values(command.root, command.camera_instance),
                             values(element("root").tag, element("ci").tag));
                   gammas.push_back(now.database.find(command.options)->as<miOptions>()->gamma);
               });
    EXPECT_EQ(gammas, (std::vector<float>{1, 2}));
    EXPECT_EQ(said, "hello");
    EXPECT_EQ(scene.search_path, (std::vector<std::string>{"/a", "/b"}));
    const auto& root = record<miGroup>("root");
    EXPECT_EQ(values(root.no_kids, root.label, root.kids[0]), values(1, 3, element("ii").tag));
    parse(R"(incremental instance "ii" "root" end instance)");
    EXPECT_THAT(mistake(R"(render "root" "ci" "o")"),
                testing::HasSubstr(R"(the group "root" contains itself)"));
}

} // namespace
} // namespace stage
