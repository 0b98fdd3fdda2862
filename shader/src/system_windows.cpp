/* The system seam for Windows. */
#include "system.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace orl::system {

const bool host_handles = true;

EntryPoint find_symbol(void* module, const char* name) noexcept {
    return reinterpret_cast<EntryPoint>(GetProcAddress(static_cast<HMODULE>(module), name));
}

int last_error() noexcept {
    return static_cast<int>(GetLastError());
}

bool wait_times_out(std::uint64_t handle, unsigned milliseconds) noexcept {
    return WaitForSingleObject(reinterpret_cast<HANDLE>(handle), milliseconds) == WAIT_TIMEOUT;
}

} // namespace orl::system
