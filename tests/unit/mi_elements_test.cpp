// What each statement leaves in the public records.
#include "mi_test_support.h"

#include <cmath>
#include <filesystem>
#include <fstream>

#include "test_paths.h"

namespace stage {
namespace {

class MiElements : public SceneFixture {
protected:
    template <class T> static T value(const miUserdata& data, std::size_t offset) {
        T result;
        std::memcpy(&result, reinterpret_cast<const char*>(data.parameters) + offset, sizeof result);
        return result;
    }
};

TEST_F(MiElements, Options) {
    parse("options \"o\" trace depth 2 3 4 shadow segments samples -1 2 contrast 0.1 0.2 0.3 0.4 time "
          "contrast .3 .3 .3\n"
          "shutter 0.5 motion on filter gauss jitter .25 gamma 2.2 face front camera space \"rays\" 1 2.5 "
          "\"mode\" \"fast\" "
          "\"flag\" on task size 32 luminance weight 1 2 3 premultiply off end options");
    const auto& o = record<miOptions>("o");
    EXPECT_EQ(o.trace, miTRUE);
    EXPECT_EQ(o.reflection_depth, 2);
    EXPECT_EQ(o.refraction_depth, 3);
    EXPECT_EQ(o.trace_depth, 4);
    EXPECT_EQ(o.shadow, 's');
    EXPECT_EQ(o.min_samples, -1);
    EXPECT_EQ(o.max_samples, 2);
    EXPECT_EQ(o.contrast.a, 0.4f);
    EXPECT_NEAR(o.time_contrast.a, 0.3f, 1e-6f);
    EXPECT_EQ(o.filter, 'g');
    EXPECT_EQ(o.filter_size_x, 3.0f);
    EXPECT_EQ(o.face, 'f');
    EXPECT_EQ(o.render_space, 'c');
    EXPECT_EQ(o.gamma, 2.2f);
    EXPECT_EQ(o.shutter, 0.5f);
    EXPECT_EQ(o.task_size, 32);
    EXPECT_EQ(o.luminance_weight.b, 3.0f);
    EXPECT_EQ(o.nopremult, miTRUE);
    using Options = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(element("o").string_options, (Options{{"rays", "1 2.5"}, {"mode", "fast"}, {"flag", "on"}}));

    parse("incremental options \"o\" shadow sort space object \"mode\" \"slow\" end options");
    EXPECT_EQ(o.shadow, 'l');
    EXPECT_EQ(o.render_space, 'o');
    EXPECT_EQ(o.gamma, 2.2f);
    EXPECT_EQ(element("o").string_options[1].second, "slow");
}

TEST_F(MiElements, OptionsDefaults) {
    parse("options \"o\" end options");
    const auto& o = record<miOptions>("o");
    EXPECT_EQ(o.trace, miTRUE);
    EXPECT_EQ(o.trace_depth, 1);
    EXPECT_EQ(o.min_samples, -2);
    EXPECT_EQ(o.max_samples, 0);
    EXPECT_EQ(o.shadow, 1);
    EXPECT_EQ(o.face, 'a');
    EXPECT_EQ(o.gamma, 1.0f);
    EXPECT_EQ(o.visible_lights, miTRUE);
}

TEST_F(MiElements, Camera) {
    parse_declared(
        "camera \"c\" framebuffer \"main\" datatype \"rgba\" filename \"o.exr\" filetype \"exr\" primary on\n"
        "framebuffer \"aux\" datatype \"rgb_fp\" user on output \"tint\" ( ) focal 50 aperture 36 aspect "
        "1.5\n"
        "resolution 300 200 clip 0.1 5000 frame 7 0.25 field 1 offset 0.5 -2 environment \"tint\" ( \"k\" 1 "
        ")\n"
        "framebuffer \"aux\" filename \"aux.exr\" compression \"zip\" quality 80 end camera");
    const auto& c = record<miCamera>("c");
    EXPECT_EQ(c.focal, 50.0f);
    EXPECT_FALSE(c.orthographic);
    EXPECT_EQ(c.aperture, 36.0f);
    EXPECT_EQ(c.aspect, 1.5f);
    EXPECT_EQ(c.x_resolution, 300);
    EXPECT_EQ(c.window.xh, 299);
    EXPECT_EQ(c.window.yh, 199);
    EXPECT_EQ(c.clip.max, 5000.0f);
    EXPECT_EQ(c.frame, 7);
    EXPECT_EQ(c.frame_time, 0.25f);
    EXPECT_EQ(c.frame_field, 1);
    EXPECT_EQ(c.y_offset, -2.0f);
    EXPECT_NE(c.output, miNULLTAG);
    EXPECT_NE(c.environment, miNULLTAG);
    const auto& buffers = scene.database.find(c.framebuffers)->framebuffers;
    ASSERT_EQ(buffers.size(), 2u);
    EXPECT_TRUE(buffers[0].primary);
    EXPECT_TRUE(buffers[0].premultiplied);
    EXPECT_EQ(buffers[0].filename, "o.exr");
    EXPECT_TRUE(buffers[1].user);
    EXPECT_FALSE(buffers[1].premultiplied);
    EXPECT_EQ(buffers[1].datatype, "rgb_fp");
    EXPECT_EQ(buffers[1].filename, "aux.exr");
    EXPECT_EQ(buffers[1].quality, 80);

    parse("incremental camera \"c\" focal infinity window 10 20 30 40 end camera");
    EXPECT_TRUE(c.orthographic);
    EXPECT_EQ(c.window.yl, 20);
    parse("incremental camera \"c\" resolution 600 400 output \"rgba\" \"png\" \"x.png\" end camera");
    EXPECT_EQ(c.window.xh, 30); // a window of its own stays
    EXPECT_EQ(buffers.back().filename, "x.png");
    EXPECT_TRUE(buffers.back().primary);
}

TEST_F(MiElements, Lights) {
    parse("declare shader \"lamp\" ( color \"c\" ) end declare\n"
          "light \"point\" \"lamp\" ( \"c\" 1 1 1 ) origin 0 5 0 energy 10 20 30 exponent 2 caustic photons "
          "100 200 end light\n"
          "light \"sun\" \"lamp\" () direction 0 -2 0 end light\n"
          "light \"plane\" \"lamp\" () direction 0 -2 0 origin 1 2 3 end light\n"
          "light \"spot\" \"lamp\" () origin 0 0 0 direction 3 0 4 spread 0.75 visible tag 9 end light\n"
          "light \"area\" \"lamp\" () origin 0 0 0 rectangle 1 0 0 0 0 2 4 5 2 1 1 end light\n"
          "light \"ball\" \"lamp\" () origin 0 0 0 sphere 2.5 end light\n"
          "light \"tube\" \"lamp\" () origin 0 0 0 cylinder 0 1 0 0.5 3 3 end light\n"
          "light \"disc\" \"lamp\" () origin 0 0 0 disc 0 0 -4 1 end light");
    const auto& point = record<miLight>("point");
    EXPECT_EQ(point.type, miLIGHT_ORIGIN);
    EXPECT_EQ(point.area, miLIGHT_NONE);
    EXPECT_EQ(point.origin.y, 5.0f);
    EXPECT_EQ(point.energy.g, 20.0f);
    EXPECT_EQ(point.exponent, 2.0f);
    EXPECT_EQ(point.caustic_store_photons, 100u);
    EXPECT_EQ(point.caustic_emit_photons, 200u);
    EXPECT_NE(point.shader, miNULLTAG);
    EXPECT_EQ(record<miLight>("sun").type, miLIGHT_DIRECTION);
    EXPECT_EQ(record<miLight>("sun").direction.y, -1.0f);
    EXPECT_FALSE(record<miLight>("sun").dirlight_has_org);
    EXPECT_TRUE(record<miLight>("plane").dirlight_has_org);
    const auto& spot = record<miLight>("spot");
    EXPECT_EQ(spot.type, miLIGHT_SPOT);
    EXPECT_NEAR(spot.direction.z, 0.8f, 1e-6f);
    EXPECT_EQ(spot.spread, 0.75f);
    EXPECT_EQ(spot.label, 9u);
    EXPECT_TRUE(spot.visible);
    const auto& area = record<miLight>("area");
    EXPECT_EQ(area.area, miLIGHT_RECTANGLE);
    EXPECT_EQ(area.primitive.rectangle.edge_v.z, 2.0f);
    EXPECT_EQ(area.samples_u, 4);
    EXPECT_EQ(area.samples_v, 5);
    EXPECT_EQ(area.low_level, 2);
    EXPECT_EQ(area.low_samples_v, 1);
    EXPECT_EQ(record<miLight>("ball").primitive.sphere.radius, 2.5f);
    EXPECT_EQ(record<miLight>("tube").primitive.cylinder.radius, 0.5f);
    EXPECT_EQ(record<miLight>("disc").primitive.disc.normal.z, -1.0f);
    parse("incremental light \"spot\" spread 0.5 end light");
    EXPECT_EQ(spot.type, miLIGHT_SPOT);
    EXPECT_EQ(spot.label, 9u);
}

TEST_F(MiElements, Instances) {
    parse_declared(
        "object \"o\" end object material \"m\" \"tint\" () end material material \"n\" \"tint\" () end "
        "material\n"
        "declare data \"dd\" ( integer \"i\", scalar \"f\" ) end declare data \"d1\" \"dd\" ( \"i\" 3 )\n"
        "data \"d2\" tag 5 4 '0a0b' 'FFfe' declare shader \"lamp\" () end declare\n"
        "light \"l\" \"lamp\" () origin 0 0 0 end light instance \"li\" \"l\" end instance\n"
        "instance \"i\" \"o\" hide visible off reflection on transform 0 2 0 0  -2 0 0 0  0 0 4 0  1 2 3 1\n"
        "motion transform 1 0 0 0 0 1 0 0 0 0 1 0 5 0 0 1 material [ \"m\", \"n\" ] light exclusive [ \"li\" "
        "]\n"
        "tag 77 data \"d1\" data \"d2\" override face back parameters \"dd\" ( \"f\" 2.5 ) end instance");
    const auto& i = record<miInstance>("i");
    EXPECT_TRUE(i.off);
    EXPECT_EQ(i.visible, 0);
    EXPECT_EQ(i.reflection, 1);
    EXPECT_EQ(i.shadow, 2);
    EXPECT_EQ(i.face, 'b');
    EXPECT_EQ(i.label, 77u);
    EXPECT_EQ(i.override_material, 1);
    EXPECT_FALSE(i.tf.identity);
    EXPECT_EQ(i.gen_motion, 1);
    EXPECT_EQ(i.motion_transform[12], 5.0f);
    // p' = p M: (0, 0, 0) goes to (1, 2, 3), which the inverse takes back.
    const miScalar* inverse = i.tf.local_to_global;
    EXPECT_EQ(1 * inverse[0] + 2 * inverse[4] + 3 * inverse[8] + inverse[12], 0.0f);
    EXPECT_EQ(inverse[10], 0.25f);
    EXPECT_EQ(inverse[1], -0.5f);
    EXPECT_EQ(i.mtl_array_size, 2);
    EXPECT_EQ((&record<miTag>(i.material))[1], element("n").tag);
    EXPECT_EQ(i.light_list_size, 1);
    EXPECT_EQ(i.exclusive_lights, 1);
    EXPECT_EQ(record<miTag>(i.light_list), element("li").tag);

    EXPECT_EQ(i.userdata, element("d1").tag);
    const auto& d1 = record<miUserdata>("d1");
    EXPECT_EQ(d1.next_data, element("d2").tag);
    EXPECT_EQ(d1.parameter_size, 8);
    EXPECT_EQ(value<int>(d1, 0), 3);
    EXPECT_EQ(d1.data_decl, scene.declarations.at("data dd")->tag);
    const auto& d2 = record<miUserdata>("d2");
    EXPECT_EQ(d2.next_data, miNULLTAG);
    EXPECT_EQ(d2.label, 5u);
    EXPECT_EQ(d2.one, 1);
    EXPECT_EQ(std::memcmp(d2.parameters, "\x0a\x0b\xff\xfe", 4), 0);
    EXPECT_EQ(value<float>(record<miUserdata>(i.parameters), 4), 2.5f);

    parse("incremental instance \"i\" hide off material \"m\" light null data null end instance");
    EXPECT_FALSE(i.off);
    EXPECT_EQ(i.mtl_array_size, 0);
    EXPECT_EQ(i.material, element("m").tag);
    EXPECT_EQ(i.light_list, miNULLTAG);
    EXPECT_EQ(i.userdata, miNULLTAG);
    EXPECT_EQ(i.tf.global_to_local[12], 1.0f);
}

TEST_F(MiElements, DataFromAFile) {
    const std::filesystem::path folder = orl_test_output_dir;
    std::ofstream(folder / "bytes.bin", std::ios::binary) << std::string("a\0b", 3);
    parse_text(scene, "data \"d\" \"bytes.bin\"", "x.mi", nullptr, folder.string());
    EXPECT_EQ(record<miUserdata>("d").parameter_size, 3);
    EXPECT_EQ(std::memcmp(record<miUserdata>("d").parameters, "a\0b", 3), 0);
}

TEST_F(MiElements, Textures) {
    const std::filesystem::path folder = orl_test_output_dir;
    std::ofstream(folder / "wood.png") << "not looked into";
    parse_text(scene,
               "local filter 0.5 color texture \"t\" colorprofile \"sRGB\" \"wood.png\"\n"
               "scalar texture \"gone\" \"gone.tif\"\n"
               "color texture \"b\" 2 2 '000102' '101112' '202122' '303132'\n"
               "scalar texture \"w\" [ 1 2 2 ] '0102' '0304'\n"
               "writable color texture \"out\" \"o.exr\" \"rgb_fp\" \"exr\" 8 4",
               "x.mi", nullptr, folder.string());
    EXPECT_EQ(element("t").file, (folder / "wood.png").string());
    EXPECT_TRUE(record<miImg_image>("t").filter);
    EXPECT_TRUE(record<miImg_image>("t").local);
    EXPECT_EQ(element("t").texture_filter, 0.5f);
    EXPECT_TRUE(element("gone").file.empty());
    ASSERT_EQ(scene.warnings.size(), 1u);
    EXPECT_EQ(scene.warnings[0], "x.mi:2:23: cannot find the file \"gone.tif\" of the texture \"gone\"");

    // Component 1 of pixel (1, 1) is byte 0x31.
    const auto& b = record<miImg_image>("b");
    EXPECT_EQ(b.comp, 3);
    EXPECT_EQ(b.bits, 8);
    EXPECT_EQ(b.type, miIMG_TYPE_RGB);
    const auto* bytes = reinterpret_cast<const unsigned char*>(&b);
    const auto* index = reinterpret_cast<const miIntptr*>(bytes + offsetof(miImg_image, c));
    EXPECT_EQ(bytes[index[1 * 3 + 1] + 1], 0x31);
    EXPECT_EQ(bytes[index[0 * 3 + 2] + 1], 0x12);
    EXPECT_EQ(record<miImg_image>("w").bits, 16);
    EXPECT_EQ(record<miImg_image>("w").type, miIMG_TYPE_S_16);
    const auto& out = record<miImg_image>("out");
    EXPECT_TRUE(out.writable);
    EXPECT_EQ(out.width, 8);
    EXPECT_EQ(out.type, miIMG_TYPE_RGB_FP);
    EXPECT_GE(element("out").size,
              offsetof(miImg_image, c) + 12 * sizeof(miIntptr) + 8 * 4 * 3 * sizeof(float));
    EXPECT_EQ(element("out").texture_file_type, "exr");
}

constexpr const char* small_scene =
    "options \"o\" end options camera \"c\" end camera instance \"ci\" \"c\" end instance\n"
    "object \"q\" end object instance \"qi\" \"q\" end instance instgroup \"in\" \"ci\" \"qi\" end "
    "instgroup\n"
    "instance \"ii\" \"in\" end instance instgroup \"root\" \"ii\" tag 3 end instgroup\n";

TEST_F(MiElements, RenderCommandsAreHandedOnAtOnce) {
    int gamma_seen = 0;
    parse_text(scene,
               std::string(small_scene) +
                   "render \"root\" \"ci\" \"o\"\n"
                   "incremental options \"o\" gamma 2 end options render \"root\" \"ci\" \"o\"",
               "test.mi", [&](Scene& now, const RenderCommand& command) {
                   EXPECT_EQ(command.root, element("root").tag);
                   EXPECT_EQ(command.camera_instance, element("ci").tag);
                   gamma_seen = gamma_seen * 10 +
                                static_cast<int>(now.database.find(command.options)->as<miOptions>()->gamma);
               });
    EXPECT_EQ(gamma_seen, 12);
    const auto& root = record<miGroup>("root");
    EXPECT_EQ(root.no_kids, 1);
    EXPECT_EQ(root.label, 3u);
    EXPECT_EQ((&record<miGroup>("in").kids[0])[1], element("qi").tag);
}

TEST_F(MiElements, AGroupThatContainsItselfIsFound) {
    parse(small_scene);
    parse("incremental instance \"qi\" \"root\" end instance");
    EXPECT_NE(mistake("render \"root\" \"ci\" \"o\"").find("the group \"root\" contains itself"),
              std::string::npos);
}

TEST_F(MiElements, Commands) {
    std::string said;
    scene.on_echo = [&](const std::string& text) { said += text; };
    parse("#mi 3.5\nversion \"3.5\" verbose on memory 512 echo \"hello\" set \"search_path\" \"/a:/b\"");
    EXPECT_EQ(said, "hello");
    EXPECT_EQ(scene.verbosity, 5);
    EXPECT_EQ(scene.search_path, (std::vector<std::string>{"/a", "/b"}));
}

} // namespace
} // namespace stage
