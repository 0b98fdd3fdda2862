// Shader calls: life cycle, call types, lists, phenomena and connected parameters.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "kit/message.h"
#include "stage_scene.h"

namespace {

using stage::Arena;
using stage::Connection;
using stage_test::Block;
using stage_test::color;
using stage_test::TestScene;

// ---- scratch memory ----

TEST(StageArena, KeepsWhatIsNotReleasedAndReusesWhatIs) {
    Arena arena;
    auto* first = static_cast<int*>(arena.allocate(sizeof(int), alignof(int)));
    *first = 7;
    const Arena::Mark mark = arena.mark();
    void* again = arena.allocate(100);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(again) % 16, 0u);
    // Far more than a chunk, and blocks larger than a chunk between small ones.
    for (int round = 0; round < 3; ++round) {
        arena.release(mark);
        EXPECT_EQ(arena.allocate(100), again);
        for (const std::size_t size :
             {std::size_t{200000}, std::size_t{8}, std::size_t{70000}, std::size_t{300000}})
            std::memset(arena.allocate(size), 0xee, size);
    }
    EXPECT_EQ(*first, 7);
}

// ---- life cycle ----

std::vector<std::string> life; // of the shaders below; only one thread writes while a test looks
std::atomic<int> code_inits{0}, instance_inits{0};

void life_init(miState* state, void* params, miBoolean* wants) {
    if (!params) {
        ++code_inits;
        *wants = miTRUE;
        life.push_back("init");
        return;
    }
    ++instance_inits;
    // An instance init may evaluate what is connected.
    auto* block = static_cast<Block*>(params);
    const auto value = *static_cast<miScalar*>(mi_eval(state, &block->scalar));
    life.push_back("init " + std::to_string(static_cast<int>(value)));
}

void life_exit(miState* state, void* params) {
    auto* block = static_cast<Block*>(params);
    const int value = params ? static_cast<int>(block->scalar) : 0;
    EXPECT_NE(state->shader, nullptr);
    life.push_back(params ? "exit " + std::to_string(value) : "exit");
}

TEST(StageCalls, FirstCallsInitialiseInOrderAndExitsUndoThemInReverse) {
    life.clear();
    TestScene s;
    const auto nothing = [](void*, miState*, void*, void*) { return miTRUE; };
    const miTag a = s.add_shader(nothing);
    const miTag b = s.add_shader(nothing);
    stage::ShaderCode* code = s.scene.database.find(a)->shader->code;
    code->init = life_init;
    code->exit = life_exit;
    s.scene.database.find(b)->shader->code = code;
    s.block(a).scalar = 1.0f;
    // The source of b's parameter is a shader of its own, run inside b's init.
    const miTag source = s.add_shader(
        [](void* r, miState*, void*, void*) {
            life.push_back("source");
            *static_cast<miScalar*>(r) = 2.0f;
            return miTRUE;
        },
        miTYPE_SCALAR, sizeof(miScalar));
    s.block(b).scalar = 9.0f;
    s.connect(b, {offsetof(Block, scalar), sizeof(miScalar), source, false, 0});
    s.build();

    miState state = s.eye();
    miColor result{};
    for (const miTag tag : {a, b, a, b})
        EXPECT_TRUE(stage::call_shader(&result, miSHADER_MATERIAL, &state, tag, nullptr));
    EXPECT_EQ(life, (std::vector<std::string>{"init", "init 1", "source", "init 2"}));
    life.clear();
    s.scene.exit_shaders(&state);
    EXPECT_EQ(life, (std::vector<std::string>{"exit 9", "exit 1", "exit"}));
    life.clear();
    EXPECT_TRUE(stage::call_shader(&result, miSHADER_MATERIAL, &state, a, nullptr));
    EXPECT_EQ(life, (std::vector<std::string>{"init", "init 1"})); // anew for the next frame
    s.scene.exit_shaders(&state);
}

TEST(StageCalls, ManyThreadsInitialiseOnce) {
    life.clear();
    code_inits = instance_inits = 0;
    TestScene s;
    const auto ready = [](void*, miState*, void*, void*) {
        return instance_inits.load() == 1 ? miTRUE : miFALSE;
    };
    const miTag shader = s.add_shader(ready);
    s.scene.database.find(shader)->shader->code->init = life_init;
    s.build();
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            stage::ThreadContext context;
            context.world = s.world.get();
            miState state = s.eye();
            state.renderer = &context;
            miColor result{};
            good += stage::call_shader(&result, miSHADER_MATERIAL, &state, shader, nullptr);
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 8);
    EXPECT_EQ(code_inits, 1);
    s.scene.exit_shaders();
}

// ---- calls without end ----

TEST(StageCalls, WithoutEndAreGivenUpAndReportedOnce) {
    std::vector<std::string> told;
    stage::set_message_sink([&](stage::MessageLevel, std::string_view text) { told.emplace_back(text); });
    TestScene s;
    long long runs = 0;
    int deepest = 0, depth = 0, wanted = 0;
    miTag loop = miNULLTAG;
    // Called twice by itself: without a bound for all calls together the number of calls doubles at each
    // level.
    loop = s.add_shader([&](void* result, miState* state, void*, void*) {
        ++runs;
        deepest = std::max(deepest, ++depth);
        miBoolean answer = depth == wanted;
        for (int k = 0; k < 2 && !answer; ++k)
            answer = mi_call_shader(static_cast<miColor*>(result), miSHADER_MATERIAL, state, loop);
        --depth;
        return answer;
    });
    s.scene.database.find(loop)->name = "loop";
    s.build();
    miState state = s.eye();
    miColor result{};
    for (int k = 0; k < 3; ++k) {
        runs = 0;
        EXPECT_FALSE(stage::call_shader(&result, miSHADER_MATERIAL, &state, loop, nullptr));
        EXPECT_EQ(runs, deepest);
    }
    ASSERT_EQ(told.size(), 1u);
    EXPECT_NE(told[0].find("shader \"loop\""), std::string::npos) << told[0];
    // Glass in glass nests some hundred calls.
    wanted = 500;
    EXPECT_TRUE(stage::call_shader(&result, miSHADER_MATERIAL, &state, loop, nullptr));
    stage::set_message_sink(nullptr);
}

// ---- what a call changes ----

// The memory of a shader's rays ends with it, so its caller must not find them.
TEST(StageCalls, RaysOfACalledShaderEndWithIt) {
    TestScene s;
    const miTag inner = s.add_shader([](void*, miState* state, void*, void*) {
        miVector org{0.0f, 0.0f, 5.0f};
        miVector down{0.0f, 0.0f, -1.0f};
        EXPECT_TRUE(mi_trace_probe(state, &down, &org));
        return miTRUE;
    });
    const miTag outer = s.add_shader([&](void* r, miState* state, void*, void*) {
        miVector org{0.5f, 0.0f, 5.0f};
        miVector down{0.0f, 0.0f, -1.0f};
        stage::call_shader(r, miSHADER_TEXTURE, state, inner, nullptr);
        EXPECT_EQ(state->child, nullptr);
        EXPECT_TRUE(mi_trace_probe(state, &down, &org));
        const miState* own = state->child;
        stage::call_shader(r, miSHADER_TEXTURE, state, inner, nullptr);
        EXPECT_EQ(state->child, own);
        return miTRUE;
    });
    s.add_square({0.0f, 0.0f, 0.0f}, s.add_material(outer));
    s.build();
    s.shade();
}

TEST(StageCalls, NestedCallsSeeTheirOwnTypeAndLeaveTheStateAsItWas) {
    TestScene s;
    std::vector<int> types;
    int mark = 0;
    const miTag inner = s.add_shader([&](void*, miState* state, void*, void*) {
        types.push_back(state->call_type);
        EXPECT_EQ(state->user, &mark); // handed down
        state->user = nullptr;
        state->user_size = 5;
        return miTRUE;
    });
    const miTag outer = s.add_shader([&](void* r, miState* state, void*, void*) {
        EXPECT_EQ(state->user, nullptr);
        miFunction* self = state->shader;
        state->user = &mark;
        state->user_size = 1;
        types.push_back(state->call_type);
        stage::call_shader(r, miSHADER_TEXTURE, state, inner, nullptr);
        types.push_back(state->call_type);
        EXPECT_EQ(state->shader, self);
        EXPECT_EQ(state->user, &mark);
        EXPECT_EQ(state->user_size, 1);
        return miTRUE;
    });
    s.build();
    miState state = s.eye();
    miColor result{};
    stage::call_shader(&result, miSHADER_SHADOW, &state, outer, nullptr);
    EXPECT_EQ(types, (std::vector<int>{miSHADER_SHADOW, miSHADER_TEXTURE, miSHADER_SHADOW}));
    EXPECT_EQ(state.user, nullptr);
    EXPECT_EQ(state.shader, nullptr);
    EXPECT_FALSE(stage::call_shader(&result, miSHADER_TEXTURE, &state, miNULLTAG, nullptr));
}

TEST(StageCalls, ListsRunInOrderOnOneResult) {
    TestScene s;
    const auto times = [](float factor, miBoolean answer) {
        return [=](void* r, miState*, void*, void*) {
            color(r).r = (color(r).r + 1.0f) * factor;
            return answer;
        };
    };
    const miTag first = s.add_shader(times(2.0f, miTRUE));
    const miTag second = s.add_shader(times(10.0f, miFALSE));
    const miTag third = s.add_shader(times(1.0f, miFALSE));
    s.record<miFunction>(first)->next_function = second;
    s.record<miFunction>(second)->next_function = third;
    s.build();
    miState state = s.eye();
    miColor result{};
    // ((0 + 1) 2 + 1) 10 + 1 = 31, lit because the first is.
    EXPECT_TRUE(stage::call_shader(&result, miSHADER_MATERIAL, &state, first, nullptr));
    EXPECT_EQ(result.r, 31.0f);
    // A shadow list ends with the first that lets nothing through: ((0 + 1) 2 + 1) 10 = 30.
    result = {};
    EXPECT_FALSE(stage::call_shader(&result, miSHADER_SHADOW, &state, first, nullptr));
    EXPECT_EQ(result.r, 30.0f);
}

TEST(StageCalls, MaterialSlotsAndPhenomena) {
    TestScene s;
    const auto shader = [&](float value) {
        return s.add_shader([value](void* r, miState*, void*, void*) {
            color(r).r = value;
            return miTRUE;
        });
    };
    const miTag surface = shader(1.0f);
    const miTag shadow = shader(2.0f);
    const miTag volume = shader(3.0f);
    const miTag material = s.add_material(surface, shadow, volume);
    const miTag of_material = s.add_phenomenon(material);
    const miTag of_shader = s.add_phenomenon(surface);
    s.scene.database.find(of_shader)->shader->volume = volume;
    s.build();

    const struct {
        miTag tag;
        miShader_type type;
        float value; // 0: no such shader
    } cases[] = {
        {material, miSHADER_MATERIAL, 1.0f},    {material, miSHADER_SHADOW, 2.0f},
        {material, miSHADER_VOLUME, 3.0f},      {material, miSHADER_ENVIRONMENT, 0.0f},
        {of_material, miSHADER_MATERIAL, 1.0f}, {of_material, miSHADER_SHADOW, 2.0f},
        {of_shader, miSHADER_MATERIAL, 1.0f},   {of_shader, miSHADER_VOLUME, 3.0f},
        {of_shader, miSHADER_SHADOW, 0.0f},     {surface, miSHADER_MATERIAL, 1.0f},
        {surface, miSHADER_SHADOW, 0.0f},       {surface, miSHADER_VOLUME, 0.0f},
    };
    for (const auto& c : cases) {
        miState state = s.eye();
        miColor result{};
        state.material = c.tag;
        const miTag slot = stage::material_slot(s.scene, c.tag, c.type);
        EXPECT_EQ(stage::call_shader(&result, c.type, &state, slot, nullptr), c.value != 0.0f);
        EXPECT_EQ(result.r, c.value) << "tag " << c.tag << " type " << c.type;
    }
}

// ---- connected parameters ----

// What a shader with a connected color sees.
miColor evaluated(TestScene& s, miTag shader) {
    miState state = s.eye();
    miColor result{};
    stage::call_shader(&result, miSHADER_MATERIAL, &state, shader, nullptr);
    return result;
}

miBoolean give_color(void* r, miState* state, void* params, void*) {
    color(r) = *static_cast<miColor*>(mi_eval(state, &static_cast<Block*>(params)->color));
    return miTRUE;
}

TEST(StageParameters, LiteralResultAndMemberOfAResult) {
    TestScene s;
    struct Two {
        miScalar a;
        miColor b;
    };
    int calls = 0;
    const miTag source = s.add_shader(
        [&](void* r, miState* state, void*, void*) {
            ++calls;
            EXPECT_EQ(state->call_type, miSHADER_TEXTURE);
            *static_cast<Two*>(r) = {5.0f, {0.1f, 0.2f, 0.3f, 0.4f}};
            return miTRUE;
        },
        miTYPE_STRUCT, sizeof(Two));
    const miTag literal = s.add_shader(give_color);
    s.block(literal).color = {1.0f, 2.0f, 3.0f, 4.0f};
    const miTag connected = s.add_shader(give_color);
    s.connect(connected, {offsetof(Block, color), sizeof(miColor), source, false, offsetof(Two, b)});
    s.build();
    EXPECT_EQ(evaluated(s, literal).g, 2.0f);
    EXPECT_EQ(evaluated(s, connected).g, 0.2f);
    EXPECT_EQ(evaluated(s, connected).a, 0.4f);
    EXPECT_EQ(calls, 2); // again at each use
}

TEST(StageParameters, ResultsLiveUntilTheShaderReturns) {
    TestScene s;
    float next = 1.0f;
    const miTag source = s.add_shader([&](void* r, miState*, void*, void*) {
        color(r).r = next++;
        return miTRUE;
    });
    const miTag shader = s.add_shader([](void* r, miState* state, void* params, void*) {
        auto& block = *static_cast<Block*>(params);
        const auto* a = static_cast<const miColor*>(mi_eval(state, &block.color));
        const auto* b = static_cast<const miColor*>(mi_eval(state, &block.color));
        color(r).r = a->r * 10.0f + b->r;
        return miTRUE;
    });
    s.connect(shader, {offsetof(Block, color), sizeof(miColor), source, false, 0});
    s.build();
    EXPECT_EQ(evaluated(s, shader).r, 12.0f);
    const stage::Arena::Mark before = s.context.arena.mark();
    evaluated(s, shader);
    EXPECT_EQ(s.context.arena.mark().used, before.used);
}

TEST(StageParameters, InterfacesHandOnLiteralsConnectionsAndMixtures) {
    TestScene s;
    const miTag inner = s.add_shader(give_color);
    const miTag phenomenon = s.add_phenomenon(inner);
    s.record<miFunction>(inner)->interfacephen = phenomenon;
    Connection to_interface{offsetof(Block, color), sizeof(miColor), miNULLTAG, true, offsetof(Block, color)};
    s.connect(inner, to_interface);
    s.block(phenomenon).color = {1.0f, 2.0f, 3.0f, 4.0f};
    const miTag scalar = s.add_shader(
        [](void* r, miState*, void*, void*) {
            *static_cast<miScalar*>(r) = 20.0f;
            return miTRUE;
        },
        miTYPE_SCALAR, sizeof(miScalar));
    const miTag whole = s.add_shader([](void* r, miState*, void*, void*) {
        color(r) = {7.0f, 8.0f, 9.0f, 0.0f};
        return miTRUE;
    });
    // A phenomenon in a phenomenon: the inner interface is connected to the outer one.
    const miTag nested = s.add_phenomenon(phenomenon);
    s.block(nested).color = {11.0f, 12.0f, 13.0f, 14.0f};
    s.build();

    EXPECT_EQ(evaluated(s, phenomenon).g, 2.0f);
    s.connect(phenomenon,
              {offsetof(Block, color) + offsetof(miColor, g), sizeof(miScalar), scalar, false, 0});
    EXPECT_EQ(evaluated(s, phenomenon).g, 20.0f); // one component is connected
    EXPECT_EQ(evaluated(s, phenomenon).b, 3.0f);  // the others are the literal's

    stage::ShaderInstance& instance = *s.scene.database.find(phenomenon)->shader;
    instance.connections.clear();
    s.connect(phenomenon, {offsetof(Block, color), sizeof(miColor), whole, false, 0});
    EXPECT_EQ(evaluated(s, phenomenon).b, 9.0f);

    instance.connections.clear();
    s.record<miFunction>(phenomenon)->interfacephen = nested;
    s.connect(phenomenon, to_interface);
    EXPECT_EQ(evaluated(s, nested).b, 13.0f);
}

} // namespace
