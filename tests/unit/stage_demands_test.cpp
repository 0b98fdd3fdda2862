// What the scene asks for and the stage passes over is told with its place, once; nothing else is.
#include <gmock/gmock.h>

#include "kit/message.h"
#include "mi/parser.h"
#include "render/renderer.h"
#include "scene/libraries.h"

namespace stage {
namespace {

miBoolean nothing(void*, miState*, void*, void*) {
    return miTRUE;
}

// Renders nothing, twice; options and camera begin in the lines 2 and 3. What is told, line by line.
std::string told(const std::string& options, const std::string& camera, const std::string& others,
                 const std::string& member = "", bool* traces = nullptr) {
    Scene scene;
    for (const char* shader : {"s", "traced", "untraced"})
        scene.libraries->define(shader, reinterpret_cast<void*>(&nothing));
    std::string messages;
    set_message_sink([&](MessageLevel, std::string_view text) { messages.append(text) += '\n'; });
    const std::string render = " render \"root\" \"eye\" \"opt\"";
    try {
        parse_text(scene,
                   "declare shader \"s\" () end declare declare shader \"traced\" () trace on end declare "
                   "declare shader \"untraced\" () trace off end declare\noptions \"opt\" " + options + " end options\ncamera \"cam\" resolution 2 2 " + camera +
                       " end camera\ninstance \"eye\" \"cam\" end instance\n" + others +
                       "\ninstgroup \"root\" \"eye\" " + member + " end instgroup\n" + render + render,
                   "t.mi", [&](Scene& s, const RenderCommand& c) {
                       const Renderer renderer(s, c, {});
                       if (traces)
                           *traces = renderer.world().options->trace != miFALSE;
                   });
    } catch (const SceneError& error) {
        messages.append(error.what()) += '\n';
    }
    set_message_sink(nullptr);
    return messages;
}

TEST(StageDemands, OptionsAndCameras) {
    const struct {
        const char *options, *camera, *report;
    } cases[] = {
        {"samples -2 1 contrast .1 .1 .1 gamma 1 colorclip rgb jitter 1 caustic accuracy 100 samplelock on", "",
         ""}, // the defaults, and what is so anyway
        {"samples 1 1", "", ""},
        {"samples 0 1", "", "t.mi:2:9: \"opt\": a least number of samples below"},
        {"contrast .1 .2 .1", "", "t.mi:2:9: \"opt\": contrast is"},
        {"time contrast .1 .1 .1", "", "t.mi:2:9: \"opt\": time contrast is"},
        {"gamma 2", "", "t.mi:2:9: \"opt\": gamma is not supported yet and without effect outside of shaders"},
        {"colorclip raw", "", "t.mi:2:9: \"opt\": colorclip is"},
        {"premultiply off", "", "t.mi:2:9: \"opt\": premultiply off is"},
        {"globillum accuracy 100 2", "", "t.mi:2:9: \"opt\": accuracy and depth of photons are"},
        {"\"autovolume\" on", "", "t.mi:2:9: \"opt\": the string option autovolume is not supported yet and"},
        {"", "field 1", "t.mi:3:8: \"cam\": rendering of fields is"},
        {"", "framebuffer \"b\" dpi 72", "t.mi:3:8: \"cam\": frame buffer \"b\": dpi is"},
        {"", "framebuffer \"b\" filetype \"rla\"", "t.mi:3:8: \"cam\": frame buffer \"b\": the file type is"},
        {"", "output \"s\" ()", "t.mi:3:36: \"s\": output shaders are not supported yet"},
        {"output off", "output \"s\" ()", ""},
        {"", "resolution 32768 8193", "t.mi:3:8: the camera \"cam\" asks for a picture of 32768 x 8193 pixels"},
    };
    for (const auto& c : cases) {
        const std::string all = told(c.options, c.camera, "");
        EXPECT_THAT(all, testing::StartsWith(c.report)) << c.options << c.camera;
        EXPECT_EQ(std::ranges::count(all, '\n'), *c.report ? 1 : 0) << all;
    }
}

TEST(StageDemands, WhatStandsInTheScene) {
    const std::string lamp = "light \"l\" \"s\" () origin 0 0 0 end light instance \"i\" \"l\"";
    const std::string moves = " motion transform 1 0 0 0 0 1 0 0 0 0 1 0 1 0 0 1";
    const std::string material = "material \"m\" \"s\" () displace \"s\" () end material";
    const struct {
        std::string options, others, member, report;
    } cases[] = {
        {"motion on shutter 1", lamp + moves + " end instance", "\"i\"", "t.mi:5:50: \"i\": moving lights are"},
        {"motion off shutter 1", lamp + moves + " end instance", "\"i\"", ""},
        {"", lamp + " hide on end instance", "\"i\"", ""},
        {"", lamp + " end instance", "", "t.mi:5:50: \"i\": this instance of a light is in no group"},
        {"", material, "", "t.mi:5:10: \"m\": displacement is"},
        {"displace off", material, "", ""},
        {"", "instance \"i\" geometry \"s\" () end instance", "\"i\"", "t.mi:5:10: instance \"i\": an element of"},
        {"geometry off", "instance \"i\" geometry \"s\" () end instance", "\"i\"", ""},
    };
    for (const auto& c : cases)
        EXPECT_THAT(told(c.options, "", c.others, c.member),
                    c.report.empty() ? testing::Matcher<std::string>(testing::IsEmpty())
                                     : testing::StartsWith(c.report))
            << c.others;
    bool traces = false;
    EXPECT_EQ(told("trace off", "", "shader \"x\" \"traced\" ()", "", &traces), "");
    EXPECT_TRUE(traces);
    EXPECT_THAT(told("", "", "shader \"x\" \"untraced\" ()"),
                testing::StartsWith("t.mi:5:12: \"x\": the demand for tracing to be off is"));
}

} // namespace
} // namespace stage
