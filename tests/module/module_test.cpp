// The built module, loaded as the renderer loads it: what it shows, what it declares, the life of its
// instances, what it does with input that nobody should give it, and how it finds the renderer.
#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "exports.h"
#include "header_as_c.h"
#include "module_exports.h"
#include "scripted_renderer.h"
#include "state_builder.h"
#include "test_paths.h"

namespace {

using orl::decl::Field;
using orl::decl::Shader;
using scripted::Renderer;
using scripted::State;

void* module() {
    static void* const opened = open_module(ORL_FILE_ORLSHADERS);
    return opened;
}

template <class Function> Function* function(const std::string& name) {
    return reinterpret_cast<Function*>(find_in_module(module(), name.c_str()));
}

using Init = void(miState*, void*, miBoolean*);
using Exit = void(miState*, void*);
using Call = miBoolean(void*, miState*, void*);

// The renderer's part in front of the module, as after loading.
class Module : public testing::Test {
protected:
    Renderer& renderer = Renderer::get();

    void SetUp() override {
        ASSERT_NE(module(), nullptr) << ORL_FILE_ORLSHADERS;
        renderer.reset();
        use(renderer.handle());
    }
    static void use(void* handle) { function<void(void*)>("miSetModuleHandle")(handle); }

    template <class Visitor> static void for_each_shader(Visitor visit) {
        for (const orl::Unit& unit : orl::units)
            for (const Shader& shader : unit.shaders) {
                SCOPED_TRACE(shader.name);
                visit(shader);
            }
    }
};

// ---- what the module shows

TEST_F(Module, ShowsItsFunctionsAndNothingElse) {
    std::set<std::string> expected(std::begin(orl::exported_functions), std::end(orl::exported_functions));
    for_each_shader([&](const Shader& shader) {
        const std::string name = shader.name;
        expected.insert({name, name + "_version"});
        if (shader.has_init)
            expected.insert(name + "_init");
        if (shader.has_exit)
            expected.insert(name + "_exit");
    });
    const std::set<std::string> shown = exports_of(ORL_FILE_ORLSHADERS, module());
    EXPECT_EQ(shown, expected);
    for (const std::string& name : expected)
        EXPECT_NE(find_in_module(module(), name.c_str()), nullptr) << name;
    // Under their own names the forwarding functions would stand in front of the renderer's.
    for (const std::string& name : shown)
        EXPECT_NE(name.rfind("mi_", 0), 0u) << name;
}

// Version by name of every shader in the declarations that were built.
std::map<std::string, int> declared_versions() {
    std::ifstream declarations(ORL_FILE_DECLARATIONS);
    std::map<std::string, int> versions;
    std::string shader;
    for (std::string line; std::getline(declarations, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        const std::size_t quote = line.find('"');
        if (line.rfind("declare shader", 0) == 0)
            shader = line.substr(quote + 1, line.find('"', quote + 1) - quote - 1);
        else if (word == "version" && !shader.empty())
            words >> versions[shader];
        else if (line.rfind("end declare", 0) == 0)
            shader.clear();
    }
    return versions;
}

TEST_F(Module, VersionsAreThoseOfTheDeclarations) {
    const std::map<std::string, int> declared = declared_versions();
    std::size_t shaders = 0;
    for_each_shader([&](const Shader& shader) {
        ++shaders;
        ASSERT_EQ(declared.count(shader.name), 1u);
        EXPECT_EQ(function<int()>(std::string(shader.name) + "_version")(), declared.at(shader.name));
    });
    EXPECT_EQ(declared.size(), shaders);
}

TEST_F(Module, PublicHeaderMeansTheSameInC) {
    // 24 fields of four bytes; 6 numbers, 2 arrays of three words and 2 booleans; an array, 8 numbers, a tag.
    const std::array<std::size_t, 3> sizes = {24 * 4, 14 * 4, 12 * 4};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(record_sizes_in_c[i], sizes[i]);
        EXPECT_EQ(record_ends_in_c[i], sizes[i] - 4);
    }
    EXPECT_EQ(sizeof(orl_SceneData), sizes[0]);
    EXPECT_EQ(sizeof(orl_NodeData), sizes[1]);
    EXPECT_EQ(sizeof(orl_ObjectData), sizes[2]);
}

// ---- instances

struct alignas(8) Block {
    unsigned char bytes[2048];
};

enum class Fill { defaults, zero, nan, infinite, huge, negative };

// Writes one parameter's four-byte words; tags stay null, arrays empty.
void fill_field(Block& block, const Field& field, Fill fill) {
    if (field.array)
        return;
    const bool integral = field.type == miTYPE_BOOLEAN || field.type == miTYPE_INTEGER;
    const bool real = field.type == miTYPE_SCALAR || field.type == miTYPE_COLOR ||
                      field.type == miTYPE_VECTOR || field.type == miTYPE_TRANSFORM;
    for (std::size_t i = 0; i < field.size / 4; ++i) {
        const double number =
            fill == Fill::defaults && static_cast<int>(i) < field.value.count ? field.value.number[i] : 0.0;
        miScalar scalar = static_cast<miScalar>(number);
        miInteger integer = static_cast<miInteger>(number);
        if (fill == Fill::nan)
            scalar = std::numeric_limits<float>::quiet_NaN();
        if (fill == Fill::infinite)
            scalar = std::numeric_limits<float>::infinity();
        if (fill == Fill::huge)
            scalar = std::numeric_limits<float>::max(), integer = INT_MAX;
        if (fill == Fill::negative)
            scalar = -1e30f, integer = INT_MIN;
        unsigned char* place = block.bytes + field.offset + 4 * i;
        if (integral)
            std::memcpy(place, &integer, 4);
        else if (real)
            std::memcpy(place, &scalar, 4);
    }
}

// One instance from its shader's init to its shader's exit.
class Life {
public:
    Life(const Shader& shader, Fill fill)
        : name_(shader.name), instance_(name_.c_str()), shader_(shader),
          blocks_(Renderer::get().resources().live_blocks), locks_(Renderer::get().resources().live_locks) {
        for (const Field& field : shader.fields)
            fill_field(instance_.params(), field, fill);
        state.run(instance_);
    }

    State state;

    void begin() {
        auto* init = shader_.has_init ? function<Init>(name_ + "_init") : nullptr;
        if (!init)
            return;
        miBoolean wanted = miFALSE;
        init(state, nullptr, &wanted);
        EXPECT_EQ(wanted, miTRUE);
        EXPECT_EQ(held(), 0) << "allocated before there was an instance";
        init(state, &instance_.params(), &wanted);
    }

    miBoolean call() {
        alignas(16) std::array<unsigned char, 1024> result{};
        const miBoolean answer = function<Call>(name_)(result.data(), state, &instance_.params());
        EXPECT_TRUE(answer == miTRUE || answer == miFALSE) << answer;
        return answer;
    }

    void end() {
        const Renderer& renderer = Renderer::get();
        if (auto* exit = shader_.has_exit ? function<Exit>(name_ + "_exit") : nullptr) {
            exit(state, &instance_.params());
            exit(state, nullptr);
        }
        EXPECT_EQ(instance_.user_pointer(), nullptr);
        EXPECT_EQ(held(), thread_blocks()) << "memory is left";
        EXPECT_EQ(renderer.resources().live_locks, locks_) << "locks are left";
        EXPECT_EQ(renderer.pins(), 0) << "records are left pinned";
        EXPECT_EQ(renderer.bad_accesses(), 0) << "accessed a tag that names nothing";
    }

private:
    long long held() const { return Renderer::get().resources().live_blocks - blocks_; }

    // Blocks that belong to threads, which the renderer frees when a thread ends.
    long long thread_blocks() {
        void** pointers = nullptr;
        int count = 0;
        query(miQ_FUNC_TLS_GETALL, &pointers, &count);
        return std::count_if(pointers, pointers + count,
                             [](const void* pointer) { return pointer != nullptr; });
    }
    void query(miQ_type code, void* result, ...) {
        va_list arguments;
        va_start(arguments, result);
        Renderer::get().mi_vquery.unscripted(code, state, miNULLTAG, result, arguments);
        va_end(arguments);
    }

    std::string name_;
    scripted::ShaderInstance<Block> instance_;
    const Shader& shader_;
    long long blocks_, locks_;
};

TEST_F(Module, WhatAnInstanceTakesItGivesBack) {
    for_each_shader([&](const Shader& shader) {
        for (int round = 0; round < 2; ++round) {
            Life life(shader, Fill::defaults);
            life.begin();
            life.call();
            life.call();
            life.end();
        }
        Life unused(shader, Fill::defaults); // exit of an instance that never ran
        unused.begin();
        unused.end();
        Life never_begun(shader, Fill::defaults);
        never_begun.end();
    });
}

TEST_F(Module, BadParametersAreSurvivedInTime) {
    for_each_shader([&](const Shader& shader) {
        const auto start = std::chrono::steady_clock::now();
        for (const Fill fill : {Fill::zero, Fill::nan, Fill::infinite, Fill::huge, Fill::negative}) {
            SCOPED_TRACE(static_cast<int>(fill));
            Life life(shader, fill);
            life.begin();
            for (int type = 0; type < miNRAYTYPES; ++type)
                for (int call = 0; call < miNSHADERTYPES; ++call) {
                    life.state->type = static_cast<miRay_type>(type);
                    life.state->call_type = static_cast<miShader_type>(call);
                    life.call();
                }
            life.end();
        }
        // 2380 calls that take microseconds each; a loop that runs to INT_MAX takes far longer.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    });
}

TEST_F(Module, BadStatesAreSurvivedInTime) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::map<std::string, std::function<void(State&)>> faults = {
        {"miss",
         [](State& state) {
             state.set_miss({0, 0, 0}, {0, 0, 1});
         }},
        {"no lists",
         [](State& state) { state->tex_list = state->bump_x_list = state->bump_y_list = nullptr; }},
        {"NaN hit",
         [nan](State& state) {
             state->point = state->normal = state->normal_geom = state->dir = state->org = {nan, nan, nan};
             state->dist = static_cast<double>(nan);
             state->dot_nd = nan;
         }},
        {"NaN texture",
         [nan](State& state) {
             state.textures[0] = state->tex = {nan, nan, nan};
         }},
        {"null vectors",
         [](State& state) {
             state->normal = state->normal_geom = state->dir = {0, 0, 0};
         }},
        {"no camera size",
         [](State& state) {
             state.camera.x_resolution = state.camera.y_resolution = 0;
             state.camera.focal = state.camera.aperture = 0;
         }},
    };
    for_each_shader([&](const Shader& shader) {
        const auto start = std::chrono::steady_clock::now();
        for (const auto& [name, spoil] : faults) {
            SCOPED_TRACE(name);
            Life life(shader, Fill::defaults);
            life.begin();
            spoil(life.state);
            life.call();
            life.end();
        }
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    });
}

TEST_F(Module, HelpersAnswerWithoutAScene) {
    State state;
    EXPECT_EQ(function<decltype(GetSceneData)>("GetSceneData")(state), nullptr);
    EXPECT_EQ(function<decltype(GetNodeData)>("GetNodeData")(miNULLTAG), nullptr);
    EXPECT_EQ(function<decltype(GetObjectData)>("GetObjectData")(state), nullptr);
    EXPECT_EQ(function<decltype(GetMaterialID)>("GetMaterialID")(state), 0);
    miColor result = {9, 9, 9, 9};
    EXPECT_EQ(function<decltype(CallMaterial)>("CallMaterial")(&result, state, miNULLTAG, nullptr), miFALSE);
    EXPECT_EQ(renderer.bad_accesses(), 0);
    EXPECT_EQ(renderer.pins(), 0);
}

// ---- how the module finds the renderer

// Any call that needs the renderer.
void need_renderer() {
    State state;
    miColor result;
    function<decltype(CallMaterial)>("CallMaterial")(&result, state, 1, nullptr);
}

TEST_F(Module, FollowsTheHandleThatItIsGiven) {
    namespace fs = std::filesystem;
    const fs::path original = ORL_FILE_SCRIPTED_RENDERER;
    const fs::path copy = fs::path(orl_test_output_dir) / ("module_test_" + original.filename().string());
    fs::remove(copy); // overwriting does not work with every run-time
    fs::copy_file(original, copy);
    Renderer second(copy.string().c_str());
    need_renderer();
    EXPECT_EQ(renderer.mi_db_type.calls(), 1);
    use(second.handle());
    need_renderer();
    EXPECT_EQ(renderer.mi_db_type.calls(), 1);
    EXPECT_EQ(second.mi_db_type.calls(), 1);
    use(renderer.handle());
    need_renderer();
    EXPECT_EQ(renderer.mi_db_type.calls(), 2);
}

// The text that the system's formatted output makes of a handle.
std::string told_handle(void* handle) {
    char text[64];
    std::snprintf(text, sizeof text, "dlsym failed on \"mi_db_type\" (handle: 0x%p, error: ", handle);
    return text;
}

using ModuleDeathTest = Module;

TEST_F(ModuleDeathTest, WithoutAHandleItSaysSoAndFaults) {
    using testing::HasSubstr;
    EXPECT_DEATH(
        {
            use(nullptr);
            need_renderer();
        },
        testing::AllOf(HasSubstr("DYNLOAD: dl_handle null\n"), HasSubstr(told_handle(nullptr))));
}

TEST_F(ModuleDeathTest, AMissingFunctionIsNamed) {
    using testing::HasSubstr;
    EXPECT_DEATH(
        {
            use(module()); // which offers no renderer function
            need_renderer();
        },
        testing::AllOf(HasSubstr(told_handle(module())), testing::Not(HasSubstr("dl_handle null"))));
}

} // namespace
