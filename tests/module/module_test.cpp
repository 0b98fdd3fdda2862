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
using Call = miBoolean(void*, miState*, void*, void*); // the last for those that take an argument

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

// What other programs rely on, written out: what is taken away or renamed by mistake shows here.
struct Shown {
    const char* name;
    int version;
    bool has_init, has_exit;
};
constexpr Shown shown_shaders[] = {
    {"orl_OmniLight", 2, true, true},
    {"orl_SpotLight", 2, true, true},
    {"orl_DirectionalLight", 2, true, true},
    {"orl_DefaultLight", 1, true, true},
    {"orl_empty", 1, false, false},
    {"orl_unknown", 1, false, false},
    {"orl_procedural_dummy", 1, false, false},
    {"orl_passthru", 1, false, false},
    {"LumeTools", 1, false, false},
    {"orl_is_material_editor", 1, false, false},
    {"orl_MaterialToShader", 1, true, true},
    {"orl_ShaderList", 1, false, false},
    {"orl_ShadowWrapper", 1, false, false},
    {"orl_base_GBuffer_lens", 1, true, true},
    {"orl_base_MeditBackground", 1, true, true},
    {"orl_base_ImageGammaCorrect", 1, true, true},
    {"orl_NodeVisibility", 1, false, false},
    {"orl_WireColor", 1, false, false},
};
constexpr const char* shown_helpers[] = {
    "miSetModuleHandle",
    "CallMaterial",
    "GetSceneData",
    "GetNodeData",
    "GetObjectData",
    "GetObjectDataFromInstance",
    "GetParticleData",
    "GetMaterialID",
    "GetEdgeVisibility",
    "GetFaceSmoothingGroup",
    "GetParticleID",
    "GetTangentBasisVectors",
    "GetUVChannelIndexFromID",
    "IsInstanceShadowMakerForLight",
};
const std::map<std::string, int> shown_data = {
    {"orl_SceneData", 5}, {"orl_NodeData", 2}, {"orl_ObjectData", 5}};

// Among others, no forwarding function: under its own name it would stand in front of the renderer's.
TEST_F(Module, ShowsItsFunctionsAndNothingElse) {
    std::set<std::string> expected(std::begin(shown_helpers), std::end(shown_helpers));
    for (const Shown& shader : shown_shaders) {
        const std::string name = shader.name;
        expected.insert({name, name + "_version"});
        if (shader.has_init)
            expected.insert(name + "_init");
        if (shader.has_exit)
            expected.insert(name + "_exit");
    }
    EXPECT_EQ(exports_of(ORL_FILE_ORLSHADERS, module()), expected);
    for (const std::string& name : expected)
        EXPECT_NE(find_in_module(module(), name.c_str()), nullptr) << name;
}

// Version by name of every declaration of a kind (shader, data) in the declarations that were built.
std::map<std::string, int> declared_versions(const std::string& kind) {
    std::ifstream declarations(ORL_FILE_DECLARATIONS);
    std::map<std::string, int> versions;
    std::string declared;
    for (std::string line; std::getline(declarations, line);) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        const std::size_t quote = line.find('"');
        if (line.rfind("declare " + kind, 0) == 0)
            declared = line.substr(quote + 1, line.find('"', quote + 1) - quote - 1);
        else if (word == "version" && !declared.empty())
            words >> versions[declared];
        else if (line.rfind("end declare", 0) == 0)
            declared.clear();
    }
    return versions;
}

TEST_F(Module, VersionsAreThoseOfTheDeclarations) {
    std::map<std::string, int> expected;
    for (const Shown& shader : shown_shaders) {
        expected[shader.name] = shader.version;
        auto* const version = function<int()>(std::string(shader.name) + "_version");
        ASSERT_NE(version, nullptr) << shader.name;
        EXPECT_EQ(version(), shader.version) << shader.name;
    }
    EXPECT_EQ(declared_versions("shader"), expected);
    EXPECT_EQ(declared_versions("data"), shown_data);
}

TEST_F(Module, PublicHeaderMeansTheSameInC) {
    // 24 fields of four bytes; 6 numbers, 2 arrays of three words and 2 booleans; 9 numbers, a tag, an array.
    const std::array<std::size_t, 3> sizes = {24 * 4, 14 * 4, 13 * 4};
    const std::array<std::size_t, 3> ends = {23 * 4, 13 * 4, 10 * 4};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(record_sizes_in_c[i], sizes[i]);
        EXPECT_EQ(record_ends_in_c[i], ends[i]);
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

    // Every tag becomes `tag`, every array of tags holds it three times.
    void set_tags(miTag tag) {
        for (const Field& field : shader_.fields) {
            const bool is_number = field.type == miTYPE_BOOLEAN || field.type == miTYPE_INTEGER ||
                                   field.type == miTYPE_SCALAR || field.type == miTYPE_COLOR ||
                                   field.type == miTYPE_VECTOR || field.type == miTYPE_TRANSFORM;
            if (is_number)
                continue;
            unsigned char* const place = instance_.params().bytes + field.offset;
            if (!field.array) {
                std::memcpy(place, &tag, sizeof tag);
                continue;
            }
            // Index and count, and the elements from the middle of the block on.
            const miInteger head[2] = {256, 3};
            std::memcpy(place, head, sizeof head);
            for (int k = 0; k < 3; ++k)
                std::memcpy(place + 8 + (256 + k) * 4, &tag, sizeof tag);
        }
    }

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
        const miBoolean answer = function<Call>(name_)(result.data(), state, &instance_.params(), nullptr);
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

// Array parameters of tags that are null or name nothing.
TEST_F(Module, TagsThatNameNothingAreSurvived) {
    for_each_shader([&](const Shader& shader) {
        for (const miTag tag : {miNULLTAG, miTag{9999}}) {
            SCOPED_TRACE(tag);
            Life life(shader, Fill::defaults);
            life.set_tags(tag);
            life.begin();
            life.call();
            life.end();
        }
    });
}

TEST_F(Module, HelpersAnswerWithoutAScene) {
    State state;
    state.bump_x.clear();
    state.bump_y.clear();
    state.use_textures();
    EXPECT_EQ(function<decltype(GetSceneData)>("GetSceneData")(state), nullptr);
    EXPECT_EQ(function<decltype(GetNodeData)>("GetNodeData")(miNULLTAG), nullptr);
    EXPECT_EQ(function<decltype(GetObjectData)>("GetObjectData")(state), nullptr);
    EXPECT_EQ(function<decltype(GetObjectDataFromInstance)>("GetObjectDataFromInstance")(miNULLTAG), nullptr);
    EXPECT_EQ(function<decltype(GetParticleData)>("GetParticleData")(state, nullptr), nullptr);
    EXPECT_EQ(function<decltype(GetMaterialID)>("GetMaterialID")(state), 0);
    EXPECT_EQ(function<decltype(GetFaceSmoothingGroup)>("GetFaceSmoothingGroup")(state), 0);
    EXPECT_EQ(function<decltype(GetParticleID)>("GetParticleID")(state), 0);
    miBoolean edges[3] = {5, 5, 5};
    function<decltype(GetEdgeVisibility)>("GetEdgeVisibility")(state, &edges[0], &edges[1], &edges[2]);
    EXPECT_THAT(edges, testing::Each(miTRUE));
    miVector u{1, 1, 1}, v{1, 1, 1};
    EXPECT_FALSE(function<decltype(GetTangentBasisVectors)>("GetTangentBasisVectors")(state, &u, &v));
    EXPECT_EQ(u.x + v.x, 0.0f);
    const auto channel = function<decltype(GetUVChannelIndexFromID)>("GetUVChannelIndexFromID");
    EXPECT_EQ(channel(state, nullptr, 0), -1);
    const auto casts = function<decltype(IsInstanceShadowMakerForLight)>("IsInstanceShadowMakerForLight");
    EXPECT_TRUE(casts(state, nullptr));
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

// The line that tells of the missing function: the handle as the system's formatted output makes it, and the
// system's number for a name that is not found, which POSIX systems have none for.
std::string told_handle(void* handle) {
#ifdef _WIN32
    constexpr int error = 127;
#else
    constexpr int error = 0;
#endif
    char text[80];
    std::snprintf(text, sizeof text, "dlsym failed on \"mi_db_type\" (handle: 0x%p, error: %d)\n", handle,
                  error);
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
