// Mistakes: each is reported with its place, the line, and what was expected.
#include "mi_test_support.h"

#include <filesystem>
#include <fstream>

#include "test_paths.h"

namespace stage {
namespace {

struct Mistake {
    const char* text;
    const char* report; // how it begins, behind the file's name
};

const Mistake mistakes[] = {
    // words
    {R"(shader "a
")",
     "1:8: the string is not closed before the end of the line"},
    {"\n\n  wibble", "3:3: unknown statement 'wibble' in a scene; expected incremental, options, "},
    {"\x01", "1:1: a byte that no word starts with (0x01)"},
    {R"(data "d" 1 'fg')", "1:14: expected a hexadecimal digit or the closing '"},
    {R"(data "d" 3 'ff')", "1:10: 3 bytes are announced, but 1 are given"},
    {R"($include "none.mi")", R"(1:11: cannot find the file "none.mi"; looked in .)"},
    {"\n  $include <x>", "2:3: a command with $ starts in the first column of its line"},
    {R"(namespace "a")", R"(1:14: expected "end namespace" for the namespace "a")"},
    {R"(delete "x")", R"(1:8: there is no element "x")"},
    {R"(declare shader color "d" (array array integer "x") end declare)",
     "1:27: an array cannot hold arrays"},
    // words that are nearly right
    {R"(lihgt "l")", "1:1: unknown statement 'lihgt' in a scene; did you mean 'light'?"},
    {R"(options "o" shaddow on)", "1:13: unknown statement 'shaddow' in options; did you mean 'shadow'?"},
    {R"(options "o" trace dept 4)",
     "1:19: expected one of depth, on, off, found 'dept'; did you mean 'depth'?"},
    {R"(options "o" trace of)", "1:19: expected one of depth, on, off, found 'of'; did you mean 'off'?"},
    {R"(shader "a" "tnit" ())", R"(1:12: the shader "tnit" is not declared; did you mean "tint"?)"},
    {R"(shader "a" "tint" ( "nxt" null ))",
     R"(1:21: shader "tint" (declared at test.mi:1:22) has no parameter "nxt"; did you mean "next"?)"},
    {R"(shader "pale" "tint" () shader "b" "tint" ( "next" "pael" ))",
     R"(1:52: there is no shader "pael"; did you mean "pale"?)"},
    // shaders
    {R"(shader "a" "none" ())", R"(1:12: the shader "none" is not declared)"},
    {R"(shader "a" "tint" ( "x" 1 ))",
     R"(1:21: shader "tint" (declared at test.mi:1:22) has no parameter "x", only in, k, next)"},
    {R"(shader "a" "tint" ( "k" 1, "k" 2 ))", R"(1:28: the parameter "k" is given twice)"},
    {R"(shader "n" "number" () shader "a" "tint" ( "k" "n" ))",
     R"(1:48: expected a scalar, found the shader "n"; write = in front)"},
    {R"(shader "a" "many" ( "pair" { "z" 1 } ))", R"(1:30: the structure has no member "z")"},
    {R"(shader "n" "number" () shader "a" "tint" ( "in" = "n" ))",
     R"(1:51: a color cannot take the scalar that the shader "n" re)"},
    {R"(shader "n" "bundle" () shader "a" "tint" ( "in" = "n.x" ))",
     R"(1:51: the result of shader "n" has no member)"},
    {R"(shader "n" "number" () shader "n" "tint" ())", R"(1:31: "n" is already defined at test.mi:1:12)"},
    {R"(shader "a" "tint" () shader "b" "tint" ( "next" "a" )
shader "c" "tint" ( "in" = "b" ) incremental shader "a" ( "next" "c" ))",
     R"(2:53: "a" leads back to itself and would run)"},
    {R"(declare shader "place" ( array struct { integer "k", shader "s" } "l" ) end declare
shader "x" "place" () shader "y" "place" ( "l" [ { 1, "x" } ] )
incremental shader "x" ( "l" [ { 1, null }, { 2, "y" } ] ))",
     R"(3:20: "x" leads back to itself and would run)"},
    {R"(declare shader "lamp" ( material "m" ) end declare
material "m" "tint" () end material material "n" "lamp" ( "m" "m" ) end material
incremental material "m" shadow "tint" () "lamp" ( "m" "n" ) end material)", // one of a slot's list of
                                                                             // shaders
     R"(3:22: "m" leads back to itself and would run)"},
    {R"(shader "a" "tint" ( "in" = interface "x" ))", "1:38: 'interface' has a meaning only within a phenom"},
    {R"(declare shader "tint" () end declare)", R"(1:16: "tint" is already declared)"},
    {R"(declare shader "gone" () end declare shader "s" "gone" ())",
     R"(1:49: shader "gone" (declared at test.mi:1:16) is in no linked)"},
    {R"(declare phenomenon "p" () shader "s" "tint" () end declare
shader "s" "p" ())",
     R"(2:12: the phenomenon "p" (declared at test.mi:1:20) has no root)"},
    {R"(declare phenomenon "p" () root "p" () end declare
shader "s" "p" ())",
     "1:32: phenomena are nested more than 12 deep"},
    // elements
    {R"(camera "c" pass "p" end camera)", "1:12: render passes are not supported"},
    {R"(object "o" falloff 2 1 end object)", "1:12: the falloff of rays needs a start from 0 and a stop"},
    {R"(object "o" end object instance "i" "o" ( "a" 1 ) end instance)",
     "1:40: parameters of an instance need their declaration: name it with inheritance"},
    {R"(camera "c" wibble)", "1:12: unknown statement 'wibble' in a camera; expected end, framebuffer, "},
    {R"(camera "c" framebuffer "f" datatype "x")", R"(1:37: unknown data type "x", expected rgba, )"},
    {R"(light "l" "tint" () end light)", "1:7: a light needs an origin or a direction"},
    {R"(options "o" end options instance "i" "o")",
     R"(1:38: "o" (defined at test.mi:1:9) is no object, light)"},
    {R"(camera "c" end camera instance "i" "c" transform 1 0 0 0 0 1 0 0 0 0 0 0 0 0 0 1)",
     "1:40: the transform has no inverse"},
    {R"(camera "c" end camera instgroup "g" "c" end instgroup)",
     R"(1:37: "c" (defined at test.mi:1:8) is no ins)"},
    {R"(color texture "t" 2 2 'ffffff')", "1:19: 3 bytes do not fill a color texture of 2 x 2 pixels"},
    {R"(instgroup "g" end instgroup options "o" end options camera "c" end camera instance "ci" "c" end instance render "g" "ci" "o")",
     R"(1:113: the root group does not contain the camera's instance "ci")"},
    // objects
    {R"(object "o" group 0 0 end group)",
     "1:22: the vectors of the group are 2 numbers, which is no multiple of 3"},
    {R"(object "o" group 0 0 0 v 0 v 0 n 0)",
     "1:34: this vertex has other parts than the object's first one"},
    {R"(object "o" group 0 0 0 v 0 p 0 0 1)", "1:34: there is no vertex 1: the group has 1"},
    {R"(object "o" group 0 0 0 v 0 p 0 0 end)",
     "1:34: a polygon needs at least 3 vertices, expected one more"},
    {R"(object "o" group 0 0 0 v 0 p 0 0 0 data 1 2 p 0 0 0 data 1 end)",
     "1:58: every polygon of an object must have as many data words as the first, 2"},
    {R"(object "o" group 1e39 0 0)", "1:18: the number is too large for a scalar"},
    {R"(object "o" group 0 0 0 nan 0 0)", "1:24: expected a vertex (v), a polygon (c, cp, p) or 'end group', "
                                          "found 'nan', which is no finite number"},
    {R"(object "o" group 0 0 -Inf)", "1:22: this is no finite number"},
    {R"(object "o" group 0 0 0 v -1)", "1:26: the integer is outside the range 0 to 4294967295"},
    {R"(object "o" tagged group 0 0 0 v 0 p "x" 0 0 0)",
     "1:37: expected the label of the polygon, since the"},
    // what shows only once everything is built
    {R"(declare phenomenon "p" ( scalar "k" )
 root "tint" ( "in" = interface "k" )
end declare shader "s" "p" ())",
     R"(2:33: a color cannot take the scalar "k"
 root "tint" ( "in" = interface "k" )
                                ^
test.mi:3:24: in this instance of the phenomenon "p")"},
    {"options \"o\"\n\tgamma \x01-1\n",
     "2:8: a byte that no word starts with (0x01)\n\tgamma ?-1\n\t      ^"}, // the line, with a caret
};

class MiMistake : public SceneFixture, public testing::WithParamInterface<std::size_t> {};

TEST_P(MiMistake, IsReportedWithItsPlace) {
    parse(declarations);
    const Mistake& wrong = mistakes[GetParam()];
    EXPECT_THAT(mistake(wrong.text), testing::StartsWith(std::string("test.mi:") + wrong.report))
        << wrong.text;
}
INSTANTIATE_TEST_SUITE_P(Table, MiMistake, testing::Range(std::size_t{0}, std::size(mistakes)));

// Bad files of every kind end in a message.
class BadFile : public SceneFixture {
protected:
    std::string write(const std::string& name, const std::string& content) {
        const std::filesystem::path folder = std::filesystem::path(orl_test_output_dir) / "bad_file";
        std::filesystem::create_directories(folder);
        std::ofstream(folder / name, std::ios::binary) << content;
        return (folder / name).string();
    }
    std::string mistake_in(const std::string& file) {
        return report_of([&] { parse_file(scene, file, nullptr); });
    }
};

TEST_F(BadFile, Unreadable) {
    EXPECT_EQ(mistake_in("none.mi"), R"(cannot read "none.mi": No such file or directory)");
    std::string deep;
    for (int k = 0; k < 65; ++k)
        deep += "namespace n\n";
    EXPECT_THAT(mistake(deep), testing::StartsWith("test.mi:65:11: namespaces are nested more than 64 deep"));
}

TEST_F(BadFile, IncludedFiles) {
    const std::string a = write("a.mi", R"(
$include "b.mi"
)"),
                      b = write("b.mi", R"($include "a.mi"
)");
    EXPECT_EQ(mistake_in(a), b + R"(:1:1: ")" + a + R"(" includes itself
$include "a.mi"
^)");
    write("part.mi", "gamma 2 # no line end");
    EXPECT_EQ(mistake_in(write("whole.mi", R"(options "o"
$include "part.mi"
shadow off end options)")),
              "");
    EXPECT_EQ(record<miOptions>("o").gamma, 2.0f);
    EXPECT_EQ(record<miOptions>("o").shadow, 0);
}

} // namespace
} // namespace stage
