// The border between the scripted renderer's library and the test that loaded it: for each renderer function
// what the test runs for it. Only plain data and function pointers cross: either side may carry a C++
// run-time of its own, so neither frees, grows or throws what the other made.
#pragma once

#include "mi_binding.h"

#ifdef __MINGW32__
// The run-time's va_list carries an attribute that plays no part in a function's type.
#pragma GCC diagnostic ignored "-Wignored-attributes"
#endif

namespace scripted {

template <class Signature> struct Hook;
template <class Result, class... Arguments> struct Hook<Result(Arguments...)> {
    Result (*call)(void* context, Arguments...);
    void* context;
};

struct Hooks {
#define HOOK(result, name, parameters, arguments) Hook<result parameters> name;
#define MESSAGE_HOOK(name) Hook<void(const char*)> name;
    ORL_RENDERER_FUNCTIONS(HOOK, MESSAGE_HOOK)
#undef HOOK
#undef MESSAGE_HOOK
};

} // namespace scripted
