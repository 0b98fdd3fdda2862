// Mistakes: each is reported with its place, the line, and what was expected.
#include "mi_test_support.h"

#include <filesystem>
#include <fstream>

#include "test_paths.h"

namespace stage {
namespace {

struct Mistake {
    const char* text;
    const char* first_line; // of the report, behind the file's name
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.text;
}

class MiMistake : public SceneFixture, public testing::WithParamInterface<Mistake> {};

TEST_P(MiMistake, IsReportedWithItsPlace) {
    parse(declarations);
    const std::string report = mistake(GetParam().text);
    EXPECT_EQ(report.substr(0, report.find('\n')), std::string("test.mi:") + GetParam().first_line);
}

INSTANTIATE_TEST_SUITE_P(
    Words, MiMistake,
    testing::Values(
        Mistake{"shader \"a", "1:8: the string is not closed before the end of the line"},
        Mistake{"shader \"a\n\"", "1:8: the string is not closed before the end of the line"},
        Mistake{"\n\n  wibble",
                "3:3: expected a command or an entity (options, camera, texture, material, light, object, "
                "instance, instgroup, shader, data, lightprofile), found 'wibble'"},
        Mistake{"\x01", "1:1: a byte that no word starts with (0x01)"},
        Mistake{"data \"d\" 1 'f'", "1:12: a byte string needs two hexadecimal digits for each byte"},
        Mistake{"data \"d\" 1 'fg'",
                "1:14: expected a hexadecimal digit or the closing ' of the byte string"},
        Mistake{"data \"d\" 3 'ff'", "1:10: 3 bytes are announced, but 1 are given"},
        Mistake{"data \"d\" 99999999999 'ff'", "1:10: the integer is outside the range 0 to 2147483647"},
        Mistake{"$include \"none.mi\"", "1:11: cannot find the file \"none.mi\"; looked in ."},
        Mistake{"$include none", "1:10: expected \"file\" or <file> after $include"},
        Mistake{"$code\n",
                "1:1: shader source code in scenes is not supported: compile it to a library and use link"},
        Mistake{"code \"x.c\"",
                "1:1: shader source code in scenes is not supported: compile it to a library and use link"},
        Mistake{"$wibble", "1:1: unknown command $wibble, expected $include"},
        Mistake{"incremental render", "1:13: expected an entity after 'incremental', found 'render'"},
        Mistake{"assembly \"a\"", "1:1: 'assembly' is not supported"},
        Mistake{"end namespace", "1:1: \"end namespace\" without a namespace"},
        Mistake{"namespace \"a\"", "1:14: expected \"end namespace\" for the namespace \"a\""},
        Mistake{"set \"x\" \"y\"", "1:5: unknown setting the string \"x\", expected \"search_path\""},
        Mistake{"delete \"x\"", "1:8: there is no element \"x\""}));

INSTANTIATE_TEST_SUITE_P(
    Shaders, MiMistake,
    testing::Values(
        Mistake{"shader \"a\" \"none\" ()", "1:12: the shader \"none\" is not declared"},
        Mistake{"shader \"a\" \"tint\" ( \"x\" 1 )",
                "1:21: shader \"tint\" (declared at test.mi:1:22) has no parameter \"x\", only in, k, next"},
        Mistake{"shader \"a\" \"tint\" ( \"k\" 1, \"k\" 2 )", "1:28: the parameter \"k\" is given twice"},
        Mistake{"shader \"a\" \"tint\" ( \"k\" on )", "1:25: expected a number, found 'on'"},
        Mistake{"shader \"a\" \"tint\" ( \"k\" 1 2 )",
                "1:27: expected ',' or ')' after the scalar \"k\" of shader \"tint\", "
                "found the number 2"},
        Mistake{"shader \"a\" \"tint\" ( \"in\" 1 2 )", "1:30: expected a number, found ')'"},
        Mistake{"shader \"a\" \"bundle\" ( \"i\" 1.5 )", "1:27: expected an integer, found the number 1.5"},
        Mistake{"shader \"a\" \"bundle\" ( \"i\" 2147483648 )",
                "1:27: the integer is outside the range -2147483648 to 2147483647"},
        Mistake{"shader \"a\" \"many\" ( \"a\" 1 )", "1:25: expected '[', found the number 1"},
        Mistake{"shader \"a\" \"many\" ( \"b\" 1 )", "1:25: expected on or off, found the number 1"},
        Mistake{"shader \"a\" \"many\" ( \"pair\" { 1 1 1, 1 1 1, 1 } )",
                "1:44: expected '}', since the structure has 2 members, found the number 1"},
        Mistake{"shader \"a\" \"many\" ( \"pair\" { \"z\" 1 } )", "1:30: the structure has no member \"z\""},
        Mistake{"shader \"a\" \"tint\" ( \"next\" \"b\" )", "1:28: there is no shader \"b\""},
        Mistake{"shader \"a\" \"tint\" ( \"in\" = \"a\" )", "1:28: there is no shader \"a\""},
        Mistake{"shader \"n\" \"number\" () shader \"a\" \"tint\" ( \"in\" = \"n\" )",
                "1:51: a color cannot take the scalar that the string \"n\" returns"},
        Mistake{
            "shader \"n\" \"bundle\" () shader \"a\" \"tint\" ( \"in\" = \"n\" )",
            "1:51: a color cannot take the struct that the string \"n\" returns; name one of its members"},
        Mistake{"shader \"n\" \"bundle\" () shader \"a\" \"tint\" ( \"in\" = \"n.x\" )",
                "1:51: the result of shader \"n\" has no member \"x\""},
        Mistake{"shader \"n\" \"number\" () shader \"n\" \"tint\" ()",
                "1:31: \"n\" is already defined at test.mi:1:12; write 'incremental' in front to change it"},
        Mistake{"incremental shader \"n\" ()", "1:20: there is no shader \"n\""},
        Mistake{"shader \"a\" \"tint\" () incremental shader \"a\" ( \"in\" = \"a\" )",
                "1:41: \"a\" leads back to itself and would run without end"},
        Mistake{"shader \"a\" \"tint\" () shader \"b\" \"tint\" ( \"next\" \"a\" ) "
                "shader \"c\" \"tint\" ( \"in\" = \"b\" ) incremental shader \"a\" ( \"next\" \"c\" )",
                "1:107: \"a\" leads back to itself and would run without end"},
        Mistake{
            "declare shader \"place\" ( array struct { integer \"k\", shader \"s\" } \"l\" ) end declare\n"
            "shader \"x\" \"place\" () shader \"y\" \"place\" ( \"l\" [ { 1, \"x\" } ] )\n"
            "incremental shader \"x\" ( \"l\" [ { 1, null }, { 2, \"y\" } ] )",
            "3:20: \"x\" leads back to itself and would run without end"},
        Mistake{"declare shader \"lamp\" ( material \"m\" ) end declare\n"
                "material \"loop\" \"lamp\" ( \"m\" \"loop\" ) end material",
                "2:10: \"loop\" leads back to itself and would run without end"},
        // one of a slot's list of shaders
        Mistake{
            "declare shader \"lamp\" ( material \"m\" ) end declare\n"
            "material \"m\" \"tint\" () end material material \"n\" \"lamp\" ( \"m\" \"m\" ) end material\n"
            "incremental material \"m\" shadow \"tint\" () \"lamp\" ( \"m\" \"n\" ) end material",
            "3:22: \"m\" leads back to itself and would run without end"},
        Mistake{"shader \"a\" \"tint\" ( \"in\" = interface \"x\" )",
                "1:38: 'interface' has a meaning only within a phenomenon"},
        Mistake{"declare shader \"x\" ( wibble \"a\" )",
                "1:22: expected a type (boolean, integer, scalar, string, color, vector, transform, shader, "
                "texture, light, "
                "struct, array, material, geometry, lightprofile or data), found 'wibble'"},
        Mistake{"declare shader \"x\" ( scalar \"a\", color \"a\" )", "1:34: \"a\" is declared twice"},
        Mistake{"declare shader light \"x\" ()", "1:16: a light cannot be a result"},
        Mistake{"declare shader \"tint\" () end declare",
                "1:16: the string \"tint\" is already declared at test.mi:1:22"},
        Mistake{"declare shader \"x\" ( array array scalar \"a\" )", "1:22: an array cannot hold arrays"},
        Mistake{"declare shader \"gone\" () version 1 end declare shader \"s\" \"gone\" ()",
                "1:59: shader \"gone\" (declared at test.mi:1:16) is in no linked library (linked: none)"},
        Mistake{"declare phenomenon \"p\" () root \"tint\" ()",
                "1:41: expected 'end declare', found the end of the file"},
        Mistake{"declare phenomenon scalar \"p\" () root \"tint\" () end declare\nshader \"s\" \"p\" ()",
                "1:39: the root returns a color, but the phenomenon is declared to return a scalar"},
        Mistake{"declare phenomenon \"p\" () shader \"s\" \"tint\" () end declare\nshader \"s\" \"p\" ()",
                "2:12: the phenomenon \"p\" (declared at test.mi:1:20) has no root"},
        Mistake{"declare phenomenon \"p\" () root \"p\" () end declare\nshader \"s\" \"p\" ()",
                "1:32: phenomena are nested more than 12 deep"},
        Mistake{"data \"d\" \"dd\" ( \"i\" 3 )", "1:10: there is no data declaration \"dd\""}));

INSTANTIATE_TEST_SUITE_P(
    Elements, MiMistake,
    testing::Values(
        Mistake{"camera \"c\" focal 0 end camera", "1:18: the focal must be positive"},
        Mistake{"camera \"c\" resolution 0 5", "1:23: the integer is outside the range 1 to 65536"},
        Mistake{
            "camera \"c\" wibble",
            "1:12: unknown statement 'wibble' in a camera; expected framebuffer, output, focal, aperture, "
            "aspect, "
            "resolution, window, clip, lens, volume, environment, frame, field, offset, data or end camera"},
        Mistake{"camera \"c\" framebuffer \"f\" datatype \"x\"",
                "1:37: unknown data type the string \"x\", expected rgba, rgb, a or s (plain or with _16, "
                "_fp), rgba_h, "
                "rgb_h, vta, vts, z, n, m, tag, bit or coverage"},
        Mistake{"options \"o\" shadow maybe",
                "1:20: expected one of off, on, simple, sort, segments, found 'maybe'"},
        Mistake{"options \"o\" samples 2 1", "1:21: the largest number of samples is below the smallest"},
        Mistake{"options \"o\" gamma 0", "1:19: gamma must be positive"},
        Mistake{"options \"o\"",
                "1:12: unknown statement the end of the file in options; expected a known option, a "
                "\"string option\", state, data or end options"},
        Mistake{"material \"m\" \"tint\" () bsdf \"tint\" ()",
                "1:24: unknown statement 'bsdf' in a material; expected shader, displace, shadow, volume, "
                "environment, "
                "contour, photon, photonvol, lightmap or end material"},
        Mistake{"light \"l\" \"tint\" () end light", "1:7: a light needs an origin or a direction"},
        Mistake{"light \"l\" \"tint\" () origin 0 0 0 spread 0.5 end light",
                "1:7: a light with a spread is a spot light and needs an origin and a direction"},
        Mistake{"light \"l\" \"tint\" () direction 0 0 0", "1:21: the light's direction is a null vector"},
        Mistake{"instance \"i\" \"x\"", "1:14: there is no element \"x\""},
        Mistake{"options \"o\" end options instance \"i\" \"o\"",
                "1:38: \"o\" (defined at test.mi:1:9) is no object, light, camera or instance group"},
        Mistake{"camera \"c\" end camera instance \"i\" \"c\" transform 1 0 0 0 0 1 0 0 0 0 0 0 0 0 0 1",
                "1:40: the transform has no inverse"},
        Mistake{"camera \"c\" end camera instgroup \"g\" \"c\" end instgroup",
                "1:37: \"c\" (defined at test.mi:1:8) is no instance"},
        Mistake{"color texture \"t\" 2 2 'ffffff'",
                "1:19: 3 bytes do not fill a color texture of 2 x 2 pixels"},
        Mistake{"render \"g\" \"c\" \"o\"", "1:8: there is no instance group \"g\""},
        Mistake{"instgroup \"g\" end instgroup options \"o\" end options camera \"c\" end camera "
                "instance \"ci\" \"c\" end instance render \"g\" \"ci\" \"o\"",
                "1:113: the root group does not contain the camera's instance \"ci\""}));

TEST_F(SceneFixture, TheLineIsShownWithACaret) {
    EXPECT_EQ(mistake("options \"o\"\n\tgamma \x01-1\n"),
              "test.mi:2:8: a byte that no word starts with (0x01)\n\tgamma ?-1\n\t      ^");
}

TEST_F(SceneFixture, AMistakeInAPhenomenonNamesTheInstance) {
    parse_declared("declare phenomenon \"p\" ( scalar \"k\" )\n root \"tint\" ( \"in\" = interface \"k\" "
                   ")\nend declare\n");
    EXPECT_EQ(
        mistake("\n shader \"s\" \"p\" ()"),
        "test.mi:5:33: a color cannot take the scalar \"k\"\n root \"tint\" ( \"in\" = interface \"k\" )\n"
        "                                ^\ntest.mi:2:13: in this instance of the phenomenon \"p\"");
}

TEST_F(SceneFixture, LongLinesAreShownInPart) {
    const std::string report = mistake(std::string(100000, ' ') + "wibble" + std::string(100000, ' '));
    EXPECT_LT(report.size(), 700u);
    EXPECT_NE(report.find("test.mi:1:100001:"), std::string::npos);
    EXPECT_NE(report.find("  wibble  "), std::string::npos);
}

// Bad files of every kind end in a message.
class BadFile : public SceneFixture {
protected:
    std::filesystem::path write(const std::string& name, const std::string& content) {
        const std::filesystem::path folder = std::filesystem::path(orl_test_output_dir) / "bad_file";
        std::filesystem::create_directories(folder);
        std::ofstream(folder / name, std::ios::binary) << content;
        return folder / name;
    }
    std::string mistake_in(const std::filesystem::path& file) {
        try {
            parse_file(scene, file.string(), nullptr);
        } catch (const SceneError& error) {
            return error.what();
        }
        return "no error";
    }
};

TEST_F(BadFile, FilesThatIncludeEachOther) {
    const auto a = write("a.mi", "\n$include \"b.mi\"\n");
    const auto b = write("b.mi", "$include \"a.mi\"\n");
    EXPECT_EQ(mistake_in(a),
              b.string() + ":1:1: \"" + a.string() + "\" includes itself\n$include \"a.mi\"\n^");
}

TEST_F(BadFile, AnIncludedFileEndsAnywhere) {
    write("part.mi", "gamma 2 # no line end");
    const auto whole = write("whole.mi", "options \"o\"\n$include \"part.mi\"\nshadow off end options");
    EXPECT_EQ(mistake_in(whole), "no error");
    EXPECT_EQ(record<miOptions>("o").gamma, 2.0f);
    EXPECT_EQ(record<miOptions>("o").shadow, 0);
}

TEST_F(BadFile, MissingFolderAndEmpty) {
    EXPECT_EQ(mistake_in("/nowhere/x.mi"),
              "/nowhere/x.mi:1:1: cannot read \"/nowhere/x.mi\": No such file or directory");
    EXPECT_NE(mistake_in(orl_test_output_dir).find("it is no file"), std::string::npos);
    EXPECT_EQ(mistake_in(write("empty.mi", "")), "no error");
    EXPECT_NE(mistake_in(write("binary.mi", std::string("\x7f"
                                                        "ELF\0\0\0",
                                                        7)))
                  .find("0x7f"),
              std::string::npos);
}

TEST_F(BadFile, FilesThatFillTheirLastPage) {
    const std::string tail = "options \"o\" gamma 2";
    EXPECT_NE(
        mistake_in(write("page.mi", std::string(8192 - tail.size(), ' ') + tail)).find("end of the file"),
        std::string::npos);
}

TEST_F(BadFile, DeepNestingIsBounded) {
    parse_declared("");
    std::string shaders = "shader \"a\" \"tint\" ( ", types = "declare shader \"x\" ( ";
    for (int k = 0; k < 100000; ++k) {
        shaders += "\"next\" \"tint\" ( ";
        types += "struct \"s\" { ";
    }
    EXPECT_NE(mistake(shaders).find("nested more than 64 deep"), std::string::npos);
    EXPECT_NE(mistake(types).find("nested more than 16 deep"), std::string::npos);
}

TEST_F(BadFile, EveryBeginningOfASceneEndsInAMessageOrIsOne) {
    const std::string text =
        "declare data \"dd\" ( integer \"i\" ) end declare data \"d\" \"dd\" ( \"i\" 3 )\n"
        "options \"o\" trace depth 1 2 3 \"x\" 1 2 end options camera \"c\" framebuffer \"f\" datatype "
        "\"rgba\" end camera\n"
        "shader \"s\" \"many\" ( \"a\" [ 1, 2 ], \"pair\" { 1 2 3, 4 5 6 }, \"t\" \"x\\\"y\" )\n"
        "object \"q\" group 0 0 0 1 0 0 0 1 0 v 0 n 1 v 1 n 1 v 2 n 1 p 0 1 2 hole 0 1 2 data 1 end group "
        "end object\n"
        "instance \"i\" \"c\" transform 1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1 end instance instgroup \"g\" \"i\" "
        "end instgroup\n"
        "color texture \"t\" 1 1 'ffffff' render \"g\" \"i\" \"o\"";
    for (std::size_t length = 0; length <= text.size(); ++length) {
        Scene fresh;
        fresh.libraries->define("many", reinterpret_cast<void*>(+[] {}));
        const std::string part = std::string(declarations) + text.substr(0, length);
        try {
            parse_text(fresh, part, "cut.mi", nullptr);
        } catch (const SceneError& error) {
            ASSERT_EQ(std::string(error.what()).substr(0, 7), "cut.mi:") << part;
        }
    }
}

} // namespace
} // namespace stage
