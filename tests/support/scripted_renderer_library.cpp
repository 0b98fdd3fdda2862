// The shared library that stands in for the renderer's module: exports every renderer function and hands each
// call to the test's hook.
#include "scripted_hooks.h"

#include <cstdarg>
#include <cstdio>

namespace {
scripted::Hooks hooks;
}

extern "C" {

DLLEXPORT scripted::Hooks* scripted_renderer() {
    return &hooks;
}

// What follows the first argument of a call, from a list of arguments in parentheses.
#define AND_ARGUMENTS(...) __VA_OPT__(, ) __VA_ARGS__

#define EXPORT(result, name, parameters, arguments)                                                          \
    DLLEXPORT result name parameters {                                                                       \
        return hooks.name.call(hooks.name.context AND_ARGUMENTS arguments);                                  \
    }
#define EXPORT_MESSAGE(name)                                                                                 \
    DLLEXPORT void name(const char* format, ...) {                                                           \
        char text[4096];                                                                                     \
        std::va_list arguments;                                                                              \
        va_start(arguments, format);                                                                         \
        std::vsnprintf(text, sizeof text, format, arguments);                                                \
        va_end(arguments);                                                                                   \
        hooks.name.call(hooks.name.context, text);                                                           \
    }
ORL_RENDERER_FUNCTIONS(EXPORT, EXPORT_MESSAGE)
}
