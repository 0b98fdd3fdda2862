// Shader libraries: loading, versions, missing shaders, exits in the reverse order of the first calls.
#include <dlfcn.h>

#include "mi_test_support.h"
#include "test_paths.h"

namespace stage {
namespace {

class SceneLibrary : public SceneFixture {
protected:
    void link(const std::string& then) {
        parse(std::string("link \"") + ORL_FILE_MI_TEST_SHADERS + "\"\n" + then);
    }
    template <class T> T& variable(const char* name) { return *static_cast<T*>(scene.libraries->find(name)); }
    // What the renderer does at an instance's first call, as far as the exits depend on it.
    void first_call(const char* name) {
        ShaderInstance& shader = *element(name).shader;
        shader.initialised = true;
        shader.code->initialised = true;
        scene.init_order.push_back(element(name).tag);
    }
};

TEST_F(SceneLibrary, GivesTheHandleOnAndFindsTheEntries) {
    int module = 0;
    scene.libraries->set_module_handle(&module);
    link("declare shader \"library_a\" () version 3 end declare shader \"s\" \"library_a\" ()\n"
         "declare shader \"library_b\" () version 9 end declare shader \"t\" \"library_b\" ()");
    EXPECT_EQ(variable<void*>("test_module_handle"), &module);
    const ShaderCode& a = *element("s").shader->code;
    EXPECT_EQ(reinterpret_cast<void*>(a.entry), scene.libraries->find("library_a"));
    EXPECT_NE(a.init, nullptr);
    EXPECT_NE(a.exit, nullptr);
    EXPECT_EQ(a.library, ORL_FILE_MI_TEST_SHADERS);
    EXPECT_EQ(element("t").shader->code->init, nullptr); // and without X_version any version will do
}

TEST_F(SceneLibrary, MistakesNameTheShaderAndThePlace) {
    const std::string library = ORL_FILE_MI_TEST_SHADERS;
    link("");
    EXPECT_EQ(mistake("declare shader \"library_a\" () version 2 end declare\nshader \"s\" \"library_a\" ()"),
              "test.mi:2:12: shader \"library_a\" (declared at test.mi:1:16) has version 3 in " + library +
                  ", but version 2 is declared\nshader \"s\" \"library_a\" ()\n           ^");
    EXPECT_EQ(mistake("declare shader \"gone\" () end declare shader \"s\" \"gone\" ()").substr(0, 83),
              "test.mi:1:49: shader \"gone\" (declared at test.mi:1:16) is in no linked library (lin");
    EXPECT_EQ(mistake("link \"gone.so\"").substr(0, 68),
              "test.mi:1:6: cannot find the library \"gone.so\"; looked in .\nlink \"go");
    const std::string text = std::string(orl_source_dir) + "/CMakeLists.txt";
    EXPECT_NE(mistake("link \"" + text + "\"").find("cannot load the library"), std::string::npos);
}

TEST_F(SceneLibrary, FindsLibrariesOnTheSearchPath) {
    const std::string library = ORL_FILE_MI_TEST_SHADERS;
    const std::size_t slash = library.rfind('/');
    scene.search_path.push_back(library.substr(0, slash));
    parse("link \"" + library.substr(slash + 1, library.size() - slash - 4) + "\""); // without ".so"
    EXPECT_NE(scene.libraries->find("library_a"), nullptr);
    EXPECT_EQ(scene.libraries->find("library_c"), nullptr);
}

TEST_F(SceneLibrary, ExitsRunInReverseOrder) {
    link("declare shader \"library_a\" () version 3 end declare declare shader \"library_b\" () end declare\n"
         "shader \"a1\" \"library_a\" () shader \"b1\" \"library_b\" () shader \"a2\" \"library_a\" () "
         "shader \"unused\" \"library_b\" ()");
    variable<int>("test_calls") = 0;
    for (const char* name : {"a1", "b1", "a2"})
        first_call(name);
    element("a1").shader->user = this;
    scene.exit_shaders();
    std::vector<std::string> calls;
    for (int k = 0; k < variable<int>("test_calls"); ++k)
        calls.emplace_back((&variable<const char*>("test_call"))[k]);
    EXPECT_EQ(calls, (std::vector<std::string>{"a instance", "b instance", "a instance", "b", "a"}));
    EXPECT_EQ(element("a1").shader->user, nullptr);
    EXPECT_FALSE(element("b1").shader->initialised);
    scene.exit_shaders(); // nothing is left to exit
    EXPECT_EQ(variable<int>("test_calls"), 5);
}

} // namespace
} // namespace stage
