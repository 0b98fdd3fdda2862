// What the scene asks for and the stage passes over is told with its place, once; nothing else is.
#include "../support/stage_scene.h"

namespace stage {
namespace {

miBoolean nothing(void*, miState*, void*, void*) {
    return miTRUE;
}

struct Case {
    std::string options, camera, report, others = {}, member = {}, output = {};
};

// Two frames of a scene whose options, camera and other things begin in the lines 2, 3 and 4: what is told,
// and whether rays are traced.
std::pair<std::string, bool> told(const Case& c) {
    Scene scene;
    for (const char* shader : {"s", "traced", "untraced"})
        scene.libraries->define(shader, reinterpret_cast<void*>(&nothing));
    stage_test::Told told;
    bool traced = false;
    const std::string text =
        R"(declare shader "s" () end declare declare shader "traced" () trace on end declare declare shader "untraced" () trace off end declare
options "opt" )" +
        c.options + " end options\ncamera \"cam\" resolution 2 2 " + c.camera + " end camera\n" + c.others +
        " instance \"eye\" \"cam\" end instance instgroup \"root\" \"eye\" " + c.member + " end instgroup" +
        R"( render "root" "eye" "opt" render "root" "eye" "opt")";
    try {
        parse_text(scene, text, "t.mi", [&](Scene& s, const RenderCommand& command) {
            RenderSettings settings;
            if (!c.output.empty())
                settings.outputs = {c.output};
            traced = Renderer(s, command, settings).world().options->trace != miFALSE;
        });
    } catch (const SceneError& error) {
        told.text.append(error.what()) += '\n';
    }
    return {told.text, traced};
}

TEST(StageDemands, AreMetOrTold) {
    const std::string lamp = R"(light "l" "s" () origin 0 0 0 end light instance "i" "l" )";
    const std::string moves = "motion transform 1 0 0 0 0 1 0 0 0 0 1 0 1 0 0 1";
    const std::string displaced = R"(material "m" "s" () displace "s" () end material)";
    const std::string made = R"(instance "i" geometry "s" () end instance)";
    const Case cases[] = {
        // the defaults, and what is so anyway
        {"samples -2 1 contrast .1 .2 .1 gamma 2 colorclip raw dither on caustic accuracy 100 samplelock on",
         "", ""},
        {"time contrast .1 .2 .1", "",
         "2:9: \"opt\": time contrast is not supported yet and without effect outside of"},
        {"\"autovolume\" on", "", "2:9: \"opt\": the string option autovolume is not supported yet and"},
        {"", "framebuffer \"b\" filetype \"rla\"", "3:8: \"cam\": frame buffer \"b\": the file type is"},
        {"", "resolution 32768 8193", "3:8: the camera \"cam\" asks for a picture of 32768 x 8193 pixels"},
        {"motion on shutter 1", "", "", lamp + moves + " end instance", "\"i\""},
        {"", "", "", lamp + "hide on end instance", "\"i\""},
        {"motion off shutter 1", "", "", lamp + moves + " end instance", "\"i\""},
        {"", "", "",
         lamp + moves +
             " end instance instgroup \"g\" \"i\" end instgroup instance \"held\" \"g\" motion off end "
             "instance",
         "\"held\""},
        {"shutter 1", "framebuffer \"b\" datatype \"m\"", "4:50: \"i\": its motion is not shown: the options",
         lamp + moves + " end instance", "\"i\""},
        {"", "framebuffer \"b\" datatype \"m\"", "", lamp + moves + " end instance", "\"i\""},
        {"", "", "4:98: \"i\": its motion is not shown: the options",
         R"(object "o" group 0 0 0 1 0 0 0 1 0 v 0 m 1 v 1 m 1 v 2 m 1 p 0 1 2 end group end object instance "i" "o" end instance)",
         "\"i\""},
        {"", "", "4:50: \"i\": this instance of a light is in no group", lamp + "end instance"},
        {"", "", "4:10: \"m\": displacement is", displaced},
        {"displace off", "", "", displaced},
        {"", "", "4:10: instance \"i\": an element of this kind", made, "\"i\""},
        {"geometry off", "", "", made, "\"i\""},
        {"", "", "4:12: \"x\": the demand for tracing to be off is not met: \"y\" demands the contrary",
         R"(shader "x" "untraced" () shader "y" "traced" ())"},
        {"", R"(output "rgba" "png" "a.png" output "z" "exr" "z.exr")",
         R"(3:8: "cam": the picture goes to "b.png", as -o or ./render says, and not to the scene's own "a.png", "z.exr")",
         "", "", "b.png"},
        {"", R"(output "rgba" "png" "a.png")", "", "", "", "a.png"},
        {"", R"(output "rgba" "png" "a.png")", ""},
    };
    for (const Case& c : cases) {
        const std::string all = told(c).first;
        EXPECT_EQ(std::ranges::count(all, '\n'), c.report.empty() ? 0 : 1) << all;
        EXPECT_THAT(all, testing::StartsWith(c.report.empty() ? "" : "t.mi:" + c.report));
    }
    EXPECT_TRUE(told({"trace off", "", "", R"(shader "x" "traced" ())"}).second);
    EXPECT_FALSE(told({"trace on", "", "", R"(shader "x" "untraced" ())"}).second);
}

} // namespace
} // namespace stage
