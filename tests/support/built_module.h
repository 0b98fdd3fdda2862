// The shaders of the built module, loaded as the renderer loads it. For programs that are given its file as
// ORL_FILE_ORLSHADERS.
#pragma once

#include "library.h"
#include "shader_world.h"

#include <cstdio>
#include <cstdlib>

namespace scripted {

// The module, with the scripted renderer behind it; ends the process when it cannot be loaded.
inline void* built_module() {
    static void* const module = [] {
        void* const loaded = open_library(ORL_FILE_ORLSHADERS);
        void* const set_handle = loaded ? symbol_of(loaded, "miSetModuleHandle") : nullptr;
        if (!set_handle) {
            std::fprintf(stderr, "%s cannot be loaded\n", ORL_FILE_ORLSHADERS);
            std::abort();
        }
        reinterpret_cast<void (*)(void*)>(set_handle)(Renderer::get().handle());
        return loaded;
    }();
    return module;
}

inline Entries entries_of(const orl::decl::Shader& shader) {
    const auto find = [&](auto& entry, const char* end) {
        void* const found = symbol_of(built_module(), (shader.name + std::string(end)).c_str());
        entry = reinterpret_cast<std::remove_reference_t<decltype(entry)>>(found);
    };
    Entries entries{};
    find(entries.version, "_version");
    find(entries.run, "");
    if (shader.has_init)
        find(entries.init, "_init");
    if (shader.has_exit)
        find(entries.exit, "_exit");
    return entries;
}

} // namespace scripted
