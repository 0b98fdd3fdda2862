/*
 * What the scripted renderer's shared library shows to the test that loaded it:
 * a table with one hook for each renderer function. Only plain data and
 * function pointers cross the border: executable and library may each carry a
 * C++ run-time of their own, so neither frees, grows or throws what the other
 * made.
 */
#pragma once

#include "shader.h"

#include <atomic>

namespace scripted {

template <class Signature> struct Hook;

template <class Result, class... Arguments> struct Hook<Result(Arguments...)> {
    Result (*call)(void* context, Arguments...); /* what the test scripted, null for the fallback */
    void* context;
    Result (*fallback)(Arguments...); /* the library's own answer, never null */
    std::atomic<int> calls;           /* since the last reset */
    const char* name;
};

#ifdef __MINGW32__
/* The run-time's va_list carries an attribute that plays no part in a
 * function's type. */
#pragma GCC diagnostic ignored "-Wignored-attributes"
#endif

struct Hooks {
#define RENDERER_FUNCTION(result, name, parameters, arguments) Hook<result parameters> name;
#define RENDERER_MESSAGE(name) Hook<void(const char*)> name;
#include "renderer_functions.inc"
};

/* Counts of the library's allocator and locks. */
struct Resources {
    long long live_blocks;
    long long live_bytes;
    long long allocations;  /* ever made */
    long long bad_releases; /* of addresses that are no live block */
    long long live_locks;
};

struct Control {
    Hooks hooks;
    void (*reset)(); /* removes hooks, counts, the call log and state records */
    Resources (*resources)();
    void (*fail_allocations_after)(
        long long count);       /* test allocations fail after that many; negative: never */
    void (*log_calls)(bool on); /* keeps the order of calls, off after a reset */
    int (*logged_calls)();
    const char* (*logged_call)(int number);
};

} // namespace scripted
