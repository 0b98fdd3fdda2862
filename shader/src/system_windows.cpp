/* The system seam for Windows. */
#include "system.h"

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <cwchar>
#include <iterator>

namespace orl::system {

const bool host_handles = true;

EntryPoint find_symbol(void* module, const char* name) noexcept {
    return reinterpret_cast<EntryPoint>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void* load_library(const char* base_name) noexcept {
    wchar_t file[64];
    const int length = std::swprintf(file, std::size(file), L"%hs.dll", base_name);
    return length > 0 ? LoadLibraryExW(file, nullptr, 0) : nullptr;
}

void unload_library(void* library) noexcept {
    if (library != nullptr)
        FreeLibrary(static_cast<HMODULE>(library));
}

int last_error() noexcept {
    return static_cast<int>(GetLastError());
}

bool wait_times_out(std::uint64_t handle, unsigned milliseconds) noexcept {
    return WaitForSingleObject(reinterpret_cast<HANDLE>(handle), milliseconds) == WAIT_TIMEOUT;
}

} // namespace orl::system
