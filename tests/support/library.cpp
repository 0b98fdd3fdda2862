#include "library.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace scripted {

void* open_library(const char* file) {
#ifdef _WIN32
    return reinterpret_cast<void*>(LoadLibraryA(file));
#else
    return dlopen(file, RTLD_NOW | RTLD_LOCAL);
#endif
}

void* symbol_of(void* library, const char* name) {
#ifdef _WIN32
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
#else
    return dlsym(library, name);
#endif
}

} // namespace scripted
