// Shader calls: life cycle, call types, lists, phenomena and connected parameters.
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "stage_scene.h"

namespace {

using stage::Arena;
using namespace stage_test;

std::string life;
std::atomic<int> inits{0};

void life_init(miState* state, void* params, miBoolean* wants) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5)); // long enough for others to call meanwhile
    ++inits;
    *wants = miTRUE;
    // An instance init may evaluate what is connected.
    life += params ? "init " + show(eval<miScalar>(state)) + ", " : "init, ";
}

void life_exit(miState* state, void* params) {
    life += params ? "exit " + show(eval<miColor>(state).r) + ", " : "exit, ";
}

void add_life(TestScene& s) {
    life.clear();
    inits = 0;
    s.scene.libraries->define("a_code_init", reinterpret_cast<void*>(&life_init));
    s.scene.libraries->define("a_code_exit", reinterpret_cast<void*>(&life_exit));
}

TEST(StageCalls, FirstCallsInitialiseInOrderAndExitsUndoThemInReverse) {
    TestScene s;
    add_life(s);
    s.shader("a", [](miState*, miColor&) {});
    const auto source = [](miState*, miColor& r) { life += "source, ", r.r = 2.0f; };
    s.shader("source", source, "scalar");
    s.parse("incremental shader a (color 1 0 0, scalar 1) shader b a_code (color 9 0 0, scalar = source)\n");
    s.build();
    for (const char* name : {"a", "b", "a", "b"})
        s.call(s.tag(name));
    EXPECT_EQ(life, "init, init 1, source, init 2, ");
    life.clear();
    const miState state = s.eye();
    s.scene.exit_shaders(&state);
    EXPECT_EQ(life, "exit 9, exit 1, exit, ");
    life.clear();
    s.call(s.tag("a"));
    EXPECT_EQ(life, "init, init 1, "); // anew for the next frame
}

TEST(StageCalls, InstancesOfAShaderHaveALockEachAndOneTogether) {
    TestScene s;
    std::vector<miLock> locks;
    s.shader("a", [&](miState* state, miColor&) {
        miLock* lock = nullptr;
        for (const miQ_type code : {miQ_FUNC_LOCK, miQ_DECL_LOCK})
            locks.push_back(mi_query(code, state, miNULLTAG, &lock) ? *lock : nullptr);
    });
    s.parse("shader b a_code ()\n");
    s.build();
    s.call(s.tag("a"));
    s.call(s.tag("b"));
    EXPECT_TRUE(locks[0] && locks[1] && locks[2] && locks[0] != locks[2] && locks[1] == locks[3]);
}

TEST(StageCalls, ManyThreadsInitialiseOnce) {
    TestScene s;
    add_life(s);
    s.shader("a", [](miState*, miColor&) { return inits.load() == 2 ? miTRUE : miFALSE; });
    s.build();
    std::atomic<int> good{0};
    std::vector<std::jthread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            stage::ThreadContext context;
            context.world = s.world.get();
            miState state = s.eye();
            state.renderer = &context;
            miColor result{};
            good += stage::call_shader(&result, miSHADER_MATERIAL, &state, s.tag("a"), nullptr);
        });
    threads.clear();
    EXPECT_EQ(good, 8); // each found both inits done
    EXPECT_EQ(inits, 2);
}

// A shader that calls itself twice: without a bound for all calls together their number doubles at each
// level.
TEST(StageCalls, WithoutEndAreGivenUpAndReportedOnce) {
    const Told told;
    TestScene s;
    long long runs = 0;
    int deepest = 0, depth = 0, wanted = 0;
    s.shader("loop", [&](miState* state, miColor& c) {
        ++runs;
        deepest = std::max(deepest, ++depth);
        miBoolean answer = depth == wanted;
        for (int k = 0; k < 2 && !answer; ++k)
            answer = mi_call_shader(&c, miSHADER_MATERIAL, state, s.tag("loop"));
        --depth;
        return answer;
    });
    s.build();
    miState state = s.eye();
    miColor result{};
    const auto call = [&] { return mi_call_shader(&result, miSHADER_MATERIAL, &state, s.tag("loop")); };
    for (int k = 0; k < 3; ++k) {
        runs = 0;
        EXPECT_FALSE(call());
        EXPECT_EQ(runs, deepest);
    }
    EXPECT_THAT(told.text, testing::MatchesRegex("[^\n]*shader \"loop\"[^\n]*\n"));
    wanted = 500; // glass in glass nests some hundred calls
    EXPECT_TRUE(call());
}

// Behind the shader's own text, and of the shader that sends it, also after it has called another.
TEST(StageCalls, MessagesTellThePlaceOfTheirShader) {
    const Told told;
    TestScene s;
    s.shader("inner", [&](miState*, miColor&) { mi_warning("%d\n", 1); });
    s.shader("outer", [&](miState* state, miColor& c) {
        mi_call_shader(&c, miSHADER_TEXTURE, state, s.tag("inner"));
        mi_error("2");
        mi_info("3");
    });
    s.build();
    const auto file = std::make_shared<const std::string>("s.mi");
    s.scene.database.find(s.tag("inner"))->place = {file, 7, 1};
    s.scene.database.find(s.tag("outer"))->place = {file, 9, 3};
    miState state = s.eye();
    miColor result{};
    mi_call_shader(&result, miSHADER_MATERIAL, &state, s.tag("outer"));
    mi_error("4");
    EXPECT_EQ(told.text, "1 (s.mi:7:1)\n2 (s.mi:9:3)\n3\n4\n");
}

TEST(StageCalls, NestedCallsSeeTheirOwnTypeAndLeaveTheStateAsItWas) {
    TestScene s;
    std::vector<int> types;
    int mark = 0;
    s.shader("inner", [&](miState* state, miColor&) {
        types.push_back(state->call_type);
        EXPECT_EQ(state->user, &mark); // handed down
        state->user = nullptr;
        EXPECT_TRUE(TestScene::probe(state, {0.0f, 0.0f, 5.0f}));
    });
    s.shader("outer", [&](miState* state, miColor& c) {
        const miFunction* self = state->shader;
        state->user = &mark;
        // The memory of a shader's rays ends with it, so its caller must not find them.
        for (const miState* own = state->child; types.size() < 4; own = state->child) {
            mi_call_shader(&c, miSHADER_TEXTURE, state, s.tag("inner"));
            types.push_back(state->call_type);
            EXPECT_EQ(state->child, own);
            EXPECT_TRUE(TestScene::probe(state, {0.0f, 0.0f, 5.0f}));
        }
        EXPECT_EQ(state->shader, self);
        EXPECT_EQ(state->user, &mark);
    });
    s.square("floor", {}, "");
    s.build();
    s.call(s.tag("outer"), miSHADER_SHADOW);
    constexpr auto inside = miSHADER_TEXTURE, after = miSHADER_SHADOW;
    EXPECT_EQ(types, (std::vector<int>{inside, after, inside, after}));
}

TEST(StageCalls, ListsRunInOrderOnOneResult) {
    TestScene s;
    const auto times = [](float factor, miBoolean answer) {
        return [=](miState*, miColor& c) { return c.r = (c.r + 1.0f) * factor, answer; };
    };
    s.shader("first", times(2.0f, miTRUE));
    s.shader("second", times(10.0f, miFALSE));
    s.shader("third", times(1.0f, miFALSE));
    s.parse("material m 'first' 'second' 'third' end material\n");
    s.build();
    // ((0 + 1) 2 + 1) 10 + 1 = 31, lit because the first is.
    EXPECT_EQ(s.call(s.tag("m")).r, 31.0f);
    EXPECT_TRUE(s.lit);
    // A shadow list ends with the first that lets nothing through: ((0 + 1) 2 + 1) 10 = 30.
    EXPECT_EQ(s.call(s.tag("first"), miSHADER_SHADOW).r, 30.0f);
    EXPECT_FALSE(s.lit);
}

TEST(StageCalls, MaterialSlotsAndPhenomena) {
    TestScene s;
    s.red("surface", 1.0f);
    s.red("shadow", 2.0f);
    s.red("volume", 3.0f);
    s.parse("material plain shader surface shadow shadow volume volume end material\n"
            "declare phenomenon material make_m () material m shader surface shadow shadow end material\n"
            "root material m end declare shader of_material make_m ()\n"
            "declare phenomenon color make_c () root = surface volume = volume end declare\n"
            "shader of_shader make_c ()\n");
    s.build();
    // What each slot runs; 0: no such shader.
    const auto cases = {std::array{"plain", "1 2 3 0 "}, std::array{"of_material", "1 2 0 0 "},
                        std::array{"of_shader", "1 0 3 0 "}, std::array{"surface", "1 0 0 0 "}};
    for (const auto& [name, expected] : cases) {
        std::string got;
        for (const auto type : {miSHADER_MATERIAL, miSHADER_SHADOW, miSHADER_VOLUME, miSHADER_ENVIRONMENT}) {
            got += show(s.call(stage::material_slot(s.scene, s.tag(name), type), type).r) + " ";
            EXPECT_EQ(s.lit, !got.ends_with("0 "));
        }
        EXPECT_EQ(got, expected) << name;
    }
}

TEST(StageParameters, LiteralsResultsMembersAndInterfaces) {
    TestScene s;
    const auto two = [](miState* state, miColor& r) {
        EXPECT_EQ(state->call_type, miSHADER_TEXTURE);
        const float values[] = {5.0f, 0.1f, 0.2f, 0.3f, 0.4f};
        std::memcpy(static_cast<void*>(&r), values, sizeof values);
    };
    s.shader("two", two, "struct {scalar a, color b}");
    s.shader("give",
             [](miState* state, miColor& c) { c = eval<miColor>(state), c.r = eval<miScalar>(state); });
    float next = 1.0f;
    const auto counter = [&](miState*, miColor& r) { r.r = next++; };
    s.shader("counter", counter, "scalar");
    s.shader("twice", [](miState* state, miColor& c) {
        const miScalar &first = eval<miScalar>(state),
                       &second = eval<miScalar>(state); // each lives until the end
        c.r = first * 10.0f + second;
    });
    s.parse("incremental shader twice (scalar = counter)\n"
            "shader literal give_code (color 1 2 3 4, scalar 7)\n"
            "shader member give_code (color = 'two.b', scalar = 'two.a')\n"
            "shader chained give_code (color = member, scalar 8)\n"
            "declare phenomenon color make (color k, scalar x)\n"
            "    root = give_code (color = interface k, scalar = interface x) end declare\n"
            "declare phenomenon color outer (color k) root = make (k = interface k, x 6) end declare\n"
            "shader phen_literal make (k 1 2 3 4, x 9)\n"
            "shader phen_connected make (k = 'two.b', x 9)\n"
            "shader phen_nested outer (k = 'two.b')\n"
            "shader of_phen give_code (color = phen_nested, scalar 4)\n");
    s.build();
    const std::pair<std::string, std::string> cases[] = {{"literal", "7 2 3 4"},
                                                         {"member", "5 0.2 0.3 0.4"},
                                                         {"chained", "8 0.2 0.3 0.4"},
                                                         {"phen_literal", "9 2 3 4"},
                                                         {"phen_connected", "9 0.2 0.3 0.4"},
                                                         {"phen_nested", "6 0.2 0.3 0.4"},
                                                         {"of_phen", "4 0.2 0.3 0.4"},
                                                         {"twice", "12 0 0 0"},
                                                         {"twice", "34 0 0 0"}};
    const std::size_t used = s.context.arena.mark().used;
    for (const auto& [name, expected] : cases) {
        EXPECT_EQ(show(s.call(s.tag(name))), expected) << name;
        EXPECT_EQ(s.context.arena.mark().used, used);
    }
}

} // namespace
