// The binding to the renderer: every function reaches its namesake with its arguments, a new module is looked
// up again, and what cannot be found is told word for word.
#include "mi_binding.h"
#include "scripted_renderer.h"
#include "test_paths.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csetjmp>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <tuple>

#ifndef _WIN32
#include <dlfcn.h>
#endif

namespace {

using scripted::Renderer;

// A value for argument `number` that no other argument of the call has.
template <class T> T distinct(int number) {
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(static_cast<std::intptr_t>(0x1000 + number));
    else
        return static_cast<T>(number);
}

template <class Result> Result answer() {
    if constexpr (!std::is_void_v<Result>)
        return distinct<Result>(21);
}

// Scripts `name`, calls the forwarding function and compares what arrives.
template <class Result, class... Arguments>
void expect_forwarded(const char* name, scripted::Script<Result(Arguments...)>& script,
                      Result (*forward)(Arguments...)) {
    const auto sent = []<int... numbers>(std::integer_sequence<int, numbers...>) {
        return std::tuple<Arguments...>(distinct<Arguments>(numbers + 1)...);
    }
    (std::make_integer_sequence<int, sizeof...(Arguments)>());
    bool arrived = false;
    script = [&](Arguments... arguments) -> Result {
        arrived = std::tuple<Arguments...>(arguments...) == sent;
        return answer<Result>();
    };
    if constexpr (std::is_void_v<Result>)
        std::apply(forward, sent);
    else
        EXPECT_EQ(std::apply(forward, sent), answer<Result>()) << name;
    EXPECT_TRUE(arrived) << name;
    EXPECT_EQ(script.calls(), 1) << name;
}

class Binding : public testing::Test {
protected:
    Renderer& renderer = Renderer::get();
    Binding() {
        renderer.reset();
        miSetModuleHandle(renderer.handle());
    }
};

TEST_F(Binding, QueryHandsItsFurtherArgumentsOn) {
    const miTag a = renderer.add_string("a"), b = renderer.add_string("b");
    const miTag group = renderer.add_group({a, b});
    miTag kid = miNULLTAG;
    EXPECT_TRUE(mi_query(miQ_GROUP_KID, nullptr, group, &kid, 1));
    EXPECT_EQ(kid, b);
    EXPECT_FALSE(mi_query(miQ_GROUP_KID, nullptr, group, &kid, 2));
}

using MessageFunction = void (*)(const char*, ...);

TEST_F(Binding, MessagesArriveFormattedAtTheirLevelAndCutTo1023Characters) {
    const std::pair<MessageFunction, scripted::Level> cases[] = {
        {&mi_debug, scripted::Level::debug},       {&mi_info, scripted::Level::info},
        {&mi_progress, scripted::Level::progress}, {&mi_warning, scripted::Level::warning},
        {&mi_error, scripted::Level::error},
    };
    std::vector<scripted::Message> expected;
    for (const auto& [send, level] : cases) {
        send("%s: %d of %5.2f", "100%s %n", 3, 2.5);
        expected.push_back({level, "100%s %n: 3 of  2.50"});
    }
    for (const std::size_t length : {1022u, 1023u, 1024u, 5000u}) {
        mi_info("%s", std::string(length, 'x').c_str());
        expected.push_back({scripted::Level::info, std::string(std::min<std::size_t>(length, 1023), 'x')});
    }
    EXPECT_EQ(renderer.messages(), expected);
}

TEST_F(Binding, EveryFunctionReachesItsNamesakeInTheModuleThatWasSetLast) {
    namespace fs = std::filesystem;
    const fs::path original = ORL_FILE_SCRIPTED_RENDERER;
    const fs::path copy = fs::path(orl_test_output_dir) / ("second_" + original.filename().string());
    fs::remove(copy); // overwriting does not work with every run-time
    fs::copy_file(original, copy);
    Renderer second(copy.string().c_str());
    int functions = 0;

    // Every slot is filled from the first module, so that one that is not forgotten shows.
#define FIRST(result, name, parameters, arguments) expect_forwarded(#name, renderer.name, &name);
#define FIRST_MESSAGE(name) name("%s", #name);
    ORL_RENDERER_FUNCTIONS(FIRST, FIRST_MESSAGE)
    miSetModuleHandle(second.handle());
#define SECOND(result, name, parameters, arguments)                                                          \
    expect_forwarded(#name, second.name, &name);                                                             \
    EXPECT_EQ(renderer.name.calls(), 1) << #name;                                                            \
    ++functions;
#define SECOND_MESSAGE(name)                                                                                 \
    name("%s", #name);                                                                                       \
    EXPECT_EQ(second.name.calls(), 1) << #name;                                                              \
    EXPECT_EQ(renderer.name.calls(), 1) << #name;                                                            \
    ++functions;
    ORL_RENDERER_FUNCTIONS(SECOND, SECOND_MESSAGE)
    EXPECT_EQ(functions, 127);
    renderer.reset(); // its scripts belong to calls that are over
    miSetModuleHandle(renderer.handle());
    mi_par_aborted();
    EXPECT_EQ(renderer.mi_par_aborted.calls(), 1);
}

#ifdef _WIN32

TEST(BindingDeathTest, WhatCannotBeFoundIsToldAndFaults) {
    EXPECT_DEATH(
        {
            miSetModuleHandle(nullptr);
            mi_par_aborted();
        },
        "DYNLOAD: dl_handle null\n.*dlsym failed on \"mi_par_aborted\" .handle: 0x0+, error: 127.\n");
}

#else

// A character that the locale cannot write makes formatting fail half-way.
TEST_F(Binding, AMessageThatCannotBeFormattedIsEmpty) {
    mi_info("before %ls", L"\U0001F600");
    EXPECT_EQ(renderer.messages().at(0).text, "");
}

sigjmp_buf fault;

// Calls a function that cannot be found; true when the call faulted.
bool faults(void (*call)()) {
    using Handler = void (*)(int);
    const Handler jump = [](int) { siglongjmp(fault, 1); };
    const Handler before = std::signal(SIGSEGV, jump);
    const bool faulted = sigsetjmp(fault, 1) != 0;
    if (!faulted)
        call();
    std::signal(SIGSEGV, before);
    return faulted;
}

// The loader does not count an unknown name as a failure of the system, so the error is 0.
std::string failure(const char* name, const void* handle) {
    char text[100];
    std::snprintf(text, sizeof text, "dlsym failed on \"%s\" (handle: 0x%p, error: 0)\n", name, handle);
    return text;
}

TEST_F(Binding, WhatIsMissingIsToldAndLookedUpAgainAtEachCall) {
    void* const mathematics = dlopen("libm.so.6", RTLD_NOW);
    ASSERT_NE(mathematics, nullptr);
    miSetModuleHandle(mathematics);
    testing::internal::CaptureStderr();
    errno = EDOM; // of something else, long before
    EXPECT_TRUE(faults([] { mi_matrix_ident(nullptr); }));
    EXPECT_TRUE(faults([] { mi_matrix_ident(nullptr); }));
    EXPECT_TRUE(faults([] { mi_error("x"); }));
    miSetModuleHandle(nullptr);
    EXPECT_TRUE(faults([] { mi_par_aborted(); }));
    const std::string twice = failure("mi_matrix_ident", mathematics);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), twice + twice + failure("mi_error", mathematics) +
                                                          "DYNLOAD: dl_handle null\n" +
                                                          failure("mi_par_aborted", nullptr));
    dlclose(mathematics);
}

#endif

} // namespace
