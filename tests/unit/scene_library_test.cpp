// Shader libraries: loading, versions, missing shaders, exits in the reverse order of the first calls; and
// the database.
#include <filesystem>

#include "mi_test_support.h"
#include "test_paths.h"

namespace stage {
namespace {

const std::string library = ORL_FILE_MI_TEST_SHADERS;

class SceneLibrary : public SceneFixture {
protected:
    template <class T> T& variable(const char* name) { return *static_cast<T*>(scene.libraries->find(name)); }
};

TEST_F(SceneLibrary, FoundOnTheSearchPathAndExitsRunInReverseOrder) {
    int module = 0;
    scene.libraries->set_module_handle(&module);
    const std::size_t slash = library.rfind('/');
    scene.search_path.push_back(library.substr(0, slash));
    parse("link \"" + library.substr(slash + 1, library.size() - slash - 4) + "\"" + // without ".so"
          R"(declare shader "library_a" () version 3 end declare declare shader "library_b" () end declare
shader "a1" "library_a" () shader "b1" "library_b" () shader "a2" "library_a" () shader "unused" "library_b" ())");
    EXPECT_EQ(variable<void*>("test_module_handle"), &module);
    EXPECT_TRUE(std::filesystem::equivalent(element("a1").shader->code->library, library));
    EXPECT_EQ(element("b1").shader->code->init, nullptr);

    variable<int>("test_calls") = 0;
    for (const char* name : {"b1", "a1", "a2"}) { // what a first call does, as far as the exits depend on it
        ShaderInstance& shader = *element(name).shader;
        shader.initialised = shader.code->initialised = true;
        scene.init_order.push_back(element(name).tag);
    }
    scene.exit_shaders();
    scene.exit_shaders(); // nothing is left to exit
    const auto* calls = &variable<const char*>("test_call");
    EXPECT_EQ(std::vector<std::string>(calls, calls + variable<int>("test_calls")),
              (std::vector<std::string>{"a instance", "a instance", "b instance", "a", "b"}));
    EXPECT_FALSE(element("b1").shader->initialised);
}

TEST_F(SceneLibrary, MistakesNameTheShaderAndThePlace) {
    parse("link \"" + library + "\"");
    EXPECT_THAT(
        mistake("declare shader \"library_a\" () version 2 end declare\nshader \"s\" \"library_a\" ()"),
        testing::StartsWith(
            "test.mi:2:12: shader \"library_a\" (declared at test.mi:1:16) has version 3 in " + library +
            ", but version 2 is declared\n"));
    EXPECT_THAT(
        mistake("declare shader \"library_b\" () version 9 end declare shader \"s\" \"library_b\" ()"),
        testing::HasSubstr("is declared with version 9, but " + library +
                           " exports no library_b_version to compare with\n"));
    EXPECT_THAT(mistake("link \"gone.so\""),
                testing::StartsWith("test.mi:1:6: cannot find the library \"gone.so\"; looked in .\n"));
    EXPECT_THAT(mistake("link \"" + std::string(orl_source_dir) + "/CMakeLists.txt\""),
                testing::HasSubstr("cannot load the library"));
}

// Records may change their size, names their element; tags stay.
TEST(Database, TagsNamesAndRecords) {
    Database database;
    Element &a = database.add(miSCENE_OPTIONS, "a", {}, 12), &b = database.add(miSCENE_MATERIAL, "", {}, 64);
    EXPECT_EQ(database.find(a.tag), &a);
    EXPECT_EQ(database.find(std::string_view("a")), &a);
    EXPECT_EQ(database.find(std::string_view("")), nullptr);
    EXPECT_EQ(database.find(miTag{0}), nullptr);
    EXPECT_EQ(database.find(miTag{3}), nullptr);
    EXPECT_EQ(database.record<miMaterial>(b.tag, miSCENE_MATERIAL), b.record);
    EXPECT_EQ(database.record<miMaterial>(a.tag, miSCENE_MATERIAL), nullptr);
    static_cast<char*>(a.record)[11] = 7;
    database.resize(a, 4000);
    EXPECT_EQ(static_cast<char*>(a.record)[11], 7);
    EXPECT_EQ(static_cast<char*>(a.record)[12], 0);

    database.remove(a); // its name is free, its tag stays
    Element& other = database.add(miSCENE_OPTIONS, "a", {}, 4);
    database.remove(a); // must not take the new one's name
    EXPECT_EQ(database.find(std::string_view("a")), &other);
    EXPECT_EQ(database.find(a.tag), &a);
}

} // namespace
} // namespace stage
