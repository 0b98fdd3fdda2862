/*
 * Forwarding functions for the renderer's interface, written from the one table in mi_binding.h.
 *
 * Once its entry point is known, a forwarding function is one load, one test and one jump; finding the entry
 * point is kept in functions of their own, so that the way there costs the hot path no stack frame.
 */
#include "mi_binding.h"
#include "system.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <type_traits>

// Format checks and the run-time's va_list are attributes; they play no part in whether two types are the
// same.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace orl {

miBoolean shared_warned_flag = miFALSE;

namespace {

std::atomic<void*> renderer_module{nullptr};

// Two threads may look the same name up at once; both store the same value, so relaxed order is enough.
std::array<std::atomic<system::EntryPoint>, renderer_slots> entry_points{};
static_assert(decltype(entry_points)::value_type::is_always_lock_free);

#define ORL_NAME(result, name, parameters, arguments) #name,
#define ORL_MESSAGE_NAME(name) #name,
constexpr const char* names[] = {ORL_RENDERER_FUNCTIONS(ORL_NAME, ORL_MESSAGE_NAME)};
#undef ORL_NAME
#undef ORL_MESSAGE_NAME

// A name that the renderer lacks stays unresolved and is looked up again at the next call.
[[gnu::cold, gnu::noinline]] system::EntryPoint resolve(Slot slot) noexcept {
    void* const module = renderer_module.load(std::memory_order_relaxed);
    if (module == nullptr)
        std::fprintf(stderr, "DYNLOAD: dl_handle null\n");
    const system::EntryPoint entry = system::find_symbol(module, names[slot]);
    entry_points[slot].store(entry, std::memory_order_relaxed);
    if (entry == nullptr)
        std::fprintf(stderr, "dlsym failed on \"%s\" (handle: 0x%p, error: %d)\n", names[slot], module,
                     system::last_error());
    return entry;
}

// The entry point to call. Deliberate: it may be null, and the call then faults, because no shader can work
// without the renderer.
template <class Function> Function* entry_point(Slot slot) noexcept {
    system::EntryPoint entry = entry_points[slot].load(std::memory_order_relaxed);
    if (entry == nullptr) [[unlikely]]
        entry = resolve(slot);
    return reinterpret_cast<Function*>(entry);
}

} // namespace
} // namespace orl

ORL_EXPORT void miSetModuleHandle(void* handle) {
    orl::renderer_module.store(handle, std::memory_order_relaxed);
    for (auto& entry : orl::entry_points)
        entry.store(nullptr, std::memory_order_relaxed);
    orl::shared_warned_flag = miFALSE;
}

// NOLINTBEGIN(bugprone-macro-parentheses): the arguments are names and types
#define ORL_FORWARD(result, name, parameters, arguments)                                                     \
    static_assert(std::is_same_v<decltype(name), result parameters>);                                        \
    namespace orl {                                                                                          \
    namespace {                                                                                              \
    [[gnu::cold, gnu::noinline]] result first_##name parameters {                                            \
        return reinterpret_cast<decltype(&::name)>(resolve(slot_##name)) arguments;                          \
    }                                                                                                        \
    }                                                                                                        \
    }                                                                                                        \
    extern "C" result name parameters {                                                                      \
        const orl::system::EntryPoint entry =                                                                \
            orl::entry_points[orl::slot_##name].load(std::memory_order_relaxed);                             \
        if (entry == nullptr) [[unlikely]]                                                                   \
            return orl::first_##name arguments;                                                              \
        return reinterpret_cast<decltype(&name)>(entry) arguments;                                           \
    }

// The text is complete before it leaves: the renderer must not interpret it a second time.
#define ORL_MESSAGE(name)                                                                                    \
    static_assert(std::is_same_v<decltype(name), void(const char*, ...)>);                                   \
    extern "C" void name(const char* format, ...) {                                                          \
        char text[orl::message_size];                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, format);                                                                         \
        if (std::vsnprintf(text, sizeof text, format, arguments) < 0)                                        \
            text[0] = '\0';                                                                                  \
        va_end(arguments);                                                                                   \
        orl::entry_point<void(const char*, ...)>(orl::slot_##name)("%s", text);                              \
    }

// NOLINTEND(bugprone-macro-parentheses)

ORL_RENDERER_FUNCTIONS(ORL_FORWARD, ORL_MESSAGE)

extern "C" miBoolean mi_query(const miQ_type code, miState* state, const miTag tag, void* result, ...) {
    va_list arguments;
    va_start(arguments, result);
    const miBoolean known = mi_vquery(code, state, tag, result, arguments);
    va_end(arguments);
    return known;
}
