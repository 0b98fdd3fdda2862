/* The system seam for POSIX systems. */
#include "system.h"

#include <cerrno>
#include <cstdio>
#include <dlfcn.h>

namespace orl::system {

const bool host_handles = false;

// The loader leaves the error number alone when it does not know a name; without the reset, last_error would
// tell of some earlier failure.
EntryPoint find_symbol(void* module, const char* name) noexcept {
    errno = 0;
    return reinterpret_cast<EntryPoint>(dlsym(module, name));
}

void* load_library(const char* base_name) noexcept {
    char file[64];
    const int length = std::snprintf(file, sizeof file, "%s.so", base_name);
    return length > 0 && length < static_cast<int>(sizeof file) ? dlopen(file, RTLD_NOW | RTLD_LOCAL)
                                                                : nullptr;
}

void unload_library(void* library) noexcept {
    if (library != nullptr)
        dlclose(library);
}

int last_error() noexcept {
    return errno;
}

bool wait_times_out(std::uint64_t, unsigned) noexcept {
    return false;
}

} // namespace orl::system
